// The command-line host program `basics`: creates companies and shows what the library
// answers about them. kUsage lists the commands. Every command either prints its whole
// output and exits 0, or prints one line naming the directory, what failed and the record
// manager's status on standard error and exits 1; usage errors exit 2.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "Basics.h"
#include "company.h"
#include "ledger.h"
#include "outcome.h"
#include "post.h"
#include "report.h"
#include "sample_books.h"

#ifndef BASICS_VERSION
#define BASICS_VERSION "unknown"
#endif

namespace {

constexpr const char* kUsage =
    "usage: basics [--today YYYY-MM-DD] COMMAND DIR [--format table|csv|json] [options]\n"
    "       basics --help | --version\n"
    "commands:\n"
    "  new DIR       create an empty company\n"
    "  demo DIR      create a sample company (and a cash-basis one in DIR/cash-basis),\n"
    "                post a quarter of business and show it\n"
    "  cards DIR     customers, vendors, employees and their lookups\n"
    "  accounts DIR  chart of accounts and special accounts\n"
    "  periods DIR   period calendar and date ranges\n"
    "  journal DIR   transactions in date order and the costs of their item rows;\n"
    "                --journal N, --from YYYY-MM-DD and --to YYYY-MM-DD choose them\n"
    "  items DIR     items and sub-items with their quantities on order\n"
    "  jobs DIR      projects with their estimates, phases and cost codes\n"
    "  post DIR FILE post the transactions of a JSON file (docs/posting-format.md);\n"
    "                exit status 1 when any was refused\n"
    "  trial-balance DIR  balance of every account over the posted rows;\n"
    "                --period N (the user's period) or --from and --to choose them\n"
    "  invoices DIR  sales and purchase invoices with what was paid and when\n"
    "  events DIR    the event log\n"
    "  check DIR     exit 0 when DIR holds a company that opens, else 1\n"
    "The listings (cards, accounts, periods, journal, items, jobs, post, trial-balance,\n"
    "invoices, events) print as a table, CSV or JSON (--format).\n"
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

// Adds view of the company in dir to out in format.
void WithCompany(const std::string& dir, host::View view, host::Format format, host::Outcome& out) {
  if (!host::OpenCompany(dir, out)) return;
  std::vector<host::Listing> listings;
  view(&listings, out);
  host::CloseCompany(out);
  if (!out.failed()) host::Render(listings, format, out);
}

// Makes a company in dir with the sample's chart, cards, items and jobs and a quarter of
// business posted; cash_basis keeps its books on the cash basis.
bool MakeSampleCompany(const std::string& dir, bool cash_basis, host::Outcome& out) {
  if (!host::CreateCompany(dir, out)) return false;
  if (!host::OpenCompany(dir, out)) return false;
  if (host::WriteSampleCompany(out) && host::WriteSampleSettings(cash_basis, out)) {
    host::WriteSampleBooks(out);
  }
  host::CloseCompany(out);
  return !out.failed();
}

void TrialBalances(const std::string& dir, host::Outcome& out) {
  for (int back = 2; back >= 0; --back) {
    DatesType month = TodaysDate;
    for (int i = 0; i < back; ++i) DecDate(month, 3);
    if (!host::OpenCompany(dir, out)) return;
    const unsigned short period = UserPeriod(WhichGLperiod(month), Current.PeriodsPerYear);
    host::CloseCompany(out);
    host::TrialBalanceRange range;
    range.period = period;
    host::SetTrialBalanceRange(range);
    out.Printf("\n");
    WithCompany(dir, host::TrialBalanceView, host::Format::kTable, out);
  }
  host::SetTrialBalanceRange({});
}

void Demo(const std::string& dir, host::Outcome& out) {
  const std::string cash_dir = dir + "/cash-basis";
  if (!MakeSampleCompany(dir, false, out) || !MakeSampleCompany(cash_dir, true, out)) return;
  out.Printf("Sample company created in %s\n", dir.c_str());
  out.Printf("Cash-basis sample company created in %s\n\n", cash_dir.c_str());
  for (host::View view : {host::CardsView, host::AccountsView, host::PeriodsView, host::ItemsView,
                          host::JobsView, host::JournalView}) {
    if (view != host::CardsView) out.Printf("\n");
    WithCompany(dir, view, host::Format::kTable, out);
  }
  TrialBalances(dir, out);
  out.Printf("\n");
  WithCompany(dir, host::InvoicesView, host::Format::kTable, out);
  out.Printf("\n");
  WithCompany(dir, host::EventsView, host::Format::kTable, out);
  out.Printf("\n== The cash-basis company (%s)\n", cash_dir.c_str());
  TrialBalances(cash_dir, out);
  out.Printf("\n");
  WithCompany(cash_dir, host::InvoicesView, host::Format::kTable, out);
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
  host::View view = nullptr;
  if (command == "cards") view = host::CardsView;
  if (command == "accounts") view = host::AccountsView;
  if (command == "periods") view = host::PeriodsView;
  if (command == "journal") view = host::JournalView;
  if (command == "items") view = host::ItemsView;
  if (command == "jobs") view = host::JobsView;
  if (command == "trial-balance") view = host::TrialBalanceView;
  if (command == "invoices") view = host::InvoicesView;
  if (command == "events") view = host::EventsView;
  const bool post = command == "post";
  if (view == nullptr && !post && command != "new" && command != "demo" && command != "check") {
    std::fprintf(stderr, "basics: unknown %s '%s'\n", command[0] == '-' ? "option" : "command",
                 command.c_str());
    return UsageError();
  }
  if (arg + 1 >= argc || argv[arg + 1][0] == '-') {
    std::fprintf(stderr, "basics: %s wants one directory\n", command.c_str());
    return UsageError();
  }
  int first_option = arg + 2;
  std::string post_file;
  if (post) {
    if (arg + 2 >= argc || argv[arg + 2][0] == '-') {
      std::fprintf(stderr, "basics: post wants a directory and a file\n");
      return UsageError();
    }
    post_file = argv[arg + 2];
    first_option = arg + 3;
  }
  // Options after the directory: the listing commands take --format, the journal and the
  // trial balance their filters.
  host::Format format = host::Format::kTable;
  host::JournalFilter filter;
  host::TrialBalanceRange range;
  for (int i = first_option; i < argc; i += 2) {
    const std::string option = argv[i];
    const bool date_option = option == "--from" || option == "--to";
    const bool journal_option = command == "journal" && (option == "--journal" || date_option);
    const bool balance_option = command == "trial-balance" && (option == "--period" || date_option);
    if ((view == nullptr && !post) ||
        (option != "--format" && !journal_option && !balance_option)) {
      std::fprintf(stderr, "basics: %s takes no option '%s'\n", command.c_str(), option.c_str());
      return UsageError();
    }
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (option == "--format") {
      if (value == nullptr || !host::ParseFormat(value, &format)) {
        std::fprintf(stderr, "basics: --format wants table, csv or json\n");
        return UsageError();
      }
    } else if (option == "--journal" || option == "--period") {
      char* end = nullptr;
      const long number = value != nullptr ? std::strtol(value, &end, 10) : -1;
      if (option == "--journal" &&
          (value == nullptr || *end != '\0' || number < 0 || number > 12)) {
        std::fprintf(stderr, "basics: --journal wants a journal number from 0 to 12\n");
        return UsageError();
      }
      if (option == "--period" && (value == nullptr || *end != '\0' || number < 1 || number > 26)) {
        std::fprintf(stderr, "basics: --period wants a period number from 1 to 26\n");
        return UsageError();
      }
      (option == "--journal" ? filter.journal : range.period) = static_cast<int>(number);
    } else {
      const bool from = option == "--from";
      DatesType& date =
          command == "journal" ? (from ? filter.from : filter.to) : (from ? range.from : range.to);
      if (value == nullptr || !ParseDate(value, date)) {
        std::fprintf(stderr, "basics: %s wants a date as YYYY-MM-DD\n", option.c_str());
        return UsageError();
      }
      if (command == "journal") {
        (from ? filter.has_from : filter.has_to) = true;
      } else {
        (from ? range.has_from : range.has_to) = true;
      }
    }
  }
  if (range.period != 0 && (range.has_from || range.has_to)) {
    std::fprintf(stderr, "basics: --period and --from/--to exclude each other\n");
    return UsageError();
  }
  host::SetJournalFilter(filter);
  host::SetTrialBalanceRange(range);
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
  const std::string post_path =
      post ? std::filesystem::absolute(post_file, ec).lexically_normal().string() : "";

  host::Outcome out;
  SetMessageHandler([&out](const HostMessage& message) { return AnswerQuietly(out, message); });
  int refused = 0;
  if (view != nullptr) {
    WithCompany(dir, view, format, out);
  } else if (post) {
    if (host::OpenCompany(dir, out)) {
      std::vector<host::Listing> listings;
      host::PostFile(post_path, post_file, &listings, &refused, out);
      host::CloseCompany(out);
      if (!out.failed()) host::Render(listings, format, out);
    }
  } else if (command == "new") {
    if (host::CreateCompany(dir, out)) out.Printf("Empty company created in %s\n", dir.c_str());
  } else if (command == "demo") {
    Demo(dir, out);
  } else if (host::OpenCompany(dir, out)) {  // check
    host::CloseCompany(out);
    out.Printf("%s holds a company\n", dir.c_str());
  }
  int status = out.Finish(dir);
  if (status == 0 && refused > 0) status = 1;
  SetMessageHandler(nullptr);
  return status;
}
