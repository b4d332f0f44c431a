// Batches (whole or nothing, across files of one directory and across processes),
// injected store faults, damaged stores, change times, deletion, diagnostics and use
// from several threads.
#include <fcntl.h>

#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "record_manager_test_support.h"
#include "rm_fault_backend.h"

namespace rmtest {
namespace {

constexpr uint16_t kHdrLen = 16;  // number (s32 unique), post order (u32 unique), 8 more
constexpr uint16_t kRowLen = 12;  // post order (u32 dup), line (s16), amount (s32)

class BatchTest : public RecordManagerTest {
 protected:
  void SetUp() override {
    RecordManagerTest::SetUp();
    SpecBuilder hdr(kHdrLen);
    hdr.Key({{1, 4, kExtInteger}}).Key({{5, 4, kExtUnsignedBinary}}, kKeyModifiable);
    SpecBuilder row(kRowLen);
    row.Key({{1, 4, kExtUnsignedBinary}}, kKeyDuplicates | kKeyModifiable);
    ASSERT_EQ(ZORCreateFile(hdr.get(), 0, Path("JRNLHDR.DAT").c_str()), 1);
    ASSERT_EQ(ZORCreateFile(row.get(), 0, Path("JRNLROW.DAT").c_str()), 1);
  }
  void OpenPair() {
    hdr_ = Open("JRNLHDR.DAT");
    row_ = Open("JRNLROW.DAT");
  }
  void ClosePair() {
    Close(row_);
    Close(hdr_);
  }
  void TearDown() override {
    if (row_ != nullptr) Close(row_);
    if (hdr_ != nullptr) Close(hdr_);
    RecordManagerTest::TearDown();
  }
  // One transaction: a header and n rows, written inside a batch on both files.
  // Answers false at the first failing call (the batch is then left open).
  bool WriteTransaction(int32_t number, int rows) {
    Rec h(kHdrLen);
    h.Put<int32_t>(0, number).Put<uint32_t>(4, static_cast<uint32_t>(number) * 10);
    if (!InsertRecord(hdr_, h.size(), h.data())) return false;
    for (int i = 0; i < rows; ++i) {
      Rec r(kRowLen);
      r.Put<uint32_t>(0, static_cast<uint32_t>(number) * 10)
          .Put<int16_t>(4, static_cast<int16_t>(i + 1))
          .Put<int32_t>(6, number * 100 + i);
      if (!InsertRecord(row_, r.size(), r.data())) return false;
    }
    return true;
  }
  // Every record of a file in physical order, with its position, as text.
  std::string Dump(BtrvFile* f, uint16_t len) {
    std::string out;
    Rec r(len);
    BtrvFile* g = nullptr;
    // A fresh handle starts the physical walk at the first record.
    EXPECT_EQ(RealOpenBFile(&g, GetName(f).c_str(), 0, 0, __FILE__, __LINE__), 1);
    while (StepDirect(g, r.size(), r.data())) {
      out += std::to_string(PhysicalPosition(g)) + ":";
      for (uint8_t b : r.b) out += std::to_string(b) + ",";
      out += ";";
    }
    EXPECT_EQ(GetErrorCode(g), kStatusEndOfFile);
    Close(g);
    return out;
  }
  std::string GetName(BtrvFile* f) { return f == hdr_ ? Path("JRNLHDR.DAT") : Path("JRNLROW.DAT"); }
  // Counts the records of a file from another process (another connection).
  int CountElsewhere(const std::string& name) {
    return RunInChild([&] {
      BtrvFile* g = nullptr;
      if (!RealOpenBFile(&g, Path(name).c_str(), kOpenModeReadOnly, 0, __FILE__, __LINE__)) {
        return 200;
      }
      int n = NumRecsInFile(g);
      RealCloseFile(&g, __FILE__, __LINE__);
      return n;
    });
  }

  BtrvFile* hdr_ = nullptr;
  BtrvFile* row_ = nullptr;
};

TEST_P(BatchTest, BatchCommitsWholeAtItsLastEnd) {
  OpenPair();
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  ASSERT_TRUE(bBeginBatchUpdate(row_));  // joins the batch of the same store
  ASSERT_TRUE(WriteTransaction(1, 3));
  // The writing process sees its own writes; others see nothing yet.
  EXPECT_EQ(NumRecsInFile(row_), 3);
  EXPECT_EQ(CountElsewhere("JRNLROW.DAT"), 0);
  ASSERT_TRUE(bEndBatchUpdate(row_));
  EXPECT_EQ(CountElsewhere("JRNLHDR.DAT"), 0);  // the outer batch is still open
  ASSERT_TRUE(bEndBatchUpdate(hdr_));
  EXPECT_EQ(CountElsewhere("JRNLHDR.DAT"), 1);
  EXPECT_EQ(CountElsewhere("JRNLROW.DAT"), 3);
  EXPECT_FALSE(bEndBatchUpdate(hdr_));
  EXPECT_EQ(GetErrorCode(hdr_), kStatusNoBatch);

  // A failed write inside a batch fails alone; the batch goes on and commits the rest.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  EXPECT_FALSE(WriteTransaction(1, 1));  // header 1 exists already
  EXPECT_EQ(GetErrorCode(hdr_), kStatusDuplicateKey);
  ASSERT_TRUE(WriteTransaction(2, 2));
  ASSERT_TRUE(bEndBatchUpdate(hdr_));
  EXPECT_EQ(CountElsewhere("JRNLHDR.DAT"), 2);
  EXPECT_EQ(CountElsewhere("JRNLROW.DAT"), 5);

  // An abandoned batch leaves nothing, and the ends still to come answer 39.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  ASSERT_TRUE(bBeginBatchUpdate(row_));
  ASSERT_TRUE(WriteTransaction(3, 4));
  EXPECT_TRUE(bAbortBatchUpdate(row_));
  EXPECT_FALSE(bEndBatchUpdate(row_));
  EXPECT_EQ(GetErrorCode(row_), kStatusNoBatch);
  EXPECT_EQ(NumRecsInFile(hdr_), 2);
  EXPECT_EQ(NumRecsInFile(row_), 5);
  EXPECT_FALSE(bAbortBatchUpdate(row_));

  // Closing the last handle of the store with a batch open abandons it too.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  ASSERT_TRUE(WriteTransaction(4, 1));
  ClosePair();
  OpenPair();
  EXPECT_EQ(NumRecsInFile(hdr_), 2);
  EXPECT_EQ(NumRecsInFile(row_), 5);
}

TEST_P(BatchTest, ProcessKilledInsideABatchLeavesNoneOfIt) {
  OpenPair();
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  ASSERT_TRUE(WriteTransaction(1, 2));
  ASSERT_TRUE(bEndBatchUpdate(hdr_));
  ClosePair();
  ChildProcess child([&] {
    OpenPair();
    if (!bBeginBatchUpdate(hdr_) || !WriteTransaction(2, 3) || !bEndBatchUpdate(hdr_)) return 1;
    // The second batch is killed before its end; many rows so that some reach the log.
    if (!bBeginBatchUpdate(hdr_) || !WriteTransaction(3, 2000)) return 2;
    return 0;
  });
  ASSERT_TRUE(child.ready());
  ASSERT_EQ(child.setup_code(), 0);
  child.Kill();
  OpenPair();
  EXPECT_EQ(NumRecsInFile(hdr_), 2);
  EXPECT_EQ(NumRecsInFile(row_), 5);
  Rec h(kHdrLen);
  h.Put<int32_t>(0, 3);
  EXPECT_FALSE(GetFileEqual(hdr_, 0, h.size(), h.data(), 0));
  // The store takes writes again at once.
  ASSERT_TRUE(WriteTransaction(3, 1));
  EXPECT_EQ(NumRecsInFile(hdr_), 3);
}

TEST_P(BatchTest, FaultInsideABatchLeavesNothingOnceAbandoned) {
  // Fail the 1st, 2nd, ... store write of a batch that writes two transactions, updates
  // a header and deletes a row, until a run meets no fault. Each failed run abandons the
  // batch and must leave both files exactly as before.
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  OpenPair();
  ASSERT_TRUE(WriteTransaction(1, 2));
  const std::string hdr_before = Dump(hdr_, kHdrLen);
  const std::string row_before = Dump(row_, kRowLen);
  bool completed = false;
  for (int nth = 1; nth < 40 && !completed; ++nth) {
    plan->Arm(nth, kStatusIoError);
    bool ok = bBeginBatchUpdate(hdr_) && bBeginBatchUpdate(row_) && WriteTransaction(2, 2) &&
              WriteTransaction(3, 1);
    Rec h(kHdrLen);
    h.Put<int32_t>(0, 1);
    ok = ok && GetFileEqual(hdr_, 0, h.size(), h.data(), 0);
    h.Put<int32_t>(8, 77);
    ok = ok && UpdateFile(hdr_, h.size(), h.data(), 0);
    Rec r(kRowLen);
    r.Put<uint32_t>(0, 10);
    ok = ok && GetFileEqual(row_, 0, r.size(), r.data(), 0) &&
         DeleteRecord(row_, r.size(), r.data());
    ok = ok && bEndBatchUpdate(row_) && bEndBatchUpdate(hdr_);
    if (!ok) {
      EXPECT_GT(plan->failures.load(), 0) << nth;
      bAbortBatchUpdate(hdr_);  // answers 39 when the commit itself failed: nothing open
      plan->Disarm();
      EXPECT_EQ(Dump(hdr_, kHdrLen), hdr_before) << "fault at store write " << nth;
      EXPECT_EQ(Dump(row_, kRowLen), row_before) << "fault at store write " << nth;
    } else {
      completed = true;
      plan->Disarm();
      EXPECT_EQ(plan->failures.load(), 0);
      EXPECT_EQ(NumRecsInFile(hdr_), 3);
      EXPECT_EQ(NumRecsInFile(row_), 4);
    }
  }
  EXPECT_TRUE(completed);
}

TEST_P(BatchTest, FaultOutsideABatchLeavesTheFileAsBefore) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  OpenPair();
  ASSERT_TRUE(WriteTransaction(1, 2));
  int64_t changed_before = 0;
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLHDR.DAT").c_str(), &changed_before));
  // Each write on its own is begin, the write, the change time, commit: fail each step.
  for (int op = 0; op < 3; ++op) {
    for (int nth = 1; nth <= 4; ++nth) {
      const std::string before = Dump(hdr_, kHdrLen);
      Rec h(kHdrLen);
      h.Put<int32_t>(0, 1);
      ASSERT_TRUE(GetFileEqual(hdr_, 0, h.size(), h.data(), 0));
      plan->Arm(nth, kStatusDiskFull);
      uint8_t ok = 0;
      if (op == 0) {
        h.Put<int32_t>(0, 9).Put<uint32_t>(4, 90);
        ok = InsertRecord(hdr_, h.size(), h.data());
      } else if (op == 1) {
        h.Put<int32_t>(8, 5);
        ok = UpdateFile(hdr_, h.size(), h.data(), 0);
      } else {
        ok = DeleteRecord(hdr_, h.size(), h.data());
      }
      plan->Disarm();
      EXPECT_FALSE(ok) << op << "/" << nth;
      EXPECT_EQ(GetErrorCode(hdr_), kStatusDiskFull) << op << "/" << nth;
      EXPECT_EQ(Dump(hdr_, kHdrLen), before) << op << "/" << nth;
      int64_t changed = 0;
      ASSERT_TRUE(ZORDataFileExists(Path("JRNLHDR.DAT").c_str(), &changed));
      EXPECT_EQ(changed, changed_before) << op << "/" << nth;
    }
  }
  // A failed creation makes nothing either.
  SpecBuilder spec(8);
  spec.Key({{1, 4, kExtInteger}});
  plan->Arm(2, kStatusIoError);
  EXPECT_EQ(ZORCreateFile(spec.get(), 0, Path("NEW.DAT").c_str()), 0);
  plan->Disarm();
  EXPECT_FALSE(ZORDataFileExists(Path("NEW.DAT").c_str(), nullptr));
}

TEST_P(BatchTest, BatchTheStoreUndidTakesNoMoreWrites) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  OpenPair();
  ASSERT_TRUE(WriteTransaction(1, 1));
  // The second row insert fails with disk full and the store undoes the whole batch, as
  // SQLite may: the rows after it must not commit one by one, and the end must fail.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  plan->Arm(3, kStatusDiskFull, false, /*undo=*/true);  // header, row, then this row
  EXPECT_FALSE(WriteTransaction(2, 3));
  EXPECT_EQ(GetErrorCode(row_), kStatusDiskFull);
  plan->Disarm();
  Rec r(kRowLen);
  r.Put<uint32_t>(0, 99);
  EXPECT_FALSE(InsertRecord(row_, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(row_), kStatusDiskFull);
  EXPECT_FALSE(bEndBatchUpdate(hdr_));
  EXPECT_EQ(GetErrorCode(hdr_), kStatusDiskFull);
  EXPECT_EQ(NumRecsInFile(hdr_), 1);
  EXPECT_EQ(NumRecsInFile(row_), 1);
  // The next batch starts clean.
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  ASSERT_TRUE(WriteTransaction(2, 3));
  ASSERT_TRUE(bEndBatchUpdate(hdr_));
  EXPECT_EQ(NumRecsInFile(row_), 4);
}

TEST_P(BatchTest, ChangeTimesFollowCommitsOnly) {
  OpenPair();
  int64_t t0 = 0;
  int64_t t1 = 0;
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLROW.DAT").c_str(), &t0));
  ASSERT_TRUE(WriteTransaction(1, 1));
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLROW.DAT").c_str(), &t1));
  EXPECT_GT(t1, t0);
  int64_t hdr_time = 0;
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLHDR.DAT").c_str(), &hdr_time));
  // Inside a batch nothing moves until its end; then both files take the commit's time.
  ASSERT_TRUE(bBeginBatchUpdate(row_));
  Rec r(kRowLen);
  r.Put<uint32_t>(0, 10);
  ASSERT_TRUE(InsertRecord(row_, r.size(), r.data()));
  int64_t t2 = 0;
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLROW.DAT").c_str(), &t2));
  EXPECT_EQ(t2, t1);
  ASSERT_TRUE(bEndBatchUpdate(row_));
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLROW.DAT").c_str(), &t2));
  EXPECT_GT(t2, t1);
  int64_t hdr_after = 0;
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLHDR.DAT").c_str(), &hdr_after));
  EXPECT_EQ(hdr_after, hdr_time);  // not written in the batch
  // Reads change nothing; another process sees the same time.
  ASSERT_TRUE(GetFileLowest(row_, 0, r.size(), r.data(), 0));
  int64_t t3 = 0;
  ASSERT_TRUE(ZORDataFileExists(Path("JRNLROW.DAT").c_str(), &t3));
  EXPECT_EQ(t3, t2);
  EXPECT_EQ(RunInChild([&] {
              int64_t seen = 0;
              return ZORDataFileExists(Path("JRNLROW.DAT").c_str(), &seen) && seen == t2 ? 0 : 1;
            }),
            0);
}

TEST_P(BatchTest, DeleteFileAndDiagnostics) {
  OpenPair();
  const uint64_t calls = StoreCallCount();
  Rec r(kRowLen);
  EXPECT_FALSE(GetFileLowest(row_, 0, r.size(), r.data(), 0));
  EXPECT_GT(StoreCallCount(), calls);
  std::vector<OpenHandleInfo> open = ListOpenHandles();
  ASSERT_EQ(open.size(), 2u);
  EXPECT_EQ(open[0].fileName, Path("JRNLHDR.DAT"));
  EXPECT_NE(open[0].srcFile.find("record_manager_test_support.h"), std::string::npos);
  EXPECT_GT(open[0].srcLine, 0);
  EXPECT_EQ(OpenHandleCount(), 2u);
  EXPECT_EQ(ZORDeleteFile(Path("JRNLROW.DAT").c_str()), kStatusFileInUse);
  ClosePair();
  EXPECT_EQ(ZORDeleteFile(Path("jrnlrow.dat").c_str()), kStatusOk);
  EXPECT_EQ(ZORDeleteFile(Path("JRNLROW.DAT").c_str()), kStatusFileNotFound);
  EXPECT_FALSE(ZORDataFileExists(Path("JRNLROW.DAT").c_str(), nullptr));
  EXPECT_TRUE(ZORDataFileExists(Path("JRNLHDR.DAT").c_str(), nullptr));
  BtrvFile* g = nullptr;
  EXPECT_EQ(RealOpenBFile(&g, Path("JRNLROW.DAT").c_str(), 0, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileNotFound);
  // Made again, it is a new, empty file.
  SpecBuilder row(kRowLen);
  row.Key({{1, 4, kExtUnsignedBinary}}, kKeyDuplicates);
  ASSERT_EQ(ZORCreateFile(row.get(), 0, Path("JRNLROW.DAT").c_str()), 1);
  g = Open("JRNLROW.DAT");
  EXPECT_EQ(NumRecsInFile(g), 0);
  Close(g);
}

TEST_P(BatchTest, DamagedStoresAnswerErrorsNotCrashes) {
  OpenPair();
  ASSERT_TRUE(bBeginBatchUpdate(hdr_));
  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(WriteTransaction(i + 1, 0));
  ASSERT_TRUE(bEndBatchUpdate(hdr_));
  ClosePair();
  const std::string db = Path("records.db");
  std::string original;
  {
    std::ifstream in(db, std::ios::binary);
    original.assign(std::istreambuf_iterator<char>(in), {});
  }
  ASSERT_GT(original.size(), 8192u);
  auto write = [&](const std::string& bytes) {
    std::ofstream out(db, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.close();
    std::remove((db + "-wal").c_str());
    std::remove((db + "-shm").c_str());
  };
  // Reads everything it can; answers true when some call reported an error.
  auto reports_error = [&]() {
    BtrvFile* g = nullptr;
    if (!RealOpenBFile(&g, Path("JRNLHDR.DAT").c_str(), 0, 0, __FILE__, __LINE__)) {
      uint16_t st = GetErrorCode(nullptr);
      return st == kStatusIoError || st == kStatusFileNotFound;
    }
    bool error = false;
    Rec r(kHdrLen);
    int n = 0;
    for (uint8_t ok = GetFileLowest(g, 0, r.size(), r.data(), 0); ok;
         ok = GetFileNext(g, 0, r.size(), r.data(), 0)) {
      ++n;
    }
    error = GetErrorCode(g) != kStatusEndOfFile || n != 2000;
    while (StepDirect(g, r.size(), r.data())) {
    }
    error = error || GetErrorCode(g) != kStatusEndOfFile;
    r.Put<int32_t>(0, 5000).Put<uint32_t>(4, 50000);
    error = error || !InsertRecord(g, r.size(), r.data());
    error = error || NumRecsInFile(g) != 2001;
    RealCloseFile(&g, __FILE__, __LINE__);
    return error;
  };
  write(std::string(original.size(), 'x'));  // garbage
  EXPECT_TRUE(reports_error());
  write(original.substr(0, 100));  // truncated inside the header
  EXPECT_TRUE(reports_error());
  write(original.substr(0, original.size() / 2));  // half the pages gone
  EXPECT_TRUE(reports_error());
  std::string flipped = original;  // flipped bytes in every page after the first
  for (size_t i = 4096 + 100; i < flipped.size(); i += 97)
    flipped[i] = static_cast<char>(~flipped[i]);
  write(flipped);
  EXPECT_TRUE(reports_error());
  write("");  // an empty file is a new, empty store: no data files
  BtrvFile* g = nullptr;
  EXPECT_EQ(RealOpenBFile(&g, Path("JRNLHDR.DAT").c_str(), 0, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileNotFound);
  write(original);
  EXPECT_FALSE(reports_error());
}

TEST_P(BatchTest, HandlesOnSeveralThreadsShareOneStoreSafely) {
  OpenPair();
  ClosePair();
  constexpr int kThreads = 4;
  constexpr int kPerThread = 40;
  std::vector<std::thread> threads;
  std::vector<int> failures(kThreads, 0);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      BtrvFile* f = nullptr;
      if (!RealOpenBFile(&f, Path("JRNLROW.DAT").c_str(), 0, 0, __FILE__, __LINE__)) {
        failures[t] = -1;
        return;
      }
      for (int i = 0; i < kPerThread; ++i) {
        Rec r(kRowLen);
        r.Put<uint32_t>(0, static_cast<uint32_t>(t)).Put<int32_t>(6, i);
        if (i % 10 == 0 && !bBeginBatchUpdate(f)) ++failures[t];
        if (!InsertRecord(f, r.size(), r.data())) ++failures[t];
        if (i % 10 == 9 && !bEndBatchUpdate(f)) ++failures[t];
        // Walk this thread's rows so far.
        Rec w(kRowLen);
        w.Put<uint32_t>(0, static_cast<uint32_t>(t));
        int seen = 0;
        for (uint8_t ok = GetFileEqual(f, 0, w.size(), w.data(), 0);
             ok && w.Get<uint32_t>(0) == static_cast<uint32_t>(t);
             ok = GetFileNext(f, 0, w.size(), w.data(), 0)) {
          ++seen;
        }
        if (seen != i + 1) ++failures[t];
      }
      RealCloseFile(&f, __FILE__, __LINE__);
    });
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
  OpenPair();
  EXPECT_EQ(NumRecsInFile(row_), kThreads * kPerThread);
}

INSTANTIATE_TEST_SUITE_P(Backends, BatchTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
