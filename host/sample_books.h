// The demo's items, jobs, transactions and inventory tags (see sample_books.cpp).
#ifndef BASICS_HOST_SAMPLE_BOOKS_H_
#define BASICS_HOST_SAMPLE_BOOKS_H_

#include "outcome.h"

namespace host {

// Sets the open company's cash-basis switch and switches on the events of invoices, bills,
// receipts, payments, orders and payroll (alarms before due dates), and saves them with the
// company. On failure records the reason in out.
bool WriteSampleSettings(bool cash_basis, Outcome& out);

// Writes into the open company, whose chart and cards the sample already holds: four items
// and the master's sub-items, two jobs with phases, cost codes and estimates, and the
// quarter's transactions (this month and the two before) posted one by one with the costs
// of their item rows. Each master file's part is written in one batch, each transaction in
// one; on failure records the reason in out (the transactions posted before stay).
bool WriteSampleBooks(Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_SAMPLE_BOOKS_H_
