// Phases: lookups on the module's private read-only handle, the transaction test, list rows
// and the use test.
#include "PHASE.h"

#include <cstring>

#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "PROJECT_internal.h"
#include "record_manager.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/PHASE";

constexpr int kMsgPhaseNotFound = 15603;
constexpr int kMsgPhaseInactive = 15604;
// The phase list's own label; it is not in the host's string table.
constexpr const char* kInactivePhaseLabel = "<Inactive Phase>";

int OpenForLookup(BtrvFile** file, uint16_t mode) { return OpenPhaseFile(file, mode); }

// Phases have no GUID key; the lookup never reads by GUID.
MasterLookup<PhaseRecord> g_lookup(OpenForLookup, kUnit, kPhaseKeyID, kPhaseKeyRecordNumber, -1);

}  // namespace

uint8_t OpenPhaseFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, PhaseName, mode, kFileNoPhase, csTheOwner.c_str(),
                           "Basics/PHASE") != 0
             ? 1
             : 0;
}

bool PhaseExist(const FixedString<21>& id) {
  PhaseRecord record;
  return g_lookup.ReadById(id, &record);
}

bool PhaseTrxAllowed(const FixedString<21>& id) {
  if (g_lookup.Handle() == nullptr) return false;
  const FixedString<21> text = jobs::IdText(id);
  PhaseRecord record;
  if (!g_lookup.ReadById(id, &record)) {
    MessageWithString(MB_ICONEXCLAMATION, kMsgPhaseNotFound, text.s);
    return false;
  }
  if (!record.Inactive) return true;
  return jobs::UseInactiveAnyway(kMsgPhaseInactive, text.s);
}

int32_t GetPhaseNumFromID(const FixedString<21>& id) {
  if (id.IsEmpty()) return 0;
  PhaseRecord record;
  return g_lookup.ReadById(id, &record) ? record.RecordNumber : 0;
}

bool GetPhaseIDFromNum(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  if (record_number == 0) return false;
  PhaseRecord record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return false;
  id = record.ID;
  return true;
}

bool UseCosts(const FixedString<21>& id) {
  PhaseRecord record;
  return g_lookup.ReadById(id, &record) && record.UsesCostCodes != 0;
}

bool bIsPhaseInactive(const FixedString<21>& id) {
  PhaseRecord record;
  return g_lookup.ReadById(id, &record) && record.Inactive != 0;
}

bool bPhasesExist() {
  BtrvFile* file = g_lookup.Handle();
  PhaseRecord record;
  std::memset(&record, 0, sizeof record);
  return file != nullptr &&
         GetFileLowest(file, kLockBiasNone, sizeof record, &record, kPhaseKeyID) != 0;
}

bool GetPhaseDescription(const FixedString<21>& id, FixedString<31>& description) {
  description.Clear();
  PhaseRecord record;
  if (!g_lookup.ReadById(id, &record)) return false;
  Assign(description, record.Description.s, jobs::kTextChars);
  return true;
}

bool bGetCostTypeFromPhase(const FixedString<21>& id, FixedString<21>& cost_type) {
  cost_type.Clear();
  PhaseRecord record;
  if (!g_lookup.ReadById(id, &record)) return false;
  Assign(cost_type, record.CostType.s, jobs::kIdChars);
  return true;
}

void MakePhaseString(PhaseRecord* record, unsigned short capacity, char* text) {
  if (!jobs::StartListRow(text, capacity, record != nullptr,
                          record != nullptr ? record->ID.s : nullptr,
                          record != nullptr ? record->Description.s : nullptr)) {
    return;
  }
  if (record->Inactive) {
    sstrcat(text, "\t", capacity);
    sstrcat(text, kInactivePhaseLabel, capacity);
  }
}

void SetPhaseTabs(HWND list) {
  static const int16_t kTabs[] = {104, 248};
  jobs::SendTabs(list, kTabs, sizeof kTabs / sizeof kTabs[0]);
}

bool IsPhaseUsed(PhaseRecord* phase, unsigned char cost_rows_only) {
  if (phase == nullptr || phase->RecordNumber == 0) return false;
  const FixedString<21> id = jobs::IdText(phase->ID);
  const int named = jobs::JobRowsName(jobs::RowField::kPhase, id.s, cost_rows_only != 0);
  // Rows that cannot be read might name the phase: answering "used" keeps the host from
  // deleting a phase that transactions still point at.
  if (named != 0) return true;
  return jobs::EstimatesName(jobs::EstimateField::kPhase, phase->RecordNumber);
}

void CloseInternalPhaseFile() { g_lookup.Close(); }
