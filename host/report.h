// The host's printed views of an open company: its cards and their lookups, the chart of
// accounts with the special accounts, the period calendar and the date ranges.
#ifndef BASICS_HOST_REPORT_H_
#define BASICS_HOST_REPORT_H_

namespace host {

// Customers, vendors and employees with their record numbers, and the lookups between
// IDs, record numbers, GUIDs and names (including the not-found answers).
void PrintCards();
// The chart as list rows, then the default cash, receivable, payable and retained-
// earnings accounts.
void PrintAccounts();
// The period calendar with internal and user numbers, then the ranges of the date-range
// codes.
void PrintPeriods();

}  // namespace host

#endif  // BASICS_HOST_REPORT_H_
