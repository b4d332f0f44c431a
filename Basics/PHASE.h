// Phases of job costing: the phase file's open function, lookups between phase IDs and
// record numbers, the check made before a transaction uses a phase, list-box rows and
// whether journal rows or job estimates still name a phase. Owns a private read-only
// lookup handle (opened on first use, closed by CloseInternalPhaseFile). Builds on OpenDat,
// the journal row layout and JOBEST. Not thread-safe (the host serialises its calls).
#ifndef BASICS_PHASE_H_
#define BASICS_PHASE_H_

#include <cstddef>
#include <cstdint>

#include "dialog.h"
#include "record_manager.h"
#include "zor_types.h"

// PhaseRecord, 79 bytes.
//   offset  size  field
//        0    21  phase ID (20 characters and terminator); key 0
//       21     4  record number (s32); key 1
//       25    31  description (30 characters and terminator)
//       56    21  cost type (20 characters and terminator)
//       77     1  uses-cost-codes flag
//       78     1  inactive flag
#pragma pack(push, 1)
struct PhaseRecord {
  FixedString<21> ID;
  int32_t RecordNumber;
  FixedString<31> Description;
  FixedString<21> CostType;
  uint8_t UsesCostCodes;
  uint8_t Inactive;
};
#pragma pack(pop)
static_assert(sizeof(PhaseRecord) == 79, "PhaseRecord is 79 bytes");
static_assert(offsetof(PhaseRecord, RecordNumber) == 21, "phase record number at 21");
static_assert(offsetof(PhaseRecord, Description) == 25, "phase description at 25");
static_assert(offsetof(PhaseRecord, CostType) == 56, "phase cost type at 56");
static_assert(offsetof(PhaseRecord, UsesCostCodes) == 77, "phase uses-cost-codes flag at 77");
static_assert(offsetof(PhaseRecord, Inactive) == 78, "phase inactive flag at 78");

// Key numbers of the phase file.
enum : int16_t { kPhaseKeyID = 0, kPhaseKeyRecordNumber = 1 };

// Opens the phase file (file number 38); 1 on success, the handle then the caller's to
// close. On failure 0 with *file null, shown to the user only for a file in use (the record
// manager's prompt); *file must not hold an open handle on entry.
uint8_t OpenPhaseFile(BtrvFile** file, uint16_t mode);

// Lookups show no message; a phase file that cannot be opened answers not found.

// Whether a phase of that ID exists.
bool PhaseExist(const FixedString<21>& id);
// true for an active phase, or an inactive one when the user answers Yes to message 15604
// naming it; false after message 15603 naming it when absent; false silently when the
// file cannot be opened.
bool PhaseTrxAllowed(const FixedString<21>& id);
// Record number of a phase ID; 0 for an empty or unknown ID.
int32_t GetPhaseNumFromID(const FixedString<21>& id);
// Clears id, then fills it; false, id empty, for number 0 or an unknown number.
bool GetPhaseIDFromNum(int32_t record_number, FixedString<21>& id);
// The phase's uses-cost-codes flag; false when absent.
bool UseCosts(const FixedString<21>& id);
// The phase's inactive flag; false when absent.
bool bIsPhaseInactive(const FixedString<21>& id);
// Whether the phase file holds at least one record.
bool bPhasesExist();
// Clears description, then fills it; answers whether the phase was found.
bool GetPhaseDescription(const FixedString<21>& id, FixedString<31>& description);
// Clears cost_type, then fills it with the phase's; answers whether the phase was found.
bool bGetCostTypeFromPhase(const FixedString<21>& id, FixedString<21>& cost_type);

// --- Display -----------------------------------------------------------------------------
// text := ID (20), tab, description (30), and for an inactive phase a tab and
// "<Inactive Phase>"; cut to capacity (counting the terminator). Empty for a null record;
// nothing written for a null text or capacity 0.
void MakePhaseString(PhaseRecord* record, unsigned short capacity, char* text);
// Sets the phase list's tab positions 104 and 248 (list message 2077).
void SetPhaseTabs(HWND list);

// --- Use --------------------------------------------------------------------------------
// Whether a journal row of a job names the phase (with cost_rows_only, a row that also
// names a cost code), else whether a job estimate carries its record number. false for a
// null phase or record number 0; true, to be safe, when the journal row file cannot be
// opened. Shows no message.
bool IsPhaseUsed(PhaseRecord* phase, unsigned char cost_rows_only);

// Closes the lookup handle when open.
void CloseInternalPhaseFile();

#endif  // BASICS_PHASE_H_
