// The period amounts of the chart of accounts, as the host keeps them: for every account
// and period index (0 to 41) the debits of its ledger rows (the record's first amount), its
// credits (the second, as a positive number) and the net (the third, which the library's
// balance sums read). Posting changes them inside the transaction's own batch, so that the
// chart and the rows commit together; verify recomputes them from the rows. Builds on the
// journal navigator and the chart file. Works on the open company; single-threaded.
#ifndef BASICS_HOST_CHART_NETS_H_
#define BASICS_HOST_CHART_NETS_H_

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "Basics.h"

namespace host {

constexpr int kChartPeriods = 42;

// Whether a row counts in the ledger: an inventory cost row (kinds 7 and 8) always, any
// other row when it posts to the ledger itself and its transaction is posted (header_posted).
bool RowPostsToLedger(const JrnlRowType& row, bool header_posted);

// Period amounts of some rows, by account record number and period index.
class PeriodNets {
 public:
  using Periods = std::array<AccountPeriodAmounts, kChartPeriods>;

  // Adds sign times the row's amount in the period its date falls in (debits to the
  // first amount, credits to the second). A row of zero amount adds nothing; a row dated
  // outside the calendar is only counted (outside()).
  void Add(const JrnlRowType& row, double sign);
  const std::map<int32_t, Periods>& accounts() const { return accounts_; }
  int64_t outside() const { return outside_; }
  bool empty() const { return accounts_.empty(); }

 private:
  std::map<int32_t, Periods> accounts_;
  int64_t outside_ = 0;
};

// Adds, times sign, the ledger rows of the transactions with post order numbers first to
// last (both included) to *nets, read in post order through navigator's primary pair (its
// row and header positions move; amounts completed from the cost layers). Answers 0 when
// the walk ended normally, else the record manager's status of the failed read.
uint16_t AddLedgerRows(JrnlRowHdrClass& navigator, const JrnlDBFilesType& files, uint32_t first,
                       uint32_t last, double sign, PeriodNets* nets);

// Adds delta to the period amounts of its accounts in the chart through chart (a handle
// opened for writing; inside the caller's batch). Answers true; false with *what and
// *status telling why (an account that the chart does not hold: status 4), after which the
// caller must abandon its batch: some accounts may already be written.
bool ApplyToChart(BtrvFile* chart, const PeriodNets& delta, std::string* what, uint16_t* status);

}  // namespace host

#endif  // BASICS_HOST_CHART_NETS_H_
