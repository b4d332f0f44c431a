// The journal store against the same header and row writes made directly with SQLite, on
// 4-line sales invoices (a header and five rows: the main row and four item lines):
// (a) 10,000 stored inside one batch; (b) 500 stored each in its own batch, so that every
// one commits and syncs; (c) random transactions loaded by post order (header key 5, then
// the rows by row key 1). Each side has a company of its own, made by CreateNewCompany,
// and does the same writes in the same order, so both files grow alike. The direct side
// uses the tables and indexes the record manager made, its own connection, prepared
// statements and the same key bytes for every key of both files (the keys come from the
// files' creation descriptions). At the end the rates, then "ratio store-batch|store-each|
// load X.XX": the journal store's time per transaction over SQLite's (best of 3).
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "Basics.h"

namespace {

constexpr int kBatchTransactions = 10'000, kEachTransactions = 500, kLines = 4;
constexpr int kRows = kLines + 1;  // the main row and the item lines
constexpr int32_t kReceivables = 12, kFirstSalesAccount = 40;

std::string g_ours;    // the company the journal store writes
std::string g_direct;  // the company written directly with SQLite

// The keys of both files, from their creation descriptions.
std::vector<KeySeg> g_hdr_keys, g_row_keys;

// --- The invoice ---------------------------------------------------------------------------

// The fields that differ from one invoice to the next.
struct InvoiceVary {
  int32_t card;
  DatesType date;
  char reference[21];
  int32_t item[kLines];
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
    v.item[i] = static_cast<int32_t>(1 + (n * kLines + static_cast<uint32_t>(i)) % 300);
    v.quantity[i] = 1 + (n + static_cast<uint32_t>(i)) % 5;
    v.price[i] = 10 + 2.5 * i;
    v.total += v.quantity[i] * v.price[i];
  }
  return v;
}

JrnlSalesHdr130 SalesArea130(const DatesType& date) {
  JrnlSalesHdr130 a = {};
  const uint32_t never = 0x7FFFFFFF;
  std::memcpy(&a.PaidInFullDate, &never, sizeof never);
  a.DueDate = DatesType{date.day, static_cast<uint8_t>(date.month % 12 + 1), date.year};
  return a;
}

// The journal store's side: what stays the same in every invoice, set once.
void FillInvoiceRecord(JournalRecord* r) {
  std::memset(r, 0, sizeof *r);
  r->Key1.Period = 1;
  r->Key1.JournalType = SJ;
  r->Key2.Qualifier = 'R';
  r->HdrAccount = kReceivables;
  Assign(r->Description, "Sales invoice");
  r->LedgerFlag = 1;
  r->LineCount = kLines;
  for (int i = 0; i < kLines; ++i) {
    JrnlDistLine& l = r->J.Sales.Lines[i];
    l.Account = kFirstSalesAccount + i;
    char text[32];
    std::snprintf(text, sizeof text, "Item line %d", i + 1);
    Assign(l.Description, text);
  }
}

// Sets the record's varying fields for invoice n and clears the GUIDs the last save gave it,
// so that the store makes new ones as it does for every new transaction.
void VaryInvoiceRecord(JournalRecord* r, uint32_t n) {
  const InvoiceVary v = Vary(n);
  r->Key1.TrxNumber = static_cast<int32_t>(n);
  r->PostOrder = n;
  r->Key2.Card = v.card;
  r->Key2.Date = v.date;
  r->Key8RecordNumber = v.card;
  Assign(r->Reference, v.reference);
  r->Amount = v.total;
  r->J.Sales.Area130 = SalesArea130(v.date);
  r->Guid = GUID{};
  r->MainRowGuid = GUID{};
  for (int i = 0; i < kLines; ++i) {
    JrnlDistLine& l = r->J.Sales.Lines[i];
    l.Item = v.item[i];
    l.Quantity = v.quantity[i];
    l.UnitPrice = v.price[i];
    l.Amount = -v.quantity[i] * v.price[i];
    l.Guid = GUID{};
  }
}

// The direct side: the header and rows of invoice n, made from nothing.
void MakeInvoiceRecords(uint32_t n, JrnlHdrType* hdr, JrnlRowType* rows) {
  const InvoiceVary v = Vary(n);
  std::memset(hdr, 0, sizeof *hdr);
  hdr->Key1 = JournalKey1Type{0, static_cast<int32_t>(n), 1, SJ, 0};
  hdr->Key2 = JournalKey2Type{'R', v.card, v.date};
  AssignGUID(hdr->Guid);
  hdr->PostOrder = n;
  sstrcpy(hdr->Description, "Sales invoice", sizeof hdr->Description);
  sstrcpy(hdr->Reference, v.reference, sizeof hdr->Reference);
  hdr->LedgerFlag = 1;
  hdr->Key8RecordNumber = v.card;
  hdr->HdrAccount = kReceivables;
  const JrnlSalesHdr130 area = SalesArea130(v.date);
  std::memcpy(hdr->Specific130, &area, sizeof area);

  JrnlRowType& main = rows[0];
  std::memset(&main, 0, sizeof main);
  main.PostOrder = n;
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
    row.Account = kFirstSalesAccount + i;
    row.Amount = -v.quantity[i] * v.price[i];
    row.Item = v.item[i];
    row.Quantity = v.quantity[i];
    row.UnitPrice = v.price[i];
    std::snprintf(row.Description, sizeof row.Description, "Item line %d", i + 1);
    AssignGUID(row.Guid);
  }
}

// --- The two sides: Begin/Store/Commit a batch, StoreAlone one transaction, Load one -------
// Each keeps the next post order number (and transaction number) it stores; both sides
// store the same sequence, so after the same benchmarks they hold the same transactions.

class Ours {
 public:
  Ours() {
    Check(OpenJournalFile(&files_, kOpenModeNormal) != 0, "opening the journal pair");
    Check(AllocateJournalRecord(&record_) != 0, "allocating a record");
    FillInvoiceRecord(record_);
  }
  ~Ours() {
    DeAllocateJournalRecord(&record_);
    CloseJrnlFile(&files_);
  }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  static inline uint32_t next = 1;
  bool Begin() { return bBeginBatchUpdate(files_.HdrFile) != 0; }
  bool Commit() { return bEndBatchUpdate(files_.HdrFile) != 0; }
  bool Store(uint32_t n) {
    VaryInvoiceRecord(record_, n);
    return InsertRecord(files_, record_) != 0;
  }
  bool StoreAlone(uint32_t n) { return Store(n); }  // the store commits each transaction
  bool Load(uint32_t n) {
    record_->PostOrder = n;
    return GetFileEqual(files_, kLockBiasNone, record_, 5) != 0 && record_->PostOrder == n &&
           record_->LineCount == kLines;
  }

 private:
  JrnlDBFilesType files_ = {nullptr, nullptr};
  JournalRecord* record_ = nullptr;
};

class Direct {
 public:
  Direct() : db_(OpenDirect(g_direct)) {
    insert_hdr_ = Prepare(db_, "jrnlhdr.dat", InsertSql(KeyCount(g_hdr_keys)));
    insert_row_ = Prepare(db_, "jrnlrow.dat", InsertSql(KeyCount(g_row_keys)));
    // Columns are by key slot; keys 0 to 5 of both files are their first six keys.
    hdr_by_post_ = Prepare(db_, "jrnlhdr.dat",
                           "SELECT pos, ver, data FROM $T WHERE k5=?1 ORDER BY k5, pos LIMIT 1");
    rows_by_post_ =
        Prepare(db_, "jrnlrow.dat",
                "SELECT pos, ver, data FROM $T WHERE k1>=?1 AND k1<?2 ORDER BY k1, pos");
    begin_ = Prepare(db_, nullptr, "BEGIN IMMEDIATE");
    commit_ = Prepare(db_, nullptr, "COMMIT");
    keys_.resize(std::max(KeyBytes(g_hdr_keys), KeyBytes(g_row_keys)));
  }
  ~Direct() {
    for (sqlite3_stmt* s : {insert_hdr_, insert_row_, hdr_by_post_, rows_by_post_, begin_, commit_})
      sqlite3_finalize(s);
    sqlite3_close_v2(db_);
  }
  Direct(const Direct&) = delete;
  Direct& operator=(const Direct&) = delete;

  static inline uint32_t next = 1;
  bool Begin() { return Run(begin_); }
  bool Commit() { return Run(commit_); }
  // Writes the header and rows of invoice n.
  bool Store(uint32_t n) {
    MakeInvoiceRecords(n, &hdr_, rows_);
    if (!Insert(insert_hdr_, g_hdr_keys, &hdr_, sizeof hdr_)) return false;
    for (const JrnlRowType& row : rows_)
      if (!Insert(insert_row_, g_row_keys, &row, sizeof row)) return false;
    return true;
  }
  bool StoreAlone(uint32_t n) { return Begin() && Store(n) && Commit(); }

  // Reads the header of post order n by its post-order key and its rows by row key 1 (post
  // order, line); true when the header and all its rows were there.
  bool Load(uint32_t n) {
    uint8_t key[4], next[4];
    const uint32_t after = n + 1;
    const KeySeg post{0, 0, 4, kExtUnsignedBinary};
    EncodeKey(key, reinterpret_cast<const uint8_t*>(&n), post);
    EncodeKey(next, reinterpret_cast<const uint8_t*>(&after), post);
    sqlite3_bind_blob(hdr_by_post_, 1, key, sizeof key, SQLITE_STATIC);
    const bool found = sqlite3_step(hdr_by_post_) == SQLITE_ROW;
    if (found) std::memcpy(&hdr_, sqlite3_column_blob(hdr_by_post_, 2), sizeof hdr_);
    sqlite3_reset(hdr_by_post_);
    if (!found || hdr_.PostOrder != n) return false;
    // A 4-byte bound sorts before every 6-byte key that starts with it.
    sqlite3_bind_blob(rows_by_post_, 1, key, sizeof key, SQLITE_STATIC);
    sqlite3_bind_blob(rows_by_post_, 2, next, sizeof next, SQLITE_STATIC);
    int count = 0;
    for (; sqlite3_step(rows_by_post_) == SQLITE_ROW; ++count)
      if (count < kRows)
        std::memcpy(&rows_[count], sqlite3_column_blob(rows_by_post_, 2), sizeof(JrnlRowType));
    sqlite3_reset(rows_by_post_);
    return count == kRows;
  }

 private:
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
  sqlite3_stmt *insert_hdr_, *insert_row_, *hdr_by_post_, *rows_by_post_, *begin_, *commit_;
  std::vector<uint8_t> keys_;
  JrnlHdrType hdr_;
  JrnlRowType rows_[kRows];
};

// Stores the next count invoices of a side, in one batch or each in its own; answers false
// at the first failure (a batch begun is still ended).
template <class Side>
bool StoreInvoices(Side& side, int count, bool batch) {
  if (batch && !side.Begin()) return false;
  bool ok = true;
  for (int i = 0; ok && i < count; ++i)
    ok = batch ? side.Store(Side::next++) : side.StoreAlone(Side::next++);
  return !batch || (side.Commit() && ok);
}

// --- (a) and (b) storing, (c) loading ------------------------------------------------------

template <class Side>
void Store(benchmark::State& state, int count, bool batch) {
  Side side;
  for (auto _ : state)
    if (!StoreInvoices(side, count, batch)) state.SkipWithError("store");
  state.SetItemsProcessed(state.iterations() * count);
}

// Random post orders of stored invoices, the same sequence for both sides. When the stores
// did not run (a filter), the side gets a batch of invoices first.
template <class Side>
void Load(benchmark::State& state) {
  if (Side::next == 1) {
    Side side;
    Check(StoreInvoices(side, kBatchTransactions, true), "storing invoices");
  }
  Side side;
  std::minstd_rand rng(7);
  for (auto _ : state) {
    if (!side.Load(1 + static_cast<uint32_t>(rng() % (Side::next - 1)))) {
      state.SkipWithError("transaction not loaded whole");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

// After the run: the key columns the record manager stored for the first transaction (its
// header, then its rows) are the bytes the direct side binds for the same records.
bool SameKeyBytes(sqlite3* db, const char* base, const std::vector<KeySeg>& keys, int records) {
  std::string sql = "SELECT data";
  for (size_t k = 0; k < KeyCount(keys); ++k) sql += ", k" + std::to_string(k);
  sqlite3_stmt* s =
      Prepare(db, base, sql + " FROM $T ORDER BY pos LIMIT " + std::to_string(records));
  std::vector<uint8_t> buf(KeyBytes(keys));
  int seen = 0;
  bool same = true;
  for (; same && sqlite3_step(s) == SQLITE_ROW; ++seen)
    ForEachKey(keys, sqlite3_column_blob(s, 0), buf.data(),
               [&](int key, const uint8_t* b, size_t n) {
                 const bool equal = static_cast<size_t>(sqlite3_column_bytes(s, key + 1)) == n &&
                                    std::memcmp(sqlite3_column_blob(s, key + 1), b, n) == 0;
                 if (!equal) std::fprintf(stderr, "journldb_bench: %s key %d differs\n", base, key);
                 same = same && equal;
               });
  sqlite3_finalize(s);
  return same && seen == records;
}

}  // namespace

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  StartRun("journldb_bench", CloseInternalJrnlFiles);
  g_ours = g_run.root + "/books";
  g_direct = g_run.root + "/direct";
  std::error_code made;
  Check(std::filesystem::create_directory(g_ours, made) &&
            std::filesystem::create_directory(g_direct, made),
        "making the company directories");
  ResetStandardFileNames();
  Check(CreateNewCompany(g_ours.c_str()) != 0 && CreateNewCompany(g_direct.c_str()) != 0,
        "CreateNewCompany");
  // The journal store opens the company's files by their standard names.
  Check(chdir(g_ours.c_str()) == 0, "chdir");
  g_szCompanyPath = g_ours.c_str();
  FileSpec spec;
  Check(DescribeDataFile(DataFileKind::kJrnlHdr, &spec), "describing the header file");
  g_hdr_keys = KeySegments(spec);
  Check(DescribeDataFile(DataFileKind::kJrnlRow, &spec), "describing the row file");
  g_row_keys = KeySegments(spec);

  // The stores are one pass per repetition (the files keep growing, alike on both sides);
  // the loads run for a while each.
  using benchmark::RegisterBenchmark;
  RegisterBenchmark("BM_StoreBatchDirect", Store<Direct>, kBatchTransactions, true)->Apply(OnePass);
  RegisterBenchmark("BM_StoreBatchJournal", Store<Ours>, kBatchTransactions, true)->Apply(OnePass);
  RegisterBenchmark("BM_StoreEachDirect", Store<Direct>, kEachTransactions, false)->Apply(OnePass);
  RegisterBenchmark("BM_StoreEachJournal", Store<Ours>, kEachTransactions, false)->Apply(OnePass);
  for (auto* b : {RegisterBenchmark("BM_LoadDirect", Load<Direct>),
                  RegisterBenchmark("BM_LoadJournal", Load<Ours>)})
    b->Repetitions(3)->MinTime(0.5)->UseRealTime()->Unit(benchmark::kMicrosecond);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  if (Ours::next > 1) {
    sqlite3* db = OpenDirect(g_ours);
    const bool same = SameKeyBytes(db, "jrnlhdr.dat", g_hdr_keys, 1) &&
                      SameKeyBytes(db, "jrnlrow.dat", g_row_keys, kRows);
    sqlite3_close_v2(db);
    Check(same, "comparing the two sides' key bytes");
  }
  EndRun();
  const std::pair<const char*, const char*> comparisons[] = {
      {"StoreBatch", "store-batch"}, {"StoreEach", "store-each"}, {"Load", "load"}};
  for (const auto& [what, label] : comparisons)
    std::printf("%s transactions per second: journal store %.0f, direct SQLite %.0f\n", label,
                reporter.Best(std::string("BM_") + what + "Journal"),
                reporter.Best(std::string("BM_") + what + "Direct"));
  for (const auto& [what, label] : comparisons)  // ours over direct, time per transaction
    std::printf("ratio %s %.2f\n", label,
                reporter.TimeRatio(std::string("BM_") + what + "Journal",
                                   std::string("BM_") + what + "Direct"));
  benchmark::Shutdown();
  return 0;
}
