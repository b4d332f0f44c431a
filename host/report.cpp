#include "report.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "Basics.h"

namespace host {
namespace {

constexpr const char* kHost = "host/report";

std::string DateText(const DatesType& date) {
  char text[16];
  MediumDateText(date, text, sizeof text);
  return text[0] != '\0' ? text : "-";
}

// Walks a file in key-0 order through a read-only handle of the host's own and hands each
// record to visit.
template <typename Record, typename Visit>
void Walk(int (*open)(BtrvFile**, uint16_t), Visit visit) {
  BtrvFile* file = nullptr;
  if (open(&file, kOpenModeReadOnly) == 0) return;
  Record record{};
  for (uint8_t ok = GetFileLowest(file, kLockBiasNone, sizeof record, &record, 0); ok;
       ok = GetFileNext(file, kLockBiasNone, sizeof record, &record, 0)) {
    visit(record);
  }
  RealCloseFile(&file, kHost, __LINE__);
}

template <size_t N>
FixedString<N> Fixed(const char* text) {
  FixedString<N> f{};
  f = text;
  return f;
}

void PrintCustomers() {
  std::printf("Customers\n  %-10s %5s  %-30s  %-10s %s\n", "ID", "Rec#", "Name (30 characters)",
              "ID<-Rec#", "Rec#<-GUID");
  Walk<CustomerRecord>(OpenCustFile, [](const CustomerRecord& c) {
    int32_t number = 0;
    FixedString<31> name{};
    GetRecordNumberAndNameFromCustomerID(c.ID, number, name);
    FixedString<21> back{};
    GetCustomerIDFromRecordNumber(number, back);
    std::printf("  %-10s %5d  %-30s  %-10s %d\n", c.ID.c_str(), number, name.c_str(), back.c_str(),
                GetRecordNumberFromCustomerGUID(c.Guid));
  });
}

void PrintVendors() {
  std::printf("Vendors\n  %-10s %5s  %-30s  %-10s %s\n", "ID", "Rec#", "Name (30 characters)",
              "ID<-Rec#", "Rec#<-GUID");
  Walk<VendorRecord>(OpenVendFile, [](const VendorRecord& v) {
    int32_t number = GetRecordNumberFromVendorID(v.ID);
    FixedString<31> name{};
    GetVendorNameFromRecordNumber(number, name);
    FixedString<21> back{};
    GetVendorIDFromRecordNumber(number, back);
    std::printf("  %-10s %5d  %-30s  %-10s %d\n", v.ID.c_str(), number, name.c_str(), back.c_str(),
                GetVendorRecordNumberFromGUID(v.Guid));
  });
}

void PrintEmployees() {
  std::printf("Employees\n  %-10s %5s  %-10s %s\n", "ID", "Rec#", "ID<-Rec#", "Rec#<-GUID");
  Walk<EmpType>(OpenEmployeeFile, [](const EmpType& e) {
    int32_t number = GetEmployeeRecNo(e.ID);
    FixedString<21> back{};
    GetEmployeeID(number, &back);
    std::printf("  %-10s %5d  %-10s %d\n", e.ID.c_str(), number, back.c_str(),
                GetEmployeeRecNo(e.Guid));
  });
}

void PrintMissingLookups() {
  std::printf("Lookups that find nothing\n");
  int32_t number = -1;
  FixedString<31> name{};
  bool found = GetRecordNumberAndNameFromVendorID(Fixed<21>("NOSUCH"), number, name);
  std::printf("  vendor NOSUCH: found %s, record number %d, name \"%s\"\n", found ? "yes" : "no",
              number, name.c_str());
  std::printf("  customer with an empty ID: record number %d\n",
              GetRecordNumberFromCustomerID(Fixed<21>("")));
  FixedString<21> id{};
  found = GetCustomerIDFromRecordNumber(999, id);
  std::printf("  customer record 999: found %s, ID \"%s\"\n", found ? "yes" : "no", id.c_str());
  std::printf("  vendor record 0 exists: %d; vendor record 2 exists: %d\n",
              VendExistQuietByRecNum(0), VendExistQuietByRecNum(2));
  GUID guid{};
  std::memset(&guid, 0xAB, sizeof guid);
  int answer = GetCustomerGUIDFromRecordNumber(999, guid);
  std::printf("  customer GUID of record 999: %d, output %s\n", answer,
              guid.Data1 == 0xABABABABu ? "left as it was" : "changed");
  answer = GetVendorGUIDFromRecordNumber(999, guid) ? 1 : 0;
  std::printf("  vendor GUID of record 999: %d, output %s\n", answer,
              IsNullGUID(guid) ? "cleared" : "left as it was");
}

std::string AccountLine(const char* label, bool found, const FixedString<16>& id) {
  std::string text = std::string("  ") + label + ": ";
  if (!found || id.IsEmpty()) return text + "(none)";
  FixedString<161> description{};
  SetAcntDesc(id, description);
  return text + id.c_str() + "  " + description.c_str();
}

}  // namespace

void PrintCards() {
  PrintCustomers();
  std::printf("\n");
  PrintVendors();
  std::printf("\n");
  PrintEmployees();
  std::printf("\n");
  PrintMissingLookups();
}

void PrintAccounts() {
  std::printf("Chart of accounts\n  %-6s %-31s %s\n", "ID", "Description", "Type");
  int count = 0;
  Walk<AccountType>(OpenChartFile, [&count](AccountType& a) {
    char row[128];
    MakeAcntString(&a, FixedStringParamRef(row, sizeof row));
    // The list row is ID, tab, description, tab, type name.
    std::string text = row;
    size_t first = text.find('\t');
    size_t second = text.find('\t', first + 1);
    std::printf("  %-6s %-31s %s\n", text.substr(0, first).c_str(),
                text.substr(first + 1, second - first - 1).c_str(),
                text.substr(second + 1).c_str());
    ++count;
  });
  std::printf("  (%d accounts)\n\nSpecial accounts\n", count);
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
    std::printf("%s\n", AccountLine(m.label, found, id).c_str());
  }
  bool found = GetARAcnt(id) != 0;
  std::printf("%s\n", AccountLine("Receivables control", found, id).c_str());
  found = GetAPAcnt(id) != 0;
  std::printf("%s\n", AccountLine("Payables control", found, id).c_str());
  found = GetFirstAPARAcnt(id, 0);
  std::printf("%s\n", AccountLine("First receivable account", found, id).c_str());
  found = GetFirstAPARAcnt(id, 1);
  std::printf("%s\n", AccountLine("First payable account", found, id).c_str());
  found = GetRetEarnAcntID(id);
  std::printf("%s\n", AccountLine("Retained earnings", found, id).c_str());
  int cash = GetCountCashAcnt(id);
  std::printf("  Cash accounts: %s (last in ID order: %s)\n",
              cash >= 2 ? "two or more" : (cash == 1 ? "one" : "none"), id.c_str());
}

void PrintPeriods() {
  GeneralDataType* gl = nullptr;
  if (!GetGeneralDataPtr(nullptr, &gl, MOD_GL, kGenReadForReading, false)) {
    std::printf("The general-ledger settings cannot be read.\n");
    return;
  }
  const unsigned short n = gl->GL.PeriodsPerYear;
  std::printf("Period calendar: %u periods per year, first open fiscal year %u\n", n,
              gl->GL.FiscalYear);
  std::printf("  %8s %5s  %-12s  %-12s\n", "Internal", "User", "From", "To");
  const char* blocks[] = {"history year", "first open year", "second open year"};
  for (unsigned short p = 0; p < 42; ++p) {
    const FromTo& range = gl->GL.Calendar[p];
    if (AbsDate(range.from) == 0 && AbsDate(range.to) == 0) continue;
    unsigned short user = UserPeriod(p, n);
    std::string user_text = user != 0 ? std::to_string(user) : "-";
    std::printf("  %8u %5s  %-12s  %-12s  %s%s\n", p, user_text.c_str(),
                DateText(range.from).c_str(), DateText(range.to).c_str(), blocks[p / 14],
                p == Current.CurrentPeriod ? "  <- current" : "");
  }
  std::printf("  Today (%s) lies in internal period %u\n\n", DateText(TodaysDate).c_str(),
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
  std::printf("Date ranges\n  %4s  %-26s  %-12s  %-12s\n", "Code", "Range", "From", "To");
  for (const auto& c : codes) {
    FromTo range{};
    SetDateRange(c.code, &range);
    std::printf("  %4d  %-26s  %-12s  %-12s\n", c.code, c.name, DateText(range.from).c_str(),
                DateText(range.to).c_str());
  }
}

}  // namespace host
