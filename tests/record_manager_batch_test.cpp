// Batches (whole or nothing, across files of a directory and across processes), change
// times, injected store faults, damaged stores, deletion and use from several threads.
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "record_manager_test_support.h"
#include "rm_fault_backend.h"

namespace rmtest {
namespace {

constexpr uint16_t kHdrLen = 16;  // number (s32 unique), post order (u32 unique), 8 more
constexpr uint16_t kRowLen = 12;  // post order (u32 dup), line (s16), amount (s32)

// The journal's header and row files, open as hdr_ and row_, on a store whose calls fail
// as plan_ says (none until armed).
class BatchTest : public RecordManagerTest {
 protected:
  void SetUp() override {
    RecordManagerTest::SetUp();
    if (HasFatalFailure()) return;
    rm::SetBackendDecorator([plan = plan_](std::unique_ptr<rm::Backend> inner) {
      return rm::WrapWithFaults(std::move(inner), plan);
    });
    hdr_spec_.Key({{1, 4, kExtInteger}}).Key({{5, 4, kExtUnsignedBinary}}, kKeyModifiable);
    row_spec_.Key({{1, 4, kExtUnsignedBinary}}, kKeyDuplicates | kKeyModifiable);
    ASSERT_EQ(Create(hdr_spec_.get(), "JRNLHDR.DAT"), kStatusOk);
    ASSERT_EQ(Create(row_spec_.get(), "JRNLROW.DAT"), kStatusOk);
    OpenPair();
  }
  void OpenPair() {
    hdr_ = Open("JRNLHDR.DAT");
    row_ = Open("JRNLROW.DAT");
  }
  void ClosePair() {
    Close(row_);
    Close(hdr_);
  }
  // Headers * 100 + rows, as this process sees them, or as a process of its own does.
  int Counts() { return NumRecsInFile(hdr_) * 100 + NumRecsInFile(row_); }
  int CountsElsewhere() {
    return RunInChild([&] {
      hdr_ = TryOpen("JRNLHDR.DAT", kOpenModeReadOnly);
      row_ = TryOpen("JRNLROW.DAT", kOpenModeReadOnly);
      return hdr_ && row_ ? Counts() : 255;
    });
  }
  // One transaction: a header and n rows. Answers false at the first failing call (a
  // batch is then left open).
  bool WriteTransaction(int32_t number, int rows) {
    const uint32_t post = static_cast<uint32_t>(number) * 10;
    Rec h(kHdrLen);
    if (!InsertRecord(hdr_, h.size(), h.Put(0, number).Put(4, post).data())) return false;
    for (int i = 0; i < rows; ++i) {
      Rec r(kRowLen);
      r.Put(0, post).Put(4, static_cast<int16_t>(i + 1)).Put(6, number * 100 + i);
      if (!InsertRecord(row_, r.size(), r.data())) return false;
    }
    return true;
  }
  // Both files' records in physical order with their positions, and the status that
  // ended each walk, read through fresh handles.
  std::string Dump() {
    std::string out;
    for (auto [name, len] :
         {std::pair{"JRNLHDR.DAT", kHdrLen}, std::pair{"JRNLROW.DAT", kRowLen}}) {
      BtrvFile* g = Open(name);
      Rec r(len);
      while (StepDirect(g, r.size(), r.data()))
        out += std::to_string(PhysicalPosition(g)) + ":" + std::string(r.b.begin(), r.b.end());
      out += std::to_string(GetErrorCode(g)) + "|";
      Close(g);
    }
    return out;
  }
  // The time of the file's last committed change (-1 when there is no such file).
  int64_t Changed(const char* name) const {
    int64_t t = -1;
    return ZORDataFileExists(Path(name).c_str(), &t) ? t : -1;
  }

  std::shared_ptr<rm::FaultPlan> plan_ = std::make_shared<rm::FaultPlan>();
  SpecBuilder hdr_spec_{kHdrLen}, row_spec_{kRowLen};
  BtrvFile*& hdr_ = f_;
  BtrvFile*& row_ = g_;
};

TEST_P(BatchTest, BatchCommitsWholeAtItsLastEndForAllProcesses) {
  const int64_t t0 = Changed("JRNLROW.DAT");
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && bBeginBatchUpdate(row_));  // one batch of the store
  ASSERT_TRUE(WriteTransaction(1, 3));
  // This process sees its writes at once; others, and the change time, at the outer end,
  // the same time for every process.
  EXPECT_EQ((Ints{Counts(), CountsElsewhere(), bEndBatchUpdate(row_), CountsElsewhere(),
                  Changed("JRNLROW.DAT") == t0, bEndBatchUpdate(hdr_), CountsElsewhere(),
                  Changed("JRNLROW.DAT") > t0}),
            (Ints{103, 0, 1, 0, true, 1, 103, true}));
  const int64_t t1 = Changed("JRNLROW.DAT");
  EXPECT_EQ(RunInChild([&] { return Changed("JRNLROW.DAT") == t1 ? 0 : 1; }), 0);
  // A failed write inside a batch fails alone; the batch goes on and commits the rest.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  EXPECT_EQ(Why(WriteTransaction(1, 1), hdr_), kStatusDuplicateKey);  // header 1 exists
  ASSERT_TRUE(WriteTransaction(2, 2) && bEndBatchUpdate(hdr_));
  EXPECT_EQ(CountsElsewhere(), 205);
  // Abandoning the outermost batch leaves nothing, not even a change time, whatever the
  // batches inside it did; then there is nothing left to end.
  const int64_t t2 = Changed("JRNLROW.DAT");
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && WriteTransaction(3, 4) && bBeginBatchUpdate(row_) &&
              WriteTransaction(5, 1) && bEndBatchUpdate(row_));
  EXPECT_EQ((Ints{bAbortBatchUpdate(hdr_), Why(bEndBatchUpdate(row_), row_),
                  Why(bAbortBatchUpdate(row_), row_), Counts(), Changed("JRNLROW.DAT") == t2}),
            (Ints{1, 39, 39, 205, true}));
  // Closing the last handle of the store with a batch open abandons it too.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && WriteTransaction(4, 1));
  ClosePair();
  OpenPair();
  EXPECT_EQ(Counts(), 205);
}

TEST_P(BatchTest, ProcessesKilledInsideABatchLeaveNoneOfIt) {
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && WriteTransaction(1, 2) && bEndBatchUpdate(hdr_));
  ClosePair();
  ChildProcess child([&] {
    OpenPair();
    if (!bBeginBatchUpdate(hdr_) || !WriteTransaction(2, 3) || !bEndBatchUpdate(hdr_)) return 1;
    // The second batch is killed before its end; many rows so that some reach the log.
    return bBeginBatchUpdate(hdr_) && WriteTransaction(3, 2000) ? 0 : 2;
  });
  ASSERT_EQ(child.Answer(), 0);
  child.Kill();
  OpenPair();
  EXPECT_EQ(Counts(), 205);
  ASSERT_TRUE(WriteTransaction(3, 1));  // the store takes writes again at once
  EXPECT_EQ(Counts(), 306);
}

TEST_P(BatchTest, FaultInsideABatchLeavesNothingOnceAbandoned) {
  // Fail the 1st, 2nd, ... store write of a batch that writes two transactions, updates
  // a header and deletes a row, until a run meets no fault. Each failed run abandons the
  // batch and must leave both files exactly as before.
  ASSERT_TRUE(WriteTransaction(1, 2));
  const std::string before = Dump();
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 40);
    plan_->Arm(nth, kStatusIoError);
    Rec h(kHdrLen), r(kRowLen);
    const bool ok =
        bBeginBatchUpdate(hdr_) && bBeginBatchUpdate(row_) && WriteTransaction(2, 2) &&
        WriteTransaction(3, 1) && GetFileEqual(hdr_, 0, h.size(), h.Put(0, 1).data(), 0) &&
        UpdateFile(hdr_, h.size(), h.Put(8, 77).data(), 0) &&
        GetFileEqual(row_, 0, r.size(), r.Put(0, 10u).data(), 0) &&
        DeleteRecord(row_, 0, nullptr) && bEndBatchUpdate(row_) && bEndBatchUpdate(hdr_);
    plan_->Disarm();
    if (ok) break;
    EXPECT_GT(plan_->failures.load(), 0) << nth;
    while (bAbortBatchUpdate(hdr_)) {  // every level still open; 39 once none is
    }
    EXPECT_EQ(Dump(), before) << "fault at store write " << nth;
  }
  EXPECT_EQ((Ints{plan_->failures.load(), Counts()}), (Ints{0, 304}));
  // A row insert fails with disk full and the store undoes the whole batch by itself, as
  // SQLite may: the rows after it must not commit one by one, and the end must fail.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  plan_->Arm(3, kStatusDiskFull, false, /*undo=*/true);  // header, row, then this row
  EXPECT_EQ(Why(WriteTransaction(4, 3), row_), kStatusDiskFull);
  plan_->Disarm();
  Rec r(kRowLen);
  EXPECT_EQ((Ints{Why(InsertRecord(row_, r.size(), r.data()), row_),
                  Why(bEndBatchUpdate(hdr_), hdr_), Counts()}),
            (Ints{18, 18, 304}));
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && WriteTransaction(4, 3) && bEndBatchUpdate(hdr_));
  EXPECT_EQ(Counts(), 407);  // the next batch starts clean
}

TEST_P(BatchTest, InnerBatchAbandonedAloneAtEveryFaultForAllProcesses) {
  // A host's batch writes transaction 1; inside it, an operation writes transaction 2 in a
  // batch of its own (header, rows, an update of header 1) and abandons it when a store
  // call fails; the host's batch goes on with transaction 3 and commits. Fail the 1st,
  // 2nd, ... call of the inner batch until one meets no fault: whatever failed, the
  // files hold 1 and 3 and nothing of 2.
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 40);
    ASSERT_TRUE(bBeginBatchUpdate(hdr_) && WriteTransaction(1, 2));
    plan_->Arm(nth, kStatusIoError);
    Rec h(kHdrLen);
    const bool inner = bBeginBatchUpdate(row_);
    const bool body = inner && WriteTransaction(2, 3) &&
                      GetFileEqual(hdr_, 0, h.size(), h.Put(0, 1).data(), 0) &&
                      UpdateFile(hdr_, h.size(), h.Put(8, 77).data(), 0);
    const bool ok = body && bEndBatchUpdate(row_);  // a failed end undoes its batch itself
    plan_->Disarm();
    if (inner && !body) {
      ASSERT_TRUE(bAbortBatchUpdate(row_)) << nth;
    }
    ASSERT_TRUE(WriteTransaction(3, 1) && bEndBatchUpdate(hdr_)) << nth;
    if (ok) {
      EXPECT_EQ(Counts(), 306);
      break;
    }
    SCOPED_TRACE(nth);
    EXPECT_EQ((Ints{Counts(), CountsElsewhere(),
                    GetFileEqual(hdr_, 0, h.size(), h.Put(0, 1).data(), 0), h.Get<int32_t>(8)}),
              (Ints{203, 203, 1, 0}));
    // Back to empty for the next run, outside any batch.
    for (BtrvFile* g : {row_, hdr_}) {
      Rec any(g == hdr_ ? kHdrLen : kRowLen);
      while (GetFileLowest(g, 0, any.size(), any.data(), 0))
        ASSERT_TRUE(DeleteRecord(g, 0, nullptr));
    }
  }
  // Nested several deep: abandoning the middle one undoes it and the one inside it only.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && WriteTransaction(4, 1) && bBeginBatchUpdate(hdr_) &&
              WriteTransaction(5, 1) && bBeginBatchUpdate(hdr_) && WriteTransaction(6, 1) &&
              bEndBatchUpdate(hdr_) && bAbortBatchUpdate(hdr_) && WriteTransaction(7, 1) &&
              bEndBatchUpdate(hdr_));
  EXPECT_EQ(Counts(), 508);
  // Batches begun back to back start at the same place and share one mark: abandoning the
  // inner one undoes its writes and leaves the outer one its mark; abandoning the outer one
  // after the inner one ended undoes both.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && bBeginBatchUpdate(row_) && bBeginBatchUpdate(hdr_) &&
              WriteTransaction(8, 1) && bAbortBatchUpdate(hdr_) && WriteTransaction(9, 1) &&
              bEndBatchUpdate(row_) && bBeginBatchUpdate(row_) && bBeginBatchUpdate(hdr_) &&
              WriteTransaction(10, 1) && bEndBatchUpdate(hdr_) && bAbortBatchUpdate(row_) &&
              bEndBatchUpdate(hdr_));
  EXPECT_EQ((Ints{Counts(), CountsElsewhere() == Counts() % 256}), (Ints{609, true}));
  // A file made inside an inner batch goes with it when it is abandoned, and so do the
  // records it wrote before and after.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_) && bBeginBatchUpdate(row_) && WriteTransaction(11, 1));
  ASSERT_EQ(Create(row_spec_.get(), "EXTRA.DAT"), kStatusOk);
  ASSERT_TRUE(WriteTransaction(12, 1) && bAbortBatchUpdate(row_) && WriteTransaction(13, 0) &&
              bEndBatchUpdate(hdr_));
  EXPECT_EQ((Ints{Counts(), Changed("EXTRA.DAT") == -1}), (Ints{709, true}));
}

TEST_P(BatchTest, FaultOutsideABatchLeavesTheFileAsBefore) {
  ASSERT_TRUE(WriteTransaction(1, 2));
  const int64_t hdr_time = Changed("JRNLHDR.DAT"), row_time = Changed("JRNLROW.DAT");
  const std::string before = Dump();  // reads, which change no time
  // Each write on its own is begin, the write, the change time, commit: fail each step.
  for (int op = 0; op < 3; ++op) {
    for (int nth = 1; nth <= 4; ++nth) {
      Rec h(kHdrLen);
      ASSERT_TRUE(GetFileEqual(hdr_, 0, h.size(), h.Put(0, 1).data(), 0));
      plan_->Arm(nth, kStatusDiskFull);
      const uint8_t ok = op == 0   ? InsertRecord(hdr_, h.size(), h.Put(0, 9).Put(4, 90u).data())
                         : op == 1 ? UpdateFile(hdr_, h.size(), h.Put(8, 5).data(), 0)
                                   : DeleteRecord(hdr_, 0, nullptr);
      plan_->Disarm();
      EXPECT_EQ((Ints{Why(ok, hdr_), Dump() == before, Changed("JRNLHDR.DAT") == hdr_time}),
                (Ints{18, true, true}))
          << op << "/" << nth;
    }
  }
  plan_->Arm(2, kStatusIoError);  // a failed creation makes nothing either
  EXPECT_NE(Create(row_spec_.get(), "NEW.DAT"), kStatusOk);
  plan_->Disarm();
  EXPECT_EQ(Changed("NEW.DAT"), -1);
  // Once a write goes through, the file's change time moves, and only that file's.
  ASSERT_TRUE(WriteTransaction(9, 0));
  EXPECT_EQ((Ints{Changed("JRNLHDR.DAT") > hdr_time, Changed("JRNLROW.DAT") == row_time}),
            (Ints{true, true}));
}

TEST_P(BatchTest, DeletedFileIsGoneUntilMadeAgainEmpty) {
  ASSERT_TRUE(WriteTransaction(1, 2));
  ClosePair();  // (deleting an open file answers 85, as replacing it does)
  EXPECT_EQ(
      (Ints{ZORDeleteFile(Path("jrnlrow.dat").c_str()), ZORDeleteFile(Path("JRNLROW.DAT").c_str()),
            Changed("JRNLROW.DAT") == -1, Changed("JRNLHDR.DAT") > 0, OpenFails("JRNLROW.DAT")}),
      (Ints{0, 12, true, true, 12}));
  ASSERT_EQ(Create(row_spec_.get(), "JRNLROW.DAT"), kStatusOk);
  OpenPair();
  EXPECT_EQ(Counts(), 100);
}

TEST_P(BatchTest, DamagedStoresAnswerErrorsNotCrashes) {
  // The damage is done to the embedded store's file; a served company has none here.
  if (OnServer()) return;
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  for (int i = 1; i <= 2000; ++i) ASSERT_TRUE(WriteTransaction(i, 0));
  ASSERT_TRUE(bEndBatchUpdate(hdr_));
  ClosePair();
  const std::string db = Path("records.db");
  std::ifstream in(db, std::ios::binary);
  const std::string original{std::istreambuf_iterator<char>(in), {}};
  ASSERT_GT(original.size(), 8192u);
  // Puts bytes in place of the store, walks the header file by key and physically, and
  // inserts a record: answers whether some call reported an error (an open 2 or 12 only).
  auto reports_error = [&](const std::string& bytes) {
    std::ofstream(db, std::ios::binary | std::ios::trunc) << bytes;
    std::remove((db + "-wal").c_str());
    std::remove((db + "-shm").c_str());
    BtrvFile* g = TryOpen("JRNLHDR.DAT");
    if (g == nullptr) return GetErrorCode(nullptr) == 2 || GetErrorCode(nullptr) == 12;
    Rec r(kHdrLen);
    int n = 0;
    while ((n ? GetFileNext : GetFileLowest)(g, 0, r.size(), r.data(), 0)) ++n;
    bool error = GetErrorCode(g) != kStatusEndOfFile || n != 2000;
    while (StepDirect(g, r.size(), r.data())) ++n;
    error = error || GetErrorCode(g) != kStatusEndOfFile ||
            !InsertRecord(g, r.size(), r.Put(0, 5000).Put(4, 50000u).data()) ||
            NumRecsInFile(g) != 2001;
    Close(g);
    return error;
  };
  std::string flipped = original;  // flipped bytes in every page after the first
  for (size_t i = 4096 + 100; i < flipped.size(); i += 97) flipped[i] = ~flipped[i];
  // Garbage, truncated inside the header, half the pages gone, flipped bytes.
  for (const std::string& bytes : {std::string(original.size(), 'x'), original.substr(0, 100),
                                   original.substr(0, original.size() / 2), flipped}) {
    EXPECT_TRUE(reports_error(bytes)) << bytes.size();
  }
  EXPECT_TRUE(reports_error(""));  // an empty file is a new, empty store: no data files
  EXPECT_EQ(OpenFails("JRNLHDR.DAT"), kStatusFileNotFound);
  EXPECT_FALSE(reports_error(original));
}

TEST_P(BatchTest, HandlesOnSeveralThreadsShareOneStoreSafely) {
  // Each thread writes rows of its own in batches of ten through a handle of its own, and
  // after each write counts its rows so far by key.
  constexpr int kThreads = 4, kRows = 40;
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const uint32_t mine = static_cast<uint32_t>(t);
      BtrvFile* f = TryOpen("JRNLROW.DAT");
      Rec r(kRowLen), w(kRowLen);
      for (int i = 0, seen = 0; f != nullptr && i < kRows; ++i, seen = 0) {
        failures[t] += i % 10 == 0 && !bBeginBatchUpdate(f);
        failures[t] += !InsertRecord(f, r.size(), r.Put(0, mine).Put(6, i).data());
        failures[t] += i % 10 == 9 && !bEndBatchUpdate(f);
        w.Put(0, mine);
        while ((seen ? GetFileNext : GetFileEqual)(f, 0, w.size(), w.data(), 0) &&
               w.Get<uint32_t>(0) == mine) {
          ++seen;
        }
        failures[t] += seen != i + 1;
      }
      Close(f);
    });
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
  EXPECT_EQ(NumRecsInFile(row_), kThreads * kRows);
}

INSTANTIATE_TEST_SUITE_P(Backends, BatchTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
