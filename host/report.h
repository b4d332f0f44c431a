// The host's printed views of an open company: its cards and their lookups, the chart of
// accounts with the special accounts, the period calendar and the date ranges. Each
// appends its text to out; a file that cannot be read is recorded in out as a failure.
#ifndef BASICS_HOST_REPORT_H_
#define BASICS_HOST_REPORT_H_

#include "outcome.h"

namespace host {

// Customers, vendors and employees with their record numbers, and the lookups between
// IDs, record numbers, GUIDs and names (including the not-found answers).
void PrintCards(Outcome& out);
// The chart as list rows, then the default cash, receivable, payable and retained-
// earnings accounts.
void PrintAccounts(Outcome& out);
// The period calendar with internal and user numbers, then the ranges of the date-range
// codes.
void PrintPeriods(Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_REPORT_H_
