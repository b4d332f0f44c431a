// Receipt tags: adding, refreshing, assigning and deleting the links between sales and
// their receipts, and reading them by sale, by receipt and by receipt distribution.
#include "RecptTagDcl.h"

#include <cstring>
#include <mutex>

#include "General.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/RecptTagDcl";

// RecptTagFile is shared by every thread; the cost queries of several threads reach it
// through GetTagRecForRecptDist, so each use made here holds this lock.
std::mutex g_recpt_tag_file_mu;

bool TagsKept() { return MyCompany.CashBasis != 0; }

bool SameKey(const JournalKey1Type& a, const JournalKey1Type& b) {
  return std::memcmp(&a, &b, sizeof(JournalKey1Type)) == 0;
}

JournalKey1Type UnassignedReceiptKey() {
  JournalKey1Type key;
  std::memset(&key, 0, sizeof key);
  key.JournalType = kUnassignedReceiptJournal;
  return key;
}

// A read that stopped because no further tag of the key was there, not because the
// store failed.
bool WalkEndedCleanly(BtrvFile* file) {
  const uint16_t status = GetErrorCode(file);
  return status == kStatusOk || status == kStatusKeyNotFound || status == kStatusEndOfFile;
}

// The batch of one operation that writes several tags: a savepoint inside the caller's
// batch when there is one. Abandoned unless committed, so a failed operation leaves the
// tags as they were.
class TagBatch {
 public:
  explicit TagBatch(BtrvFile* file) : file_(file), open_(bBeginBatchUpdate(file) == 1) {}
  ~TagBatch() {
    if (open_) bAbortBatchUpdate(file_);
  }
  TagBatch(const TagBatch&) = delete;
  TagBatch& operator=(const TagBatch&) = delete;

  bool open() const { return open_; }
  bool Commit() {
    open_ = false;
    return bEndBatchUpdate(file_) == 1;
  }

 private:
  BtrvFile* file_;
  bool open_;
};

// Reads the tag found by mode from the search record; 1 with it copied to *tag when its
// key (at key_offset) equals key.
uint8_t ReadTagOfKey(BtrvFile* file, RecptTagRec* tag, RecptTagRec* search, int16_t key_number,
                     size_t key_offset, const JournalKey1Type& key, int16_t mode) {
  if (file == nullptr || tag == nullptr) return 0;
  uint8_t found;
  switch (mode) {
    case kTagFirst:
      found = GetFileGE(file, kLockBiasNone, sizeof *search, search, key_number);
      break;
    case kTagNext:
      found = GetFileNext(file, kLockBiasNone, sizeof *search, search, key_number);
      break;
    case kTagPrevious:
      found = GetFilePrevious(file, kLockBiasNone, sizeof *search, search, key_number);
      break;
    default:
      return 0;
  }
  JournalKey1Type found_key;
  std::memcpy(&found_key, reinterpret_cast<const uint8_t*>(search) + key_offset, sizeof found_key);
  if (found == 0 || !SameKey(found_key, key)) return 0;
  *tag = *search;
  return 1;
}

using KeyReader = uint8_t (*)(BtrvFile*, RecptTagRec*, const JournalKey1Type&, int16_t);

uint8_t ReadByReceiptFromZero(BtrvFile* file, RecptTagRec* tag, const JournalKey1Type& key,
                              int16_t mode) {
  return GetTagRecForReceiptKey(file, tag, key, 0, mode);
}

bool DeleteTagsOfKey(BtrvFile* file, const JournalKey1Type& key, KeyReader read) {
  if (!TagsKept()) return true;
  if (file == nullptr) return false;
  TagBatch batch(file);
  if (!batch.open()) return false;
  RecptTagRec tag;
  for (uint8_t found = read(file, &tag, key, kTagFirst); found != 0;
       found = read(file, &tag, key, kTagNext)) {
    if (DeleteRecord(file, sizeof tag, &tag) == 0) return false;
  }
  return WalkEndedCleanly(file) && batch.Commit();
}

// Sets the post order and the side flag of every tag of key, on one side.
bool RefreshTags(BtrvFile* file, const JournalKey1Type& key, bool sale_side, uint32_t post_order,
                 uint8_t flag) {
  KeyReader read = sale_side ? GetTagRecForSaleKey : ReadByReceiptFromZero;
  TagBatch batch(file);
  if (!batch.open()) return false;
  RecptTagRec tag;
  for (uint8_t found = read(file, &tag, key, kTagFirst); found != 0;
       found = read(file, &tag, key, kTagNext)) {
    if (sale_side) {
      tag.SalePostOrder = post_order;
      tag.SaleFlag = flag;
    } else {
      tag.ReceiptPostOrder = post_order;
      tag.ReceiptFlag = flag;
    }
    if (UpdateRecptTagRec(file, &tag) == 0) return false;
  }
  return WalkEndedCleanly(file) && batch.Commit();
}

}  // namespace

uint8_t AddTagForSaleReceipt(BtrvFile* file, const JournalKey1Type& sale_key,
                             uint32_t sale_post_order, const JournalKey1Type& receipt_key,
                             uint16_t row_offset, double proportion, DatesType date,
                             uint8_t sale_flag, uint8_t receipt_flag, uint32_t receipt_post_order,
                             uint8_t has_receipt, uint16_t last_field) {
  if (!TagsKept()) return 1;
  if (file == nullptr) return 0;
  RecptTagRec tag;
  std::memset(&tag, 0, sizeof tag);
  tag.SaleKey = sale_key;
  tag.SalePostOrder = sale_post_order;
  tag.RowOffset = row_offset;
  tag.Proportion = proportion;
  tag.Date = date;
  tag.SaleFlag = sale_flag;
  tag.ReceiptFlag = receipt_flag;
  tag.LastField = last_field;
  if (has_receipt != 0) {
    tag.ReceiptKey = receipt_key;
    tag.ReceiptPostOrder = receipt_post_order;
  } else {
    tag.ReceiptKey = UnassignedReceiptKey();
  }
  return InsertRecord(file, sizeof tag, &tag);
}

bool UpdateSaleReceiptTag(BtrvFile* /*file*/, JournalRecord* record) {
  if (!TagsKept() || record == nullptr) return true;
  const JournalKey1Type& key = record->Key1;
  const bool sale_side = key.JournalType == SJ || key.JournalType == PJ;
  if (!sale_side && key.JournalType != CRJ && key.JournalType != CDJ) return true;
  std::lock_guard<std::mutex> guard(g_recpt_tag_file_mu);
  if (RecptTagFile == nullptr && OpenRecptTagFile(&RecptTagFile, kOpenModeNormal) == 0) {
    return false;
  }
  return RefreshTags(RecptTagFile, key, sale_side, record->PostOrder, record->Flag5949);
}

bool UpdateTagForReceipt(BtrvFile* file, const JournalKey1Type& receipt_key, uint8_t /*unused*/) {
  if (!TagsKept()) return true;
  if (receipt_key.JournalType != CRJ && receipt_key.JournalType != CDJ) return true;
  if (file == nullptr) return false;
  const JournalKey1Type unassigned = UnassignedReceiptKey();
  RecptTagRec tag;
  if (GetTagRecForReceiptKey(file, &tag, unassigned, 0, kTagFirst) == 0) return true;
  TagBatch batch(file);
  if (!batch.open() || !DeleteTagsForReceiptByKey(file, receipt_key)) return false;
  while (GetTagRecForReceiptKey(file, &tag, unassigned, 0, kTagFirst) != 0) {
    tag.ReceiptKey = receipt_key;
    if (UpdateRecptTagRec(file, &tag) == 0) return false;
  }
  return WalkEndedCleanly(file) && batch.Commit();
}

bool DeleteTagsForSaleByKey(BtrvFile* file, const JournalKey1Type& sale_key) {
  return DeleteTagsOfKey(file, sale_key, GetTagRecForSaleKey);
}

bool DeleteTagsForReceiptByKey(BtrvFile* file, const JournalKey1Type& receipt_key) {
  return DeleteTagsOfKey(file, receipt_key, ReadByReceiptFromZero);
}

uint8_t GetTagRecForSaleKey(BtrvFile* file, RecptTagRec* tag, const JournalKey1Type& sale_key,
                            int16_t mode) {
  RecptTagRec search;
  std::memset(&search, 0, sizeof search);
  search.SaleKey = sale_key;
  return ReadTagOfKey(file, tag, &search, kRecptTagKeySale, offsetof(RecptTagRec, SaleKey),
                      sale_key, mode);
}

uint8_t GetTagRecForReceiptKey(BtrvFile* file, RecptTagRec* tag, const JournalKey1Type& receipt_key,
                               uint16_t row_offset, int16_t mode) {
  RecptTagRec search;
  std::memset(&search, 0, sizeof search);
  search.ReceiptKey = receipt_key;
  search.RowOffset = row_offset;
  return ReadTagOfKey(file, tag, &search, kRecptTagKeyReceipt, offsetof(RecptTagRec, ReceiptKey),
                      receipt_key, mode);
}

uint8_t GetTagRecForDist(BtrvFile* file, RecptTagRec* tag, uint32_t receipt_post_order,
                         uint16_t index) {
  if (file == nullptr || tag == nullptr) return 0;
  RecptTagRec search;
  std::memset(&search, 0, sizeof search);
  search.ReceiptPostOrder = receipt_post_order;
  search.RowOffset = index;
  if (GetRecptTagRecLE(file, &search, kRecptTagKeyReceiptPost) == 0 ||
      search.ReceiptPostOrder != receipt_post_order) {
    return 0;
  }
  *tag = search;
  return 1;
}

uint8_t GetTagRecForRecptDist(RecptTagRec* tag, uint32_t receipt_post_order, uint16_t index) {
  if (!TagsKept()) return 1;
  std::lock_guard<std::mutex> guard(g_recpt_tag_file_mu);
  if (RecptTagFile == nullptr && OpenRecptTagFile(&RecptTagFile, kOpenModeNormal) == 0) return 0;
  return GetTagRecForDist(RecptTagFile, tag, receipt_post_order, index);
}

uint8_t UpdateRecptTagRec(BtrvFile* file, RecptTagRec* tag) {
  if (file == nullptr || tag == nullptr) return 0;
  return UpdateFile(file, sizeof *tag, tag, static_cast<int16_t>(kNoKeyCurrency));
}

uint8_t GetAnRecptTagRecord(BtrvFile* file, RecptTagRec* tag, int16_t key, RecptTagRead op) {
  if (file == nullptr || tag == nullptr) return 0;
  const uint32_t len = sizeof *tag;
  switch (op) {
    case RecptTagRead::kNext:
      return GetFileNext(file, kLockBiasNone, len, tag, key);
    case RecptTagRead::kPrevious:
      return GetFilePrevious(file, kLockBiasNone, len, tag, key);
    case RecptTagRead::kGreaterOrEqual:
      return GetFileGE(file, kLockBiasNone, len, tag, key);
    case RecptTagRead::kLessOrEqual:
      return GetFileLE(file, kLockBiasNone, len, tag, key);
  }
  return 0;
}

uint8_t GetNextRecptTagRec(BtrvFile* file, RecptTagRec* tag, int16_t key) {
  return GetAnRecptTagRecord(file, tag, key, RecptTagRead::kNext);
}
uint8_t GetPreviousRecptTagRec(BtrvFile* file, RecptTagRec* tag, int16_t key) {
  return GetAnRecptTagRecord(file, tag, key, RecptTagRead::kPrevious);
}
uint8_t GetRecptTagRecGE(BtrvFile* file, RecptTagRec* tag, int16_t key) {
  return GetAnRecptTagRecord(file, tag, key, RecptTagRead::kGreaterOrEqual);
}
uint8_t GetRecptTagRecLE(BtrvFile* file, RecptTagRec* tag, int16_t key) {
  return GetAnRecptTagRecord(file, tag, key, RecptTagRead::kLessOrEqual);
}
