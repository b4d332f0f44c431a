// Date operations of the utility library on DatesType (day, month, year): serial day
// numbers in the proleptic Gregorian calendar, stepping, comparison and the medium text.
// Pure functions; safe from any thread.

#include <cstdio>

#include "utility.h"

namespace {

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Days in a month; 0 for a month outside 1-12.
int DaysInMonth(int month, int year) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  if (month == 2 && IsLeapYear(year)) return 29;
  return kDays[month - 1];
}

// Days from 1 January of year 1 (day 1) to the given civil date, by the usual era
// arithmetic (400-year cycles of 146097 days, years counted from 1 March so that the leap
// day ends the year).
int64_t DaysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t year_of_era = year - era * 400;
  const int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  // era * 146097 + day_of_era counts from 1 March of year 0; 1 January of year 1 is day
  // 306 of that count.
  return era * 146097 + day_of_era - 305;
}

void CivilFromDays(int64_t serial, int& year, int& month, int& day) {
  const int64_t z = serial + 305;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t day_of_era = z - era * 146097;
  const int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int64_t mp = (5 * day_of_year + 2) / 153;
  day = static_cast<int>(day_of_year - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(year_of_era + era * 400 + (month <= 2 ? 1 : 0));
}

bool IsZeroDate(const DatesType& date) {
  return date.day == 0 && date.month == 0 && date.year == 0;
}

void SetFromSerial(DatesType& date, int64_t serial) {
  int year = 0;
  int month = 0;
  int day = 0;
  CivilFromDays(serial, year, month, day);
  // Years outside the 16-bit field cannot be kept; the date stays where it was.
  if (year < 0 || year > 0xFFFF) return;
  MakeDate(month, day, year, date);
}

// Moves the date by a number of months, the day clamped to the target month's last day.
void StepMonths(DatesType& date, int months) {
  int index = date.year * 12 + (date.month - 1) + months;  // months since year 0
  if (index < 0 || index / 12 > 0xFFFF) return;
  int year = index / 12;
  int month = index % 12 + 1;
  int last = DaysInMonth(month, year);
  int day = date.day > last ? last : date.day;
  MakeDate(month, day, year, date);
}

void Step(DatesType& date, int step, int direction) {
  // The zero date is "no date": stepping it leaves it so.
  if (IsZeroDate(date)) return;
  switch (step) {
    case kStepDay:
      SetFromSerial(date, DaysFromCivil(date.year, date.month, date.day) + direction);
      break;
    case kStepWeek:
      SetFromSerial(date, DaysFromCivil(date.year, date.month, date.day) + 7 * direction);
      break;
    case kStepMonth:
      if (date.month >= 1 && date.month <= 12) StepMonths(date, direction);
      break;
    case kStepYear:
      if (date.month >= 1 && date.month <= 12) StepMonths(date, 12 * direction);
      break;
    default:
      break;
  }
}

}  // namespace

void MakeDate(int month, int day, int year, DatesType& date) {
  date.day = static_cast<uint8_t>(day);
  date.month = static_cast<uint8_t>(month);
  date.year = static_cast<uint16_t>(year);
}

void IncDate(DatesType& date, int step) { Step(date, step, 1); }

void DecDate(DatesType& date, int step) { Step(date, step, -1); }

void EndOfMonth(DatesType& date) {
  int last = DaysInMonth(date.month, date.year);
  if (last != 0) date.day = static_cast<uint8_t>(last);
}

int32_t AbsDate(const DatesType& date) {
  if (IsZeroDate(date)) return 0;
  return static_cast<int32_t>(DaysFromCivil(date.year, date.month, date.day));
}

int DayOfWeek(int32_t abs_date) {
  // Serial day 1 (1 January of year 1) was a Monday.
  int day = abs_date % 7;
  return day < 0 ? day + 7 : day;
}

int CompareDates(const DatesType& a, const DatesType& b) {
  if (a.year != b.year) return a.year > b.year ? 1 : -1;
  if (a.month != b.month) return a.month > b.month ? 1 : -1;
  if (a.day != b.day) return a.day > b.day ? 1 : -1;
  return 0;
}

int DateInRange(const FromTo& range, const DatesType& date) {
  if (CompareDates(date, range.from) < 0) return -1;
  if (CompareDates(date, range.to) > 0) return 1;
  return 0;
}

bool IsLegalDate(const DatesType& date) {
  if (date.year < 1 || date.year > 9999) return false;
  int last = DaysInMonth(date.month, date.year);
  return last != 0 && date.day >= 1 && date.day <= last;
}

int MediumDateText(const DatesType& date, char* out, size_t capacity) {
  static const char* const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (out == nullptr || capacity == 0) return 0;
  out[0] = '\0';
  if (IsZeroDate(date)) return 0;
  const char* month = date.month >= 1 && date.month <= 12 ? kMonths[date.month - 1] : "???";
  char text[32];
  int length = std::snprintf(text, sizeof text, "%s %02u, %04u", month, unsigned{date.day},
                             unsigned{date.year});
  if (length < 0) return 0;
  size_t copy =
      static_cast<size_t>(length) < capacity - 1 ? static_cast<size_t>(length) : capacity - 1;
  std::memcpy(out, text, copy);
  out[copy] = '\0';
  return static_cast<int>(copy);
}
