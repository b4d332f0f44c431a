// Fiscal-year utilities: CGeneralUtils takes a snapshot of the general-ledger record and
// answers the payroll year, the two open fiscal years, the current period and today, and
// where the current period and today lie in them. Reads the general file only when built
// or refreshed. Builds on General. A value object; not shared between threads.
#ifndef BASICS_GENERALUTILS_H_
#define BASICS_GENERALUTILS_H_

#include "General.h"

class CGeneralUtils {
 public:
  // Refreshes at once; when the record cannot be read every date stays zero.
  CGeneralUtils();
  // Copies the whole snapshot; the two objects are independent afterwards.
  CGeneralUtils(const CGeneralUtils& other);
  CGeneralUtils& operator=(const CGeneralUtils& other);
  virtual ~CGeneralUtils();

  // Reads the general-ledger record (kind 4, mode 0); on success copies it and derives the
  // dates (today from TodaysDate); on failure keeps the previous snapshot unchanged (the
  // read failure shows 5502).
  void ReFreshData();

  // The snapshot's values. The references point into this object: valid while it lives,
  // and what they see changes with the next ReFreshData or assignment.
  DatesType& GetEndPayrollYrDate() { return end_payroll_year_; }
  DatesType& GetBeginPayrollYrDate() { return begin_payroll_year_; }
  DatesType& GetEndFirstFiscalYrDate() { return end_first_year_; }
  DatesType& GetBeginFirstFiscalYrDate() { return begin_first_year_; }
  DatesType& GetEndSecondFiscalYrDate() { return end_second_year_; }
  DatesType& GetBeginSecondFiscalYrDate() { return begin_second_year_; }
  DatesType& GetTodaysDate() { return today_; }
  FromTo& GetCurrentFiscalPeriodFromTo() { return current_period_; }
  FromTo& GetFirstPeriodOfFiscalYearOne() { return record_.GL.Calendar[15]; }
  FromTo& GetFirstPeriodOfFiscalYearTwo() { return record_.GL.Calendar[29]; }

  // Answers (1 or 0) from the snapshot alone; nothing is read.
  int IsCurPeriodInFirstFiscalYear();
  int IsCurPeriodInSecondFiscalYear();
  int IsCurPeriodInLastPeriodOfFirstFiscalYear();
  int IsCurPeriodInLastPeriodOfSecondFiscalYear();
  int IsCurPeriodInNextToLastPeriodOfSecondFiscalYear();
  int IsCurSystemDateInSecondFiscalYear();
  int IsCurSystemDateInLastPeriodOfFirstFiscalYear();

 private:
  void SetupDates();

  GeneralDataType* cached_record_;       // the cache's record last handed out
  GeneralDataType record_;               // own copy taken at the last refresh
  DatesType end_payroll_year_;           // 31 December of the fiscal year
  DatesType begin_payroll_year_;         // 1 January of the fiscal year
  DatesType end_first_year_;             // to date of period 14 + n
  DatesType begin_first_year_;           // from date of period 15
  DatesType end_second_year_;            // to date of period 28 + n
  DatesType begin_second_year_;          // from date of period 29
  DatesType end_history_year_;           // to date of period n
  DatesType end_history_calendar_year_;  // 31 December of that date's year
  DatesType today_;
  FromTo current_period_;  // calendar entry of the current period
};

#endif  // BASICS_GENERALUTILS_H_
