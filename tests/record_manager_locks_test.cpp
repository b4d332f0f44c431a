// Record locks (84) and file locks (85) between handles of one process and between
// processes, the record manager's Retry prompt, and locks dropped by a killed process.
#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <string>

#include "record_manager_test_support.h"
#include "scripted_messages.h"

namespace rmtest {
namespace {

constexpr uint16_t kLock = kLockBiasSingleNoWait;

class LockTest : public MasterFileTest {
 protected:
  void SetUp() override {
    MasterFileTest::SetUp();
    for (int32_t i = 1; f_ != nullptr && i <= 3; ++i) Insert(f_, i);
  }
  // Reads record n through f with lock bias lock; answers the status.
  static uint16_t Read(BtrvFile* f, int32_t n, uint16_t lock = kLock) {
    return Equal(f, n, lock) == n ? uint16_t{kStatusOk} : GetErrorCode(f);
  }
  // In a child: opens the file and reads record n; answers the status (100 + the open's).
  int ChildRead(int32_t n, uint16_t lock = kLock) {
    return RunInChild([&] {
      BtrvFile* g = TryOpen("MASTER.DAT");
      return g == nullptr ? 100 + GetErrorCode(nullptr) : Read(g, n, lock);
    });
  }
};

TEST_P(LockTest, RecordLockHoldsAgainstOtherHandlesUntilReleased) {
  BtrvFile*& g = (g_ = Open("MASTER.DAT"));  // g_ is closed after the test
  // f_ locks 2 (twice: its own lock again); g may read it plainly but not lock, update or
  // delete it, and may lock another record.
  EXPECT_EQ((Ints{Read(f_, 2), Read(f_, 2), Read(g, 2), Read(g, 2, kLockBiasNone),
                  Update(g, Make(2)), Delete(g), Read(g, 1)}),
            (Ints{0, 0, 84, 0, 84, 84, 0}));
  // The lock goes with the holder's next locked read of another record (g takes 2, then
  // lets go of it taking 1), with UnlockOneRecord, with the holder's update ...
  EXPECT_EQ((Ints{Read(f_, 3), Read(g, 2), Read(g, 1), Read(f_, 1), UnlockOneRecord(g), Read(f_, 1),
                  Update(f_, Make(1)), Read(g, 1)}),
            (Ints{0, 0, 0, 84, 1, 0, 0, 0}));
  // ... with its delete (f_'s current record is g's now) and with closing the handle.
  EXPECT_EQ((Ints{Delete(f_), Delete(g), Read(f_, 3), Read(g, 3)}), (Ints{84, 0, 0, 84}));
  Close(f_);
  EXPECT_EQ(Read(g, 3), kStatusOk);
}

TEST_P(LockTest, PromptRetriesUntilTheHolderLetsGo) {
  ASSERT_EQ(Read(f_, 2), kStatusOk);
  g_ = Open("MASTER.DAT");
  int shown = 0;  // the holder lets go at the second prompt, so the third try succeeds
  SetMessageHandler([&](const HostMessage& m) {
    if (++shown == 2) UnlockOneRecord(f_);
    const bool retry_prompt = m.number == 20084 &&
                              m.style == (MB_RETRYCANCEL | MB_ICONEXCLAMATION) &&
                              m.text.find("MASTER.DAT") != std::string::npos;
    return retry_prompt ? IDRETRY : IDCANCEL;
  });
  Rec r = Make(2);
  EXPECT_EQ((Ints{GetFileEqual(g_, kLock, r.size(), r.data(), 0), shown}), (Ints{1, 2}));
  SetMessageHandler(nullptr);
}

TEST_P(LockTest, OtherProcessesLocksAndBatchesHoldUntilTheyDie) {
  EXPECT_EQ((Ints{Read(f_, 2), ChildRead(2), ChildRead(1), ChildRead(2, kLockBiasNone),
                  UnlockOneRecord(f_), ChildRead(2)}),
            (Ints{0, 84, 0, 0, 1, 0}));
  // A handle inherited through fork belongs to the parent: the child must open its own.
  EXPECT_EQ(RunInChild([&] { return Read(f_, 1, kLockBiasNone); }), kStatusNotOpen);
  // Closing the child's copy lets go of nothing of the parent's (nor, on a server, touches
  // the parent's connection).
  EXPECT_EQ((Ints{Read(f_, 1), RunInChild([&] {
                    BtrvFile* copy = f_;
                    Close(copy);
                    return 0;
                  }),
                  ChildRead(1), Read(f_, 1, kLockBiasNone), UnlockOneRecord(f_)}),
            (Ints{0, 0, 84, 0, 1}));
  // A child holding a lock on 3, killed, leaves no lock behind.
  ChildProcess holder([&] {
    BtrvFile* g = TryOpen("MASTER.DAT");
    return g == nullptr ? 100 : Read(g, 3);
  });
  ASSERT_EQ(holder.Answer(), kStatusOk);
  EXPECT_EQ((Ints{Read(f_, 3), Read(f_, 3, kLockBiasNone), Update(f_, Make(3))}),
            (Ints{84, 0, 84}));
  holder.Kill();
  EXPECT_EQ((Ints{Read(f_, 3), Update(f_, Make(3))}), (Ints{0, 0}));
  // A child's open batch keeps writers waiting, till 85, but neither readers, who do not
  // see it, nor anyone once the child is killed.
  SetBatchWaitMilliseconds(50);
  ChildProcess batch([&] {
    BtrvFile* g = TryOpen("MASTER.DAT");
    Rec r = Make(50);
    return g && bBeginBatchUpdate(g) && InsertRecord(g, r.size(), r.data()) ? 0 : 1;
  });
  ASSERT_EQ(batch.Answer(), 0);
  Rec r = Make(60);
  f_->NoLockMessageOnNextCall();
  EXPECT_EQ(Why(InsertRecord(f_, r.size(), r.data()), f_), kStatusFileInUse);
  f_->NoLockMessageOnNextCall();
  EXPECT_EQ((Ints{Why(bBeginBatchUpdate(f_), f_), NumRecsInFile(f_)}), (Ints{85, 3}));
  batch.Kill();
  EXPECT_EQ((Ints{InsertRecord(f_, r.size(), r.data()), NumRecsInFile(f_)}), (Ints{1, 4}));
}

TEST_P(LockTest, ExclusiveOpenAnswers85BothWaysInAllProcesses) {
  ScriptedMessages messages;                                                 // answers Cancel
  EXPECT_EQ(OpenFails("MASTER.DAT", kOpenModeExclusive), kStatusFileInUse);  // f_ has it
  EXPECT_EQ(messages.Numbers(), (std::vector<int>{20085}));
  Close(f_);
  BtrvFile* x = Open("MASTER.DAT", kOpenModeExclusive);
  // While it is held, every other open fails, in this process or another, and so does
  // deleting the file; the exclusive handle itself reads and writes as usual.
  EXPECT_EQ((Ints{OpenFails("MASTER.DAT"), OpenFails("MASTER.DAT", kOpenModeReadOnly),
                  OpenFails("MASTER.DAT", kOpenModeExclusive), ChildRead(1) - 100,
                  ZORDeleteFile(Path("MASTER.DAT").c_str()), Read(x, 1), Update(x, Make(1))}),
            (Ints{85, 85, 85, 85, 85, 0, 0}));
  // Retry on the prompt opens once the holder has closed.
  SetMessageHandler([&](const HostMessage& m) {
    EXPECT_EQ(m.number, 20085);
    Close(x);
    return IDRETRY;
  });
  f_ = Open("MASTER.DAT");
  EXPECT_EQ(x, nullptr);
  SetMessageHandler(nullptr);
}

TEST_P(LockTest, NoLockMessageHoldsForTheNextCallOnly) {
  ScriptedMessages messages;  // answers Cancel
  ASSERT_EQ(Read(f_, 2), kStatusOk);
  BtrvFile*& g = (g_ = Open("MASTER.DAT"));
  // Each of these calls, though it never prompts, takes the suppression up: the locked
  // read after it prompts again.
  const std::function<int()> calls[] = {
      [&] { return NumRecsInFile(g); },     [&] { return UnlockOneRecord(g); },
      [&] { return PhysicalPosition(g); },  [&] { return bEndBatchUpdate(g); },
      [&] { return bAbortBatchUpdate(g); },
  };
  for (const auto& call : calls) {
    messages.Clear();
    g->NoLockMessageOnNextCall();
    call();
    Rec r = Make(2);
    EXPECT_EQ((Ints{Why(GetFileEqual(g, kLock, r.size(), r.data(), 0), g),
                    static_cast<int32_t>(messages.Numbers().size())}),
              (Ints{84, 1}));
  }
}

TEST_P(LockTest, WritersOfSeveralProcessesTakeTurns) {
  // A process commits one-insert batches back to back; this one begins 20 batches, each
  // allowed to wait 2 s. Every one gets its turn.
  auto* shared = static_cast<std::atomic<int>*>(
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(shared, MAP_FAILED);
  std::atomic<int>& stop = shared[0];
  std::atomic<int>& committed = shared[1];
  ChildProcess busy([&] {
    BtrvFile* g = TryOpen("MASTER.DAT");
    for (int32_t n = 1000; g != nullptr && stop.load() == 0; ++n) {
      Rec r = Make(n);
      g->NoLockMessageOnNextCall();
      if (bBeginBatchUpdate(g) && InsertRecord(g, r.size(), r.data()) && bEndBatchUpdate(g)) {
        ++committed;
      }
    }
    return 0;
  });
  while (committed.load() < 20) usleep(1000);
  SetBatchWaitMilliseconds(2000);
  int got_in = 0;
  for (int32_t n = 100; n < 120; ++n) {
    Rec r = Make(n);
    f_->NoLockMessageOnNextCall();
    got_in += bBeginBatchUpdate(f_) && InsertRecord(f_, r.size(), r.data()) && bEndBatchUpdate(f_);
  }
  const int theirs = committed.load();
  stop = 1;
  EXPECT_EQ(busy.Answer(), 0);
  EXPECT_EQ(got_in, 20);
  EXPECT_GT(committed.load(), theirs);  // the other writer was not kept out either
  munmap(shared, 4096);
}

TEST_P(LockTest, WriterStalledInItsCommitKeepsOtherProcessesBusyNotDamaged) {
  // The stall is one of the embedded store's shared-memory index; the server has none.
  if (OnServer()) return;
  ScriptedMessages messages;  // the prompts answer Cancel, here and in the children
  // A child begins a batch, writes, and stops in the middle of its commit: it holds the
  // store's write lock and has written one copy of the log index's header but not the
  // other. Readers must wait for it, and after the wait answer 85, not 2; once it is gone
  // the store is whole and the batch it never finished left nothing.
  ChildProcess stalled([&] {
    BtrvFile* g = TryOpen("MASTER.DAT");
    Rec r = Make(50);
    if (g == nullptr || !bBeginBatchUpdate(g) || !InsertRecord(g, r.size(), r.data())) return 1;
    const int shm = open(Path("records.db-shm").c_str(), O_RDWR);
    uint8_t change = 0;
    if (shm < 0 || pread(shm, &change, 1, 8) != 1) return 2;
    ++change;  // the first copy's change counter, as a header half-written
    return pwrite(shm, &change, 1, 8) == 1 ? 0 : 3;
  });
  ASSERT_EQ(stalled.Answer(), 0);
  SetBatchWaitMilliseconds(300);
  const auto start = std::chrono::steady_clock::now();
  Rec r = Make(60);
  f_->NoLockMessageOnNextCall();
  const uint16_t insert = Why(InsertRecord(f_, r.size(), r.data()), f_);
  f_->NoLockMessageOnNextCall();
  const uint16_t begin = Why(bBeginBatchUpdate(f_), f_);
  EXPECT_EQ((Ints{Read(f_, 1, kLockBiasNone), insert, begin, ChildRead(1, kLockBiasNone) - 100}),
            (Ints{85, 85, 85, 85}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  stalled.Kill();
  EXPECT_EQ((Ints{Read(f_, 1, kLockBiasNone), NumRecsInFile(f_), Equal(f_, 50),
                  InsertRecord(f_, r.size(), r.data()), ChildRead(60, kLockBiasNone)}),
            (Ints{0, 3, -4, 1, 0}));
}

INSTANTIATE_TEST_SUITE_P(Backends, LockTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
