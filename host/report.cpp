#include "report.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "Basics.h"
#include "company.h"
#include "text.h"

namespace host {
namespace {

constexpr const char* kHost = "host/report";

// Walks a file in key-0 order through a read-only handle of the host's own and hands each
// record to visit. The walk ends at the end of the file; any other status is a failure
// recorded in out, naming what (e.g. "customer file").
template <typename Record, typename Visit>
bool Walk(int (*open)(BtrvFile**, uint16_t), const char* what, Outcome& out, Visit visit) {
  BtrvFile* file = nullptr;
  if (open(&file, kOpenModeReadOnly) == 0) {
    out.Fail(std::string("the ") + what + " cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  Record record{};
  for (uint8_t ok = GetFileLowest(file, kLockBiasNone, sizeof record, &record, 0); ok;
       ok = GetFileNext(file, kLockBiasNone, sizeof record, &record, 0)) {
    visit(record);
  }
  uint16_t status = GetErrorCode(file);
  RealCloseFile(&file, kHost, __LINE__);
  if (status == kStatusEndOfFile) return true;
  out.Fail(std::string("the ") + what + " cannot be read", status);
  return false;
}

template <size_t N>
FixedString<N> Fixed(const char* text) {
  FixedString<N> f{};
  f = text;
  return f;
}

Listing Customers(Outcome& out) {
  Listing l("Customers",
            {{"ID"}, {"Rec#", true}, {"Name (30 characters)"}, {"ID<-Rec#"}, {"Rec#<-GUID", true}});
  Walk<CustomerRecord>(OpenCustFile, "customer file", out, [&l](const CustomerRecord& c) {
    int32_t number = 0;
    FixedString<31> name{};
    GetRecordNumberAndNameFromCustomerID(c.ID, number, name);
    FixedString<21> back{};
    GetCustomerIDFromRecordNumber(number, back);
    l.Add({c.ID.c_str(), std::to_string(number), name.c_str(), back.c_str(),
           std::to_string(GetRecordNumberFromCustomerGUID(c.Guid))});
  });
  return l;
}

Listing Vendors(Outcome& out) {
  Listing l("Vendors",
            {{"ID"}, {"Rec#", true}, {"Name (30 characters)"}, {"ID<-Rec#"}, {"Rec#<-GUID", true}});
  Walk<VendorRecord>(OpenVendFile, "vendor file", out, [&l](const VendorRecord& v) {
    int32_t number = GetRecordNumberFromVendorID(v.ID);
    FixedString<31> name{};
    GetVendorNameFromRecordNumber(number, name);
    FixedString<21> back{};
    GetVendorIDFromRecordNumber(number, back);
    l.Add({v.ID.c_str(), std::to_string(number), name.c_str(), back.c_str(),
           std::to_string(GetVendorRecordNumberFromGUID(v.Guid))});
  });
  return l;
}

Listing Employees(Outcome& out) {
  Listing l("Employees", {{"ID"}, {"Rec#", true}, {"ID<-Rec#"}, {"Rec#<-GUID", true}});
  Walk<EmpType>(OpenEmployeeFile, "employee file", out, [&l](const EmpType& e) {
    int32_t number = GetEmployeeRecNo(e.ID);
    FixedString<21> back{};
    GetEmployeeID(number, &back);
    l.Add({e.ID.c_str(), std::to_string(number), back.c_str(),
           std::to_string(GetEmployeeRecNo(e.Guid))});
  });
  return l;
}

std::string YesNo(bool yes) { return yes ? "yes" : "no"; }

Listing MissingLookups() {
  Listing l("Lookups that find nothing", {{"Lookup"}, {"Answer"}});
  int32_t number = -1;
  FixedString<31> name{};
  bool found = GetRecordNumberAndNameFromVendorID(Fixed<21>("NOSUCH"), number, name);
  l.Add({"vendor NOSUCH", "found " + YesNo(found) + ", record number " + std::to_string(number) +
                              ", name \"" + name.c_str() + "\""});
  l.Add({"customer with an empty ID",
         "record number " + std::to_string(GetRecordNumberFromCustomerID(Fixed<21>("")))});
  FixedString<21> id{};
  found = GetCustomerIDFromRecordNumber(999, id);
  l.Add({"customer record 999", "found " + YesNo(found) + ", ID \"" + id.c_str() + "\""});
  l.Add({"vendor records 0 and 2 exist", std::to_string(VendExistQuietByRecNum(0)) + ", " +
                                             std::to_string(VendExistQuietByRecNum(2))});
  GUID guid{};
  std::memset(&guid, 0xAB, sizeof guid);
  int answer = GetCustomerGUIDFromRecordNumber(999, guid);
  l.Add({"customer GUID of record 999",
         std::to_string(answer) + ", output " +
             (guid.Data1 == 0xABABABABu ? "left as it was" : "changed")});
  answer = GetVendorGUIDFromRecordNumber(999, guid) ? 1 : 0;
  l.Add({"vendor GUID of record 999",
         std::to_string(answer) + ", output " + (IsNullGUID(guid) ? "cleared" : "left as it was")});
  return l;
}

void AddAccount(Listing& l, const char* label, bool found, const FixedString<16>& id) {
  if (!found || id.IsEmpty()) {
    l.Add({label, "(none)", ""});
    return;
  }
  FixedString<161> description{};
  SetAcntDesc(id, description);
  l.Add({label, id.c_str(), description.c_str()});
}

// Fails out when a setting names an account record that the chart does not hold: the
// special accounts would otherwise fall back quietly to another account or to "(none)".
// Reads through a handle of the host's own, so that the record manager's answer is known.
bool CheckSettingAccount(const char* setting, int32_t number, BtrvFile* chart, Outcome& out) {
  if (number == 0) return true;
  AccountType account{};
  account.RecordNumber = number;
  if (GetFileEqual(chart, kLockBiasNone, sizeof account, &account, kChartKeyRecordNumber)) {
    return true;
  }
  out.Fail(std::string("the ") + setting + " setting names account record " +
               std::to_string(number) + ", which is not in the chart of accounts",
           GetErrorCode(chart));
  return false;
}

// Checks every account the module settings name.
bool CheckSettingAccounts(Outcome& out) {
  GeneralDataType* ar = nullptr;
  GeneralDataType* ap = nullptr;
  GeneralDataType* pr = nullptr;
  GeneralDataType* gl = nullptr;
  BtrvFile* general = GeneralFile();
  if (!GetGeneralDataPtr(general, &ar, MOD_AR, kGenReadForReading, false) ||
      !GetGeneralDataPtr(general, &ap, MOD_AP, kGenReadForReading, false) ||
      !GetGeneralDataPtr(general, &pr, MOD_PR, kGenReadForReading, false) ||
      !GetGeneralDataPtr(general, &gl, MOD_GL, kGenReadForReading, false)) {
    out.Fail("the general file cannot be read", GetErrorCode(general));
    return false;
  }
  BtrvFile* chart = nullptr;
  if (OpenChartFile(&chart, kOpenModeReadOnly) == 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  const struct {
    const char* setting;
    int32_t number;
  } settings[] = {{"receivables control account", ar->AR.ControlAccount},
                  {"receivables cash account", ar->AR.DefaultCashAccount},
                  {"payables control account", ap->AP.ControlAccount},
                  {"payables cash account", ap->AP.DefaultCashAccount},
                  {"payroll cash account", pr->PR.DefaultCashAccount},
                  {"general-ledger cash account", gl->GL.DefaultCashAccount}};
  bool ok = true;
  for (const auto& s : settings) {
    if (ok) ok = CheckSettingAccount(s.setting, s.number, chart, out);
  }
  RealCloseFile(&chart, kHost, __LINE__);
  return ok;
}

}  // namespace

void CardsView(std::vector<Listing>* listings, Outcome& out) {
  listings->push_back(Customers(out));
  listings->push_back(Vendors(out));
  listings->push_back(Employees(out));
  listings->push_back(MissingLookups());
}

void AccountsView(std::vector<Listing>* listings, Outcome& out) {
  Listing chart("Chart of accounts", {{"ID"}, {"Description"}, {"Type"}});
  Walk<AccountType>(OpenChartFile, "chart of accounts", out, [&chart](AccountType& a) {
    char row[128];
    MakeAcntString(&a, FixedStringParamRef(row, sizeof row));
    // The list row is ID, tab, description, tab, type name.
    std::string text = row;
    size_t first = text.find('\t');
    size_t second = text.find('\t', first + 1);
    chart.Add({text.substr(0, first), text.substr(first + 1, second - first - 1),
               text.substr(second + 1)});
  });
  chart.SetFooter("(" + std::to_string(chart.rows().size()) + " accounts)");
  listings->push_back(std::move(chart));
  if (out.failed() || !CheckSettingAccounts(out)) return;
  Listing special("Special accounts", {{"Setting"}, {"Account"}, {"Description"}});
  FixedString<16> id{};
  struct {
    const char* label;
    ModuleType module;
  } const modules[] = {{"Default cash, receivables", MOD_AR},
                       {"Default cash, payables", MOD_AP},
                       {"Default cash, payroll", MOD_PR},
                       {"Default cash, general ledger", MOD_GL}};
  for (const auto& m : modules) {
    bool found = GetDefaultCashAcnt(m.module, id);
    AddAccount(special, m.label, found, id);
  }
  AddAccount(special, "Receivables control", GetARAcnt(id) != 0, id);
  AddAccount(special, "Payables control", GetAPAcnt(id) != 0, id);
  AddAccount(special, "First receivable account", GetFirstAPARAcnt(id, 0), id);
  AddAccount(special, "First payable account", GetFirstAPARAcnt(id, 1), id);
  AddAccount(special, "Retained earnings", GetRetEarnAcntID(id), id);
  int cash = GetCountCashAcnt(id);
  if (cash < 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return;
  }
  if (cash == 0) {
    special.SetFooter("Cash accounts: none");
  } else {
    special.SetFooter(std::string("Cash accounts: ") + (cash >= 2 ? "two or more" : "one") +
                      " (last in ID order: " + id.c_str() + ")");
  }
  listings->push_back(std::move(special));
}

void PeriodsView(std::vector<Listing>* listings, Outcome& out) {
  GeneralDataType* gl = nullptr;
  if (!GetGeneralDataPtr(GeneralFile(), &gl, MOD_GL, kGenReadForReading, false)) {
    out.Fail("the general file cannot be read", GetErrorCode(GeneralFile()));
    return;
  }
  const unsigned short n = gl->GL.PeriodsPerYear;
  Listing calendar("Period calendar",
                   {{"Internal", true}, {"User", true}, {"From"}, {"To"}, {"Year"}, {"Current"}});
  const char* blocks[] = {"history year", "first open year", "second open year"};
  for (unsigned short p = 0; p < 42; ++p) {
    const FromTo& range = gl->GL.Calendar[p];
    if (AbsDate(range.from) == 0 && AbsDate(range.to) == 0) continue;
    unsigned short user = UserPeriod(p, n);
    calendar.Add({std::to_string(p), user != 0 ? std::to_string(user) : "-", DateText(range.from),
                  DateText(range.to), blocks[p / 14],
                  p == Current.CurrentPeriod ? "<- current" : ""});
  }
  calendar.SetFooter(std::to_string(n) + " periods per year, first open fiscal year " +
                     std::to_string(gl->GL.FiscalYear) + "; today (" + DateText(TodaysDate) +
                     ") lies in internal period " + std::to_string(WhichGLperiod(TodaysDate)));
  listings->push_back(std::move(calendar));

  struct {
    int16_t code;
    const char* name;
  } const codes[] = {{0, "Both open fiscal years"},
                     {5, "Current period"},
                     {6, "Today"},
                     {7, "This week to date"},
                     {8, "This month to date"},
                     {9, "This period to date"},
                     {10, "This quarter to date"},
                     {11, "This year to date"},
                     {12, "Current period's quarter"},
                     {13, "Current period's year"},
                     {18, "First open year to date"},
                     {19, "This month"}};
  Listing ranges("Date ranges", {{"Code", true}, {"Range"}, {"From"}, {"To"}});
  for (const auto& c : codes) {
    FromTo range{};
    SetDateRange(c.code, &range);
    ranges.Add({std::to_string(c.code), c.name, DateText(range.from), DateText(range.to)});
  }
  listings->push_back(std::move(ranges));
}

}  // namespace host

namespace host {
namespace {

JournalFilter g_filter;

std::string Quantity(double quantity) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", quantity);
  return text;
}

// The ID of a transaction's card: a customer for receipts, sales and sales orders, a
// vendor for disbursements, purchases and purchase orders (the other side for a receipt
// from a vendor or a payment to a customer), an employee for payroll, the item for
// inventory adjustments and assemblies.
std::string CardID(const JournalRecord& r) {
  FixedString<21> id{};
  const int16_t journal = r.Key1.JournalType;
  if ((journal == CRJ || journal == CDJ) && r.J.Cash.Area178.SecondCardFlag != 0) {
    // A receipt from a vendor or a payment to a customer names its second card.
    const int32_t second = r.J.Cash.Area178.SecondCard;
    if (journal == CRJ) GetVendorIDFromRecordNumber(second, id);
    if (journal == CDJ) GetCustomerIDFromRecordNumber(second, id);
    return id.c_str();
  }
  const int32_t card = r.Key2.Card;
  if (card == 0) return "";
  switch (journal) {
    case CRJ:
    case SJ:
    case SOJ:
      GetCustomerIDFromRecordNumber(card, id);
      break;
    case CDJ:
    case PJ:
    case POJ:
      GetVendorIDFromRecordNumber(card, id);
      break;
    case PRJ:
      return r.EmployeeID.c_str();
    case INAJ:
    case ASBYJ:
    case INAJ2:
      GetLineItemIDFromRecordNumber(card, id);
      break;
    default:
      break;
  }
  return id.c_str();
}

// The journal as the files keep it: a sale with the journal-12 flag is journal 12.
int16_t StoredJournal(const JournalRecord& r) {
  if (r.Key1.JournalType == SJ && r.J.Sales.Area130.Journal12) return SJ2;
  return r.Key1.JournalType;
}

// The amount a listing shows: the main row's, or the debits of the journals without one.
double ShownAmount(const JournalRecord& r) {
  const int16_t j = r.Key1.JournalType;
  if (j != GENJ && j != COGSJ && j != INAJ2) return r.Amount;
  double debits = 0;
  const JrnlDistLine* lines = JournalLines(&r);
  for (int i = 0; i < r.LineCount; ++i) debits += lines[i].Amount > 0 ? lines[i].Amount : 0;
  return debits;
}

bool Wanted(const JournalRecord& r) {
  if (g_filter.journal >= 0 && StoredJournal(r) != g_filter.journal &&
      r.Key1.JournalType != g_filter.journal) {
    return false;
  }
  if (g_filter.has_from && CompareDates(r.Key2.Date, g_filter.from) < 0) return false;
  if (g_filter.has_to && CompareDates(r.Key2.Date, g_filter.to) > 0) return false;
  return true;
}

// What the inventory tags say the transaction's item rows cost.
void AddCosts(const JournalRecord& r, Listing& costs) {
  FixedString<16> key{};
  MakeKeyString(&r.Key1, key);
  const int16_t journal = r.Key1.JournalType;
  if (journal == INAJ) {
    costs.Add({key.c_str(), GetJrnlName(journal), CardID(r), "adjustment",
               Money(GetInvAdjCost(r.PostOrder, -1))});
    return;
  }
  if (journal == ASBYJ) {
    double cost = 0;
    if (GetAssemblyCost(r.PostOrder, -1, &cost)) {  // the built item's own row
      costs.Add({key.c_str(), GetJrnlName(journal), CardID(r), "assembly build", Money(cost)});
    }
    return;
  }
  if (journal != SJ) return;
  const JrnlDistLine* lines = JournalLines(&r);
  for (int16_t i = 0; i < r.LineCount; ++i) {
    if (lines[i].Item == 0) continue;
    const double cost = GetSaleCost(r.PostOrder, i);
    if (cost == 0) continue;
    FixedString<21> item{};
    GetLineItemIDFromRecordNumber(lines[i].Item, item);
    costs.Add({key.c_str(), GetJrnlName(StoredJournal(r)), item.c_str(),
               "sale, line " + std::to_string(i + 1), Money(cost)});
  }
}

}  // namespace

void SetJournalFilter(const JournalFilter& filter) { g_filter = filter; }

void JournalView(std::vector<Listing>* listings, Outcome& out) {
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
  Listing list("Transactions", {{"Key"},
                                {"Journal"},
                                {"No.", true},
                                {"Date"},
                                {"Reference"},
                                {"Card"},
                                {"Amount", true},
                                {"Lines", true},
                                {"Description"}});
  Listing costs("Costs of item rows", {{"Key"}, {"Journal"}, {"Item"}, {"Row"}, {"Cost", true}});
  constexpr int16_t kDateKey = 3;
  for (int ok = GetFileLowest(files, kLockBiasNone, r, kDateKey); ok;
       ok = GetFileNext(files, kLockBiasNone, r, kDateKey)) {
    if (!Wanted(*r)) continue;
    FixedString<16> key{};
    MakeKeyString(&r->Key1, key);
    list.Add({key.c_str(), GetJrnlName(StoredJournal(*r)), std::to_string(StoredJournal(*r)),
              DateText(r->Key2.Date), r->Reference.c_str(), CardID(*r), Money(ShownAmount(*r)),
              std::to_string(r->LineCount), r->Description.c_str()});
    AddCosts(*r, costs);
  }
  const uint16_t status = GetErrorCode(files.HdrFile);
  DeAllocateJournalRecord(&r);
  CloseJrnlFile(&files);
  if (status != kStatusEndOfFile) {
    out.Fail("the journal cannot be read", status);
    return;
  }
  list.SetFooter("(" + std::to_string(list.rows().size()) + " transactions)");
  listings->push_back(std::move(list));
  listings->push_back(std::move(costs));
}

void ItemsView(std::vector<Listing>* listings, Outcome& out) {
  Listing items("Items", {{"ID"},
                          {"Rec#", true},
                          {"Class", true},
                          {"Description"},
                          {"Master"},
                          {"On SO", true},
                          {"On PO", true}});
  Walk<LineItemRecord>(OpenLineItemFile, "item file", out, [&items](LineItemRecord& item) {
    items.Add({item.ItemID.c_str(), std::to_string(item.RecordNumber),
               std::to_string(item.ItemClass), item.Description.c_str(), item.ParentID.c_str(),
               Quantity(GetQtyOnSOPO(&item, SOJ, Current.CurrentPeriod)),
               Quantity(GetQtyOnSOPO(&item, POJ, Current.CurrentPeriod))});
  });
  items.SetFooter("(" + std::to_string(items.rows().size()) + " items)");
  listings->push_back(std::move(items));
}

void JobsView(std::vector<Listing>* listings, Outcome& out) {
  BtrvFile* estimates = nullptr;
  if (OpenJobEstFile(&estimates, kOpenModeReadOnly) == 0) {
    out.Fail("the job estimate file cannot be opened", GetErrorCode(nullptr));
    return;
  }
  Listing projects("Projects", {{"ID"},
                                {"Rec#", true},
                                {"Name"},
                                {"Phases"},
                                {"Est. revenue", true},
                                {"Est. expenses", true}});
  Walk<ProjectRecord>(
      [](BtrvFile** f, uint16_t mode) { return static_cast<int>(OpenProjFile(f, mode)); },
      "project file", out,
      [&](ProjectRecord& p) {
        double revenue = 0, expenses = 0;
        FindEstRevenueAndExpences(p.RecordNumber, estimates, &revenue, &expenses);
        projects.Add({p.ID.c_str(), std::to_string(p.RecordNumber), p.Name.c_str(),
                      p.UsesPhases ? "yes" : "no", Money(revenue), Money(expenses)});
      });
  RealCloseFile(&estimates, kHost, __LINE__);
  Listing phases("Phases", {{"ID"}, {"Rec#", true}, {"Description"}, {"Cost codes"}});
  Walk<PhaseRecord>(
      [](BtrvFile** f, uint16_t mode) { return static_cast<int>(OpenPhaseFile(f, mode)); },
      "phase file", out,
      [&](PhaseRecord& p) {
        phases.Add({p.ID.c_str(), std::to_string(p.RecordNumber), p.Description.c_str(),
                    p.UsesCostCodes ? "yes" : "no"});
      });
  Listing costs("Cost codes", {{"ID"}, {"Rec#", true}, {"Description"}});
  Walk<CostRecord>(
      [](BtrvFile** f, uint16_t mode) { return static_cast<int>(OpenCostFile(f, mode)); },
      "cost code file", out,
      [&](CostRecord& c) {
        costs.Add({c.ID.c_str(), std::to_string(c.RecordNumber), c.Description.c_str()});
      });
  listings->push_back(std::move(projects));
  listings->push_back(std::move(phases));
  listings->push_back(std::move(costs));
}

}  // namespace host
