// The general file and its settings cache: default records, reads served from memory,
// another process's writes and locks, the write handle, the accessors, the printed flags
// and the assertion reporter.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CHART.h"
#include "General.h"
#include "OpenDat.h"
#include "company_test.h"
#include "record_manager.h"
#include "utility.h"

namespace {

time_t g_now = 1000000;
using Ints = std::vector<int>;

class GeneralTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    SetClock([] { return g_now; });
    DeallocGeneralRecReadPtr();
    std::memset(&Current, 0, sizeof(Current));
    CurVersion = "24.01";
    ASSERT_EQ(InitGeneralFile(), 1);
  }
  void CloseLibraryFiles() override {
    CloseGeneralFile();
    DeallocGeneralRecReadPtr();
    CloseInternalChartFile();
    SetClock(nullptr);
    CurVersion = "";
  }
  // The record as stored, read through a handle of the test's own.
  GeneralDataType Stored(ModuleType kind) {
    GeneralDataType rec;
    std::memset(&rec, 0, sizeof(rec));
    BtrvFile* f = nullptr;
    EXPECT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, kOpenModeReadOnly, 1, csTheOwner, "t", 1));
    rec.Kind = static_cast<uint16_t>(kind);
    EXPECT_TRUE(GetFileEqual(f, 0, kGeneralRecordSize, &rec, 0));
    RealCloseFile(&f, "t", 1);
    return rec;
  }
  template <typename Edit>
  void EditRecord(ModuleType kind, Edit edit) {
    GeneralDataType* rec = nullptr;
    ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, kind, kGenReadForUpdate, false), 1);
    edit(*rec);
    ASSERT_EQ(WrtGeneralDataPtr(nullptr, rec, 1, 0), 1);
  }
  GeneralDataType* Read(ModuleType kind) {
    GeneralDataType* rec = nullptr;
    EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, kind, kGenReadForReading, false), 1);
    return rec;
  }
};

int Date(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }
bool Bit(const uint8_t* set, int bit) { return (set[bit / 8] >> (bit % 8)) & 1; }
Ints Bits(const uint8_t* set) {
  Ints on;
  for (int p = 0; p < 48; ++p) {
    if (Bit(set, p)) on.push_back(p);
  }
  return on;
}

// Another user: this program started again in a child process (its own store connections
// and locks). "write902" stores value at the general-ledger record's offset 902 and ends;
// "lock" holds the general-ledger record locked until Finish.
class OtherUser {
 public:
  OtherUser(const std::string& dir, const std::string& action, int value) {
    int ready[2], go[2];
    if (pipe(ready) != 0 || pipe(go) != 0) return;
    std::vector<std::string> env = {
        "GEN_DIR=" + dir, "GEN_ACTION=" + action, "GEN_VALUE=" + std::to_string(value),
        "GEN_FDS=" + std::to_string(ready[1]) + " " + std::to_string(go[0])};
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    char* argv[] = {const_cast<char*>("/proc/self/exe"),
                    const_cast<char*>("--gtest_filter=GeneralOtherUser.DISABLED_Run"),
                    const_cast<char*>("--gtest_also_run_disabled_tests"), nullptr};
    pid_ = fork();
    if (pid_ == 0) {
      int null_fd = open("/dev/null", O_WRONLY);
      dup2(null_fd, STDOUT_FILENO);
      execve(argv[0], argv, envp.data());
      _exit(127);
    }
    close(ready[1]);
    close(go[0]);
    ready_ = ready[0];
    go_ = go[1];
  }
  ~OtherUser() { Finish(); }
  // Waits (30 seconds at most) until the child has done its part.
  bool WaitReady() {
    pollfd p = {ready_, POLLIN, 0};
    char c = 0;
    return poll(&p, 1, 30000) == 1 && read(ready_, &c, 1) == 1;
  }
  // Lets the child end; answers its exit code.
  int Finish() {
    if (pid_ <= 0) return -1;
    char c = 'G';
    int status = 0;
    if (write(go_, &c, 1) != 1 || waitpid(pid_, &status, 0) != pid_) status = -1;
    pid_ = 0;
    close(ready_);
    close(go_);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int ready_ = -1, go_ = -1;
};

TEST(GeneralOtherUser, DISABLED_Run) {
  if (std::getenv("GEN_DIR") == nullptr) GTEST_SKIP();
  std::string action = std::getenv("GEN_ACTION");
  int ready = -1, go = -1;
  ASSERT_EQ(std::sscanf(std::getenv("GEN_FDS"), "%d %d", &ready, &go), 2);
  ASSERT_EQ(chdir(std::getenv("GEN_DIR")), 0);
  g_szCompanyPath = std::getenv("GEN_DIR");
  GeneralDataType* rec = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, true), 1);
  rec->GL.Setting902 = static_cast<uint16_t>(std::atoi(std::getenv("GEN_VALUE")));
  if (action == "write902") {
    ASSERT_EQ(WrtGeneralDataPtr(nullptr, rec, 1, 0), 1);
  }
  char c = 'R';
  ASSERT_EQ(write(ready, &c, 1), 1);
  ASSERT_EQ(read(go, &c, 1), 1);
  if (action == "lock") WrtGeneralDataPtr(nullptr, rec, 0, 0);
  DeallocGeneralRecReadPtr();
}

void OtherUserWrites902(const std::string& dir, int value) {
  OtherUser other(dir, "write902", value);
  ASSERT_TRUE(other.WaitReady());
  EXPECT_EQ(other.Finish(), 0);
}

TEST_F(GeneralTest, NewFileHoldsEightDefaultRecordsInCreationOrder) {
  BtrvFile* f = nullptr;
  ASSERT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, kOpenModeReadOnly, 1, csTheOwner, "t", 1));
  Ints kinds;
  GeneralDataType rec;
  while (StepDirect(f, kGeneralRecordSize, &rec)) kinds.push_back(rec.Kind);
  RealCloseFile(&f, "t", 1);
  EXPECT_EQ(kinds, (Ints{4, 3, 5, 1, 2, 6, 7, 8}));

  GeneralDataType gl = Stored(MOD_GL);
  EXPECT_STREQ(gl.GL.DataVersion, "24.01");
  EXPECT_EQ((Ints{gl.GL.CurrentPeriod, gl.GL.PeriodsPerYear, gl.GL.FiscalYear, gl.GL.Setting400,
                  gl.GL.Setting900}),
            (Ints{15, 12, 1997, 1, 5}));
  const FromTo* cal = gl.GL.Calendar;
  EXPECT_EQ((Ints{Date(cal[1].from), Date(cal[1].to), Date(cal[2].to), Date(cal[12].to),
                  Date(cal[15].from), Date(cal[26].to), Date(cal[30].to), Date(cal[40].to)}),
            (Ints{19960101, 19970131, 19960229, 19961231, 19970101, 19971231, 19980228, 19981231}));
  for (int p : {0, 13, 14, 27, 28, 41}) EXPECT_EQ(Date(cal[p].from) + Date(cal[p].to), 0) << p;

  GeneralDataType ar = Stored(MOD_AR);
  EXPECT_EQ(+ar.AR.Aging[3].Days, 999);
  EXPECT_STREQ(ar.AR.Aging[3].Caption, "Over 90 days");
  EXPECT_STREQ(ar.AR.SalesTax[0].Description, "Regular");
  EXPECT_STREQ(ar.AR.SalesTax[25].Description, "Exempt - Freight");
  EXPECT_STREQ(ar.AR.Numbering1834, "m10001");
  EXPECT_STREQ(Stored(MOD_AP).AP.Numbering309, "m101");
  GeneralDataType pr = Stored(MOD_PR);
  EXPECT_STREQ(pr.PR.GrossName, "Gross");
  EXPECT_STREQ(pr.PR.PayTypes[2].Name, "Special");
  GeneralDataType inv = Stored(MOD_INV);
  EXPECT_STREQ(inv.INV.PriceLevels[9].Name, "Price Level 10");
  EXPECT_EQ((Ints{inv.INV.PriceLevels[9].Number, inv.INV.PriceLevels[9].Value19,
                  static_cast<int>(inv.INV.PriceLevels[9].Value55)}),
            (Ints{10, 3, 1}));
  EXPECT_EQ(
      (Ints{IndexItemDefData(0, inv.INV.PriceLevels), IndexItemDefData(9, inv.INV.PriceLevels),
            IndexItemDefData(10, inv.INV.PriceLevels), IndexItemDefData(-1, inv.INV.PriceLevels)}),
      (Ints{0, 9, -1, -1}));

  // A second fill stops at its first insert (kind 4 exists) with 5501.
  EXPECT_EQ(InitGeneralFile(), 0);
  EXPECT_EQ(messages_.Numbers(), Ints{5501});
}

TEST_F(GeneralTest, ReadForReadingIsServedFromMemory) {
  GeneralDataType* first = Read(MOD_GL);
  EXPECT_EQ(Current.PeriodsPerYear, 12);
  uint64_t before = StoreCallCount();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Read(MOD_GL), first);
  EXPECT_EQ(StoreCallCount(), before);
  ClearGeneralCache();  // read again, into the same buffer
  EXPECT_EQ(Read(MOD_GL), first);
  EXPECT_GT(StoreCallCount(), before);
}

TEST_F(GeneralTest, AnotherUsersWriteSeenAfterAMinuteOrAtOnceWhenForced) {
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 0);
  OtherUserWrites902(dir(), 77);
  g_now += 30;
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 0);
  g_now += 30;  // a minute since the first read
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 77);
  OtherUserWrites902(dir(), 78);
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 77);
  ForceReadGeneralRecord();
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 78);
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(GeneralTest, RecordBeingEditedIsNeverMarkedStale) {
  GeneralDataType* terms = Read(MOD_AR);
  GeneralDataType* edit = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &edit, MOD_GL, kGenReadForUpdate, false), 1);
  EXPECT_EQ(GenFileInUse(), 1);
  edit->GL.Setting902 = 5;  // not yet written
  ForceReadGeneralRecord();
  g_now += 120;
  uint64_t before = StoreCallCount();
  EXPECT_EQ(Read(MOD_AR), terms);  // the clean record is read again
  EXPECT_GT(StoreCallCount(), before);
  before = StoreCallCount();
  EXPECT_EQ(Read(MOD_GL), edit);  // the edited one is handed out as it stands
  EXPECT_EQ(+edit->GL.Setting902, 5);
  EXPECT_EQ(StoreCallCount(), before);
  ASSERT_EQ(WrtGeneralDataPtr(nullptr, edit, 1, 0), 1);
  EXPECT_EQ(GenFileInUse(), 0);
  EXPECT_EQ(+Stored(MOD_GL).GL.Setting902, 5);
}

TEST_F(GeneralTest, RecordLockedByAnotherProcessIsRefusedQuietly) {
  OtherUser other(dir(), "lock", 0);
  ASSERT_TRUE(other.WaitReady());
  GeneralDataType* cached = Read(MOD_GL);  // reading is not blocked by the lock
  GeneralDataType* rec = nullptr;
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, true), 0);
  EXPECT_TRUE(rec != nullptr && rec != cached);  // the scratch buffer
  EXPECT_EQ(GenFileInUse(), 0);
  EXPECT_TRUE(messages_.shown().empty());
  // Unsuppressed, only the record manager's own prompt comes (answered Cancel).
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 0);
  EXPECT_EQ(messages_.Numbers(), Ints{20084});
  uint64_t before = StoreCallCount();
  EXPECT_EQ(Read(MOD_GL), cached);  // marked stale by the failure: read again
  EXPECT_GT(StoreCallCount(), before);
  EXPECT_EQ(other.Finish(), 0);
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, true), 1);
  EXPECT_EQ(WrtGeneralDataPtr(nullptr, rec, 0, 0), 1);
}

TEST_F(GeneralTest, SharedWriteHandleEditsAndRefusesASecondWriter) {
  GeneralDataType* rec = nullptr;
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadThroughWriteHandle, false), 0);
  ASSERT_EQ(OpenGeneralFileForWrite(), 1);
  EXPECT_EQ(OpenGeneralFileForWrite(), 0);  // 5503 answered Cancel
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_AR, kGenReadForUpdate, false), 0);
  EXPECT_EQ(messages_.Numbers(), (Ints{5503, 5503}));
  EXPECT_EQ(messages_.Last().style & MB_BUTTONS_MASK, MB_RETRYCANCEL);

  ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadThroughWriteHandle, false), 1);
  rec->GL.LastAccount = 9;
  EXPECT_EQ(WrtGeneralDataPtr(nullptr, rec, 1, 1), 1);
  EXPECT_EQ(GenFileInUse(), 1);  // stays open for further edits
  EXPECT_EQ(+Stored(MOD_GL).GL.LastAccount, 9);
  EXPECT_EQ(CloseGeneralFile(), 1);
  EXPECT_EQ(CloseGeneralFile(), 0);

  // Through the caller's own handle.
  BtrvFile* f = nullptr;
  ASSERT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, 0, 1, csTheOwner, "t", 1));
  ASSERT_EQ(GetGeneralDataPtrNoOpen(f, &rec, MOD_AP, kGenReadForUpdate), 1);
  rec->AP.ControlAccount = 3;
  EXPECT_EQ(WrtGeneralDataPtrNoClose(f, rec, 1), 1);
  RealCloseFile(&f, "t", 1);
  EXPECT_EQ(+Stored(MOD_AP).AP.ControlAccount, 3);
  EXPECT_EQ(GetGeneralDataPtrNoOpen(nullptr, &rec, MOD_GL, 0), 0);
}

TEST_F(GeneralTest, FiscalYearZeroReadsAs1997OnEveryPath) {
  EditRecord(MOD_GL, [](GeneralDataType& r) { r.GL.FiscalYear = 0; });
  EXPECT_EQ(+Stored(MOD_GL).GL.FiscalYear, 0);
  EXPECT_EQ(+Read(MOD_GL)->GL.FiscalYear, 1997);  // the copy the write left in the cache
  DeallocGeneralRecReadPtr();
  Current.FiscalYear = 0;
  EXPECT_EQ(+Read(MOD_GL)->GL.FiscalYear, 1997);
  EXPECT_EQ(Current.FiscalYear, 1997);
  GeneralDataType* rec = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 1);
  EXPECT_EQ(+rec->GL.FiscalYear, 1997);
  EXPECT_EQ(WrtGeneralDataPtr(nullptr, rec, 0, 0), 1);
}

TEST_F(GeneralTest, KindsWithoutARecordAnswerTheScratchBufferWith5502) {
  GeneralDataType* rec = nullptr;
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, static_cast<ModuleType>(9), 0, false), 0);
  EXPECT_NE(rec, nullptr);
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, static_cast<ModuleType>(12), 0, false), 0);
  EXPECT_EQ(GetGeneralDataPtr(nullptr, nullptr, static_cast<ModuleType>(-1), 0, false), 0);
  EXPECT_EQ(messages_.Numbers(), (Ints{5502, 5502, 5502}));
}

TEST_F(GeneralTest, TermsTaxTypesAndAccounts) {
  TermsType terms;
  std::memset(&terms, 0xAB, sizeof(terms));
  EXPECT_EQ(GetStdTerms(&terms, MOD_PR), 0);
  EXPECT_EQ(terms.raw[0], 0xAB);  // left alone
  EditRecord(MOD_AP, [](GeneralDataType& r) { r.AP.StdTerms.raw[5] = 30; });
  EXPECT_EQ(GetStdTerms(&terms, MOD_AP), 1);
  EXPECT_EQ(terms.raw[5], 30);

  // Taxable takes a zero-based type, the other two a one-based one.
  EXPECT_EQ((Ints{IsSalesTaxTaxable(0), IsSalesTaxTaxable(1), IsSalesTaxTaxable(26),
                  IsSalesTaxTaxable(-1)}),
            (Ints{1, 0, 0, 0}));
  EXPECT_EQ((Ints{IsValidSalesTaxableType(0), IsValidSalesTaxableType(1),
                  IsValidSalesTaxableType(25), IsValidSalesTaxableType(26)}),
            (Ints{0, 1, 1, 0}));
  FixedString<31> text;
  EXPECT_EQ(SetItemTaxDesc(1, text), 1);
  EXPECT_STREQ(text, "Regular");
  EXPECT_EQ(SetItemTaxDesc(26, text), 0);
  EditRecord(MOD_AR, [](GeneralDataType& r) { r.AR.SalesTax[3].Description.Clear(); });
  char standard[21] = {};
  LoadStringA(nullptr, 4406, standard, sizeof(standard));
  EXPECT_EQ(SetItemTaxDesc(4, text), 1);
  EXPECT_STREQ(text, standard);
  EXPECT_STREQ(Stored(MOD_AR).AR.SalesTax[3].Description, "");  // only the cache has it

  BtrvFile* chart = nullptr;
  ASSERT_TRUE(RealOpenBFileOwner(&chart, ChartName, 0, 2, csTheOwner, "t", 1));
  AccountType account = {};
  account.ID = "1100";
  account.Type = 1;
  AssignGUID(account.Guid);
  ASSERT_TRUE(InsertRecord(chart, sizeof(account), &account));
  RealCloseFile(&chart, "t", 1);
  const int32_t number = account.RecordNumber;
  FixedString<16> id;
  EXPECT_EQ(GetARAcnt(id), 0);
  EditRecord(MOD_AR, [&](GeneralDataType& r) { r.AR.ControlAccount = number; });
  EXPECT_EQ(GetARAcnt(id), 1);
  EXPECT_STREQ(id, "1100");

  int32_t last = -1;
  vGetLastAcct(last);  // none stored, no cash account: the bank-rec default says so
  EXPECT_EQ(last, 0);
  EXPECT_EQ(messages_.Numbers(), Ints{1913});
  vSetLastAcct(number);
  vGetLastAcct(last);
  EXPECT_EQ(last, number);
  EXPECT_EQ(+Stored(MOD_GL).GL.LastAccount, number);
}

TEST_F(GeneralTest, PrintedFlagsAndRangesExcludeTheEndPeriod) {
  SetGLPrintedEx(0, 20);  // unprinted from 20 through the later open year
  Ints expected;
  for (int p = 20; p <= 40; ++p) {
    if (p != 27 && p != 28) expected.push_back(p);
  }
  EXPECT_EQ(Bits(Stored(MOD_GL).GL.GLNotPrinted), expected);
  SetGLPrintedEx(1, 22);
  SetGLRangePrintedEx(23, 35);
  EXPECT_EQ(Bits(Stored(MOD_GL).GL.GLNotPrinted), (Ints{20, 21, 35, 36, 37, 38, 39, 40}));

  SetJrnlNotPrinted(3, 16);
  SetJrnlNotPrinted(14, 17);
  SetJrnlRangePrinted(15, 16);
  EXPECT_EQ(Bits(Stored(MOD_GL).GL.JournalNotPrinted[3]), Ints{16});
  SetJrnlRangePrinted(16, 18);
  GeneralDataType gl = Stored(MOD_GL);
  EXPECT_EQ(Bits(gl.GL.JournalNotPrinted[3]), Ints{});
  EXPECT_EQ(Bits(gl.GL.JournalNotPrinted[14]), Ints{});

  // Printing a printed period, or a journal that does not exist, writes nothing.
  int64_t before = 0, after = 0;
  ASSERT_TRUE(ZORDataFileExists(GeneralFileName, &before));
  SetJrnlPrinted(3, 16);
  SetJrnlNotPrinted(15, 16);
  ASSERT_TRUE(ZORDataFileExists(GeneralFileName, &after));
  EXPECT_EQ(before, after);
  EXPECT_EQ(GenFileInUse(), 0);
  EXPECT_TRUE(messages_.shown().empty());
}

TEST(GeneralAssertTest, ReportShowsWhereAndAnswersRetryOrIgnore) {
  ScriptedMessages messages;
  messages.Answer(IDRETRY);
  messages.Answer(IDIGNORE);
  EXPECT_TRUE(ZORAssertFailed("Basics/journldb.cpp", 412, "rows > 0"));
  EXPECT_FALSE(ZORAssertFailed(nullptr, 0, nullptr));
  ASSERT_EQ(messages.shown().size(), 2u);
  const HostMessage& shown = messages.shown()[0];
  EXPECT_EQ(shown.style, MB_ABORTRETRYIGNORE | MB_ICONSTOP);
  EXPECT_EQ(shown.text.rfind("Debug Assertion Failed!", 0), 0u);
  for (const char* part : {"File:\tBasics/journldb.cpp", "Line:\t412", "Code:\trows > 0",
                           "GetLastError: ", "(Press Retry to debug the application)"}) {
    EXPECT_NE(shown.text.find(part), std::string::npos) << part;
  }
}

TEST(GeneralAssertDeathTest, AbortEndsTheProcessWithExitCodeMinusOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        SetMessageHandler([](const HostMessage&) { return IDABORT; });
        ZORAssertFailed("x.cpp", 1, "false");
      },
      ::testing::ExitedWithCode(255), "");
}

}  // namespace
