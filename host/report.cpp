#include "report.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "Basics.h"
#include "company.h"

namespace host {
namespace {

constexpr const char* kHost = "host/report";

std::string DateText(const DatesType& date) {
  char text[16];
  MediumDateText(date, text, sizeof text);
  return text[0] != '\0' ? text : "-";
}

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
