// The host's ledger views of an open company: the trial balance from the journal rows,
// the invoices with what was paid on them, and the event log.
#ifndef BASICS_HOST_LEDGER_H_
#define BASICS_HOST_LEDGER_H_

#include <vector>

#include "zor_types.h"

#include "listing.h"
#include "outcome.h"

namespace host {

// What the trial balance covers: the user's period `period` (1 to twice the periods per
// year; 0 for none), or the dates from and to (both included), or everything.
struct TrialBalanceRange {
  int period = 0;
  bool has_from = false;
  DatesType from{};
  bool has_to = false;
  DatesType to{};
};
void SetTrialBalanceRange(const TrialBalanceRange& range);
// The balance of every account with amounts in the range, from the chart's period amounts
// (the net of each period the range covers), and the total line. The chart keeps amounts
// by period, so dates must begin and end periods; other dates, or a period that does not
// exist, fail out.
void TrialBalanceView(std::vector<Listing>* listings, Outcome& out);
// The same balance from the posted rows in the range, walked by account (row key 2) with
// their amounts as the library completes them, with the rows counted. A row counts when
// its transaction is posted and the row itself posts to the ledger (order rows, shadows and
// a cash-basis company's sales and purchases do not).
void TrialBalanceFromRowsView(std::vector<Listing>* listings, Outcome& out);
// Sales and purchase invoices in date order with their amounts, what was paid, the due
// date and the paid-in-full date (shadows left out).
void InvoicesView(std::vector<Listing>* listings, Outcome& out);
// The event log in card order: card, date, title, type, the transaction that raised the
// event and when it was completed.
void EventsView(std::vector<Listing>* listings, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_LEDGER_H_
