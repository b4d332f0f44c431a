// The command-line host program `basics`: creates companies and shows what the library
// answers about them.
//
//   basics [--today YYYY-MM-DD] new DIR        an empty company with default settings
//   basics [--today YYYY-MM-DD] demo DIR       a sample company, then every view below
//   basics [--today YYYY-MM-DD] cards DIR      customers, vendors, employees and lookups
//   basics [--today YYYY-MM-DD] accounts DIR   chart of accounts and special accounts
//   basics [--today YYYY-MM-DD] periods DIR    period calendar and date ranges
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "Basics.h"
#include "company.h"
#include "report.h"

namespace {

int Usage() {
  std::fprintf(stderr,
               "usage: basics [--today YYYY-MM-DD] COMMAND DIR\n"
               "commands:\n"
               "  new DIR       create an empty company\n"
               "  demo DIR      create a sample company and show it\n"
               "  cards DIR     customers, vendors, employees and their lookups\n"
               "  accounts DIR  chart of accounts and special accounts\n"
               "  periods DIR   period calendar and date ranges\n");
  return 2;
}

bool ParseDate(const char* text, DatesType& date) {
  int year = 0, month = 0, day = 0;
  if (std::sscanf(text, "%d-%d-%d", &year, &month, &day) != 3) return false;
  MakeDate(month, day, year, date);
  return IsLegalDate(date);
}

// Runs view on the company in dir; answers the exit status.
int WithCompany(const std::string& dir, void (*view)()) {
  if (!host::OpenCompany(dir)) return 1;
  view();
  return host::CloseCompany() == 0 ? 0 : 1;
}

int Demo(const std::string& dir) {
  if (!host::CreateCompany(dir)) return 1;
  if (!host::OpenCompany(dir)) return 1;
  bool ok = host::WriteSampleCompany();
  if (host::CloseCompany() != 0 || !ok) {
    std::fprintf(stderr, "basics: the sample company could not be written\n");
    return 1;
  }
  std::printf("Sample company created in %s\n\n", dir.c_str());
  int status = WithCompany(dir, host::PrintCards);
  std::printf("\n");
  status |= WithCompany(dir, host::PrintAccounts);
  std::printf("\n");
  status |= WithCompany(dir, host::PrintPeriods);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  int arg = 1;
  if (arg + 1 < argc && std::strcmp(argv[arg], "--today") == 0) {
    DatesType today{};
    if (!ParseDate(argv[arg + 1], today)) {
      std::fprintf(stderr, "basics: --today wants a date as YYYY-MM-DD\n");
      return 2;
    }
    TodaysDate = today;
    arg += 2;
  }
  if (arg + 2 != argc) return Usage();
  const std::string command = argv[arg];
  std::error_code ec;
  // Every command works on the absolute path: opening a company changes the directory.
  const std::string dir = std::filesystem::absolute(argv[arg + 1], ec).lexically_normal().string();
  if (ec) return Usage();

  if (command == "new") {
    if (!host::CreateCompany(dir)) return 1;
    std::printf("Empty company created in %s\n", dir.c_str());
    return 0;
  }
  if (command == "demo") return Demo(dir);
  if (command == "cards") return WithCompany(dir, host::PrintCards);
  if (command == "accounts") return WithCompany(dir, host::PrintAccounts);
  if (command == "periods") return WithCompany(dir, host::PrintPeriods);
  return Usage();
}
