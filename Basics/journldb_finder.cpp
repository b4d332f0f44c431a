// The journal store's own look-up handles and what runs on them: the invoice finder, the
// row-posted test, and the item, phase and cost-code conversions that rows need (through
// those units' own lookups).
#include <cstring>

#include "COST.h"
#include "LineItemDcl.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "PHASE.h"
#include "journldb.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/journldb";

BtrvFile* g_hdr = nullptr;
BtrvFile* g_row = nullptr;

}  // namespace

BtrvFile* JrnlLookupHdrFile() {
  return EnsureLookupHandle(&g_hdr, OpenJrnlHdrFile) ? g_hdr : nullptr;
}

BtrvFile* JrnlLookupRowFile() {
  return EnsureLookupHandle(&g_row, OpenJrnlRowFile) ? g_row : nullptr;
}

bool JrnlItemID(int32_t item, FixedString<21>& id) {
  id.Clear();
  return item != 0 && GetLineItemIDFromRecordNumber(item, id);
}

bool JrnlItemAccounts(int32_t item, int32_t* inventory, int32_t* first, int32_t* second) {
  LineItemRecord record;
  if (item == 0 || !GetLineItemInfo(item, &record)) return false;
  *inventory = record.InventoryAccount;
  *first = record.FirstAccount;
  *second = record.SecondAccount;
  return true;
}

// Phases and cost codes through their own units' lookups.
int32_t JrnlPhaseNumber(const char* id) {
  FixedString<21> key;
  Assign(key, id);
  return key.IsEmpty() ? 0 : GetPhaseNumFromID(key);
}
void JrnlPhaseID(int32_t number, char* id21) {
  std::memset(id21, 0, 21);
  if (number == 0) return;
  FixedString<21> id;
  if (GetPhaseIDFromNum(number, id)) std::memcpy(id21, id.s, 21);
}
int32_t JrnlCostNumber(const char* id) {
  FixedString<21> key;
  Assign(key, id);
  return key.IsEmpty() ? 0 : GetCostNumFromID(key);
}
void JrnlCostID(int32_t number, char* id21) {
  std::memset(id21, 0, 21);
  if (number == 0) return;
  FixedString<21> id;
  if (GetCostIDFromNum(number, id)) std::memcpy(id21, id.s, 21);
}

uint32_t GetInvoicePostOrderNumber(const char* reference, int selector, int32_t card, int variant) {
  if (reference == nullptr || reference[0] == '\0') return 0;
  int16_t journal;
  switch (selector) {
    case 1:
      journal = SJ;
      break;
    case 2:
      journal = PJ;
      break;
    case 3:
      journal = variant == 2 ? SJ : SOJ;
      break;
    case 4:
      journal = variant == 3 ? PJ : POJ;
      break;
    default:
      return 0;
  }
  BtrvFile* file = JrnlLookupHdrFile();
  if (file == nullptr) return 0;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  sstrcpy(hdr.Reference, reference, sizeof hdr.Reference);
  uint8_t ok = GetFileEqual(file, kLockBiasNone, sizeof hdr, &hdr, 2);
  while (ok && std::strncmp(hdr.Reference, reference, sizeof hdr.Reference) == 0) {
    if (hdr.Key1.JournalType == journal && hdr.Key2.Card == card) return hdr.PostOrder;
    ok = GetFileNext(file, kLockBiasNone, sizeof hdr, &hdr, 2);
  }
  return 0;
}

int IsThisRowPosted(const JrnlRowType* row) {
  if (row == nullptr) return 0;
  if (row->Kind == kRowInventoryCost1 || row->Kind == kRowInventoryCost2) return 1;
  BtrvFile* file = JrnlLookupHdrFile();
  if (file == nullptr) return 0;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  hdr.PostOrder = row->PostOrder;
  if (!GetFileEqual(file, kLockBiasNone, sizeof hdr, &hdr, 5)) return 0;
  return hdr.LedgerFlag;
}

void CloseInternalJrnlFiles() {
  CloseIfOpen(&g_hdr, kUnit, __LINE__);
  CloseIfOpen(&g_row, kUnit, __LINE__);
  CloseInternalBelowZeroRowFile();
}
