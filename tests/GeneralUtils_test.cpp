// Dates against the general-ledger calendar of a company: the period of a date where
// calendar entries overlap, every date-range code, and CGeneralUtils (fiscal-year
// boundaries, predicates on the current period and today, the snapshot's independence).
#include <cstring>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "General.h"
#include "GeneralUtils.h"
#include "OpenDat.h"
#include "company_test.h"
#include "record_manager.h"
#include "utility.h"

namespace {

using Ints = std::vector<int>;

// A date from its number yyyymmdd, and back.
DatesType D(int n) {
  DatesType d;
  MakeDate(n / 100 % 100, n % 100, n / 10000, d);
  return d;
}
int Num(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }

class CalendarTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    DeallocGeneralRecReadPtr();
    std::memset(&Current, 0, sizeof(Current));
    saved_today_ = TodaysDate;
    TodaysDate = D(19970615);
    ASSERT_EQ(InitGeneralFile(), 1);
  }
  void CloseLibraryFiles() override {
    TodaysDate = saved_today_;
    CloseGeneralFile();
    DeallocGeneralRecReadPtr();
  }
  void SetGL(int period, int periods_per_year = 12, int fiscal_year = 1997) {
    GeneralDataType* rec = nullptr;
    ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 1);
    rec->GL.CurrentPeriod = static_cast<uint16_t>(period);
    rec->GL.PeriodsPerYear = static_cast<uint16_t>(periods_per_year);
    rec->GL.FiscalYear = static_cast<uint16_t>(fiscal_year);
    ASSERT_EQ(WrtGeneralDataPtr(nullptr, rec, 1, 0), 1);
  }

  Ints Range(int code) {  // the range a code gives, starting from a marker range
    FromTo range = {D(17760704), D(17760704)};
    SetDateRange(static_cast<int16_t>(code), &range);
    return {Num(range.from), Num(range.to)};
  }

  DatesType saved_today_;
};

TEST_F(CalendarTest, OpenYearsAreSearchedBeforeTheOverlappingHistoryYear) {
  SetGL(16);  // so that January 1997 is not answered from Current
  // 15 Jan 1997 is also in period 1 (to 31 Jan 1997), which spans 1996: the first match wins.
  EXPECT_EQ(
      (Ints{WhichGLperiod(D(19970115)), WhichGLperiod(D(19960615)), WhichGLperiod(D(19981215)),
            WhichGLperiod(D(19980228)), WhichGLperiod(D(19951231)), WhichGLperiod(D(19990101))}),
      (Ints{15, 1, 40, 30, 0, kNoPeriod}));
  uint64_t before = StoreCallCount();  // the current period's dates are answered from Current
  EXPECT_EQ(WhichGLperiod(D(19970210)), 16);
  EXPECT_EQ(StoreCallCount(), before);
  EXPECT_EQ((Ints{Num(GetPeriodTo(1)), Num(GetPeriodFrom(42))}), (Ints{19970131, 0}));
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(CalendarTest, EveryDateRangeCode) {
  SetGL(20);  // June 1997; 14 Aug 1997 is a Thursday in period 22
  TodaysDate = D(19970814);
  const std::pair<int, Ints> kRanges[] = {
      {0, {19970101, 19981231}},  {5, {19970601, 19970630}},  {6, {19970814, 19970814}},
      {17, {19970814, 19970814}}, {7, {19970810, 19970814}},  {8, {19970801, 19970814}},
      {9, {19970801, 19970814}},  {10, {19970701, 19970814}}, {11, {19970101, 19970814}},
      {12, {19970401, 19970630}}, {13, {19970101, 19971231}}, {18, {19970101, 19970814}},
      {19, {19970801, 19970831}}};
  for (const auto& [code, range] : kRanges) EXPECT_EQ(Range(code), range) << code;
  const Ints kept = {17760704, 17760704};  // by the codes the host fills
  for (int code : {1, 2, 3, 4, 14, 15, 16, 20, -1}) EXPECT_EQ(Range(code), kept) << code;
  TodaysDate = D(19970810);  // a Sunday: this week is one day
  EXPECT_EQ(Range(7), (Ints{19970810, 19970810}));
  TodaysDate = D(19960210);
  EXPECT_EQ(Range(19), (Ints{19960201, 19960229}));
  TodaysDate = D(20010305);  // in no period: the period-to-date range is today alone
  EXPECT_EQ(Range(9), (Ints{20010305, 20010305}));
  EXPECT_TRUE(messages_.shown().empty());
  DeallocGeneralRecReadPtr();  // without a readable record every code gives the current period
  g_szCompanyPath = "/nonexistent-company";
  EXPECT_EQ(Range(6), (Ints{19970601, 19970630}));
  EXPECT_EQ(messages_.Numbers(), Ints{5502});
}

TEST_F(CalendarTest, UtilsBoundariesOfTheDefaultCalendar) {
  CGeneralUtils u;
  EXPECT_EQ(
      (Ints{Num(u.GetBeginPayrollYrDate()), Num(u.GetEndPayrollYrDate()),
            Num(u.GetBeginFirstFiscalYrDate()), Num(u.GetBeginSecondFiscalYrDate()),
            Num(u.GetEndSecondFiscalYrDate()), Num(u.GetTodaysDate()),
            Num(u.GetCurrentFiscalPeriodFromTo().to), Num(u.GetFirstPeriodOfFiscalYearTwo().to)}),
      (Ints{19970101, 19971231, 19970101, 19980101, 19981231, 19970615, 19970131, 19980131}));
}

TEST_F(CalendarTest, UtilsPredicatesOnTheCurrentPeriodAndToday) {
  // Period, periods a year, today; the period in year 1, 2, last of 1, last of 2, next to last
  // of 2; today in year 2 (or past it), in the last of 1; year 1's end. With fewer than two
  // periods a year every period is both the last and the next-to-last.
  const Ints kCases[] = {{15, 12, 19970615, 1, 0, 0, 0, 0, 0, 0, 19971231},
                         {26, 12, 19971231, 1, 0, 1, 0, 0, 0, 1, 19971231},
                         {39, 12, 19980101, 0, 1, 0, 0, 1, 1, 0, 19971231},
                         {40, 12, 20040301, 0, 1, 0, 1, 0, 1, 0, 19971231},
                         {15, 1, 19970615, 1, 0, 1, 1, 1, 0, 0, 19970131}};
  for (const Ints& c : kCases) {
    SetGL(c[0], c[1]);
    TodaysDate = D(c[2]);
    CGeneralUtils u;
    EXPECT_EQ(
        (Ints{c[0], c[1], c[2], u.IsCurPeriodInFirstFiscalYear(), u.IsCurPeriodInSecondFiscalYear(),
              u.IsCurPeriodInLastPeriodOfFirstFiscalYear(),
              u.IsCurPeriodInLastPeriodOfSecondFiscalYear(),
              u.IsCurPeriodInNextToLastPeriodOfSecondFiscalYear(),
              u.IsCurSystemDateInSecondFiscalYear(),
              u.IsCurSystemDateInLastPeriodOfFirstFiscalYear(), Num(u.GetEndFirstFiscalYrDate())}),
        c);
  }
}

TEST_F(CalendarTest, UtilsSnapshotKeepsItsDatesUntilRefreshed) {
  CGeneralUtils utils;
  SetGL(15, 12, 2003);  // the payroll year follows the fiscal-year number, not the calendar
  CGeneralUtils copy(utils);
  utils.ReFreshData();
  EXPECT_EQ((Ints{Num(copy.GetEndPayrollYrDate()), Num(utils.GetBeginPayrollYrDate()),
                  Num(utils.GetEndFirstFiscalYrDate())}),
            (Ints{19971231, 20030101, 19971231}));
  copy = utils;
  SetGL(15, 12, 2010);  // a refresh that cannot read keeps the previous snapshot
  DeallocGeneralRecReadPtr();
  g_szCompanyPath = "/nonexistent-company";
  utils.ReFreshData();
  EXPECT_EQ((Ints{Num(utils.GetEndPayrollYrDate()), Num(copy.GetEndPayrollYrDate())}),
            (Ints{20031231, 20031231}));
  EXPECT_FALSE(messages_.shown().empty());
}

}  // namespace
