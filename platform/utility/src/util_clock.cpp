// The library's only clock: ClockNow answers the host's or a test's clock when one is set,
// else the system's. SystemDate and TodaysDate (set when the library loads) read it.

#include <ctime>
#include <functional>
#include <mutex>
#include <utility>

#include "utility.h"

namespace {

struct ClockState {
  std::mutex mutex;
  std::function<time_t()> clock;
};

// A function-local static, so that TodaysDate's initializer (another static) may read the
// clock whatever the order of static initialisation.
// Never destroyed, so that code running at exit may still read the clock.
ClockState& Clock() {
  static ClockState* state = new ClockState;
  return *state;
}

}  // namespace

time_t ClockNow() {
  std::function<time_t()> clock;
  {
    ClockState& state = Clock();
    std::lock_guard<std::mutex> lock(state.mutex);
    clock = state.clock;
  }
  // Called outside the lock, so that a clock function may itself call SetClock.
  if (clock) return clock();
  return std::time(nullptr);
}

void SetClock(std::function<time_t()> clock) {
  ClockState& state = Clock();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.clock = std::move(clock);
}

// The local calendar date of the clock: the user's "today" is the date on the wall, not the
// date in UTC, so a sale entered at 23:30 keeps the day it was entered on.
DatesType SystemDate() {
  time_t now = ClockNow();
  struct tm parts {};
  DatesType date{};
  if (localtime_r(&now, &parts) == nullptr) return date;
  MakeDate(parts.tm_mon + 1, parts.tm_mday, parts.tm_year + 1900, date);
  return date;
}

DatesType TodaysDate = SystemDate();
