// A progress bar on standard error for the host's long commands (posting, generating a
// book, the ledger reports). It is drawn only on a terminal and only once the work has run
// for a second, so that short runs, pipes and the golden tests never see it; it is wiped
// when the work ends. Single-threaded.
#ifndef BASICS_HOST_PROGRESS_H_
#define BASICS_HOST_PROGRESS_H_

#include <chrono>
#include <cstddef>
#include <string>

namespace host {

class Progress {
 public:
  // label names the work ("posting"); total is the number of steps (0: unknown, the bar
  // then shows the count only).
  Progress(std::string label, size_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Tells that done steps are finished; cheap enough to call for every step.
  void Step(size_t done);
  // The total once it is known (a walk that counted its records).
  void SetTotal(size_t total) { total_ = total; }

 private:
  void Draw(size_t done);

  std::string label_;
  size_t total_;
  bool terminal_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_draw_;
  unsigned calls_ = 0;
};

}  // namespace host

#endif  // BASICS_HOST_PROGRESS_H_
