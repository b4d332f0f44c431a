// The navigator's sorted walks of one company (general-ledger and job sorts, the walks of one
// account), the below-zero row pair and the roll-up headers of purged costs.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "master_records.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"

namespace {

struct RecordDeleter {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using Record = std::unique_ptr<JournalRecord, RecordDeleter>;
using Strings = std::vector<std::string>;

DatesType Mar(int day) { return DatesType{static_cast<uint8_t>(day), 3, 2024}; }
const FromTo kMarch = {Mar(1), Mar(31)};
constexpr int32_t kItem = 7;
constexpr uint32_t kNoHeader = 0xFFFFFFFE;

class SortedTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);
    // Record numbers 1, 2, 3 in another order than the IDs.
    for (const char* id : {"3000", "1000", "2000"}) master_records::Add<AccountType>(id);
  }
  void TearDown() override {
    rm::SetBackendDecorator(nullptr);
    CompanyTest::TearDown();
  }
  void CloseLibraryFiles() override {
    CloseJrnlFile(&files_);
    CloseInternalJrnlFiles();
    CloseInternalBelowZeroRowFile();
    CloseInternalChartFile();
    CloseInternalInvTagFile();
    CloseInternalItemFile();
  }
  // A transaction of `journal` with its main row on hdr_account (none in the general
  // journal) and one line on each of lines, all cleared on `cleared`.
  Record Trx(int16_t journal, uint32_t post, DatesType date, int32_t hdr_account,
             std::vector<int32_t> lines, uint8_t ledger = 1, DatesType cleared = {}) {
    JournalRecord* r = nullptr;
    AllocateJournalRecord(&r);
    r->Key1.JournalType = journal;
    r->Key1.TrxNumber = static_cast<int32_t>(post);
    r->Key2 = {journal == CDJ ? 'P' : 'R', 0, date};
    r->PostOrder = post;
    r->HdrAccount = hdr_account;
    r->Amount = 10.0 * static_cast<double>(lines.size());
    r->LedgerFlag = ledger;
    r->DateCleared = cleared;
    r->LineCount = static_cast<int16_t>(lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
      JournalLines(r)[i].Account = lines[i];
      JournalLines(r)[i].Amount = -10;
      JournalLines(r)[i].DateCleared = cleared;
    }
    EXPECT_EQ(InsertRecord(files_, r), 1) << post;
    return Record(r);
  }
  void SaveRow(JrnlRowType row) {
    AssignGUID(row.Guid);
    ASSERT_NE(InsertRecord(files_.RowFile, sizeof row, &row), 0);
  }
  // The below-zero rows of an item on a day: "account/kind".
  Strings BelowZeroRows(int32_t item, DatesType day) {
    Strings rows;
    JrnlRowType row{.PostOrder = kNoHeader, .LineNumber = 0xFFFE, .Item = item, .Date = day};
    for (uint8_t ok = GetFileGE(files_.RowFile, kLockBiasNone, sizeof row, &row, 3);
         ok && row.Item == item && row.Date.day == day.day && row.PostOrder == kNoHeader;
         ok = GetFileNext(files_.RowFile, kLockBiasNone, sizeof row, &row, 3)) {
      rows.push_back(std::to_string(row.Account) + "/" + std::to_string(row.Kind));
    }
    return rows;
  }

  JrnlDBFilesType files_ = {};
};

// Every entry of an open general-ledger sort: "account ID/day/post order", below-zero entries
// with their made-up reference instead of the post order.
Strings SortedEntries(JrnlRowHdrClass& nav) {
  static const char* const kIds[] = {"?", "3000", "1000", "2000"};
  Strings entries;
  JournalRecord* record = nullptr;
  AllocateJournalRecord(&record);
  int32_t account = 0;
  for (int ok = nav.GetFirstSortedTrx(record); ok && entries.size() < 32;
       ok = nav.GetNextSortedTrx(account, record)) {
    const uint32_t post = record->PostOrder;
    EXPECT_EQ(post, nav.Row.PostOrder);
    entries.push_back(std::string(kIds[nav.Row.Account]) + "/" + std::to_string(nav.Row.Date.day) +
                      "/" + (post == kNoHeader ? record->Reference.s : std::to_string(post)));
  }
  DeAllocateJournalRecord(&record);
  return entries;
}

TEST_F(SortedTest, GeneralLedgerSortListsEachTransactionOncePerAccountAndDate) {
  Record p1 = Trx(GENJ, 1, Mar(5), 0, {3, 1, 2, 2});  // two rows on 1000: one entry
  Trx(GENJ, 2, Mar(3), 0, {2, 1});
  Trx(GENJ, 3, Mar(1), 0, {2, 1});
  Trx(GENJ, 4, DatesType{2, 4, 2024}, 0, {1, 3});  // after the range
  Trx(CRJ, 5, Mar(3), 2, {3});
  Trx(GENJ, 6, DatesType{28, 2, 2024}, 0, {2, 1});  // before the range
  InsertBelowZeroRecordToJrnlRowFile(kItem, Mar(4), 2, 3, 1);
  InsertBelowZeroRecordToJrnlRowFile(kItem + 1, Mar(4), 2, 3, 1);

  JrnlRowHdrClass nav(kOpenModeReadOnly), other(kOpenModeReadOnly);
  ASSERT_EQ(nav.StartGetSortedTrx(kMarch, GENJ, GENJ, 0), 1);
  EXPECT_EQ(nav.StartGetSortedTrx(kMarch, GENJ, GENJ, 0), 0) << "a second start is refused";
  // Below-zero entries (one per item) have no stored transaction: the walk goes on past them.
  const Strings all = {"1000/1/3", "1000/3/2", "1000/3/5",       "1000/4/SysCost", "1000/4/SysCost",
                       "1000/5/1", "2000/3/5", "2000/4/SysCost", "2000/4/SysCost", "2000/5/1",
                       "3000/1/3", "3000/3/2", "3000/5/1"};
  EXPECT_EQ(SortedEntries(nav), all);
  // Another navigator's end without a start leaves this sort alone; a transaction deleted
  // since the sort is passed over, the entries after it still come.
  other.EndGetSortedTrx();
  ASSERT_EQ(GetFileEqual(files_, kLockBiasNone, p1.get(), 5), 1);
  ASSERT_EQ(DeleteRecord(files_, p1.get()), 1);
  Strings without_p1 = all;
  std::erase_if(without_p1, [](const std::string& e) { return e.ends_with("/1"); });
  EXPECT_EQ(SortedEntries(nav), without_p1);
  nav.EndGetSortedTrx();
  EXPECT_EQ(SortedEntries(nav), Strings{}) << "no sort after its end";

  // The type filter; a new sort after the end.
  ASSERT_EQ(nav.StartGetSortedTrx(kMarch, CRJ, CRJ, 1), 1);
  EXPECT_EQ(SortedEntries(nav), (Strings{"1000/3/5", "2000/3/5"}));
  nav.EndGetSortedTrx();
}

TEST_F(SortedTest, JobSortOrdersAJobsHistoryFromItsFirstRow) {
  auto add = [&](int32_t job, int32_t account, const char* phase, const char* cost, DatesType date,
                 uint32_t post, int32_t journal = GENJ) {
    JrnlRowType row{.Account = account, .PostOrder = post, .LineNumber = 1, .Job = job};
    std::strcpy(row.Phase, phase);
    std::strcpy(row.CostCode, cost);
    row.JournalType = journal;
    row.Date = date;
    SaveRow(row);
  };
  add(5, 1, "B", "", Mar(2), 10);
  add(5, 2, "A", "X", Mar(9), 11);
  add(5, 3, "A", "", DatesType{15, 1, 2024}, 12);  // before the range: taken
  add(5, 2, "A", "", DatesType{9, 4, 2024}, 13);   // after the range's end
  add(5, 2, "A", "", Mar(3), 14, POJ);
  add(6, 2, "A", "", Mar(3), 17);
  JrnlRowHdrClass nav(kOpenModeReadOnly);
  auto walk = [&] {
    std::vector<uint32_t> posts;
    for (int ok = nav.GetFirstSortedTrxJob(); ok && posts.size() < 16;
         ok = nav.GetNextSortedTrxJob()) {
      posts.push_back(nav.Row.PostOrder);
    }
    return posts;
  };
  // First right after the start gives the first row, although the start's own walk ended on
  // job 6's row.
  ASSERT_EQ(nav.StartGetSortedTrxJob(kMarch, 0, 5), 1);
  EXPECT_EQ(walk(), (std::vector<uint32_t>{12, 11, 10})) << "phase, cost code, account";
  ASSERT_EQ(nav.StartGetSortedTrxJob(kMarch, 1, 5), 1);
  EXPECT_EQ(walk(), (std::vector<uint32_t>{11, 12, 10})) << "account ID first";
  nav.ClearRow();
  nav.Row.Job = 6;
  EXPECT_EQ(nav.GetFirstSortedTrxJob(), 0) << "every element is of a lower job";
  nav.EndGetSortedTrxJob();
  EXPECT_EQ(nav.GetFirstSortedTrxJob(), 0);
}

TEST_F(SortedTest, AccountWalksChooseTheirRowsAndNeverStopAtAMissingHeader) {
  Trx(GENJ, 1, DatesType{28, 2, 2024}, 0, {2, 1});
  Trx(GENJ, 2, Mar(2), 0, {2, 1});
  Trx(GENJ, 3, Mar(3), 0, {2, 1}, /*ledger=*/0);
  InsertBelowZeroRecordToJrnlRowFile(kItem, Mar(4), 2, 3, 1);  // no tag: amount 0
  SaveRow(
      {.Account = 2, .PostOrder = 99, .Date = Mar(5), .LedgerFlag = 1, .Amount = 5});  // no header
  Trx(GENJ, 6, Mar(6), 0, {2, 1}, 1, DatesType{20, 2, 2024});  // reconciled before the range
  Trx(GENJ, 7, DatesType{1, 4, 2024}, 0, {2, 1});

  JrnlRowHdrClass nav(kOpenModeReadOnly);
  using Walk = int (JrnlRowHdrClass::*)(FromTo, int32_t);
  auto days = [&](Walk first, Walk next) {
    Strings seen;
    for (int ok = (nav.*first)(kMarch, 2); ok && seen.size() < 16; ok = (nav.*next)(kMarch, 2)) {
      EXPECT_EQ(nav.Hdr.PostOrder, nav.Row.PostOrder);
      seen.push_back(std::to_string(nav.Row.Date.day) +
                     (nav.Row.PostOrder == kNoHeader ? std::string(nav.Hdr.Reference) : ""));
    }
    return seen;
  };
  EXPECT_EQ(days(&JrnlRowHdrClass::GetFirstSortedTrxForLedger,
                 &JrnlRowHdrClass::GetNextSortedTrxForLedger),
            (Strings{"2", "4SysCost", "6"}));
  EXPECT_EQ(days(&JrnlRowHdrClass::GetFirstSortedTrxForAcctRec,
                 &JrnlRowHdrClass::GetNextSortedTrxForAcctRec),
            (Strings{"2", "4SysCost"}));
  EXPECT_EQ(days(&JrnlRowHdrClass::GetFirstSortedTrxForAcctRegister,
                 &JrnlRowHdrClass::GetNextSortedTrxForAcctRegister),
            (Strings{"2", "3", "6"}))
      << "the register goes by the row's own ledger flag";
}

TEST_F(SortedTest, BelowZeroPairIsKeptExactAndAFailedChangeLeavesItAsItWas) {
  for (DatesType day : {Mar(4), Mar(4), Mar(5)})
    InsertBelowZeroRecordToJrnlRowFile(kItem, day, 2, 3, 1);
  EXPECT_EQ(BelowZeroRows(kItem, Mar(4)), (Strings{"2/7", "3/8"}));
  JrnlRowType first{.PostOrder = kNoHeader, .LineNumber = 0xFFFE, .Item = kItem, .Date = Mar(4)};
  ASSERT_NE(GetFileEqual(files_.RowFile, kLockBiasNone, sizeof first, &first, 3), 0);
  // A changed second account: the first row stays (same GUID), the second is replaced.
  InsertBelowZeroRecordToJrnlRowFile(kItem, Mar(4), 2, 1, 1);
  EXPECT_EQ(BelowZeroRows(kItem, Mar(4)), (Strings{"2/7", "1/8"}));
  JrnlRowType again = first;
  ASSERT_NE(GetFileEqual(files_.RowFile, kLockBiasNone, sizeof again, &again, 3), 0);
  EXPECT_EQ(std::memcmp(&again.Guid, &first.Guid, sizeof first.Guid), 0);

  // Both rows replaced, failing at each write in turn, then removed.
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  CloseLibraryFiles();  // every handle reopened through the faulty backend
  ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);
  for (int n = 1, failed = 1; failed && n < 20; ++n) {
    plan->Arm(n, kStatusDiskFull);
    InsertBelowZeroRecordToJrnlRowFile(kItem, Mar(4), 4, 3, 1);
    failed = plan->failures;
    plan->Disarm();
    EXPECT_EQ(BelowZeroRows(kItem, Mar(4)),
              (failed ? Strings{"2/7", "1/8"} : Strings{"4/7", "3/8"}))
        << "failing write " << n;
  }
  InsertBelowZeroRecordToJrnlRowFile(kItem, Mar(4), 0, 0, 0);
  EXPECT_EQ(BelowZeroRows(kItem, Mar(4)), Strings{});
  EXPECT_EQ(BelowZeroRows(kItem, Mar(5)), (Strings{"2/7", "3/8"}));
}

TEST_F(SortedTest, RollupHeadersNumberOnAndMatchByDateKindAndCashAccount) {
  JrnlRowHdrClass nav(kOpenModeNormal);
  const struct {
    const char* previous;
    const char* next;
  } references[] = {{"PrgCstSumABCDEF0041", "PrgCstSumABCDEF0042"}, {"INV-7", "PrgCstSum0001"}};
  for (const auto& r : references) {
    FixedString<21> previous;
    previous = r.previous;
    nav.CreateNewRollupTransactionHdr(Mar(4), 'R', JournalKey2Type{}, previous);
    EXPECT_STREQ(nav.GetRollupRecord()->Reference.s, r.next);
  }
  EXPECT_EQ(nav.GetRollupRecord()->HdrAccount, 2) << "the first cash account by ID, 1000";

  // The roll-up's reference and how it was found (0 new, 1 stored, 2 the caller's).
  auto find = [&](char kind, int cash, const JournalRecord* purged = nullptr,
                  const JournalRecord* pending = nullptr) {
    int found = -1, lines = 0;
    const bool matched =
        nav.FindMatchingRollupReceiptForDate(purged, kind, cash, Mar(4), pending, &found, &lines);
    EXPECT_EQ(matched, found != 0);
    return std::string(nav.GetRollupRecord()->Reference.s) + " " + std::to_string(found);
  };
  auto store = [&] {
    JournalRecord* r = nav.GetRollupRecord();
    r->PostOrder = 40 + static_cast<uint32_t>(r->HdrAccount);
    ASSERT_EQ(InsertRecord(files_, r), 1);
  };
  EXPECT_EQ(find('R', 0), "PrgCstSum0304240001 0");
  EXPECT_EQ(find('R', 0, nullptr, nav.GetRollupRecord()), "PrgCstSum0304240001 2");
  store();
  EXPECT_EQ(find('R', 0), "PrgCstSum0304240001 1");
  JournalRecord* stored = nullptr;
  AllocateJournalRecord(&stored);
  std::memcpy(stored, nav.GetRollupRecord(), sizeof *stored);
  EXPECT_EQ(find('R', 3), "PrgCstSum0304240002 0") << "another cash account";
  store();
  EXPECT_EQ(find('R', 0, stored), "PrgCstSum0304240003 0") << "never its own roll-up";
  DeAllocateJournalRecord(&stored);
  EXPECT_EQ(find('X', 0), "PrgCstSum0304240001 0") << "disbursements number apart";
  EXPECT_EQ(nav.GetRollupRecord()->Key1.JournalType, CDJ);
  EXPECT_EQ(find('R', 3), "PrgCstSum0304240002 1");
}

}  // namespace
