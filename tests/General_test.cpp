// The general file and its settings cache: default records, reads served from memory,
// another process's writes and locks, the write handle, the accessors, the printed flags
// and the assertion reporter.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CHART.h"
#include "General.h"
#include "OpenDat.h"
#include "company_test.h"
#include "record_manager.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"
#include "utility.h"

namespace {

time_t g_now = 1000000;
using Ints = std::vector<int>;
using Strs = std::vector<std::string>;

int Date(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }
Ints Bits(const uint8_t* set) {
  Ints on;
  for (int p = 0; p < 48; ++p)
    if ((set[p / 8] >> (p % 8)) & 1) on.push_back(p);
  return on;
}

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
    rm::SetBackendDecorator(nullptr);
    SetClock(nullptr);
    CurVersion = "";
  }
  GeneralDataType Stored(ModuleType kind) {  // through a handle of the test's own
    GeneralDataType rec = {};
    rec.Kind = static_cast<uint16_t>(kind);
    BtrvFile* f = nullptr;
    EXPECT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, kOpenModeReadOnly, 1, csTheOwner, "t", 1));
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
  bool ReadGoesToStore(ModuleType kind, GeneralDataType* expected) {  // reads for reading
    uint64_t before = StoreCallCount();
    EXPECT_EQ(Read(kind), expected);
    return StoreCallCount() != before;
  }
};

// Another user: this program again in a child process with its own store connections and locks.
// It reads the general-ledger record for update, stores value at offset 902 or (kLock) keeps it
// locked, makes the file "ready" and holds on until its input closes; pclose answers its exit.
constexpr int kLock = -1;
FILE* OtherUser(int value) {
  std::string command = "GEN_OTHER=" + std::to_string(value) + " " +
                        std::filesystem::read_symlink("/proc/self/exe").string() +
                        " --gtest_filter=GeneralOtherUser.DISABLED_Run"
                        " --gtest_also_run_disabled_tests >/dev/null";
  FILE* child = popen(command.c_str(), "w");
  for (int i = 0; i < 3000 && unlink("ready") != 0; ++i) usleep(10000);
  return child;
}

TEST(GeneralOtherUser, DISABLED_Run) {
  if (std::getenv("GEN_OTHER") == nullptr) GTEST_SKIP();
  const int value = std::atoi(std::getenv("GEN_OTHER"));
  g_szCompanyPath = std::filesystem::current_path().c_str();
  GeneralDataType* rec = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, true), 1);
  rec->GL.Setting902 = static_cast<uint16_t>(value);
  ASSERT_TRUE(value == kLock || WrtGeneralDataPtr(nullptr, rec, 1, 0) == 1);
  std::fclose(std::fopen("ready", "w"));
  while (std::getchar() != EOF) continue;
  if (value == kLock) WrtGeneralDataPtr(nullptr, rec, 0, 0);
  DeallocGeneralRecReadPtr();
}

TEST_F(GeneralTest, NewFileHoldsEightDefaultRecordsInCreationOrder) {
  BtrvFile* f = nullptr;
  ASSERT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, kOpenModeReadOnly, 1, csTheOwner, "t", 1));
  Ints kinds;
  GeneralDataType rec;
  while (StepDirect(f, kGeneralRecordSize, &rec)) kinds.push_back(rec.Kind);
  RealCloseFile(&f, "t", 1);
  EXPECT_EQ(kinds, (Ints{4, 3, 5, 1, 2, 6, 7, 8}));

  GeneralDataType gl = Stored(MOD_GL), ar = Stored(MOD_AR), inv = Stored(MOD_INV);
  const FromTo* cal = gl.GL.Calendar;  // the history year, then the two open years
  ItemdataType* levels = inv.INV.PriceLevels;
  EXPECT_EQ((Ints{gl.GL.CurrentPeriod, gl.GL.PeriodsPerYear, gl.GL.FiscalYear, gl.GL.Setting400,
                  gl.GL.Setting900, ar.AR.Aging[3].Days, levels[9].Number, levels[9].Value19,
                  IndexItemDefData(9, levels), IndexItemDefData(10, levels)}),
            (Ints{15, 12, 1997, 1, 5, 999, 10, 3, 9, -1}));
  EXPECT_EQ((Ints{Date(cal[1].from), Date(cal[2].to), Date(cal[12].to), Date(cal[15].from),
                  Date(cal[30].to), Date(cal[40].to), Date(cal[14].to), Date(cal[28].from)}),
            (Ints{19960101, 19960229, 19961231, 19970101, 19980228, 19981231, 0, 0}));
  EXPECT_EQ(
      (Strs{gl.GL.DataVersion.s, ar.AR.Aging[3].Caption.s, ar.AR.SalesTax[25].Description.s,
            ar.AR.Numbering1834.s, Stored(MOD_PR).PR.PayTypes[2].Name.s, levels[9].Name.s}),
      (Strs{"24.01", "Over 90 days", "Exempt - Freight", "m10001", "Special", "Price Level 10"}));
  EXPECT_EQ(InitGeneralFile(), 0);  // a second fill stops at its first insert (kind 4 exists)
  EXPECT_EQ(messages_.Numbers(), Ints{5501});
}

TEST_F(GeneralTest, DefaultRecordsAreWrittenAllOrNone) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  ASSERT_EQ(FileDeleteWithLCK(GeneralFileName), 1);
  ASSERT_EQ(CreateGeneralFile(), 1);
  for (int n = 1;; ++n) {  // fail the nth write of the fill, until none is left to fail
    SCOPED_TRACE(n);
    ASSERT_LT(n, 100);
    plan->Arm(n, kStatusDiskFull);
    const uint8_t result = InitGeneralFile();
    plan->Disarm();
    BtrvFile* f = nullptr;
    ASSERT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, kOpenModeReadOnly, 1, csTheOwner, "t", 1));
    const int32_t records = NumRecsInFile(f);
    RealCloseFile(&f, "t", 1);
    EXPECT_EQ(records, result ? 8 : 0);
    if (result) break;
  }
  for (int number : messages_.Numbers()) EXPECT_EQ(number, 5501);
}

TEST_F(GeneralTest, ReadForReadingIsServedFromMemory) {
  GeneralDataType* first = Read(MOD_GL);
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(ReadGoesToStore(MOD_GL, first));
  ClearGeneralCache();  // read again, into the same buffer
  EXPECT_TRUE(ReadGoesToStore(MOD_GL, first));
}

TEST_F(GeneralTest, OtherProcessesWritesSeenAfterAMinuteOrAtOnceWhenForced) {
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 0);
  EXPECT_EQ(pclose(OtherUser(77)), 0);
  g_now += 30;
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 0);
  g_now += 30;  // a minute since the first read
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 77);
  EXPECT_EQ(pclose(OtherUser(78)), 0);
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 77);
  ForceReadGeneralRecord();
  EXPECT_EQ(+Read(MOD_GL)->GL.Setting902, 78);
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(GeneralTest, RecordBeingEditedIsNeverMarkedStale) {
  GeneralDataType *terms = Read(MOD_AR), *edit = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &edit, MOD_GL, kGenReadForUpdate, false), 1);
  edit->GL.Setting902 = 5;  // not yet written
  ForceReadGeneralRecord();
  g_now += 120;
  EXPECT_TRUE(ReadGoesToStore(MOD_AR, terms));  // the clean record is read again
  EXPECT_FALSE(ReadGoesToStore(MOD_GL, edit));  // the edited one is handed out as it stands
  EXPECT_EQ(+edit->GL.Setting902, 5);
  ASSERT_EQ(WrtGeneralDataPtr(nullptr, edit, 1, 0), 1);
  EXPECT_EQ((Ints{GenFileInUse(), Stored(MOD_GL).GL.Setting902}), (Ints{0, 5}));
}

TEST_F(GeneralTest, RecordLockedByOtherProcessesIsRefusedQuietly) {
  FILE* other = OtherUser(kLock);
  GeneralDataType *cached = Read(MOD_GL), *rec = nullptr;  // reading is not blocked
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, true), 0);
  EXPECT_TRUE(rec != nullptr && rec != cached);  // the scratch buffer
  EXPECT_EQ(GenFileInUse(), 0);
  EXPECT_TRUE(messages_.shown().empty());
  EXPECT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 0);
  EXPECT_EQ(messages_.Numbers(), Ints{20084});   // unsuppressed: the record manager's prompt
  EXPECT_TRUE(ReadGoesToStore(MOD_GL, cached));  // marked stale by the failure
  EXPECT_EQ(pclose(other), 0);
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
  EXPECT_EQ((Ints{GenFileInUse(), Stored(MOD_GL).GL.LastAccount}), (Ints{1, 9}));  // stays open
  EXPECT_EQ((Ints{CloseGeneralFile(), CloseGeneralFile()}), (Ints{1, 0}));
  BtrvFile* f = nullptr;  // through the caller's own handle
  ASSERT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, 0, 1, csTheOwner, "t", 1));
  ASSERT_EQ(GetGeneralDataPtrNoOpen(f, &rec, MOD_AP, kGenReadForUpdate), 1);
  rec->AP.ControlAccount = 3;
  EXPECT_EQ(WrtGeneralDataPtrNoClose(f, rec, 1), 1);
  RealCloseFile(&f, "t", 1);
  EXPECT_EQ(+Stored(MOD_AP).AP.ControlAccount, 3);
  EXPECT_EQ(GetGeneralDataPtrNoOpen(nullptr, &rec, MOD_GL, 0), 0);
}

// The host edits the cache's buffer in place; an edit that never reached the file must not
// be handed out again, whichever handle the edit went through.
TEST_F(GeneralTest, EditNotWrittenIsReadAgainFromTheFile) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  BtrvFile* f = nullptr;  // keeps the store, and so its faults, open through the test
  ASSERT_TRUE(RealOpenBFileOwner(&f, GeneralFileName, 0, 1, csTheOwner, "t", 1));
  struct Way {
    const char* name;
    BtrvFile* file;
    unsigned short mode;
    uint8_t through_write_handle;
  };
  const Way kWays[] = {{"caller's handle", f, kGenReadForUpdate, 0},
                       {"handle opened for the edit", nullptr, kGenReadForUpdate, 0},
                       {"shared write handle", nullptr, kGenReadThroughWriteHandle, 1}};
  for (const Way& way : kWays) {
    for (const bool fail_write : {false, true}) {
      SCOPED_TRACE(std::string(way.name) + (fail_write ? ", write fails" : ", given up"));
      if (way.mode == kGenReadThroughWriteHandle) {
        ASSERT_EQ(OpenGeneralFileForWrite(), 1);
      }
      GeneralDataType* rec = nullptr;
      ASSERT_EQ(GetGeneralDataPtr(way.file, &rec, MOD_GL, way.mode, false), 1);
      rec->GL.CurrentPeriod = 20;
      if (fail_write) plan->Arm(1, kStatusDiskFull, true);
      EXPECT_EQ(WrtGeneralDataPtr(way.file, rec, fail_write, way.through_write_handle),
                1 - fail_write);
      plan->Disarm();
      EXPECT_TRUE(ReadGoesToStore(MOD_GL, rec));
      EXPECT_EQ((Ints{rec->GL.CurrentPeriod, Current.CurrentPeriod}), (Ints{15, 15}));
      if (fail_write && way.file != nullptr) {  // the lock stays: the write may be tried again
        rec->GL.CurrentPeriod = 16;
        EXPECT_EQ(WrtGeneralDataPtr(way.file, rec, 1, 0), 1);
        EXPECT_EQ((Ints{Stored(MOD_GL).GL.CurrentPeriod, Current.CurrentPeriod}), (Ints{16, 16}));
        EditRecord(MOD_GL, [](GeneralDataType& r) { r.GL.CurrentPeriod = 15; });
      }
      CloseGeneralFile();
    }
  }
  GeneralDataType* ar = Read(MOD_AR);  // a write with no handle to go through
  ar->AR.ControlAccount = 7;
  EXPECT_EQ(WrtGeneralDataPtr(nullptr, ar, 1, 0), 0);
  EXPECT_EQ(+Read(MOD_AR)->AR.ControlAccount, 0);
  RealCloseFile(&f, "t", 1);
  EXPECT_EQ(+Stored(MOD_GL).GL.CurrentPeriod, 15);
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(GeneralTest, FiscalYearZeroReadsAs1997AndUnknownKindsAnswer5502) {
  EditRecord(MOD_GL, [](GeneralDataType& r) { r.GL.FiscalYear = 0; });
  EXPECT_EQ((Ints{Stored(MOD_GL).GL.FiscalYear, Read(MOD_GL)->GL.FiscalYear}), (Ints{0, 1997}));
  DeallocGeneralRecReadPtr();
  Current.FiscalYear = 0;
  EXPECT_EQ((Ints{Read(MOD_GL)->GL.FiscalYear, Current.FiscalYear}), (Ints{1997, 1997}));
  GeneralDataType* rec = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 1);
  EXPECT_EQ(+rec->GL.FiscalYear, 1997);
  EXPECT_EQ(WrtGeneralDataPtr(nullptr, rec, 0, 0), 1);
  const auto kind = [](int k) { return static_cast<ModuleType>(k); };
  rec = nullptr;  // kinds without a record hand out the scratch buffer
  EXPECT_EQ((Ints{GetGeneralDataPtr(nullptr, &rec, kind(9), 0, false),
                  GetGeneralDataPtr(nullptr, &rec, kind(12), 0, false),
                  GetGeneralDataPtr(nullptr, nullptr, kind(-1), 0, false), rec != nullptr}),
            (Ints{0, 0, 0, 1}));
  EXPECT_EQ(messages_.Numbers(), (Ints{5502, 5502, 5502}));
}

TEST_F(GeneralTest, TermsTaxTypesAndAccounts) {
  TermsType terms = {{0xAB}};
  EXPECT_EQ((Ints{GetStdTerms(&terms, MOD_PR), terms.raw[0]}), (Ints{0, 0xAB}));  // left alone
  EditRecord(MOD_AP, [](GeneralDataType& r) { r.AP.StdTerms.raw[5] = 30; });
  EXPECT_EQ((Ints{GetStdTerms(&terms, MOD_AP), terms.raw[5]}), (Ints{1, 30}));
  // Taxable takes a zero-based type, the other two a one-based one.
  EXPECT_EQ((Ints{IsSalesTaxTaxable(0), IsSalesTaxTaxable(1), IsSalesTaxTaxable(26),
                  IsSalesTaxTaxable(-1), IsValidSalesTaxableType(0), IsValidSalesTaxableType(1),
                  IsValidSalesTaxableType(25), IsValidSalesTaxableType(26)}),
            (Ints{1, 0, 0, 0, 0, 1, 1, 0}));
  FixedString<31> text;
  EXPECT_EQ(SetItemTaxDesc(26, text), 0);
  EXPECT_TRUE(SetItemTaxDesc(1, text) && std::string(text) == "Regular");
  EditRecord(MOD_AR, [](GeneralDataType& r) { r.AR.SalesTax[3].Description.Clear(); });
  char standard[21] = {};
  LoadStringA(nullptr, 4406, standard, sizeof(standard));
  EXPECT_TRUE(SetItemTaxDesc(4, text) && std::string(text) == standard);
  EXPECT_STREQ(Stored(MOD_AR).AR.SalesTax[3].Description, "");  // only the cache has it

  int32_t last = -1;
  vGetLastAcct(last);  // none stored, no cash account: the bank-rec default says so
  EXPECT_EQ(last, 0);
  EXPECT_EQ(messages_.Numbers(), Ints{1913});
  BtrvFile* chart = nullptr;
  ASSERT_TRUE(RealOpenBFileOwner(&chart, ChartName, 0, 2, csTheOwner, "t", 1));
  AccountType account = {};
  account.ID = "1100";
  ASSERT_TRUE(InsertRecord(chart, sizeof(account), &account));
  RealCloseFile(&chart, "t", 1);
  const int32_t number = account.RecordNumber;
  FixedString<16> id;
  EXPECT_EQ(GetARAcnt(id), 0);
  EditRecord(MOD_AR, [&](GeneralDataType& r) { r.AR.ControlAccount = number; });
  EXPECT_TRUE(GetARAcnt(id) && std::string(id) == "1100");
  vSetLastAcct(number);
  vGetLastAcct(last);
  EXPECT_EQ((Ints{last, Stored(MOD_GL).GL.LastAccount}), (Ints{number, number}));
}

TEST_F(GeneralTest, PrintedFlagsAndRangesExcludeTheEndPeriod) {
  SetGLPrintedEx(0, 20);  // unprinted from 20 through the later open year
  EXPECT_EQ(Bits(Stored(MOD_GL).GL.GLNotPrinted),
            (Ints{20, 21, 22, 23, 24, 25, 26, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40}));
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
  int64_t before = 0, after = 0;  // printing a printed period or no journal writes nothing
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
  for (int answer : {IDRETRY, IDIGNORE}) messages.Answer(answer);
  EXPECT_TRUE(ZORAssertFailed("Basics/journldb.cpp", 412, "rows > 0"));
  EXPECT_FALSE(ZORAssertFailed(nullptr, 0, nullptr));
  ASSERT_EQ(messages.shown().size(), 2u);
  EXPECT_EQ(messages.shown()[0].style, MB_ABORTRETRYIGNORE | MB_ICONSTOP);
  EXPECT_THAT(messages.shown()[0].text,
              ::testing::MatchesRegex("Debug Assertion Failed!.*File:\tBasics/journldb.cpp.*"
                                      "Line:\t412.*Code:\trows > 0.*GetLastError: .*"
                                      "\\(Press Retry to debug the application\\).*"));
}

TEST(GeneralAssertDeathTest, AbortEndsTheProcessWithExitCodeMinusOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ScriptedMessages messages;
  messages.SetDefaultAnswer(IDABORT);
  EXPECT_EXIT(ZORAssertFailed("x.cpp", 1, "false"), ::testing::ExitedWithCode(255), "");
}

}  // namespace
