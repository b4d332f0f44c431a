// Receipt tags: the links between a sale or purchase and the receipt or disbursement that
// takes over its item distributions, so that the receipt's inventory rows are costed from
// the sale's inventory tags. Kept only when the company's cash-basis switch is set; with
// it clear every operation succeeds at once and touches nothing. Owns the use of the
// receipt-tag handle RecptTagFile (opened in mode 0 on first use, closed by the host);
// the other operations take the file from the caller. Builds on OpenDat and JOURNAL.
// Uses of RecptTagFile made here are serialised, so that cost queries of several threads
// may fall back on it; a caller's file is the caller's to serialise.
#ifndef BASICS_RECPTTAGDCL_H_
#define BASICS_RECPTTAGDCL_H_

#include <cstddef>
#include <cstdint>

#include "JOURNAL.h"
#include "record_manager.h"
#include "zor_types.h"

struct JournalRecord;

// RecptTagRec, one record of the receipt-tag file, 46 bytes.
//   offset  size  field
//        0    10  sale key (JournalKey1Type of the sale or purchase); key 1
//       10    10  receipt key (JournalKey1Type); while no receipt is assigned, all zero
//                 but its journal type, which is 100 (no journal)
//       20     4  sale post order, u32
//       24     4  receipt post order, u32; key 2 with the row offset
//       28     2  row offset, u16: the receipt's distribution index at which this sale's
//                 distributions begin; key 3 is the receipt key with it
//       30     8  proportion, double: the share of the sale's costs the receipt takes
//       38     4  date (DatesType)
//       42     1  sale-side flag
//       43     1  receipt-side flag (a receipt row is costed from its sale only when
//                 both flags are set)
//       44     2  16-bit field supplied by the caller when the tag is added
#pragma pack(push, 1)
struct RecptTagRec {
  JournalKey1Type SaleKey;
  JournalKey1Type ReceiptKey;
  uint32_t SalePostOrder;
  uint32_t ReceiptPostOrder;
  uint16_t RowOffset;
  double Proportion;
  DatesType Date;
  uint8_t SaleFlag;
  uint8_t ReceiptFlag;
  uint16_t LastField;
};
#pragma pack(pop)
static_assert(sizeof(RecptTagRec) == 46, "RecptTagRec is 46 bytes");
static_assert(offsetof(RecptTagRec, ReceiptKey) == 10 &&
                  offsetof(RecptTagRec, SalePostOrder) == 20 &&
                  offsetof(RecptTagRec, ReceiptPostOrder) == 24 &&
                  offsetof(RecptTagRec, RowOffset) == 28,
              "receipt tag keys and post orders at 10, 20, 24 and 28");
static_assert(offsetof(RecptTagRec, Proportion) == 30 && offsetof(RecptTagRec, Date) == 38 &&
                  offsetof(RecptTagRec, SaleFlag) == 42 &&
                  offsetof(RecptTagRec, ReceiptFlag) == 43 &&
                  offsetof(RecptTagRec, LastField) == 44,
              "receipt tag fields at 30, 38, 42, 43 and 44");

// Key numbers of the receipt-tag file.
enum : int16_t { kRecptTagKeySale = 1, kRecptTagKeyReceiptPost = 2, kRecptTagKeyReceipt = 3 };

// The journal type of a receipt key that no receipt has been assigned to yet.
constexpr int16_t kUnassignedReceiptJournal = 100;

// Modes of GetTagRecForSaleKey and GetTagRecForReceiptKey.
enum : int16_t { kTagFirst = 0, kTagNext = 1, kTagPrevious = 2 };

// Inserts a new tag for a sale and, with has_receipt set, its receipt key and post order
// (otherwise the receipt is unassigned and its post order 0). Answers the insert's result
// (0 with GetErrorCode(file) telling why, nothing written); 1 at once with the switch
// clear.
uint8_t AddTagForSaleReceipt(BtrvFile* file, const JournalKey1Type& sale_key,
                             uint32_t sale_post_order, const JournalKey1Type& receipt_key,
                             uint16_t row_offset, double proportion, DatesType date,
                             uint8_t sale_flag, uint8_t receipt_flag, uint32_t receipt_post_order,
                             uint8_t has_receipt, uint16_t last_field);

// Called when a transaction is saved: refreshes the post order and the side flag of every
// tag of the record's key (sales and purchases on the sale side, receipts and
// disbursements on the receipt side) through RecptTagFile (file is not read). All of them
// or none: false, with no tag changed, when the file cannot be opened or a write fails.
// True at once for other journals, a null record, or the switch clear.
bool UpdateSaleReceiptTag(BtrvFile* file, JournalRecord* record);

// Called when a receipt or disbursement is saved: assigns every unassigned tag to
// receipt_key, after deleting the tags already carrying it. True at once for other
// journals or the switch clear; false for a null file or a failed write, with no tag
// changed. The third argument is not read.
bool UpdateTagForReceipt(BtrvFile* file, const JournalKey1Type& receipt_key, uint8_t unused);

// Delete every tag of the sale key / receipt key. True when all are gone (or with the
// switch clear); false for a null file or a failed delete, with no tag deleted.
bool DeleteTagsForSaleByKey(BtrvFile* file, const JournalKey1Type& sale_key);
bool DeleteTagsForReceiptByKey(BtrvFile* file, const JournalKey1Type& receipt_key);

// The tags of a sale key on key 1 (mode 0 the first, 1 the next, 2 the previous), or of a
// receipt key from row_offset on key 3. 1 with the tag copied to *tag when the record
// found carries that key in all ten bytes; 0 otherwise, *tag left as it was.
uint8_t GetTagRecForSaleKey(BtrvFile* file, RecptTagRec* tag, const JournalKey1Type& sale_key,
                            int16_t mode);
uint8_t GetTagRecForReceiptKey(BtrvFile* file, RecptTagRec* tag, const JournalKey1Type& receipt_key,
                               uint16_t row_offset, int16_t mode);

// The tag covering a receipt distribution: the receipt's tag with the greatest row offset
// not above index. 1 with *tag filled; 0, *tag left as it was, when the receipt has none.
uint8_t GetTagRecForDist(BtrvFile* file, RecptTagRec* tag, uint32_t receipt_post_order,
                         uint16_t index);
// GetTagRecForDist on RecptTagFile, opened when needed; 1 without filling *tag when the
// switch is clear; 0 when the file cannot be opened.
uint8_t GetTagRecForRecptDist(RecptTagRec* tag, uint32_t receipt_post_order, uint16_t index);

// Rewrites the tag last read through file with *tag (no key position kept). Answers the
// update's result; on failure the file is unchanged.
uint8_t UpdateRecptTagRec(BtrvFile* file, RecptTagRec* tag);

// Keyed readers of whole tags, without a lock (the key fields already set in *tag for GE
// and LE). 1 with the tag in *tag; 0 for a null file or tag or none found, *tag left as
// it was.
enum class RecptTagRead { kNext, kPrevious, kGreaterOrEqual, kLessOrEqual };
uint8_t GetAnRecptTagRecord(BtrvFile* file, RecptTagRec* tag, int16_t key, RecptTagRead op);
uint8_t GetNextRecptTagRec(BtrvFile* file, RecptTagRec* tag, int16_t key);
uint8_t GetPreviousRecptTagRec(BtrvFile* file, RecptTagRec* tag, int16_t key);
uint8_t GetRecptTagRecGE(BtrvFile* file, RecptTagRec* tag, int16_t key);
uint8_t GetRecptTagRecLE(BtrvFile* file, RecptTagRec* tag, int16_t key);

#endif  // BASICS_RECPTTAGDCL_H_
