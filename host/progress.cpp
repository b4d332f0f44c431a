#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

// The bar waits this long before it is first drawn, then redraws at most this often.
constexpr auto kFirstDraw = std::chrono::seconds(1);
constexpr auto kRedraw = std::chrono::milliseconds(200);

}  // namespace

Progress::Progress(std::string label, size_t total)
    : label_(std::move(label)),
      total_(total),
      terminal_(::isatty(STDERR_FILENO) == 1),
      start_(Clock::now()),
      last_draw_(start_) {}

Progress::~Progress() {
  if (drawn_) {
    std::fprintf(stderr, "\r%75s\r", "");
    std::fflush(stderr);
  }
}

void Progress::Step(size_t done) {
  // The clock is read every 64th step only: a walk calls this for every record.
  if (!terminal_ || (++calls_ & 63u) != 0) return;
  const Clock::time_point now = Clock::now();
  if (now - start_ < kFirstDraw || (drawn_ && now - last_draw_ < kRedraw)) return;
  last_draw_ = now;
  Draw(done);
}

void Progress::Draw(size_t done) {
  drawn_ = true;
  if (total_ == 0) {
    std::fprintf(stderr, "\r%s %zu", label_.c_str(), done);
  } else {
    if (done > total_) done = total_;
    const int percent = static_cast<int>(done * 100 / total_);
    const int filled = percent * 30 / 100;
    std::fprintf(stderr, "\r%s [%.*s%*s] %3d%% (%zu/%zu)", label_.c_str(), filled,
                 "##############################", 30 - filled, "", percent, done, total_);
  }
  std::fflush(stderr);
}

}  // namespace host
