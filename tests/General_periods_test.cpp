// Accounting periods: stepping for 12, 13 and 1 periods a year, and the user and internal
// numbers of a period.
#include <vector>

#include <gtest/gtest.h>

#include "General.h"

namespace {

using Ints = std::vector<int>;

void UsePeriods(int n) {  // loads Current as a general-ledger record with n periods would
  GeneralDataType rec = {};
  rec.Kind = MOD_GL;
  rec.GL.PeriodsPerYear = static_cast<uint16_t>(n);
  rec.GL.CurrentPeriod = 15;
  LoadCurrentData(&rec);
}

TEST(PeriodStepping, TwelveThirteenAndOnePeriodsAYear) {
  // Periods a year, IncPeriod (1) or DecPeriod (-1), the period given, answer, period left.
  // 40 with 12 a year answers false but advances all the same; 41 is real with 13 a year.
  const int kSteps[][5] = {
      {12, 1, 12, true, 15},   {12, 1, 26, true, 29},   {12, 1, 40, false, 41},
      {12, 1, 0, false, 0},    {12, 1, 13, false, 13},  {12, 1, 14, false, 14},
      {12, 1, 41, false, 41},  {12, -1, 15, true, 12},  {12, -1, 29, true, 26},
      {12, -1, 1, false, 0},   {12, -1, 0, false, 0},   {12, -1, 28, false, 28},
      {12, -1, 41, false, 41}, {12, -1, 42, false, 42}, {13, 1, 13, true, 15},
      {13, 1, 40, true, 41},   {13, 1, 41, false, 41},  {13, -1, 41, true, 40},
      {13, -1, 15, true, 13},  {1, 1, 1, true, 15},     {1, 1, 15, true, 29},
      {1, 1, 29, false, 30},   {1, -1, 29, true, 15},   {1, -1, 15, true, 1},
      {1, -1, 16, false, 16}};
  for (const auto& s : kSteps) {
    UsePeriods(s[0]);
    unsigned short p = static_cast<unsigned short>(s[2]);
    const bool ok = s[1] > 0 ? IncPeriod(&p) : DecPeriod(&p);
    EXPECT_EQ((Ints{ok, p}), (Ints{s[3], s[4]})) << s[0] << " a year, " << s[2] << " by " << s[1];
  }
  UsePeriods(12);
  int count = 1;
  for (unsigned short p = 1; IncPeriod(&p);) ++count;
  EXPECT_EQ(count, 36);
}

TEST(PeriodNumbers, UserAndInternalNumbers) {
  EXPECT_EQ((Ints{UserPeriod(15, 12), UserPeriod(40, 12), UserPeriod(41, 12), UserPeriod(27, 12),
                  UserPeriod(5, 12), UserPeriod(41, 13)}),
            (Ints{1, 24, 0, 0, 0, 26}));
  // Out of range maps to n + 1 on purpose: 13 with 12 a year, the gap 14 with 13.
  EXPECT_EQ((Ints{InternalPeriod(1, 12), InternalPeriod(13, 12), InternalPeriod(0, 12),
                  InternalPeriod(25, 12), InternalPeriod(27, 13)}),
            (Ints{15, 29, 13, 13, 14}));
  for (int n = 1; n <= 13; ++n) {
    for (int u = 1; u <= 2 * n; ++u) EXPECT_EQ(UserPeriod(InternalPeriod(u, n), n), u) << n;
  }
}

}  // namespace
