// A fault-injecting wrapper around any backend, for tests: it counts the calls that
// change a store and fails the Nth with a chosen status, so that tests can prove every
// write path leaves nothing partial. Builds on rm_backend.h. The plan's counters are
// atomic; the wrapper is as thread-safe as the backend it wraps.
#ifndef BASICS_PLATFORM_RM_FAULT_BACKEND_H_
#define BASICS_PLATFORM_RM_FAULT_BACKEND_H_

#include <atomic>
#include <memory>

#include "rm_backend.h"

namespace rm {

struct FaultPlan {
  std::atomic<int> fail_at{0};      // 1-based number of the counted call to fail; 0 never
  std::atomic<Status> status{2};    // what the failed call answers
  std::atomic<bool> sticky{false};  // fail every counted call from the Nth on
  std::atomic<bool> count_reads{false};
  // The failed call also undoes the open transaction, as SQLite does by itself after
  // some disk-full and I/O errors.
  std::atomic<bool> undo_transaction{false};
  std::atomic<int> calls{0};     // counted calls so far
  std::atomic<int> failures{0};  // calls failed so far

  // Starts over: fail the nth counted call from now with status.
  void Arm(int nth, Status fail_status, bool fail_sticky = false, bool undo = false) {
    calls = 0;
    failures = 0;
    status = fail_status;
    sticky = fail_sticky;
    undo_transaction = undo;
    fail_at = nth;
  }
  void Disarm() { fail_at = 0; }
};

// Wraps inner; the plan may be changed while the wrapper is in use.
std::unique_ptr<Backend> WrapWithFaults(std::unique_ptr<Backend> inner,
                                        std::shared_ptr<FaultPlan> plan);

}  // namespace rm

#endif  // BASICS_PLATFORM_RM_FAULT_BACKEND_H_
