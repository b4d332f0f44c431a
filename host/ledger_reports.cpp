#include "ledger_reports.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Basics.h"
#include "chart_nets.h"
#include "progress.h"
#include "stream_listing.h"
#include "text.h"

namespace host {
namespace {

constexpr const char* kHost = "host/ledger_reports";
constexpr int16_t kAccountDateKey = 2;  // row key 2: account, date, post order

// Column widths of the streamed tables.
constexpr size_t kIdWidth = 15, kDateWidth = 12, kJournalWidth = 4, kKeyWidth = 13,
                 kReferenceWidth = 20, kCardWidth = 20, kDescriptionWidth = 30, kMoneyWidth = 12;

// The ends of a range left open lie far out; their rows show no date.
constexpr uint16_t kOpenStartYear = 1900, kOpenEndYear = 2199;
std::string EdgeText(const DatesType& date) {
  return date.year == kOpenStartYear || date.year == kOpenEndYear ? "" : DateText(date);
}

template <size_t N>
FixedString<N> Fixed(const std::string& text) {
  FixedString<N> f{};
  f = text.c_str();
  return f;
}

// The journal's code as the rows keep it: the second sales journal is told apart.
std::string JournalCode(int32_t journal) {
  return journal == SJ2 ? "SJ2" : GetJrnlName(static_cast<int16_t>(journal));
}

std::string KeyText(const JournalKey1Type& key) {
  FixedString<16> text{};
  MakeKeyString(&key, text);
  return text.c_str();
}

// The card a header names: customer or vendor by its qualifier (the second card of a
// receipt from a vendor or a payment to a customer), employee for payroll, item for the
// inventory journals.
std::string CardText(const JrnlHdrType& h) {
  FixedString<21> id{};
  const int16_t journal = h.Key1.JournalType;
  int32_t card = h.Key2.Card;
  char qualifier = h.Key2.Qualifier;
  if (journal == CRJ || journal == CDJ) {
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&h);
    uint16_t second_flag = 0;
    std::memcpy(&second_flag, bytes + kHdrSecondCardFlagOffset, sizeof second_flag);
    if (second_flag != 0) {
      std::memcpy(&card, bytes + kHdrSecondCardOffset, sizeof card);
      qualifier = journal == CRJ ? 'P' : 'R';
    }
  }
  if (card == 0) return "";
  if (journal == PRJ) {
    GetEmployeeID(card, &id);
  } else if (journal == INAJ || journal == ASBYJ || journal == INAJ2) {
    GetLineItemIDFromRecordNumber(card, id);
  } else if (qualifier == 'R') {
    GetCustomerIDFromRecordNumber(card, id);
  } else if (qualifier == 'P') {
    GetVendorIDFromRecordNumber(card, id);
  }
  return id.c_str();
}

// A journal pair opened read-only for a report, closed with the object.
class ReadPair {
 public:
  ~ReadPair() { CloseJrnlFile(&files_); }
  bool Open(Outcome& out) {
    if (OpenJournalFile(&files_, kOpenModeReadOnly) != 0) return true;
    out.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  const JrnlDBFilesType& files() const { return files_; }

 private:
  JrnlDBFilesType files_{};
};

// Whether a walk on files ended normally (end of file, nothing found, or the caller's own
// stop); otherwise fails out.
bool WalkEnded(const JrnlDBFilesType& files, Outcome& out) {
  for (BtrvFile* file : {files.RowFile, files.HdrFile}) {
    const uint16_t status = GetErrorCode(file);
    if (status != 0 && status != kStatusEndOfFile && status != kStatusKeyNotFound) {
      out.Fail("the journal cannot be read", status);
      return false;
    }
  }
  return true;
}

// The account's balance before date from: the chart's net of every period that ends before
// the period from falls in, and the ledger rows of that period dated before from, read
// through rows (a navigator of the report's own). nets null (an account the chart does not
// hold) adds up every ledger row before from. false with out failed when a read fails.
bool BalanceBefore(int32_t account, const AccountPeriodAmounts* nets, DatesType from,
                   JrnlRowHdrClass& rows, const JrnlDBFilesType& files, double* balance,
                   Outcome& out) {
  double sum = 0;
  DatesType walk_from{};  // the zero date: the account's first row
  const unsigned short period = WhichGLperiod(from);
  if (nets != nullptr && period >= 1 && period < kChartPeriods && IsSet(GetPeriodFrom(period))) {
    walk_from = GetPeriodFrom(period);
    // Slot 0 holds what lies before the calendar's first period.
    sum += nets[0].Net;
    for (unsigned short p = 1; p < kChartPeriods; ++p) {
      const DatesType end = GetPeriodTo(p);
      if (p != period && IsSet(end) && CompareDates(end, walk_from) < 0) sum += nets[p].Net;
    }
  }
  rows.ClearRow();
  rows.Row.Account = account;
  rows.Row.Date = walk_from;
  for (int ok = rows.GetRowGE(kAccountDateKey);
       ok && rows.Row.Account == account && CompareDates(rows.Row.Date, from) < 0;
       ok = rows.GetRowNext(kAccountDateKey)) {
    const bool posted = rows.GetHdrForRow_CacheByPostOrder() != 0 && rows.Hdr.LedgerFlag != 0;
    if (RowPostsToLedger(rows.Row, posted)) sum += rows.Row.Amount;
  }
  if (!WalkEnded(files, out)) return false;
  *balance = Round(sum);
  return true;
}

// The debits and credits that the ledger rows of entry's transaction post to entry's
// account on entry's date, read through rows (a navigator of the report's own); a
// below-zero row (kinds 7, 8) stands alone. posted tells whether the transaction is posted.
// Answers whether any row posts; false too with out failed when a read fails.
bool GroupAmounts(const JrnlRowType& entry, bool posted, JrnlRowHdrClass& rows,
                  const JrnlDBFilesType& files, double* debit, double* credit, Outcome& out) {
  *debit = *credit = 0;
  bool posts = false;
  auto add = [&](const JrnlRowType& row) {
    if (!RowPostsToLedger(row, posted) || IsZero(row.Amount)) return;
    posts = true;
    if (row.Amount > 0) {
      *debit += row.Amount;
    } else {
      *credit -= row.Amount;
    }
  };
  if (entry.Kind == kRowInventoryCost1 || entry.Kind == kRowInventoryCost2) {
    add(entry);
    return posts;
  }
  rows.ClearRow();
  rows.Row.Account = entry.Account;
  rows.Row.Date = entry.Date;
  rows.Row.PostOrder = entry.PostOrder;
  for (int ok = rows.GetRowGE(kAccountDateKey);
       ok && rows.Row.Account == entry.Account && rows.Row.PostOrder == entry.PostOrder &&
       CompareDates(rows.Row.Date, entry.Date) == 0;
       ok = rows.GetRowNext(kAccountDateKey)) {
    add(rows.Row);
  }
  return WalkEnded(files, out) && posts;
}

// Debit and credit cells of an amount.
std::string DebitOf(double amount) { return amount > 0 && !IsZero(amount) ? Money(amount) : ""; }
std::string CreditOf(double amount) { return amount < 0 && !IsZero(amount) ? Money(-amount) : ""; }

// An account of the chart as the reports need it.
struct ChartAccount {
  std::string id;
  int32_t number = 0;
  int16_t type = 0;
  std::string description;
  std::vector<AccountPeriodAmounts> nets;
};

// The chart in account ID order (the general-ledger sort's order: byte-wise).
bool LoadChart(std::vector<ChartAccount>* accounts, Outcome& out) {
  BtrvFile* chart = nullptr;
  if (OpenChartFile(&chart, kOpenModeReadOnly) == 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  AccountType a{};
  for (uint8_t ok = GetFileLowest(chart, kLockBiasNone, sizeof a, &a, kChartKeyID); ok;
       ok = GetFileNext(chart, kLockBiasNone, sizeof a, &a, kChartKeyID)) {
    ChartAccount c;
    c.id = a.ID.c_str();
    c.number = a.RecordNumber;
    c.type = a.Type;
    c.description = a.Description.c_str();
    c.nets.assign(a.Periods, a.Periods + kChartPeriods);
    accounts->push_back(std::move(c));
  }
  const uint16_t status = GetErrorCode(chart);
  RealCloseFile(&chart, kHost, __LINE__);
  if (status != kStatusEndOfFile) {
    out.Fail("the chart of accounts cannot be read", status);
    return false;
  }
  std::sort(accounts->begin(), accounts->end(),
            [](const ChartAccount& x, const ChartAccount& y) { return x.id < y.id; });
  return true;
}

// The account request.account names; false with out failed when there is none.
bool FindAccount(const ReportRequest& request, AccountType* account, Outcome& out) {
  if (request.account.size() <= 15 && GetAccountInfo(Fixed<16>(request.account), account)) {
    return true;
  }
  out.Fail("there is no account " + request.account, kNoStatus);
  return false;
}

}  // namespace

bool ResolveRange(const ReportRequest& request, FromTo* range, std::string* words, Outcome& out) {
  MakeDate(1, 1, kOpenStartYear, range->from);
  MakeDate(12, 31, kOpenEndYear, range->to);
  if (request.period != 0) {
    const unsigned short internal =
        InternalPeriod(static_cast<unsigned short>(request.period), Current.PeriodsPerYear);
    range->from = GetPeriodFrom(internal);
    range->to = GetPeriodTo(internal);
    if (UserPeriod(internal, Current.PeriodsPerYear) == 0 || !IsSet(range->from)) {
      out.Fail("there is no period " + std::to_string(request.period), kNoStatus);
      return false;
    }
    *words = "period " + std::to_string(request.period) + ", " + DateText(range->from) + " to " +
             DateText(range->to);
    return true;
  }
  if (request.has_from) range->from = request.from;
  if (request.has_to) range->to = request.to;
  if (!request.has_from && !request.has_to) {
    *words = "all dates";
  } else {
    *words = (request.has_from ? DateText(range->from) : std::string("start")) + " to " +
             (request.has_to ? DateText(range->to) : std::string("end"));
  }
  return true;
}

// --- General ledger ---------------------------------------------------------------------------

namespace {

class GeneralLedger {
 public:
  GeneralLedger(const ReportRequest& request, Outcome& out)
      : out_(out), stream_(request.format, out), progress_("general ledger", 0) {}
  ~GeneralLedger() { DeAllocateJournalRecord(&record_); }

  void Run(const FromTo& range, const std::string& words);

 private:
  bool Opening(const ChartAccount* account, int32_t number, double* balance) {
    return BalanceBefore(number, account != nullptr ? account->nets.data() : nullptr, range_.from,
                         *rows_, lookup_.files(), balance, out_);
  }
  // The accounts of the chart before index that have no rows in the range: listed with
  // their balance when they have one.
  bool QuietAccountsBefore(size_t index);
  void Account(const std::string& id, double opening);
  void Closing(const std::string& id, double opening, double debits, double credits);

  Outcome& out_;
  ListingStream stream_;
  Progress progress_;
  FromTo range_{};
  ReadPair sort_pair_, lookup_;
  std::unique_ptr<JrnlRowHdrClass> sorter_, rows_;
  JournalRecord* record_ = nullptr;
  std::vector<ChartAccount> chart_;
  size_t next_quiet_ = 0;  // the first chart account not yet listed or passed
};

void GeneralLedger::Account(const std::string& id, double opening) {
  stream_.Row({id, EdgeText(range_.from), "", "", "", "Opening balance", "", "", Money(opening)});
}

void GeneralLedger::Closing(const std::string& id, double opening, double debits, double credits) {
  stream_.Row({id, EdgeText(range_.to), "", "", "", "Closing balance", Money(debits),
               Money(credits), Money(opening + debits - credits)});
  stream_.Break();
}

bool GeneralLedger::QuietAccountsBefore(size_t index) {
  for (; next_quiet_ < index && next_quiet_ < chart_.size(); ++next_quiet_) {
    const ChartAccount& a = chart_[next_quiet_];
    double opening = 0;
    if (!Opening(&a, a.number, &opening)) return false;
    if (IsZero(opening)) continue;
    Account(a.id, opening);
    Closing(a.id, opening, 0, 0);
  }
  return true;
}

void GeneralLedger::Run(const FromTo& range, const std::string& words) {
  range_ = range;
  if (!sort_pair_.Open(out_) || !lookup_.Open(out_) || !LoadChart(&chart_, out_)) return;
  if (AllocateJournalRecord(&record_) == 0) {
    out_.Fail("no memory for a transaction", kNoStatus);
    return;
  }
  sorter_ = std::make_unique<JrnlRowHdrClass>(sort_pair_.files());
  rows_ = std::make_unique<JrnlRowHdrClass>(lookup_.files());
  std::unordered_map<int32_t, size_t> index_of;
  for (size_t i = 0; i < chart_.size(); ++i) index_of[chart_[i].number] = i;

  if (sorter_->StartGetSortedTrx(range, GENJ, GENJ, 0) == 0) {
    out_.Fail("the general ledger's sort file cannot be made", GetErrorCode(nullptr));
    return;
  }
  stream_.Begin("General ledger (" + words + ")", {{"Account", false, kIdWidth},
                                                   {"Date", false, kDateWidth},
                                                   {"Journal", false, kJournalWidth},
                                                   {"Key", false, kKeyWidth},
                                                   {"Reference", false, kReferenceWidth},
                                                   {"Description", false, kDescriptionWidth},
                                                   {"Debit", true, kMoneyWidth},
                                                   {"Credit", true, kMoneyWidth},
                                                   {"Balance", true, kMoneyWidth}});
  size_t entries = 0;
  int32_t next_account = 0;  // filled by the sort, unused: Row tells the same
  int have = sorter_->GetFirstSortedTrx(record_);
  while (have && !out_.failed()) {
    const int32_t account = sorter_->Row.Account;
    const auto found = index_of.find(account);
    const ChartAccount* a = found != index_of.end() ? &chart_[found->second] : nullptr;
    if (a != nullptr) {
      if (!QuietAccountsBefore(found->second)) break;
      next_quiet_ = std::max(next_quiet_, found->second + 1);
    }
    const std::string id = a != nullptr ? a->id : "#" + std::to_string(account);
    double opening = 0;
    if (!Opening(a, account, &opening)) break;
    Account(id, opening);
    double balance = opening, debits = 0, credits = 0;
    for (; have && sorter_->Row.Account == account;
         have = sorter_->GetNextSortedTrx(next_account, record_)) {
      progress_.Step(++entries);
      // The transaction's ledger rows on the account that day, added up.
      const JrnlRowType entry = sorter_->Row;
      double debit = 0, credit = 0;
      const bool posts = GroupAmounts(entry, record_->LedgerFlag != 0, *rows_, lookup_.files(),
                                      &debit, &credit, out_);
      if (out_.failed()) return;
      if (!posts) continue;
      debits += debit;
      credits += credit;
      balance += debit - credit;
      JournalKey1Type key = record_->Key1;
      if (key.JournalType == SJ && record_->J.Sales.Area130.Journal12) key.JournalType = SJ2;
      stream_.Row({id, DateText(entry.Date), JournalCode(key.JournalType), KeyText(key),
                   record_->Reference.c_str(), record_->Description.c_str(),
                   IsZero(debit) ? "" : Money(debit), IsZero(credit) ? "" : Money(credit),
                   Money(balance)});
    }
    Closing(id, opening, debits, credits);
  }
  sorter_->EndGetSortedTrx();
  if (out_.failed() || !WalkEnded(sort_pair_.files(), out_)) return;
  QuietAccountsBefore(chart_.size());
}

}  // namespace

void GeneralLedgerReport(const ReportRequest& request, Outcome& out) {
  FromTo range{};
  std::string words;
  if (!ResolveRange(request, &range, &words, out)) return;
  out.Spool();
  GeneralLedger(request, out).Run(range, words);
}

// --- Register and reconciliation ----------------------------------------------------------------

namespace {

// What the register and the reconciliation start from: the range and account asked for,
// the output spooled, and two read pairs, one walked and one for look-ups, each with a
// navigator.
class AccountWalk {
 public:
  // false with out failed when the request names no range or account, or the journal
  // cannot be opened.
  bool Open(const ReportRequest& request, Outcome& out) {
    if (!ResolveRange(request, &range, &words, out) || !FindAccount(request, &account, out))
      return false;
    out.Spool();
    if (!pair_.Open(out) || !lookup_.Open(out)) return false;
    walk_.emplace(pair_.files());
    rows_.emplace(lookup_.files());
    return true;
  }
  // The account's balance before date (BalanceBefore, through the look-up navigator).
  bool BalanceBefore(DatesType date, double* balance, Outcome& out) {
    return host::BalanceBefore(account.RecordNumber, account.Periods, date, *rows_, lookup_.files(),
                               balance, out);
  }
  // Whether the walk ended normally; otherwise fails out.
  bool Ended(Outcome& out) const { return WalkEnded(pair_.files(), out); }
  std::string Title(const std::string& what) const {
    return what + account.ID.c_str() + " " + account.Description.c_str() + " (" + words + ")";
  }
  JrnlRowHdrClass& walk() { return *walk_; }
  JrnlRowHdrClass& rows() { return *rows_; }
  const JrnlDBFilesType& lookup_files() const { return lookup_.files(); }

  FromTo range{};
  std::string words;
  AccountType account{};

 private:
  ReadPair pair_, lookup_;
  std::optional<JrnlRowHdrClass> walk_, rows_;
};

}  // namespace

void RegisterReport(const ReportRequest& request, Outcome& out) {
  AccountWalk a;
  if (!a.Open(request, out)) return;
  double opening = 0;
  if (!a.BalanceBefore(a.range.from, &opening, out)) return;
  ListingStream stream(request.format, out);
  stream.Begin(a.Title("Register of "), {{"Date", false, kDateWidth},
                                         {"Journal", false, kJournalWidth},
                                         {"Key", false, kKeyWidth},
                                         {"Reference", false, kReferenceWidth},
                                         {"Card", false, kCardWidth},
                                         {"Description", false, kDescriptionWidth},
                                         {"Debit", true, kMoneyWidth},
                                         {"Credit", true, kMoneyWidth},
                                         {"Balance", true, kMoneyWidth}});
  stream.Row({EdgeText(a.range.from), "", "", "", "", "Opening balance", "", "", Money(opening)});
  Progress progress("register", 0);
  double balance = opening, debits = 0, credits = 0;
  size_t count = 0;
  JrnlRowHdrClass& walk = a.walk();
  for (int ok = walk.GetFirstSortedTrxForAcctRegister(a.range, a.account.RecordNumber); ok;
       ok = walk.GetNextSortedTrxForAcctRegister(a.range, a.account.RecordNumber)) {
    progress.Step(++count);
    // The walk gives each transaction once per date: its rows on the account are added up.
    const JrnlRowType& row = walk.Row;
    const JrnlHdrType& h = walk.Hdr;
    double debit = 0, credit = 0;
    GroupAmounts(row, h.LedgerFlag != 0, a.rows(), a.lookup_files(), &debit, &credit, out);
    if (out.failed()) return;
    balance += debit - credit;
    debits += debit;
    credits += credit;
    const std::string description = row.Description[0] != '\0' ? row.Description : h.Description;
    stream.Row({DateText(row.Date), JournalCode(row.JournalType), KeyText(h.Key1), h.Reference,
                CardText(h), description, IsZero(debit) ? "" : Money(debit),
                IsZero(credit) ? "" : Money(credit), Money(balance)});
  }
  if (!a.Ended(out)) return;
  stream.Row({EdgeText(a.range.to), "", "", "", "", "Closing balance", Money(debits),
              Money(credits), Money(balance)});
  stream.Footer("(" + std::to_string(count) + " rows)");
}

void ReconcileReport(const ReportRequest& request, Outcome& out) {
  AccountWalk a;
  if (!a.Open(request, out)) return;
  // The book balance at the range's end: everything before the day after it.
  DatesType after = a.range.to;
  IncDate(after, 1);
  double book = 0;
  if (!a.BalanceBefore(after, &book, out)) return;
  ListingStream stream(request.format, out);
  const std::vector<StreamColumn> columns = {{"Date", false, kDateWidth},
                                             {"Journal", false, kJournalWidth},
                                             {"Key", false, kKeyWidth},
                                             {"Reference", false, kReferenceWidth},
                                             {"Description", false, kDescriptionWidth},
                                             {"Debit", true, kMoneyWidth},
                                             {"Credit", true, kMoneyWidth},
                                             {"Cleared", false, kDateWidth}};
  // Two walks, the cleared rows and then the others, so that neither list is held.
  Progress progress("reconciliation", 0);
  double uncleared = 0;
  size_t done = 0;
  for (const bool cleared : {true, false}) {
    stream.Begin(a.Title(cleared ? "Cleared, " : "Not cleared, "), columns);
    double debits = 0, credits = 0;
    size_t count = 0;
    JrnlRowHdrClass& walk = a.walk();
    for (int ok = walk.GetFirstSortedTrxForAcctRec(a.range, a.account.RecordNumber); ok;
         ok = walk.GetNextSortedTrxForAcctRec(a.range, a.account.RecordNumber)) {
      progress.Step(++done);
      const JrnlRowType& row = walk.Row;
      const bool is_cleared =
          IsSet(row.DateCleared) && CompareDates(row.DateCleared, a.range.to) <= 0;
      if (is_cleared != cleared || IsZero(row.Amount)) continue;
      ++count;
      (row.Amount > 0 ? debits : credits) += row.Amount > 0 ? row.Amount : -row.Amount;
      if (!cleared) uncleared += row.Amount;
      const std::string description =
          row.Description[0] != '\0' ? row.Description : walk.Hdr.Description;
      stream.Row({DateText(row.Date), JournalCode(row.JournalType), KeyText(walk.Hdr.Key1),
                  walk.Hdr.Reference, description, DebitOf(row.Amount), CreditOf(row.Amount),
                  cleared ? DateText(row.DateCleared) : ""});
    }
    if (!a.Ended(out)) return;
    stream.Row({"", "", "", "", "Total", Money(debits), Money(credits), ""});
    stream.Footer("(" + std::to_string(count) + " rows)");
  }
  const std::string at = EdgeText(a.range.to);
  stream.Begin(
      "Reconciliation of " + std::string(a.account.ID.c_str()) + (at.empty() ? "" : " at " + at),
      {{"What", false, 40}, {"Amount", true, kMoneyWidth}});
  stream.Row({"Book balance", Money(book)});
  stream.Row({"Less the rows not cleared", Money(uncleared)});
  stream.Row({"Cleared balance", Money(book - uncleared)});
}

// --- Jobs -------------------------------------------------------------------------------------

namespace {

struct PhaseCost {
  double estimated_revenue = 0, revenue = 0;
  double estimated_expenses = 0, expenses = 0;
};
using PhaseCostKey = std::pair<std::string, std::string>;  // phase ID, cost code ID

// The jobs a request names: the one asked for, or every one in ID order.
bool JobsOf(const ReportRequest& request, std::vector<std::pair<int32_t, std::string>>* jobs,
            Outcome& out) {
  if (!request.job.empty()) {
    const int32_t number = request.job.size() <= 20 ? GetProjNumFromID(Fixed<21>(request.job)) : 0;
    if (number == 0) {
      out.Fail("there is no job " + request.job, kNoStatus);
      return false;
    }
    jobs->push_back({number, request.job});
    return true;
  }
  BtrvFile* file = nullptr;
  if (OpenProjFile(&file, kOpenModeReadOnly) == 0) {
    out.Fail("the project file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  ProjectRecord p{};
  for (uint8_t ok = GetFileLowest(file, kLockBiasNone, sizeof p, &p, 0); ok;
       ok = GetFileNext(file, kLockBiasNone, sizeof p, &p, 0)) {
    const int32_t record_number = p.RecordNumber;  // a copy: the field is packed
    jobs->push_back({record_number, p.ID.c_str()});
  }
  const uint16_t status = GetErrorCode(file);
  RealCloseFile(&file, kHost, __LINE__);
  if (status == kStatusEndOfFile) return true;
  out.Fail("the project file cannot be read", status);
  return false;
}

// Adds the job's estimates by phase and cost code to *sums.
bool AddEstimates(BtrvFile* estimates, int32_t job, std::map<PhaseCostKey, PhaseCost>* sums,
                  Outcome& out) {
  JobEstRecord e{};
  e.Project = job;
  for (uint8_t ok = GetFileGE(estimates, kLockBiasNone, sizeof e, &e, kJobEstKeyProject);
       ok && e.Project == job;
       ok = GetFileNext(estimates, kLockBiasNone, sizeof e, &e, kJobEstKeyProject)) {
    FixedString<21> phase{}, cost{};
    if (e.Phase != 0) GetPhaseIDFromNum(e.Phase, phase);
    if (e.CostCode != 0) GetCostIDFromNum(e.CostCode, cost);
    PhaseCost& s = (*sums)[{phase.c_str(), cost.c_str()}];
    s.estimated_revenue += e.Revenue;
    s.estimated_expenses += e.Expenses;
  }
  const uint16_t status = GetErrorCode(estimates);
  if (status == 0 || status == kStatusEndOfFile || status == kStatusKeyNotFound) return true;
  out.Fail("the job estimate file cannot be read", status);
  return false;
}

}  // namespace

void JobReport(const ReportRequest& request, Outcome& out) {
  FromTo range{};
  std::string words;
  std::vector<std::pair<int32_t, std::string>> jobs;
  if (!ResolveRange(request, &range, &words, out) || !JobsOf(request, &jobs, out)) return;
  out.Spool();
  ReadPair pair;
  if (!pair.Open(out)) return;
  BtrvFile* estimates = nullptr;
  if (OpenJobEstFile(&estimates, kOpenModeReadOnly) == 0) {
    out.Fail("the job estimate file cannot be opened", GetErrorCode(nullptr));
    return;
  }
  JrnlRowHdrClass walk(pair.files());
  std::map<int32_t, std::pair<std::string, int16_t>> accounts;  // ID and type by number
  ListingStream stream(request.format, out);
  stream.Begin("Job ledger (" + words + ")", {{"Job", false, kIdWidth},
                                              {"Phase", false, kIdWidth},
                                              {"Cost code", false, kIdWidth},
                                              {"Account", false, kIdWidth},
                                              {"Date", false, kDateWidth},
                                              {"Journal", false, kJournalWidth},
                                              {"Reference", false, kReferenceWidth},
                                              {"Debit", true, kMoneyWidth},
                                              {"Credit", true, kMoneyWidth}});
  std::vector<std::vector<std::string>> summary;
  Progress progress("job ledger", jobs.size());
  size_t listed = 0;
  for (size_t j = 0; j < jobs.size() && !out.failed(); ++j) {
    progress.Step(j);
    const auto& [job, job_id] = jobs[j];
    std::map<PhaseCostKey, PhaseCost> sums;
    if (!AddEstimates(estimates, job, &sums, out)) break;
    walk.StartGetSortedTrxJob(range, 0, job);
    walk.ClearRow();
    for (int ok = walk.GetFirstSortedTrxJob(); ok; ok = walk.GetNextSortedTrxJob()) {
      const JrnlRowType row = walk.Row;
      const int32_t number = row.Account;  // a copy: the packed field binds to no reference
      auto known = accounts.find(number);
      if (known == accounts.end()) {
        AccountType a{};
        const bool found = GetAccountInfo(number, &a);
        known = accounts
                    .insert({number,
                             {found ? a.ID.c_str() : "#" + std::to_string(number),
                              found ? a.Type : int16_t{-1}}})
                    .first;
      }
      const int16_t type = known->second.second;
      PhaseCost& s = sums[{row.Phase, row.CostCode}];
      if (type == 21) s.revenue -= row.Amount;                 // income
      if (type == 23 || type == 24) s.expenses += row.Amount;  // cost of sales, expenses
      if (CompareDates(row.Date, range.from) < 0 || IsZero(row.Amount)) continue;
      walk.GetHdrForRow_CacheByPostOrder();
      stream.Row({job_id, row.Phase, row.CostCode, known->second.first, DateText(row.Date),
                  JournalCode(row.JournalType), walk.Hdr.Reference, DebitOf(row.Amount),
                  CreditOf(row.Amount)});
      ++listed;
    }
    walk.EndGetSortedTrxJob();
    PhaseCost total;
    for (const auto& [key, s] : sums) {
      summary.push_back({job_id, key.first, key.second, Money(s.estimated_revenue),
                         Money(s.revenue), Money(s.estimated_expenses), Money(s.expenses),
                         Money(s.revenue - s.expenses)});
      total.estimated_revenue += s.estimated_revenue;
      total.revenue += s.revenue;
      total.estimated_expenses += s.estimated_expenses;
      total.expenses += s.expenses;
    }
    summary.push_back({job_id, "Total", "", Money(total.estimated_revenue), Money(total.revenue),
                       Money(total.estimated_expenses), Money(total.expenses),
                       Money(total.revenue - total.expenses)});
  }
  RealCloseFile(&estimates, kHost, __LINE__);
  if (out.failed()) return;
  stream.Footer("(" + std::to_string(listed) + " rows)");
  const std::string to = EdgeText(range.to);
  stream.Begin("Estimates and actuals" + (to.empty() ? "" : " to " + to),
               {{"Job", false, kIdWidth},
                {"Phase", false, kIdWidth},
                {"Cost code", false, kIdWidth},
                {"Est. revenue", true, kMoneyWidth},
                {"Revenue", true, kMoneyWidth},
                {"Est. expenses", true, kMoneyWidth},
                {"Expenses", true, kMoneyWidth},
                {"Margin", true, kMoneyWidth}});
  for (auto& row : summary) stream.Row(std::move(row));
}

}  // namespace host
