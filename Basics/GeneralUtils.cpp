// CGeneralUtils: a snapshot of the general-ledger record and the fiscal-year boundaries
// derived from it.
#include "GeneralUtils.h"

#include <cstring>

namespace {

DatesType DateOf(uint8_t day, uint8_t month, uint16_t year) {
  DatesType date;
  date.day = day;
  date.month = month;
  date.year = year;
  return date;
}

}  // namespace

CGeneralUtils::CGeneralUtils()
    : cached_record_(nullptr),
      end_payroll_year_{},
      begin_payroll_year_{},
      end_first_year_{},
      begin_first_year_{},
      end_second_year_{},
      begin_second_year_{},
      end_history_year_{},
      end_history_calendar_year_{},
      today_{},
      current_period_{} {
  std::memset(&record_, 0, sizeof(record_));
  ReFreshData();
}

CGeneralUtils::CGeneralUtils(const CGeneralUtils& other) = default;

CGeneralUtils& CGeneralUtils::operator=(const CGeneralUtils& other) = default;

CGeneralUtils::~CGeneralUtils() = default;

void CGeneralUtils::ReFreshData() {
  GeneralDataType* rec = nullptr;
  if (!GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false)) return;
  cached_record_ = rec;
  std::memcpy(&record_, rec, sizeof(record_));
  SetupDates();
}

void CGeneralUtils::SetupDates() {
  const GeneralLedgerRecord& gl = record_.GL;
  // A damaged count must not index past the calendar's 42 entries.
  unsigned n = gl.PeriodsPerYear > 13 ? 13 : gl.PeriodsPerYear;
  // The payroll year is the calendar year of the fiscal-year number, whatever the fiscal
  // calendar: payroll taxes run by calendar year.
  end_payroll_year_ = DateOf(31, 12, gl.FiscalYear);
  begin_payroll_year_ = DateOf(1, 1, gl.FiscalYear);
  end_first_year_ = gl.Calendar[14 + n].to;
  begin_first_year_ = gl.Calendar[15].from;
  end_second_year_ = gl.Calendar[28 + n].to;
  begin_second_year_ = gl.Calendar[29].from;
  end_history_year_ = gl.Calendar[n].to;
  end_history_calendar_year_ = DateOf(31, 12, end_history_year_.year);
  today_ = TodaysDate;
  current_period_ = gl.CurrentPeriod < 42 ? gl.Calendar[gl.CurrentPeriod] : FromTo{};
}

namespace {

unsigned PeriodsOf(const GeneralDataType& rec) {
  return rec.GL.PeriodsPerYear > 13 ? 13 : rec.GL.PeriodsPerYear;
}

}  // namespace

int CGeneralUtils::IsCurPeriodInFirstFiscalYear() {
  return CompareDates(current_period_.from, begin_first_year_) >= 0 &&
         CompareDates(current_period_.to, end_first_year_) <= 0;
}

int CGeneralUtils::IsCurPeriodInSecondFiscalYear() {
  return CompareDates(current_period_.from, begin_second_year_) >= 0 &&
         CompareDates(current_period_.to, end_second_year_) <= 0;
}

int CGeneralUtils::IsCurPeriodInLastPeriodOfFirstFiscalYear() {
  return DateInRange(record_.GL.Calendar[14 + PeriodsOf(record_)], current_period_.from) == 0;
}

// With fewer than two periods a year every period is both the last and the next-to-last.
int CGeneralUtils::IsCurPeriodInLastPeriodOfSecondFiscalYear() {
  unsigned n = PeriodsOf(record_);
  return n < 2 || CompareDates(current_period_.from, record_.GL.Calendar[28 + n].from) == 0;
}

int CGeneralUtils::IsCurPeriodInNextToLastPeriodOfSecondFiscalYear() {
  unsigned n = PeriodsOf(record_);
  return n < 2 || CompareDates(current_period_.from, record_.GL.Calendar[27 + n].from) == 0;
}

// No upper bound: a system date past the second open year still counts as in it.
int CGeneralUtils::IsCurSystemDateInSecondFiscalYear() {
  return CompareDates(today_, begin_second_year_) >= 0;
}

int CGeneralUtils::IsCurSystemDateInLastPeriodOfFirstFiscalYear() {
  return DateInRange(record_.GL.Calendar[14 + PeriodsOf(record_)], today_) == 0;
}
