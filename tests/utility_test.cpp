// The value helpers of the utility library: dates, money rounding at the half-cent, the
// bounded string helpers, CString's printf and insert formatting, and GUIDs.
#include <cmath>
#include <cstring>
#include <iterator>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "utility.h"

namespace {

DatesType D(int month, int day, int year) {
  DatesType date{};
  MakeDate(month, day, year, date);
  return date;
}

std::string Text(const DatesType& date) {
  char text[32];
  MediumDateText(date, text, sizeof text);
  return text;
}

DatesType Stepped(DatesType date, int step, int times) {
  for (int i = 0; i < times; ++i) IncDate(date, step);
  for (int i = 0; i > times; --i) DecDate(date, step);
  return date;
}

TEST(Dates, StepsClampToTheMonthsEndAndCrossLeapDays) {
  EXPECT_EQ(Text(Stepped(D(1, 31, 2024), kStepMonth, 1)), "Feb 29, 2024");
  EXPECT_EQ(Text(Stepped(D(1, 31, 2023), kStepMonth, 1)), "Feb 28, 2023");
  EXPECT_EQ(Text(Stepped(D(3, 31, 2023), kStepMonth, -1)), "Feb 28, 2023");
  EXPECT_EQ(Text(Stepped(D(12, 15, 2023), kStepMonth, 1)), "Jan 15, 2024");
  EXPECT_EQ(Text(Stepped(D(1, 15, 2024), kStepMonth, -1)), "Dec 15, 2023");
  EXPECT_EQ(Text(Stepped(D(2, 29, 2024), kStepYear, 1)), "Feb 28, 2025");
  EXPECT_EQ(Text(Stepped(D(1, 31, 2023), kStepMonth, 2)), "Mar 28, 2023") << "clamped, not carried";
  EXPECT_EQ(Text(Stepped(D(2, 28, 2024), kStepDay, 1)), "Feb 29, 2024");
  EXPECT_EQ(Text(Stepped(D(2, 28, 1900), kStepDay, 1)), "Mar 01, 1900");
  EXPECT_EQ(Text(Stepped(D(1, 1, 2024), kStepDay, -1)), "Dec 31, 2023");
  EXPECT_EQ(Text(Stepped(D(12, 28, 2023), kStepWeek, 1)), "Jan 04, 2024");
  EXPECT_EQ(Text(Stepped(D(3, 3, 2024), kStepWeek, -1)), "Feb 25, 2024");
  EXPECT_EQ(AbsDate(Stepped(DatesType{}, kStepDay, 1)), 0) << "the zero date stays no date";
  DatesType end = D(2, 3, 2024);
  EndOfMonth(end);
  EXPECT_EQ(end.day, 29);
}

TEST(Dates, SerialNumbersDaysOfTheWeekTextAndToday) {
  EXPECT_EQ(AbsDate(D(1, 1, 1)), 1);
  EXPECT_EQ(AbsDate(D(1, 1, 1970)), 719163);
  EXPECT_EQ(DayOfWeek(AbsDate(D(1, 1, 1))), 1);       // Monday
  EXPECT_EQ(DayOfWeek(AbsDate(D(1, 4, 2026))), 0);    // Sunday
  EXPECT_EQ(DayOfWeek(AbsDate(D(12, 31, 9999))), 5);  // Friday
  // Day steps and serial numbers agree over three years with 2000's leap day.
  DatesType walk = D(1, 1, 1999);
  for (int32_t serial = AbsDate(walk); serial < AbsDate(D(1, 1, 2002)); ++serial) {
    ASSERT_EQ(AbsDate(walk), serial);
    ASSERT_TRUE(IsLegalDate(walk));
    IncDate(walk, kStepDay);
  }
  char small[7];
  EXPECT_EQ(MediumDateText(D(1, 5, 2026), small, sizeof small), 6);
  EXPECT_STREQ(small, "Jan 05");
  EXPECT_EQ(Text(DatesType{}), "");
  // 2024-02-29 12:00 UTC: the local date is the 29th in every zone within 11 hours.
  SetClock([] { return time_t{1709208000}; });
  EXPECT_EQ(Text(SystemDate()), "Feb 29, 2024");
  SetClock(nullptr);
  EXPECT_NEAR(static_cast<double>(ClockNow()), static_cast<double>(time(nullptr)), 5.0);
  EXPECT_TRUE(IsLegalDate(TodaysDate)) << "set when the library loads";
}

TEST(Dates, ComparisonRangesWithBothEndsAndLegality) {
  EXPECT_EQ(CompareDates(D(1, 1, 2024), D(12, 31, 2023)), 1);
  EXPECT_EQ(CompareDates(D(2, 1, 2024), D(1, 31, 2024)), 1);
  EXPECT_EQ(CompareDates(D(1, 30, 2024), D(1, 31, 2024)), -1);
  EXPECT_EQ(CompareDates(D(5, 5, 2024), D(5, 5, 2024)), 0);
  FromTo range{D(1, 1, 2024), D(3, 31, 2024)};
  EXPECT_EQ(DateInRange(range, D(12, 31, 2023)), -1);
  EXPECT_EQ(DateInRange(range, D(1, 1, 2024)), 0);
  EXPECT_EQ(DateInRange(range, D(3, 31, 2024)), 0);
  EXPECT_EQ(DateInRange(range, D(4, 1, 2024)), 1);
  EXPECT_TRUE(IsLegalDate(D(2, 29, 2024)));
  const DatesType bad[] = {D(2, 29, 2023), D(2, 29, 1900), D(4, 31, 2024), D(13, 1, 2024),
                           D(1, 0, 2024),  D(1, 1, 0),     D(1, 1, 10000), DatesType{}};
  for (size_t i = 0; i < std::size(bad); ++i) EXPECT_FALSE(IsLegalDate(bad[i])) << i;
}

TEST(Money, RoundsAtTheHalfCentAndAlignsToTheRight) {
  // Half away from zero by the decimal value, so 2.675 (stored as 2.67499...) gives 2.68.
  // clang-format off
  const double cases[][2] = {{2.675, 2.68}, {-2.675, -2.68}, {1.005, 1.01}, {0.125, 0.13},
      {0.005, 0.01}, {-0.005, -0.01}, {0.0051, 0.01}, {0.00499, 0}, {0.0049999999, 0},
      {-0.0049, 0}, {2.674999, 2.67}, {9.995, 10}, {-9.995, -10}, {1234.5, 1234.5},
      {1000000000000.005, 1000000000000.01}, {1000000000000.004, 1e12}, {1e20, 1e20},
      {1e-300, 0}, {0, 0}, {0.01, 0.01}, {0.1 + 0.2, 0.3}, {0.1 + 0.2 - 0.3, 0}};
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(Round(c[0]), c[1]) << c[0];
    EXPECT_EQ(IsZero(c[0]), c[1] == 0) << c[0];
  }
  EXPECT_FALSE(std::signbit(Round(-0.001))) << "a negative amount that rounds away is plain 0";
  auto text_of = [](const char* before, double amount, int width, char neg_sign) {
    char out[64];
    sstrcpy(out, before, sizeof out);
    AppendRtoString(out, amount, width, width, neg_sign);
    return std::string(out);
  };
  EXPECT_EQ(text_of("Total:", 1234.567, 10, '-'), "Total:   1234.57");
  EXPECT_EQ(text_of("", -12.5, 8, '-'), "  12.50-");
  EXPECT_EQ(text_of("", -12.5, 8, '\0'), "   12.50");
  EXPECT_EQ(text_of("", 123456.78, 6, '-'), "******");
  EXPECT_EQ(text_of("", -0.001, 5, '-'), " 0.00");
}

TEST(Strings, BoundedCopiesTrimAndCompareStr) {
  char buffer[6];
  sstrcpy(buffer, "abcdefgh", sizeof buffer);
  EXPECT_STREQ(buffer, "abcde");
  sstrcpy(buffer, nullptr, sizeof buffer);
  EXPECT_STREQ(buffer, "");
  sstrcpy(buffer, "ab", sizeof buffer);
  sstrcat(buffer, "cdefg", sizeof buffer);
  EXPECT_STREQ(buffer, "abcde");
  sstrcat(buffer, "z", sizeof buffer);
  EXPECT_STREQ(buffer, "abcde");
  std::memset(buffer, 'x', sizeof buffer);  // unterminated: cut at its capacity
  sstrcat(buffer, "z", sizeof buffer);
  EXPECT_EQ(buffer[5], '\0');
  FixedString<5> fixed{};
  Assign(fixed, "abcdef");
  EXPECT_STREQ(fixed, "abcd");
  Assign(fixed, "abcdef", 2);
  Append(fixed, "xyz");
  EXPECT_STREQ(fixed, "abxy");
  char text[32] = " \t 1100  Cash \t ";
  EXPECT_STREQ(Trim(text), "1100  Cash");
  char blank[8] = "  \t ";
  EXPECT_STREQ(Trim(blank), "");
  EXPECT_EQ(Trim(nullptr), nullptr);

  EXPECT_LT(CompareStr("ABC", "ABD", 20), 0);
  EXPECT_GT(CompareStr("abc", "ABC", 20), 0) << "case matters";
  EXPECT_LT(CompareStr("AB", "ABC", 20), 0) << "a prefix sorts first";
  EXPECT_EQ(CompareStr("ABCDEF", "ABCXYZ", 3), 0) << "only n characters count";
  EXPECT_EQ(CompareStr("AB\0X", "AB\0Y", 20), 0) << "the terminator ends the comparison";
  EXPECT_GT(CompareStr("\xE9", "z", 20), 0) << "bytes compare unsigned";
  EXPECT_LT(CompareStr(nullptr, "A", 20), 0);
}

TEST(CStringFormat, PrintfOfAnyLengthAndNumberedInserts) {
  CString text;
  text.Format("%s-%05d-%.2f", "ID", 42, 3.14159);
  EXPECT_EQ(text, "ID-00042-3.14");
  text.Format("<%s>", std::string(1000, 'y').c_str());
  EXPECT_EQ(text.GetLength(), 1002);
  // The assertion report: %3 is read as an int, the others as strings, in number order.
  text.FormatMessage("Failed!%n%nFile:\t%2%nLine:\t%3!d!%nCode:\t%4%n%nGetLastError: %1",
                     "No such file", "journldb.cpp", 512, "row != nullptr");
  EXPECT_EQ(text.str(), std::string("Failed!\n\nFile:\tjournldb.cpp\nLine:\t512\n"
                                    "Code:\trow != nullptr\n\nGetLastError: No such file"));
  text.FormatMessage("%2 before %1, 100%% %1", "one", "two");
  EXPECT_EQ(text, "two before one, 100% one");
  text.FormatMessage("%1!5.1f!|%2!-4s!|%3!x!|%4!ld!|%5", 2.25, "ab", 255u, -7L, nullptr);
  EXPECT_EQ(text, "  2.2|ab  |ff|-7|");
  text.FormatMessage("tab%tend%0 ignored");
  EXPECT_EQ(text, "tab\tend");
  text.FormatMessage("[%1!n!][%1!*d!]", "safe");
  EXPECT_EQ(text, "[safe][safe]") << "a conversion that cannot be passed safely is a string";
  text.FormatMessage("%q%");
  EXPECT_EQ(text, "%q%");
}

TEST(Guids, RandomVersionFourAndTheirTextForm) {
  GUID guid{};
  EXPECT_TRUE(IsNullGUID(guid));
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    AssignGUID(guid);
    EXPECT_EQ(guid.Data3 >> 12, 4) << "version 4";
    EXPECT_EQ(guid.Data4[0] & 0xC0, 0x80) << "RFC 4122 variant";
    seen.insert(GUIDToString(guid));
  }
  EXPECT_EQ(seen.size(), 1000u);
  GUID fixed{0x01234567, 0x89AB, 0x4DEF, {0x80, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xFF}};
  EXPECT_EQ(GUIDToString(fixed), "{01234567-89AB-4DEF-8001-0203040506FF}");
}

}  // namespace
