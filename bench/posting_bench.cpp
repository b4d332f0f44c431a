// Posting and navigating against SQLite used directly.
//
// Posting: InsertJournal of 4-line sales invoices (a customer, the receivables account on the
// header, four income lines; the "invoice entered" event switched on, so every invoice also
// writes one event), with the transaction number taken first as a host does (NextTrxNumber).
// (a) 500 invoices each posted alone, so that every one commits and syncs; (b) 10,000 inside
// one batch on the pair. The direct side makes, on a company of its own and in the same commit
// pattern, the reads posting makes to number and check an invoice (the last transaction number
// of sales and of the second sales journal, the highest post order, the last payment applied to
// the invoice, the headers with the same reference, the card's last event number) and the same
// writes: header, rows and event, with the same record sizes, into the tables and indexes the
// record manager made, with the same key bytes.
//
// Navigating: a JrnlRowHdrClass walk by account (row key 2, GetRowGE then GetRowNext) over a
// book of 1,000,000 rows: 62,500 sales invoices of five item lines, each line with its
// cost-of-sales and inventory rows, whose costs the navigator completes from the invoices'
// sale cost layers on every row; each row's header is looked up
// (GetHdrForRow_CacheByPostOrder). The reference is the record manager's plain walk of the same
// rows by key 2. The book is built once, beside the program (<program>-book), marked complete
// when its last batch committed, and reused while the mark and its record counts hold.
//
// At the end the rates, then "ratio post-each|post-batch|navigate X.XX": our time per invoice
// (per row) over the direct side's (the plain walk's), best of three.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "Basics.h"

namespace {

constexpr int kBatchInvoices = 10'000, kEachInvoices = 500, kLines = 4;
constexpr int kRows = kLines + 1;  // the main row and the income lines
constexpr int32_t kReceivables = 12, kFirstIncome = 40;
constexpr uint16_t kPeriod = 15;         // the first period of the first open year
constexpr size_t kEntryEventSwitch = 2;  // creation switches run 1, 2, 4, ...: event 4
constexpr int16_t kEntryEvent = 4;       // an invoice entered
constexpr uint32_t kNever = 0x7FFFFFFF;  // paid-in-full date while a balance remains

std::string g_ours;     // the company InsertJournal posts into
std::string g_direct;   // the company written directly with SQLite
std::string g_book;     // the navigator's book, kept between runs
std::string g_current;  // the company the library's handles are open on

// The keys of the header, row and event files, from their creation descriptions.
std::vector<KeySeg> g_hdr_keys, g_row_keys, g_event_keys;

// Closes every handle the library keeps on the company it worked in, then makes dir the
// current company.
void UseCompany(const std::string& dir) {
  if (dir == g_current) return;
  CloseInternalJrnlFiles();
  CloseInternalInvTagFile();
  CloseInternalAuditTrailFile();
  CloseInternalCustFile();
  CloseInternalItemFile();
  vCloseEventFile();
  Check(chdir(dir.c_str()) == 0, "chdir");
  g_szCompanyPath = dir.c_str();
  g_current = dir;
}

// --- The posted invoice ----------------------------------------------------------------------

// What differs from one invoice to the next: n counts the invoices a side posted.
struct InvoiceVary {
  int32_t card;
  DatesType date;
  char reference[21];
  double quantity[kLines];
  double price[kLines];
  double total;
};

InvoiceVary Vary(uint32_t n) {
  InvoiceVary v = {};
  v.card = static_cast<int32_t>(1 + n % 200);
  v.date = DatesType{static_cast<uint8_t>(n % 28 + 1), static_cast<uint8_t>(n / 28 % 12 + 1), 2024};
  std::snprintf(v.reference, sizeof v.reference, "INV%07u", static_cast<unsigned>(n));
  for (int i = 0; i < kLines; ++i) {
    v.quantity[i] = 1 + (n + static_cast<uint32_t>(i)) % 5;
    v.price[i] = 10 + 2.5 * i;
    v.total += v.quantity[i] * v.price[i];
  }
  return v;
}

JrnlSalesHdr130 SalesArea130(const DatesType& date, bool paid_in_full_set) {
  JrnlSalesHdr130 a = {};
  if (paid_in_full_set) std::memcpy(&a.PaidInFullDate, &kNever, sizeof kNever);
  a.DueDate = DatesType{date.day, static_cast<uint8_t>(date.month % 12 + 1), date.year};
  return a;
}

// Our side: invoice n as the host hands it to InsertJournal (numbers and GUIDs left to it).
void MakeInvoiceRecord(JournalRecord* r, uint32_t n) {
  const InvoiceVary v = Vary(n);
  std::memset(r, 0, sizeof *r);
  r->Key1.Period = kPeriod;
  r->Key1.JournalType = SJ;
  r->Key2 = JournalKey2Type{'R', v.card, v.date};
  r->HdrAccount = kReceivables;
  Assign(r->Description, "Sales invoice");
  Assign(r->Reference, v.reference);
  r->Amount = v.total;
  r->LedgerFlag = 1;
  r->LineCount = kLines;
  r->J.Sales.Area130 = SalesArea130(v.date, false);
  for (int i = 0; i < kLines; ++i) {
    JrnlDistLine& l = r->J.Sales.Lines[i];
    l.Account = kFirstIncome + i;
    l.Quantity = v.quantity[i];
    l.UnitPrice = v.price[i];
    l.Amount = -v.quantity[i] * v.price[i];
    char text[32];
    std::snprintf(text, sizeof text, "Income line %d", i + 1);
    Assign(l.Description, text);
  }
}

// The direct side: the header and rows of invoice n under transaction number trx and post
// order post, made from nothing as the journal store lays them out.
void MakeInvoiceRows(uint32_t n, int32_t trx, uint32_t post, JrnlHdrType* hdr, JrnlRowType* rows) {
  const InvoiceVary v = Vary(n);
  std::memset(hdr, 0, sizeof *hdr);
  hdr->Key1 = JournalKey1Type{0, trx, kPeriod, SJ, 0};
  hdr->Key2 = JournalKey2Type{'R', v.card, v.date};
  AssignGUID(hdr->Guid);
  hdr->PostOrder = post;
  sstrcpy(hdr->Description, "Sales invoice", sizeof hdr->Description);
  sstrcpy(hdr->Reference, v.reference, sizeof hdr->Reference);
  hdr->LedgerFlag = 1;
  hdr->HdrAccount = kReceivables;
  const JrnlSalesHdr130 area = SalesArea130(v.date, true);
  std::memcpy(hdr->Specific130, &area, sizeof area);

  JrnlRowType& main = rows[0];
  std::memset(&main, 0, sizeof main);
  main.PostOrder = post;
  main.JournalType = SJ;
  main.Date = v.date;
  main.LedgerFlag = 1;
  main.Customer = v.card;
  for (int i = 1; i < kRows; ++i) rows[i] = main;
  main.Account = kReceivables;
  main.Amount = v.total;
  sstrcpy(main.Description, "Sales invoice", sizeof main.Description);
  sstrcpy(main.InvoiceReference, v.reference, sizeof main.InvoiceReference);
  AssignGUID(main.Guid);
  for (int i = 0; i < kLines; ++i) {
    JrnlRowType& row = rows[i + 1];
    row.LineNumber = static_cast<uint16_t>(i + 1);
    row.Account = kFirstIncome + i;
    row.Amount = -v.quantity[i] * v.price[i];
    row.Quantity = v.quantity[i];
    row.UnitPrice = v.price[i];
    std::snprintf(row.Description, sizeof row.Description, "Income line %d", i + 1);
    AssignGUID(row.Guid);
  }
}

// The bytes of key `slot` of rec as the store keeps them; answers their length.
int SlotKey(const std::vector<KeySeg>& segs, int slot, const void* rec, uint8_t* out) {
  uint8_t* end = out;
  for (const KeySeg& s : segs)
    if (s.key == slot) end = EncodeKey(end, static_cast<const uint8_t*>(rec), s);
  return static_cast<int>(end - out);
}

// --- The two posting sides: Begin/Post/Commit a batch, PostAlone one invoice ----------------
// Each counts the invoices it posted; both post the same sequence.

void NoJournalHook(JournalRecord*, EVENTDB_ACTION) {}

class Ours {
 public:
  Ours() {
    Enter();
    Check(OpenJournalFile(&files_, kOpenModeNormal) != 0, "opening the journal pair");
    Check(AllocateJournalRecord(&record_) != 0, "allocating a record");
  }
  ~Ours() {
    DeAllocateJournalRecord(&record_);
    CloseJrnlFile(&files_);
  }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  static inline uint32_t posted = 0;
  void Enter() { UseCompany(g_ours); }  // the library's own handles read the current company
  bool Begin() { return bBeginBatchUpdate(files_.HdrFile) != 0; }
  bool Commit() { return bEndBatchUpdate(files_.HdrFile) != 0; }
  bool Post(uint32_t n) {
    MakeInvoiceRecord(record_, n);
    record_->Key1.TrxNumber = NextTrxNumber(record_->Key1);
    return InsertJournal(files_, record_) != 0;
  }
  bool PostAlone(uint32_t n) { return Post(n); }  // InsertJournal commits each invoice

 private:
  JrnlDBFilesType files_ = {nullptr, nullptr};
  JournalRecord* record_ = nullptr;
};

class Direct {
 public:
  Direct() : db_(OpenDirect(g_direct)) {
    // Columns are by key slot: the header's keys 0, 2 and 5 are slots 0, 2 and 5, the row's
    // key 5 slot 5, the event log's key 0 slot 0.
    const std::string read = "SELECT pos, ver, ";
    hdr_last_trx_ =
        Prepare(db_, "jrnlhdr.dat",
                read + "k0, data FROM $T WHERE k0<?1 ORDER BY k0 DESC, pos DESC LIMIT 1");
    hdr_last_post_ =
        Prepare(db_, "jrnlhdr.dat", read + "k5, data FROM $T ORDER BY k5 DESC, pos DESC LIMIT 1");
    hdr_by_reference_ =
        Prepare(db_, "jrnlhdr.dat", read + "k2, data FROM $T WHERE k2=?1 ORDER BY k2, pos LIMIT 1");
    last_payment_ =
        Prepare(db_, "jrnlrow.dat",
                read + "k5, data FROM $T WHERE k5<?1 ORDER BY k5 DESC, pos DESC LIMIT 1");
    last_event_ =
        Prepare(db_, "eventlog.dat",
                read + "k0, data FROM $T WHERE k0<=?1 ORDER BY k0 DESC, pos DESC LIMIT 1");
    insert_hdr_ = Prepare(db_, "jrnlhdr.dat", InsertSql(KeyCount(g_hdr_keys)));
    insert_row_ = Prepare(db_, "jrnlrow.dat", InsertSql(KeyCount(g_row_keys)));
    insert_event_ = Prepare(db_, "eventlog.dat", InsertSql(KeyCount(g_event_keys)));
    begin_ = Prepare(db_, nullptr, "BEGIN IMMEDIATE");
    commit_ = Prepare(db_, nullptr, "COMMIT");
    keys_.resize(KeyBytes(g_hdr_keys) + KeyBytes(g_row_keys) + KeyBytes(g_event_keys));
  }
  ~Direct() {
    for (sqlite3_stmt* s : {hdr_last_trx_, hdr_last_post_, hdr_by_reference_, last_payment_,
                            last_event_, insert_hdr_, insert_row_, insert_event_, begin_, commit_})
      sqlite3_finalize(s);
    sqlite3_close_v2(db_);
  }
  Direct(const Direct&) = delete;
  Direct& operator=(const Direct&) = delete;

  static inline uint32_t posted = 0;
  void Enter() {}
  bool Begin() { return Run(begin_); }
  bool Commit() { return Run(commit_); }
  bool PostAlone(uint32_t n) { return Begin() && Post(n) && Commit(); }

  // Numbers invoice n, checks its reference, writes its header and rows and its event.
  bool Post(uint32_t n) {
    uint8_t key[64];
    // The next transaction number: the last key below number 0x7FFFFFFF of the same journal
    // and period, for sales and for the second sales journal, which share one sequence.
    int32_t trx = 1;
    for (int16_t journal : {int16_t{SJ}, int16_t{SJ2}}) {
      std::memset(&probe_hdr_, 0, sizeof probe_hdr_);
      probe_hdr_.Key1 = JournalKey1Type{0, 0x7FFFFFFF, kPeriod, journal, 0};
      const int length = SlotKey(g_hdr_keys, 0, &probe_hdr_, key);
      if (ReadOne(hdr_last_trx_, key, length, &found_hdr_, sizeof found_hdr_) &&
          found_hdr_.Key1.JournalType == journal && found_hdr_.Key1.Period == kPeriod &&
          found_hdr_.Key1.TrxNumber < 0x7FFFFFFE) {
        trx = std::max(trx, found_hdr_.Key1.TrxNumber + 1);
      }
    }
    // The next post order number.
    const uint32_t post = ReadOne(hdr_last_post_, nullptr, 0, &found_hdr_, sizeof found_hdr_)
                              ? found_hdr_.PostOrder + 1
                              : 1;
    MakeInvoiceRows(n, trx, post, &hdr_, rows_);
    // The paid-in-full date: the last payment row applied to this invoice (none here).
    std::memset(&found_row_, 0, sizeof found_row_);
    found_row_.AppliedLink = post;
    std::memcpy(&found_row_.Date, &kNever, sizeof kNever);
    int length = SlotKey(g_row_keys, 5, &found_row_, key);
    if (ReadOne(last_payment_, key, length, &found_row_, sizeof found_row_) &&
        found_row_.AppliedLink == post) {
      return false;
    }
    // The duplicate-invoice check: the headers with the same reference.
    length = SlotKey(g_hdr_keys, 2, &hdr_, key);
    if (ReadOne(hdr_by_reference_, key, length, &found_hdr_, sizeof found_hdr_)) return false;

    if (!Insert(insert_hdr_, g_hdr_keys, &hdr_, sizeof hdr_)) return false;
    for (const JrnlRowType& row : rows_)
      if (!Insert(insert_row_, g_row_keys, &row, sizeof row)) return false;

    // The event: the next log number after the last event at or below the card's highest.
    std::memset(&event_, 0, sizeof event_);
    event_.CardRecordNumber = hdr_.Key2.Card;
    event_.CardType = 1;
    event_.LogNumber = 20000;
    length = SlotKey(g_event_keys, 0, &event_, key);
    event_.LogNumber = ReadOne(last_event_, key, length, &found_event_, sizeof found_event_)
                           ? static_cast<uint16_t>(found_event_.LogNumber + 1)
                           : 1;
    event_.Date = hdr_.Key2.Date;
    Assign(event_.Title, "Invoice");
    event_.EventType = kEntryEvent;
    event_.JournalKey = hdr_.Key1;
    event_.Completed = 1;
    event_.CompletedDate = hdr_.Key2.Date;
    return Insert(insert_event_, g_event_keys, &event_, sizeof event_);
  }

 private:
  // Steps s with key bound (none when length is 0); true with the record copied into out
  // when a row came back.
  static bool ReadOne(sqlite3_stmt* s, const uint8_t* key, int length, void* out, size_t size) {
    if (length > 0) sqlite3_bind_blob(s, 1, key, length, SQLITE_STATIC);
    const bool found = sqlite3_step(s) == SQLITE_ROW;
    if (found) std::memcpy(out, sqlite3_column_blob(s, 3), size);
    sqlite3_reset(s);
    return found;
  }
  bool Insert(sqlite3_stmt* s, const std::vector<KeySeg>& keys, const void* rec, size_t size) {
    BindKeys(s, keys, rec, keys_.data());
    sqlite3_bind_blob(s, static_cast<int>(KeyCount(keys) + 1), rec, static_cast<int>(size),
                      SQLITE_STATIC);
    return Run(s);
  }
  static bool Run(sqlite3_stmt* s) {
    const int rc = sqlite3_step(s);
    sqlite3_reset(s);
    return rc == SQLITE_DONE;
  }

  sqlite3* db_;
  sqlite3_stmt *hdr_last_trx_, *hdr_last_post_, *hdr_by_reference_, *last_payment_, *last_event_;
  sqlite3_stmt *insert_hdr_, *insert_row_, *insert_event_, *begin_, *commit_;
  std::vector<uint8_t> keys_;
  JrnlHdrType hdr_, probe_hdr_, found_hdr_;
  JrnlRowType rows_[kRows], found_row_;
  EVENT_LOG_RECORD event_, found_event_;
};

// Posts the next count invoices of a side, in one batch or each alone; false at the first
// failure (a batch begun is still ended).
template <class Side>
bool PostInvoices(Side& side, int count, bool batch) {
  if (batch && !side.Begin()) return false;
  bool ok = true;
  for (int i = 0; ok && i < count; ++i)
    ok = batch ? side.Post(++Side::posted) : side.PostAlone(++Side::posted);
  return !batch || (side.Commit() && ok);
}

// Each side stays open from its first benchmark to the end of the run, as a host keeps its
// company open, so that neither pays for closing and reopening its store between passes.
template <class Side>
std::unique_ptr<Side> g_side;

template <class Side>
void Post(benchmark::State& state, int count, bool batch) {
  if (!g_side<Side>) g_side<Side> = std::make_unique<Side>();
  Side& side = *g_side<Side>;
  side.Enter();
  for (auto _ : state)
    if (!PostInvoices(side, count, batch)) state.SkipWithError("posting");
  state.SetItemsProcessed(state.iterations() * count);
}

// Closes both sides and every library handle; leaves "/" the current directory.
void CloseLibraryHandles() {
  g_side<Ours>.reset();
  g_side<Direct>.reset();
  g_current.clear();
  UseCompany("/");
}

// The record manager finds the direct side's first invoice by post order (header key 5),
// reference (key 2) and rows (row key 1), and its event by journal key (key 3) and card (key
// 0): the key bytes the direct side binds are the store's.
bool DirectKeysFound(JrnlDBFilesType files, BtrvFile* event_log) {
  JrnlHdrType hdr = {};
  hdr.PostOrder = 1;
  if (!GetFileEqual(files.HdrFile, kLockBiasNone, sizeof hdr, &hdr, 5)) return false;
  JrnlHdrType same_reference = {};
  std::memcpy(same_reference.Reference, hdr.Reference, sizeof hdr.Reference);
  JrnlRowType row = {};
  row.PostOrder = 1;
  EVENT_LOG_RECORD event = {};
  event.JournalKey = hdr.Key1;
  if (!GetFileEqual(files.HdrFile, kLockBiasNone, sizeof same_reference, &same_reference, 2) ||
      same_reference.PostOrder != 1 ||
      !GetFileGE(files.RowFile, kLockBiasNone, sizeof row, &row, 1) || row.PostOrder != 1 ||
      !GetFileEqual(event_log, kLockBiasNone, sizeof event, &event, 3)) {
    return false;
  }
  EVENT_LOG_RECORD same_card = event;
  return GetFileEqual(event_log, kLockBiasNone, sizeof same_card, &same_card, 0) != 0;
}

// After the run: both companies hold one header, five rows and one event per invoice posted,
// and the direct side's keys are the store's.
bool SameBooks() {
  if (Direct::posted != Ours::posted) return false;
  const int32_t invoices = static_cast<int32_t>(Ours::posted);
  for (const std::string* company : {&g_ours, &g_direct}) {
    UseCompany(*company);
    BtrvFile* event_log = nullptr;
    JrnlDBFilesType files = {nullptr, nullptr};
    bool same =
        OpenJournalFile(&files, kOpenModeReadOnly) &&
        RealOpenBFile(&event_log, EventLogFileName, kOpenModeReadOnly, 0, __FILE__, __LINE__);
    if (same) {
      const int32_t headers = NumRecsInFile(files.HdrFile), rows = NumRecsInFile(files.RowFile),
                    events = NumRecsInFile(event_log);
      same = headers == invoices && rows == invoices * kRows && events == invoices;
      if (!same)
        std::fprintf(stderr, "posting_bench: %s holds %d headers, %d rows, %d events\n",
                     company->c_str(), headers, rows, events);
      if (same && company == &g_direct && invoices > 0) same = DirectKeysFound(files, event_log);
    }
    RealCloseFile(&event_log, __FILE__, __LINE__);
    CloseJrnlFile(&files);
    if (!same) return false;
  }
  return true;
}

// --- The navigator's book ------------------------------------------------------------------

constexpr int kBookInvoices = 62'500, kBookLines = 5, kBookBatch = 2'500, kItems = 300;
constexpr int kBookRowsPerInvoice = 1 + 3 * kBookLines;  // main row; line, cost and stock rows
constexpr int64_t kBookRows = int64_t{kBookInvoices} * kBookRowsPerInvoice;  // 1,000,000
constexpr int64_t kBookCostedRows = int64_t{kBookInvoices} * kBookLines * 2;
constexpr int32_t kFirstCostOfSales = 50, kFirstInventory = 60;

// The mark of a complete book: what it holds, written when its last batch has committed.
std::string BookMark() {
  std::ostringstream mark;
  mark << "posting_bench book 1: " << kBookInvoices << " invoices, " << kBookRows << " rows, "
       << kBookInvoices * kBookLines << " cost layers\n";
  return mark.str();
}

// Invoice n of the book (post order and number n), with its lines' sale cost layers.
void MakeBookInvoice(uint32_t n, JournalRecord* r, InvTagRec* tags) {
  std::memset(r, 0, sizeof *r);
  const DatesType date{static_cast<uint8_t>(n % 28 + 1), static_cast<uint8_t>(n / 28 % 12 + 1),
                       2024};
  r->Key1 = JournalKey1Type{0, static_cast<int32_t>(n), kPeriod, SJ, 0};
  r->Key2 = JournalKey2Type{'R', static_cast<int32_t>(1 + n % 200), date};
  r->PostOrder = n;
  r->HdrAccount = kReceivables;
  Assign(r->Description, "Sales invoice");
  char text[32];
  std::snprintf(text, sizeof text, "B%07u", static_cast<unsigned>(n));
  Assign(r->Reference, text);
  r->LedgerFlag = 1;
  r->LineCount = kBookLines;
  r->J.Sales.Area130 = SalesArea130(date, true);
  for (int i = 0; i < kBookLines; ++i) {
    // Items fall into three groups, each with its own income, cost and stock accounts.
    const int32_t item =
        static_cast<int32_t>(1 + (n * kBookLines + static_cast<uint32_t>(i)) % kItems);
    const int32_t group = item % 3;
    const double quantity = 1 + (n + static_cast<uint32_t>(i)) % 5;
    JrnlDistLine& l = r->J.Sales.Lines[i];
    l.Account = kFirstIncome + group;
    l.Item = item;
    l.Quantity = quantity;
    l.UnitPrice = 20 + item % 11;
    l.Amount = -quantity * l.UnitPrice;
    l.Counter[0].Account = kFirstCostOfSales + group;  // cost rows carry no amount
    l.Counter[1].Account = kFirstInventory + group;
    std::snprintf(text, sizeof text, "Item line %d", i + 1);
    Assign(l.Description, text);
    r->Amount -= l.Amount;
    InvTagRec& tag = tags[i];
    std::memset(&tag, 0, sizeof tag);
    tag.ItemRecordNumber = item;
    tag.Date = date;
    tag.DistIndex = static_cast<int16_t>(i);
    tag.TagType = kInvTagSaleCost;
    tag.PostOrder = n;
    tag.Cost = quantity * (4 + item % 7);
  }
}

// The record counts of the book's header, row and tag files; -1 each when they cannot be
// opened.
void BookCounts(int32_t* headers, int32_t* rows, int32_t* tags) {
  *headers = *rows = *tags = -1;
  JrnlDBFilesType files = {nullptr, nullptr};
  if (OpenJournalFile(&files, kOpenModeReadOnly)) {
    *headers = NumRecsInFile(files.HdrFile);
    *rows = NumRecsInFile(files.RowFile);
  }
  CloseJrnlFile(&files);
  BtrvFile* tag_file = nullptr;
  if (RealOpenBFile(&tag_file, InvTagName, kOpenModeReadOnly, kFileNoInvTag, __FILE__, __LINE__)) {
    *tags = NumRecsInFile(tag_file);
    RealCloseFile(&tag_file, __FILE__, __LINE__);
  }
}

bool BookComplete() {
  std::ifstream in(g_book + "/complete");
  std::stringstream mark;
  mark << in.rdbuf();
  if (!in || mark.str() != BookMark()) return false;
  UseCompany(g_book);
  int32_t headers, rows, tags;
  BookCounts(&headers, &rows, &tags);
  return headers == kBookInvoices && rows == kBookRows && tags == kBookInvoices * kBookLines;
}

void BuildBook() {
  std::fprintf(stderr, "posting_bench: building the %lld-row book in %s (kept for later runs)\n",
               static_cast<long long>(kBookRows), g_book.c_str());
  UseCompany("/");
  std::error_code ignored;
  std::filesystem::remove_all(g_book, ignored);
  Check(
      std::filesystem::create_directories(g_book, ignored) && CreateNewCompany(g_book.c_str()) != 0,
      "making the book");
  UseCompany(g_book);
  JrnlDBFilesType files = {nullptr, nullptr};
  BtrvFile* tag_file = nullptr;
  Check(OpenJournalFile(&files, kOpenModeNormal) != 0 &&
            RealOpenBFileOwner(&tag_file, InvTagName, kOpenModeNormal, kFileNoInvTag,
                               csTheOwner.c_str(), __FILE__, __LINE__) != 0,
        "opening the book");
  JournalRecord* record = nullptr;
  Check(AllocateJournalRecord(&record) != 0, "allocating a record");
  InvTagRec tags[kBookLines];
  for (uint32_t n = 1; n <= kBookInvoices;) {
    Check(bBeginBatchUpdate(files.HdrFile) != 0, "beginning a batch");
    for (int i = 0; i < kBookBatch; ++i, ++n) {
      MakeBookInvoice(n, record, tags);
      Check(InsertRecord(files, record) != 0, "storing an invoice");
      for (InvTagRec& tag : tags) Check(InsertRecord(tag_file, sizeof tag, &tag), "adding a tag");
    }
    Check(bEndBatchUpdate(files.HdrFile) != 0, "committing a batch");
  }
  DeAllocateJournalRecord(&record);
  RealCloseFile(&tag_file, __FILE__, __LINE__);
  CloseJrnlFile(&files);
  std::ofstream(g_book + "/complete") << BookMark();
  Check(BookComplete(), "checking the new book");
}

// The book, built on first use when it is not there whole.
const std::string& Book() {
  static bool ready = false;
  if (!ready && !BookComplete()) BuildBook();
  ready = true;
  UseCompany(g_book);
  return g_book;
}

// --- The walks -------------------------------------------------------------------------------

void BM_NavigateJournal(benchmark::State& state) {
  Book();
  JrnlRowHdrClass navigator(static_cast<int16_t>(kOpenModeReadOnly));
  if (!navigator.IsOKtoUse()) return state.SkipWithError("navigator not usable");
  int64_t rows = 0, costed = 0, headers_missing = 0;
  for (auto _ : state) {
    navigator.ClearRow();
    for (int ok = navigator.GetRowGE(2); ok; ok = navigator.GetRowNext(2)) {
      ++rows;
      if (!navigator.GetHdrForRow_CacheByPostOrder()) ++headers_missing;
      const JrnlRowType& row = navigator.Row;
      if ((row.Kind == kRowCounter1 || row.Kind == kRowCounter2) && row.Amount != 0) ++costed;
    }
  }
  if (rows != state.iterations() * kBookRows || costed != state.iterations() * kBookCostedRows ||
      headers_missing != 0) {
    std::fprintf(stderr, "posting_bench: %lld rows, %lld costed, %lld headers missing\n",
                 static_cast<long long>(rows), static_cast<long long>(costed),
                 static_cast<long long>(headers_missing));
    state.SkipWithError("walk incomplete");
  }
  state.SetItemsProcessed(rows);
}

void BM_NavigateRecordManager(benchmark::State& state) {
  Book();
  BtrvFile* row_file = nullptr;
  if (!OpenJrnlRowFile(&row_file, kOpenModeReadOnly)) return state.SkipWithError("row file");
  JrnlRowType row;
  int64_t rows = 0;
  for (auto _ : state) {
    std::memset(&row, 0, sizeof row);
    for (uint8_t ok = GetFileGE(row_file, kLockBiasNone, sizeof row, &row, 2); ok;
         ok = GetFileNext(row_file, kLockBiasNone, sizeof row, &row, 2)) {
      ++rows;
    }
  }
  if (rows != state.iterations() * kBookRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  RealCloseFile(&row_file, __FILE__, __LINE__);
}

}  // namespace

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  g_book = std::filesystem::absolute(argv[0]).lexically_normal().string() + "-book";
  StartRun("posting_bench", CloseLibraryHandles);
  g_ours = g_run.root + "/books";
  g_direct = g_run.root + "/direct";
  std::error_code made;
  Check(std::filesystem::create_directory(g_ours, made) &&
            std::filesystem::create_directory(g_direct, made),
        "making the company directories");
  ResetStandardFileNames();
  Check(CreateNewCompany(g_ours.c_str()) != 0 && CreateNewCompany(g_direct.c_str()) != 0,
        "CreateNewCompany");
  FileSpec spec;
  const std::pair<DataFileKind, std::vector<KeySeg>*> described[] = {
      {DataFileKind::kJrnlHdr, &g_hdr_keys},
      {DataFileKind::kJrnlRow, &g_row_keys},
      {DataFileKind::kEventLog, &g_event_keys}};
  for (const auto& [kind, keys] : described) {
    Check(DescribeDataFile(kind, &spec), "describing a data file");
    *keys = KeySegments(spec);
  }
  // Every invoice raises its "entered" event; the host's journal hook does nothing.
  Options.EventCreate[kEntryEventSwitch] = 1;
  pfnCall_Extern_vJrnlAlarms = NoJournalHook;
  vTurnOnEventsAlarms();

  // Posting is one pass per repetition (the files keep growing, alike on both sides); each
  // walk is one pass over the whole book.
  using benchmark::RegisterBenchmark;
  RegisterBenchmark("BM_PostBatchDirect", Post<Direct>, kBatchInvoices, true)->Apply(OnePass);
  RegisterBenchmark("BM_PostBatchJournal", Post<Ours>, kBatchInvoices, true)->Apply(OnePass);
  RegisterBenchmark("BM_PostEachDirect", Post<Direct>, kEachInvoices, false)->Apply(OnePass);
  RegisterBenchmark("BM_PostEachJournal", Post<Ours>, kEachInvoices, false)->Apply(OnePass);
  RegisterBenchmark("BM_NavigateRecordManager", BM_NavigateRecordManager)->Apply(OnePass);
  RegisterBenchmark("BM_NavigateJournal", BM_NavigateJournal)->Apply(OnePass);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  Check(SameBooks(), "comparing the two posting sides");
  EndRun();

  const std::pair<const char*, const char*> posting[] = {{"PostEach", "post-each"},
                                                         {"PostBatch", "post-batch"}};
  for (const auto& [what, label] : posting)
    std::printf("%s invoices per second: posting %.0f, direct SQLite %.0f\n", label,
                reporter.Best(std::string("BM_") + what + "Journal"),
                reporter.Best(std::string("BM_") + what + "Direct"));
  std::printf("navigate rows per second: navigator %.0f, record manager walk %.0f\n",
              reporter.Best("BM_NavigateJournal"), reporter.Best("BM_NavigateRecordManager"));
  for (const auto& [what, label] : posting)
    std::printf("ratio %s %.2f\n", label,
                reporter.TimeRatio(std::string("BM_") + what + "Journal",
                                   std::string("BM_") + what + "Direct"));
  std::printf("ratio navigate %.2f\n",
              reporter.TimeRatio("BM_NavigateJournal", "BM_NavigateRecordManager"));
  benchmark::Shutdown();
  return 0;
}
