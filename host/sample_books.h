// The demo's items, jobs, transactions and inventory tags (see sample_books.cpp).
#ifndef BASICS_HOST_SAMPLE_BOOKS_H_
#define BASICS_HOST_SAMPLE_BOOKS_H_

#include "outcome.h"

namespace host {

// Writes into the open company, whose chart and cards the sample already holds: four items
// and the master's sub-items, two jobs with phases, cost codes and estimates, last month's
// and this month's transactions of every journal kind, and the inventory tags of their
// costed rows. Each file's part is written in one batch, the transactions and tags in one;
// on failure records the reason in out.
bool WriteSampleBooks(Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_SAMPLE_BOOKS_H_
