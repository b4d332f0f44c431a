// CGeneralUtils: the fiscal-year boundaries taken from the general-ledger record, the
// predicates on the current period and today, and the snapshot's independence from later
// changes of the file.
#include <cstring>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "GeneralUtils.h"
#include "OpenDat.h"
#include "company_test.h"
#include "utility.h"

namespace {

DatesType D(int month, int day, int year) {
  DatesType d;
  MakeDate(month, day, year, d);
  return d;
}

int Num(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }
using Ints = std::vector<int>;

class GeneralUtilsTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    DeallocGeneralRecReadPtr();
    saved_today_ = TodaysDate;
    TodaysDate = D(6, 15, 1997);
    ASSERT_EQ(InitGeneralFile(), 1);
  }
  void CloseLibraryFiles() override {
    TodaysDate = saved_today_;
    CloseGeneralFile();
    DeallocGeneralRecReadPtr();
  }
  void EditGL(const std::function<void(GeneralLedgerRecord&)>& edit) {
    GeneralDataType* rec = nullptr;
    ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 1);
    edit(rec->GL);
    ASSERT_EQ(WrtGeneralDataPtr(nullptr, rec, 1, 0), 1);
  }

  DatesType saved_today_;
};

TEST_F(GeneralUtilsTest, BoundariesOfTheDefaultCalendar) {
  CGeneralUtils u;
  EXPECT_EQ((Ints{Num(u.GetBeginPayrollYrDate()), Num(u.GetEndPayrollYrDate()),
                  Num(u.GetBeginFirstFiscalYrDate()), Num(u.GetEndFirstFiscalYrDate()),
                  Num(u.GetBeginSecondFiscalYrDate()), Num(u.GetEndSecondFiscalYrDate()),
                  Num(u.GetTodaysDate()), Num(u.GetCurrentFiscalPeriodFromTo().to),
                  Num(u.GetFirstPeriodOfFiscalYearTwo().to)}),
            (Ints{19970101, 19971231, 19970101, 19971231, 19980101, 19981231, 19970615, 19970131,
                  19980131}));
  EXPECT_EQ(
      (Ints{u.IsCurPeriodInFirstFiscalYear(), u.IsCurPeriodInSecondFiscalYear(),
            u.IsCurPeriodInLastPeriodOfFirstFiscalYear(),
            u.IsCurPeriodInLastPeriodOfSecondFiscalYear(), u.IsCurSystemDateInSecondFiscalYear(),
            u.IsCurSystemDateInLastPeriodOfFirstFiscalYear()}),
      (Ints{1, 0, 0, 0, 0, 0}));
  TodaysDate = D(12, 31, 1997);
  u.ReFreshData();
  EXPECT_TRUE(u.IsCurSystemDateInLastPeriodOfFirstFiscalYear());
  TodaysDate = D(3, 1, 2004);  // past the second open year: still "in" it
  u.ReFreshData();
  EXPECT_TRUE(u.IsCurSystemDateInSecondFiscalYear());
}

TEST_F(GeneralUtilsTest, LastPeriodsOfTheOpenYears) {
  EditGL([](GeneralLedgerRecord& gl) { gl.CurrentPeriod = 26; });
  CGeneralUtils december97;
  EXPECT_TRUE(december97.IsCurPeriodInLastPeriodOfFirstFiscalYear());
  EXPECT_TRUE(december97.IsCurPeriodInFirstFiscalYear());

  EditGL([](GeneralLedgerRecord& gl) { gl.CurrentPeriod = 40; });
  CGeneralUtils last;
  EXPECT_TRUE(last.IsCurPeriodInSecondFiscalYear());
  EXPECT_TRUE(last.IsCurPeriodInLastPeriodOfSecondFiscalYear());
  EXPECT_FALSE(last.IsCurPeriodInNextToLastPeriodOfSecondFiscalYear());

  EditGL([](GeneralLedgerRecord& gl) { gl.CurrentPeriod = 39; });
  CGeneralUtils next_to_last;
  EXPECT_FALSE(next_to_last.IsCurPeriodInLastPeriodOfSecondFiscalYear());
  EXPECT_TRUE(next_to_last.IsCurPeriodInNextToLastPeriodOfSecondFiscalYear());

  // With one period a year every period is both the last and the next-to-last.
  EditGL([](GeneralLedgerRecord& gl) {
    gl.PeriodsPerYear = 1;
    gl.CurrentPeriod = 15;
  });
  CGeneralUtils one;
  EXPECT_TRUE(one.IsCurPeriodInLastPeriodOfSecondFiscalYear());
  EXPECT_TRUE(one.IsCurPeriodInNextToLastPeriodOfSecondFiscalYear());
  EXPECT_EQ(Num(one.GetEndFirstFiscalYrDate()), 19970131);  // period 15's end
}

TEST_F(GeneralUtilsTest, SnapshotKeepsItsDatesUntilRefreshed) {
  CGeneralUtils utils;
  // The payroll year follows the fiscal-year number, not the calendar; 0 reads as 1997.
  EditGL([](GeneralLedgerRecord& gl) { gl.FiscalYear = 2003; });
  EXPECT_EQ(Num(utils.GetEndPayrollYrDate()), 19971231);
  CGeneralUtils copy(utils);
  utils.ReFreshData();
  EXPECT_EQ(Num(utils.GetBeginPayrollYrDate()), 20030101);
  EXPECT_EQ(Num(utils.GetEndFirstFiscalYrDate()), 19971231);
  EXPECT_EQ(Num(copy.GetBeginPayrollYrDate()), 19970101);
  copy = utils;
  EXPECT_EQ(Num(copy.GetEndPayrollYrDate()), 20031231);

  EditGL([](GeneralLedgerRecord& gl) { gl.FiscalYear = 0; });
  utils.ReFreshData();
  EXPECT_EQ(Num(utils.GetEndPayrollYrDate()), 19971231);

  // A refresh that cannot read keeps the previous snapshot.
  EditGL([](GeneralLedgerRecord& gl) { gl.FiscalYear = 2010; });
  DeallocGeneralRecReadPtr();
  g_szCompanyPath = "/nonexistent-company";
  utils.ReFreshData();
  EXPECT_EQ(Num(utils.GetEndPayrollYrDate()), 19971231);
  EXPECT_FALSE(messages_.shown().empty());
}

}  // namespace
