// The `verify` command: checks that a company's books hold together. Works on the open
// company through read-only handles of its own; single-threaded.
#ifndef BASICS_HOST_VERIFY_H_
#define BASICS_HOST_VERIFY_H_

#include <string>
#include <vector>

#include "outcome.h"

namespace host {

// Checks the open company in dir and adds one line to *problems for everything wrong:
// - every transaction is whole (a header with its main row and distribution lines 1 to n
//   without a gap; no row without its header) and balanced (fIsJrnlBalanced);
// - post order numbers are unique, and transaction numbers unique per journal and period
//   (the two sales journals share one sequence);
// - every account's period amounts in the chart equal what its ledger rows add up to;
// - the store is sound (its own integrity check, checked first; quick: without comparing
//   every index with its table, which on a large store takes most of the time).
// Of each kind of problem the first few are told and the rest counted. A file that
// cannot be read fails out instead.
void VerifyBook(const std::string& dir, bool quick, std::vector<std::string>* problems,
                Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_VERIFY_H_
