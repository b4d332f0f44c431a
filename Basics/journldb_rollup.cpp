// Journal data no user enters: the pair of below-zero rows that carries an item's daily
// below-zero adjustment to the ledger (rows without a header), and the roll-up transactions
// into which the inventory costs of purged transactions are summed.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CHART.h"
#include "General.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "journldb.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/journldb";
constexpr int16_t kItemDateKey = 3;         // row key 3: item, date, post order, line number
constexpr int16_t kTrxReferenceKey = 7;     // header key 7: transaction key, reference
constexpr uint32_t kNoHeader = 0xFFFFFFFE;  // post order of rows that belong to no header
constexpr uint16_t kBelowZeroLine = 0xFFFE;
constexpr int32_t kRollupMarker = 4;  // header value at 2906 of a roll-up transaction
constexpr char kRollupPrefix[] = "PrgCstSum";
constexpr size_t kPrefixLength = sizeof kRollupPrefix - 1;
constexpr size_t kMiddleLength = 6;  // the date, MMDDYY

// The read/write row handle of the below-zero pair, opened on first use.
BtrvFile* g_rows = nullptr;

JrnlRowType BelowZeroKey(int32_t item, DatesType day) {
  JrnlRowType row;
  std::memset(&row, 0, sizeof row);
  row.Item = item;
  row.Date = day;
  row.PostOrder = kNoHeader;
  row.LineNumber = kBelowZeroLine;
  return row;
}

bool SameBelowZeroKey(const JrnlRowType& row, int32_t item, DatesType day) {
  return row.Item == item && std::memcmp(&row.Date, &day, sizeof day) == 0 &&
         row.PostOrder == kNoHeader && row.LineNumber == kBelowZeroLine;
}

bool InsertBelowZeroRow(int32_t item, DatesType day, int32_t account, bool second) {
  JrnlRowType row = BelowZeroKey(item, day);
  row.Account = account;
  row.JournalType = INAJ2;
  row.LedgerFlag = 1;
  row.ItemAccountFlag = second ? 1 : 0;
  row.Kind = second ? kRowInventoryCost2 : kRowInventoryCost1;
  AssignGUID(row.Guid);
  std::memcpy(&row.DateCleared, &day, sizeof day);
  return InsertRecord(g_rows, sizeof row, &row) != 0;
}

// Makes the pair of item on day exact (insert) or removes it; false at the first write that
// fails (the caller abandons the batch).
bool WriteBelowZeroPair(int32_t item, DatesType day, int32_t first_account, int32_t second_account,
                        bool insert) {
  JrnlRowType row = BelowZeroKey(item, day);
  if (!insert) {
    while (GetFileEqual(g_rows, kLockBiasNone, sizeof row, &row, kItemDateKey)) {
      if (!DeleteRecord(g_rows, sizeof row, &row)) return false;
      row = BelowZeroKey(item, day);
    }
    return true;
  }
  bool have_first = false, have_second = false;
  for (uint8_t ok = GetFileEqual(g_rows, kLockBiasNone, sizeof row, &row, kItemDateKey);
       ok && SameBelowZeroKey(row, item, day);
       ok = GetFileNext(g_rows, kLockBiasNone, sizeof row, &row, kItemDateKey)) {
    // Each side is kept once, on its own account; anything else is stale.
    if (!have_first && row.Kind == kRowInventoryCost1 && row.Account == first_account) {
      have_first = true;
    } else if (!have_second && row.Kind == kRowInventoryCost2 && row.Account == second_account) {
      have_second = true;
    } else if (!DeleteRecord(g_rows, sizeof row, &row)) {
      return false;
    }
  }
  return (have_first || InsertBelowZeroRow(item, day, first_account, false)) &&
         (have_second || InsertBelowZeroRow(item, day, second_account, true));
}

// The date part of a roll-up reference: month, day and two-digit year.
void DatePart(DatesType date, char (&out)[kMiddleLength + 1]) {
  std::snprintf(out, sizeof out, "%02d%02d%02d", date.month % 100, date.day % 100, date.year % 100);
}

int32_t DefaultCashAccount(char kind) {
  FixedString<16> id;
  if (!GetDefaultCashAcnt(kind == 'R' ? MOD_AR : MOD_AP, id)) return 0;
  return GetAcctRecNumFromID(id);
}

bool SameDate(const DatesType& a, const DatesType& b) { return CompareDates(a, b) == 0; }

}  // namespace

void InsertBelowZeroRecordToJrnlRowFile(int32_t item, DatesType day, int32_t first_account,
                                        int32_t second_account, int insert) {
  if (g_rows == nullptr && !OpenJrnlRowFile(&g_rows, kOpenModeNormal)) return;
  // The check and the writes in one batch, abandoned when a write fails: the pair is never
  // seen half made, and a failed change leaves the pair as it was.
  if (!bBeginBatchUpdate(g_rows)) return;
  if (WriteBelowZeroPair(item, day, first_account, second_account, insert != 0)) {
    bEndBatchUpdate(g_rows);
  } else {
    bAbortBatchUpdate(g_rows);
  }
}

void CloseInternalBelowZeroRowFile() { CloseIfOpen(&g_rows, kUnit, __LINE__); }

void JrnlRowHdrClass::CreateNewRollupTransactionHdr(DatesType date, char kind,
                                                    JournalKey2Type /*key2*/,
                                                    FixedString<21> previous) {
  if (rollup_ == nullptr && !AllocateJournalRecord(&rollup_)) return;
  JournalRecord* r = rollup_;
  std::memset(r, 0, sizeof *r);
  r->Key2.Date = date;
  r->Key1.Period = WhichGLperiod(date);
  r->Value2906 = kRollupMarker;
  Assign(r->Description, "Purged Transactions Cost Sum");
  r->LedgerFlag = 1;

  // The reference goes on from the previous one: same middle part, next number.
  previous.s[sizeof previous.s - 1] = '\0';
  char middle[kMiddleLength + 1] = {};
  int number = 0;
  if (std::strncmp(previous.s, kRollupPrefix, kPrefixLength) == 0) {
    const size_t length = std::strlen(previous.s);
    number = std::atoi(previous.s + (length >= 4 ? length - 4 : 0));
    const size_t rest = length - kPrefixLength;
    std::memcpy(middle, previous.s + kPrefixLength, rest < kMiddleLength ? rest : kMiddleLength);
  }
  char reference[64];
  std::snprintf(reference, sizeof reference, "%s%s%04d", kRollupPrefix, middle, number + 1);
  Assign(r->Reference, reference);

  if (kind == 'R' || kind == 'P') {
    r->Key1.JournalType = kind == 'R' ? CRJ : CDJ;
    r->Key2.Qualifier = kind;
    r->HdrAccount = DefaultCashAccount(kind);
  }
  r->Key1.TrxNumber = NextTrxNumber(r->Key1);
}

bool JrnlRowHdrClass::FindMatchingRollupReceiptForDate(const JournalRecord* const purged, char kind,
                                                       int cash_account, DatesType date,
                                                       const JournalRecord* const pending,
                                                       int* found, int* lines) {
  auto answer = [&](int how) {
    if (found != nullptr) *found = how;
    if (lines != nullptr) *lines = rollup_ != nullptr ? rollup_->LineCount : 0;
    return how != 0;
  };
  if (rollup_ == nullptr && !AllocateJournalRecord(&rollup_)) return answer(0);
  const char side = kind == 'R' ? 'R' : 'P';
  const int16_t journal = side == 'R' ? CRJ : CDJ;
  const int32_t account = cash_account != 0 ? cash_account : DefaultCashAccount(side);
  const uint32_t own = purged != nullptr ? purged->PostOrder : 0;
  char prefix[kPrefixLength + kMiddleLength + 1];
  char middle[kMiddleLength + 1];
  DatePart(date, middle);
  std::snprintf(prefix, sizeof prefix, "%s%s", kRollupPrefix, middle);

  // The highest number among the date's roll-up references: a new one comes after them.
  int highest = 0;
  auto count_reference = [&](const char* reference) {
    if (std::strncmp(reference, prefix, std::strlen(prefix)) != 0) return;
    const int number = std::atoi(reference + std::strlen(prefix));
    if (number > highest) highest = number;
  };
  auto is_match = [&](int32_t value2906, int16_t its_journal, const DatesType& its_date,
                      int32_t its_account, uint32_t its_post_order) {
    return value2906 == kRollupMarker && its_journal == journal && SameDate(its_date, date) &&
           its_account == account && (purged == nullptr || its_post_order != own);
  };

  // The caller's roll-up not yet stored comes first: it is the one being added to.
  if (pending != nullptr && pending->Value2906 == kRollupMarker &&
      pending->Key1.JournalType == journal) {
    if (is_match(pending->Value2906, pending->Key1.JournalType, pending->Key2.Date,
                 pending->HdrAccount, pending->PostOrder)) {
      if (pending != rollup_) std::memcpy(rollup_, pending, sizeof *rollup_);
      return answer(2);
    }
    FixedString<21> reference = pending->Reference;
    reference.s[sizeof reference.s - 1] = '\0';
    count_reference(reference.s);
  }

  // Stored roll-ups of the journal in the date's period, in transaction-key order.
  const uint16_t period = WhichGLperiod(date);
  ClearHeader();
  Hdr.Key1.JournalType = journal;
  Hdr.Key1.Period = period;
  for (int ok = GetHdrGE(kTrxReferenceKey, kLockBiasNone);
       ok && Hdr.Key1.JournalType == journal && Hdr.Key1.Period == period;
       ok = GetHdrNext(kTrxReferenceKey, kLockBiasNone)) {
    if (Hdr.Value2906 != kRollupMarker) continue;
    char reference[sizeof Hdr.Reference + 1] = {};
    std::memcpy(reference, Hdr.Reference, sizeof Hdr.Reference);
    count_reference(reference);
    if (is_match(Hdr.Value2906, Hdr.Key1.JournalType, Hdr.Key2.Date, Hdr.HdrAccount,
                 Hdr.PostOrder) &&
        GetJrnlForCurrentJrnlHdr(rollup_)) {
      return answer(1);
    }
  }

  FixedString<21> previous;
  char text[64];
  std::snprintf(text, sizeof text, "%s%04d", prefix, highest);
  Assign(previous, text);
  CreateNewRollupTransactionHdr(date, side, JournalKey2Type{}, previous);
  if (cash_account != 0) rollup_->HdrAccount = cash_account;
  return answer(0);
}
