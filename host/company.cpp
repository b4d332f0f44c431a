#include "company.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "Basics.h"

namespace host {
namespace {

constexpr const char* kHost = "host/company";

struct AccountSample {
  const char* id;
  int16_t type;
  const char* description;
  bool inactive;
};

// A small trading company's chart: cash, receivables, inventory, fixed assets, payables,
// equity, retained earnings, income, cost of sales and expenses.
const AccountSample kAccounts[] = {
    {"1000", 0, "Petty Cash", false},
    {"1020", 0, "Regular Checking Account", false},
    {"1030", 0, "Payroll Checking Account", false},
    {"1050", 0, "Money Market Fund", true},
    {"1100", 1, "Accounts Receivable", false},
    {"1150", 4, "Allowance for Doubtful Accounts", false},
    {"1200", 2, "Inventory", false},
    {"1300", 4, "Prepaid Expenses", false},
    {"1400", 4, "Employee Advances", false},
    {"1500", 5, "Furniture and Fixtures", false},
    {"1510", 5, "Equipment", false},
    {"1520", 5, "Vehicles", false},
    {"1550", 5, "Leasehold Improvements", true},
    {"1700", 6, "Accum. Depreciation - Furniture", false},
    {"1710", 6, "Accum. Depreciation - Equipment", false},
    {"1720", 6, "Accum. Depreciation - Vehicles", false},
    {"1900", 8, "Deposits", false},
    {"2000", 10, "Accounts Payable", false},
    {"2300", 12, "Accrued Expenses", false},
    {"2310", 12, "Sales Tax Payable", false},
    {"2320", 12, "Wages Payable", false},
    {"2330", 12, "Federal Payroll Taxes Payable", false},
    {"2340", 12, "State Payroll Taxes Payable", false},
    {"2400", 12, "Customer Deposits", false},
    {"2700", 14, "Long-Term Loan", false},
    {"2710", 14, "Vehicle Notes Payable", true},
    {"3000", 16, "Owner's Contribution", false},
    {"3500", 18, "Retained Earnings", false},
    {"3900", 19, "Owner's Draw", false},
    {"4000", 21, "Sales", false},
    {"4100", 21, "Service Revenue", false},
    {"4200", 21, "Finance Charge Income", false},
    {"4300", 21, "Other Income", false},
    {"4900", 21, "Sales Discounts", false},
    {"5000", 23, "Cost of Sales", false},
    {"5100", 23, "Freight Costs", false},
    {"6000", 24, "Advertising Expense", false},
    {"6100", 24, "Bank Charges", false},
    {"6200", 24, "Depreciation Expense", false},
    {"6300", 24, "Insurance Expense", false},
    {"6400", 24, "Office Supplies", false},
    {"6500", 24, "Rent Expense", false},
    {"6600", 24, "Telephone Expense", false},
    {"6700", 24, "Utilities Expense", false},
    {"7000", 24, "Wages Expense", false},
    {"7100", 24, "Payroll Tax Expense", false},
    {"7200", 24, "Travel Expense", true},
};

struct CardSample {
  const char* id;
  const char* name;
};

const CardSample kCustomers[] = {
    {"ALDRED", "Aldred Hardware & Supply"},
    {"BAYVIEW", "Bayview Community Garden Association"},  // longer than a list shows
    {"CORNELL", "Cornell Bakery"},
    {"DELGADO", "Delgado Landscaping"},
    {"EASTSIDE", "Eastside Dental Group"},
};
const CardSample kVendors[] = {
    {"ACME", "Acme Office Products"},
    {"HARBOR", "Harbor Freight Lines"},
    {"NORTHWIND", "Northwind Wholesale Distributors of Fine Goods"},
    {"PACIFIC", "Pacific Gas & Power"},
};
const CardSample kEmployees[] = {
    {"E-ADAMS", "Adams, Rachel"},
    {"E-BROOKS", "Brooks, Daniel"},
    {"E-CHEN", "Chen, Lily"},
};

// Inserts a record through a handle of the host's own; answers whether it was written.
template <typename Record>
bool Insert(int (*open)(BtrvFile**, uint16_t), Record* record, const char* what, Outcome& out) {
  BtrvFile* file = nullptr;
  if (open(&file, kOpenModeNormal) == 0) {
    out.Fail(std::string("the ") + what + " file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  bool ok = InsertRecord(file, sizeof(Record), record) != 0;
  if (!ok) out.Fail(std::string("a ") + what + " record cannot be written", GetErrorCode(file));
  RealCloseFile(&file, kHost, __LINE__);
  return ok;
}

bool WriteAccounts(Outcome& out) {
  BtrvFile* chart = nullptr;
  if (OpenChartFile(&chart, kOpenModeNormal) == 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  bool ok = bBeginBatchUpdate(chart) != 0;
  for (const AccountSample& a : kAccounts) {
    if (!ok) break;
    AccountType account{};
    account.ID = a.id;
    account.Type = a.type;
    account.Description = a.description;
    account.Inactive = a.inactive ? 1 : 0;
    AssignGUID(account.Guid);
    ok = InsertRecord(chart, sizeof account, &account) != 0;
  }
  if (!ok) out.Fail("an account cannot be written", GetErrorCode(chart));
  if (bEndBatchUpdate(chart) == 0 && ok) {
    out.Fail("the chart of accounts cannot be written", GetErrorCode(chart));
    ok = false;
  }
  RealCloseFile(&chart, kHost, __LINE__);
  return ok;
}

bool WriteCards(Outcome& out) {
  for (const CardSample& c : kCustomers) {
    CustomerRecord record{};
    record.ID = c.id;
    record.Name = c.name;
    AssignGUID(record.Guid);
    if (!Insert(OpenCustFile, &record, "customer", out)) return false;
  }
  for (const CardSample& c : kVendors) {
    VendorRecord record{};
    record.ID = c.id;
    record.Name = c.name;
    AssignGUID(record.Guid);
    if (!Insert(OpenVendFile, &record, "vendor", out)) return false;
  }
  for (const CardSample& c : kEmployees) {
    EmpType record{};
    record.ID = c.id;
    AssignGUID(record.Guid);
    if (!Insert(OpenEmployeeFile, &record, "employee", out)) return false;
  }
  return true;
}

// Sets twelve monthly periods: the first open year is the calendar year of the month two
// months back (so the demo's quarter lies in the open years), the second open year the one
// after it, the history year the one before, and the current period is this month.
bool WriteCalendar(Outcome& out) {
  GeneralDataType* gl = nullptr;
  if (!GetGeneralDataPtr(nullptr, &gl, MOD_GL, kGenReadForUpdate, false)) {
    out.Fail("the general-ledger settings cannot be read for editing", kNoStatus);
    return false;
  }
  DatesType quarter_start = TodaysDate;
  DecDate(quarter_start, 3);
  DecDate(quarter_start, 3);
  const int year = quarter_start.year;
  gl->GL.PeriodsPerYear = 12;
  gl->GL.FiscalYear = static_cast<uint16_t>(year);
  std::memset(gl->GL.Calendar, 0, sizeof gl->GL.Calendar);
  for (int block = 0; block < 3; ++block) {
    for (int month = 1; month <= 12; ++month) {
      FromTo& range = gl->GL.Calendar[block * 14 + month];
      MakeDate(month, 1, year - 1 + block, range.from);
      range.to = range.from;
      EndOfMonth(range.to);
    }
  }
  gl->GL.CurrentPeriod =
      static_cast<uint16_t>(14 * (1 + TodaysDate.year - year) + TodaysDate.month);
  if (WrtGeneralDataPtr(nullptr, gl, 1, 0) != 0) return true;
  out.Fail("the period calendar cannot be written", kNoStatus);
  return false;
}

// Points the modules' control and default cash accounts at the sample chart.
bool WriteModuleAccounts(Outcome& out) {
  struct {
    ModuleType kind;
    const char* control;
    const char* cash;
  } const settings[] = {{MOD_AR, "1100", "1020"},
                        {MOD_AP, "2000", "1020"},
                        {MOD_PR, nullptr, "1030"},
                        {MOD_GL, nullptr, "1020"}};
  for (const auto& s : settings) {
    GeneralDataType* rec = nullptr;
    if (!GetGeneralDataPtr(nullptr, &rec, s.kind, kGenReadForUpdate, false)) {
      out.Fail("a module's settings cannot be read for editing", kNoStatus);
      return false;
    }
    FixedString<16> cash{};
    cash = s.cash;
    int32_t cash_number = GetAcctRecNumFromID(cash);
    int32_t control_number = 0;
    if (s.control != nullptr) {
      FixedString<16> control{};
      control = s.control;
      control_number = GetAcctRecNumFromID(control);
    }
    switch (s.kind) {
      case MOD_AR:
        rec->AR.ControlAccount = control_number;
        rec->AR.DefaultCashAccount = cash_number;
        break;
      case MOD_AP:
        rec->AP.ControlAccount = control_number;
        rec->AP.DefaultCashAccount = cash_number;
        break;
      case MOD_PR:
        rec->PR.DefaultCashAccount = cash_number;
        break;
      default:
        rec->GL.DefaultCashAccount = cash_number;
        break;
    }
    if (!WrtGeneralDataPtr(nullptr, rec, 1, 0)) {
      out.Fail("a module's settings cannot be written", kNoStatus);
      return false;
    }
  }
  return true;
}

// The host's read-only handle on the open company's general file.
BtrvFile* g_general = nullptr;

std::string GeneralPath(const std::string& dir) {
  return (std::filesystem::path(dir) / GeneralFileName.c_str()).string();
}

// Opens the general file of dir read-only into g_general. A directory holds a company
// exactly when this open succeeds; on failure out receives the record manager's status.
bool OpenGeneral(const std::string& dir, Outcome& out) {
  if (RealOpenBFileOwner(&g_general, GeneralPath(dir).c_str(), kOpenModeReadOnly, kFileNoGeneral,
                         csTheOwner.c_str(), kHost, __LINE__) != 0) {
    return true;
  }
  g_general = nullptr;
  out.Fail("the general file cannot be read", GetErrorCode(nullptr));
  return false;
}

// Makes dir the open company: current directory, company path and globals, marker.
bool Enter(const std::string& dir, Outcome& out) {
  std::filesystem::path path(dir);
  if (::chdir(path.c_str()) != 0) {
    out.Fail(std::string("cannot make it the current directory: ") + std::strerror(errno),
             kNoStatus);
    return false;
  }
  g_szCompanyPath = path.c_str();
  CurrentDirName = path.c_str();
  CurrentShortName = path.filename().c_str();
  if (!g_sharedCompFile.Open(path.c_str())) {
    out.Fail("the company cannot be marked open", kNoStatus);
    return false;
  }
  CompanyIsOpen = 1;
  return true;
}

// Reads every settings record through the host's handle, so that a general file that
// lost records or cannot be read is found before any view shows half a company.
bool ReadSettings(Outcome& out) {
  const ModuleType kinds[] = {MOD_AR, MOD_AP, MOD_PR, MOD_GL, MOD_5, MOD_6, MOD_INV, MOD_8};
  for (ModuleType kind : kinds) {
    GeneralDataType* rec = nullptr;
    if (!GetGeneralDataPtr(g_general, &rec, kind, kGenReadForReading, false)) {
      out.Fail("the general file cannot be read", GetErrorCode(g_general));
      return false;
    }
  }
  return true;
}

constexpr size_t kCompanyOffset = 2;
constexpr size_t kOptionsOffset = kCompanyOffset + sizeof(CompanyDataType);
static_assert(kOptionsOffset + sizeof(OptionType) <= sizeof(GeneralDataType),
              "the host's settings fit the kind-6 record");

bool LoadHostSettings(Outcome& out) {
  GeneralDataType* rec = nullptr;
  if (!GetGeneralDataPtr(g_general, &rec, MOD_6, kGenReadForReading, false)) {
    out.Fail("the general file cannot be read", GetErrorCode(g_general));
    return false;
  }
  std::memcpy(&MyCompany, rec->raw + kCompanyOffset, sizeof MyCompany);
  std::memcpy(&Options, rec->raw + kOptionsOffset, sizeof Options);
  return true;
}

// Closes everything OpenCompany may have opened; answers the handles left open.
std::vector<OpenHandleInfo> Leave() {
  CloseInternalChartFile();
  CloseInternalCustFile();
  CloseInternalVendFile();
  CloseInternalEmpFile();
  CloseInternalItemFile();
  CloseInternalProjFile();
  CloseInternalPhaseFile();
  CloseInternalCostFile();
  CloseInternalJrnlFiles();
  CloseInternalInvTagFile();
  CloseInternalAuditTrailFile();
  RealCloseFile(&RecptTagFile, kHost, __LINE__);
  vCloseEventFile();
  CloseGeneralFile();
  DeallocGeneralRecReadPtr();
  RealCloseFile(&g_general, kHost, __LINE__);
  g_sharedCompFile.Close();
  CompanyIsOpen = 0;
  g_szCompanyPath = "";
  std::memset(&MyCompany, 0, sizeof MyCompany);
  std::memset(&Options, 0, sizeof Options);
  return ListOpenHandles();
}

}  // namespace

BtrvFile* GeneralFile() { return g_general; }

bool OpenCompany(const std::string& dir, Outcome& out) {
  if (OpenGeneral(dir, out) && Enter(dir, out) && ReadSettings(out) && LoadHostSettings(out)) {
    return true;
  }
  Leave();
  return false;
}

void CloseCompany(Outcome& out) {
  std::vector<OpenHandleInfo> left = Leave();
  if (!left.empty()) {
    const OpenHandleInfo& h = left.front();
    out.Fail("a handle was left open: " + h.fileName + " (opened at " + h.srcFile + ":" +
                 std::to_string(h.srcLine) + ")",
             kNoStatus);
  }
}

bool SaveHostSettings(Outcome& out) {
  GeneralDataType* rec = nullptr;
  if (!GetGeneralDataPtr(nullptr, &rec, MOD_6, kGenReadForUpdate, false)) {
    out.Fail("the company's settings cannot be read for editing", kNoStatus);
    return false;
  }
  std::memcpy(rec->raw + kCompanyOffset, &MyCompany, sizeof MyCompany);
  std::memcpy(rec->raw + kOptionsOffset, &Options, sizeof Options);
  if (WrtGeneralDataPtr(nullptr, rec, 1, 0) != 0) return true;
  out.Fail("the company's settings cannot be written", kNoStatus);
  return false;
}

bool CreateCompany(const std::string& dir, Outcome& out) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    out.Fail("cannot make the directory: " + ec.message(), kNoStatus);
    return false;
  }
  Outcome probe;
  if (OpenGeneral(dir, probe)) {
    Leave();
    out.Fail("already holds a company", kNoStatus);
    return false;
  }
  if (CreateNewCompany(dir.c_str()) == 0) {
    out.Fail("the company's data files cannot be created", GetErrorCode(nullptr));
    return false;
  }
  bool ok = OpenGeneral(dir, out) && Enter(dir, out);
  if (ok) {
    CurVersion = "1.0.0";
    ok = InitGeneralFile() != 0;
    if (!ok) out.Fail("the general file's defaults cannot be written", kNoStatus);
  }
  CloseCompany(out);
  return ok && !out.failed();
}

bool WriteSampleCompany(Outcome& out) {
  return WriteCalendar(out) && WriteAccounts(out) && WriteModuleAccounts(out) && WriteCards(out);
}

}  // namespace host
