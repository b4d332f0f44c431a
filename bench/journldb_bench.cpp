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
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
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

std::string g_root;    // temporary directory of the whole run
std::string g_ours;    // the company the journal store writes
std::string g_direct;  // the company written directly with SQLite

// The next post order number (and transaction number) of each side; both sides store the
// same sequence, so after the same benchmarks they hold the same transactions.
uint32_t g_next_ours = 1, g_next_direct = 1;

void Cleanup() {
  CloseInternalJrnlFiles();
  if (g_root.empty()) return;
  if (chdir("/") != 0) std::perror("chdir");
  std::error_code ignored;
  std::filesystem::remove_all(g_root, ignored);
}

void Check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "journldb_bench: %s failed (status %u)\n", what, GetErrorCode(nullptr));
  Cleanup();
  std::exit(1);
}

// --- The keys of both files, from their creation descriptions --------------------------

struct KeySeg {
  size_t off;
  uint16_t len;
  uint8_t type;  // extended type
  bool descending;
};
struct FileKeys {
  std::vector<std::vector<KeySeg>> keys;  // by slot: the order the keys are described in
  size_t total = 0;                       // sum of the key lengths
};
FileKeys g_hdr_keys, g_row_keys;

FileKeys KeysOf(DataFileKind kind) {
  FileSpec spec;
  Check(DescribeDataFile(kind, &spec), "describing a journal file");
  FileKeys out;
  bool in_key = false;
  for (int i = 0; i < spec.numberOfSegments; ++i) {
    const KeySegmentSpec& s = spec.segments[i];
    uint8_t type = (s.flags & kKeyExtendedType) ? s.extendedType
                   : (s.flags & kKeyBinary)     ? uint8_t{kExtUnsignedBinary}
                                                : uint8_t{kExtString};
    if (type == kExtAutoIncrement) type = kExtInteger;
    Check(type != kExtFloat && (s.flags & kKeyNoCase) == 0, "a key type the bench encodes");
    if (!in_key) out.keys.emplace_back();
    out.keys.back().push_back(
        {static_cast<size_t>(s.position - 1), s.length, type, (s.flags & kKeyDescending) != 0});
    out.total += s.length;
    in_key = (s.flags & kKeySegmented) != 0;
  }
  return out;
}

// Key bytes as the store orders them: integers big-endian with the sign bit flipped,
// unsigned numbers and dates (year, month, day) big-endian, zero-terminated text padded
// with zeros, other text as it is; descending segments inverted.
uint8_t* Encode(uint8_t* out, const uint8_t* rec, const KeySeg& s) {
  const uint8_t* src = rec + s.off;
  if (s.type == kExtString) {
    std::memcpy(out, src, s.len);
  } else if (s.type == kExtZString) {
    const size_t n = strnlen(reinterpret_cast<const char*>(src), s.len);
    std::memcpy(out, src, n);
    std::memset(out + n, 0, s.len - n);
  } else {
    for (size_t i = 0; i < s.len; ++i) out[i] = src[s.len - 1 - i];
    if (s.type == kExtInteger) out[0] ^= 0x80;
  }
  if (s.descending)
    for (size_t i = 0; i < s.len; ++i) out[i] = static_cast<uint8_t>(~out[i]);
  return out + s.len;
}

// Encodes every key of rec into buf and binds key slot i to parameter i + 1.
void BindKeys(sqlite3_stmt* s, const FileKeys& keys, const void* rec, uint8_t* buf) {
  const auto* r = static_cast<const uint8_t*>(rec);
  for (size_t slot = 0; slot < keys.keys.size(); ++slot) {
    uint8_t* start = buf;
    for (const KeySeg& seg : keys.keys[slot]) buf = Encode(buf, r, seg);
    sqlite3_bind_blob(s, static_cast<int>(slot + 1), start, static_cast<int>(buf - start),
                      SQLITE_STATIC);
  }
}

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

// The table of a data file from its catalogue id; finalizes the look-up statement.
std::string TableName(int64_t id, sqlite3_stmt* lookup) {
  std::string name = "f";
  name += std::to_string(id);
  sqlite3_finalize(lookup);
  return name;
}

// --- The two sides --------------------------------------------------------------------------

JrnlDBFilesType OpenOurs() {
  JrnlDBFilesType files = {nullptr, nullptr};
  Check(OpenJournalFile(&files, kOpenModeNormal) != 0, "opening the journal pair");
  return files;
}

// Stores invoices first..first+count-1 through the journal store, inside one batch on the
// header file when batch; answers false at the first failure.
bool StoreOurs(JrnlDBFilesType files, JournalRecord* record, uint32_t first, int count,
               bool batch) {
  if (batch && !bBeginBatchUpdate(files.HdrFile)) return false;
  bool ok = true;
  for (int i = 0; ok && i < count; ++i) {
    VaryInvoiceRecord(record, first + static_cast<uint32_t>(i));
    ok = InsertRecord(files, record) != 0;
  }
  if (batch) ok = bEndBatchUpdate(files.HdrFile) != 0 && ok;
  return ok;
}

class Direct {
 public:
  Direct() {
    const char* pragmas =
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768";
    Check(sqlite3_open_v2((g_direct + "/records.db").c_str(), &db_,
                          SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK &&
              sqlite3_exec(db_, pragmas, nullptr, nullptr, nullptr) == SQLITE_OK,
          "opening SQLite");
    sqlite3_busy_timeout(db_, 5000);
    const std::string hdr = Table("jrnlhdr.dat"), row = Table("jrnlrow.dat");
    insert_hdr_ = Prepare(InsertSql(hdr, g_hdr_keys.keys.size()));
    insert_row_ = Prepare(InsertSql(row, g_row_keys.keys.size()));
    // Columns are by key slot; keys 0 to 5 of both files are their first six keys.
    hdr_by_post_ =
        Prepare("SELECT pos, ver, data FROM " + hdr + " WHERE k5=?1 ORDER BY k5, pos LIMIT 1");
    rows_by_post_ =
        Prepare("SELECT pos, ver, data FROM " + row + " WHERE k1>=?1 AND k1<?2 ORDER BY k1, pos");
    begin_ = Prepare("BEGIN IMMEDIATE");
    commit_ = Prepare("COMMIT");
    keys_.resize(std::max(g_hdr_keys.total, g_row_keys.total));
  }
  ~Direct() {
    for (sqlite3_stmt* s : {insert_hdr_, insert_row_, hdr_by_post_, rows_by_post_, begin_, commit_})
      sqlite3_finalize(s);
    sqlite3_close_v2(db_);
  }
  Direct(const Direct&) = delete;
  Direct& operator=(const Direct&) = delete;

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

  // Reads the header of post order n by its post-order key and its rows by row key 1 (post
  // order, line); answers the number of rows, -1 when the header is missing.
  int Load(uint32_t n) {
    uint8_t key[4], next[4];
    const uint32_t after = n + 1;
    Encode(key, reinterpret_cast<const uint8_t*>(&n), KeySeg{0, 4, kExtUnsignedBinary, false});
    Encode(next, reinterpret_cast<const uint8_t*>(&after), KeySeg{0, 4, kExtUnsignedBinary, false});
    sqlite3_bind_blob(hdr_by_post_, 1, key, sizeof key, SQLITE_STATIC);
    const bool found = sqlite3_step(hdr_by_post_) == SQLITE_ROW;
    if (found) std::memcpy(&hdr_, sqlite3_column_blob(hdr_by_post_, 2), sizeof hdr_);
    sqlite3_reset(hdr_by_post_);
    if (!found) return -1;
    // A 4-byte bound sorts before every 6-byte key that starts with it.
    sqlite3_bind_blob(rows_by_post_, 1, key, sizeof key, SQLITE_STATIC);
    sqlite3_bind_blob(rows_by_post_, 2, next, sizeof next, SQLITE_STATIC);
    int count = 0;
    for (; sqlite3_step(rows_by_post_) == SQLITE_ROW; ++count)
      if (count < kRows)
        std::memcpy(&rows_[count], sqlite3_column_blob(rows_by_post_, 2), sizeof(JrnlRowType));
    sqlite3_reset(rows_by_post_);
    return count;
  }
  const JrnlHdrType& header() const { return hdr_; }

 private:
  std::string Table(const char* base) {
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db_, "SELECT id FROM _files WHERE name=?1 COLLATE NOCASE", -1, &s, nullptr);
    sqlite3_bind_text(s, 1, base, -1, SQLITE_STATIC);
    Check(sqlite3_step(s) == SQLITE_ROW, "catalogue look-up");
    return TableName(sqlite3_column_int64(s, 0), s);
  }
  static std::string InsertSql(const std::string& table, size_t keys) {
    std::string sql = "INSERT INTO " + table + "(ver", values = "VALUES(1";
    for (size_t i = 0; i < keys; ++i) {
      sql += ", k" + std::to_string(i);
      values += ", ?" + std::to_string(i + 1);
    }
    return sql + ", data) " + values + ", ?" + std::to_string(keys + 1) + ")";
  }
  sqlite3_stmt* Prepare(const std::string& sql) {
    sqlite3_stmt* s = nullptr;
    Check(sqlite3_prepare_v3(db_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr) ==
              SQLITE_OK,
          sql.c_str());
    return s;
  }
  bool Insert(sqlite3_stmt* s, const FileKeys& keys, const void* rec, size_t size) {
    BindKeys(s, keys, rec, keys_.data());
    sqlite3_bind_blob(s, static_cast<int>(keys.keys.size() + 1), rec, static_cast<int>(size),
                      SQLITE_STATIC);
    const bool ok = sqlite3_step(s) == SQLITE_DONE;
    sqlite3_reset(s);
    return ok;
  }
  static bool Run(sqlite3_stmt* s) {
    const int rc = sqlite3_step(s);
    sqlite3_reset(s);
    return rc == SQLITE_DONE;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt *insert_hdr_, *insert_row_, *hdr_by_post_, *rows_by_post_, *begin_, *commit_;
  std::vector<uint8_t> keys_;
  JrnlHdrType hdr_;
  JrnlRowType rows_[kRows];
};

// --- (a) and (b) storing -----------------------------------------------------------------

void StoreDirect(benchmark::State& state, int count, bool batch) {
  Direct direct;
  for (auto _ : state) {
    bool ok = !batch || direct.Begin();
    for (int i = 0; ok && i < count; ++i) {
      ok = (batch || direct.Begin()) && direct.Store(g_next_direct++);
      if (!batch) ok = ok && direct.Commit();
    }
    if (batch) ok = ok && direct.Commit();
    if (!ok) state.SkipWithError("store");
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void StoreOurs(benchmark::State& state, int count, bool batch) {
  JrnlDBFilesType files = OpenOurs();
  JournalRecord* record = nullptr;
  Check(AllocateJournalRecord(&record) != 0, "allocating a record");
  FillInvoiceRecord(record);
  for (auto _ : state) {
    if (!StoreOurs(files, record, g_next_ours, count, batch)) state.SkipWithError("store");
    g_next_ours += static_cast<uint32_t>(count);
  }
  state.SetItemsProcessed(state.iterations() * count);
  DeAllocateJournalRecord(&record);
  CloseJrnlFile(&files);
}

void BM_StoreBatchDirect(benchmark::State& state) { StoreDirect(state, kBatchTransactions, true); }
void BM_StoreBatchJournal(benchmark::State& state) { StoreOurs(state, kBatchTransactions, true); }
void BM_StoreEachDirect(benchmark::State& state) { StoreDirect(state, kEachTransactions, false); }
void BM_StoreEachJournal(benchmark::State& state) { StoreOurs(state, kEachTransactions, false); }

// --- (c) loading by post order ----------------------------------------------------------------

// When the stores did not run (a filter), each side gets the same batch of invoices first.
void EnsureStored() {
  if (g_next_direct == 1) {
    Direct direct;
    bool ok = direct.Begin();
    for (int i = 0; ok && i < kBatchTransactions; ++i) ok = direct.Store(g_next_direct++);
    Check(ok && direct.Commit(), "storing invoices directly");
  }
  if (g_next_ours == 1) {
    JrnlDBFilesType files = OpenOurs();
    JournalRecord* record = nullptr;
    Check(AllocateJournalRecord(&record) != 0, "allocating a record");
    FillInvoiceRecord(record);
    Check(StoreOurs(files, record, 1, kBatchTransactions, true), "storing invoices");
    g_next_ours += kBatchTransactions;
    DeAllocateJournalRecord(&record);
    CloseJrnlFile(&files);
  }
}

// Random post orders of stored invoices, the same sequence for both sides.
class Probes {
 public:
  explicit Probes(uint32_t stored) : stored_(stored) {}
  uint32_t Next() { return 1 + static_cast<uint32_t>(random_() % stored_); }

 private:
  uint32_t stored_;
  std::minstd_rand random_{7};
};

void BM_LoadDirect(benchmark::State& state) {
  EnsureStored();
  Direct direct;
  Probes probes(g_next_direct - 1);
  for (auto _ : state) {
    const uint32_t n = probes.Next();
    if (direct.Load(n) != kRows || direct.header().PostOrder != n) {
      state.SkipWithError("transaction not loaded whole");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_LoadJournal(benchmark::State& state) {
  EnsureStored();
  JrnlDBFilesType files = OpenOurs();
  JournalRecord* record = nullptr;
  Check(AllocateJournalRecord(&record) != 0, "allocating a record");
  Probes probes(g_next_ours - 1);
  for (auto _ : state) {
    const uint32_t n = probes.Next();
    record->PostOrder = n;
    if (!GetFileEqual(files, kLockBiasNone, record, 5) || record->PostOrder != n ||
        record->LineCount != kLines) {
      state.SkipWithError("transaction not loaded whole");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  DeAllocateJournalRecord(&record);
  CloseJrnlFile(&files);
}

// --- Checks after the run ---------------------------------------------------------------------

// Compares every stored key of a few records in ours' company with the bench's encoding of
// the same records: the direct side then stores the key bytes the record manager does.
// Answers false (with a message) at the first difference.
bool SameKeyBytes(sqlite3* db, const char* base, const FileKeys& keys, size_t length) {
  sqlite3_stmt* s = nullptr;
  std::string sql = "SELECT f.id FROM _files f WHERE f.name=?1 COLLATE NOCASE";
  sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr);
  sqlite3_bind_text(s, 1, base, -1, SQLITE_STATIC);
  const bool listed = sqlite3_step(s) == SQLITE_ROW;
  if (!listed) {
    sqlite3_finalize(s);
    return false;
  }
  const std::string table = TableName(sqlite3_column_int64(s, 0), s);
  sql = "SELECT data";
  for (size_t i = 0; i < keys.keys.size(); ++i) sql += ", k" + std::to_string(i);
  sql += " FROM " + table + " ORDER BY pos LIMIT 200";
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) return false;
  bool same = true;
  int records = 0;
  std::vector<uint8_t> encoded(keys.total);
  while (same && sqlite3_step(s) == SQLITE_ROW) {
    ++records;
    const auto* rec = static_cast<const uint8_t*>(sqlite3_column_blob(s, 0));
    same = static_cast<size_t>(sqlite3_column_bytes(s, 0)) == length;
    for (size_t slot = 0; same && slot < keys.keys.size(); ++slot) {
      uint8_t* end = encoded.data();
      for (const KeySeg& seg : keys.keys[slot]) end = Encode(end, rec, seg);
      const int column = static_cast<int>(slot + 1);
      const auto size = static_cast<size_t>(end - encoded.data());
      same = static_cast<size_t>(sqlite3_column_bytes(s, column)) == size &&
             std::memcmp(sqlite3_column_blob(s, column), encoded.data(), size) == 0;
      if (!same) std::fprintf(stderr, "journldb_bench: %s key slot %zu differs\n", base, slot);
    }
  }
  sqlite3_finalize(s);
  return same && records > 0;
}

// The first offset where the two companies' header (row) of post order 1 differ, GUIDs
// aside; -1 when they are the same.
long FirstDifference(const uint8_t* a, const uint8_t* b, size_t length, size_t guid_offset) {
  for (size_t i = 0; i < length; ++i)
    if (a[i] != b[i] && (i < guid_offset || i >= guid_offset + 16)) return static_cast<long>(i);
  return -1;
}

bool CheckSides() {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2((g_ours + "/records.db").c_str(), &db, SQLITE_OPEN_READONLY, nullptr) !=
      SQLITE_OK) {
    sqlite3_close_v2(db);
    return false;
  }
  const bool keys = SameKeyBytes(db, "jrnlhdr.dat", g_hdr_keys, sizeof(JrnlHdrType)) &&
                    SameKeyBytes(db, "jrnlrow.dat", g_row_keys, sizeof(JrnlRowType));
  sqlite3_close_v2(db);
  if (!keys) return false;
  // The same invoice as both sides wrote it.
  JrnlDBFilesType files = OpenOurs();
  JrnlHdrType hdr;
  JrnlRowType rows[kRows];
  int count = 0;
  std::memset(&hdr, 0, sizeof hdr);
  hdr.PostOrder = 1;
  const bool ok = GetFileEqual(files.HdrFile, kLockBiasNone, sizeof hdr, &hdr, 5) != 0;
  JrnlRowType row;
  std::memset(&row, 0, sizeof row);
  row.PostOrder = 1;
  for (uint8_t more = ok ? GetFileGE(files.RowFile, kLockBiasNone, sizeof row, &row, 1) : 0;
       more && row.PostOrder == 1 && count < kRows;
       more = GetFileNext(files.RowFile, kLockBiasNone, sizeof row, &row, 1))
    rows[count++] = row;
  CloseJrnlFile(&files);
  Direct direct;
  const int direct_rows = direct.Load(1);
  if (!ok || count != kRows || direct_rows != kRows) return false;
  JrnlHdrType direct_hdr = direct.header();
  long at = FirstDifference(reinterpret_cast<const uint8_t*>(&hdr),
                            reinterpret_cast<const uint8_t*>(&direct_hdr), sizeof hdr,
                            offsetof(JrnlHdrType, Guid));
  if (at >= 0) std::fprintf(stderr, "journldb_bench: headers differ at %ld\n", at);
  bool same = at < 0;
  // The store's rows of post order 1 in key order against the rows the direct side makes.
  JrnlRowType expected[kRows];
  JrnlHdrType unused;
  MakeInvoiceRecords(1, &unused, expected);
  for (int i = 0; i < kRows; ++i) {
    at = FirstDifference(reinterpret_cast<const uint8_t*>(&rows[i]),
                         reinterpret_cast<const uint8_t*>(&expected[i]), sizeof rows[i],
                         offsetof(JrnlRowType, Guid));
    if (at >= 0) std::fprintf(stderr, "journldb_bench: row %d differs at %ld\n", i, at);
    same = same && at < 0;
  }
  return same;
}

// Keeps the best items/s of every benchmark (over repetitions).
struct RatioReporter : benchmark::ConsoleReporter {
  RatioReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      auto it = run.counters.find("items_per_second");
      if (run.run_type != Run::RT_Iteration || run.error_occurred || it == run.counters.end())
        continue;
      double& best = best_items_per_second[run.run_name.function_name];
      best = std::max(best, static_cast<double>(it->second));
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> best_items_per_second;
};

}  // namespace

// The stores are one pass per repetition (the files keep growing, alike on both sides);
// the loads run for a while each.
void OnePass(benchmark::internal::Benchmark* b) {
  b->Repetitions(3)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}
void Timed(benchmark::internal::Benchmark* b) {
  b->Repetitions(3)->MinTime(0.5)->UseRealTime()->Unit(benchmark::kMicrosecond);
}
BENCHMARK(BM_StoreBatchDirect)->Apply(OnePass);
BENCHMARK(BM_StoreBatchJournal)->Apply(OnePass);
BENCHMARK(BM_StoreEachDirect)->Apply(OnePass);
BENCHMARK(BM_StoreEachJournal)->Apply(OnePass);
BENCHMARK(BM_LoadDirect)->Apply(Timed);
BENCHMARK(BM_LoadJournal)->Apply(Timed);

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  char pattern[] = "/tmp/journldb-bench-XXXXXX";
  Check(mkdtemp(pattern) != nullptr, "mkdtemp");
  g_root = pattern;
  g_ours = g_root + "/books";
  g_direct = g_root + "/direct";
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
  g_hdr_keys = KeysOf(DataFileKind::kJrnlHdr);
  g_row_keys = KeysOf(DataFileKind::kJrnlRow);

  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const bool checked = g_next_ours > 1 && g_next_direct > 1 && CheckSides();
  Cleanup();
  if (g_next_ours > 1 && g_next_direct > 1 && !checked) {
    std::fprintf(stderr, "journldb_bench: the two sides did not write the same records\n");
    return 1;
  }
  auto best = [&](const std::string& name) { return reporter.best_items_per_second[name]; };
  const std::pair<const char*, const char*> comparisons[] = {
      {"StoreBatch", "store-batch"}, {"StoreEach", "store-each"}, {"Load", "load"}};
  for (const auto& [what, label] : comparisons) {
    const double direct = best(std::string("BM_") + what + "Direct"),
                 ours = best(std::string("BM_") + what + "Journal");
    std::printf("%s transactions per second: journal store %.0f, direct SQLite %.0f\n", label, ours,
                direct);
  }
  for (const auto& [what, label] : comparisons) {  // ours over direct, time per transaction
    const double direct = best(std::string("BM_") + what + "Direct"),
                 ours = best(std::string("BM_") + what + "Journal");
    std::printf("ratio %s %.2f\n", label, direct > 0 && ours > 0 ? direct / ours : -1.0);
  }
  benchmark::Shutdown();
  return 0;
}
