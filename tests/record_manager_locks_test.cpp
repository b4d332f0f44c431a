// Record locks (84) and file locks (85) between handles of one process and between
// processes, the record manager's Retry/Cancel prompt, and locks dropped by a killed
// process.
#include <string>

#include "record_manager_test_support.h"
#include "scripted_messages.h"

namespace rmtest {
namespace {

constexpr uint16_t kLen = 12;

class LockTest : public RecordManagerTest {
 protected:
  void SetUp() override {
    RecordManagerTest::SetUp();
    SpecBuilder spec(kLen);
    spec.Key({{1, 4, kExtInteger}}).Key({{5, 4, kExtInteger}}, kKeyDuplicates | kKeyModifiable);
    f_ = CreateAndOpen(spec.get(), "LOCKS.DAT");
    ASSERT_NE(f_, nullptr);
    for (int32_t i = 1; i <= 3; ++i) {
      Rec r(kLen);
      r.Put<int32_t>(0, i);
      ASSERT_TRUE(InsertRecord(f_, r.size(), r.data()));
    }
  }
  void TearDown() override {
    Close(f_);
    RecordManagerTest::TearDown();
  }
  // Reads record number n through f (lock bias lock); answers the status.
  static uint16_t Read(BtrvFile* f, int32_t n, uint16_t lock, bool quiet = true) {
    Rec r(kLen);
    r.Put<int32_t>(0, n);
    if (quiet) f->NoLockMessageOnNextCall();
    GetFileEqual(f, lock, r.size(), r.data(), 0);
    return GetErrorCode(f);
  }
  static uint16_t Update(BtrvFile* f, int32_t value) {
    Rec r(kLen);
    EXPECT_EQ(GetFileDirect(f, 0, r.size(), r.data(), 0, PhysicalPosition(f)), 1);
    r.Put<int32_t>(4, value);
    f->NoLockMessageOnNextCall();
    UpdateFile(f, r.size(), r.data(), 0);
    return GetErrorCode(f);
  }
  // In a child: opens the file, reads record n with lock bias lock, answers the status.
  int ChildRead(int32_t n, uint16_t lock) {
    return RunInChild([&] {
      BtrvFile* g = nullptr;
      if (!RealOpenBFile(&g, Path("LOCKS.DAT").c_str(), 0, 0, __FILE__, __LINE__)) {
        return 100 + GetErrorCode(nullptr);
      }
      int status = Read(g, n, lock);
      RealCloseFile(&g, __FILE__, __LINE__);
      return status;
    });
  }

  BtrvFile* f_ = nullptr;
};

TEST_P(LockTest, RecordLockHoldsAgainstOtherHandlesUntilReleased) {
  BtrvFile* g = Open("LOCKS.DAT");
  ASSERT_EQ(Read(f_, 2, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(Read(f_, 2, kLockBiasSingleNoWait), kStatusOk);  // its own lock again
  EXPECT_EQ(Read(g, 2, kLockBiasSingleNoWait), kStatusRecordInUse);
  EXPECT_EQ(Read(g, 2, kLockBiasNone), kStatusOk);  // plain reads are not stopped
  EXPECT_EQ(Update(g, 5), kStatusRecordInUse);
  Rec r(kLen);
  g->NoLockMessageOnNextCall();
  EXPECT_FALSE(DeleteRecord(g, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(g), kStatusRecordInUse);
  EXPECT_EQ(Read(g, 1, kLockBiasSingleNoWait), kStatusOk);  // another record is free

  // Released by the holder's next locked read of another record...
  ASSERT_EQ(Read(f_, 3, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(Read(g, 2, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(Read(g, 1, kLockBiasSingleNoWait), kStatusOk);  // g let go of 2 taking 1
  // ... by UnlockOneRecord ...
  EXPECT_EQ(Read(f_, 1, kLockBiasSingleNoWait), kStatusRecordInUse);
  EXPECT_TRUE(UnlockOneRecord(g));
  EXPECT_EQ(Read(f_, 1, kLockBiasSingleNoWait), kStatusOk);
  // ... by the holder's update ...
  EXPECT_EQ(Update(f_, 7), kStatusOk);
  EXPECT_EQ(Read(g, 1, kLockBiasSingleNoWait), kStatusOk);
  // ... by its delete ...
  f_->NoLockMessageOnNextCall();
  EXPECT_FALSE(DeleteRecord(f_, r.size(), r.data()));  // f_'s current record is g's now
  EXPECT_EQ(GetErrorCode(f_), kStatusRecordInUse);
  ASSERT_TRUE(DeleteRecord(g, r.size(), r.data()));
  EXPECT_EQ(Read(f_, 3, kLockBiasSingleNoWait), kStatusOk);
  // ... and by closing the handle.
  EXPECT_EQ(Read(g, 3, kLockBiasSingleNoWait), kStatusRecordInUse);
  Close(f_);
  EXPECT_EQ(Read(g, 3, kLockBiasSingleNoWait), kStatusOk);
  f_ = Open("LOCKS.DAT");
  Close(g);
}

TEST_P(LockTest, PromptOffersRetryAndCanBeSuppressed) {
  ScriptedMessages messages;
  BtrvFile* g = Open("LOCKS.DAT");
  ASSERT_EQ(Read(f_, 2, kLockBiasSingleNoWait), kStatusOk);
  // Cancel: the read fails with 84 after one prompt naming the file.
  messages.Answer(IDCANCEL);
  EXPECT_EQ(Read(g, 2, kLockBiasSingleNoWait, /*quiet=*/false), kStatusRecordInUse);
  ASSERT_EQ(messages.Numbers(), (std::vector<int>{20084}));
  EXPECT_NE(messages.Last().text.find("LOCKS.DAT"), std::string::npos);
  // Retry twice; the holder lets go in between, so the third try succeeds.
  messages.Clear();
  messages.Answer(IDRETRY);
  messages.Answer(IDRETRY);
  int shown = 0;
  SetMessageHandler([&](const HostMessage& m) {
    if (++shown == 2) UnlockOneRecord(f_);
    EXPECT_EQ(m.number, 20084);
    EXPECT_EQ(m.style, MB_RETRYCANCEL | MB_ICONEXCLAMATION);
    return IDRETRY;
  });
  EXPECT_EQ(Read(g, 2, kLockBiasSingleNoWait, /*quiet=*/false), kStatusOk);
  EXPECT_EQ(shown, 2);
  SetMessageHandler(nullptr);
  // Suppressed for one call only.
  ScriptedMessages quiet;
  ASSERT_EQ(Read(f_, 3, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(Read(g, 3, kLockBiasSingleNoWait, /*quiet=*/true), kStatusRecordInUse);
  EXPECT_TRUE(quiet.shown().empty());
  quiet.Answer(IDCANCEL);
  EXPECT_EQ(Read(g, 3, kLockBiasSingleNoWait, /*quiet=*/false), kStatusRecordInUse);
  EXPECT_EQ(quiet.shown().size(), 1u);
  Close(g);
}

TEST_P(LockTest, RecordLocksHoldBetweenProcessesAndDieWithTheHolder) {
  ASSERT_EQ(Read(f_, 2, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(ChildRead(2, kLockBiasSingleNoWait), kStatusRecordInUse);
  EXPECT_EQ(ChildRead(1, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(ChildRead(2, kLockBiasNone), kStatusOk);
  ASSERT_TRUE(UnlockOneRecord(f_));
  EXPECT_EQ(ChildRead(2, kLockBiasSingleNoWait), kStatusOk);
  // A handle inherited through fork belongs to the parent: the child must open its own.
  EXPECT_EQ(RunInChild([&] {
              Rec r(kLen);
              return GetFileLowest(f_, 0, r.size(), r.data(), 0) ? 0 : GetErrorCode(f_);
            }),
            kStatusNotOpen);

  // A child that holds a lock and is killed leaves no lock behind.
  ChildProcess holder([&] {
    BtrvFile* g = nullptr;
    if (!RealOpenBFile(&g, Path("LOCKS.DAT").c_str(), 0, 0, __FILE__, __LINE__)) return 1;
    return static_cast<int>(Read(g, 3, kLockBiasSingleNoWait));
  });
  ASSERT_TRUE(holder.ready());
  ASSERT_EQ(holder.setup_code(), kStatusOk);
  EXPECT_EQ(Read(f_, 3, kLockBiasSingleNoWait), kStatusRecordInUse);
  ASSERT_EQ(Read(f_, 3, kLockBiasNone), kStatusOk);
  EXPECT_EQ(Update(f_, 9), kStatusRecordInUse);
  holder.Kill();
  EXPECT_EQ(Read(f_, 3, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(Update(f_, 9), kStatusOk);
}

TEST_P(LockTest, ExclusiveOpenAnswers85BothWays) {
  ScriptedMessages messages;
  messages.SetDefaultAnswer(IDCANCEL);
  BtrvFile* x = nullptr;
  // f_ is open: no exclusive open, in this process or another.
  EXPECT_EQ(RealOpenBFile(&x, Path("LOCKS.DAT").c_str(), kOpenModeExclusive, 0, __FILE__, __LINE__),
            0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileInUse);
  EXPECT_EQ(messages.Numbers(), (std::vector<int>{20085}));
  Close(f_);
  ASSERT_EQ(RealOpenBFile(&x, Path("LOCKS.DAT").c_str(), kOpenModeExclusive, 0, __FILE__, __LINE__),
            1);
  // While it is held, every other open fails: normal, read-only, another exclusive, and
  // in another process; deleting or replacing the file too.
  for (uint16_t mode : {kOpenModeNormal, kOpenModeReadOnly, kOpenModeExclusive}) {
    BtrvFile* y = nullptr;
    EXPECT_EQ(RealOpenBFile(&y, Path("LOCKS.DAT").c_str(), mode, 0, __FILE__, __LINE__), 0);
    EXPECT_EQ(GetErrorCode(nullptr), kStatusFileInUse);
    EXPECT_EQ(y, nullptr);
  }
  EXPECT_EQ(ChildRead(1, 0), 100 + kStatusFileInUse);
  EXPECT_EQ(ZORDeleteFile(Path("LOCKS.DAT").c_str()), kStatusFileInUse);
  // The exclusive handle itself reads and writes as usual.
  EXPECT_EQ(Read(x, 1, kLockBiasSingleNoWait), kStatusOk);
  EXPECT_EQ(Update(x, 4), kStatusOk);
  // Retry on the prompt opens once the holder has closed.
  messages.Clear();
  SetMessageHandler([&](const HostMessage& m) {
    EXPECT_EQ(m.number, 20085);
    Close(x);
    return IDRETRY;
  });
  ASSERT_EQ(RealOpenBFile(&f_, Path("LOCKS.DAT").c_str(), 0, 0, __FILE__, __LINE__), 1)
      << GetErrorCode(nullptr);
  EXPECT_EQ(x, nullptr);
  SetMessageHandler(nullptr);
}

TEST_P(LockTest, WriterKeptWaitingByAnotherProcessesBatchAnswers85) {
  SetBatchWaitMilliseconds(50);
  ChildProcess batch([&] {
    BtrvFile* g = nullptr;
    if (!RealOpenBFile(&g, Path("LOCKS.DAT").c_str(), 0, 0, __FILE__, __LINE__)) return 1;
    if (!bBeginBatchUpdate(g)) return 2;
    Rec r(kLen);
    r.Put<int32_t>(0, 50);
    return InsertRecord(g, r.size(), r.data()) ? 0 : 3;
  });
  ASSERT_TRUE(batch.ready());
  ASSERT_EQ(batch.setup_code(), 0);
  Rec r(kLen);
  r.Put<int32_t>(0, 60);
  f_->NoLockMessageOnNextCall();
  EXPECT_FALSE(InsertRecord(f_, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(f_), kStatusFileInUse);
  f_->NoLockMessageOnNextCall();
  EXPECT_FALSE(bBeginBatchUpdate(f_));
  EXPECT_EQ(GetErrorCode(f_), kStatusFileInUse);
  // Readers are not kept waiting, and do not see the open batch.
  EXPECT_EQ(NumRecsInFile(f_), 3);
  batch.Kill();
  EXPECT_TRUE(InsertRecord(f_, r.size(), r.data()));
  EXPECT_EQ(NumRecsInFile(f_), 4);
}

INSTANTIATE_TEST_SUITE_P(Backends, LockTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
