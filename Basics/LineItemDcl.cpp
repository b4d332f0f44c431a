// Item look-ups, conversions, order quantities and the deletion and duplicate rules, on the
// unit's read-only handles.
#include "LineItemDcl.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "General.h"
#include "LineItemDcl_internal.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "utility.h"

void (*pfnCall_Extern_WriteMaintAuditTrailEntry)(const char*, unsigned short, HWND) = nullptr;

namespace {

using lineitem::kItemLength;
using lineitem::kUnit;

BtrvFile* g_conversion_file = nullptr;
// The order-quantity walk reads the journal through handles of its own, so that it never
// moves the position of a caller's journal files.
BtrvFile* g_order_row_file = nullptr;
BtrvFile* g_order_hdr_file = nullptr;

constexpr int16_t kRowKeyItemDate = 3;     // item, date, post order, line
constexpr int16_t kRowKeyItemJournal = 7;  // item, journal type, date, order flag
constexpr int16_t kHdrKeyPostOrder = 5;

bool IsZeroDate(const DatesType& d) { return d.day == 0 && d.month == 0 && d.year == 0; }

// Equal read of a whole record on key through file; the key fields are already set.
bool ReadItem(BtrvFile* file, LineItemRecord* record, int16_t key) {
  return file != nullptr && GetFileEqual(file, kLockBiasNone, kItemLength, record, key) != 0;
}

// Conversion reads: a cleared record with one key field set, read on the conversion handle.
bool ConvertById(const FixedString<21>& id, LineItemRecord* record) {
  std::memset(record, 0, sizeof *record);
  record->ItemID = id;
  return ReadItem(lineitem::ConversionHandle(), record, kItemKeyID);
}
bool ConvertByNumber(int32_t record_number, LineItemRecord* record) {
  std::memset(record, 0, sizeof *record);
  record->RecordNumber = record_number;
  return ReadItem(lineitem::ConversionHandle(), record, kItemKeyRecordNumber);
}
bool ConvertByGuid(const GUID& guid, LineItemRecord* record) {
  std::memset(record, 0, sizeof *record);
  record->Guid = guid;
  return ReadItem(lineitem::ConversionHandle(), record, kItemKeyGUID);
}

// Whether any journal row of row_file names the item (row key 3 from its record number).
bool ItemHasJournalRows(BtrvFile* row_file, int32_t item) {
  JrnlRowType row{};
  row.Item = item;
  return GetFileGE(row_file, kLockBiasNone, sizeof row, &row, kRowKeyItemDate) != 0 &&
         row.Item == item;
}

// Whether an item built from components lists component among its first count entries.
bool ListsComponent(const LineItemRecord& item, int32_t component) {
  const int count =
      item.ComponentCount < 0 ? 0 : (item.ComponentCount > 100 ? 100 : item.ComponentCount);
  for (int k = 0; k < count; ++k)
    if (item.Components[k].RecordNumber == component) return true;
  return false;
}

// Whether any item with components (item key 10 from class 1, one component, onward while
// the count is not 0) lists component. Walks item_file, whose position it moves.
bool IsComponentOfAnyItem(BtrvFile* item_file, int32_t component, LineItemRecord* scratch) {
  std::memset(scratch, 0, sizeof *scratch);
  scratch->ItemClass = 1;
  scratch->ComponentCount = 1;
  uint8_t found = GetFileGE(item_file, kLockBiasNone, kItemLength, scratch, kItemKeyClass);
  while (found && scratch->ComponentCount != 0) {
    if (ListsComponent(*scratch, component)) return true;
    found = GetFileNext(item_file, kLockBiasNone, kItemLength, scratch, kItemKeyClass);
  }
  return false;
}

}  // namespace

namespace lineitem {

BtrvFile* BrowseHandle() {
  return EnsureLookupHandle(&ItemFile, OpenLineItemFile) ? ItemFile : nullptr;
}

BtrvFile* ConversionHandle() {
  return EnsureLookupHandle(&g_conversion_file, OpenLineItemFile) ? g_conversion_file : nullptr;
}

FixedString<21> FormSubItemID(const FixedString<21>& master_id, const FixedString<5>& first,
                              const FixedString<5>* second) {
  char text[64] = {};
  sstrcpy(text, master_id, 21);
  // An attribute code is 4 characters at most, whatever its buffer holds after them.
  auto code = [](const FixedString<5>& c) { return std::string(c.s, strnlen(c.s, 4)); };
  sstrcat(text, "-", sizeof text);
  sstrcat(text, code(first).c_str(), sizeof text);
  if (second != nullptr) {
    sstrcat(text, "-", sizeof text);
    sstrcat(text, code(*second).c_str(), sizeof text);
  }
  FixedString<21> id;
  id.Set(text, 20);
  return id;
}

void ReportToAuditTrail(const LineItemRecord* record, unsigned short action, HWND window) {
  if (pfnCall_Extern_WriteMaintAuditTrailEntry != nullptr)
    pfnCall_Extern_WriteMaintAuditTrailEntry(reinterpret_cast<const char*>(record), action, window);
}

}  // namespace lineitem

// --- Reads into the caller's record ----------------------------------------------------------

uint8_t GetLineItemRecByKey(LineItemRecord* record, int16_t key) {
  BtrvFile* file = lineitem::BrowseHandle();
  if (record == nullptr || file == nullptr) return 0;
  return GetFileEqual(file, kLockBiasNone, kItemLength, record, key) ? 1 : 0;
}

uint8_t GetLineItemRec(LineItemRecord* record) { return GetLineItemRecByKey(record, kItemKeyID); }

uint8_t GetLineItemRecByRecordNumber(int32_t record_number, LineItemRecord* record) {
  if (record == nullptr) return 0;
  std::memset(record, 0, sizeof *record);
  record->RecordNumber = record_number;
  return GetLineItemRecByKey(record, kItemKeyRecordNumber);
}

uint8_t GetFirstLineItemRecByKey(LineItemRecord* record, int16_t key) {
  BtrvFile* file = lineitem::BrowseHandle();
  if (record == nullptr || file == nullptr) return 0;
  return GetFileGE(file, kLockBiasNone, kItemLength, record, key) ? 1 : 0;
}

uint8_t GetLineItemGreaterRecByKey(LineItemRecord* record, int16_t key) {
  BtrvFile* file = lineitem::BrowseHandle();
  if (record == nullptr || file == nullptr) return 0;
  return GetFileGreater(file, kLockBiasNone, kItemLength, record, key) ? 1 : 0;
}

uint8_t GetNextLineItemRecByKey(LineItemRecord* record, int16_t key) {
  // A walk can only go on where one began: a closed handle is not opened.
  if (record == nullptr || ItemFile == nullptr) return 0;
  return GetFileNext(ItemFile, kLockBiasNone, kItemLength, record, key) ? 1 : 0;
}

uint8_t GetFirstLineItemRec(LineItemRecord* record) {
  return GetFirstLineItemRecByKey(record, kItemKeyID);
}

uint8_t GetNextLineItemRec(LineItemRecord* record) {
  return GetNextLineItemRecByKey(record, kItemKeyID);
}

uint8_t GetLineItemInfo(const FixedString<21>& id, LineItemRecord* record) {
  if (record == nullptr) return 0;
  std::memset(record, 0, sizeof *record);
  record->ItemID = id;
  if (id.IsEmpty()) return 0;
  return GetLineItemRecByKey(record, kItemKeyID);
}

uint8_t GetLineItemInfo(int32_t record_number, LineItemRecord* record) {
  if (record == nullptr) return 0;
  std::memset(record, 0, sizeof *record);
  record->RecordNumber = record_number;
  if (record_number == 0) return 0;
  return ReadItem(lineitem::ConversionHandle(), record, kItemKeyRecordNumber) ? 1 : 0;
}

uint8_t LineItemExistQuietWithRecNum(int32_t record_number) {
  BtrvFile* file = lineitem::BrowseHandle();
  if (file == nullptr) return 0;
  int32_t key = record_number;  // a key-only read fills no more than the key
  return GetFileEqual(file, kLockBiasKeyOnly, sizeof key, &key, kItemKeyRecordNumber) ? 1 : 0;
}

// --- Conversions -------------------------------------------------------------------------------

int32_t GetRecordNumberFromLineItemID(const FixedString<21>& id) {
  if (id.IsEmpty()) return 0;
  LineItemRecord record;
  return ConvertById(id, &record) ? record.RecordNumber : 0;
}

int32_t GetItemRecordNumber(const FixedString<21>& id) {
  std::unique_ptr<LineItemRecord> record(new (std::nothrow) LineItemRecord);
  if (!record) return 0;
  return ConvertById(id, record.get()) ? record->RecordNumber : 0;
}

int32_t GetRecordNumberFromLineItemGUID(const GUID& guid) {
  LineItemRecord record;
  return ConvertByGuid(guid, &record) ? record.RecordNumber : 0;
}

bool GetLineItemIDFromRecordNumber(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  if (record_number == 0) return false;
  LineItemRecord record;
  if (!ConvertByNumber(record_number, &record)) return false;
  id = record.ItemID;
  return true;
}

bool GetLineItemGUIDFromRecordNumber(int32_t record_number, GUID& guid) {
  // Callers learn of success from the GUID alone; the answer stays false as they expect.
  std::memset(&guid, 0, sizeof guid);
  LineItemRecord record;
  if (ConvertByNumber(record_number, &record)) guid = record.Guid;
  return false;
}

bool GetLineItemIDFromGUID(const GUID& guid, FixedString<21>& id) {
  id.Clear();
  LineItemRecord record;
  if (!ConvertByGuid(guid, &record)) return false;
  id = record.ItemID;
  return true;
}

GUID GetLineItemGUIDFromID(const FixedString<21>& id) {
  GUID guid{};
  LineItemRecord record;
  if (!id.IsEmpty() && ConvertById(id, &record)) guid = record.Guid;
  return guid;
}

// --- Quantities ----------------------------------------------------------------------------------

double GetQtyOnSOPO(LineItemRecord* item, JournalTypes type, unsigned short period) {
  if (item == nullptr) return 0;
  if (item->ItemClass != 1 && item->ItemClass != kItemClassSubItem && item->ItemClass != 3)
    return 0;
  // Costs asked for next come from this thread's tag handle: have it ready.
  if (GetInternalInvTagFile() == nullptr) OpenInternalInvTagFile();
  GeneralDataType* gl = nullptr;
  if (!GetGeneralDataPtr(nullptr, &gl, MOD_GL, kGenReadForReading, false) || gl == nullptr)
    return 0;
  // A period without dates (a short year, or one not yet set up) counts up to the end of
  // the nearest earlier period that has them.
  constexpr unsigned short kCalendarSize = sizeof gl->GL.Calendar / sizeof gl->GL.Calendar[0];
  for (;;) {
    if (period < kCalendarSize) {
      const FromTo& range = gl->GL.Calendar[period];
      if (!IsZeroDate(range.from) && !IsZeroDate(range.to)) break;
    }
    if (period == 0) return 0;
    --period;
  }
  const DatesType end = gl->GL.Calendar[period].to;
  double result = 0;
  CalcQtyOnSOPO(item, type, end, &result);
  return result;
}

void CalcQtyOnSOPO(LineItemRecord* item, JournalTypes type, DatesType date, double* result) {
  if (result == nullptr) return;
  *result = 0;
  if (item == nullptr || item->RecordNumber == 0) return;
  const int16_t cls = item->ItemClass;
  if (cls != kItemClassMaster && cls != kItemClassSubItem && cls != 1 && cls != 3) return;
  if (!EnsureLookupHandle(&g_order_row_file, OpenJrnlRowFile)) return;

  JrnlRowType row{};
  row.Item = item->RecordNumber;
  row.JournalType = type;
  uint8_t found = GetFileGE(g_order_row_file, kLockBiasNone, sizeof row, &row, kRowKeyItemJournal);
  while (found && CompareDates(row.Date, date) <= 0 && row.Item == item->RecordNumber &&
         row.JournalType == type && row.OrderFlag == 0) {
    // Only orders that were posted count; a saved order has promised nothing yet.
    JrnlHdrType hdr{};
    hdr.PostOrder = row.PostOrder;
    if (EnsureLookupHandle(&g_order_hdr_file, OpenJrnlHdrFile) &&
        GetFileEqual(g_order_hdr_file, kLockBiasNone, sizeof hdr, &hdr, kHdrKeyPostOrder) &&
        hdr.LedgerFlag != 0)
      *result += row.OrderQuantity2 - row.OrderQuantity1;
    found = GetFileNext(g_order_row_file, kLockBiasNone, sizeof row, &row, kRowKeyItemJournal);
  }
}

double GetQtyAvailable(double first, double second, double third) {
  // Another workstation may just have changed the setting: read it from the file.
  ForceReadGeneralRecord();
  GeneralDataType* inv = nullptr;
  const bool count_second = GetGeneralDataPtr(nullptr, &inv, MOD_INV, kGenReadForReading, false) &&
                            inv != nullptr && inv->INV.Option1057 != 0;
  double available = third - first;
  if (count_second) available += second;
  return available;
}

// --- Deletion rules
// --------------------------------------------------------------------------------

uint8_t IsItOkToDeleteItem(LineItemRecord* item) {
  if (item == nullptr) return 0;
  BtrvFile* rows = nullptr;
  if (!OpenJrnlRowFile(&rows, kOpenModeReadOnly)) return 0;
  const bool used = ItemHasJournalRows(rows, item->RecordNumber);
  BASICS_CLOSE(&rows, kUnit);
  return used ? 0 : 1;
}

uint8_t OkToDeleteItemAllSubItems(LineItemRecord* master, uint8_t plain_message,
                                  uint8_t show_messages) {
  if (master == nullptr) return 0;
  // A master never saved has no sub-items (record number 0 would name every other item).
  if (master->RecordNumber == 0) return 1;
  BtrvFile* rows = nullptr;
  BtrvFile* items = nullptr;
  if (!OpenJrnlRowFile(&rows, kOpenModeReadOnly)) return 0;
  if (!OpenLineItemFile(&items, kOpenModeReadOnly)) {
    BASICS_CLOSE(&rows, kUnit);
    return 0;
  }
  std::unique_ptr<LineItemRecord> sub(new (std::nothrow) LineItemRecord());
  std::unique_ptr<LineItemRecord> other(new (std::nothrow) LineItemRecord());
  uint8_t ok = sub && other ? 1 : 0;
  if (ok) {
    sub->ParentRecordNumber = master->RecordNumber;
    uint8_t found = GetFileEqual(items, kLockBiasNone, kItemLength, sub.get(), kItemKeyParent);
    while (ok && found && sub->ParentRecordNumber == master->RecordNumber) {
      if (ItemHasJournalRows(rows, sub->RecordNumber)) {
        if (show_messages) {
          if (plain_message)
            MessageWithString(MB_ICONINFORMATION, 4482, sub->ItemID);
          else
            MessageWithCard(MB_ICONEXCLAMATION, 4493, sub->FirstAttributeCode, sub->ItemID);
        }
        ok = 0;
        break;
      }
      // The component scan moves the file's position; come back to this sub-item on key 6
      // by its physical position before going on.
      const int32_t position = PhysicalPosition(items);
      if (IsComponentOfAnyItem(items, sub->RecordNumber, other.get())) {
        MessageWithString(MB_ICONINFORMATION, 4497, sub->ItemID);
        ok = 0;
        break;
      }
      found =
          GetFileDirect(items, kLockBiasNone, kItemLength, sub.get(), kItemKeyParent, position) &&
          GetFileNext(items, kLockBiasNone, kItemLength, sub.get(), kItemKeyParent);
    }
  }
  BASICS_CLOSE(&rows, kUnit);
  BASICS_CLOSE(&items, kUnit);
  return ok;
}

// --- Item rules
// ------------------------------------------------------------------------------------

bool UserChangedInheritedField(LineItemRecord* before, LineItemRecord* after) {
  if (before == nullptr || after == nullptr) return false;
  for (const lineitem::FieldSpan& f : lineitem::kInheritedFields) {
    if (std::memcmp(lineitem::Bytes(before) + f.offset, lineitem::Bytes(after) + f.offset,
                    f.size) != 0)
      return true;
  }
  return false;
}

bool UserCreatedDuplicateItemIDs(LineItemRecord* master) {
  if (master == nullptr) return false;
  LineItemRecord existing;
  const bool clear = lineitem::ForEachSubItemID(*master, [&](const FixedString<21>& id, int, int) {
    return !ConvertById(id, &existing) || existing.ParentRecordNumber == master->RecordNumber;
  });
  if (clear) return false;
  Message(MB_ICONEXCLAMATION, 4484);
  return true;
}

bool ThereAreDuplicateUpcSku(const FixedString<21>& upc_sku, const FixedString<21>& item_id) {
  if (upc_sku.IsEmpty()) return false;
  BtrvFile* file = lineitem::ConversionHandle();
  if (file == nullptr) return false;
  LineItemRecord record;
  std::memset(&record, 0, sizeof record);
  record.UpcSku = upc_sku;
  uint8_t found = GetFileEqual(file, kLockBiasNone, kItemLength, &record, kItemKeyUpcSku);
  while (found && CompareStr(record.UpcSku, upc_sku, 20) == 0) {
    if (CompareStr(record.ItemID, item_id, 20) != 0) {
      MessageWithString(MB_ICONEXCLAMATION, 2550, record.ItemID);
      return true;
    }
    found = GetFileNext(file, kLockBiasNone, kItemLength, &record, kItemKeyUpcSku);
  }
  return false;
}

void CloseInternalItemFile() {
  CloseIfOpen(&ItemFile, kUnit, __LINE__);
  CloseIfOpen(&g_conversion_file, kUnit, __LINE__);
  CloseIfOpen(&g_order_row_file, kUnit, __LINE__);
  CloseIfOpen(&g_order_hdr_file, kUnit, __LINE__);
}
