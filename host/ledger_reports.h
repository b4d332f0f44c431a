// The ledger reports of the host: the general ledger, an account's register and its
// reconciliation, and the job ledger with estimates against actuals. Each walks the books
// through the navigator's sorted walks and writes its listings row by row (stream_listing.h)
// into a spooled outcome, so that a book of millions of rows needs no more memory than a
// small one; a progress bar shows on a terminal when a report runs longer than a second.
// Work on the open company through read-only handles of their own; single-threaded.
#ifndef BASICS_HOST_LEDGER_REPORTS_H_
#define BASICS_HOST_LEDGER_REPORTS_H_

#include <string>

#include "listing.h"
#include "outcome.h"
#include "zor_types.h"

namespace host {

// What a report covers and how it is printed: the user's period `period` (1 to twice the
// periods per year; 0 for none), or the dates from and to (both included; either may be
// left open), and the account or job asked for.
struct ReportRequest {
  Format format = Format::kTable;
  int period = 0;
  bool has_from = false;
  DatesType from{};
  bool has_to = false;
  DatesType to{};
  std::string account;  // register, reconcile: the account's ID
  std::string job;      // job: the job's ID; empty for every job
};

// The dates of the request into *range and their words for a title ("Sep 01, 2026 to Oct
// 31, 2026", "all dates"); false with out failed for a period that does not exist.
bool ResolveRange(const ReportRequest& request, FromTo* range, std::string* words, Outcome& out);

// The general ledger: every account with rows in the range or a balance, in account ID
// order, with its opening balance, each transaction that posts to it in date and post
// order (one line per transaction and date, its rows on the account added up) with the
// running balance, and its closing balance with the range's debits and credits.
void GeneralLedgerReport(const ReportRequest& request, Outcome& out);
// The register of request.account: its opening balance, every ledger row of a non-zero
// amount in the range in date and post order with the card and the running balance, and
// its closing balance. An unknown account fails out.
void RegisterReport(const ReportRequest& request, Outcome& out);
// The reconciliation of request.account over the range: its ledger rows cleared in the
// range, those not cleared, and the book balance at the range's end less the uncleared rows
// (the balance a statement should show). Rows cleared before the range are left out.
void ReconcileReport(const ReportRequest& request, Outcome& out);
// The job ledger of request.job (every job when empty): each job's rows by phase, cost code,
// account, date and post order (orders and the second sales journal left out), those dated
// in the range listed, and per phase and cost code the estimated revenue and expenses
// against the actual ones of every row up to the range's end (income accounts' credits are
// revenue; cost-of-sales and expense accounts' debits are expenses). An unknown job fails
// out.
void JobReport(const ReportRequest& request, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_LEDGER_REPORTS_H_
