// The record manager on a PostgreSQL server against libpq used directly, in one process, on
// the same server: (a) keyed equal reads on a 100,000-record master file (random existing IDs
// on its unique key); (b) a walk in key order over 1,000,000 journal rows (373 bytes) on the
// row file's 3-segment key (account, date, post order); (c) 4-line invoices posted each in its
// own transaction: a header with its two keys and four rows with their eight keys.
//
// The direct side keeps its own schema with the tables and indexes the record manager makes
// on a server (a bytea column per key, an index per key on (key, pos), unique where the key
// is), the same key bytes, and only prepared statements; it walks either with keyset pages or
// through a cursor, and the faster of the two is its figure. Our side serves a directory from
// a second schema of the same server. The server is the one BASICS_BENCH_PG names (./run
// bench starts one); without it the program says so and exits with 1.
//
// At the end "ratio pg-read|pg-walk|pg-post X.XX": our time per operation over the direct
// side's (best repetitions), and both walks' rows per second.
#include <libpq-fe.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "record_manager.h"
#include "zor_types.h"

namespace {

constexpr int kMasterRecords = 100'000, kWalkRows = 1'000'000, kInvoices = 1'000;
constexpr int kInvoiceLines = 4, kPage = 5'000;
constexpr uint16_t kMasterLen = 400, kRowLen = 373, kHeaderLen = 200;

std::string g_conninfo;                         // the server's connection string
std::string g_direct_schema, g_our_schema;      // made by this run, dropped at its end
std::string g_dir;                              // the directory our side serves
std::vector<std::array<char, 21>> g_probe_ids;  // random existing master IDs, for both sides
std::vector<uint8_t> g_headers, g_lines;        // the invoices of (c), the same for both sides

// Journal row fields used by the keys, and the row file's eight keys.
constexpr size_t kAccount = 0, kPost = 4, kLine = 8, kItem = 10, kJob = 14, kPhase = 18, kCost = 39,
                 kLink = 60, kJrnl = 66, kDate = 70, kFlag = 74, kAmount = 87;
constexpr uint8_t kInt = kExtInteger, kUns = kExtUnsignedBinary, kDat = kExtDate, kZ = kExtZString;
constexpr KeySeg kRowKeys[] = {{0, kPost, 4, kUns},    {1, kPost, 4, kUns}, {1, kLine, 2, kInt},
                               {2, kAccount, 4, kInt}, {2, kDate, 4, kDat}, {2, kPost, 4, kUns},
                               {3, kItem, 4, kInt},    {3, kDate, 4, kDat}, {4, kJob, 4, kInt},
                               {4, kPhase, 21, kZ},    {5, kLink, 4, kUns}, {5, kDate, 4, kDat},
                               {6, kJob, 4, kInt},     {6, kCost, 21, kZ},  {7, kItem, 4, kInt},
                               {7, kJrnl, 4, kInt},    {7, kDate, 4, kDat}, {7, kFlag, 1, kUns}};
constexpr KeySeg kWalkKey[] = {{0, kAccount, 4, kInt}, {0, kDate, 4, kDat}, {0, kPost, 4, kUns}};
// The master: ID (zero-terminated, 21 at 4) is key 0, the record number (s32 at 0) key 1.
constexpr KeySeg kMasterKeys[] = {{0, 4, 21, kZ}, {1, 0, 4, kExtAutoIncrement}};
// An invoice header: number (u32 at 0) is key 0, unique; customer ID (21 at 4) and date (at
// 25) key 1.
constexpr KeySeg kHeaderKeys[] = {{0, 0, 4, kUns}, {1, 4, 21, kZ}, {1, 25, 4, kDat}};

// --- libpq used directly ------------------------------------------------------------------

// Reports what failed with the server's message, ends the run and exits with 1.
[[noreturn]] void Fail(const char* what, PGconn* c) {
  std::fprintf(stderr, "%s: %s failed: %s", g_run.name, what,
               c != nullptr ? PQerrorMessage(c) : "no connection\n");
  EndRun();
  std::exit(1);
}

// A connection to the server that keeps the server's notices (a schema dropped with its
// tables) to itself.
PGconn* Connect() {
  PGconn* c = PQconnectdb(g_conninfo.c_str());
  if (PQstatus(c) != CONNECTION_OK) Fail("connecting to the server", c);
  PQsetNoticeProcessor(
      c, [](void*, const char*) {}, nullptr);
  return c;
}

// Runs sql (no parameters, text results); exits unless it succeeds.
void Exec(PGconn* c, const std::string& sql) {
  PGresult* r = PQexec(c, sql.c_str());
  const ExecStatusType st = PQresultStatus(r);
  PQclear(r);
  if (st != PGRES_COMMAND_OK && st != PGRES_TUPLES_OK) Fail(sql.c_str(), c);
}

void Prepare(PGconn* c, const char* name, const std::string& sql) {
  PGresult* r = PQprepare(c, name, sql.c_str(), 0, nullptr);
  const bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
  PQclear(r);
  if (!ok) Fail(sql.c_str(), c);
}

// Parameters of a prepared statement, all in binary form (the caller keeps the bytes).
struct Params {
  std::vector<const char*> values;
  std::vector<int> lengths;
  void Add(const void* bytes, size_t size) {
    values.push_back(static_cast<const char*>(bytes));
    lengths.push_back(static_cast<int>(size));
  }
  void Clear() {
    values.clear();
    lengths.clear();
  }
};

// Runs a prepared statement with binary parameters and binary results; the caller clears
// the result, which is null when the statement failed (the reason is on the connection).
PGresult* Run(PGconn* c, const char* name, const Params& p) {
  static const int kBinary[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
  PGresult* r = PQexecPrepared(c, name, static_cast<int>(p.values.size()), p.values.data(),
                               p.lengths.data(), kBinary, 1);
  const ExecStatusType st = PQresultStatus(r);
  if (st != PGRES_COMMAND_OK && st != PGRES_TUPLES_OK) {
    PQclear(r);
    return nullptr;
  }
  return r;
}

uint32_t BigEndian32(uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0xFF00) | ((v << 8) & 0xFF0000) | (v << 24);
}

// "CREATE TABLE t(pos integer PRIMARY KEY, ver bigint NOT NULL, k0 bytea NOT NULL, k1 bytea,
// ..., data bytea NOT NULL)" for a file of `keys` keys.
void CreateTable(PGconn* c, const std::string& t, size_t keys) {
  std::string sql = "CREATE TABLE " + t + "(pos integer PRIMARY KEY, ver bigint NOT NULL";
  for (size_t k = 0; k < keys; ++k)
    sql += ", k" + std::to_string(k) + " bytea" + (k == 0 ? " NOT NULL" : "");
  Exec(c, sql + ", data bytea NOT NULL)");
}

// The index of key k of table t: unique on the key alone, otherwise on (key, pos).
void CreateIndex(PGconn* c, const std::string& t, size_t k, bool unique) {
  const std::string col = "k" + std::to_string(k);
  Exec(c, std::string(unique ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") + t + "_" + col + " ON " +
              t + "(" + col + (unique ? ")" : ", pos)"));
}

// Copies count records made by record(i) into table t (positions 1, 2, ...), every key of
// segs encoded as the store encodes it.
template <typename Record>
void CopyInto(PGconn* c, const std::string& t, std::span<const KeySeg> segs, uint16_t len,
              int count, Record&& record) {
  std::string cols = "pos, ver";
  for (size_t k = 0; k < KeyCount(segs); ++k) cols += ", k" + std::to_string(k);
  PGresult* r = PQexec(c, ("COPY " + t + "(" + cols + ", data) FROM STDIN").c_str());
  const bool ok = PQresultStatus(r) == PGRES_COPY_IN;
  PQclear(r);
  if (!ok) Fail("COPY", c);
  static const char kHex[] = "0123456789abcdef";
  auto hex = [](std::string& out, const uint8_t* p, size_t n) {
    out += "\\\\x";  // COPY's text form unescapes this to bytea's \x
    for (size_t i = 0; i < n; ++i) {
      out += kHex[p[i] >> 4];
      out += kHex[p[i] & 15];
    }
  };
  std::string chunk;
  std::vector<uint8_t> keys(KeyBytes(segs));
  for (int i = 0; i < count; ++i) {
    const uint8_t* rec = record(i);
    chunk += std::to_string(i + 1) + "\t1";
    ForEachKey(segs, rec, keys.data(), [&](int, const uint8_t* bytes, size_t size) {
      chunk += '\t';
      hex(chunk, bytes, size);
    });
    chunk += '\t';
    hex(chunk, rec, len);
    chunk += '\n';
    if (chunk.size() > (1 << 20) || i + 1 == count) {
      if (PQputCopyData(c, chunk.data(), static_cast<int>(chunk.size())) != 1) Fail("COPY", c);
      chunk.clear();
    }
  }
  if (PQputCopyEnd(c, nullptr) != 1) Fail("COPY", c);
  r = PQgetResult(c);
  const bool done = PQresultStatus(r) == PGRES_COMMAND_OK;
  PQclear(r);
  while ((r = PQgetResult(c)) != nullptr) PQclear(r);
  if (!done) Fail("COPY", c);
}

// --- The data -----------------------------------------------------------------------------

// A description from segments; the keys listed in `duplicates` allow duplicates, and the
// key numbers are those of the segments when `manual`.
FileSpec Spec(uint16_t length, std::span<const KeySeg> segs, std::initializer_list<int> duplicates,
              bool manual = false) {
  FileSpec spec = {};
  spec.recordLength = length;
  spec.pageSize = 4096;
  for (size_t i = 0; i < segs.size(); ++i) {
    const bool first = i == 0 || segs[i - 1].key != segs[i].key;
    const bool last = i + 1 == segs.size() || segs[i + 1].key != segs[i].key;
    const bool dup =
        std::find(duplicates.begin(), duplicates.end(), segs[i].key) != duplicates.end();
    spec.segments[spec.numberOfSegments++] = {
        static_cast<uint16_t>(segs[i].off + 1), segs[i].len,
        static_cast<uint16_t>(kKeyExtendedType | (dup ? kKeyDuplicates | kKeyModifiable : 0) |
                              (last ? 0 : kKeySegmented) |
                              (manual && first ? kKeyManualNumber : 0)),
        segs[i].type, static_cast<uint8_t>(manual && first ? segs[i].key : 0)};
  }
  return spec;
}

std::vector<uint8_t> MakeRows(int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> rows(static_cast<size_t>(count) * kRowLen, 0);
  for (int i = 0; i < count; ++i) {
    uint8_t* r = &rows[static_cast<size_t>(i) * kRowLen];
    auto put = [r](size_t off, auto v) { std::memcpy(r + off, &v, sizeof v); };
    put(kAccount, static_cast<int32_t>(rng() % 500 + 1));
    put(kPost, static_cast<uint32_t>(i / 5 + 1));
    put(kLine, static_cast<int16_t>(i % 5 + 1));
    put(kItem, static_cast<int32_t>(rng() % 2000 + 1));
    put(kJob, static_cast<int32_t>(rng() % 50));
    std::snprintf(reinterpret_cast<char*>(r + kPhase), 21, "PH%03u", unsigned(rng() % 100));
    std::snprintf(reinterpret_cast<char*>(r + kCost), 21, "CC%03u", unsigned(rng() % 100));
    put(kLink, static_cast<uint32_t>(rng() % 4 == 0 ? rng() % 10000 : 0));
    put(kJrnl, static_cast<int32_t>(rng() % 13));
    put(kDate,
        DatesType{uint8_t(rng() % 28 + 1), uint8_t(rng() % 12 + 1), uint16_t(2020 + rng() % 6)});
    r[kFlag] = static_cast<uint8_t>(rng() % 2);
    put(kAmount, static_cast<double>(rng() % 100000) / 100.0);
    for (size_t b = 318; b < 334; ++b) r[b] = static_cast<uint8_t>(rng());
  }
  return rows;
}

const uint8_t* MasterRecord(int i) {
  static uint8_t rec[kMasterLen];
  std::memset(rec, 0, sizeof rec);
  const int32_t number = i + 1;
  std::memcpy(rec, &number, sizeof number);
  std::snprintf(reinterpret_cast<char*>(&rec[4]), 21, "ID%08d", i + 1);
  std::snprintf(reinterpret_cast<char*>(&rec[40]), 60, "Customer number %d", i + 1);
  return rec;
}

// The walk's rows, made 100,000 at a time (the same for every call with the same i).
const uint8_t* WalkRow(int i) {
  static std::vector<uint8_t> rows;
  static int made = -1;
  if (i / 100'000 != made) {
    made = i / 100'000;
    rows = MakeRows(100'000, 1000 + static_cast<uint32_t>(made));
  }
  return &rows[static_cast<size_t>(i % 100'000) * kRowLen];
}

void MakeInvoices() {
  std::mt19937 rng(7);
  g_headers.assign(static_cast<size_t>(kInvoices) * kHeaderLen, 0);
  g_lines = MakeRows(kInvoices * kInvoiceLines, 11);
  for (int i = 0; i < kInvoices; ++i) {
    uint8_t* h = &g_headers[static_cast<size_t>(i) * kHeaderLen];
    const uint32_t number = static_cast<uint32_t>(i + 1);
    std::memcpy(h, &number, sizeof number);
    std::snprintf(reinterpret_cast<char*>(h + 4), 21, "ID%08u", unsigned(rng() % 1000 + 1));
    const DatesType date{uint8_t(rng() % 28 + 1), uint8_t(rng() % 12 + 1), 2026};
    std::memcpy(h + 25, &date, sizeof date);
    for (int l = 0; l < kInvoiceLines; ++l) {
      uint8_t* r = &g_lines[static_cast<size_t>(i * kInvoiceLines + l) * kRowLen];
      const int16_t line = static_cast<int16_t>(l + 1);
      std::memcpy(r + kPost, &number, sizeof number);
      std::memcpy(r + kLine, &line, sizeof line);
      std::memcpy(r + kDate, &date, sizeof date);
    }
  }
}

// The direct side's schema: master (f1), walk rows (f2), invoice headers (f3) and rows (f4).
void BuildDirect() {
  PGconn* c = Connect();
  Exec(c, "CREATE SCHEMA " + g_direct_schema + "; SET search_path TO " + g_direct_schema);
  CreateTable(c, "f1", 2);
  CopyInto(c, "f1", kMasterKeys, kMasterLen, kMasterRecords, MasterRecord);
  CreateIndex(c, "f1", 0, true);
  CreateIndex(c, "f1", 1, true);
  CreateTable(c, "f2", 1);
  CopyInto(c, "f2", kWalkKey, kRowLen, kWalkRows, WalkRow);
  CreateIndex(c, "f2", 0, false);
  CreateTable(c, "f3", 2);
  CreateIndex(c, "f3", 0, true);
  CreateIndex(c, "f3", 1, false);
  CreateTable(c, "f4", 8);
  for (size_t k = 0; k < 8; ++k) CreateIndex(c, "f4", k, false);
  Exec(c, "ANALYZE");
  PQfinish(c);
}

// Our side's files, in one batch each, in the directory served from our schema.
void BuildOurs() {
  std::string error;
  if (ZORServeDirectoryFromServer(g_dir.c_str(), g_conninfo.c_str(), g_our_schema.c_str(),
                                  &error) != 0) {
    std::fprintf(stderr, "%s: serving a directory from the server failed: %s\n", g_run.name,
                 error.c_str());
    EndRun();
    std::exit(1);
  }
  auto fill = [](const char* base, const FileSpec& spec, int count, auto&& record) {
    const std::string name = g_dir + "/" + base;
    Check(ZORCreateFile(&spec, kCreateReplace, name.c_str()), "create");
    BtrvFile* f = nullptr;
    Check(RealOpenBFile(&f, name.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), "open");
    Check(bBeginBatchUpdate(f), "begin");
    std::vector<uint8_t> rec(spec.recordLength);
    for (int i = 0; i < count; ++i) {
      std::memcpy(rec.data(), record(i), rec.size());
      Check(InsertRecord(f, spec.recordLength, rec.data()), "insert");
    }
    Check(bEndBatchUpdate(f), "end");
    RealCloseFile(&f, __FILE__, __LINE__);
  };
  fill("CUSTOMER.DAT", Spec(kMasterLen, kMasterKeys, {}), kMasterRecords, MasterRecord);
  fill("JRNLROW.DAT", Spec(kRowLen, kWalkKey, {0}), kWalkRows, WalkRow);
}

// Drops both schemas (at the end, and when the run fails).
void DropSchemas() {
  ZORStopServingDirectory(g_dir.c_str());
  PGconn* c = PQconnectdb(g_conninfo.c_str());
  if (PQstatus(c) == CONNECTION_OK) {
    PQsetNoticeProcessor(
        c, [](void*, const char*) {}, nullptr);
    for (const std::string& s : {g_direct_schema, g_our_schema}) {
      PGresult* r = PQexec(c, ("DROP SCHEMA IF EXISTS " + s + " CASCADE").c_str());
      PQclear(r);
    }
  }
  PQfinish(c);
}

// --- (a) keyed equal reads ---------------------------------------------------------------

void BM_ReadDirect(benchmark::State& state) {
  PGconn* c = Connect();
  Exec(c, "SET search_path TO " + g_direct_schema);
  Prepare(c, "read", "SELECT pos, ver, data FROM f1 WHERE k0=$1");
  uint8_t rec[kMasterLen], key[21];
  Params p;
  p.Add(key, sizeof key);
  size_t i = 0;
  for (auto _ : state) {
    std::memcpy(key, g_probe_ids[i++ & 0xFFFF].data(), sizeof key);
    PGresult* r = Run(c, "read", p);
    if (r == nullptr || PQntuples(r) != 1 || PQgetlength(r, 0, 2) != kMasterLen) {
      state.SkipWithError("not found");
    } else {
      std::memcpy(rec, PQgetvalue(r, 0, 2), kMasterLen);
      benchmark::DoNotOptimize(rec[0]);
    }
    PQclear(r);
  }
  state.SetItemsProcessed(state.iterations());
  PQfinish(c);
}

void BM_ReadRecordManager(benchmark::State& state) {
  BtrvFile* f = nullptr;
  Check(RealOpenBFile(&f, (g_dir + "/CUSTOMER.DAT").c_str(), kOpenModeReadOnly, 0, __FILE__,
                      __LINE__),
        "open");
  uint8_t rec[kMasterLen];
  size_t i = 0;
  for (auto _ : state) {
    std::memcpy(rec + 4, g_probe_ids[i++ & 0xFFFF].data(), 21);
    if (!GetFileEqual(f, 0, kMasterLen, rec, 0)) state.SkipWithError("not found");
    benchmark::DoNotOptimize(rec[0]);
  }
  state.SetItemsProcessed(state.iterations());
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (b) the walk ------------------------------------------------------------------------

// Keyset pages: the first kPage rows in key order, then each next page after the last row's
// (key, pos).
void BM_WalkDirectKeyset(benchmark::State& state) {
  PGconn* c = Connect();
  Exec(c, "SET search_path TO " + g_direct_schema);
  const std::string cols = "SELECT pos, k0, ver, data FROM f2 ";
  const std::string order = " ORDER BY k0, pos LIMIT " + std::to_string(kPage);
  Prepare(c, "first", cols + order);
  Prepare(c, "next", cols + "WHERE (k0, pos) > ($1, $2)" + order);
  uint8_t rec[kRowLen], last_key[12];
  uint32_t last_pos = 0;
  int64_t rows = 0;
  Params none, after;
  after.Add(last_key, sizeof last_key);
  after.Add(&last_pos, sizeof last_pos);
  for (auto _ : state) {
    for (PGresult* r = Run(c, "first", none);; r = Run(c, "next", after)) {
      const int n = r != nullptr ? PQntuples(r) : 0;
      for (int row = 0; row < n; ++row, ++rows) {
        std::memcpy(rec, PQgetvalue(r, row, 3), kRowLen);
        benchmark::DoNotOptimize(rec[0]);
      }
      if (n > 0) {
        std::memcpy(&last_pos, PQgetvalue(r, n - 1, 0), sizeof last_pos);  // network order
        std::memcpy(last_key, PQgetvalue(r, n - 1, 1), sizeof last_key);
      }
      PQclear(r);
      if (n < kPage) break;
    }
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  PQfinish(c);
}

// A binary cursor in a read-only transaction, fetched kPage rows at a time.
void BM_WalkDirectCursor(benchmark::State& state) {
  PGconn* c = Connect();
  Exec(c, "SET search_path TO " + g_direct_schema);
  Prepare(c, "walk", "SELECT pos, ver, data FROM f2 ORDER BY k0, pos");
  const std::string fetch = "FETCH " + std::to_string(kPage) + " FROM walk";
  uint8_t rec[kRowLen];
  int64_t rows = 0;
  for (auto _ : state) {
    Exec(c,
         "BEGIN READ ONLY; DECLARE walk BINARY NO SCROLL CURSOR FOR "
         "SELECT pos, ver, data FROM f2 ORDER BY k0, pos");
    for (;;) {
      PGresult* r = PQexec(c, fetch.c_str());
      const int n = PQresultStatus(r) == PGRES_TUPLES_OK ? PQntuples(r) : 0;
      for (int row = 0; row < n; ++row, ++rows) {
        std::memcpy(rec, PQgetvalue(r, row, 2), kRowLen);
        benchmark::DoNotOptimize(rec[0]);
      }
      PQclear(r);
      if (n < kPage) break;
    }
    Exec(c, "CLOSE walk; COMMIT");
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  PQfinish(c);
}

void BM_WalkRecordManager(benchmark::State& state) {
  BtrvFile* f = nullptr;
  Check(
      RealOpenBFile(&f, (g_dir + "/JRNLROW.DAT").c_str(), kOpenModeReadOnly, 0, __FILE__, __LINE__),
      "open");
  uint8_t rec[kRowLen];
  int64_t rows = 0;
  for (auto _ : state) {
    for (uint8_t ok = GetFileLowest(f, 0, kRowLen, rec, 0); ok;
         ok = GetFileNext(f, 0, kRowLen, rec, 0))
      ++rows;
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (c) invoices, each in its own transaction -------------------------------------------

void BM_PostDirect(benchmark::State& state) {
  PGconn* c = Connect();
  Exec(c, "SET search_path TO " + g_direct_schema);
  Prepare(c, "header", "INSERT INTO f3(pos, ver, k0, k1, data) VALUES($1, 1, $2, $3, $4)");
  Prepare(c, "line",
          "INSERT INTO f4(pos, ver, k0, k1, k2, k3, k4, k5, k6, k7, data) "
          "VALUES($1, 1, $2, $3, $4, $5, $6, $7, $8, $9, $10)");
  Prepare(c, "begin", "BEGIN");
  Prepare(c, "commit", "COMMIT");
  const Params none;
  for (auto _ : state) {
    state.PauseTiming();
    Exec(c, "TRUNCATE f3, f4");
    state.ResumeTiming();
    uint32_t line_pos = 0;
    for (int i = 0; i < kInvoices; ++i) {
      uint8_t keys[128];
      uint32_t pos = BigEndian32(static_cast<uint32_t>(i + 1));
      const uint8_t* h = &g_headers[static_cast<size_t>(i) * kHeaderLen];
      Params p;
      p.Add(&pos, sizeof pos);
      ForEachKey(kHeaderKeys, h, keys, [&](int, const uint8_t* b, size_t n) { p.Add(b, n); });
      p.Add(h, kHeaderLen);
      PGresult* r = Run(c, "begin", none);
      bool ok = r != nullptr;
      PQclear(r);
      r = ok ? Run(c, "header", p) : nullptr;
      ok = r != nullptr;
      PQclear(r);
      for (int l = 0; ok && l < kInvoiceLines; ++l) {
        const uint8_t* row = &g_lines[static_cast<size_t>(i * kInvoiceLines + l) * kRowLen];
        uint32_t row_pos = BigEndian32(++line_pos);
        p.Clear();
        p.Add(&row_pos, sizeof row_pos);
        ForEachKey(kRowKeys, row, keys, [&](int, const uint8_t* b, size_t n) { p.Add(b, n); });
        p.Add(row, kRowLen);
        r = Run(c, "line", p);
        ok = r != nullptr;
        PQclear(r);
      }
      r = ok ? Run(c, "commit", none) : nullptr;
      if (r == nullptr) {
        state.SkipWithError(PQerrorMessage(c));
        break;
      }
      PQclear(r);
    }
  }
  state.SetItemsProcessed(state.iterations() * kInvoices);
  PQfinish(c);
}

void BM_PostRecordManager(benchmark::State& state) {
  const std::string headers = g_dir + "/INVHDR.DAT", lines = g_dir + "/INVROW.DAT";
  const FileSpec header_spec = Spec(kHeaderLen, kHeaderKeys, {1});
  const FileSpec line_spec = Spec(kRowLen, kRowKeys, {0, 1, 2, 3, 4, 5, 6, 7});
  uint8_t header[kHeaderLen], line[kRowLen];
  for (auto _ : state) {
    state.PauseTiming();
    Check(ZORCreateFile(&header_spec, kCreateReplace, headers.c_str()), "create");
    Check(ZORCreateFile(&line_spec, kCreateReplace, lines.c_str()), "create");
    BtrvFile *h = nullptr, *l = nullptr;
    Check(RealOpenBFile(&h, headers.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), "open");
    Check(RealOpenBFile(&l, lines.c_str(), kOpenModeNormal, 0, __FILE__, __LINE__), "open");
    state.ResumeTiming();
    for (int i = 0; i < kInvoices; ++i) {
      bool ok = bBeginBatchUpdate(h) != 0;
      std::memcpy(header, &g_headers[static_cast<size_t>(i) * kHeaderLen], kHeaderLen);
      ok = ok && InsertRecord(h, kHeaderLen, header) != 0;
      for (int n = 0; ok && n < kInvoiceLines; ++n) {
        std::memcpy(line, &g_lines[static_cast<size_t>(i * kInvoiceLines + n) * kRowLen], kRowLen);
        ok = InsertRecord(l, kRowLen, line) != 0;
      }
      if (!ok || !bEndBatchUpdate(h)) {
        state.SkipWithError("posting an invoice");
        break;
      }
    }
    state.PauseTiming();
    RealCloseFile(&l, __FILE__, __LINE__);
    RealCloseFile(&h, __FILE__, __LINE__);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInvoices);
}

}  // namespace

// The reads run for a while each; the walks and the posting are one pass per repetition.
void Timed(benchmark::internal::Benchmark* b) { b->Repetitions(3)->MinTime(0.5)->UseRealTime(); }
BENCHMARK(BM_ReadDirect)->Apply(Timed);
BENCHMARK(BM_ReadRecordManager)->Apply(Timed);
BENCHMARK(BM_WalkDirectKeyset)->Apply(OnePass);
BENCHMARK(BM_WalkDirectCursor)->Apply(OnePass);
BENCHMARK(BM_WalkRecordManager)->Apply(OnePass);
BENCHMARK(BM_PostDirect)->Apply(OnePass);
BENCHMARK(BM_PostRecordManager)->Apply(OnePass);

int main(int argc, char** argv) {
  const char* conninfo = std::getenv("BASICS_BENCH_PG");
  if (conninfo == nullptr || *conninfo == '\0') {
    std::fprintf(stderr,
                 "pg_bench: BASICS_BENCH_PG is not set; it names the PostgreSQL server to "
                 "measure on (a libpq connection string; ./run bench starts one)\n");
    return 1;
  }
  g_conninfo = conninfo;
  InitializeBenchmarks(&argc, argv);
  StartRun("pg_bench", DropSchemas);
  g_direct_schema = "bench_direct_" + std::to_string(getpid());
  g_our_schema = "bench_ours_" + std::to_string(getpid());
  g_dir = g_run.root + "/company";  // served from the server; never made on this machine
  std::mt19937 rng(42);
  g_probe_ids.resize(1 << 16);
  for (auto& id : g_probe_ids)
    std::snprintf(id.data(), 21, "ID%08d", int(1 + rng() % kMasterRecords));
  MakeInvoices();
  BuildDirect();
  BuildOurs();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  EndRun();
  const double keyset = reporter.Best("BM_WalkDirectKeyset");
  const double cursor = reporter.Best("BM_WalkDirectCursor");
  const std::string walk = keyset >= cursor ? "BM_WalkDirectKeyset" : "BM_WalkDirectCursor";
  std::printf("ratio pg-read %.2f\n", reporter.TimeRatio("BM_ReadRecordManager", "BM_ReadDirect"));
  std::printf("ratio pg-walk %.2f\n", reporter.TimeRatio("BM_WalkRecordManager", walk));
  std::printf("ratio pg-post %.2f\n", reporter.TimeRatio("BM_PostRecordManager", "BM_PostDirect"));
  std::printf("walk rows/s: ours %.0f, direct %.0f (keyset pages %.0f, cursor %.0f)\n",
              reporter.Best("BM_WalkRecordManager"), std::max(keyset, cursor), keyset, cursor);
  benchmark::Shutdown();
  return 0;
}
