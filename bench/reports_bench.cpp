// The reports' walks on generated books of 100,000 and 1,000,000 transactions.
//
// Each book is made once by the host program (`basics generate`, a year of business posted
// through the posting API), kept beside this program (<program>-book-<N>) and reused while
// its mark and record counts hold; a missing or partial book is made again, which takes a
// few minutes for the large one. The books to measure can be chosen with the environment
// variable REPORTS_BENCH_BOOKS (transactions, comma-separated; default 100000,1000000).
//
// On every book, against a plain record-manager walk of the same rows:
// - the general-ledger sort over the book's year (start, then every sorted entry with its
//   whole transaction loaded), against a walk of every row by row key 2 (account, date),
//   and against that walk reading each entry's whole transaction as well ("gl-trx": the
//   reads the sort hands out, without the sorting);
// - the register walk of the bank account, against a walk of its rows by key 2 (and, to
//   show what the register cannot do without, the same walk reading each row's header);
// - the job sort of one job, then its walk, against a walk of the job's rows by key 6;
// and, as the host program computes them in a process of its own: the trial balance (read
// from the chart's period amounts) and verify (with the quick store check). Each
// measurement gives its time, rows per second and peak memory: for the walks in this
// process the peak resident set above the one at the measurement's start (the peak is
// reset through /proc/self/clear_refs), for the host program the child's own peak.
//
// Every measurement runs three times (once on a book of a million transactions or more).
// At the end, per book, "ratio gl|gl-trx|register|job X.XX": our time over the plain walk's (best
// of the runs); then, from the smallest to the largest book, "growth <walk> X.XX": the time
// grown over the transactions grown (about 1 when the cost per transaction stays the same),
// and "memory <walk>" with the peaks on both books.
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "Basics.h"

#ifndef BASICS_HOST_PROGRAM
#error "BASICS_HOST_PROGRAM names the host program that makes and checks the books"
#endif

extern char** environ;

namespace {

// What every book is made with: the same seed and day give the same book. The day ends the
// first open year of the calendar the generator writes, so that a book is one whole year.
constexpr uint64_t kSeed = 1;
constexpr const char* kToday = "2025-12-31";
constexpr const char* kBankAccount = "1020";  // receipts, bills paid and expenses go through it
constexpr const char* kJob = "JOB0001";
constexpr uint16_t kFirstPeriod = 15, kLastPeriod = 26;  // the first open year
constexpr int16_t kAccountDateKey = 2, kJobDateKey = 6;

std::string g_program_path;  // this program, absolute: the books lie beside it

// --- Memory -------------------------------------------------------------------------------

// A field of /proc/self/status in kB; -1 when it cannot be read.
long StatusKB(const char* field) {
  std::ifstream status("/proc/self/status");
  const size_t length = std::strlen(field);
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, length, field) == 0 && line.size() > length && line[length] == ':')
      return std::strtol(line.c_str() + length + 1, nullptr, 10);
  }
  return -1;
}

// The peak resident set of one measurement: started by returning freed memory to the
// system and resetting the process's peak to its current resident set.
class PeakMemory {
 public:
  PeakMemory() {
    malloc_trim(0);
    std::FILE* refs = std::fopen("/proc/self/clear_refs", "w");
    reset_ = refs != nullptr && std::fputs("5", refs) >= 0;
    if (refs != nullptr) reset_ = std::fclose(refs) == 0 && reset_;
    start_kb_ = StatusKB("VmRSS");
  }
  // MB above the resident set at the start; -1 when the peak could not be reset.
  double GrowthMB() const {
    const long peak = StatusKB("VmHWM");
    return reset_ && peak >= 0 && start_kb_ >= 0 ? static_cast<double>(peak - start_kb_) / 1024
                                                 : -1;
  }

 private:
  bool reset_ = false;
  long start_kb_ = -1;
};

// --- The host program as a child ------------------------------------------------------------

struct ChildRun {
  int status = -1;  // the exit status; -1 when it did not exit normally
  double seconds = 0;
  long peak_kb = 0;  // the child's peak resident set
};

// Runs the host program with args, its standard output into out_path; waits for it.
ChildRun RunHost(const std::vector<std::string>& args, const std::string& out_path) {
  std::vector<std::string> words = {BASICS_HOST_PROGRAM};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ChildRun run;
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    std::fprintf(stderr, "reports_bench: %s cannot be started: %s\n", argv[0],
                 std::strerror(spawned));
    return run;
  }
  int status = 0;
  struct rusage usage = {};
  if (wait4(pid, &status, 0, &usage) != pid) return run;
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.peak_kb = usage.ru_maxrss;
  return run;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// --- The books ------------------------------------------------------------------------------

// A book and what the walks need of it, read once it is open.
struct Book {
  int64_t transactions = 0;
  std::string dir;
  bool ready = false;
  FromTo year{};
  int32_t bank = 0, job = 0;
  int32_t headers = 0, rows = 0, accounts = 0;
  // What the plain walks count: the rows of the year and their distinct (account, date,
  // post order), the bank account's rows of the year, the job's rows up to the year's end.
  int64_t year_rows = 0, year_entries = 0, bank_rows = 0, job_rows = 0;
};

std::map<int64_t, Book> g_books;
const Book* g_open = nullptr;  // the book the library's handles are on

// Closes every handle the library keeps on the open book and leaves it; "/" becomes the
// current directory.
void CloseBook() {
  if (g_open == nullptr) return;
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
  RealCloseFile(&RecptTagFile, __FILE__, __LINE__);
  vCloseEventFile();
  CloseGeneralFile();
  DeallocGeneralRecReadPtr();
  std::memset(&MyCompany, 0, sizeof MyCompany);
  CompanyIsOpen = 0;
  g_szCompanyPath = "";
  g_open = nullptr;
  if (chdir("/") != 0) std::perror("chdir");
}

// The company settings the host program keeps in the general file's kind-6 record, behind
// its two leading bytes: the cash-basis switch that the general-ledger sort reads is there.
constexpr size_t kHostCompanyOffset = 2;

// Makes book the open company as the host program does for a report: its directory current,
// the company path set, the settings read. Exits when it cannot.
void OpenBook(const Book& book) {
  if (g_open == &book) return;
  CloseBook();
  Check(chdir(book.dir.c_str()) == 0, "entering the book's directory");
  g_szCompanyPath = book.dir.c_str();
  CurrentDirName = book.dir.c_str();
  CompanyIsOpen = 1;
  GeneralDataType* settings = nullptr;
  Check(GetGeneralDataPtr(nullptr, &settings, MOD_6, kGenReadForReading, false) != 0,
        "reading the book's settings");
  std::memcpy(&MyCompany, settings->raw + kHostCompanyOffset, sizeof MyCompany);
  g_open = &book;
}

// The header and row counts of the open book; -1 each when the pair cannot be opened.
void CountJournal(int32_t* headers, int32_t* rows) {
  *headers = *rows = -1;
  JrnlDBFilesType files = {nullptr, nullptr};
  if (OpenJournalFile(&files, kOpenModeReadOnly)) {
    *headers = NumRecsInFile(files.HdrFile);
    *rows = NumRecsInFile(files.RowFile);
  }
  CloseJrnlFile(&files);
}

std::string MarkStart(const Book& book) {
  return "reports_bench book 1: " + std::to_string(book.transactions) + " transactions, seed " +
         std::to_string(kSeed) + ", today " + kToday + ";";
}

// Whether the book in dir is whole: its mark names how it was made and the counts that the
// journal still holds.
bool BookComplete(Book& book, const std::string& dir) {
  const std::string mark = ReadFile(dir + "/complete");
  const std::string start = MarkStart(book);
  long long headers = -1, rows = -1;
  if (mark.compare(0, start.size(), start) != 0 ||
      std::sscanf(mark.c_str() + start.size(), " %lld headers, %lld rows", &headers, &rows) != 2) {
    return false;
  }
  Book probe = book;
  probe.dir = dir;
  OpenBook(probe);
  int32_t h = 0, r = 0;
  CountJournal(&h, &r);
  CloseBook();
  return h == headers && r == rows && h > 0;
}

// Makes the book with the host program in <dir>.partial, marks it and puts it in place.
void BuildBook(Book& book) {
  const std::string partial = book.dir + ".partial";
  std::fprintf(stderr,
               "reports_bench: generating the %lld-transaction book in %s, once: it is kept "
               "for later runs (a minute or two per 100,000 transactions)\n",
               static_cast<long long>(book.transactions), book.dir.c_str());
  std::error_code ignored;
  std::filesystem::remove_all(partial, ignored);
  const ChildRun made =
      RunHost({"--today", kToday, "generate", partial, "--transactions",
               std::to_string(book.transactions), "--seed", std::to_string(kSeed)},
              book.dir + ".log");
  if (made.status != 0) {
    std::fprintf(stderr, "reports_bench: the generator failed (status %d); see %s.log\n",
                 made.status, book.dir.c_str());
    Check(false, "generating a book");
  }
  // A book that does not hold together would measure nothing worth having.
  const std::string verify_log = book.dir + "-verify.log";
  // The quick store check reads every page once; the full one also looks every index entry
  // up in its table, which takes most of an hour on the large book.
  const ChildRun verified = RunHost({"--today", kToday, "verify", partial, "--quick"}, verify_log);
  if (verified.status != 0 || ReadFile(verify_log) != "ok\n") {
    std::fprintf(stderr, "reports_bench: the new book does not verify; see %s-verify.log\n",
                 book.dir.c_str());
    Check(false, "verifying a new book");
  }
  Book probe = book;
  probe.dir = partial;
  OpenBook(probe);
  int32_t headers = 0, rows = 0;
  CountJournal(&headers, &rows);
  CloseBook();
  std::ofstream(partial + "/complete")
      << MarkStart(book) << " " << headers << " headers, " << rows << " rows\n";
  std::filesystem::remove_all(book.dir, ignored);
  std::error_code renamed;
  std::filesystem::rename(partial, book.dir, renamed);
  Check(!renamed && BookComplete(book, book.dir), "checking the new book");
  std::fprintf(stderr,
               "reports_bench: made in %.0f s (peak %.1f MB), verified in %.0f s (peak %.1f MB)\n",
               made.seconds, static_cast<double>(made.peak_kb) / 1024, verified.seconds,
               static_cast<double>(verified.peak_kb) / 1024);
}

bool InYear(const Book& book, const DatesType& date) { return DateInRange(book.year, date) == 0; }

// --- The plain walks ----------------------------------------------------------------------
// Reads of the row file and nothing else: what each report must read at the least. Each
// answers the rows it met.

// Every row of the year by key 2; *entries receives the distinct (account, date, post
// order) among them: the general-ledger sort lists at most one entry for each.
int64_t WalkYear(BtrvFile* file, const Book& book, int64_t* entries) {
  JrnlRowType row = {};
  int64_t rows = 0;
  *entries = 0;
  int32_t account = -1;
  DatesType date{};
  uint32_t post = 0;
  for (uint8_t ok = GetFileGE(file, kLockBiasNone, sizeof row, &row, kAccountDateKey); ok;
       ok = GetFileNext(file, kLockBiasNone, sizeof row, &row, kAccountDateKey)) {
    const DatesType row_date = row.Date;
    if (!InYear(book, row_date)) continue;
    ++rows;
    if (row.Account != account || row.PostOrder != post ||
        std::memcmp(&row_date, &date, sizeof date) != 0) {
      ++*entries;
      account = row.Account;
      date = row_date;
      post = row.PostOrder;
    }
  }
  return rows;
}

// WalkYear, and for each entry its whole transaction read as the general-ledger sort hands it
// out: the header by key 5 (the post order) and its rows by key 1 (post order, line) through
// a second row handle. What the sort cannot do without besides sorting; answers the year's
// rows.
int64_t WalkYearWithTransactions(BtrvFile* file, BtrvFile* headers, BtrvFile* lines,
                                 const Book& book) {
  JrnlRowType row = {};
  JrnlHdrType hdr;
  JrnlRowType line;
  int64_t rows = 0;
  int32_t account = -1;
  DatesType date{};
  uint32_t post = 0;
  for (uint8_t ok = GetFileGE(file, kLockBiasNone, sizeof row, &row, kAccountDateKey); ok;
       ok = GetFileNext(file, kLockBiasNone, sizeof row, &row, kAccountDateKey)) {
    const DatesType row_date = row.Date;
    if (!InYear(book, row_date)) continue;
    ++rows;
    if (row.Account == account && row.PostOrder == post &&
        std::memcmp(&row_date, &date, sizeof date) == 0) {
      continue;
    }
    account = row.Account;
    date = row_date;
    post = row.PostOrder;
    std::memset(&hdr, 0, sizeof hdr);
    hdr.PostOrder = post;
    if (!GetFileEqual(headers, kLockBiasNone, sizeof hdr, &hdr, 5)) continue;
    std::memset(&line, 0, sizeof line);
    line.PostOrder = post;
    for (uint8_t more = GetFileGE(lines, kLockBiasNone, sizeof line, &line, 1);
         more && line.PostOrder == post;
         more = GetFileNext(lines, kLockBiasNone, sizeof line, &line, 1)) {
    }
  }
  return rows;
}

// The bank account's rows of the year by key 2.
int64_t WalkBank(BtrvFile* file, const Book& book) {
  JrnlRowType row = {};
  row.Account = book.bank;
  row.Date = book.year.from;
  int64_t rows = 0;
  for (uint8_t ok = GetFileGE(file, kLockBiasNone, sizeof row, &row, kAccountDateKey);
       ok && row.Account == book.bank;
       ok = GetFileNext(file, kLockBiasNone, sizeof row, &row, kAccountDateKey)) {
    const DatesType date = row.Date;
    if (!InYear(book, date)) break;
    ++rows;
  }
  return rows;
}

// WalkBank, each row's header read as well (header key 5, the post order): the reads a
// register cannot do without. Answers the headers found.
int64_t WalkBankWithHeaders(BtrvFile* file, BtrvFile* headers, const Book& book) {
  JrnlRowType row = {};
  row.Account = book.bank;
  row.Date = book.year.from;
  JrnlHdrType hdr;
  int64_t found = 0;
  for (uint8_t ok = GetFileGE(file, kLockBiasNone, sizeof row, &row, kAccountDateKey);
       ok && row.Account == book.bank;
       ok = GetFileNext(file, kLockBiasNone, sizeof row, &row, kAccountDateKey)) {
    const DatesType date = row.Date;
    if (!InYear(book, date)) break;
    std::memset(&hdr, 0, sizeof hdr);
    hdr.PostOrder = row.PostOrder;
    found += GetFileEqual(headers, kLockBiasNone, sizeof hdr, &hdr, 5) != 0 ? 1 : 0;
  }
  return found;
}

// The job's rows up to the year's end by key 6 (job, date).
int64_t WalkJob(BtrvFile* file, const Book& book) {
  JrnlRowType row = {};
  row.Job = book.job;
  int64_t rows = 0;
  for (uint8_t ok = GetFileGE(file, kLockBiasNone, sizeof row, &row, kJobDateKey);
       ok && row.Job == book.job;
       ok = GetFileNext(file, kLockBiasNone, sizeof row, &row, kJobDateKey)) {
    const DatesType date = row.Date;
    if (CompareDates(date, book.year.to) > 0) break;
    ++rows;
  }
  return rows;
}

// The book of n transactions, made on first use when it is not there whole, and open.
const Book& UseBook(int64_t n) {
  Book& book = g_books[n];
  if (!book.ready) {
    book.transactions = n;
    book.dir = g_program_path + "-book-" + std::to_string(n);
    if (!BookComplete(book, book.dir)) BuildBook(book);
    OpenBook(book);
    book.year = FromTo{GetPeriodFrom(kFirstPeriod), GetPeriodTo(kLastPeriod)};
    FixedString<16> bank{};
    bank = kBankAccount;
    FixedString<21> job{};
    job = kJob;
    book.bank = GetAcctRecNumFromID(bank);
    book.job = GetProjNumFromID(job);
    CountJournal(&book.headers, &book.rows);
    BtrvFile* file = nullptr;
    if (OpenChartFile(&file, kOpenModeReadOnly)) book.accounts = NumRecsInFile(file);
    RealCloseFile(&file, __FILE__, __LINE__);
    Check(book.bank > 0 && book.job > 0 && book.accounts > 0, "finding the book's account and job");
    Check(OpenJrnlRowFile(&file, kOpenModeReadOnly) != 0, "opening the book's rows");
    book.year_rows = WalkYear(file, book, &book.year_entries);
    book.bank_rows = WalkBank(file, book);
    book.job_rows = WalkJob(file, book);
    RealCloseFile(&file, __FILE__, __LINE__);
    book.ready = true;
    CloseBook();  // the measurements start without the store's cache filled here
  }
  OpenBook(book);
  return book;
}

// --- Checks of what the walks hand out ---------------------------------------------------------

// The general-ledger sort's order: each account in one run, and in it date, then post order;
// each entry's transaction loaded (a below-zero row's made-up one has no post order).
class LedgerOrder {
 public:
  void Add(const JrnlRowType& row, const JournalRecord& record) {
    const int32_t account = row.Account;
    const DatesType date = row.Date;
    const uint32_t post = row.PostOrder;
    if (count_ == 0 || account != account_) {
      broken_ = broken_ || !accounts_.insert(account).second;  // the account came back
    } else if (const int c = CompareDates(date, date_); c < 0 || (c == 0 && post < post_)) {
      broken_ = true;
    }
    const bool below_zero = row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2;
    broken_ = broken_ || (!below_zero && record.PostOrder != post);
    account_ = account;
    date_ = date;
    post_ = post;
    ++count_;
  }
  bool broken() const { return broken_; }
  int64_t count() const { return count_; }

 private:
  std::set<int32_t> accounts_;
  int32_t account_ = 0;
  DatesType date_{};
  uint32_t post_ = 0;
  int64_t count_ = 0;
  bool broken_ = false;
};

// The job sort's order with the phase first: the job's rows by phase, then cost code.
bool JobOrderHolds(const JrnlRowType& before, const JrnlRowType& row) {
  const int phase = std::strncmp(before.Phase, row.Phase, sizeof row.Phase);
  return phase < 0 ||
         (phase == 0 && std::strncmp(before.CostCode, row.CostCode, sizeof row.CostCode) <= 0);
}

// Ends a measurement: its rate counts rows (the same rows on both sides of a comparison, so
// that their rates compare), its peak is the memory it took.
void Finish(benchmark::State& state, int64_t rows, const PeakMemory& memory) {
  state.SetItemsProcessed(state.iterations() * rows);
  state.counters["rows"] = static_cast<double>(rows);
  state.counters["peak_MB"] = memory.GrowthMB();
  CloseBook();
}

// --- The measurements ---------------------------------------------------------------------------

enum class Walk { kYear, kYearWithTransactions, kBank, kBankWithHeaders, kJob };

void BM_Plain(benchmark::State& state, int64_t n, Walk walk) {
  const Book& book = UseBook(n);
  PeakMemory memory;
  BtrvFile *file = nullptr, *headers = nullptr, *lines = nullptr;
  if (!OpenJrnlRowFile(&file, kOpenModeReadOnly) || !OpenJrnlHdrFile(&headers, kOpenModeReadOnly) ||
      !OpenJrnlRowFile(&lines, kOpenModeReadOnly))
    state.SkipWithError("the journal files");
  int64_t rows = 0, entries = 0;
  for (auto _ : state) {
    switch (walk) {
      case Walk::kYear:
        rows = WalkYear(file, book, &entries);
        break;
      case Walk::kYearWithTransactions:
        rows = WalkYearWithTransactions(file, headers, lines, book);
        break;
      case Walk::kBank:
        rows = WalkBank(file, book);
        break;
      case Walk::kBankWithHeaders:
        rows = WalkBankWithHeaders(file, headers, book);
        break;
      case Walk::kJob:
        rows = WalkJob(file, book);
        break;
    }
  }
  RealCloseFile(&file, __FILE__, __LINE__);
  RealCloseFile(&headers, __FILE__, __LINE__);
  RealCloseFile(&lines, __FILE__, __LINE__);
  const int64_t expected = walk == Walk::kYear || walk == Walk::kYearWithTransactions
                               ? book.year_rows
                           : walk == Walk::kJob ? book.job_rows
                                                : book.bank_rows;
  if (rows != expected) state.SkipWithError("the walk met other rows than before");
  Finish(state, expected, memory);
}

void BM_GeneralLedgerSort(benchmark::State& state, int64_t n) {
  const Book& book = UseBook(n);
  PeakMemory memory;
  LedgerOrder order;
  {
    JrnlRowHdrClass navigator(static_cast<int16_t>(kOpenModeReadOnly));
    JournalRecord* record = nullptr;
    if (!navigator.IsOKtoUse() || !AllocateJournalRecord(&record))
      state.SkipWithError("the navigator");
    for (auto _ : state) {
      order = LedgerOrder();
      if (!navigator.StartGetSortedTrx(book.year, GENJ, GENJ, 0)) {
        state.SkipWithError("the sort did not start");
        break;
      }
      int32_t account = 0;
      for (int ok = navigator.GetFirstSortedTrx(record); ok;
           ok = navigator.GetNextSortedTrx(account, record)) {
        order.Add(navigator.Row, *record);
      }
      navigator.EndGetSortedTrx();
    }
    if (record != nullptr) DeAllocateJournalRecord(&record);
  }
  if (order.broken() || order.count() == 0 || order.count() > book.year_entries)
    state.SkipWithError("entries out of order, missing or repeated");
  state.counters["entries"] = static_cast<double>(order.count());
  Finish(state, book.year_rows, memory);
}

void BM_Register(benchmark::State& state, int64_t n) {
  const Book& book = UseBook(n);
  PeakMemory memory;
  int64_t listed = 0;
  bool wrong = false;
  {
    JrnlRowHdrClass navigator(static_cast<int16_t>(kOpenModeReadOnly));
    if (!navigator.IsOKtoUse()) state.SkipWithError("the navigator");
    for (auto _ : state) {
      listed = 0;
      for (int ok = navigator.GetFirstSortedTrxForAcctRegister(book.year, book.bank); ok;
           ok = navigator.GetNextSortedTrxForAcctRegister(book.year, book.bank)) {
        const DatesType date = navigator.Row.Date;
        wrong = wrong || navigator.Row.Account != book.bank || !InYear(book, date) ||
                navigator.Row.PostOrder != navigator.Hdr.PostOrder;
        ++listed;
      }
    }
  }
  if (wrong || listed == 0 || listed > book.bank_rows)
    state.SkipWithError("rows of another account or date, or without their header");
  state.counters["listed"] = static_cast<double>(listed);
  Finish(state, book.bank_rows, memory);
}

void BM_JobSort(benchmark::State& state, int64_t n) {
  const Book& book = UseBook(n);
  PeakMemory memory;
  int64_t listed = 0;
  bool wrong = false;
  {
    JrnlRowHdrClass navigator(static_cast<int16_t>(kOpenModeReadOnly));
    if (!navigator.IsOKtoUse()) state.SkipWithError("the navigator");
    JrnlRowType before;
    for (auto _ : state) {
      listed = 0;
      navigator.StartGetSortedTrxJob(book.year, 0, book.job);
      for (int ok = navigator.GetFirstSortedTrxJob(); ok; ok = navigator.GetNextSortedTrxJob()) {
        wrong = wrong || navigator.Row.Job != book.job ||
                (listed > 0 && !JobOrderHolds(before, navigator.Row));
        before = navigator.Row;
        ++listed;
      }
      navigator.EndGetSortedTrxJob();
    }
  }
  // Orders and the second sales journal stay out of the sort; the plain walk meets them.
  if (wrong || listed == 0 || listed > book.job_rows)
    state.SkipWithError("rows of another job or out of order");
  state.counters["listed"] = static_cast<double>(listed);
  Finish(state, book.job_rows, memory);
}

// A command of the host program on the book, in a process of its own; its output must
// hold `expected`. option, when not null, follows the directory. The rate counts items: the
// book's rows for verify, its accounts for the trial balance, which reads only the chart.
void BM_Host(benchmark::State& state, int64_t n, const char* command, const char* option,
             const char* expected) {
  const Book& book = UseBook(n);
  const int64_t items = std::strcmp(command, "verify") == 0 ? book.rows : book.accounts;
  CloseBook();  // the child has the company to itself
  const std::string out = g_run.root + "/" + command + ".out";
  double peak_mb = 0;
  for (auto _ : state) {
    std::vector<std::string> args = {"--today", kToday, command, book.dir};
    if (option != nullptr) args.emplace_back(option);
    const ChildRun run = RunHost(args, out);
    peak_mb = std::max(peak_mb, static_cast<double>(run.peak_kb) / 1024);
    if (run.status != 0 || ReadFile(out).find(expected) == std::string::npos) {
      std::fprintf(stderr, "reports_bench: %s answered %d:\n%s", command, run.status,
                   ReadFile(out).substr(0, 2000).c_str());
      state.SkipWithError("the host program failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * items);
  state.counters["rows"] = static_cast<double>(items);
  state.counters["peak_MB"] = peak_mb;
}

// --- Results --------------------------------------------------------------------------------

// A console reporter that keeps, by benchmark name, the best time per pass, its rows and
// the highest peak of memory.
class BestReporter : public benchmark::ConsoleReporter {
 public:
  struct Result {
    double seconds = 0;
    double rows = 0;
    double peak_mb = 0;
  };
  BestReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
      auto [at, added] = results_.try_emplace(run.run_name.function_name);
      Result& r = at->second;
      if (added || seconds < r.seconds) r.seconds = seconds;
      r.rows = Counter(run, "rows");
      r.peak_mb = std::max(r.peak_mb, Counter(run, "peak_MB"));
    }
    ConsoleReporter::ReportRuns(runs);
  }
  // The result of name; null when it did not run.
  const Result* Find(const std::string& name) const {
    auto at = results_.find(name);
    return at == results_.end() ? nullptr : &at->second;
  }

 private:
  static double Counter(const Run& run, const char* name) {
    auto at = run.counters.find(name);
    return at == run.counters.end() ? 0 : static_cast<double>(at->second);
  }
  std::map<std::string, Result> results_;
};

struct Measure {
  const char* label;      // in the summary
  const char* benchmark;  // BM_... without the book's size
  const char* plain;      // the plain walk it is compared with, or null
};
constexpr Measure kMeasures[] = {
    {"gl", "BM_GeneralLedgerSort", "BM_GeneralLedgerPlain"},
    {"gl-plain", "BM_GeneralLedgerPlain", nullptr},
    {"gl-trx", "BM_GeneralLedgerSort", "BM_GeneralLedgerPlainWithTransactions"},
    {"gl-plain-trx", "BM_GeneralLedgerPlainWithTransactions", nullptr},
    {"register", "BM_Register", "BM_RegisterPlain"},
    {"register-plain", "BM_RegisterPlain", nullptr},
    {"register-hdr", "BM_RegisterPlainWithHeaders", nullptr},
    {"job", "BM_JobSort", "BM_JobPlain"},
    {"job-plain", "BM_JobPlain", nullptr},
    {"trial-balance", "BM_TrialBalance", nullptr},
    {"verify", "BM_Verify", nullptr},
};

std::string NameOf(const char* benchmark, int64_t n) {
  return std::string(benchmark) + "/" + std::to_string(n);
}

void PrintSummary(const BestReporter& reporter, const std::vector<int64_t>& sizes) {
  for (int64_t n : sizes) {
    auto at = g_books.find(n);
    if (at == g_books.end() || !at->second.ready) continue;
    const Book& b = at->second;
    std::printf(
        "\nbook of %lld transactions: %d headers, %d rows (%lld in the year, %lld of bank "
        "account %s, %lld of job %s), %d accounts\n",
        static_cast<long long>(n), b.headers, b.rows, static_cast<long long>(b.year_rows),
        static_cast<long long>(b.bank_rows), kBankAccount, static_cast<long long>(b.job_rows), kJob,
        b.accounts);
    std::printf("%-15s %12s %10s %12s %9s\n", "", "time ms", "rows", "rows/s", "peak MB");
    for (const Measure& m : kMeasures) {
      const BestReporter::Result* r = reporter.Find(NameOf(m.benchmark, n));
      if (r == nullptr) continue;
      std::printf("%-15s %12.1f %10.0f %12.0f %9.1f\n", m.label, r->seconds * 1e3, r->rows,
                  r->seconds > 0 ? r->rows / r->seconds : 0, r->peak_mb);
    }
    for (const Measure& m : kMeasures) {
      if (m.plain == nullptr) continue;
      const BestReporter::Result* ours = reporter.Find(NameOf(m.benchmark, n));
      const BestReporter::Result* plain = reporter.Find(NameOf(m.plain, n));
      if (ours != nullptr && plain != nullptr && plain->seconds > 0)
        std::printf("ratio %s %.2f (%lld transactions)\n", m.label, ours->seconds / plain->seconds,
                    static_cast<long long>(n));
    }
  }
  // Growth from the smallest book measured to the largest.
  if (sizes.size() < 2) return;
  const int64_t small = sizes.front(), large = sizes.back();
  const double books = static_cast<double>(large) / static_cast<double>(small);
  std::printf("\nfrom %lld to %lld transactions (x%.0f):\n", static_cast<long long>(small),
              static_cast<long long>(large), books);
  for (const Measure& m : kMeasures) {
    const BestReporter::Result* a = reporter.Find(NameOf(m.benchmark, small));
    const BestReporter::Result* b = reporter.Find(NameOf(m.benchmark, large));
    if (a == nullptr || b == nullptr || a->seconds <= 0 || a->rows <= 0) continue;
    std::printf("growth %s %.2f (time x%.2f, rows x%.2f)\n", m.label,
                b->seconds / a->seconds / books, b->seconds / a->seconds, b->rows / a->rows);
  }
  for (const Measure& m : kMeasures) {
    const BestReporter::Result* a = reporter.Find(NameOf(m.benchmark, small));
    const BestReporter::Result* b = reporter.Find(NameOf(m.benchmark, large));
    if (a != nullptr && b != nullptr)
      std::printf("memory %s %.1f MB -> %.1f MB\n", m.label, a->peak_mb, b->peak_mb);
  }
}

// The books to measure: REPORTS_BENCH_BOOKS, or 100,000 and 1,000,000 transactions.
std::vector<int64_t> BookSizes() {
  std::vector<int64_t> sizes;
  const char* chosen = std::getenv("REPORTS_BENCH_BOOKS");
  std::stringstream list(chosen != nullptr && *chosen != '\0' ? chosen : "100000,1000000");
  for (std::string word; std::getline(list, word, ',');) {
    const long long n = std::atoll(word.c_str());
    if (n > 0) sizes.push_back(n);
  }
  std::sort(sizes.begin(), sizes.end());
  sizes.erase(std::unique(sizes.begin(), sizes.end()), sizes.end());
  return sizes;
}

}  // namespace

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  g_program_path = std::filesystem::absolute(argv[0]).lexically_normal().string();
  const std::vector<int64_t> sizes = BookSizes();
  if (sizes.empty()) {
    std::fprintf(stderr, "reports_bench: REPORTS_BENCH_BOOKS names no book size\n");
    return 1;
  }
  StartRun("reports_bench", CloseBook);

  // The sorts and whole-book commands make one pass per repetition, the short walks as
  // many as the library's timing wants; a book of a million transactions or more is
  // measured once, as one pass over it takes minutes. The plain walk runs before the walk
  // it is compared with, so that both find the book in the system's file cache alike.
  using benchmark::RegisterBenchmark;
  for (int64_t n : sizes) {
    const int repetitions = n >= 1'000'000 ? 1 : 3;
    auto set = [repetitions](benchmark::internal::Benchmark* b, bool one_pass) {
      b->Repetitions(repetitions)->UseRealTime()->Unit(benchmark::kMillisecond);
      if (one_pass) b->Iterations(1);
    };
    set(RegisterBenchmark(NameOf("BM_GeneralLedgerPlain", n).c_str(), BM_Plain, n, Walk::kYear),
        true);
    set(RegisterBenchmark(NameOf("BM_GeneralLedgerPlainWithTransactions", n).c_str(), BM_Plain, n,
                          Walk::kYearWithTransactions),
        true);
    set(RegisterBenchmark(NameOf("BM_GeneralLedgerSort", n).c_str(), BM_GeneralLedgerSort, n),
        true);
    set(RegisterBenchmark(NameOf("BM_RegisterPlain", n).c_str(), BM_Plain, n, Walk::kBank), false);
    set(RegisterBenchmark(NameOf("BM_RegisterPlainWithHeaders", n).c_str(), BM_Plain, n,
                          Walk::kBankWithHeaders),
        false);
    set(RegisterBenchmark(NameOf("BM_Register", n).c_str(), BM_Register, n), false);
    set(RegisterBenchmark(NameOf("BM_JobPlain", n).c_str(), BM_Plain, n, Walk::kJob), false);
    set(RegisterBenchmark(NameOf("BM_JobSort", n).c_str(), BM_JobSort, n), false);
    set(RegisterBenchmark(NameOf("BM_TrialBalance", n).c_str(), BM_Host, n, "trial-balance",
                          nullptr, "Debits equal credits."),
        false);
    set(RegisterBenchmark(NameOf("BM_Verify", n).c_str(), BM_Host, n, "verify", "--quick", "ok\n"),
        true);
  }
  BestReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  CloseBook();
  const std::vector<OpenHandleInfo> left = ListOpenHandles();
  if (!left.empty()) {
    std::fprintf(stderr, "reports_bench: a handle was left open on %s (%s:%d)\n",
                 left.front().fileName.c_str(), left.front().srcFile.c_str(), left.front().srcLine);
  }
  EndRun();
  PrintSummary(reporter, sizes);
  benchmark::Shutdown();
  return left.empty() ? 0 : 1;
}
