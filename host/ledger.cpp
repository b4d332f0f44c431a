#include "ledger.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Basics.h"
#include "chart_nets.h"
#include "text.h"

namespace host {
namespace {

constexpr const char* kHost = "host/ledger";

TrialBalanceRange g_range;

std::string AccountID(int32_t number) {
  FixedString<16> id{};
  if (GetAcctIDFromRecordNumber(number, id) == 0) return "#" + std::to_string(number);
  return id.c_str();
}

struct AccountTotal {
  int32_t number = 0;
  int rows = 0;
  double balance = 0;
};

// The printable key of a transaction with its journal code in front.
std::string TransactionText(const JournalKey1Type& key) {
  FixedString<16> text{};
  MakeKeyString(&key, text);
  return std::string(GetJrnlName(key.JournalType)) + text.c_str();
}

std::string CardText(int16_t type, int32_t card) {
  FixedString<21> id{};
  bool found = false;
  if (type == 1) found = GetCustomerIDFromRecordNumber(card, id);
  if (type == 2) found = GetEmployeeID(card, &id);
  if (type == 3) found = GetVendorIDFromRecordNumber(card, id);
  return found ? std::string(id.c_str()) : "#" + std::to_string(card);
}

// What raises each event type.
const char* EventTypeName(int16_t type) {
  static const char* const kNames[] = {"",
                                       "sale entered",
                                       "sale, second date",
                                       "sales order due",
                                       "invoice entered",
                                       "invoice due",
                                       "sale, other kind",
                                       "collection",
                                       "receipt",
                                       "order placed",
                                       "order expected",
                                       "bill due",
                                       "payment",
                                       "payroll"};
  return type >= 1 && type <= 13 ? kNames[type] : "other";
}

// The trial balance's title and, for a period, its dates (into *range); false with out
// failed for a period that does not exist.
bool TrialBalanceTitle(TrialBalanceRange* range, std::string* title, Outcome& out) {
  *title = "Trial balance";
  if (range->period != 0) {
    const unsigned short internal =
        InternalPeriod(static_cast<unsigned short>(range->period), Current.PeriodsPerYear);
    range->from = GetPeriodFrom(internal);
    range->to = GetPeriodTo(internal);
    if (UserPeriod(internal, Current.PeriodsPerYear) == 0 || !IsSet(range->from)) {
      out.Fail("there is no period " + std::to_string(range->period), kNoStatus);
      return false;
    }
    range->has_from = range->has_to = true;
    *title += ", period " + std::to_string(range->period);
  }
  if (range->has_from || range->has_to) {
    *title += " (" + (range->has_from ? DateText(range->from) : std::string("start")) + " to " +
              (range->has_to ? DateText(range->to) : std::string("end")) + ")";
  }
  return true;
}

// Adds the total line and the footer that says whether debits equal credits.
void FinishTrialBalance(Listing& l, double debits, double credits, const std::string& rows) {
  if (rows.empty()) {
    l.Add({"Total", "", Money(debits), Money(credits)});
  } else {
    l.Add({"Total", "", rows, Money(debits), Money(credits)});
  }
  const double difference = Round(debits - credits);
  l.SetFooter(IsZero(difference) ? "Debits equal credits."
                                 : "Out of balance by " + Money(difference) + ".");
}

}  // namespace

void SetTrialBalanceRange(const TrialBalanceRange& range) { g_range = range; }

void TrialBalanceView(std::vector<Listing>* listings, Outcome& out) {
  TrialBalanceRange range = g_range;
  std::string title;
  if (!TrialBalanceTitle(&range, &title, out)) return;
  // The period slots the range covers: every one whose dates lie inside it. Each end
  // given must be a period's own first (last) day, or the chart cannot answer.
  std::vector<int> slots;
  bool from_found = !range.has_from, to_found = !range.has_to;
  for (unsigned short p = 0; p < kChartPeriods; ++p) {
    const DatesType first = GetPeriodFrom(p), last = GetPeriodTo(p);
    if (!IsSet(first)) continue;
    if (range.has_from && CompareDates(first, range.from) == 0) from_found = true;
    if (range.has_to && CompareDates(last, range.to) == 0) to_found = true;
    if (range.has_from && CompareDates(first, range.from) < 0) continue;
    if (range.has_to && CompareDates(last, range.to) > 0) continue;
    slots.push_back(p);
  }
  if (!from_found || !to_found) {
    out.Fail(std::string("the chart keeps its amounts by period: --") +
                 (from_found ? "to" : "from") + " must be the " + (from_found ? "last" : "first") +
                 " day of a period (--from-rows takes any dates)",
             kNoStatus);
    return;
  }
  Listing l(title, {{"Account"}, {"Description"}, {"Debit", true}, {"Credit", true}});
  double debits = 0, credits = 0;
  BtrvFile* chart = nullptr;
  if (OpenChartFile(&chart, kOpenModeReadOnly) == 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return;
  }
  AccountType a{};
  for (uint8_t ok = GetFileLowest(chart, kLockBiasNone, sizeof a, &a, kChartKeyID); ok;
       ok = GetFileNext(chart, kLockBiasNone, sizeof a, &a, kChartKeyID)) {
    double net = 0;
    bool moved = false;
    for (int p : slots) {
      net += a.Periods[p].Net;
      moved = moved || !IsZero(a.Periods[p].First) || !IsZero(a.Periods[p].Second);
    }
    if (!moved) continue;
    FixedString<161> description{};
    SetAcntDesc(a.RecordNumber, description);
    const double balance = Round(net);
    if (balance > 0) debits += balance;
    if (balance < 0) credits -= balance;
    l.Add({a.ID.c_str(), description.c_str(), balance > 0 ? Money(balance) : "",
           balance < 0 ? Money(-balance) : ""});
  }
  const uint16_t status = GetErrorCode(chart);
  RealCloseFile(&chart, kHost, __LINE__);
  if (status != kStatusEndOfFile) {
    out.Fail("the chart of accounts cannot be read", status);
    return;
  }
  FinishTrialBalance(l, debits, credits, "");
  listings->push_back(std::move(l));
}

void TrialBalanceFromRowsView(std::vector<Listing>* listings, Outcome& out) {
  TrialBalanceRange range = g_range;
  std::string title;
  if (!TrialBalanceTitle(&range, &title, out)) return;
  title += ", from the rows";
  JrnlRowHdrClass navigator(static_cast<int16_t>(kOpenModeReadOnly));
  if (!navigator.IsOKtoUse()) {
    out.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return;
  }
  std::map<std::string, AccountTotal> totals;  // by account ID
  constexpr int16_t kAccountKey = 2;           // account, date, post order
  navigator.ClearRow();
  for (int ok = navigator.GetRowGE(kAccountKey); ok; ok = navigator.GetRowNext(kAccountKey)) {
    const JrnlRowType& row = navigator.Row;
    if (range.has_from && CompareDates(row.Date, range.from) < 0) continue;
    if (range.has_to && CompareDates(row.Date, range.to) > 0) continue;
    const bool cost_row = row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2;
    if ((row.LedgerFlag == 0 && !cost_row) || IsThisRowPosted(&row) == 0) continue;
    AccountTotal& total = totals[AccountID(row.Account)];
    total.number = row.Account;
    total.rows += 1;
    total.balance += row.Amount;
  }
  Listing l(title,
            {{"Account"}, {"Description"}, {"Rows", true}, {"Debit", true}, {"Credit", true}});
  double debits = 0, credits = 0;
  int count = 0;
  for (const auto& [id, total] : totals) {
    FixedString<161> description{};
    SetAcntDesc(total.number, description);
    const double balance = Round(total.balance);
    if (balance > 0) debits += balance;
    if (balance < 0) credits -= balance;
    count += total.rows;
    l.Add({id, description.c_str(), std::to_string(total.rows), balance > 0 ? Money(balance) : "",
           balance < 0 ? Money(-balance) : ""});
  }
  FinishTrialBalance(l, debits, credits, std::to_string(count));
  listings->push_back(std::move(l));
}

void InvoicesView(std::vector<Listing>* listings, Outcome& out) {
  JrnlDBFilesType files{};
  if (OpenJournalFile(&files, kOpenModeReadOnly) == 0) {
    out.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return;
  }
  JournalRecord* r = nullptr;
  if (AllocateJournalRecord(&r) == 0) {
    CloseJrnlFile(&files);
    out.Fail("no memory for a transaction", kNoStatus);
    return;
  }
  Listing l("Invoices", {{"Key"},
                         {"Journal"},
                         {"Date"},
                         {"Reference"},
                         {"Card"},
                         {"Amount", true},
                         {"Paid", true},
                         {"Balance", true},
                         {"Due"},
                         {"Paid in full"}});
  int open = 0;
  constexpr int16_t kDateKey = 3;
  for (int ok = GetFileLowest(files, kLockBiasNone, r, kDateKey); ok;
       ok = GetFileNext(files, kLockBiasNone, r, kDateKey)) {
    const int16_t j = r->Key1.JournalType;
    if ((j != SJ && j != PJ) || r->Key1.Shadow != 0) continue;
    const JrnlSalesHdr130& area = r->J.Sales.Area130;
    FixedString<21> card{};
    if (j == SJ) GetCustomerIDFromRecordNumber(r->Key2.Card, card);
    if (j == PJ) GetVendorIDFromRecordNumber(r->Key2.Card, card);
    const double balance = Round(r->Amount - area.AmountPaid);
    const bool paid = IsLegalDate(area.PaidInFullDate);
    if (!paid) ++open;
    FixedString<16> key{};
    MakeKeyString(&r->Key1, key);
    l.Add({key.c_str(), j == SJ && area.Journal12 ? "SJ2" : GetJrnlName(j), DateText(r->Key2.Date),
           r->Reference.c_str(), card.c_str(), Money(r->Amount), Money(area.AmountPaid),
           Money(balance), DateText(area.DueDate), paid ? DateText(area.PaidInFullDate) : "open"});
  }
  const uint16_t status = GetErrorCode(files.HdrFile);
  DeAllocateJournalRecord(&r);
  CloseJrnlFile(&files);
  if (status != kStatusEndOfFile) {
    out.Fail("the journal cannot be read", status);
    return;
  }
  l.SetFooter("(" + std::to_string(l.rows().size()) + " invoices, " + std::to_string(open) +
              " open)");
  listings->push_back(std::move(l));
}

void EventsView(std::vector<Listing>* listings, Outcome& out) {
  BtrvFile* file = nullptr;
  if (RealOpenBFileOwner(&file, EventLogFileName.c_str(), kOpenModeReadOnly, 0, csTheOwner.c_str(),
                         kHost, __LINE__) == 0) {
    out.Fail("the event log cannot be opened", GetErrorCode(nullptr));
    return;
  }
  Listing l("Event log", {{"Card"},
                          {"Log", true},
                          {"Date"},
                          {"Title"},
                          {"Type"},
                          {"Transaction"},
                          {"Alarm"},
                          {"Completed"}});
  int completed = 0;
  EVENT_LOG_RECORD e{};
  for (uint8_t ok = GetFileLowest(file, kLockBiasNone, sizeof e, &e, 0); ok;
       ok = GetFileNext(file, kLockBiasNone, sizeof e, &e, 0)) {
    const bool from_journal = e.JournalKey.JournalType != 0 || e.JournalKey.TrxNumber != 0;
    if (e.Completed) ++completed;
    l.Add({CardText(e.CardType, e.CardRecordNumber), std::to_string(e.LogNumber), DateText(e.Date),
           e.Title.c_str(), std::to_string(e.EventType) + " " + EventTypeName(e.EventType),
           from_journal ? TransactionText(e.JournalKey) : "",
           e.AlarmSet ? "lead " + std::to_string(e.AlarmLead) : "",
           e.Completed ? DateText(e.CompletedDate) : ""});
  }
  const uint16_t status = GetErrorCode(file);
  RealCloseFile(&file, kHost, __LINE__);
  if (status != kStatusEndOfFile) {
    out.Fail("the event log cannot be read", status);
    return;
  }
  l.SetFooter("(" + std::to_string(l.rows().size()) + " events, " + std::to_string(completed) +
              " completed)");
  listings->push_back(std::move(l));
}

}  // namespace host
