// The host's views of an open company, as listings: its cards and their lookups, the chart
// of accounts with the special accounts, the period calendar and the date ranges.
#ifndef BASICS_HOST_REPORT_H_
#define BASICS_HOST_REPORT_H_

#include <vector>

#include "listing.h"
#include "outcome.h"

namespace host {

// A view adds its listings; a file it cannot read is recorded in out as the failure.
using View = void (*)(std::vector<Listing>* listings, Outcome& out);

// Customers, vendors and employees with their record numbers, and the lookups between
// IDs, record numbers, GUIDs and names (including the not-found answers).
void CardsView(std::vector<Listing>* listings, Outcome& out);
// The chart as list rows, then the default cash, receivable, payable and retained-
// earnings accounts.
void AccountsView(std::vector<Listing>* listings, Outcome& out);
// The period calendar with internal and user numbers, then the ranges of the date-range
// codes.
void PeriodsView(std::vector<Listing>* listings, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_REPORT_H_
