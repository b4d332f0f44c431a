// The file-creation library: the key catalogue of every data file of a company and the
// functions that create each file empty through the record manager. Each CreateNew...File
// takes an optional file name (null: the standard name global) and answers 1 when the
// file was made, 0 otherwise (the status is readable with GetErrorCode(nullptr)); an
// existing file is not replaced (59). Thread-safe as far as the record manager is.
#ifndef BASICS_PLATFORM_FILE_CREATION_H_
#define BASICS_PLATFORM_FILE_CREATION_H_

#include "record_manager.h"

// Record lengths of the company's data files.
constexpr uint16_t kGeneralRecordLength = 3066;
constexpr uint16_t kChartRecordLength = 2061;
constexpr uint16_t kCustomerRecordLength = 3355;
constexpr uint16_t kVendorRecordLength = 1810;
constexpr uint16_t kEmployeeRecordLength = 8425;
constexpr uint16_t kLineItemRecordLength = 6267;
constexpr uint16_t kJrnlHdrRecordLength = 5950;
constexpr uint16_t kJrnlRowRecordLength = 373;
constexpr uint16_t kProjectRecordLength = 622;
constexpr uint16_t kPhaseRecordLength = 79;
constexpr uint16_t kCostRecordLength = 88;
constexpr uint16_t kJobEstRecordLength = 36;
constexpr uint16_t kInvTagRecordLength = 67;
constexpr uint16_t kInvCostRecordLength = 64;
constexpr uint16_t kRecptTagRecordLength = 46;
constexpr uint16_t kEventLogRecordLength = 314;
constexpr uint16_t kAuditTrailRecordLength = 265;
constexpr uint16_t kTaxAuthorityRecordLength = 256;
constexpr uint16_t kRaiseHistoryRecordLength = 64;
constexpr uint16_t kSortRecordLength = 389;

// The company's data files.
enum class DataFileKind {
  kGeneral, kChart, kCustomer, kVendor, kLineItem, kEmployee, kJrnlHdr, kJrnlRow,
  kProject, kPhase, kCost, kJobEst, kInvTag, kInvCost, kRecptTag, kEventLog,
  kAuditTrail, kTaxAuthority, kRaiseHistory, kSort,
};
// Fills spec with the description of a file (the same one its CreateNew...File uses).
// Answers false, spec untouched, for an unknown file or a null spec.
bool DescribeDataFile(DataFileKind kind, FileSpec* spec);

int CreateNewGeneralFile(const char* name = nullptr);
int CreateNewChartFile(const char* name = nullptr);
int CreateNewCustomerFile(const char* name = nullptr);
int CreateNewVendorFile(const char* name = nullptr);
int CreateNewLineItemFile(const char* name = nullptr);
int CreateNewEmployeeFile(const char* name = nullptr);
int CreateNewJournalHdrFile(const char* name = nullptr);
int CreateNewJournalRowFile(const char* name = nullptr);
int CreateNewProjectFile(const char* name = nullptr);
int CreateNewPhaseFile(const char* name = nullptr);
int CreateNewCostFile(const char* name = nullptr);
int CreateNewJobEstFile(const char* name = nullptr);
int CreateNewInvTagFile(const char* name = nullptr);
int CreateNewInvCostFile(const char* name = nullptr);
int CreateNewRecptTagFile(const char* name = nullptr);
int CreateNewEventLogFile(const char* name = nullptr);
int CreateNewAuditTrailFile(const char* name = nullptr);
int CreateNewTaxAuthorityFile(const char* name = nullptr);
int CreateNewRaiseHistoryFile(const char* name = nullptr);
// The temporary ledger sort file (no standard name: a null name answers 0).
int CreateNewSortFile(const char* name);

// Creates every data file of a company, empty, in directory (which must exist). Answers
// 1 when all were made; on failure the files already made are removed again.
int CreateNewCompany(const char* directory);

#endif  // BASICS_PLATFORM_FILE_CREATION_H_
