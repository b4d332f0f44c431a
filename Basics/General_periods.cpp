// Accounting periods: stepping through the period sets of Current, the translation
// between internal and user period numbers, the period of a date, the calendar's dates
// and the standard report date ranges.
#include <cstring>

#include "General.h"

namespace {

// Blocks of the internal numbering: the history year, the first and second open years.
constexpr unsigned short kHistoryFirst = 1;
constexpr unsigned short kFirstYearFirst = 15;
constexpr unsigned short kSecondYearFirst = 29;
constexpr unsigned short kHistoryGap = 14;
constexpr int kCalendarEntries = 42;

bool InSet(int set, unsigned short period) {
  if (period >= 48) return false;
  return (Current.PeriodSets[set][period / 8] & (1u << (period % 8))) != 0;
}

// The general-ledger record for reading. On failure the scratch buffer (whatever it
// holds) and false.
bool ReadGeneralLedger(GeneralDataType** rec) {
  return GetGeneralDataPtr(nullptr, rec, MOD_GL, kGenReadForReading, false) != 0;
}

// Steps down from period (already one below a block's first real period) into the block
// below, whose set is lower_set; false and period unchanged when that set is empty.
bool FallBackInto(unsigned short* period, int lower_set, unsigned short start) {
  for (unsigned short p = start; p > 0; --p) {
    if (InSet(lower_set, p)) {
      *period = p;
      return true;
    }
  }
  return false;
}

uint8_t QuarterFirstMonth(uint8_t month) {
  if (month < 1 || month > 12) return month;
  return static_cast<uint8_t>((month - 1) / 3 * 3 + 1);
}

}  // namespace

bool IncPeriod(unsigned short* period) {
  if (period == nullptr) return false;
  unsigned short p = *period;
  if (p >= kHistoryFirst && p <= 13) {
    if (!InSet(0, p)) return false;
    *period = InSet(0, p + 1) ? p + 1 : kFirstYearFirst;
    return true;
  }
  if (p >= kFirstYearFirst && p <= 27) {
    if (!InSet(1, p)) return false;
    *period = InSet(1, p + 1) ? p + 1 : kSecondYearFirst;
    return true;
  }
  if (p >= kSecondYearFirst && p <= 40) {
    if (!InSet(2, p)) return false;
    // Past the second open year's last period the value is advanced all the same; callers
    // stop on false and do not use it.
    *period = p + 1;
    return InSet(2, p + 1);
  }
  return false;
}

bool DecPeriod(unsigned short* period) {
  if (period == nullptr) return false;
  unsigned short p = *period;
  if (p >= kHistoryFirst && p <= 13) {
    if (!InSet(0, p)) return false;
    *period = p - 1;
    return InSet(0, p - 1);
  }
  if (p >= kFirstYearFirst && p <= 27) {
    if (!InSet(1, p)) return false;
    if (InSet(1, p - 1)) {
      *period = p - 1;
      return true;
    }
    return FallBackInto(period, 0, p - 1);
  }
  // 41 is accepted here although IncPeriod stops below it: with 13 periods a year it is a
  // real period that has a predecessor but no successor.
  if (p >= kSecondYearFirst && p <= 41) {
    if (!InSet(2, p)) return false;
    if (InSet(2, p - 1)) {
      *period = p - 1;
      return true;
    }
    return FallBackInto(period, 1, p - 1);
  }
  return false;
}

unsigned short UserPeriod(unsigned short internal, unsigned short periods_per_year) {
  int p = internal;
  int n = periods_per_year;
  if (p > n + 28) return 0;
  if (p >= 29) return static_cast<unsigned short>(p + n - 28);
  if (p >= 15 && p <= n + 14) return static_cast<unsigned short>(p - 14);
  return 0;
}

unsigned short InternalPeriod(unsigned short user, unsigned short periods_per_year) {
  int u = user;
  int n = periods_per_year;
  // An out-of-range user period maps to n + 1 on purpose: the unused tail of the history
  // block, or the gap 14 with 13 periods a year; neither is ever a real period.
  if (u < 1 || u > 2 * n) return static_cast<unsigned short>(n + 1);
  if (u <= n) return static_cast<unsigned short>(u + 14);
  return static_cast<unsigned short>(u + 28 - n);
}

bool IsCurPeriod(GeneralDataType* gl_record, DatesType date, unsigned short period) {
  if (gl_record == nullptr) return false;
  if (period == 0) return CompareDates(gl_record->GL.Calendar[1].from, date) == 1;
  if (period < kCalendarEntries) return DateInRange(gl_record->GL.Calendar[period], date) == 0;
  return false;
}

unsigned short WhichGLperiod(DatesType date) {
  if (DateInRange(Current.CurrentPeriodRange, date) == 0) return Current.CurrentPeriod;
  // Without the record there is no calendar to search: the scratch buffer handed out on
  // a failed read may hold another kind's bytes.
  GeneralDataType* rec = nullptr;
  if (!ReadGeneralLedger(&rec) || rec == nullptr) return kNoPeriod;
  // The open years first: where entries overlap (the default calendar's period 1 and 15)
  // the open year wins.
  unsigned short p = kFirstYearFirst;
  do {
    if (IsCurPeriod(rec, date, p)) return p;
  } while (IncPeriod(&p));
  p = kHistoryFirst;
  do {
    if (IsCurPeriod(rec, date, p)) return p;
  } while (IncPeriod(&p) && p < kHistoryGap);
  if (IsCurPeriod(rec, date, 0)) return 0;
  return kNoPeriod;
}

DatesType GetPeriodFrom(unsigned short period) {
  GeneralDataType* rec = nullptr;
  if (!ReadGeneralLedger(&rec) || period >= kCalendarEntries) return DatesType{};
  return rec->GL.Calendar[period].from;
}

DatesType GetPeriodTo(unsigned short period) {
  GeneralDataType* rec = nullptr;
  if (!ReadGeneralLedger(&rec) || period >= kCalendarEntries) return DatesType{};
  return rec->GL.Calendar[period].to;
}

void SetDateRange(int16_t code, FromTo* range) {
  if (range == nullptr) return;
  GeneralDataType* rec = nullptr;
  if (!ReadGeneralLedger(&rec)) {
    *range = Current.CurrentPeriodRange;
    return;
  }
  const FromTo* calendar = rec->GL.Calendar;
  unsigned n = rec->GL.PeriodsPerYear;
  unsigned short current = Current.CurrentPeriod;
  DatesType today = TodaysDate;
  switch (code) {
    case 0:  // both open years
      range->from = calendar[kFirstYearFirst].from;
      range->to = calendar[n + 28 < kCalendarEntries ? n + 28 : kCalendarEntries - 1].to;
      break;
    case 5:  // the current period
      if (current < kCalendarEntries) *range = calendar[current];
      break;
    case 6:  // today
    case 17:
      range->from = today;
      range->to = today;
      break;
    case 7: {  // this week to date, from the week's first day
      DatesType from = today;
      for (int i = 0; i < 7 && DayOfWeek(AbsDate(from)) != 0; ++i) DecDate(from, kStepDay);
      range->from = from;
      range->to = today;
      break;
    }
    case 8:  // this month to date
      range->from = today;
      range->from.day = 1;
      range->to = today;
      break;
    case 9: {  // this period to date
      // A today in no period (after the second open year, or in a gap of the calendar) has
      // no period start to go back to: the range is today alone.
      unsigned short period = WhichGLperiod(today);
      range->from = period < kCalendarEntries ? calendar[period].from : today;
      range->to = today;
      break;
    }
    case 10:  // this quarter to date
      range->from = today;
      range->from.day = 1;
      range->from.month = QuarterFirstMonth(today.month);
      range->to = today;
      break;
    case 11:  // this calendar year to date
      range->from = today;
      range->from.day = 1;
      range->from.month = 1;
      range->to = today;
      break;
    case 12: {  // the quarter of the current period's end
      DatesType end = Current.CurrentPeriodRange.to;
      range->from = end;
      range->from.day = 1;
      range->from.month = QuarterFirstMonth(end.month);
      range->to = end;
      if (end.month >= 1 && end.month <= 12) {
        static const uint8_t kLastMonthDay[4] = {31, 30, 30, 31};
        int quarter = (end.month - 1) / 3;
        range->to.month = static_cast<uint8_t>(quarter * 3 + 3);
        range->to.day = kLastMonthDay[quarter];
      }
      break;
    }
    case 13: {  // the calendar year of the current period's end
      DatesType end = Current.CurrentPeriodRange.to;
      range->from = end;
      range->from.month = 1;
      range->from.day = 1;
      range->to = end;
      range->to.month = 12;
      range->to.day = 31;
      break;
    }
    case 18:  // the first open year to date
      range->from = calendar[kFirstYearFirst].from;
      range->to = today;
      break;
    case 19:  // this whole month
      range->from = today;
      range->from.day = 1;
      range->to = range->from;
      IncDate(range->to, kStepMonth);
      DecDate(range->to, kStepDay);
      break;
    default:  // 1 to 4, 14 to 16 and unknown codes: the host fills the range itself
      break;
  }
}
