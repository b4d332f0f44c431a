// The command-line host program `basics`: creates companies and shows what the library
// answers about them. kUsage lists the commands. Every command either prints its whole
// output and exits 0, or prints one line naming the directory, what failed and the record
// manager's status on standard error and exits 1; usage errors exit 2. With --server the
// company lives in a schema of a PostgreSQL server instead of a directory.
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "Basics.h"
#include "aging.h"
#include "company.h"
#include "generate.h"
#include "ledger.h"
#include "ledger_reports.h"
#include "outcome.h"
#include "post.h"
#include "report.h"
#include "sample_books.h"
#include "verify.h"

#ifndef BASICS_VERSION
#define BASICS_VERSION "unknown"
#endif

namespace {

constexpr const char* kUsage =
    "usage: basics [--today YYYY-MM-DD] COMMAND DIR [--format table|csv|json] [options]\n"
    "       basics [--today YYYY-MM-DD] --server CONNINFO COMMAND COMPANY [...]\n"
    "       basics --help | --version\n"
    "commands:\n"
    "  new DIR       create an empty company\n"
    "  demo DIR      create a sample company (and a cash-basis one in DIR/cash-basis),\n"
    "                post a quarter of business and show it, ending with its reports\n"
    "  generate DIR --transactions N [--seed S]\n"
    "                create a company and post N generated transactions into it\n"
    "  cards DIR     customers, vendors, employees and their lookups\n"
    "  accounts DIR  chart of accounts and special accounts\n"
    "  periods DIR   period calendar and date ranges\n"
    "  journal DIR   transactions in date order and the costs of their item rows;\n"
    "                --journal N, --from YYYY-MM-DD and --to YYYY-MM-DD choose them\n"
    "  items DIR     items and sub-items with their quantities on order\n"
    "  jobs DIR      projects with their estimates, phases and cost codes\n"
    "  post DIR FILE post the transactions of a JSON file (docs/posting-format.md);\n"
    "                exit status 1 when any was refused\n"
    "  trial-balance DIR  balance of every account from the chart's period amounts;\n"
    "                --period N (the user's period) or --from and --to (the first and\n"
    "                last days of periods) choose them; --from-rows adds up the posted\n"
    "                rows instead, for any dates\n"
    "  invoices DIR  sales and purchase invoices with what was paid and when\n"
    "  aging DIR     open receivables and payables by days past due\n"
    "  events DIR    the event log\n"
    "  verify DIR    check that the books hold together; prints ok, or each problem\n"
    "                and exit status 1; --quick checks the store without comparing\n"
    "                every index with its table\n"
    "  gl DIR        the general ledger: each account's opening balance, transactions\n"
    "                with the running balance, and closing balance\n"
    "  register DIR ACCOUNT   the account's ledger rows with the running balance\n"
    "  reconcile DIR ACCOUNT  the account's cleared and uncleared rows\n"
    "  job DIR [JOB] the job ledger by phase and cost code, estimates against actuals\n"
    "  check DIR     exit 0 when DIR holds a company that opens, else 1\n"
    "The reports (gl, register, reconcile, job) take --period N or --from and --to;\n"
    "without them they cover every date.\n"
    "The listings (cards, accounts, periods, journal, items, jobs, post, trial-balance,\n"
    "invoices, aging, events, generate) and the reports print as a table, CSV or JSON\n"
    "(--format).\n"
    "A company that cannot be read is reported on one line with the record manager's\n"
    "status, and the exit status is 1.\n"
    "With --server the company is kept on the PostgreSQL server that CONNINFO names (a\n"
    "libpq connection string such as \"host=db.example port=5432 user=books dbname=books\")\n"
    "in the schema COMPANY; the demo's cash-basis company is the schema COMPANY/cash-basis.\n"
    "A server that cannot be reached is reported on one line, and the exit status is 1.\n";

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

// Adds report of the company in dir to out.
void WithReport(const std::string& dir, void (*report)(const host::ReportRequest&, host::Outcome&),
                const host::ReportRequest& request, host::Outcome& out) {
  if (!host::OpenCompany(dir, out)) return;
  report(request, out);
  host::CloseCompany(out);
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

// Makes the sample companies in dir and dir/cash-basis and shows them; shown is how dir is
// named in the output (the directory, or the company's schema on a server).
void Demo(const std::string& dir, const std::string& shown, host::Outcome& out) {
  const std::string cash_dir = dir + "/cash-basis";
  const std::string cash_shown = shown + "/cash-basis";
  if (!MakeSampleCompany(dir, false, out) || !MakeSampleCompany(cash_dir, true, out)) return;
  out.Printf("Sample company created in %s\n", shown.c_str());
  out.Printf("Cash-basis sample company created in %s\n\n", cash_shown.c_str());
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
  out.Printf("\n== The cash-basis company (%s)\n", cash_shown.c_str());
  TrialBalances(cash_dir, out);
  out.Printf("\n");
  WithCompany(cash_dir, host::InvoicesView, host::Format::kTable, out);
  // The sample company's ledger reports.
  out.Printf("\n== The reports of the sample company (%s)\n", shown.c_str());
  host::ReportRequest request;
  WithReport(dir, host::GeneralLedgerReport, request, out);
  out.Printf("\n");
  request.account = "1020";
  WithReport(dir, host::RegisterReport, request, out);
  out.Printf("\n");
  WithReport(dir, host::JobReport, host::ReportRequest(), out);
  out.Printf("\n");
  WithCompany(dir, host::AgingView, host::Format::kTable, out);
}

// What a command takes after its directory.
enum Takes : unsigned {
  kFormat = 1u << 0,         // --format
  kJournalOption = 1u << 1,  // --journal
  kDates = 1u << 2,          // --from, --to
  kPeriod = 1u << 3,         // --period
  kFromRows = 1u << 4,       // --from-rows
  kSize = 1u << 5,           // --transactions, --seed
  kQuick = 1u << 6,          // --quick
};

// A report written row by row as it walks the books (ledger_reports.h).
using Report = void (*)(const host::ReportRequest& request, host::Outcome& out);

struct Command {
  const char* name;
  host::View view;       // a listing view of an open company, or null
  const char* argument;  // what a second argument names in messages ("a file"), or null
  unsigned takes;
  Report report = nullptr;
  bool argument_optional = false;
};

const Command kCommands[] = {
    {"new", nullptr, nullptr, 0},
    {"demo", nullptr, nullptr, 0},
    {"check", nullptr, nullptr, 0},
    {"cards", host::CardsView, nullptr, kFormat},
    {"accounts", host::AccountsView, nullptr, kFormat},
    {"periods", host::PeriodsView, nullptr, kFormat},
    {"journal", host::JournalView, nullptr, kFormat | kJournalOption | kDates},
    {"items", host::ItemsView, nullptr, kFormat},
    {"jobs", host::JobsView, nullptr, kFormat},
    {"trial-balance", host::TrialBalanceView, nullptr, kFormat | kDates | kPeriod | kFromRows},
    {"invoices", host::InvoicesView, nullptr, kFormat},
    {"events", host::EventsView, nullptr, kFormat},
    {"aging", host::AgingView, nullptr, kFormat},
    {"post", nullptr, "a file", kFormat},
    {"generate", nullptr, nullptr, kFormat | kSize},
    {"verify", nullptr, nullptr, kQuick},
    {"gl", nullptr, nullptr, kFormat | kDates | kPeriod, host::GeneralLedgerReport},
    {"register", nullptr, "an account", kFormat | kDates | kPeriod, host::RegisterReport},
    {"reconcile", nullptr, "an account", kFormat | kDates | kPeriod, host::ReconcileReport},
    {"job", nullptr, "a job", kFormat | kDates | kPeriod, host::JobReport, true},
};

// The options given after the directory (and the command's second argument).
struct CommandOptions {
  host::Format format = host::Format::kTable;
  int journal = -1;
  int period = 0;
  bool has_from = false, has_to = false;
  DatesType from{}, to{};
  bool from_rows = false;
  bool quick = false;
  int64_t transactions = -1;
  uint64_t seed = 1;
};

bool ParseNumber(const char* text, long long low, long long high, long long* number) {
  if (text == nullptr) return false;
  char* end = nullptr;
  errno = 0;
  *number = std::strtoll(text, &end, 10);
  return end != text && *end == '\0' && errno == 0 && *number >= low && *number <= high;
}

// Reads the options argv[first..] of command into *options; answers 0, or 2 after the
// usage message.
int ParseOptions(const Command& command, int first, int argc, char** argv,
                 CommandOptions* options) {
  for (int i = first; i < argc; ++i) {
    const std::string option = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    unsigned needs = 0;
    if (option == "--format") needs = kFormat;
    if (option == "--journal") needs = kJournalOption;
    if (option == "--from" || option == "--to") needs = kDates;
    if (option == "--period") needs = kPeriod;
    if (option == "--from-rows") needs = kFromRows;
    if (option == "--quick") needs = kQuick;
    if (option == "--transactions" || option == "--seed") needs = kSize;
    if ((command.takes & needs) == 0) {
      std::fprintf(stderr, "basics: %s takes no option '%s'\n", command.name, option.c_str());
      return UsageError();
    }
    long long number = 0;
    if (option == "--from-rows" || option == "--quick") {
      (option == "--quick" ? options->quick : options->from_rows) = true;
      continue;
    }
    ++i;  // every other option takes a value
    if (option == "--format") {
      if (value == nullptr || !host::ParseFormat(value, &options->format)) {
        std::fprintf(stderr, "basics: --format wants table, csv or json\n");
        return UsageError();
      }
    } else if (option == "--journal") {
      if (!ParseNumber(value, 0, 12, &number)) {
        std::fprintf(stderr, "basics: --journal wants a journal number from 0 to 12\n");
        return UsageError();
      }
      options->journal = static_cast<int>(number);
    } else if (option == "--period") {
      if (!ParseNumber(value, 1, 26, &number)) {
        std::fprintf(stderr, "basics: --period wants a period number from 1 to 26\n");
        return UsageError();
      }
      options->period = static_cast<int>(number);
    } else if (option == "--transactions") {
      if (!ParseNumber(value, 0, 100000000, &number)) {
        std::fprintf(stderr, "basics: --transactions wants a number from 0 to 100000000\n");
        return UsageError();
      }
      options->transactions = number;
    } else if (option == "--seed") {
      if (!ParseNumber(value, 0, INT64_MAX, &number)) {
        std::fprintf(stderr, "basics: --seed wants a number from 0 up\n");
        return UsageError();
      }
      options->seed = static_cast<uint64_t>(number);
    } else {
      const bool from = option == "--from";
      if (value == nullptr || !ParseDate(value, from ? options->from : options->to)) {
        std::fprintf(stderr, "basics: %s wants a date as YYYY-MM-DD\n", option.c_str());
        return UsageError();
      }
      (from ? options->has_from : options->has_to) = true;
    }
  }
  if (options->period != 0 && (options->has_from || options->has_to)) {
    std::fprintf(stderr, "basics: --period and --from/--to exclude each other\n");
    return UsageError();
  }
  if ((command.takes & kSize) != 0 && options->transactions < 0) {
    std::fprintf(stderr, "basics: %s wants --transactions N\n", command.name);
    return UsageError();
  }
  return 0;
}

// The absolute, normal form of a path named on the command line; empty after a message
// when it cannot be made.
std::string AbsolutePath(const char* name) {
  std::error_code ec;
  std::filesystem::path path = std::filesystem::absolute(name, ec);
  if (ec) {
    std::fprintf(stderr, "basics: %s: %s\n", name, ec.message().c_str());
    return "";
  }
  path = path.lexically_normal();
  if (!path.has_filename()) path = path.parent_path();  // "co/" names co
  return path.string();
}

// Where the companies of a --server run live on this machine: a private working directory,
// made at the start and removed at the end, under which each company's directory is served
// from the schema of the same name. It exists because opening a company makes the company's
// directory current; the company itself is kept on the server.
struct ServerRun {
  std::string conninfo;
  std::string root;  // the private working directory; empty before Start
  ~ServerRun() {
    if (root.empty()) return;
    if (::chdir("/") != 0) return;  // opening a company made a directory under root current
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  // Makes the working directory; answers false after a message.
  bool Start() {
    std::error_code ec;
    std::filesystem::path temp = std::filesystem::temp_directory_path(ec);
    if (ec) temp = "/tmp";
    std::string pattern = (temp / "basics-server-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      std::fprintf(stderr, "basics: cannot make a working directory: %s\n", std::strerror(errno));
      return false;
    }
    root = pattern;
    return true;
  }
  // Serves root/company from the schema company; answers false after the one-line message
  // when the server cannot be reached.
  bool Serve(const std::string& company) const {
    std::string error;
    const std::string dir = root + "/" + company;
    if (ZORServeDirectoryFromServer(dir.c_str(), conninfo.c_str(), company.c_str(), &error) == 0)
      return true;
    std::string reason;  // the server's lines joined into one
    for (char c : error) {
      const bool space = c == '\n' || c == '\r' || c == '\t' || c == ' ';
      if (!space)
        reason += c;
      else if (!reason.empty() && reason.back() != ' ')
        reason += ' ';
    }
    while (!reason.empty() && reason.back() == ' ') reason.pop_back();
    std::fprintf(stderr, "basics: the server cannot be reached: %s\n",
                 reason.empty() ? "no reason given" : reason.c_str());
    return false;
  }
};

// Whether name can name a company on a server: a schema name of at most 63 bytes, with
// '/' only between non-empty parts that are not "." or "..".
bool IsCompanyName(const std::string& name) {
  if (name.empty() || name.size() > 63 || name.front() == '/' || name.back() == '/') return false;
  size_t start = 0;
  while (start <= name.size()) {
    size_t end = name.find('/', start);
    if (end == std::string::npos) end = name.size();
    const std::string part = name.substr(start, end - start);
    if (part.empty() || part == "." || part == "..") return false;
    start = end + 1;
  }
  return true;
}

// Lists what verify found, one problem a line, or "ok"; answers the number of problems.
int Verify(const std::string& dir, bool quick, host::Outcome& out) {
  std::vector<std::string> problems;
  if (!host::OpenCompany(dir, out)) return 0;
  host::VerifyBook(dir, quick, &problems, out);
  host::CloseCompany(out);
  if (out.failed()) return 0;
  if (problems.empty()) out.Printf("ok\n");
  for (const std::string& problem : problems) out.Printf("%s\n", problem.c_str());
  return static_cast<int>(problems.size());
}

}  // namespace

int main(int argc, char** argv) {
  int arg = 1;
  ServerRun server;
  bool on_server = false;
  for (bool more = true; more && arg + 1 < argc;) {
    if (std::strcmp(argv[arg], "--today") == 0) {
      DatesType today{};
      if (!ParseDate(argv[arg + 1], today)) {
        std::fprintf(stderr, "basics: --today wants a date as YYYY-MM-DD\n");
        return 2;
      }
      TodaysDate = today;
      arg += 2;
    } else if (std::strcmp(argv[arg], "--server") == 0) {
      server.conninfo = argv[arg + 1];
      on_server = true;
      arg += 2;
    } else {
      more = false;
    }
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
  const std::string name = argv[arg];
  const Command* command = nullptr;
  for (const Command& c : kCommands) {
    if (name == c.name) command = &c;
  }
  if (command == nullptr) {
    std::fprintf(stderr, "basics: unknown %s '%s'\n", name[0] == '-' ? "option" : "command",
                 name.c_str());
    return UsageError();
  }
  if (arg + 1 >= argc || argv[arg + 1][0] == '-') {
    std::fprintf(stderr, "basics: %s wants one %s\n", command->name,
                 on_server ? "company" : "directory");
    return UsageError();
  }
  int first_option = arg + 2;
  std::string second;
  const bool second_given = arg + 2 < argc && argv[arg + 2][0] != '-';
  if (command->argument != nullptr && (second_given || !command->argument_optional)) {
    if (!second_given) {
      std::fprintf(stderr, "basics: %s wants a %s and %s\n", command->name,
                   on_server ? "company" : "directory", command->argument);
      return UsageError();
    }
    second = argv[arg + 2];
    first_option = arg + 3;
  }
  CommandOptions options;
  if (const int status = ParseOptions(*command, first_option, argc, argv, &options)) return status;
  host::JournalFilter filter;
  filter.journal = options.journal;
  filter.has_from = options.has_from;
  filter.from = options.from;
  filter.has_to = options.has_to;
  filter.to = options.to;
  host::SetJournalFilter(filter);
  host::TrialBalanceRange range;
  range.period = options.period;
  range.has_from = options.has_from;
  range.from = options.from;
  range.has_to = options.has_to;
  range.to = options.to;
  host::SetTrialBalanceRange(range);
  host::View view = command->view;
  if (options.from_rows) view = host::TrialBalanceFromRowsView;
  host::ReportRequest request;
  request.format = options.format;
  request.period = options.period;
  request.has_from = options.has_from;
  request.from = options.from;
  request.has_to = options.has_to;
  request.to = options.to;
  (name == "job" ? request.job : request.account) = second;

  // Every command works on the absolute path: opening a company changes the directory.
  const std::string post_path = name == "post" ? AbsolutePath(second.c_str()) : "";
  if (name == "post" && post_path.empty()) return 1;
  std::string dir;
  const std::string company = argv[arg + 1];
  if (on_server) {
    if (!IsCompanyName(company)) {
      std::fprintf(stderr,
                   "basics: '%s' cannot name a company on a server (a schema name of at most "
                   "63 bytes, parts separated by '/')\n",
                   company.c_str());
      return 2;
    }
    if (!server.Start() || !server.Serve(company)) return 1;
    if (name == "demo" && !server.Serve(company + "/cash-basis")) return 1;
    dir = server.root + "/" + company;
    // Opening a company makes its directory current, so it must be there on this machine.
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
      std::fprintf(stderr, "basics: cannot make a working directory: %s\n", ec.message().c_str());
      return 1;
    }
  } else {
    dir = AbsolutePath(company.c_str());
    if (dir.empty()) return 1;
  }

  // What the output calls the company: on a server its schema, not the working directory.
  const std::string shown = on_server ? company : dir;
  host::Outcome out;
  SetMessageHandler([&out](const HostMessage& message) { return AnswerQuietly(out, message); });
  int refused = 0;
  if (view != nullptr) {
    WithCompany(dir, view, options.format, out);
  } else if (command->report != nullptr) {
    if (host::OpenCompany(dir, out)) {
      command->report(request, out);
      host::CloseCompany(out);
    }
  } else if (name == "post") {
    if (host::OpenCompany(dir, out)) {
      std::vector<host::Listing> listings;
      host::PostFile(post_path, second, &listings, &refused, out);
      host::CloseCompany(out);
      if (!out.failed()) host::Render(listings, options.format, out);
    }
  } else if (name == "generate") {
    std::vector<host::Listing> listings;
    host::GenerateBook(dir, {options.transactions, options.seed}, &listings, out);
    if (!out.failed()) host::Render(listings, options.format, out);
  } else if (name == "verify") {
    refused = Verify(dir, options.quick, out);
  } else if (name == "new") {
    if (host::CreateCompany(dir, out)) out.Printf("Empty company created in %s\n", shown.c_str());
  } else if (name == "demo") {
    Demo(dir, shown, out);
  } else if (host::OpenCompany(dir, out)) {  // check
    host::CloseCompany(out);
    out.Printf("%s holds a company\n", shown.c_str());
  }
  int status = out.Finish(shown);
  if (status == 0 && refused > 0) status = 1;
  SetMessageHandler(nullptr);
  return status;
}
