// Job estimates: the open function, a project's estimate sums and deletion, and the scan
// that tells whether an estimate still names a phase or cost code.
#include "JOBEST.h"

#include <cstring>

#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "PROJECT_internal.h"
#include "record_manager.h"

namespace {

constexpr const char* kUnit = "Basics/JOBEST";

// Positions on the project's first estimate: key 0 begins with the project, so its
// estimates follow one another from there. false when there is none at or after it.
bool FirstAtOrAfter(BtrvFile* file, int32_t project, JobEstRecord* estimate) {
  std::memset(estimate, 0, sizeof *estimate);
  estimate->Project = project;
  return GetFileGE(file, kLockBiasNone, sizeof *estimate, estimate, kJobEstKeyProject) != 0;
}

bool Next(BtrvFile* file, JobEstRecord* estimate) {
  return GetFileNext(file, kLockBiasNone, sizeof *estimate, estimate, kJobEstKeyProject) != 0;
}

}  // namespace

uint8_t OpenJobEstFile(BtrvFile** file, uint16_t mode) {
  // A read-only open goes without owner name and with file number 0; writers name the
  // file's owner and its number. Both forms are kept as callers expect them.
  int result = mode == kOpenModeReadOnly
                   ? BASICS_OPEN_NO_OWNER(file, JobEstName, mode, 0, "Basics/JOBEST")
                   : BASICS_OPEN_OWNER(file, JobEstName, mode, kFileNoJobEst, csStdTheOwner.c_str(),
                                       "Basics/JOBEST");
  return result != 0 ? 1 : 0;
}

bool DeleteJobEstRecords(BtrvFile* file, int32_t project) {
  if (file == nullptr) return true;
  JobEstRecord estimate;
  if (!FirstAtOrAfter(file, project, &estimate) || estimate.Project != project) return true;
  // One batch, so that a project is never left with only part of its estimates.
  if (bBeginBatchUpdate(file) == 0) return true;
  bool ok = FirstAtOrAfter(file, project, &estimate);
  while (ok && estimate.Project == project) {
    if (DeleteRecord(file, sizeof estimate, &estimate) == 0) {
      bAbortBatchUpdate(file);
      return true;
    }
    ok = Next(file, &estimate);
  }
  bEndBatchUpdate(file);
  // The callers go on with the project's deletion whatever happened here.
  return true;
}

void FindEstRevenueAndExpences(int32_t project, BtrvFile* file, double* revenue, double* expenses) {
  if (revenue != nullptr) *revenue = 0;
  if (expenses != nullptr) *expenses = 0;
  if (file == nullptr) return;
  JobEstRecord estimate;
  for (bool ok = FirstAtOrAfter(file, project, &estimate); ok && estimate.Project == project;
       ok = Next(file, &estimate)) {
    if (revenue != nullptr) *revenue += estimate.Revenue;
    if (expenses != nullptr) *expenses += estimate.Expenses;
  }
}

namespace jobs {

bool EstimatesName(EstimateField field, int32_t record_number) {
  BtrvFile* file = nullptr;
  if (OpenJobEstFile(&file, kOpenModeReadOnly) == 0) return false;
  JobEstRecord estimate;
  std::memset(&estimate, 0, sizeof estimate);
  bool named = false;
  for (uint8_t ok = GetFileLowest(file, kLockBiasSingleNoWait, sizeof estimate, &estimate,
                                  kJobEstKeyProject);
       ok != 0; ok = GetFileNext(file, kLockBiasSingleNoWait, sizeof estimate, &estimate,
                                 kJobEstKeyProject)) {
    const int32_t named_number =
        field == EstimateField::kPhase ? estimate.Phase : estimate.CostCode;
    if (named_number == record_number) {
      named = true;
      break;
    }
  }
  BASICS_CLOSE(&file, kUnit);
  return named;
}

}  // namespace jobs
