// Accounting periods: stepping for 12, 13 and 1 periods a year, user and internal
// numbers, the period of a date where calendar entries overlap, and every date-range code.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "General.h"
#include "OpenDat.h"
#include "company_test.h"
#include "record_manager.h"
#include "utility.h"

namespace {

DatesType D(int month, int day, int year) {
  DatesType d;
  MakeDate(month, day, year, d);
  return d;
}

int Num(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }

// A step's answer and the period it leaves, e.g. {true, 15}.
struct Step {
  bool ok;
  int period;
  bool operator==(const Step& o) const { return ok == o.ok && period == o.period; }
};
std::ostream& operator<<(std::ostream& os, const Step& s) {
  return os << (s.ok ? "true " : "false ") << s.period;
}
Step Inc(unsigned short p) {
  bool ok = IncPeriod(&p);
  return {ok, p};
}
Step Dec(unsigned short p) {
  bool ok = DecPeriod(&p);
  return {ok, p};
}

// Loads Current as a general-ledger record with n periods a year would.
void UsePeriods(int n) {
  GeneralDataType rec;
  std::memset(&rec, 0, sizeof(rec));
  rec.Kind = MOD_GL;
  rec.GL.PeriodsPerYear = static_cast<uint16_t>(n);
  rec.GL.CurrentPeriod = 15;
  LoadCurrentData(&rec);
}

TEST(PeriodStepping, TwelveThirteenAndOnePeriodsAYear) {
  UsePeriods(12);
  EXPECT_EQ(Inc(12), (Step{true, 15}));
  EXPECT_EQ(Inc(26), (Step{true, 29}));
  EXPECT_EQ(Inc(40), (Step{false, 41}));  // advanced all the same
  for (int p : {0, 13, 14, 41}) EXPECT_EQ(Inc(p), (Step{false, p})) << p;
  EXPECT_EQ(Dec(15), (Step{true, 12}));
  EXPECT_EQ(Dec(29), (Step{true, 26}));
  EXPECT_EQ(Dec(1), (Step{false, 0}));
  for (int p : {0, 28, 41, 42}) EXPECT_EQ(Dec(p), (Step{false, p})) << p;
  int count = 0;
  unsigned short p = 1;
  do {
    ++count;
  } while (IncPeriod(&p));
  EXPECT_EQ(count, 36);

  // 41 is a real period with 13 a year: DecPeriod accepts it, IncPeriod stops below it.
  UsePeriods(13);
  EXPECT_EQ(Inc(13), (Step{true, 15}));
  EXPECT_EQ(Inc(40), (Step{true, 41}));
  EXPECT_EQ(Inc(41), (Step{false, 41}));
  EXPECT_EQ(Dec(41), (Step{true, 40}));
  EXPECT_EQ(Dec(15), (Step{true, 13}));

  UsePeriods(1);
  EXPECT_EQ(Inc(1), (Step{true, 15}));
  EXPECT_EQ(Inc(15), (Step{true, 29}));
  EXPECT_EQ(Inc(29), (Step{false, 30}));
  EXPECT_EQ(Dec(29), (Step{true, 15}));
  EXPECT_EQ(Dec(15), (Step{true, 1}));
  EXPECT_EQ(Dec(16), (Step{false, 16}));
}

TEST(PeriodNumbers, UserAndInternalNumbers) {
  EXPECT_EQ((std::vector<int>{UserPeriod(15, 12), UserPeriod(40, 12), UserPeriod(41, 12),
                              UserPeriod(27, 12), UserPeriod(5, 12), UserPeriod(41, 13)}),
            (std::vector<int>{1, 24, 0, 0, 0, 26}));
  // Out of range maps to n + 1 on purpose: 13 with 12 a year, the gap 14 with 13.
  EXPECT_EQ((std::vector<int>{InternalPeriod(1, 12), InternalPeriod(13, 12), InternalPeriod(0, 12),
                              InternalPeriod(25, 12), InternalPeriod(27, 13)}),
            (std::vector<int>{15, 29, 13, 13, 14}));
  for (int n = 1; n <= 13; ++n) {
    for (int u = 1; u <= 2 * n; ++u) EXPECT_EQ(UserPeriod(InternalPeriod(u, n), n), u) << n;
  }
}

class PeriodsTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    DeallocGeneralRecReadPtr();
    std::memset(&Current, 0, sizeof(Current));
    saved_today_ = TodaysDate;
    ASSERT_EQ(InitGeneralFile(), 1);
    GeneralDataType* rec = nullptr;
    ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, 0, false), 1);
  }
  void CloseLibraryFiles() override {
    TodaysDate = saved_today_;
    CloseGeneralFile();
    DeallocGeneralRecReadPtr();
  }
  void SetCurrentPeriod(uint16_t period) {
    GeneralDataType* rec = nullptr;
    ASSERT_EQ(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false), 1);
    rec->GL.CurrentPeriod = period;
    ASSERT_EQ(WrtGeneralDataPtr(nullptr, rec, 1, 0), 1);
  }
  // The range a code gives, starting from a marker range that codes the host fills keep.
  FromTo Range(int code) {
    FromTo range = {D(7, 4, 1776), D(7, 4, 1776)};
    SetDateRange(static_cast<int16_t>(code), &range);
    return range;
  }

  DatesType saved_today_;
};

TEST_F(PeriodsTest, OpenYearsAreSearchedBeforeTheOverlappingHistoryYear) {
  SetCurrentPeriod(16);  // so that January 1997 is not answered from Current
  EXPECT_EQ(WhichGLperiod(D(1, 15, 1997)), 15);  // also in period 1 (to 31 Jan 1997)
  EXPECT_EQ(WhichGLperiod(D(6, 15, 1996)), 1);   // period 1 spans 1996: the first match wins
  EXPECT_EQ(WhichGLperiod(D(12, 15, 1998)), 40);
  EXPECT_EQ(WhichGLperiod(D(2, 28, 1998)), 30);
  EXPECT_EQ(WhichGLperiod(D(12, 31, 1995)), 0);
  EXPECT_EQ(WhichGLperiod(D(1, 1, 1999)), kNoPeriod);

  // A date in the current period is answered from Current without a store call.
  uint64_t before = StoreCallCount();
  EXPECT_EQ(WhichGLperiod(D(2, 10, 1997)), 16);
  EXPECT_EQ(StoreCallCount(), before);

  EXPECT_EQ(Num(GetPeriodFrom(15)), 19970101);
  EXPECT_EQ(Num(GetPeriodTo(1)), 19970131);
  EXPECT_EQ(Num(GetPeriodTo(12)), 19961231);
  EXPECT_EQ(Num(GetPeriodFrom(42)), 0);
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(PeriodsTest, EveryDateRangeCode) {
  SetCurrentPeriod(20);         // June 1997
  TodaysDate = D(8, 14, 1997);  // a Thursday in period 22
  auto range = [this](int code) {
    FromTo r = Range(code);
    return std::vector<int>{Num(r.from), Num(r.to)};
  };
  const std::vector<int> kept = {17760704, 17760704};
  EXPECT_EQ(range(0), (std::vector<int>{19970101, 19981231}));
  for (int code : {1, 2, 3, 4, 14, 15, 16, 20, -1}) EXPECT_EQ(range(code), kept) << code;
  EXPECT_EQ(range(5), (std::vector<int>{19970601, 19970630}));
  EXPECT_EQ(range(6), (std::vector<int>{19970814, 19970814}));
  EXPECT_EQ(range(17), (std::vector<int>{19970814, 19970814}));
  EXPECT_EQ(range(7), (std::vector<int>{19970810, 19970814}));
  EXPECT_EQ(range(8), (std::vector<int>{19970801, 19970814}));
  EXPECT_EQ(range(9), (std::vector<int>{19970801, 19970814}));
  EXPECT_EQ(range(10), (std::vector<int>{19970701, 19970814}));
  EXPECT_EQ(range(11), (std::vector<int>{19970101, 19970814}));
  EXPECT_EQ(range(12), (std::vector<int>{19970401, 19970630}));
  EXPECT_EQ(range(13), (std::vector<int>{19970101, 19971231}));
  EXPECT_EQ(range(18), (std::vector<int>{19970101, 19970814}));
  EXPECT_EQ(range(19), (std::vector<int>{19970801, 19970831}));

  TodaysDate = D(8, 10, 1997);  // a Sunday: this week is one day
  EXPECT_EQ(range(7), (std::vector<int>{19970810, 19970810}));
  TodaysDate = D(2, 10, 1996);
  EXPECT_EQ(range(19), (std::vector<int>{19960201, 19960229}));
  // Today in no period: the period-to-date range is today alone.
  TodaysDate = D(3, 5, 2001);
  EXPECT_EQ(range(9), (std::vector<int>{20010305, 20010305}));
  EXPECT_TRUE(messages_.shown().empty());

  // Without a readable record every code gives the current period.
  DeallocGeneralRecReadPtr();
  g_szCompanyPath = "/nonexistent-company";
  EXPECT_EQ(range(6), (std::vector<int>{19970601, 19970630}));
  EXPECT_EQ(messages_.Numbers(), std::vector<int>{5502});
}

}  // namespace
