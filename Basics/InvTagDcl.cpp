// Inventory tags: the keyed readers, the daily-record search and the cost queries, all
// reading the calling thread's own tag handle.
#include "InvTagDcl.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "General.h"
#include "OpenDat.h"
#include "RecptTagDcl.h"
#include "utility.h"

uint8_t DontUpdateInvTag = 0;
uint16_t RecostingOn = 0;

namespace {

// Opening a thread's tag handle also opens the shared costing and price-item handles
// when they are still closed; threads asking for their first cost at the same moment
// take turns so that none of those shared handles is opened twice.
std::mutex g_open_mu;

// The calling thread's tag handle, opened on first use; null when it cannot be opened.
BtrvFile* ThreadTagFile() {
  BtrvFile*& file = GetInternalInvTagFile();
  if (file == nullptr) {
    std::lock_guard<std::mutex> guard(g_open_mu);
    // A failed price-item open still leaves the tag handle usable.
    OpenInternalInvTagFile();
  }
  return file;
}

bool CashBasis() { return MyCompany.CashBasis != 0; }

// Reads the tag of one distribution (key 1) through this thread's handle.
bool ReadDistributionTag(uint32_t post_order, int16_t index, InvTagRec* rec) {
  BtrvFile* file = ThreadTagFile();
  if (file == nullptr) return false;
  std::memset(rec, 0, sizeof *rec);
  rec->PostOrder = post_order;
  rec->DistIndex = index;
  return GetInvTagRecEq(file, rec, kInvTagKeyPostOrder) != 0;
}

// With the cash-basis switch set, a receipt distribution without a tag of its own takes
// its sale's: the receipt tag covering the distribution, when both sides have completed
// it, leads to the sale's distribution at the same place within the sale. The sale tag
// goes to *rec and its proportion to *proportion.
bool ReadSaleTagOfReceipt(uint32_t post_order, int16_t index, InvTagRec* rec, double* proportion) {
  if (!CashBasis()) return false;
  RecptTagRec tag;
  if (GetTagRecForRecptDist(&tag, post_order, static_cast<uint16_t>(index)) == 0) return false;
  if (tag.SaleFlag == 0 || tag.ReceiptFlag == 0) return false;
  const auto sale_index = static_cast<int16_t>(index - static_cast<int16_t>(tag.RowOffset));
  if (!ReadDistributionTag(tag.SalePostOrder, sale_index, rec)) return false;
  *proportion = tag.Proportion;
  return true;
}

// The paired outputs of one movement: the first side negated, the second as stored.
void GivePair(double amount, int32_t link1, int32_t link2, double* first, double* second,
              int32_t* first_link, int32_t* second_link) {
  if (first_link != nullptr) *first_link = link1;
  if (second_link != nullptr) *second_link = link2;
  if (first != nullptr) *first = -amount;
  if (second != nullptr) *second = amount;
}

// An unbuild's or a purchase return's adjustment: a type-30 tag with an amount.
uint8_t GiveAdjustment(const InvTagRec& rec, double* first, double* second, int32_t* first_link,
                       int32_t* second_link) {
  if (rec.TagType != kInvTagAssemblyCost || IsZero(rec.AdjustAmount)) return 0;
  GivePair(rec.AdjustAmount, rec.AdjustLink1, rec.AdjustLink2, first, second, first_link,
           second_link);
  return 1;
}

bool WalkMatches(const InvTagRec& rec, int32_t item) { return rec.ItemRecordNumber == item; }

}  // namespace

uint8_t GetAnInvTagRecord(BtrvFile* file, InvTagRec* rec, int16_t key, InvTagRead op) {
  // Threads with tag handles of their own count their reads into the one counter.
  std::atomic_ref<int32_t>(ReadCount).fetch_add(1, std::memory_order_relaxed);
  if (file == nullptr || rec == nullptr) return 0;
  const uint32_t len = sizeof *rec;
  switch (op) {
    case InvTagRead::kLowest:
      return GetFileLowest(file, kLockBiasNone, len, rec, key);
    case InvTagRead::kNext:
      return GetFileNext(file, kLockBiasNone, len, rec, key);
    case InvTagRead::kPrevious:
      return GetFilePrevious(file, kLockBiasNone, len, rec, key);
    case InvTagRead::kGreaterOrEqual:
      return GetFileGE(file, kLockBiasNone, len, rec, key);
    case InvTagRead::kLessOrEqual:
      return GetFileLE(file, kLockBiasNone, len, rec, key);
    case InvTagRead::kEqual:
      return GetFileEqual(file, kLockBiasNone, len, rec, key);
  }
  return 0;
}

uint8_t GetFirstInvTagRec(BtrvFile* file, InvTagRec* rec, int16_t key) {
  return GetAnInvTagRecord(file, rec, key, InvTagRead::kLowest);
}
uint8_t GetNextInvTagRec(BtrvFile* file, InvTagRec* rec, int16_t key) {
  return GetAnInvTagRecord(file, rec, key, InvTagRead::kNext);
}
uint8_t GetPreviousInvTagRec(BtrvFile* file, InvTagRec* rec, int16_t key) {
  return GetAnInvTagRecord(file, rec, key, InvTagRead::kPrevious);
}
uint8_t GetInvTagRecGE(BtrvFile* file, InvTagRec* rec, int16_t key) {
  return GetAnInvTagRecord(file, rec, key, InvTagRead::kGreaterOrEqual);
}
uint8_t GetInvTagRecLE(BtrvFile* file, InvTagRec* rec, int16_t key) {
  return GetAnInvTagRecord(file, rec, key, InvTagRead::kLessOrEqual);
}
uint8_t GetInvTagRecEq(BtrvFile* file, InvTagRec* rec, int16_t key) {
  return GetAnInvTagRecord(file, rec, key, InvTagRead::kEqual);
}

uint8_t GetInvDailyRec(BtrvFile* file, int32_t item, InvTagRec* out, DatesType date, int16_t mode) {
  if (file == nullptr || out == nullptr) return 0;
  InvTagRec rec;
  std::memset(&rec, 0, sizeof rec);
  rec.ItemRecordNumber = item;
  rec.Date = date;
  rec.TagType = kInvTagDaily;
  uint8_t found = 0;
  switch (mode) {
    case kDailyNextAfter:
      IncDate(rec.Date, 1);
      for (found = GetInvTagRecGE(file, &rec, kInvTagKeyItemDate);
           found != 0 && WalkMatches(rec, item) && rec.TagType != kInvTagDaily;
           found = GetNextInvTagRec(file, &rec, kInvTagKeyItemDate)) {
      }
      break;
    case kDailyLastBefore:
      DecDate(rec.Date, 1);
      // After every record of that day: the byte after the tag type is the highest.
      reinterpret_cast<uint8_t*>(&rec)[offsetof(InvTagRec, PostOrder)] = 255;
      for (found = GetInvTagRecLE(file, &rec, kInvTagKeyItemDate);
           found != 0 && WalkMatches(rec, item) && rec.TagType != kInvTagDaily;
           found = GetPreviousInvTagRec(file, &rec, kInvTagKeyItemDate)) {
      }
      break;
    case kDailyOnDate:
      for (found = GetInvTagRecGE(file, &rec, kInvTagKeyItemDate);
           found != 0 && WalkMatches(rec, item) && CompareDates(rec.Date, date) == 0 &&
           rec.TagType != kInvTagDaily;
           found = GetNextInvTagRec(file, &rec, kInvTagKeyItemDate)) {
      }
      if (found != 0 && CompareDates(rec.Date, date) != 0) found = 0;
      break;
    default:
      return 0;
  }
  if (found == 0 || !WalkMatches(rec, item) || rec.TagType != kInvTagDaily) return 0;
  *out = rec;
  return 1;
}

double GetSaleCost(uint32_t post_order, int16_t index) {
  InvTagRec rec;
  if (ReadDistributionTag(post_order, index, &rec)) {
    return rec.TagType == kInvTagSaleCost2 || rec.TagType == kInvTagSaleCost ? -rec.Cost : 0.0;
  }
  double proportion = 0;
  // The sale's tag is taken whatever its type.
  if (ReadSaleTagOfReceipt(post_order, index, &rec, &proportion)) {
    return -Round(rec.Cost * proportion);
  }
  return 0.0;
}

double GetInvAdjCost(uint32_t post_order, int16_t index) {
  // An adjustment keeps its cost on its first distribution; the index only says which
  // side of the movement is asked for.
  InvTagRec rec;
  if (!ReadDistributionTag(post_order, 0, &rec)) return 0.0;
  return index == -1 ? rec.Cost : -rec.Cost;
}

int GetAssemblyCost(uint32_t post_order, int16_t index, double* cost) {
  InvTagRec rec;
  if (!ReadDistributionTag(post_order, index, &rec)) return 0;
  if (cost != nullptr) {
    *cost = rec.TagType == kInvTagAssemblyCost ? rec.Cost - rec.AdjustAmount : rec.Cost;
  }
  return 1;
}

uint8_t GetAssemblyUnbuildAdj(uint32_t post_order, int16_t index, double* first, double* second,
                              int32_t* first_link, int32_t* second_link) {
  InvTagRec rec;
  if (!ReadDistributionTag(post_order, index, &rec)) return 0;
  return GiveAdjustment(rec, first, second, first_link, second_link);
}

uint8_t GetPurchaseRetAdj(uint32_t post_order, int16_t index, double* first, double* second,
                          int32_t* first_link, int32_t* second_link) {
  InvTagRec rec;
  if (ReadDistributionTag(post_order, index, &rec)) {
    return GiveAdjustment(rec, first, second, first_link, second_link);
  }
  double proportion = 0;
  if (!ReadSaleTagOfReceipt(post_order, index, &rec, &proportion) ||
      rec.TagType != kInvTagAssemblyCost) {
    return 0;
  }
  const double amount = rec.AdjustAmount * proportion;
  if (IsZero(amount)) return 0;
  GivePair(Round(amount), rec.AdjustLink1, rec.AdjustLink2, first, second, first_link, second_link);
  return 1;
}

uint8_t GetBelowZeroAdj(int32_t item, DatesType date, double* first, double* second,
                        int32_t* first_link, int32_t* second_link) {
  BtrvFile* file = ThreadTagFile();
  InvTagRec rec;
  if (GetInvDailyRec(file, item, &rec, date, kDailyOnDate) == 0 || IsZero(rec.BelowZeroAmount)) {
    return 0;
  }
  GivePair(rec.BelowZeroAmount, rec.AdjustLink1, rec.AdjustLink2, first, second, first_link,
           second_link);
  return 1;
}
