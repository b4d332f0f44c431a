// Job estimates: the estimate file's open function, the sums of a project's estimates and
// their deletion. Keeps no handle of its own: the caller passes the estimate file in (the
// phase and cost-code use tests open it for the moment). Builds on OpenDat. Not
// thread-safe on one handle.
#ifndef BASICS_JOBEST_H_
#define BASICS_JOBEST_H_

#include <cstddef>
#include <cstdint>

#include "record_manager.h"

// JobEstRecord, 36 bytes. Key 0 (project, phase, cost code) keeps a project's estimates
// together.
//   offset  size  field
//        0     4  project record number (s32)
//        4     4  phase record number (s32)
//        8     4  cost code record number (s32)
//       12     8  (carried unchanged)
//       20     8  estimated revenue (double)
//       28     8  estimated expenses (double)
#pragma pack(push, 1)
struct JobEstRecord {
  int32_t Project;
  int32_t Phase;
  int32_t CostCode;
  uint8_t reserved12[8];
  double Revenue;
  double Expenses;
};
#pragma pack(pop)
static_assert(sizeof(JobEstRecord) == 36, "JobEstRecord is 36 bytes");
static_assert(offsetof(JobEstRecord, Phase) == 4 && offsetof(JobEstRecord, CostCode) == 8,
              "estimate phase at 4, cost code at 8");
static_assert(offsetof(JobEstRecord, Revenue) == 20 && offsetof(JobEstRecord, Expenses) == 28,
              "estimate revenue at 20, expenses at 28");

// Key numbers of the estimate file.
enum : int16_t { kJobEstKeyProject = 0 };

// Opens the estimate file: read-only (254) without an owner name and file number 0,
// any other mode with number 40 and the standard owner. 1 on success, the handle then the
// caller's to close; on failure 0 with *file null, shown to the user only for a file in
// use (the record manager's prompt). *file must not hold an open handle on entry.
uint8_t OpenJobEstFile(BtrvFile** file, uint16_t mode);

// Deletes every estimate of the project through the caller's handle (opened for writing),
// in one batch: when any delete fails the batch is abandoned and no estimate is deleted.
// Always answers true (also for a null file, and when nothing could be deleted).
bool DeleteJobEstRecords(BtrvFile* file, int32_t project);

// revenue and expenses := the sums of the project's estimated revenue and expenses read
// through the caller's handle; both 0 when it has none or the file is null. A null output
// is skipped.
void FindEstRevenueAndExpences(int32_t project, BtrvFile* file, double* revenue, double* expenses);

#endif  // BASICS_JOBEST_H_
