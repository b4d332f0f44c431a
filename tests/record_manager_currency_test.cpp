// Currency (Next and Previous from the current record, after deletes, across key
// paths), positioned reads, physical positions, and the statuses of misuse.
#include <string>
#include <vector>

#include "record_manager_test_support.h"

namespace rmtest {
namespace {

// A small master file: number (s32, unique), name (string 12, duplicates, modifiable),
// amount (s32); 20 bytes.
constexpr uint16_t kLen = 20;

class CurrencyTest : public RecordManagerTest {
 protected:
  void SetUp() override {
    RecordManagerTest::SetUp();
    SpecBuilder spec(kLen);
    spec.Key({{1, 4, kExtInteger}}).Key({{5, 12, kExtString}}, kKeyDuplicates | kKeyModifiable);
    f_ = CreateAndOpen(spec.get(), "MASTER.DAT");
    ASSERT_NE(f_, nullptr);
  }
  void TearDown() override {
    Close(f_);
    RecordManagerTest::TearDown();
  }
  Rec Make(int32_t number, const char* name, int32_t amount = 0) {
    Rec r(kLen);
    r.Put<int32_t>(0, number).Text(4, name, 12).Put<int32_t>(16, amount);
    return r;
  }
  void Insert(BtrvFile* f, int32_t number, const char* name, int32_t amount = 0) {
    Rec r = Make(number, name, amount);
    ASSERT_TRUE(InsertRecord(f, r.size(), r.data())) << GetErrorCode(f);
  }
  // Number of the record a read left in r, or -1 when it failed.
  static int32_t Num(uint8_t ok, const Rec& r) { return ok ? r.Get<int32_t>(0) : -1; }
  int32_t Equal(BtrvFile* f, int32_t number, uint16_t lock = 0) {
    Rec r = Make(number, "");
    return Num(GetFileEqual(f, lock, r.size(), r.data(), 0), r);
  }
  int32_t Next(BtrvFile* f, int16_t key = 0) {
    Rec r(kLen);
    return Num(GetFileNext(f, 0, r.size(), r.data(), key), r);
  }
  int32_t Prev(BtrvFile* f, int16_t key = 0) {
    Rec r(kLen);
    return Num(GetFilePrevious(f, 0, r.size(), r.data(), key), r);
  }

  BtrvFile* f_ = nullptr;
};

TEST_P(CurrencyTest, NextAndPreviousGoOnFromWhereADeletedRecordStood) {
  Rec r(kLen);
  EXPECT_EQ(Next(f_), -1);  // nothing read yet
  EXPECT_EQ(GetErrorCode(f_), kStatusNoCurrency);
  EXPECT_FALSE(GetFileLowest(f_, 0, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusEndOfFile);
  for (int32_t i = 1; i <= 5; ++i) Insert(f_, i * 10, "x");
  // A failed read leaves the buffer as it was.
  r = Make(5, "");
  EXPECT_FALSE(GetFileLess(f_, 0, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusKeyNotFound);
  EXPECT_EQ(r.Get<int32_t>(0), 5);
  EXPECT_EQ(Equal(f_, 30), 30);
  EXPECT_EQ(GetErrorCode(f_), kStatusOk);
  ASSERT_TRUE(DeleteRecord(f_, r.size(), r.data()));
  EXPECT_EQ(Next(f_), 40);
  EXPECT_EQ(Equal(f_, 30), -1);
  EXPECT_EQ(GetErrorCode(f_), kStatusKeyNotFound);
  EXPECT_EQ(Equal(f_, 20), 20);
  ASSERT_TRUE(DeleteRecord(f_, r.size(), r.data()));
  EXPECT_EQ(Prev(f_), 10);
  // A deleted record is not current: neither a second delete nor an update finds it.
  ASSERT_TRUE(DeleteRecord(f_, r.size(), r.data()));
  EXPECT_FALSE(DeleteRecord(f_, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(f_), kStatusNoCurrency);
  EXPECT_FALSE(UpdateFile(f_, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusNoCurrency);
  EXPECT_EQ(PhysicalPosition(f_), 0);
  EXPECT_EQ(Prev(f_), -1);
  EXPECT_EQ(GetErrorCode(f_), kStatusEndOfFile);
  EXPECT_EQ(Next(f_), 40);
  EXPECT_EQ(Next(f_), 50);
  EXPECT_EQ(Next(f_), -1);
  EXPECT_EQ(GetErrorCode(f_), kStatusEndOfFile);
}

TEST_P(CurrencyTest, KeyPathsDirectReadsAndPhysicalOrder) {
  Insert(f_, 3, "carol");
  Insert(f_, 1, "alice");
  Insert(f_, 2, "bob");
  Insert(f_, 4, "alice");
  // Physical order is insertion order, whatever the keys say; a handle without a
  // current record starts at the first.
  Close(f_);
  f_ = Open("MASTER.DAT");
  Rec r(kLen);
  std::vector<int32_t> physical;
  std::vector<int32_t> positions;
  while (StepDirect(f_, r.size(), r.data())) {
    physical.push_back(r.Get<int32_t>(0));
    positions.push_back(PhysicalPosition(f_));
  }
  EXPECT_EQ(physical, (std::vector<int32_t>{3, 1, 2, 4}));
  EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end()));
  EXPECT_GT(positions.front(), 0);
  // A direct read sets the key path given: Next then follows the names.
  ASSERT_TRUE(GetFileDirect(f_, 0, r.size(), r.data(), 1, positions[1]));
  EXPECT_EQ(r.Get<int32_t>(0), 1);
  EXPECT_EQ(Next(f_, 1), 4);  // alice's duplicate
  EXPECT_EQ(Next(f_, 1), 2);
  // Changing the key on Next goes on from the current record along the new key.
  EXPECT_EQ(Next(f_, 0), 3);
  EXPECT_EQ(Prev(f_, 1), 2);
  for (int32_t bad : {0, -1, positions.back() + 1000}) {
    EXPECT_FALSE(GetFileDirect(f_, 0, r.size(), r.data(), 0, bad));
    EXPECT_EQ(GetErrorCode(f_), kStatusBadPosition);
  }
  // A direct read with key -1 sets no key path; Update with -1 keeps none either.
  ASSERT_TRUE(GetFileDirect(f_, 0, r.size(), r.data(), -1, positions[0]));
  EXPECT_EQ(r.Get<int32_t>(0), 3);
  r.Put<int32_t>(16, 77);
  ASSERT_TRUE(UpdateFile(f_, r.size(), r.data(), -1));
  EXPECT_EQ(PhysicalPosition(f_), positions[0]);
  EXPECT_EQ(Next(f_, 0), 4);
}

TEST_P(CurrencyTest, PositionsAreStableAndNeverReused) {
  for (int32_t i = 1; i <= 4; ++i) Insert(f_, i, "p");
  ASSERT_EQ(Equal(f_, 2), 2);
  const int32_t pos2 = PhysicalPosition(f_);
  Rec r = Make(2, "renamed", 5);
  ASSERT_TRUE(UpdateFile(f_, r.size(), r.data(), 0));
  EXPECT_EQ(PhysicalPosition(f_), pos2);
  ASSERT_TRUE(GetFileDirect(f_, 0, r.size(), r.data(), 0, pos2));
  EXPECT_EQ(r.TextAt(4, 12), "renamed");
  // Delete the last record and insert again: the new record gets a new position.
  ASSERT_TRUE(GetFileHighest(f_, 0, r.size(), r.data(), 0));
  const int32_t last = PhysicalPosition(f_);
  ASSERT_TRUE(DeleteRecord(f_, r.size(), r.data()));
  Insert(f_, 9, "q");
  EXPECT_GT(PhysicalPosition(f_), last);
  // Reopening the file keeps every position.
  Close(f_);
  f_ = Open("MASTER.DAT");
  ASSERT_TRUE(GetFileDirect(f_, 0, r.size(), r.data(), 0, pos2));
  EXPECT_EQ(r.Get<int32_t>(0), 2);
}

TEST_P(CurrencyTest, ChangesThroughAnotherHandleAnswer80) {
  Insert(f_, 1, "one");
  Insert(f_, 2, "two");
  BtrvFile* g = Open("MASTER.DAT");
  ASSERT_EQ(Equal(f_, 1), 1);
  ASSERT_EQ(Equal(g, 1), 1);
  Rec r = Make(1, "one", 100);
  ASSERT_TRUE(UpdateFile(g, r.size(), r.data(), 0));
  r = Make(1, "one", 200);
  EXPECT_FALSE(UpdateFile(f_, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusConflict);
  EXPECT_FALSE(DeleteRecord(f_, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(f_), kStatusConflict);
  // Reading again makes the update go through.
  ASSERT_EQ(Equal(f_, 1), 1);
  ASSERT_TRUE(UpdateFile(f_, r.size(), r.data(), 0));
  // A record deleted through another handle.
  ASSERT_EQ(Equal(f_, 2), 2);
  ASSERT_EQ(Equal(g, 2), 2);
  ASSERT_TRUE(DeleteRecord(g, r.size(), r.data()));
  r = Make(2, "two", 1);
  EXPECT_FALSE(UpdateFile(f_, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusConflict);
  Close(g);
  ASSERT_EQ(Equal(f_, 1), 1);
}

TEST_P(CurrencyTest, StatusesOfMisuse) {
  Insert(f_, 1, "one");
  Rec r(kLen);
  Rec longer(kLen + 1);
  // 22: a buffer length other than the record length.
  EXPECT_FALSE(GetFileLowest(f_, 0, kLen - 1, r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusBadLength);
  EXPECT_FALSE(InsertRecord(f_, longer.size(), longer.data()));
  EXPECT_EQ(GetErrorCode(f_), kStatusBadLength);
  ASSERT_TRUE(GetFileLowest(f_, 0, r.size(), r.data(), 0));
  EXPECT_FALSE(UpdateFile(f_, longer.size(), longer.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusBadLength);
  // 10: a key without the modifiable flag may not change in an update.
  r.Put<int32_t>(0, 2);
  EXPECT_FALSE(UpdateFile(f_, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(f_), kStatusKeyNotModifiable);
  EXPECT_EQ(Equal(f_, 1), 1);
  // 3: a null handle; GetErrorCode(nullptr) answers the last failed open of this thread.
  EXPECT_FALSE(GetFileLowest(nullptr, 0, r.size(), r.data(), 0));
  EXPECT_FALSE(InsertRecord(nullptr, r.size(), r.data()));
  EXPECT_EQ(NumRecsInFile(nullptr), -1);
  EXPECT_EQ(RealCloseFile(nullptr, __FILE__, __LINE__), 1);
  BtrvFile* none = nullptr;
  EXPECT_EQ(RealCloseFile(&none, __FILE__, __LINE__), 1);
  // 12: missing files and directories; the failed open leaves the handle null.
  BtrvFile* g = reinterpret_cast<BtrvFile*>(&r);
  EXPECT_EQ(RealOpenBFile(&g, Path("NOSUCH.DAT").c_str(), 0, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(g, nullptr);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileNotFound);
  EXPECT_EQ(RealOpenBFile(&g, Path("nodir/MASTER.DAT").c_str(), 0, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileNotFound);
  EXPECT_EQ(RealOpenBFile(&g, "", 0, 0, __FILE__, __LINE__), 0);
  EXPECT_EQ(RealOpenBFile(&g, nullptr, 0, 0, __FILE__, __LINE__), 0);
  {
    TempDir empty;  // a directory without a store: nothing is made by looking
    EXPECT_EQ(RealOpenBFile(&g, empty.File("X.DAT").c_str(), 0, 0, __FILE__, __LINE__), 0);
    EXPECT_EQ(GetErrorCode(nullptr), kStatusFileNotFound);
    EXPECT_FALSE(ZORDataFileExists(empty.File("X.DAT").c_str(), nullptr));
    EXPECT_NE(access(empty.File("records.db").c_str(), F_OK), 0);
  }
  // 59: creating over an existing file, unless asked to replace it (which needs the file
  // to be closed everywhere: 85 while this test has it open).
  SpecBuilder spec(kLen);
  spec.Key({{1, 4, kExtInteger}});
  EXPECT_EQ(ZORCreateFile(spec.get(), 0, Path("master.dat").c_str()), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileExists);
  EXPECT_EQ(ZORCreateFile(spec.get(), kCreateReplace, Path("MASTER.DAT").c_str()), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusFileInUse);
  EXPECT_EQ(ZORDeleteFile(Path("MASTER.DAT").c_str()), kStatusFileInUse);
  EXPECT_EQ(NumRecsInFile(f_), 1);
}

TEST_P(CurrencyTest, ReadOnlyOpensAndOwnerNames) {
  Insert(f_, 1, "one");
  BtrvFile* ro = Open("MASTER.DAT", kOpenModeReadOnly);
  Rec r(kLen);
  ASSERT_TRUE(GetFileLowest(ro, 0, r.size(), r.data(), 0));
  EXPECT_FALSE(UpdateFile(ro, r.size(), r.data(), 0));
  EXPECT_EQ(GetErrorCode(ro), kStatusReadOnly);
  EXPECT_FALSE(DeleteRecord(ro, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(ro), kStatusReadOnly);
  r.Put<int32_t>(0, 2);
  EXPECT_FALSE(InsertRecord(ro, r.size(), r.data()));
  EXPECT_EQ(GetErrorCode(ro), kStatusReadOnly);
  EXPECT_EQ(NumRecsInFile(ro), 1);
  Close(ro);

  SpecBuilder spec(kLen);
  spec.Key({{1, 4, kExtInteger}});
  const std::string name = Path("OWNED.DAT");
  ASSERT_EQ(ZORCreateFileWithOwner(spec.get(), 0, name.c_str(), "Secret1"), 1);
  BtrvFile* g = nullptr;
  EXPECT_EQ(RealOpenBFileOwner(&g, name.c_str(), 0, 2, "secret1", __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusBadOwner);
  EXPECT_EQ(RealOpenBFile(&g, name.c_str(), 0, 2, __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusBadOwner);
  EXPECT_EQ(RealOpenBFile(&g, name.c_str(), kOpenModeExclusive, 2, __FILE__, __LINE__), 0);
  EXPECT_EQ(GetErrorCode(nullptr), kStatusBadOwner);
  ASSERT_EQ(RealOpenBFile(&g, name.c_str(), kOpenModeReadOnly, 2, __FILE__, __LINE__), 1);
  Close(g);
  ASSERT_EQ(RealOpenBFileOwner(&g, name.c_str(), 0, 2, "Secret1", __FILE__, __LINE__), 1);
  Close(g);
  // A file without an owner opens whatever name is given.
  ASSERT_EQ(RealOpenBFileOwner(&g, Path("master.DAT").c_str(), 0, 2, "any", __FILE__, __LINE__), 1);
  Close(g);
}

TEST_P(CurrencyTest, NamesResolveCaseInsensitivelyWithEitherSeparator) {
  Insert(f_, 1, "one");
  const std::string dir = dir_.path();
  const std::string sub = dir.substr(dir.rfind('/') + 1);
  BtrvFile* g = nullptr;
  ASSERT_EQ(RealOpenBFile(&g, (dir + "\\master.dat").c_str(), 0, 0, __FILE__, __LINE__), 1);
  EXPECT_EQ(NumRecsInFile(g), 1);
  Close(g);
  {
    ScopedChdir chdir(dir);
    ASSERT_EQ(RealOpenBFile(&g, "Master.Dat", 0, 0, __FILE__, __LINE__), 1);
    Close(g);
    ASSERT_EQ(RealOpenBFile(&g, ("..\\" + sub + "/MASTER.DAT").c_str(), 0, 0, __FILE__, __LINE__),
              1);
    Close(g);
  }
  int64_t changed = 0;
  EXPECT_TRUE(ZORDataFileExists((dir + "/MaStEr.DaT").c_str(), &changed));
  EXPECT_GT(changed, 0);
}

TEST_P(CurrencyTest, SteppingCursorNeverAnswersStaleRows) {
  // Two handles walk one key in turns while a third writes between their steps; each
  // step must see the file as it is at that moment.
  for (int32_t i = 1; i <= 20; ++i) Insert(f_, i * 10, "w");
  BtrvFile* a = Open("MASTER.DAT");
  BtrvFile* b = Open("MASTER.DAT");
  Rec r(kLen);
  ASSERT_TRUE(GetFileLowest(a, 0, r.size(), r.data(), 0));
  ASSERT_TRUE(GetFileLowest(b, 0, r.size(), r.data(), 0));
  EXPECT_EQ(Next(a), 20);
  EXPECT_EQ(Next(a), 30);
  EXPECT_EQ(Next(b), 20);
  EXPECT_EQ(Next(a), 40);
  Insert(f_, 45, "new");  // just ahead of a
  EXPECT_EQ(Next(a), 45);
  ASSERT_EQ(Equal(f_, 60), 60);  // just ahead of a, removed
  ASSERT_TRUE(DeleteRecord(f_, r.size(), r.data()));
  EXPECT_EQ(Next(a), 50);
  EXPECT_EQ(Next(a), 70);
  // b's row changes under it between steps: the next step still starts after b's record.
  ASSERT_EQ(Equal(f_, 30), 30);
  r = Make(30, "changed", 1);
  ASSERT_TRUE(UpdateFile(f_, r.size(), r.data(), 0));
  EXPECT_EQ(Next(b), 30);
  ASSERT_TRUE(GetFileEqual(b, 0, r.size(), r.data(), 0));
  EXPECT_EQ(r.TextAt(4, 12), "changed");
  EXPECT_EQ(Next(b), 40);
  EXPECT_EQ(Prev(b), 30);
  EXPECT_EQ(Next(b), 40);
  // Walking a long run of duplicates in turns.
  for (int32_t i = 300; i < 340; ++i) Insert(f_, i, "dup");
  Rec d = Make(0, "dup");
  ASSERT_TRUE(GetFileEqual(a, 0, d.size(), d.data(), 1));
  ASSERT_TRUE(GetFileEqual(b, 0, d.size(), d.data(), 1));
  for (int32_t i = 301; i < 340; ++i) {
    ASSERT_EQ(Next(a, 1), i);
    ASSERT_EQ(Next(b, 1), i);
  }
  Close(a);
  Close(b);
}

TEST_P(CurrencyTest, WalkSeesAnotherProcessesCommitsAfterAPause) {
  for (int32_t i = 1; i <= 5; ++i) Insert(f_, i * 10, "v");
  // The writer is started first (a fork lets go of the parent's reads), then told to
  // insert while this process is in the middle of a walk.
  int go[2];
  int done[2];
  ASSERT_EQ(pipe(go), 0);
  ASSERT_EQ(pipe(done), 0);
  fflush(nullptr);
  pid_t writer = fork();
  if (writer == 0) {
    char c;
    if (read(go[0], &c, 1) != 1) _exit(1);
    BtrvFile* g = nullptr;
    if (!RealOpenBFile(&g, Path("MASTER.DAT").c_str(), 0, 0, __FILE__, __LINE__)) _exit(2);
    Rec r = Make(25, "other");
    c = InsertRecord(g, r.size(), r.data()) ? 0 : 3;
    RealCloseFile(&g, __FILE__, __LINE__);
    _exit(write(done[1], &c, 1) == 1 ? 0 : 4);
  }
  Rec r(kLen);
  ASSERT_TRUE(GetFileLowest(f_, 0, r.size(), r.data(), 0));
  EXPECT_EQ(Next(f_), 20);  // a stepping cursor is open now
  char c = 0;
  ASSERT_EQ(write(go[1], &c, 1), 1);
  ASSERT_EQ(read(done[0], &c, 1), 1);
  EXPECT_EQ(c, 0);
  int status = 0;
  waitpid(writer, &status, 0);
  for (int fd : {go[0], go[1], done[0], done[1]}) close(fd);
  // A walk resumed after a pause reads the file as it is now, not as it was when the
  // walk began.
  usleep(150 * 1000);
  EXPECT_EQ(Next(f_), 25);
  EXPECT_EQ(Next(f_), 30);
}

INSTANTIATE_TEST_SUITE_P(Backends, CurrencyTest, ::testing::ValuesIn(AllBackends()), BackendName);

}  // namespace
}  // namespace rmtest
