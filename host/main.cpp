// The command-line host program `basics`: creates companies and shows what the library
// answers about them. kUsage lists the commands. Every command either prints its whole
// output and exits 0, or prints one line naming the directory, what failed and the record
// manager's status on standard error and exits 1; usage errors exit 2.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "Basics.h"
#include "company.h"
#include "outcome.h"
#include "report.h"

#ifndef BASICS_VERSION
#define BASICS_VERSION "unknown"
#endif

namespace {

constexpr const char* kUsage =
    "usage: basics [--today YYYY-MM-DD] COMMAND DIR\n"
    "       basics --help | --version\n"
    "commands:\n"
    "  new DIR       create an empty company\n"
    "  demo DIR      create a sample company and show it\n"
    "  cards DIR     customers, vendors, employees and their lookups\n"
    "  accounts DIR  chart of accounts and special accounts\n"
    "  periods DIR   period calendar and date ranges\n"
    "  check DIR     exit 0 when DIR holds a company that opens, else 1\n"
    "A company that cannot be read is reported on one line with the record manager's\n"
    "status, and the exit status is 1.\n";

int UsageError() {
  std::fputs(kUsage, stderr);
  return 2;
}

bool ParseDate(const char* text, DatesType& date) {
  int year = 0, month = 0, day = 0;
  if (std::sscanf(text, "%d-%d-%d", &year, &month, &day) != 3) return false;
  MakeDate(month, day, year, date);
  return IsLegalDate(date);
}

// Answers a message the way the platform's default would (OK, No, Cancel or Ignore) but
// keeps its text in out instead of writing it, so that a failing command's one line is
// all that reaches standard error.
int AnswerQuietly(host::Outcome& out, const HostMessage& message) {
  out.Note(message.text);
  return DefaultMessageAnswer(message.style);
}

// Adds view of the company in dir to out.
void WithCompany(const std::string& dir, void (*view)(host::Outcome&), host::Outcome& out) {
  if (!host::OpenCompany(dir, out)) return;
  view(out);
  host::CloseCompany(out);
}

void Demo(const std::string& dir, host::Outcome& out) {
  if (!host::CreateCompany(dir, out)) return;
  if (!host::OpenCompany(dir, out)) return;
  host::WriteSampleCompany(out);
  host::CloseCompany(out);
  if (out.failed()) return;
  out.Printf("Sample company created in %s\n\n", dir.c_str());
  WithCompany(dir, host::PrintCards, out);
  out.Printf("\n");
  WithCompany(dir, host::PrintAccounts, out);
  out.Printf("\n");
  WithCompany(dir, host::PrintPeriods, out);
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
  if (arg + 1 == argc &&
      (std::strcmp(argv[arg], "--help") == 0 || std::strcmp(argv[arg], "-h") == 0)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (arg + 1 == argc && std::strcmp(argv[arg], "--version") == 0) {
    std::printf("basics %s\n", BASICS_VERSION);
    return 0;
  }
  if (arg >= argc) return UsageError();
  const std::string command = argv[arg];
  void (*view)(host::Outcome&) = nullptr;
  if (command == "cards") view = host::PrintCards;
  if (command == "accounts") view = host::PrintAccounts;
  if (command == "periods") view = host::PrintPeriods;
  if (view == nullptr && command != "new" && command != "demo" && command != "check") {
    std::fprintf(stderr, "basics: unknown %s '%s'\n", command[0] == '-' ? "option" : "command",
                 command.c_str());
    return UsageError();
  }
  if (arg + 2 != argc) {
    std::fprintf(stderr, "basics: %s wants one directory\n", command.c_str());
    return UsageError();
  }
  std::error_code ec;
  // Every command works on the absolute path: opening a company changes the directory.
  std::filesystem::path path = std::filesystem::absolute(argv[arg + 1], ec);
  if (ec) {
    std::fprintf(stderr, "basics: %s: %s\n", argv[arg + 1], ec.message().c_str());
    return 1;
  }
  path = path.lexically_normal();
  if (!path.has_filename()) path = path.parent_path();  // "co/" names co
  const std::string dir = path.string();

  host::Outcome out;
  SetMessageHandler([&out](const HostMessage& message) { return AnswerQuietly(out, message); });
  if (view != nullptr) {
    WithCompany(dir, view, out);
  } else if (command == "new") {
    if (host::CreateCompany(dir, out)) out.Printf("Empty company created in %s\n", dir.c_str());
  } else if (command == "demo") {
    Demo(dir, out);
  } else if (host::OpenCompany(dir, out)) {  // check
    host::CloseCompany(out);
    out.Printf("%s holds a company\n", dir.c_str());
  }
  int status = out.Finish(dir);
  SetMessageHandler(nullptr);
  return status;
}
