// Sorted walks of the navigator: the general-ledger sort through a temporary keyed file,
// the job sort in one in-memory array, and the ledger, reconciliation and register walks of
// one account in row key 2 order. The sort record buffer, the job array and its cursor are
// shared by every navigator (the host serialises its calls).
#include <algorithm>
#include <cstring>
#include <vector>

#include "CHART.h"
#include "General.h"
#include "InvTagDcl.h"
#include "file_creation.h"
#include "journldb.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/journldb";
constexpr int16_t kAccountDateKey = 2;  // row key 2: account, date, post order
constexpr int16_t kJobDateKey = 6;      // row key 6: job, date
constexpr uint32_t kLastDate = 0x7FFFFFFF;

#pragma pack(push, 1)
// The sort record: the record of the temporary sort file and the element of the job array.
//   offset  size  field
//        0    16  account ID of the row's account, zero-terminated; empty when unknown
//       16   373  the row as read and completed
struct SortRecord {
  char AccountID[16];
  JrnlRowType Row;
};
#pragma pack(pop)
static_assert(sizeof(SortRecord) == kSortRecordLength, "the sort record is the sort file's");
static_assert(offsetof(SortRecord, Row) + offsetof(JrnlRowType, Date) == 86 &&
                  offsetof(SortRecord, Row) + offsetof(JrnlRowType, PostOrder) == 20,
              "the sort file's key: account ID, row date at 86, post order at 20");

SortRecord g_sort_record;
std::vector<SortRecord> g_job_rows;
size_t g_job_cursor = 0;

void SetLastDate(DatesType& date) { std::memcpy(&date, &kLastDate, sizeof date); }

bool DateSet(const DatesType& date) { return date.day != 0 || date.month != 0 || date.year != 0; }

bool BelowZeroRow(const JrnlRowType& row) {
  return row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2;
}

bool OrderOrSecondSales(int32_t journal) {
  return journal == POJ || journal == SOJ || journal == SJ2;
}

// The account ID of the rows taken, looked up once for each run of rows on one account.
class AccountIDs {
 public:
  void Fill(int32_t account, char (&id)[16]) {
    if (!known_ || account != account_) {
      known_ = true;
      account_ = account;
      FixedString<16> text;
      if (!GetAcctIDFromRecordNumber(account, text)) text.Clear();
      std::memcpy(id_, text.s, sizeof id_);
      id_[sizeof id_ - 1] = '\0';
    }
    std::memcpy(id, id_, sizeof id);
  }

 private:
  bool known_ = false;
  int32_t account_ = 0;
  char id_[16] = {};
};

// Job array orders. IDs compare byte-wise, numbers as signed values.
int CompareText(const char* a, const char* b, size_t n) { return std::strncmp(a, b, n); }

int CompareTail(const SortRecord& a, const SortRecord& b) {
  if (int c = CompareDates(a.Row.Date, b.Row.Date); c != 0) return c;
  const int32_t pa = static_cast<int32_t>(a.Row.PostOrder),
                pb = static_cast<int32_t>(b.Row.PostOrder);
  if (pa != pb) return pa < pb ? -1 : 1;
  const int la = a.Row.LineNumber, lb = b.Row.LineNumber;
  return la < lb ? -1 : la > lb ? 1 : 0;
}

bool AccountFirst(const SortRecord& a, const SortRecord& b) {
  const int32_t ja = a.Row.Job, jb = b.Row.Job;
  if (ja != jb) return ja < jb;
  if (int c = CompareText(a.AccountID, b.AccountID, sizeof a.AccountID); c != 0) return c < 0;
  if (int c = CompareText(a.Row.Phase, b.Row.Phase, sizeof a.Row.Phase); c != 0) return c < 0;
  if (int c = CompareText(a.Row.CostCode, b.Row.CostCode, sizeof a.Row.CostCode); c != 0) {
    return c < 0;
  }
  return CompareTail(a, b) < 0;
}

bool PhaseFirst(const SortRecord& a, const SortRecord& b) {
  const int32_t ja = a.Row.Job, jb = b.Row.Job;
  if (ja != jb) return ja < jb;
  if (int c = CompareText(a.Row.Phase, b.Row.Phase, sizeof a.Row.Phase); c != 0) return c < 0;
  if (int c = CompareText(a.Row.CostCode, b.Row.CostCode, sizeof a.Row.CostCode); c != 0) {
    return c < 0;
  }
  if (int c = CompareText(a.AccountID, b.AccountID, sizeof a.AccountID); c != 0) return c < 0;
  return CompareTail(a, b) < 0;
}

}  // namespace

// --- General-ledger sort ----------------------------------------------------------------------

int JrnlRowHdrClass::StartGetSortedTrx(FromTo range, JournalTypes first, JournalTypes second,
                                       int filter) {
  if (sort_file_ != nullptr) return 0;
  if (!ZOR_GetTempFileName("JRST", sort_file_name_)) return 0;
  if (!CreateNewSortFile(sort_file_name_) ||
      !RealOpenBFile(&sort_file_, sort_file_name_, kOpenModeExclusive, 0, kUnit, __LINE__)) {
    FileDeleteWithLCK(sort_file_name_);
    sort_file_name_[0] = '\0';
    return 0;
  }
  // One batch for the whole file: a commit per row would cost more than the walk itself.
  const bool batch = bBeginBatchUpdate(sort_file_) != 0;

  AccountIDs ids;
  const bool cash_basis = MyCompany.CashBasis != 0;
  // The walk reads rows bare and completes only those it considers: the rows passed over
  // (outside the range, or the rest of a transaction already taken) need no cost query.
  BtrvFile* const rows = primary_.RowFile;
  auto read_ge = [&] { return GetFileGE(rows, kLockBiasNone, sizeof Row, &Row, kAccountDateKey); };
  auto read_greater = [&] {
    return GetFileGreater(rows, kLockBiasNone, sizeof Row, &Row, kAccountDateKey);
  };
  auto read_next = [&] {
    return GetFileNext(rows, kLockBiasNone, sizeof Row, &Row, kAccountDateKey);
  };
  // The key (account, date, post order) of the row taken last, while the rows after it that
  // share it are to be passed over.
  bool passing = false;
  int32_t taken_account = 0;
  DatesType taken_date = {};
  uint32_t taken_post = 0;

  ClearRow();
  Row.Date = range.from;
  uint8_t ok = read_ge();
  while (ok) {
    const int where = DateInRange(range, Row.Date);
    if (where < 0) {
      // This account's first row in the range.
      Row.Date = range.from;
      Row.PostOrder = 0;
      ok = read_greater();
      continue;
    }
    if (where > 0) {
      // The next account.
      SetLastDate(Row.Date);
      Row.PostOrder = 0;
      ok = read_greater();
      continue;
    }
    // Further rows of the same account, date and transaction as the row taken last are
    // passed over: each transaction is listed once per account and date, and the caller
    // reads it whole.
    if (passing && Row.Account == taken_account && Row.PostOrder == taken_post &&
        std::memcmp(&Row.Date, &taken_date, sizeof taken_date) == 0) {
      ok = read_next();
      continue;
    }
    passing = false;
    CompleteRow();
    const int32_t journal = Row.JournalType;
    if (filter != 0 && journal != first && journal != second) {
      ok = read_next();
      continue;
    }
    if ((journal == CDJ || journal == PJ) &&
        (Row.Kind == kRowCounter1 || Row.Kind == kRowCounter2)) {
      // A purchase-return row counts only through its return adjustment, which the line
      // itself (not the line's distribution index) keys; cash-basis books have none.
      double adjust_first = 0, adjust_second = 0;
      int32_t link1 = 0, link2 = 0;
      if (cash_basis || !GetPurchaseRetAdj(Row.PostOrder, static_cast<int16_t>(Row.LineNumber),
                                           &adjust_first, &adjust_second, &link1, &link2)) {
        ok = read_next();
        continue;
      }
      Row.Amount = Row.Kind == kRowCounter1 ? adjust_first : adjust_second;
    }
    ids.Fill(Row.Account, g_sort_record.AccountID);
    g_sort_record.Row = Row;
    InsertRecordByKey(sort_file_, sizeof g_sort_record, &g_sort_record, kNoKeyCurrency);
    // Below-zero rows share one post order over all items: each is an entry of its own.
    if (!BelowZeroRow(Row)) {
      passing = true;
      taken_account = Row.Account;
      taken_date = Row.Date;
      taken_post = Row.PostOrder;
    }
    ok = read_next();
  }

  if (batch && !bEndBatchUpdate(sort_file_)) {
    // The entries were not kept: no sort rather than a partial one.
    RealCloseFile(&sort_file_, kUnit, __LINE__);
    FileDeleteWithLCK(sort_file_name_);
    sort_file_name_[0] = '\0';
    return 0;
  }
  return 1;
}

int JrnlRowHdrClass::SortedTrx(bool first, JournalRecord* record) {
  if (sort_file_ == nullptr || record == nullptr) return 0;
  if (first) std::memset(&g_sort_record, 0, sizeof g_sort_record);
  for (;;) {
    const uint8_t read =
        first ? GetFileGE(sort_file_, kLockBiasNone, sizeof g_sort_record, &g_sort_record, 0)
              : GetFileNext(sort_file_, kLockBiasNone, sizeof g_sort_record, &g_sort_record, 0);
    if (!read) return 0;
    first = false;
    Row = g_sort_record.Row;
    if (BelowZeroRow(Row)) {
      // No stored transaction: the made-up header stands for it.
      GetHdrForRow();
      return ConvertJrnlHdrToJrnlRec(nullptr, &Hdr, record);
    }
    const uint32_t saved = record->PostOrder;
    record->PostOrder = Row.PostOrder;
    if (lookup_.HdrFile != nullptr && GetFileEqual(lookup_, kLockBiasNone, record, 5)) return 1;
    // Deleted since the sort: the entries after it still count.
    record->PostOrder = saved;
  }
}

int JrnlRowHdrClass::GetFirstSortedTrx(JournalRecord* record) { return SortedTrx(true, record); }

int JrnlRowHdrClass::GetNextSortedTrx(int32_t& account, JournalRecord* record) {
  if (!SortedTrx(false, record)) return 0;
  account = Row.Account;
  return 1;
}

void JrnlRowHdrClass::EndGetSortedTrx() {
  RealCloseFile(&sort_file_, kUnit, __LINE__);
  // Only a file this navigator made is deleted.
  if (sort_file_name_[0] != '\0') FileDeleteWithLCK(sort_file_name_);
  sort_file_name_[0] = '\0';
}

// --- Job sort ---------------------------------------------------------------------------------

int JrnlRowHdrClass::StartGetSortedTrxJob(FromTo range, int account_first, int32_t job) {
  g_job_rows.clear();
  g_job_cursor = 0;
  AccountIDs ids;
  // Every row of the job up to the range's end: the job's history counts.
  ClearRow();
  Row.Job = job;
  int ok = GetRowGE(kJobDateKey);
  while (ok && Row.Job == job) {
    if (CompareDates(Row.Date, range.to) > 0) {
      SetLastDate(Row.Date);
      ok = GetRowGE(kJobDateKey);
      continue;
    }
    if (!OrderOrSecondSales(Row.JournalType)) {
      ids.Fill(Row.Account, g_sort_record.AccountID);
      g_sort_record.Row = Row;
      g_job_rows.push_back(g_sort_record);
    }
    ok = GetRowNext(kJobDateKey);
  }
  std::sort(g_job_rows.begin(), g_job_rows.end(), account_first != 0 ? AccountFirst : PhaseFirst);
  // The walk has left Row on another job's row (or wherever it failed); First takes its
  // lower bound from Row, so it is set to the job sorted and First gives element 0.
  ClearRow();
  Row.Job = job;
  return 1;
}

int JrnlRowHdrClass::GetFirstSortedTrxJob() {
  if (g_job_rows.empty()) return 0;
  const int32_t bound = Row.Job;
  g_job_cursor = 0;
  while (g_job_cursor < g_job_rows.size() && g_job_rows[g_job_cursor].Row.Job < bound) {
    ++g_job_cursor;
  }
  if (g_job_cursor == g_job_rows.size()) return 0;
  g_sort_record = g_job_rows[g_job_cursor++];
  Row = g_sort_record.Row;
  return 1;
}

int JrnlRowHdrClass::GetNextSortedTrxJob() {
  if (g_job_cursor >= g_job_rows.size()) return 0;
  g_sort_record = g_job_rows[g_job_cursor++];
  Row = g_sort_record.Row;
  return 1;
}

void JrnlRowHdrClass::EndGetSortedTrxJob() {
  g_job_rows.clear();
  g_job_rows.shrink_to_fit();
  g_job_cursor = 0;
}

// --- Walks of one account ---------------------------------------------------------------------
// A row whose transaction header cannot be read is passed over like any other row that does
// not qualify: it never ends a walk early.

int JrnlRowHdrClass::LedgerWalk(FromTo range, int32_t account, int ok) {
  for (; ok; ok = GetRowNext(kAccountDateKey)) {
    if (Row.Account != account || DateInRange(range, Row.Date) != 0) return 0;
    if (GetHdrForRow() && Hdr.LedgerFlag != 0 && Row.LedgerFlag != 0) return 1;
  }
  return 0;
}

int JrnlRowHdrClass::GetFirstSortedTrxForLedger(FromTo range, int32_t account) {
  ClearRow();
  Row.Account = account;
  Row.Date = range.from;
  return LedgerWalk(range, account, GetRowGE(kAccountDateKey));
}

int JrnlRowHdrClass::GetNextSortedTrxForLedger(FromTo range, int32_t account) {
  return LedgerWalk(range, account, GetRowNext(kAccountDateKey));
}

int JrnlRowHdrClass::AcctRecWalk(FromTo range, int32_t account, int ok) {
  for (; ok; ok = GetRowNext(kAccountDateKey)) {
    if (Row.Account != account) return 0;
    // A row without a date is not range-tested.
    if (DateSet(Row.Date) && DateInRange(range, Row.Date) != 0) return 0;
    // Cleared before the statement period: reconciled already.
    if (DateSet(Row.DateCleared) && CompareDates(Row.DateCleared, range.from) < 0) continue;
    if (OrderOrSecondSales(Row.JournalType)) continue;
    if (GetHdrForRow() && Hdr.LedgerFlag != 0) return 1;
  }
  return 0;
}

int JrnlRowHdrClass::GetFirstSortedTrxForAcctRec(FromTo range, int32_t account) {
  ClearRow();
  Row.Account = account;
  Row.Date = range.from;
  return AcctRecWalk(range, account, GetRowGE(kAccountDateKey));
}

int JrnlRowHdrClass::GetNextSortedTrxForAcctRec(FromTo range, int32_t account) {
  return AcctRecWalk(range, account, GetRowNext(kAccountDateKey));
}

int JrnlRowHdrClass::AcctRegisterWalk(FromTo range, int32_t account, int ok) {
  while (ok) {
    if (Row.Account != account || DateInRange(range, Row.Date) != 0) return 0;
    if (Row.LedgerFlag != 0 && !IsZero(Row.Amount) && GetHdrForRow()) return 1;
    // The register's own stepping: past the rest of a transaction's rows on this account
    // and date when the row is not a ledger row, row by row otherwise.
    ok = Row.LedgerFlag != 0 ? GetRowNext(kAccountDateKey) : GetRowGreater(kAccountDateKey);
  }
  return 0;
}

int JrnlRowHdrClass::GetFirstSortedTrxForAcctRegister(FromTo range, int32_t account) {
  ClearRow();
  Row.Account = account;
  Row.Date = range.from;
  return AcctRegisterWalk(range, account, GetRowGE(kAccountDateKey));
}

int JrnlRowHdrClass::GetNextSortedTrxForAcctRegister(FromTo range, int32_t account) {
  return AcctRegisterWalk(range, account, GetRowGreater(kAccountDateKey));
}
