// Cost codes: lookups on the module's private read-only handle, the transaction test, list
// rows and the use test.
#include "COST.h"

#include <cstring>

#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "PROJECT_internal.h"
#include "record_manager.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/COST";

constexpr int kMsgCostNotFound = 15703;
constexpr int kMsgCostInactive = 15704;
constexpr unsigned kStrCostInactive = 15706;

int OpenForLookup(BtrvFile** file, uint16_t mode) { return OpenCostFile(file, mode); }

// Cost codes have no GUID key; the lookup never reads by GUID.
MasterLookup<CostRecord> g_lookup(OpenForLookup, kUnit, kCostKeyID, kCostKeyRecordNumber, -1);

}  // namespace

uint8_t OpenCostFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, CostName, mode, kFileNoCost, csTheOwner.c_str(), "Basics/COST") !=
                 0
             ? 1
             : 0;
}

bool CostExist(const FixedString<21>& id) {
  CostRecord record;
  return g_lookup.ReadById(id, &record);
}

bool CostTrxAllowed(const FixedString<21>& id) {
  if (g_lookup.Handle() == nullptr) return false;
  const FixedString<21> text = jobs::IdText(id);
  CostRecord record;
  if (!g_lookup.ReadById(id, &record)) {
    MessageWithString(MB_ICONEXCLAMATION, kMsgCostNotFound, text.s);
    return false;
  }
  if (!record.Inactive) return true;
  return jobs::UseInactiveAnyway(kMsgCostInactive, text.s);
}

int32_t GetCostNumFromID(const FixedString<21>& id) {
  if (id.IsEmpty()) return 0;
  CostRecord record;
  return g_lookup.ReadById(id, &record) ? record.RecordNumber : 0;
}

bool GetCostIDFromNum(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  if (record_number == 0) return false;
  CostRecord record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return false;
  id = record.ID;
  return true;
}

bool bIsCostInactive(const FixedString<21>& id) {
  CostRecord record;
  return g_lookup.ReadById(id, &record) && record.Inactive != 0;
}

bool bCostsExist() {
  BtrvFile* file = g_lookup.Handle();
  CostRecord record;
  std::memset(&record, 0, sizeof record);
  return file != nullptr &&
         GetFileLowest(file, kLockBiasNone, sizeof record, &record, kCostKeyID) != 0;
}

bool GetCostDescription(const FixedString<21>& id, FixedString<31>& description) {
  description.Clear();
  CostRecord record;
  if (!g_lookup.ReadById(id, &record)) return false;
  Assign(description, record.Description.s, jobs::kTextChars);
  return true;
}

bool bGetCostTypeFromCost(const FixedString<21>& id, FixedString<21>& cost_type) {
  cost_type.Clear();
  CostRecord record;
  if (!g_lookup.ReadById(id, &record)) return false;
  // A cost code's type holds 30 characters, the transaction's field 20.
  Assign(cost_type, record.CostType.s, jobs::kIdChars);
  return true;
}

void MakeCostString(CostRecord* record, unsigned short capacity, char* text) {
  if (!jobs::StartListRow(text, capacity, record != nullptr,
                          record != nullptr ? record->ID.s : nullptr,
                          record != nullptr ? record->Description.s : nullptr)) {
    return;
  }
  if (record->Inactive) {
    FixedString<31> label;
    jobs::LoadText(kStrCostInactive, label);
    sstrcat(text, "\t", capacity);
    sstrcat(text, label.s, capacity);
  }
}

void SetCostTabs(HWND list) {
  static const int16_t kTabs[] = {104, 248};
  jobs::SendTabs(list, kTabs, sizeof kTabs / sizeof kTabs[0]);
}

bool IsCostUsed(CostRecord* cost) {
  if (cost == nullptr || cost->RecordNumber == 0) return false;
  const FixedString<21> id = jobs::IdText(cost->ID);
  // As for phases, rows that cannot be read count as naming the cost code.
  if (jobs::JobRowsName(jobs::RowField::kCostCode, id.s, false) != 0) return true;
  return jobs::EstimatesName(jobs::EstimateField::kCostCode, cost->RecordNumber);
}

void CloseInternalCostFile() { g_lookup.Close(); }
