// The record manager against SQLite used directly, in one process, on the same data:
// (a) keyed equal reads on a 100,000-record master file (random keys); (b) a GetFileNext
// walk over 1,000,000 journal rows (373 bytes) on the row file's 3-segment key 2 (account,
// date, post order); (c) 100,000 journal rows inserted with their 8 keys in one batch;
// (d) the first 200,000 rows of that walk with a keyed read of the row's item on a
// 2,000-record item file of the same directory after every row, as a ledger walk or the
// navigator does (the direct side: two prepared statements, one of them stepping). The
// direct side uses the tables the record manager made (same schema, same key bytes) through
// its own connection and prepared statements. At the end, one line per comparison, "ratio
// read|walk|insert|walk+lookup X.XX": our time per operation over SQLite's (best
// repetitions), and what a look-up per row adds to a walk, ours and SQLite's ("walk+lookup
// over walk").
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "record_manager.h"
#include "zor_types.h"

namespace {

constexpr int kMasterRecords = 100'000, kWalkRows = 1'000'000, kInsertRows = 100'000;
constexpr int kLookupWalkRows = 200'000, kItems = 2'000;
constexpr uint16_t kMasterLen = 400, kRowLen = 373;

std::vector<std::array<char, 21>> g_probe_ids;  // random existing master IDs, for both sides
std::vector<uint8_t> g_insert_rows;             // the rows of (c), the same for both sides

std::string Dir(const char* name) { return g_run.root + "/" + name; }

BtrvFile* OpenFile(const std::string& name, uint16_t mode) {
  BtrvFile* f = nullptr;
  Check(RealOpenBFile(&f, name.c_str(), mode, 0, __FILE__, __LINE__), "open");
  return f;
}

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

// A description from segments (only those of key `only`, numbered by hand, when >= 0).
FileSpec Spec(uint16_t length, std::span<const KeySeg> segs, uint16_t flags, int only = -1) {
  FileSpec spec = {};
  spec.recordLength = length;
  spec.pageSize = 4096;
  for (size_t i = 0; i < segs.size(); ++i) {
    const bool first = i == 0 || segs[i - 1].key != segs[i].key;
    const bool last = i + 1 == segs.size() || segs[i + 1].key != segs[i].key;
    if (only >= 0 && segs[i].key != only) continue;
    spec.segments[spec.numberOfSegments++] = {
        static_cast<uint16_t>(segs[i].off + 1), segs[i].len,
        static_cast<uint16_t>(flags | kKeyExtendedType | (last ? 0 : kKeySegmented) |
                              (only >= 0 && first ? kKeyManualNumber : 0)),
        segs[i].type, static_cast<uint8_t>(only >= 0 && first ? only : 0)};
  }
  return spec;
}
FileSpec RowSpec(int only = -1) {
  return Spec(kRowLen, kRowKeys, kKeyDuplicates | kKeyModifiable, only);
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
    put(kItem, static_cast<int32_t>(rng() % kItems + 1));
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

// Creates (or replaces) dir/base from spec and inserts count records made by record(i), in
// one batch; answers the file's name.
std::string Fill(const std::string& dir, const char* base, const FileSpec& spec, int count,
                 const std::function<uint8_t*(int)>& record = nullptr) {
  std::filesystem::create_directories(dir);
  Check(ZORCreateFile(&spec, kCreateReplace, (dir + "/" + base).c_str()), "create");
  BtrvFile* f = OpenFile(dir + "/" + base, kOpenModeNormal);
  Check(bBeginBatchUpdate(f), "begin");
  for (int i = 0; i < count; ++i) Check(InsertRecord(f, spec.recordLength, record(i)), "insert");
  Check(bEndBatchUpdate(f), "end");
  RealCloseFile(&f, __FILE__, __LINE__);
  return dir + "/" + base;
}

void BuildFiles() {
  // The master: ID (zero-terminated, 21 at 4) is key 0, the record number (s32 at 0) key 1.
  const KeySeg master_keys[] = {{0, 4, 21, kZ}, {1, 0, 4, kExtAutoIncrement}};
  std::vector<uint8_t> rec(kMasterLen);
  Fill(Dir("read"), "CUSTOMER.DAT", Spec(kMasterLen, master_keys, 0), kMasterRecords, [&](int i) {
    std::fill(rec.begin(), rec.end(), 0);
    std::snprintf(reinterpret_cast<char*>(&rec[4]), 21, "ID%08d", i + 1);
    std::snprintf(reinterpret_cast<char*>(&rec[40]), 60, "Customer number %d", i + 1);
    return rec.data();
  });
  std::mt19937 rng(42);
  g_probe_ids.resize(1 << 16);
  for (auto& id : g_probe_ids)
    std::snprintf(id.data(), 21, "ID%08d", int(1 + rng() % kMasterRecords));
  // The walk's rows, made 100,000 at a time, on key 2 alone.
  std::vector<uint8_t> rows;
  Fill(Dir("walk"), "JRNLROW.DAT", RowSpec(2), kWalkRows, [&](int i) {
    if (i % kInsertRows == 0) rows = MakeRows(kInsertRows, 1000 + uint32_t(i / kInsertRows));
    return &rows[static_cast<size_t>(i % kInsertRows) * kRowLen];
  });
  g_insert_rows = MakeRows(kInsertRows, 7);
  // The items the walk looks up, beside the rows: number (s32 at 0) is key 0.
  const KeySeg item_keys[] = {{0, 0, 4, kInt}};
  Fill(Dir("walk"), "LINEITEM.DAT", Spec(kMasterLen, item_keys, 0), kItems, [&](int i) {
    std::fill(rec.begin(), rec.end(), 0);
    const int32_t number = i + 1;
    std::memcpy(&rec[0], &number, sizeof number);
    std::snprintf(reinterpret_cast<char*>(&rec[4]), 31, "Item %d", number);
    return rec.data();
  });
}

// --- (a) keyed equal reads ---------------------------------------------------------------

void BM_ReadDirect(benchmark::State& state) {
  sqlite3* db = OpenDirect(Dir("read"));
  sqlite3_stmt* s = Prepare(db, "customer.dat",
                            "SELECT pos, ver, data FROM $T WHERE k0=?1 ORDER BY k0, pos LIMIT 1");
  uint8_t rec[kMasterLen], key[21];
  size_t i = 0;
  for (auto _ : state) {
    std::memcpy(key, g_probe_ids[i++ & 0xFFFF].data(), sizeof key);
    sqlite3_bind_blob(s, 1, key, sizeof key, SQLITE_STATIC);
    if (sqlite3_step(s) != SQLITE_ROW) state.SkipWithError("not found");
    std::memcpy(rec, sqlite3_column_blob(s, 2), kMasterLen);
    benchmark::DoNotOptimize(sqlite3_column_int64(s, 0));
    sqlite3_reset(s);
  }
  state.SetItemsProcessed(state.iterations());
  sqlite3_finalize(s);
  sqlite3_close_v2(db);
}

void BM_ReadRecordManager(benchmark::State& state) {
  BtrvFile* f = OpenFile(Dir("read") + "/CUSTOMER.DAT", kOpenModeReadOnly);
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

void BM_WalkDirect(benchmark::State& state) {
  sqlite3* db = OpenDirect(Dir("walk"));
  sqlite3_stmt* s = Prepare(db, "jrnlrow.dat", "SELECT pos, ver, data FROM $T ORDER BY k0, pos");
  uint8_t rec[kRowLen];
  int64_t rows = 0;
  for (auto _ : state) {
    for (; sqlite3_step(s) == SQLITE_ROW; ++rows) {
      std::memcpy(rec, sqlite3_column_blob(s, 2), kRowLen);
      benchmark::DoNotOptimize(sqlite3_column_int64(s, 0));
    }
    sqlite3_reset(s);
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  sqlite3_finalize(s);
  sqlite3_close_v2(db);
}

void BM_WalkRecordManager(benchmark::State& state) {
  BtrvFile* f = OpenFile(Dir("walk") + "/JRNLROW.DAT", kOpenModeReadOnly);
  uint8_t rec[kRowLen];
  int64_t rows = 0;
  for (auto _ : state) {
    for (uint8_t ok = GetFileLowest(f, 0, kRowLen, rec, 2); ok;
         ok = GetFileNext(f, 0, kRowLen, rec, 2))
      ++rows;
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (d) the walk with a look-up per row ------------------------------------------------

void BM_WalkLookupDirect(benchmark::State& state) {
  sqlite3* db = OpenDirect(Dir("walk"));
  sqlite3_stmt* walk = Prepare(db, "jrnlrow.dat", "SELECT pos, ver, data FROM $T ORDER BY k0, pos");
  sqlite3_stmt* item = Prepare(
      db, "lineitem.dat", "SELECT pos, ver, data FROM $T WHERE k0=?1 ORDER BY k0, pos LIMIT 1");
  uint8_t rec[kRowLen], master[kMasterLen], key[4];
  int64_t rows = 0;
  for (auto _ : state) {
    for (int n = 0; n < kLookupWalkRows && sqlite3_step(walk) == SQLITE_ROW; ++n, ++rows) {
      std::memcpy(rec, sqlite3_column_blob(walk, 2), kRowLen);
      EncodeKey(key, rec, KeySeg{0, kItem, 4, kInt});
      sqlite3_bind_blob(item, 1, key, sizeof key, SQLITE_STATIC);
      if (sqlite3_step(item) != SQLITE_ROW) state.SkipWithError("item not found");
      std::memcpy(master, sqlite3_column_blob(item, 2), kMasterLen);
      benchmark::DoNotOptimize(master[0]);
      sqlite3_reset(item);
    }
    sqlite3_reset(walk);
  }
  if (rows != state.iterations() * kLookupWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  sqlite3_finalize(item);
  sqlite3_finalize(walk);
  sqlite3_close_v2(db);
}

void BM_WalkLookupRecordManager(benchmark::State& state) {
  BtrvFile* f = OpenFile(Dir("walk") + "/JRNLROW.DAT", kOpenModeReadOnly);
  BtrvFile* items = OpenFile(Dir("walk") + "/LINEITEM.DAT", kOpenModeReadOnly);
  uint8_t rec[kRowLen], master[kMasterLen] = {};
  int64_t rows = 0;
  for (auto _ : state) {
    uint8_t ok = GetFileLowest(f, 0, kRowLen, rec, 2);
    for (int n = 0; ok && n < kLookupWalkRows; ++n, ++rows) {
      std::memcpy(master, rec + kItem, 4);
      if (!GetFileEqual(items, 0, kMasterLen, master, 0)) state.SkipWithError("item not found");
      benchmark::DoNotOptimize(master[0]);
      ok = GetFileNext(f, 0, kRowLen, rec, 2);
    }
  }
  if (rows != state.iterations() * kLookupWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  RealCloseFile(&items, __FILE__, __LINE__);
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (c) inserts in one batch ------------------------------------------------------------

void BM_InsertDirect(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    Fill(Dir("insert-direct"), "JRNLROW.DAT", RowSpec(), 0);  // an empty file of 8 keys
    sqlite3* db = OpenDirect(Dir("insert-direct"));
    sqlite3_stmt* s = Prepare(db, "jrnlrow.dat", InsertSql(KeyCount(kRowKeys)));
    state.ResumeTiming();
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    uint8_t keys[128];
    for (int i = 0; i < kInsertRows; ++i) {
      const uint8_t* r = &g_insert_rows[static_cast<size_t>(i) * kRowLen];
      BindKeys(s, kRowKeys, r, keys);
      sqlite3_bind_blob(s, 9, r, kRowLen, SQLITE_STATIC);
      if (sqlite3_step(s) != SQLITE_DONE) state.SkipWithError("insert");
      sqlite3_reset(s);
    }
    if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
      state.SkipWithError("commit");
    state.PauseTiming();
    sqlite3_finalize(s);
    sqlite3_close_v2(db);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInsertRows);
}

void BM_InsertRecordManager(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    BtrvFile* f = OpenFile(Fill(Dir("insert-ours"), "JRNLROW.DAT", RowSpec(), 0), kOpenModeNormal);
    state.ResumeTiming();
    Check(bBeginBatchUpdate(f), "begin");
    for (int i = 0; i < kInsertRows; ++i)
      if (!InsertRecord(f, kRowLen, &g_insert_rows[static_cast<size_t>(i) * kRowLen]))
        state.SkipWithError("insert");
    if (!bEndBatchUpdate(f)) state.SkipWithError("end batch");
    state.PauseTiming();
    RealCloseFile(&f, __FILE__, __LINE__);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInsertRows);
}

}  // namespace

// The reads run for a while each; the walk and the inserts are one pass per repetition.
void Timed(benchmark::internal::Benchmark* b) { b->Repetitions(3)->MinTime(0.5)->UseRealTime(); }
BENCHMARK(BM_ReadDirect)->Apply(Timed);
BENCHMARK(BM_ReadRecordManager)->Apply(Timed);
BENCHMARK(BM_WalkDirect)->Apply(OnePass);
BENCHMARK(BM_WalkRecordManager)->Apply(OnePass);
BENCHMARK(BM_WalkLookupDirect)->Apply(OnePass);
BENCHMARK(BM_WalkLookupRecordManager)->Apply(OnePass);
BENCHMARK(BM_InsertDirect)->Apply(OnePass);
BENCHMARK(BM_InsertRecordManager)->Apply(OnePass);

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  StartRun("record_manager_bench");
  BuildFiles();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  EndRun();
  for (std::string what : {"Read", "Walk", "Insert", "WalkLookup"}) {  // ours / direct per op
    std::string label = what == "WalkLookup" ? "walk+lookup" : what;
    label[0] = static_cast<char>(std::tolower(label[0]));
    std::printf("ratio %s %.2f\n", label.c_str(),
                reporter.TimeRatio("BM_" + what + "RecordManager", "BM_" + what + "Direct"));
  }
  // What a look-up per row adds to a walk, per row, ours and direct SQLite's.
  auto added = [&](const std::string& side) {
    return reporter.TimeRatio("BM_WalkLookup" + side, "BM_Walk" + side);
  };
  std::printf("walk+lookup over walk %.2f (direct SQLite %.2f)\n", added("RecordManager"),
              added("Direct"));
  benchmark::Shutdown();
  return 0;
}
