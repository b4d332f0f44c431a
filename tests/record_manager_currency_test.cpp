// Currency (Next and Previous from the current record, after deletes, across key
// paths), positioned reads, physical positions, opens, and the statuses of misuse.
#include <string>
#include <vector>

#include "record_manager_test_support.h"

namespace rmtest {
namespace {

class CurrencyTest : public MasterFileTest {
 protected:
  // The last record by the name key.
  static uint8_t GetFileLast(BtrvFile* f, Rec& r) {
    return GetFileHighest(f, 0, r.size(), r.data(), 1);
  }
};

TEST_P(CurrencyTest, NextAndPreviousGoOnFromWhereADeletedRecordStood) {
  Rec r = Make(5);
  EXPECT_EQ(Next(f_), -kStatusNoCurrency);  // nothing read yet
  EXPECT_EQ(Num(GetFileLowest(f_, 0, r.size(), r.data(), 0), f_, r), -kStatusEndOfFile);
  for (int32_t i = 1; i <= 5; ++i) Insert(f_, i * 10);
  EXPECT_EQ(Num(GetFileLess(f_, 0, r.size(), r.data(), 0), f_, r), -kStatusKeyNotFound);
  EXPECT_EQ(r.Get<int32_t>(0), 5);  // a failed read leaves the buffer as it was
  // With 30 deleted Next goes on to 40; with 20 deleted Previous goes back to 10.
  EXPECT_EQ((Ints{Equal(f_, 30), GetErrorCode(f_), Delete(f_), Next(f_), Equal(f_, 30),
                  Equal(f_, 20), Delete(f_), Prev(f_)}),
            (Ints{30, 0, 0, 40, -4, 20, 0, 10}));
  // A deleted record is not current: neither a second delete nor an update finds it.
  EXPECT_EQ((Ints{Delete(f_), Delete(f_), Update(f_, Make(10)), PhysicalPosition(f_)}),
            (Ints{0, 8, 8, 0}));
  EXPECT_EQ((Ints{Prev(f_), Next(f_), Next(f_), Next(f_)}), (Ints{-9, 40, 50, -9}));
}

TEST_P(CurrencyTest, PhysicalPositionsAreStableNeverReusedAndSetKeyPaths) {
  for (int32_t n : {3, 1, 2, 4}) Insert(f_, n, n == 3 ? "carol" : n == 2 ? "bob" : "alice");
  // Physical order is insertion order; a handle without a current record starts at the
  // first.
  Close(f_);
  f_ = Open("MASTER.DAT");
  Rec r(kMasterLen);
  Ints physical, pos;
  while (StepDirect(f_, r.size(), r.data())) {
    physical.push_back(r.Get<int32_t>(0));
    pos.push_back(PhysicalPosition(f_));
  }
  EXPECT_EQ(physical, (Ints{3, 1, 2, 4}));
  for (int32_t bad : {0, -1, pos.back() + 1000})
    EXPECT_EQ(Why(GetFileDirect(f_, 0, r.size(), r.data(), 0, bad), f_), kStatusBadPosition);
  // A direct read sets the key path given: Next then follows the names (1 then alice's
  // duplicate 4), and a change of key goes on from the current record along the new key.
  EXPECT_EQ((Ints{Num(GetFileDirect(f_, 0, r.size(), r.data(), 1, pos[1]), f_, r), Next(f_, 1),
                  Next(f_, 1), Next(f_, 0), Prev(f_, 1)}),
            (Ints{1, 4, 2, 3, 2}));
  // An update keeps the position, changed key and all; with key -1 (as a direct read with
  // -1) it sets no key path.
  ASSERT_EQ(Num(GetFileDirect(f_, 0, r.size(), r.data(), -1, pos[0]), f_, r), 3);
  EXPECT_EQ((Ints{Update(f_, Make(3, "renamed"), -1), PhysicalPosition(f_), Next(f_, 0)}),
            (Ints{0, pos[0], 4}));
  // The last record deleted, the next insert still gets a new position.
  ASSERT_EQ(Delete(f_), kStatusOk);
  Insert(f_, 9);
  EXPECT_GT(PhysicalPosition(f_), pos[3]);
  Close(f_);  // reopening keeps every position
  f_ = Open("MASTER.DAT");
  ASSERT_TRUE(GetFileDirect(f_, 0, r.size(), r.data(), 0, pos[0]));
  EXPECT_EQ(r.b, Make(3, "renamed").b);
}

TEST_P(CurrencyTest, ChangesThroughAnotherHandleAnswer80) {
  Insert(f_, 1);
  Insert(f_, 2);
  g_ = Open("MASTER.DAT");
  // g updates 1 and deletes 2 after f_ read them: f_ must read 1 again to write it.
  EXPECT_EQ((Ints{Equal(f_, 1), Equal(g_, 1), Update(g_, Make(1, "a")), Update(f_, Make(1, "b")),
                  Delete(f_), Equal(f_, 1), Update(f_, Make(1, "b"))}),
            (Ints{1, 1, 0, 80, 80, 1, 0}));
  EXPECT_EQ((Ints{Equal(f_, 2), Equal(g_, 2), Delete(g_), Update(f_, Make(2))}),
            (Ints{2, 2, 0, 80}));
}

TEST_P(CurrencyTest, StatusesOfMisuse) {
  Insert(f_, 1);
  Rec r(kMasterLen), longer(kMasterLen + 1);
  // 22: a buffer of another length than the record's; 10: a change of a key without the
  // modifiable flag, which leaves the record as it was.
  EXPECT_EQ((Ints{Why(GetFileLowest(f_, 0, kMasterLen - 1, r.data(), 0), f_),
                  Why(InsertRecord(f_, longer.size(), longer.data()), f_), Equal(f_, 1),
                  Update(f_, longer), Update(f_, Make(2)), Equal(f_, 1)}),
            (Ints{22, 22, 1, 22, 10, 1}));
  // A null handle fails every call, and closes as a no-op.
  BtrvFile* g = nullptr;
  EXPECT_EQ(
      (Ints{GetFileLowest(nullptr, 0, r.size(), r.data(), 0),
            InsertRecord(nullptr, r.size(), r.data()), NumRecsInFile(nullptr),
            RealCloseFile(nullptr, __FILE__, __LINE__), RealCloseFile(&g, __FILE__, __LINE__)}),
      (Ints{0, 0, -1, 1, 1}));
  // 12: missing files and directories, the failed open leaving the handle null; no names
  // at all; a directory without a store, which gets none by looking.
  g = reinterpret_cast<BtrvFile*>(&r);
  TempDir empty;
  EXPECT_EQ(
      (Ints{RealOpenBFile(&g, Path("NOSUCH.DAT").c_str(), 0, 0, __FILE__, __LINE__), g == nullptr,
            GetErrorCode(nullptr), OpenFails("nodir/MASTER.DAT"),
            RealOpenBFile(&g, "", 0, 0, __FILE__, __LINE__),
            RealOpenBFile(&g, nullptr, 0, 0, __FILE__, __LINE__), OpenFails(empty.File("X.DAT")),
            ZORDataFileExists(empty.File("X.DAT").c_str(), nullptr),
            access(empty.File("records.db").c_str(), F_OK)}),
      (Ints{0, true, 12, 12, 0, 0, 12, false, -1}));
  // 59: creating over an existing file, unless asked to replace it, which needs the file
  // closed everywhere (85 while f_ has it open, as for deleting it).
  SpecBuilder spec(kMasterLen);
  EXPECT_EQ((Ints{Create(spec.Key({{1, 4, kExtInteger}}).get(), "master.dat"),
                  Create(spec.get(), "MASTER.DAT", kCreateReplace),
                  ZORDeleteFile(Path("MASTER.DAT").c_str()), NumRecsInFile(f_)}),
            (Ints{59, 85, 85, 1}));
}

TEST_P(CurrencyTest, OpensByModeOwnerAndNameInAnyCaseOrSeparator) {
  Insert(f_, 1);
  SpecBuilder spec(kMasterLen);
  ASSERT_EQ(ZORCreateFileWithOwner(spec.Key({{1, 4, kExtInteger}}).get(), 0,
                                   Path("OWNED.DAT").c_str(), "Secret1"),
            1);
  // The status of opening path in mode with an owner name (none when null).
  auto open = [](const std::string& path, const char* owner = nullptr, uint16_t mode = 0) {
    BtrvFile* g = nullptr;
    const int ok = RealOpenBFileOwner(&g, path.c_str(), mode, 2, owner, __FILE__, __LINE__);
    const uint16_t status = ok ? uint16_t{kStatusOk} : GetErrorCode(nullptr);
    Close(g);
    return status;
  };
  // An owner name is asked of every open but a read-only one, and compared exactly.
  const std::string owned = Path("OWNED.DAT");
  EXPECT_EQ((Ints{open(owned, "secret1"), open(owned), open(owned, nullptr, kOpenModeExclusive),
                  open(owned, nullptr, kOpenModeReadOnly), open(owned, "Secret1")}),
            (Ints{51, 51, 51, 0, 0}));
  // A file without an owner takes any name; file names are case-insensitive, a backslash
  // separates too, and a relative name starts in the current directory.
  const std::string dir = dir_.path();
  int64_t changed = 0;
  EXPECT_TRUE(ZORDataFileExists((dir + "/MaStEr.DaT").c_str(), &changed) && changed > 0);
  EXPECT_EQ(open(dir + "\\master.dat", "any"), kStatusOk);
  ScopedChdir chdir(dir);
  EXPECT_EQ(
      (Ints{open("Master.Dat"), open("..\\" + dir.substr(dir.rfind('/') + 1) + "/MASTER.DAT")}),
      (Ints{0, 0}));
  // A read-only open reads but writes nothing.
  g_ = Open("MASTER.DAT", kOpenModeReadOnly);
  Rec r = Make(2);
  EXPECT_EQ((Ints{Equal(g_, 1), Update(g_, Make(1, "y")), Delete(g_),
                  Why(InsertRecord(g_, r.size(), r.data()), g_), NumRecsInFile(g_)}),
            (Ints{1, 46, 46, 46, 1}));
}

TEST_P(CurrencyTest, SteppingCursorNeverAnswersStaleRows) {
  // Two handles walk one key in turns while a third writes between their steps; each
  // step must see the file as it is at that moment.
  for (int32_t i = 1; i <= 20; ++i) Insert(f_, i * 10);
  BtrvFile*& a = (g_ = Open("MASTER.DAT"));  // g_ is closed after the test
  BtrvFile* b = Open("MASTER.DAT");
  EXPECT_EQ((Ints{Equal(a, 10), Equal(b, 10), Next(a), Next(a), Next(b), Next(a)}),
            (Ints{10, 10, 20, 30, 20, 40}));
  Insert(f_, 45);  // just ahead of a, and then 60 deleted just ahead of a
  EXPECT_EQ((Ints{Next(a), Equal(f_, 60), Delete(f_), Next(a), Next(a)}),
            (Ints{45, 60, 0, 50, 70}));
  // b's row changes under it between steps: the next step still starts after b's record.
  EXPECT_EQ((Ints{Equal(f_, 30), Update(f_, Make(30, "changed")), Next(b),
                  Equal(b, 30, 0, 1, "changed"), Next(b), Prev(b), Next(b)}),
            (Ints{30, 0, 30, 30, 40, 30, 40}));
  // Walking a long run of duplicates in turns.
  for (int32_t i = 300; i < 340; ++i) Insert(f_, i, "dup");
  ASSERT_EQ((Ints{Equal(a, 0, 0, 1, "dup"), Equal(b, 0, 0, 1, "dup")}), (Ints{300, 300}));
  for (int32_t i = 301; i < 340; ++i) ASSERT_EQ((Ints{Next(a, 1), Next(b, 1)}), (Ints{i, i}));
  Close(b);
}

TEST_P(CurrencyTest, WalkSeesAnotherProcessesCommitsAfterAPause) {
  for (int32_t i = 1; i <= 5; ++i) Insert(f_, i * 10);
  // The writer is forked before the walk begins (a fork lets go of the parent's reads),
  // and inserts when told, in the middle of the walk.
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  ChildProcess writer([&] {
    char c;
    BtrvFile* g = read(go[0], &c, 1) == 1 ? TryOpen("MASTER.DAT") : nullptr;
    Rec r = Make(25);
    return g && InsertRecord(g, r.size(), r.data()) ? 0 : 1;
  });
  EXPECT_EQ((Ints{Equal(f_, 10), Next(f_)}), (Ints{10, 20}));  // a stepping cursor is open
  ASSERT_EQ(write(go[1], "g", 1), 1);
  ASSERT_EQ(writer.Answer(), 0);
  for (int fd : go) close(fd);
  // Another handle's look-up while the walk rests reads in the walk's snapshot; once the
  // walk has rested a while, look-ups and the walk itself read the file as it is now.
  g_ = Open("MASTER.DAT");
  // (On the server a walk's pages are its own and a look-up always reads what is committed.)
  if (!OnServer()) {
    EXPECT_EQ(Equal(g_, 25), -kStatusKeyNotFound);
  }
  usleep(150 * 1000);
  EXPECT_EQ((Ints{Equal(g_, 25), Next(f_), Next(f_)}), (Ints{25, 25, 30}));
}

TEST_P(CurrencyTest, WalksGoOnAcrossLookUpsOfOtherHandles) {
  // Two walks by a duplicate key, one up and one down, with a look-up on a third handle
  // between every two steps: each walk meets every record once, in key order.
  for (int32_t i = 1; i <= 150; ++i) Insert(f_, i, i % 3 == 0 ? "fizz" : "plain");
  BtrvFile*& up = (g_ = Open("MASTER.DAT"));
  BtrvFile* down = Open("MASTER.DAT");
  Rec u = Make(0, "fizz"), d = Make(0, "plain");
  Ints ups, downs;
  uint8_t more_up = GetFileEqual(up, 0, u.size(), u.data(), 1);
  uint8_t more_down = GetFileLast(down, d);
  while (more_up || more_down) {
    if (more_up) ups.push_back(u.Get<int32_t>(0));
    if (more_down) downs.push_back(d.Get<int32_t>(0));
    ASSERT_EQ(Equal(f_, 7), 7);
    if (more_up) more_up = GetFileNext(up, 0, u.size(), u.data(), 1);
    if (more_down) more_down = GetFilePrevious(down, 0, d.size(), d.data(), 1);
  }
  EXPECT_EQ((Ints{GetErrorCode(up), GetErrorCode(down)}), (Ints{9, 9}));
  Ints want_up, want_down;  // "fizz" sorts before "plain"; duplicates in insertion order
  for (int32_t i = 3; i <= 150; i += 3) want_up.push_back(i);
  for (int32_t i = 1; i <= 150; ++i) want_up.push_back(i % 3 == 0 ? 0 : i);
  std::erase(want_up, 0);
  for (int32_t i = 150; i >= 1; --i) want_down.push_back(i % 3 == 0 ? 0 : i);
  for (int32_t i = 150; i >= 3; i -= 3) want_down.push_back(i);
  std::erase(want_down, 0);
  EXPECT_EQ(ups, want_up);
  EXPECT_EQ(downs, want_down);
  Close(down);
}

INSTANTIATE_TEST_SUITE_P(Backends, CurrencyTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
