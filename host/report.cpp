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

void PrintCustomers(Outcome& out) {
  out.Printf("Customers\n  %-10s %5s  %-30s  %-10s %s\n", "ID", "Rec#", "Name (30 characters)",
             "ID<-Rec#", "Rec#<-GUID");
  Walk<CustomerRecord>(OpenCustFile, "customer file", out, [&out](const CustomerRecord& c) {
    int32_t number = 0;
    FixedString<31> name{};
    GetRecordNumberAndNameFromCustomerID(c.ID, number, name);
    FixedString<21> back{};
    GetCustomerIDFromRecordNumber(number, back);
    out.Printf("  %-10s %5d  %-30s  %-10s %d\n", c.ID.c_str(), number, name.c_str(), back.c_str(),
               GetRecordNumberFromCustomerGUID(c.Guid));
  });
}

void PrintVendors(Outcome& out) {
  out.Printf("Vendors\n  %-10s %5s  %-30s  %-10s %s\n", "ID", "Rec#", "Name (30 characters)",
             "ID<-Rec#", "Rec#<-GUID");
  Walk<VendorRecord>(OpenVendFile, "vendor file", out, [&out](const VendorRecord& v) {
    int32_t number = GetRecordNumberFromVendorID(v.ID);
    FixedString<31> name{};
    GetVendorNameFromRecordNumber(number, name);
    FixedString<21> back{};
    GetVendorIDFromRecordNumber(number, back);
    out.Printf("  %-10s %5d  %-30s  %-10s %d\n", v.ID.c_str(), number, name.c_str(), back.c_str(),
               GetVendorRecordNumberFromGUID(v.Guid));
  });
}

void PrintEmployees(Outcome& out) {
  out.Printf("Employees\n  %-10s %5s  %-10s %s\n", "ID", "Rec#", "ID<-Rec#", "Rec#<-GUID");
  Walk<EmpType>(OpenEmployeeFile, "employee file", out, [&out](const EmpType& e) {
    int32_t number = GetEmployeeRecNo(e.ID);
    FixedString<21> back{};
    GetEmployeeID(number, &back);
    out.Printf("  %-10s %5d  %-10s %d\n", e.ID.c_str(), number, back.c_str(),
               GetEmployeeRecNo(e.Guid));
  });
}

void PrintMissingLookups(Outcome& out) {
  out.Printf("Lookups that find nothing\n");
  int32_t number = -1;
  FixedString<31> name{};
  bool found = GetRecordNumberAndNameFromVendorID(Fixed<21>("NOSUCH"), number, name);
  out.Printf("  vendor NOSUCH: found %s, record number %d, name \"%s\"\n", found ? "yes" : "no",
             number, name.c_str());
  out.Printf("  customer with an empty ID: record number %d\n",
             GetRecordNumberFromCustomerID(Fixed<21>("")));
  FixedString<21> id{};
  found = GetCustomerIDFromRecordNumber(999, id);
  out.Printf("  customer record 999: found %s, ID \"%s\"\n", found ? "yes" : "no", id.c_str());
  out.Printf("  vendor record 0 exists: %d; vendor record 2 exists: %d\n",
             VendExistQuietByRecNum(0), VendExistQuietByRecNum(2));
  GUID guid{};
  std::memset(&guid, 0xAB, sizeof guid);
  int answer = GetCustomerGUIDFromRecordNumber(999, guid);
  out.Printf("  customer GUID of record 999: %d, output %s\n", answer,
             guid.Data1 == 0xABABABABu ? "left as it was" : "changed");
  answer = GetVendorGUIDFromRecordNumber(999, guid) ? 1 : 0;
  out.Printf("  vendor GUID of record 999: %d, output %s\n", answer,
             IsNullGUID(guid) ? "cleared" : "left as it was");
}

std::string AccountLine(const char* label, bool found, const FixedString<16>& id) {
  std::string text = std::string("  ") + label + ": ";
  if (!found || id.IsEmpty()) return text + "(none)";
  FixedString<161> description{};
  SetAcntDesc(id, description);
  return text + id.c_str() + "  " + description.c_str();
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

void PrintCards(Outcome& out) {
  PrintCustomers(out);
  out.Printf("\n");
  PrintVendors(out);
  out.Printf("\n");
  PrintEmployees(out);
  out.Printf("\n");
  PrintMissingLookups(out);
}

void PrintAccounts(Outcome& out) {
  out.Printf("Chart of accounts\n  %-6s %-31s %s\n", "ID", "Description", "Type");
  int count = 0;
  Walk<AccountType>(OpenChartFile, "chart of accounts", out, [&out, &count](AccountType& a) {
    char row[128];
    MakeAcntString(&a, FixedStringParamRef(row, sizeof row));
    // The list row is ID, tab, description, tab, type name.
    std::string text = row;
    size_t first = text.find('\t');
    size_t second = text.find('\t', first + 1);
    out.Printf("  %-6s %-31s %s\n", text.substr(0, first).c_str(),
               text.substr(first + 1, second - first - 1).c_str(), text.substr(second + 1).c_str());
    ++count;
  });
  out.Printf("  (%d accounts)\n\nSpecial accounts\n", count);
  if (!CheckSettingAccounts(out)) return;
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
    out.Printf("%s\n", AccountLine(m.label, found, id).c_str());
  }
  bool found = GetARAcnt(id) != 0;
  out.Printf("%s\n", AccountLine("Receivables control", found, id).c_str());
  found = GetAPAcnt(id) != 0;
  out.Printf("%s\n", AccountLine("Payables control", found, id).c_str());
  found = GetFirstAPARAcnt(id, 0);
  out.Printf("%s\n", AccountLine("First receivable account", found, id).c_str());
  found = GetFirstAPARAcnt(id, 1);
  out.Printf("%s\n", AccountLine("First payable account", found, id).c_str());
  found = GetRetEarnAcntID(id);
  out.Printf("%s\n", AccountLine("Retained earnings", found, id).c_str());
  int cash = GetCountCashAcnt(id);
  if (cash < 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
  } else if (cash == 0) {
    out.Printf("  Cash accounts: none\n");
  } else {
    out.Printf("  Cash accounts: %s (last in ID order: %s)\n", cash >= 2 ? "two or more" : "one",
               id.c_str());
  }
}

void PrintPeriods(Outcome& out) {
  GeneralDataType* gl = nullptr;
  if (!GetGeneralDataPtr(GeneralFile(), &gl, MOD_GL, kGenReadForReading, false)) {
    out.Fail("the general file cannot be read", GetErrorCode(GeneralFile()));
    return;
  }
  const unsigned short n = gl->GL.PeriodsPerYear;
  out.Printf("Period calendar: %u periods per year, first open fiscal year %u\n", n,
             gl->GL.FiscalYear);
  out.Printf("  %8s %5s  %-12s  %-12s\n", "Internal", "User", "From", "To");
  const char* blocks[] = {"history year", "first open year", "second open year"};
  for (unsigned short p = 0; p < 42; ++p) {
    const FromTo& range = gl->GL.Calendar[p];
    if (AbsDate(range.from) == 0 && AbsDate(range.to) == 0) continue;
    unsigned short user = UserPeriod(p, n);
    std::string user_text = user != 0 ? std::to_string(user) : "-";
    out.Printf("  %8u %5s  %-12s  %-12s  %s%s\n", p, user_text.c_str(),
               DateText(range.from).c_str(), DateText(range.to).c_str(), blocks[p / 14],
               p == Current.CurrentPeriod ? "  <- current" : "");
  }
  out.Printf("  Today (%s) lies in internal period %u\n\n", DateText(TodaysDate).c_str(),
             WhichGLperiod(TodaysDate));

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
  out.Printf("Date ranges\n  %4s  %-26s  %-12s  %-12s\n", "Code", "Range", "From", "To");
  for (const auto& c : codes) {
    FromTo range{};
    SetDateRange(c.code, &range);
    out.Printf("  %4d  %-26s  %-12s  %-12s\n", c.code, c.name, DateText(range.from).c_str(),
               DateText(range.to).c_str());
  }
}

}  // namespace host
