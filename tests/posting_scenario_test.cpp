// Posting when things go wrong or several users post at once: every failing store write of
// an insert, an update and a delete leaves every file as it was; a poster killed at random
// moments leaves only whole transactions with their events and a balanced ledger; four
// processes posting at once get distinct numbers and lose nothing; a transaction held by
// one user's edit is refused to another until the first lets go; a user killed while editing
// or inside a batch holds nothing and leaves nothing. Each runs on a company in a local store
// and on one served from the test server.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

// The forked-child helper of the record manager's tests, included before the journal store
// declares its own GetFileNext and GetFilePrevious.
#include "record_manager_test_support.h"

#include "posting_support.h"
#include "rm_fault_backend.h"

namespace {

using namespace posting_test;
using rmtest::Ints;

#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#else
constexpr bool kThreadSanitizer = false;
#endif

constexpr int32_t kVendor = 7;

// What the files hold after a run, keyed by post order.
struct Books {
  std::map<uint32_t, JrnlHdrType> headers;
  std::map<uint32_t, std::vector<JrnlRowType>> rows;
  std::vector<EVENT_LOG_RECORD> events;
};

Books ReadBooks() {
  const CompanyImage image = ReadCompany();
  Books books;
  for (const JrnlHdrType& h : Records<JrnlHdrType>(image.headers)) books.headers[h.PostOrder] = h;
  for (const JrnlRowType& r : Records<JrnlRowType>(image.rows))
    books.rows[r.PostOrder].push_back(r);
  books.events = Records<EVENT_LOG_RECORD>(image.events);
  return books;
}

bool SameKey(const JournalKey1Type& a, const JournalKey1Type& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Checks that every transaction is whole: a header with the rows of its kind (invoices of
// three lines, receipts of one, their shadows of one), a shadow for every receipt from a
// vendor and a receipt for every shadow, with events on exactly one event per invoice and
// receipt and none without its transaction; that no two transactions share a number in a
// journal and period; and that the posted rows balance. Answers the number of transactions.
size_t CheckWhole(const Books& books, bool events_on) {
  std::set<std::tuple<int16_t, uint16_t, int32_t, uint8_t>> numbers;
  std::map<std::string, int> events_of;  // key bytes -> events found
  double posted = 0;
  for (const auto& [post_order, rows] : books.rows) {
    EXPECT_TRUE(books.headers.count(post_order)) << "rows without a header: " << post_order;
    for (const JrnlRowType& r : rows) posted += r.LedgerFlag ? r.Amount : 0;
  }
  for (const auto& [post_order, h] : books.headers) {
    SCOPED_TRACE("post order " + std::to_string(post_order));
    const auto found = books.rows.find(post_order);
    const size_t rows = found == books.rows.end() ? 0 : found->second.size();
    EXPECT_EQ(rows, h.Key1.JournalType == SJ ? 4u : 2u);
    EXPECT_TRUE(
        numbers.insert({h.Key1.JournalType, h.Key1.Period, h.Key1.TrxNumber, h.Key1.Shadow}).second)
        << "transaction number " << h.Key1.TrxNumber << " given twice";
    JournalKey1Type partner = h.Key1;
    uint16_t second_card = 0;
    std::memcpy(&second_card, reinterpret_cast<const uint8_t*>(&h) + kHdrSecondCardFlagOffset, 2);
    if (h.Key1.JournalType == CRJ && second_card) {
      partner.JournalType = PJ;
      partner.Shadow = 2;
    } else if (h.Key1.Shadow == 2) {
      partner.JournalType = CRJ;
      partner.Shadow = 0;
    } else {
      partner = {};
    }
    if (partner.JournalType != 0) {
      bool there = false;
      for (const auto& [other_post_order, other] : books.headers)
        there |= SameKey(other.Key1, partner);
      EXPECT_TRUE(there) << "a receipt without its shadow, or a shadow without its receipt";
    }
    events_of[std::string(reinterpret_cast<const char*>(&h.Key1), sizeof h.Key1)] = 0;
  }
  for (const EVENT_LOG_RECORD& e : books.events) {
    auto it = events_of.find(std::string(reinterpret_cast<const char*>(&e.JournalKey), 10));
    if (it == events_of.end()) {
      ADD_FAILURE() << "an event of no transaction: " << e.JournalKey.TrxNumber;
    } else {
      ++it->second;
    }
  }
  for (const auto& [key, count] : events_of) {
    const bool shadow = key[9] != 0;
    if (events_on) {
      EXPECT_EQ(count, shadow ? 0 : 1) << "events of one transaction";
    }
  }
  EXPECT_NEAR(posted, 0.0, 0.005) << "the posted rows do not balance";
  return books.headers.size();
}

// The parameter names the store: "Sqlite" (a local directory) or "Postgres" (the directory
// served from a fresh schema of the test server).
class PostingScenarioTest : public PostingTest, public ::testing::WithParamInterface<const char*> {
 protected:
  std::string Serve(const std::string& directory) override {
    return std::string(GetParam()) == "Postgres" ? rmtest::ServeFromTestServer(directory)
                                                 : std::string();
  }
  // A child process running body; every handle of this process is closed first, so the
  // child opens its own.
  std::unique_ptr<rmtest::ChildProcess> Fork(const std::function<int()>& body) {
    CloseAll();
    return std::make_unique<rmtest::ChildProcess>(body);
  }
};

// In a child: posts invoices (and receipts from a vendor, with their shadows) numbered 1,
// so that posting gives each the next free number. Answers 0 when all went in.
int Post(int worker, int invoices, bool with_receipts) {
  int busy = 0;
  SetMessageHandler([&busy](const HostMessage& m) {
    if (m.number != 20000 + kStatusFileInUse) return DefaultMessageAnswer(m.style);
    ++busy;  // another user's batch outlasted the wait: try again
    return IDRETRY;
  });
  JrnlDBFilesType files{};
  if (!OpenJournalFile(&files, kOpenModeNormal)) return 1;
  int failed = 0;
  for (int i = 0; i < invoices && failed == 0; ++i) {
    const std::string ref = "W" + std::to_string(worker) + "-" + std::to_string(i);
    Record invoice = Invoice(1, 1 + i % 5, ref.c_str(), 30 + i % 7);
    if (!InsertJournal(files, invoice.get())) failed = 2;
    if (with_receipts && failed == 0) {
      Record receipt = Receipt(1, 1 + i % 5, ("R" + ref).c_str(), 10 + i % 3, kVendor);
      if (!InsertJournal(files, receipt.get())) failed = 3;
    }
  }
  if (busy > 0) std::fprintf(stderr, "worker %d: %d busy prompts answered Retry\n", worker, busy);
  return failed;
}

TEST_P(PostingScenarioTest, EveryFailedStoreWriteLeavesTheCompanyAsItWas) {
  auto plan = std::make_shared<rm::FaultPlan>();
  CloseAll();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  OpenFiles();
  MyCompany.CashBasis = 1;

  // Fails the nth store write of op for n = 1, 2, ... until op gets through untouched: each
  // failed attempt answers 0 and leaves every file exactly as it was.
  auto every_failure = [&](const std::string& what, const std::function<int()>& op) {
    const CompanyImage before = ReadCompany();
    for (int n = 1;; ++n) {
      SCOPED_TRACE(what + ": store write " + std::to_string(n) + " fails");
      ASSERT_LT(n, 400);
      plan->Arm(n, kStatusIoError, false, false);
      const int result = op();
      const bool failed = plan->failures > 0;
      plan->Disarm();
      if (!failed) {
        ASSERT_EQ(result, 1);
        return;
      }
      ASSERT_EQ(result, 0);
      ASSERT_TRUE(ReadCompany() == before);
    }
  };
  // An invoice with a receipt tag, a receipt from a vendor with audit entries; then the
  // receipt's insert, the invoice's update (tag and events refreshed) and the receipt's delete
  // (shadow, audit entries, events) under faults. Writes fail alone (the store's transaction
  // stays open), so posting itself must undo what it wrote, the events' writes included.
  for (const bool events : {true, false}) {
    if (events) {
      EventsOn();
    } else {
      vTurnOffEventsAlarms();
    }
    const std::string phase = events ? "events on, " : "events off, ";
    Record invoice = Invoice(1, 1, events ? "FI2" : "FI1", 30);
    ASSERT_EQ(InsertJournal(files_, invoice.get()), 1);
    BtrvFile* tags = nullptr;
    ASSERT_NE(OpenRecptTagFile(&tags, kOpenModeNormal), 0);
    ASSERT_EQ(AddTagForSaleReceipt(tags, invoice->Key1, 0, {}, 0, 0.5, Day(9), 0, 0, 0, 0, 0), 1);
    RealCloseFile(&tags, __FILE__, __LINE__);

    uint32_t receipt_post_order = 0;
    every_failure(phase + "insert", [&] {
      Record receipt = Receipt(1, 1, events ? "FR2" : "FR1", 25, kVendor);
      const int ok = InsertJournal(files_, receipt.get());
      receipt_post_order = receipt->PostOrder;
      return ok;
    });
    BtrvFile* audit = nullptr;
    ASSERT_EQ(OpenAuditTrailFile(&audit, kOpenModeNormal), 1);
    for (int i = 0; i < 2; ++i) {
      uint8_t entry[265] = {};
      std::memcpy(entry + 8, &receipt_post_order, 4);
      ASSERT_EQ(InsertRecord(audit, sizeof entry, entry), 1);
    }
    RealCloseFile(&audit, __FILE__, __LINE__);

    every_failure(phase + "update", [&] {
      Record current = Load(invoice->PostOrder);
      if (current == nullptr) return 0;
      current->Key2.Date = Day(11);
      current->J.Sales.Area130.AmountPaid = 30;
      return static_cast<int>(UpdateJournal(files_, current.get(), 5, nullptr));
    });
    Record updated = Load(invoice->PostOrder);
    EXPECT_TRUE(CompareDates(updated->J.Sales.Area130.PaidInFullDate, Day(11)) == 0);
    RecptTagRec tag;
    ASSERT_EQ(GetTagRecForSaleKey(RecptTagFile, &tag, invoice->Key1, kTagFirst), 1);
    EXPECT_EQ(tag.SalePostOrder, invoice->PostOrder);

    every_failure(phase + "delete", [&] {
      Record current = Load(receipt_post_order);
      return current ? DeleteJournal(files_, current.get(), 0) : 0;
    });
    const Books books = ReadBooks();
    EXPECT_EQ(CheckWhole(books, events), events ? 1u : 2u);
    for (const auto& [position, bytes] : ReadWholeFile(AuditTrailName, 265)) {
      EXPECT_EQ(bytes.substr(8, 4), std::string(4, '\0')) << "an audit entry still attached";
    }
  }
}

TEST_P(PostingScenarioTest, ProcessesKilledWhilePostingLeaveWholeTransactions) {
  EventsOn();
  const int kills = kThreadSanitizer ? 10 : 52;
  std::mt19937 rng(20240611);
  std::uniform_int_distribution<int> pause_ms(5, 90);
  size_t transactions = 0;
  for (int k = 0; k < kills; ++k) {
    SCOPED_TRACE("kill " + std::to_string(k));
    auto poster = Fork([k] { return Post(k, 1 << 30, true); });
    std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms(rng)));
    poster->Kill();
    EXPECT_EQ(poster->Answer(), 999) << "the poster stopped by itself";
    transactions = CheckWhole(ReadBooks(), true);
    if (HasFailure()) return;
  }
  EXPECT_GT(transactions, static_cast<size_t>(kills)) << "the posters hardly posted";
}

TEST_P(PostingScenarioTest, ProcessesPostingAtOnceGetDistinctNumbers) {
  const int invoices = kThreadSanitizer ? 25 : 200;
  std::vector<std::unique_ptr<rmtest::ChildProcess>> workers;
  CloseAll();
  for (int w = 0; w < 4; ++w) {
    workers.push_back(
        std::make_unique<rmtest::ChildProcess>([w, invoices] { return Post(w, invoices, false); }));
  }
  for (auto& worker : workers) EXPECT_EQ(worker->Answer(), 0);
  const Books books = ReadBooks();
  EXPECT_EQ(CheckWhole(books, false), 4u * invoices);
  // Post orders are handed out inside each batch: 1 to 800 without a gap.
  EXPECT_EQ(books.headers.begin()->first, 1u);
  EXPECT_EQ(books.headers.rbegin()->first, 4u * invoices);
}

TEST_P(PostingScenarioTest, ProcessesEditingATransactionRefuseItToOthersUntilLetGo) {
  Record invoice = Invoice(70, 1, "E1", 30);
  ASSERT_EQ(InsertJournal(files_, invoice.get()), 1);
  const uint32_t post_order = invoice->PostOrder;
  int locked[2], let_go[2];
  ASSERT_EQ(pipe(locked), 0);
  ASSERT_EQ(pipe(let_go), 0);
  // The other user opens the invoice for editing (a locked read), then closes it unsaved.
  auto editor = Fork([&] {
    JrnlDBFilesType files{};
    Record r = NewRecord();
    r->PostOrder = post_order;
    if (!OpenJournalFile(&files, kOpenModeNormal) ||
        !GetFileEqual(files, kLockBiasSingleNoWait, r.get(), 5)) {
      return 1;
    }
    char byte = 'L';
    if (write(locked[1], &byte, 1) != 1 || read(let_go[0], &byte, 1) != 1) return 2;
    UnlockOneRecord(files.HdrFile);
    return 0;
  });
  char byte = 0;
  ASSERT_EQ(read(locked[0], &byte, 1), 1);
  OpenFiles();
  int prompts = 0;
  SetMessageHandler([&](const HostMessage& m) {
    if (m.number != 20000 + kStatusRecordInUse) return DefaultMessageAnswer(m.style);
    if (++prompts == 1) return IDCANCEL;
    EXPECT_EQ(write(let_go[1], "g", 1), 1);
    EXPECT_EQ(editor->Answer(), 0);  // it has let go
    return IDRETRY;
  });
  for (const int expected : {0, 1}) {
    SCOPED_TRACE(expected ? "Retry once let go" : "Cancel");
    Record mine = Load(post_order);
    mine->Description = "mine";
    EXPECT_EQ(UpdateJournal(files_, mine.get(), 5, nullptr), expected);
    EXPECT_EQ(prompts, expected + 1);
    EXPECT_STREQ(Load(post_order)->Description, expected ? "mine" : "");
  }
  SetMessageHandler(nullptr);
  for (int fd : {locked[0], locked[1], let_go[0], let_go[1]}) close(fd);
}

TEST_P(PostingScenarioTest, ProcessesKilledWhileEditingLetGoAtOnce) {
  Record invoice = Invoice(71, 1, "K1", 30);
  ASSERT_EQ(InsertJournal(files_, invoice.get()), 1);
  const uint32_t post_order = invoice->PostOrder;
  auto editor = Fork([post_order] {
    JrnlDBFilesType files{};
    Record r = NewRecord();
    r->PostOrder = post_order;
    return OpenJournalFile(&files, kOpenModeNormal) &&
                   GetFileEqual(files, kLockBiasSingleNoWait, r.get(), 5)
               ? 0
               : 1;
  });
  ASSERT_EQ(editor->Answer(), 0);
  OpenFiles();
  int prompts = 0;
  SetMessageHandler([&prompts](const HostMessage& m) {
    if (m.number == 20000 + kStatusRecordInUse || m.number == 20000 + kStatusFileInUse) ++prompts;
    return IDCANCEL;
  });
  Record mine = Load(post_order);
  mine->Description = "mine";
  EXPECT_EQ((Ints{UpdateJournal(files_, mine.get(), 5, nullptr), prompts}), (Ints{0, 1}));
  editor->Kill();  // SIGKILL: the editor's lock goes with its process, without a wait
  prompts = 0;
  const auto start = std::chrono::steady_clock::now();
  mine = Load(post_order);
  mine->Description = "mine";
  EXPECT_EQ((Ints{UpdateJournal(files_, mine.get(), 5, nullptr), prompts}), (Ints{1, 0}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  EXPECT_STREQ(Load(post_order)->Description, "mine");
  SetMessageHandler(nullptr);
}

TEST_P(PostingScenarioTest, ProcessesKilledInsideABatchLeaveNothingOfIt) {
  Record first = Invoice(1, 1, "B1", 30);
  ASSERT_EQ(InsertJournal(files_, first.get()), 1);
  // The other user posts two invoices inside a batch of its own and is killed before the
  // batch ends.
  auto poster = Fork([] {
    JrnlDBFilesType files{};
    if (!OpenJournalFile(&files, kOpenModeNormal) || !bBeginBatchUpdate(files.HdrFile)) return 1;
    Record a = Invoice(1, 2, "B2", 40), b = Invoice(1, 3, "B3", 50);
    return InsertJournal(files, a.get()) && InsertJournal(files, b.get()) ? 0 : 2;
  });
  ASSERT_EQ(poster->Answer(), 0);
  EXPECT_EQ(CheckWhole(ReadBooks(), false), 1u) << "a batch not yet ended is seen";
  poster->Kill();
  // Nothing of the batch is left, and the next invoice goes in at once with the next number.
  OpenFiles();
  int prompts = 0;
  SetMessageHandler([&prompts](const HostMessage& m) {
    if (m.number == 20000 + kStatusFileInUse) ++prompts;
    return IDCANCEL;
  });
  const auto start = std::chrono::steady_clock::now();
  Record next = Invoice(1, 4, "B4", 60);
  EXPECT_EQ((Ints{InsertJournal(files_, next.get()), prompts}), (Ints{1, 0}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  SetMessageHandler(nullptr);
  const Books books = ReadBooks();
  EXPECT_EQ(CheckWhole(books, false), 2u);
  EXPECT_EQ(books.headers.rbegin()->first, 2u) << "the killed batch's post orders are free again";
  for (const auto& [post_order, h] : books.headers) {
    EXPECT_TRUE(std::string(h.Reference) == "B1" || std::string(h.Reference) == "B4")
        << "left of the killed batch: " << h.Reference;
  }
}

INSTANTIATE_TEST_SUITE_P(Stores, PostingScenarioTest, ::testing::Values("Sqlite", "Postgres"),
                         [](const ::testing::TestParamInfo<const char*>& store) {
                           return std::string(store.param);
                         });

}  // namespace
