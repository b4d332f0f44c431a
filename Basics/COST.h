// Cost codes of job costing: the cost-code file's open function, lookups between cost-code
// IDs and record numbers, the check made before a transaction uses a cost code, list-box
// rows and whether journal rows or job estimates still name a cost code. Owns a private
// read-only lookup handle (opened on first use, closed by CloseInternalCostFile). Builds on
// OpenDat, the journal row layout and JOBEST. Not thread-safe (the host serialises its
// calls).
#ifndef BASICS_COST_H_
#define BASICS_COST_H_

#include <cstddef>
#include <cstdint>

#include "dialog.h"
#include "record_manager.h"
#include "zor_types.h"

// CostRecord, 88 bytes.
//   offset  size  field
//        0    21  cost code ID (20 characters and terminator); key 0
//       21     4  record number (s32); key 1
//       25    31  description (30 characters and terminator)
//       56    31  cost type (30 characters and terminator)
//       87     1  inactive flag
#pragma pack(push, 1)
struct CostRecord {
  FixedString<21> ID;
  int32_t RecordNumber;
  FixedString<31> Description;
  FixedString<31> CostType;
  uint8_t Inactive;
};
#pragma pack(pop)
static_assert(sizeof(CostRecord) == 88, "CostRecord is 88 bytes");
static_assert(offsetof(CostRecord, RecordNumber) == 21, "cost record number at 21");
static_assert(offsetof(CostRecord, Description) == 25, "cost description at 25");
static_assert(offsetof(CostRecord, CostType) == 56, "cost type at 56");
static_assert(offsetof(CostRecord, Inactive) == 87, "cost inactive flag at 87");

// Key numbers of the cost-code file.
enum : int16_t { kCostKeyID = 0, kCostKeyRecordNumber = 1 };

// Opens the cost-code file (file number 39); 1 on success, the handle then the caller's to
// close. On failure 0 with *file null, shown to the user only for a file in use (the record
// manager's prompt); *file must not hold an open handle on entry.
uint8_t OpenCostFile(BtrvFile** file, uint16_t mode);

// Lookups show no message; a cost-code file that cannot be opened answers not found.

// Whether a cost code of that ID exists.
bool CostExist(const FixedString<21>& id);
// true for an active cost code, or an inactive one when the user answers Yes to message
// 15704 naming it; false after message 15703 naming it when absent; false silently when
// the file cannot be opened.
bool CostTrxAllowed(const FixedString<21>& id);
// Record number of a cost-code ID; 0 for an empty or unknown ID.
int32_t GetCostNumFromID(const FixedString<21>& id);
// Clears id, then fills it; false, id empty, for number 0 or an unknown number.
bool GetCostIDFromNum(int32_t record_number, FixedString<21>& id);
// The cost code's inactive flag; false when absent.
bool bIsCostInactive(const FixedString<21>& id);
// Whether the cost-code file holds at least one record.
bool bCostsExist();
// Clears description, then fills it; answers whether the cost code was found.
bool GetCostDescription(const FixedString<21>& id, FixedString<31>& description);
// Clears cost_type, then fills it with the cost code's, cut to 20 characters; answers
// whether the cost code was found.
bool bGetCostTypeFromCost(const FixedString<21>& id, FixedString<21>& cost_type);

// --- Display -----------------------------------------------------------------------------
// text := ID (20), tab, description (30), and for an inactive cost code a tab and string
// 15706; cut to capacity (counting the terminator). Empty for a null record; nothing
// written for a null text or capacity 0.
void MakeCostString(CostRecord* record, unsigned short capacity, char* text);
// Sets the cost-code list's tab positions 104 and 248 (list message 2077).
void SetCostTabs(HWND list);

// --- Use --------------------------------------------------------------------------------
// Whether a journal row of a job names the cost code, else whether a job estimate carries
// its record number. false for a null cost code or record number 0; true, to be safe,
// when the journal row file cannot be opened. Shows no message.
bool IsCostUsed(CostRecord* cost);

// Closes the lookup handle when open.
void CloseInternalCostFile();

#endif  // BASICS_COST_H_
