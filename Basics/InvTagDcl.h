// Inventory tags: the cost records that the host's costing engine writes for each costed
// distribution and each item's day, the keyed readers over them, and the cost queries
// through which journal rows get their amounts. Reads only. Builds on OpenDat and the
// receipt tags (RecptTagDcl), which costs without a tag of their own fall back on. Cost
// queries read the calling thread's own tag handle, so several threads may ask at once.
#ifndef BASICS_INVTAGDCL_H_
#define BASICS_INVTAGDCL_H_

#include <cstddef>
#include <cstdint>

#include "record_manager.h"
#include "zor_types.h"

// InvTagRec, one record of the inventory tag file, 67 bytes. Bytes the library does not
// interpret belong to the costing engine and are carried unchanged.
//   offset  size  field
//        0     4  item record number, s32
//        4     4  date (DatesType)
//        8     2  distribution index within the transaction, s16: the row's line
//                 number minus 1, so -1 for a distribution line's own row
//       10     1  tag type, s8: 20 and 40 sale cost, 30 assembly or purchase-return
//                 cost, 50 ('2') the item's daily record
//       11     4  post order number of the transaction, u32
//       15     3  (costing engine's)
//       18     8  cost, double: of a sale, an assembly build or a cost adjustment
//       26     8  (costing engine's)
//       34     8  adjustment amount, double, of a type-30 record (unbuild, purchase return)
//       42     8  below-zero adjustment amount, double, of a daily record
//       50     4  first adjustment link, s32, handed to callers
//       54     4  second adjustment link, s32, handed to callers
//       58     6  (costing engine's)
//       64     2  16-bit field, copied with the record
//       66     1  one-byte field, copied with the record
// Key 0: item, date, tag type, then the post order's bytes as stored and the distribution
// index; key 1: post order, distribution index.
#pragma pack(push, 1)
struct InvTagRec {
  int32_t ItemRecordNumber;
  DatesType Date;
  int16_t DistIndex;
  int8_t TagType;
  uint32_t PostOrder;
  uint8_t reserved15[3];
  double Cost;
  uint8_t reserved26[8];
  double AdjustAmount;
  double BelowZeroAmount;
  int32_t AdjustLink1;
  int32_t AdjustLink2;
  uint8_t reserved58[6];
  uint16_t Field64;
  uint8_t Field66;
};
#pragma pack(pop)
static_assert(sizeof(InvTagRec) == 67, "InvTagRec is 67 bytes");
static_assert(offsetof(InvTagRec, Date) == 4 && offsetof(InvTagRec, DistIndex) == 8 &&
                  offsetof(InvTagRec, TagType) == 10 && offsetof(InvTagRec, PostOrder) == 11,
              "tag key fields at 4, 8, 10 and 11");
static_assert(offsetof(InvTagRec, Cost) == 18 && offsetof(InvTagRec, AdjustAmount) == 34 &&
                  offsetof(InvTagRec, BelowZeroAmount) == 42,
              "tag amounts at 18, 34 and 42");
static_assert(offsetof(InvTagRec, AdjustLink1) == 50 && offsetof(InvTagRec, AdjustLink2) == 54,
              "adjustment links at 50 and 54");
static_assert(offsetof(InvTagRec, Field64) == 64 && offsetof(InvTagRec, Field66) == 66,
              "carried fields at 64 and 66");

// Key numbers of the inventory tag file.
enum : int16_t { kInvTagKeyItemDate = 0, kInvTagKeyPostOrder = 1 };

// Tag types.
enum : int8_t {
  kInvTagSaleCost = 20,
  kInvTagAssemblyCost = 30,  // also a purchase return
  kInvTagSaleCost2 = 40,
  kInvTagDaily = 50,  // the character '2'
};

// Modes of GetInvDailyRec.
enum : int16_t { kDailyNextAfter = 1, kDailyLastBefore = 2, kDailyOnDate = 3 };

// Switches kept for the host's costing engine; nothing in the library reads them.
extern uint8_t DontUpdateInvTag;
extern uint16_t RecostingOn;

// --- Keyed readers ---------------------------------------------------------------------------
// Each reads one whole record without a lock on key (the key fields already set in *rec
// for GE, LE and Equal) and answers 1 with the record in *rec, which the caller owns; 0
// for a null file or record, or when the record manager finds none (*rec then left as it
// was; GetErrorCode(file) tells why). Every call, a failed one included, adds one to
// ReadCount (atomically, so that threads with handles of their own may read at once).

// The record-manager operation of GetAnInvTagRecord.
enum class InvTagRead { kLowest, kNext, kPrevious, kGreaterOrEqual, kLessOrEqual, kEqual };
uint8_t GetAnInvTagRecord(BtrvFile* file, InvTagRec* rec, int16_t key, InvTagRead op);
uint8_t GetFirstInvTagRec(BtrvFile* file, InvTagRec* rec, int16_t key);
uint8_t GetNextInvTagRec(BtrvFile* file, InvTagRec* rec, int16_t key);
uint8_t GetPreviousInvTagRec(BtrvFile* file, InvTagRec* rec, int16_t key);
uint8_t GetInvTagRecGE(BtrvFile* file, InvTagRec* rec, int16_t key);
uint8_t GetInvTagRecLE(BtrvFile* file, InvTagRec* rec, int16_t key);
uint8_t GetInvTagRecEq(BtrvFile* file, InvTagRec* rec, int16_t key);

// The item's daily record (type 50): mode 1 the first after date, 2 the last before it,
// 3 the one on it. 1 with the record copied whole to *out; 0 for a null file or out, any
// other mode, or none found, *out then left as it was. Moves file's position.
uint8_t GetInvDailyRec(BtrvFile* file, int32_t item, InvTagRec* out, DatesType date, int16_t mode);

// --- Cost queries ----------------------------------------------------------------------------
// Each reads the calling thread's own tag handle (GetInternalInvTagFile), opening it
// through OpenInternalInvTagFile when it is not open; the handle then stays open, owned
// by the library, until the thread calls CloseInternalInvTagFile. With the company's
// cash-basis switch set, a distribution without a tag of its own takes its sale's tag
// through the receipt tags. Silent: a file, tag or receipt tag that cannot be found
// answers 0 (0.0) and leaves every output as it was. Every output pointer may be null.

// Minus the cost of the distribution's sale tag (types 20 and 40); 0 for any other type
// or none.
double GetSaleCost(uint32_t post_order, int16_t index);
// The cost of the transaction's distribution-0 tag, whatever index says: positive for
// index -1 (the line's own row), negated otherwise; 0 when there is none.
double GetInvAdjCost(uint32_t post_order, int16_t index);
// 1 with *cost := the tag's cost (less its adjustment amount for a type-30 tag); 0 when
// there is no tag.
int GetAssemblyCost(uint32_t post_order, int16_t index, double* cost);
// 1 for a type-30 tag with a non-zero adjustment amount: *first := minus the amount,
// *second := the amount, the links as stored; 0 otherwise.
uint8_t GetAssemblyUnbuildAdj(uint32_t post_order, int16_t index, double* first, double* second,
                              int32_t* first_link, int32_t* second_link);
// As GetAssemblyUnbuildAdj for a purchase return; without a tag of its own, with the
// cash-basis switch set, the receipt's sale tag with the amount taken in proportion and
// rounded.
uint8_t GetPurchaseRetAdj(uint32_t post_order, int16_t index, double* first, double* second,
                          int32_t* first_link, int32_t* second_link);
// 1 when the item's daily record of date has a non-zero below-zero amount: *first :=
// minus the amount, *second := the amount, the links as stored; 0 otherwise.
uint8_t GetBelowZeroAdj(int32_t item, DatesType date, double* first, double* second,
                        int32_t* first_link, int32_t* second_link);

#endif  // BASICS_INVTAGDCL_H_
