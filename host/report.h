// The host's views of an open company, as listings: its cards and their lookups, the chart
// of accounts with the special accounts, the period calendar and the date ranges.
#ifndef BASICS_HOST_REPORT_H_
#define BASICS_HOST_REPORT_H_

#include <vector>

#include "zor_types.h"

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

// Which transactions JournalView lists: one journal (-1 every one; 12 the second sales
// journal, 3 both sales journals), and the dates from and to, both included.
struct JournalFilter {
  int journal = -1;
  bool has_from = false;
  DatesType from{};
  bool has_to = false;
  DatesType to{};
};
void SetJournalFilter(const JournalFilter& filter);
// The transactions in date order (key string, journal, date, reference, card, amount,
// lines, description), then what the inventory tags say their item rows cost.
void JournalView(std::vector<Listing>* listings, Outcome& out);
// The items and sub-items with their quantities on sales and purchase orders.
void ItemsView(std::vector<Listing>* listings, Outcome& out);
// Projects with their estimate sums, phases and cost codes.
void JobsView(std::vector<Listing>* listings, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_REPORT_H_
