// The `aging` command: what customers owe and what is owed to vendors, by how long it is
// past due. Works on the open company through read-only handles of its own.
#ifndef BASICS_HOST_AGING_H_
#define BASICS_HOST_AGING_H_

#include <vector>

#include "listing.h"
#include "outcome.h"

namespace host {

// Receivables and payables aged at today: every invoice (sales, both journals) and bill
// (purchases) dated today or earlier and not paid in full by today, with its open balance
// (amount less what is paid on it) in the column of the days since its due date: 0-30 (not
// yet due included), 31-60, 61-90 and over 90. One row per card in ID order with its open
// invoices, then the totals. Shadows are left out.
void AgingView(std::vector<Listing>* listings, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_AGING_H_
