// Sub-items: creating them from a master's attributes, carrying a master's changes over to
// them, and removing them. Every call that writes more than one record does so in one batch
// on the caller's item file and abandons it when any write fails, so the master and its
// sub-items never disagree half-way.
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "LineItemDcl.h"
#include "LineItemDcl_internal.h"
#include "utility.h"

namespace {

using lineitem::Bytes;
using lineitem::FieldSpan;
using lineitem::kItemLength;

constexpr unsigned short kAuditDeleted = 0;
constexpr unsigned short kAuditInserted = 1;
constexpr unsigned short kAuditUpdated = 2;

std::unique_ptr<LineItemRecord> NewRecord() {
  return std::unique_ptr<LineItemRecord>(new (std::nothrow) LineItemRecord());
}

void CopyField(LineItemRecord* to, const LineItemRecord* from, const FieldSpan& f) {
  std::memcpy(Bytes(to) + f.offset, Bytes(from) + f.offset, f.size);
}

void CopyAttributeBlocks(LineItemRecord* to, const LineItemRecord* from) {
  to->FirstAttributes = from->FirstAttributes;
  to->SecondAttributes = from->SecondAttributes;
  to->FirstValueCount = from->FirstValueCount;
  to->SecondValueCount = from->SecondValueCount;
}

// A batch of this call's own on file: abandoned unless Commit ran and succeeded, so that
// an early return leaves nothing written.
class OwnBatch {
 public:
  explicit OwnBatch(BtrvFile* file) : file_(file), open_(bBeginBatchUpdate(file) != 0) {}
  ~OwnBatch() {
    if (open_) bAbortBatchUpdate(file_);
  }
  OwnBatch(const OwnBatch&) = delete;
  OwnBatch& operator=(const OwnBatch&) = delete;
  bool open() const { return open_; }
  // Ends the batch; false when the end undid it (it is then closed already).
  bool Commit() {
    open_ = false;
    return bEndBatchUpdate(file_) != 0;
  }

 private:
  BtrvFile* file_;
  bool open_;
};

// The fields UpdateSubItems compares and carries over, each flagged on its own.
constexpr FieldSpan kCarriedFields[] = {
    {37, 31},   {72, 1},   {128, 161}, {289, 161}, {450, 9},   {459, 7},   {466, 4},   {470, 2},
    {1144, 4},  {1148, 4}, {1152, 21}, {4340, 41}, {4381, 41}, {4422, 41}, {4463, 41}, {4504, 41},
    {5097, 11}, {5108, 1}, {5118, 8},  {5126, 4},  {5130, 21}, {5671, 21},
};
constexpr size_t kCarriedCount = sizeof kCarriedFields / sizeof kCarriedFields[0];
constexpr int kEntryCount = 10;
constexpr int kAnyEntryFlag = 10;

// Step c of the carry-over: the first attribute row with the sub-item's ID gives its byte 72.
void TakeRowValue(LineItemRecord* sub, const ITEM_ATTRIBUTES_LERowStruct* rows, int row_count) {
  if (rows == nullptr) return;
  for (int r = 0; r < row_count; ++r) {
    if (CompareStr(rows[r].ItemID, sub->ItemID, 20) == 0) {
      sub->Inherited72 = rows[r].Value72;
      return;
    }
  }
}

}  // namespace

void CreateSubItem(LineItemRecord* master, LineItemRecord* sub_item,
                   const AttributeDescPlus* desc) {
  if (master == nullptr || sub_item == nullptr || desc == nullptr) return;
  sub_item->ItemID = desc->ID;
  sub_item->RecordNumber = 0;
  sub_item->ItemClass = kItemClassSubItem;
  sub_item->UpcSku.Clear();
  sub_item->ParentRecordNumber = master->RecordNumber;
  sub_item->ParentID = master->ItemID;
  std::memset(sub_item->Values1173, 0, sizeof sub_item->Values1173);
  for (const FieldSpan& f : lineitem::kInheritedFields) {
    if (f.offset == offsetof(LineItemRecord, Field1152))
      CopyField(sub_item, master, {f.offset, lineitem::kField1152Taken});
    else
      CopyField(sub_item, master, f);
  }
  CopyAttributeBlocks(sub_item, master);

  sub_item->FirstAttributeCode.Clear();
  sub_item->FirstAttributeDesc.Clear();
  if (desc->FirstIndex >= 0 && desc->FirstIndex < 20) {
    sub_item->FirstAttributeCode = master->FirstAttributes.Codes[desc->FirstIndex];
    sub_item->FirstAttributeDesc = master->FirstAttributes.Descriptions[desc->FirstIndex];
  }
  sub_item->SecondAttributeCode.Clear();
  sub_item->SecondAttributeDesc.Clear();
  if (desc->SecondIndex >= 0 && desc->SecondIndex < 20) {
    sub_item->SecondAttributeCode = master->SecondAttributes.Codes[desc->SecondIndex];
    sub_item->SecondAttributeDesc = master->SecondAttributes.Descriptions[desc->SecondIndex];
  }
}

uint8_t InsertSubItem(BtrvFile* file, LineItemRecord* master, const AttributeDescPlus* desc,
                      HWND window) {
  if (master == nullptr || desc == nullptr) return 0;
  std::unique_ptr<LineItemRecord> sub = NewRecord();
  if (!sub) return 0;
  CreateSubItem(master, sub.get(), desc);
  AssignGUID(sub->Guid);
  // The item screens look the new sub-items up afterwards; a failed insert shows there.
  InsertRecord(file, kItemLength, sub.get());
  lineitem::ReportToAuditTrail(sub.get(), kAuditInserted, window);
  return 1;
}

uint8_t InsertAllSubItems(BtrvFile* file, LineItemRecord* master, HWND window) {
  if (file == nullptr || master == nullptr || master->RecordNumber == 0) return 0;
  std::unique_ptr<LineItemRecord> sub = NewRecord();
  std::unique_ptr<LineItemRecord> existing = NewRecord();
  if (!sub || !existing) return 0;
  OwnBatch batch(file);
  if (!batch.open()) return 0;
  const bool all =
      lineitem::ForEachSubItemID(*master, [&](const FixedString<21>& id, int i, int j) {
        // Read through the batch's own file, so that a sub-item this call has just written
        // counts as existing (two codes alike in their first 4 characters form one ID).
        std::memset(existing.get(), 0, kItemLength);
        existing->ItemID = id;
        if (GetFileEqual(file, kLockBiasNone, kItemLength, existing.get(), kItemKeyID))
          return existing->ParentRecordNumber == master->RecordNumber;
        if (GetErrorCode(file) != kStatusKeyNotFound) return false;
        const AttributeDescPlus desc{id, i, j};
        std::memset(sub.get(), 0, kItemLength);
        CreateSubItem(master, sub.get(), &desc);
        AssignGUID(sub->Guid);
        if (!InsertRecord(file, kItemLength, sub.get())) return false;
        lineitem::ReportToAuditTrail(sub.get(), kAuditInserted, window);
        return true;
      });
  return all && batch.Commit() ? 1 : 0;
}

uint8_t UpdateSubStockAttributes(BtrvFile* file, LineItemRecord* master, HWND window) {
  if (file == nullptr || master == nullptr) return 0;
  if (master->RecordNumber == 0) return 1;  // never saved: no sub-items
  std::unique_ptr<LineItemRecord> walk = NewRecord();
  std::unique_ptr<LineItemRecord> sub = NewRecord();
  if (!walk || !sub) return 0;
  OwnBatch batch(file);
  if (!batch.open()) return 0;
  const int32_t parent = master->RecordNumber;
  uint8_t result = 1;
  walk->ParentRecordNumber = parent;
  uint8_t found = GetLineItemRecByKey(walk.get(), kItemKeyParent);
  while (found && walk->ParentRecordNumber == parent) {
    std::memset(sub.get(), 0, kItemLength);
    sub->RecordNumber = walk->RecordNumber;
    if (walk->ItemClass == kItemClassSubItem &&
        GetFileEqual(file, kLockBiasNone, kItemLength, sub.get(), kItemKeyRecordNumber)) {
      std::memset(&sub->FirstAttributes, 0, sizeof sub->FirstAttributes);
      std::memset(&sub->SecondAttributes, 0, sizeof sub->SecondAttributes);
      CopyAttributeBlocks(sub.get(), master);
      result = UpdateFile(file, kItemLength, sub.get(), kItemKeyID) ? 1 : 0;
      if (!result) break;
      lineitem::ReportToAuditTrail(sub.get(), kAuditUpdated, window);
      // The caller goes on holding its master locked, as read from the file.
      master->RecordNumber = parent;
      GetFileEqual(file, kLockBiasSingleNoWait, kItemLength, master, kItemKeyRecordNumber);
    }
    found = GetNextLineItemRecByKey(walk.get(), kItemKeyParent);
  }
  if (!result) return 0;
  return batch.Commit() ? 1 : 0;
}

uint8_t DeleteSubItems(BtrvFile* file, const FixedString<21>& sub_item_id, HWND window) {
  if (file == nullptr) return 0;
  std::unique_ptr<LineItemRecord> sub = NewRecord();
  if (!sub) return 0;
  sub->ItemID = sub_item_id;
  if (!GetFileEqual(file, kLockBiasSingleNoWait, kItemLength, sub.get(), kItemKeyID)) return 1;
  if (!IsItOkToDeleteItem(sub.get())) {
    UnlockOneRecord(file);
    return 0;
  }
  AMCallbackRecordInfo info{sub->RecordNumber, 0};
  if (!DeleteRecord(file, kItemLength, sub.get(), &info)) {
    UnlockOneRecord(file);
    return 0;
  }
  lineitem::ReportToAuditTrail(sub.get(), kAuditDeleted, window);
  return 1;
}

uint8_t DeleteAllSubItems(BtrvFile* file, LineItemRecord* master, HWND window) {
  if (file == nullptr || master == nullptr) return 0;
  if (master->RecordNumber == 0) return 1;
  std::unique_ptr<LineItemRecord> sub = NewRecord();
  if (!sub) return 0;
  // The IDs first: the deletes move the file's position.
  const int32_t parent = master->RecordNumber;
  std::vector<FixedString<21>> ids;
  sub->ParentRecordNumber = parent;
  uint8_t found = GetFileEqual(file, kLockBiasNone, kItemLength, sub.get(), kItemKeyParent);
  while (found && sub->ParentRecordNumber == parent) {
    ids.push_back(sub->ItemID);
    found = GetFileNext(file, kLockBiasNone, kItemLength, sub.get(), kItemKeyParent);
  }
  OwnBatch batch(file);
  if (!batch.open()) return 0;
  for (const FixedString<21>& id : ids)
    if (!DeleteSubItems(file, id, window)) return 0;
  // DeleteSubItems takes a sub-item it cannot read (locked elsewhere) as gone: make sure.
  std::memset(sub.get(), 0, kItemLength);
  sub->ParentRecordNumber = parent;
  if (GetFileEqual(file, kLockBiasNone, kItemLength, sub.get(), kItemKeyParent)) return 0;
  return batch.Commit() ? 1 : 0;
}

// Called after the new image was written. Step by step:
// 1. For a master (class 8) every field of kCarriedFields that differs between the images
//    is flagged.
// 2. Nothing to do (no flag, rows unchanged, no entry flagged, no texts to copy): 1 at once.
// 3. A master: each sub-item (key 6, browsing handle) is read again through file and gets
//    the flagged fields, its row's byte 72 when the rows changed, the flagged 55-byte
//    entries and the two texts when asked; it is written and reported (action 2).
// 4. A sub-item whose rows changed: each sibling (itself included) takes its row's byte 72
//    and is written, even when it could not be read again through file (the write then
//    carries the browsed image, which the batch undoes when it fails); then the master
//    takes the first row's byte 72.
// 5. The saved item is read again into *new_image with a lock.
uint8_t UpdateSubItems(BtrvFile* file, LineItemRecord* old_image, LineItemRecord* new_image,
                       const ITEM_ATTRIBUTES_LERowStruct* rows, int row_count, bool rows_changed,
                       const bool* entry_flags, bool copy_texts, HWND window) {
  if (old_image == nullptr || new_image == nullptr) return 0;
  uint8_t result = 1;
  bool changed = false;
  bool flagged[kCarriedCount] = {};
  if (new_image->ItemClass == kItemClassMaster) {
    for (size_t k = 0; k < kCarriedCount; ++k) {
      const FieldSpan& f = kCarriedFields[k];
      flagged[k] =
          std::memcmp(Bytes(old_image) + f.offset, Bytes(new_image) + f.offset, f.size) != 0;
      changed = changed || flagged[k];
    }
  }
  const bool any_entry = entry_flags != nullptr && entry_flags[kAnyEntryFlag];
  if (!changed && !rows_changed && !any_entry && !copy_texts) return 1;

  std::unique_ptr<LineItemRecord> buffer = NewRecord();
  if (!buffer) return 0;
  {
    OwnBatch batch(file);
    if (!batch.open()) result = 0;
    if (result && new_image->ItemClass == kItemClassMaster && new_image->RecordNumber != 0) {
      const int32_t parent = new_image->RecordNumber;
      buffer->ParentRecordNumber = parent;
      uint8_t found = GetLineItemRecByKey(buffer.get(), kItemKeyParent);
      while (found) {
        if (GetFileEqual(file, kLockBiasNone, kItemLength, buffer.get(), kItemKeyRecordNumber)) {
          for (size_t k = 0; k < kCarriedCount; ++k)
            if (flagged[k]) CopyField(buffer.get(), new_image, kCarriedFields[k]);
          if (rows_changed) TakeRowValue(buffer.get(), rows, row_count);
          if (any_entry) {
            for (int e = 0; e < kEntryCount; ++e)
              if (entry_flags[e])
                std::memcpy(buffer->Entries4547[e], new_image->Entries4547[e],
                            sizeof buffer->Entries4547[e]);
          }
          if (copy_texts) {
            std::memcpy(buffer->Text289, new_image->Text289, sizeof buffer->Text289);
            std::memcpy(buffer->Text128, new_image->Text128, sizeof buffer->Text128);
          }
          result = UpdateFile(file, kItemLength, buffer.get(), kItemKeyID) ? 1 : 0;
          lineitem::ReportToAuditTrail(buffer.get(), kAuditUpdated, window);
        }
        if (!result) break;
        found = GetNextLineItemRecByKey(buffer.get(), kItemKeyParent) &&
                buffer->ParentRecordNumber == parent;
      }
    } else if (result && new_image->ItemClass == kItemClassSubItem && rows_changed &&
               new_image->ParentRecordNumber != 0) {
      const int32_t parent = new_image->ParentRecordNumber;
      buffer->ParentRecordNumber = parent;
      uint8_t found = GetLineItemRecByKey(buffer.get(), kItemKeyParent);
      while (found) {
        if (GetFileEqual(file, kLockBiasNone, kItemLength, buffer.get(), kItemKeyRecordNumber))
          TakeRowValue(buffer.get(), rows, row_count);
        result = UpdateFile(file, kItemLength, buffer.get(), kItemKeyID) ? 1 : 0;
        lineitem::ReportToAuditTrail(buffer.get(), kAuditUpdated, window);
        if (!result) break;
        found = GetNextLineItemRecByKey(buffer.get(), kItemKeyParent) &&
                buffer->ParentRecordNumber == parent;
      }
      if (result && rows != nullptr && row_count > 0) {
        std::memset(buffer.get(), 0, kItemLength);
        buffer->RecordNumber = parent;
        if (GetFileEqual(file, kLockBiasNone, kItemLength, buffer.get(), kItemKeyRecordNumber)) {
          buffer->Inherited72 = rows[0].Value72;
          result = UpdateFile(file, kItemLength, buffer.get(), kItemKeyID) ? 1 : 0;
          lineitem::ReportToAuditTrail(buffer.get(), kAuditUpdated, window);
        }
      }
    }
    if (result) result = batch.Commit() ? 1 : 0;
  }
  buffer.reset();
  if (file != nullptr)
    GetFileEqual(file, kLockBiasSingleNoWait, kItemLength, new_image, kItemKeyRecordNumber);
  return result;
}
