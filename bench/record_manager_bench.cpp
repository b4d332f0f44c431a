// The record manager against SQLite used directly, in one process, on the same data:
//   (a) keyed equal reads on a 100,000-record master file (random keys),
//   (b) a GetFileNext walk over 1,000,000 journal rows (373 bytes) on the row file's
//       3-segment key 2 (account s32, date, post order u32),
//   (c) 100,000 journal rows with their 8 keys inserted inside one batch.
// The direct side uses the tables the record manager made (same schema, same key bytes),
// with its own connection and prepared statements. After the runs it prints one line per
// comparison, "ratio read|walk|insert X.XX": the record manager's time per operation
// divided by SQLite's (best repetition of each), lower is better.
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

#include "record_manager.h"
#include "zor_types.h"

namespace {

constexpr int kMasterRecords = 100'000;
constexpr int kWalkRows = 1'000'000;
constexpr int kInsertRows = 100'000;
constexpr uint16_t kMasterLen = 400;
constexpr uint16_t kRowLen = 373;

std::string g_root;  // temporary directory of the whole run

std::string Dir(const char* name) { return g_root + "/" + name; }

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "record_manager_bench: %s failed (status %u)\n", what,
                 GetErrorCode(nullptr));
    if (!g_root.empty()) {
      std::error_code ignored;
      std::filesystem::remove_all(g_root, ignored);
    }
    std::exit(1);
  }
}

// --- Descriptions ----------------------------------------------------------------------

void AddKey(FileSpec& spec, std::initializer_list<KeySegmentSpec> segments, uint16_t flags,
            int number = -1) {
  size_t i = 0;
  for (KeySegmentSpec s : segments) {
    s.flags |= flags;
    if (i + 1 < segments.size()) s.flags |= kKeySegmented;
    if (i == 0 && number >= 0) {
      s.flags |= kKeyManualNumber;
      s.keyNumber = static_cast<uint8_t>(number);
    }
    spec.segments[spec.numberOfSegments++] = s;
    ++i;
  }
}

KeySegmentSpec Int(uint16_t pos, uint16_t len) {
  return {pos, len, kKeyExtendedType, kExtInteger, 0};
}
KeySegmentSpec Uns(uint16_t pos, uint16_t len) {
  return {pos, len, kKeyExtendedType, kExtUnsignedBinary, 0};
}
KeySegmentSpec Date(uint16_t pos) { return {pos, 4, kKeyExtendedType, kExtDate, 0}; }
KeySegmentSpec ZStr(uint16_t pos, uint16_t len) {
  return {pos, len, kKeyExtendedType, kExtZString, 0};
}

// Master: record number (s32 at 0, key 1), ID (zero-terminated, 21 at 4, key 0).
FileSpec MasterSpec() {
  FileSpec spec = {};
  spec.recordLength = kMasterLen;
  spec.pageSize = 4096;
  AddKey(spec, {ZStr(5, 21)}, 0);
  AddKey(spec, {KeySegmentSpec{1, 4, kKeyExtendedType, kExtAutoIncrement, 0}}, 0);
  return spec;
}

// Journal row offsets used by the keys.
constexpr size_t kAccount = 0, kPost = 4, kLine = 8, kItem = 10, kJob = 14, kPhase = 18, kCost = 39,
                 kLink = 60, kJrnl = 66, kDate = 70, kFlag = 74, kAmount = 87;

// The row file's eight keys; the walk file has key 2 alone.
FileSpec RowSpec(bool walk_only) {
  FileSpec spec = {};
  spec.recordLength = kRowLen;
  spec.pageSize = 4096;
  const uint16_t dup = kKeyDuplicates | kKeyModifiable;
  auto p = [](size_t offset) { return static_cast<uint16_t>(offset + 1); };
  if (walk_only) {
    AddKey(spec, {Int(p(kAccount), 4), Date(p(kDate)), Uns(p(kPost), 4)}, dup, 2);
    return spec;
  }
  AddKey(spec, {Uns(p(kPost), 4)}, dup);
  AddKey(spec, {Uns(p(kPost), 4), Int(p(kLine), 2)}, dup);
  AddKey(spec, {Int(p(kAccount), 4), Date(p(kDate)), Uns(p(kPost), 4)}, dup);
  AddKey(spec, {Int(p(kItem), 4), Date(p(kDate))}, dup);
  AddKey(spec, {Int(p(kJob), 4), ZStr(p(kPhase), 21)}, dup);
  AddKey(spec, {Uns(p(kLink), 4), Date(p(kDate))}, dup);
  AddKey(spec, {Int(p(kJob), 4), ZStr(p(kCost), 21)}, dup);
  AddKey(spec, {Int(p(kItem), 4), Int(p(kJrnl), 4), Date(p(kDate)), Uns(p(kFlag), 1)}, dup);
  return spec;
}

template <typename T>
void Put(uint8_t* rec, size_t off, T v) {
  std::memcpy(rec + off, &v, sizeof v);
}

std::vector<uint8_t> MakeRows(int count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> rows(static_cast<size_t>(count) * kRowLen, 0);
  for (int i = 0; i < count; ++i) {
    uint8_t* r = &rows[static_cast<size_t>(i) * kRowLen];
    Put<int32_t>(r, kAccount, static_cast<int32_t>(rng() % 500 + 1));
    Put<uint32_t>(r, kPost, static_cast<uint32_t>(i / 5 + 1));
    Put<int16_t>(r, kLine, static_cast<int16_t>(i % 5 + 1));
    Put<int32_t>(r, kItem, static_cast<int32_t>(rng() % 2000));
    Put<int32_t>(r, kJob, static_cast<int32_t>(rng() % 50));
    std::snprintf(reinterpret_cast<char*>(r + kPhase), 21, "PH%03u",
                  static_cast<unsigned>(rng() % 100));
    std::snprintf(reinterpret_cast<char*>(r + kCost), 21, "CC%03u",
                  static_cast<unsigned>(rng() % 100));
    Put<uint32_t>(r, kLink, rng() % 4 == 0 ? rng() % 10000 : 0);
    Put<int32_t>(r, kJrnl, static_cast<int32_t>(rng() % 13));
    DatesType d{static_cast<uint8_t>(rng() % 28 + 1), static_cast<uint8_t>(rng() % 12 + 1),
                static_cast<uint16_t>(2020 + rng() % 6)};
    Put<DatesType>(r, kDate, d);
    r[kFlag] = static_cast<uint8_t>(rng() % 2);
    Put<double>(r, kAmount, static_cast<double>(rng() % 100000) / 100.0);
    for (size_t b = 318; b < 334; ++b) r[b] = static_cast<uint8_t>(rng());
  }
  return rows;
}

std::string MasterId(int n) {
  char id[21];
  std::snprintf(id, sizeof id, "ID%08d", n);
  return id;
}

// --- The direct side: SQLite on the record manager's tables -----------------------------

sqlite3* OpenDirect(const std::string& dir) {
  sqlite3* db = nullptr;
  const std::string path = dir + "/records.db";
  Check(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) ==
            SQLITE_OK,
        "sqlite3_open_v2");
  Check(
      sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768",
                   nullptr, nullptr, nullptr) == SQLITE_OK,
      "pragmas");
  return db;
}

std::string TableOf(sqlite3* db, const char* base) {
  sqlite3_stmt* s = nullptr;
  sqlite3_prepare_v2(db, "SELECT id FROM _files WHERE name=?1", -1, &s, nullptr);
  sqlite3_bind_text(s, 1, base, -1, SQLITE_STATIC);
  Check(sqlite3_step(s) == SQLITE_ROW, "catalogue look-up");
  std::string table = "f";
  table += std::to_string(sqlite3_column_int64(s, 0));
  sqlite3_finalize(s);
  return table;
}

sqlite3_stmt* Prepare(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* s = nullptr;
  Check(
      sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr) == SQLITE_OK,
      sql.c_str());
  return s;
}

// Key bytes as the store orders them: integers big-endian with the sign bit flipped,
// unsigned numbers big-endian, dates year/month/day, zero-terminated text zero-padded.
uint8_t* EncInt(uint8_t* out, const uint8_t* src, int n) {
  for (int i = 0; i < n; ++i) out[i] = src[n - 1 - i];
  out[0] ^= 0x80;
  return out + n;
}
uint8_t* EncUns(uint8_t* out, const uint8_t* src, int n) {
  for (int i = 0; i < n; ++i) out[i] = src[n - 1 - i];
  return out + n;
}
uint8_t* EncZStr(uint8_t* out, const uint8_t* src, int n) {
  size_t len = strnlen(reinterpret_cast<const char*>(src), static_cast<size_t>(n));
  std::memcpy(out, src, len);
  std::memset(out + len, 0, static_cast<size_t>(n) - len);
  return out + n;
}

// --- Data set-up -------------------------------------------------------------------------

std::vector<std::string> g_probe_ids;  // random existing IDs, the same for both sides

void BuildMaster() {
  const std::string dir = Dir("read");
  std::filesystem::create_directories(dir);
  FileSpec spec = MasterSpec();
  Check(ZORCreateFile(&spec, 0, (dir + "/CUSTOMER.DAT").c_str()), "create master");
  BtrvFile* f = nullptr;
  Check(RealOpenBFile(&f, (dir + "/CUSTOMER.DAT").c_str(), 0, 0, __FILE__, __LINE__), "open");
  Check(bBeginBatchUpdate(f), "begin");
  std::vector<uint8_t> rec(kMasterLen, 0);
  for (int i = 1; i <= kMasterRecords; ++i) {
    std::memset(rec.data(), 0, rec.size());
    std::string id = MasterId(i);
    std::memcpy(&rec[4], id.data(), id.size());
    std::snprintf(reinterpret_cast<char*>(&rec[40]), 60, "Customer number %d", i);
    Check(InsertRecord(f, kMasterLen, rec.data()), "insert master");
  }
  Check(bEndBatchUpdate(f), "end");
  RealCloseFile(&f, __FILE__, __LINE__);
  std::mt19937 rng(42);
  for (int i = 0; i < 1 << 16; ++i) g_probe_ids.push_back(MasterId(1 + rng() % kMasterRecords));
}

void BuildWalk() {
  const std::string dir = Dir("walk");
  std::filesystem::create_directories(dir);
  FileSpec spec = RowSpec(true);
  Check(ZORCreateFile(&spec, 0, (dir + "/JRNLROW.DAT").c_str()), "create walk file");
  BtrvFile* f = nullptr;
  Check(RealOpenBFile(&f, (dir + "/JRNLROW.DAT").c_str(), 0, 0, __FILE__, __LINE__), "open");
  Check(bBeginBatchUpdate(f), "begin");
  for (int chunk = 0; chunk < kWalkRows / kInsertRows; ++chunk) {
    std::vector<uint8_t> rows = MakeRows(kInsertRows, 1000 + static_cast<uint32_t>(chunk));
    for (int i = 0; i < kInsertRows; ++i) {
      Check(InsertRecord(f, kRowLen, &rows[static_cast<size_t>(i) * kRowLen]), "insert row");
    }
  }
  Check(bEndBatchUpdate(f), "end");
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (a) keyed equal reads ---------------------------------------------------------------

void BM_ReadDirect(benchmark::State& state) {
  sqlite3* db = OpenDirect(Dir("read"));
  const std::string t = TableOf(db, "customer.dat");
  sqlite3_stmt* s =
      Prepare(db, "SELECT pos, ver, data FROM " + t + " WHERE k0=?1 ORDER BY k0, pos LIMIT 1");
  uint8_t rec[kMasterLen];
  uint8_t key[21];
  size_t i = 0;
  for (auto _ : state) {
    const std::string& id = g_probe_ids[i++ & 0xFFFF];
    std::memset(key, 0, sizeof key);
    std::memcpy(key, id.data(), id.size());
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
  BtrvFile* f = nullptr;
  Check(RealOpenBFile(&f, (Dir("read") + "/CUSTOMER.DAT").c_str(), kOpenModeReadOnly, 3, __FILE__,
                      __LINE__),
        "open");
  uint8_t rec[kMasterLen];
  size_t i = 0;
  for (auto _ : state) {
    const std::string& id = g_probe_ids[i++ & 0xFFFF];
    std::memset(rec + 4, 0, 21);
    std::memcpy(rec + 4, id.data(), id.size());
    if (!GetFileEqual(f, 0, kMasterLen, rec, 0)) state.SkipWithError("not found");
    benchmark::DoNotOptimize(rec[0]);
  }
  state.SetItemsProcessed(state.iterations());
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (b) the walk ------------------------------------------------------------------------

void BM_WalkDirect(benchmark::State& state) {
  sqlite3* db = OpenDirect(Dir("walk"));
  const std::string t = TableOf(db, "jrnlrow.dat");
  sqlite3_stmt* s = Prepare(db, "SELECT pos, ver, data FROM " + t + " ORDER BY k0, pos");
  uint8_t rec[kRowLen];
  int64_t rows = 0;
  for (auto _ : state) {
    while (sqlite3_step(s) == SQLITE_ROW) {
      std::memcpy(rec, sqlite3_column_blob(s, 2), kRowLen);
      benchmark::DoNotOptimize(sqlite3_column_int64(s, 0));
      ++rows;
    }
    sqlite3_reset(s);
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  sqlite3_finalize(s);
  sqlite3_close_v2(db);
}

void BM_WalkRecordManager(benchmark::State& state) {
  BtrvFile* f = nullptr;
  Check(RealOpenBFile(&f, (Dir("walk") + "/JRNLROW.DAT").c_str(), kOpenModeReadOnly, 0, __FILE__,
                      __LINE__),
        "open");
  uint8_t rec[kRowLen];
  int64_t rows = 0;
  for (auto _ : state) {
    for (uint8_t ok = GetFileLowest(f, 0, kRowLen, rec, 2); ok;
         ok = GetFileNext(f, 0, kRowLen, rec, 2)) {
      ++rows;
    }
  }
  if (rows != state.iterations() * kWalkRows) state.SkipWithError("wrong row count");
  state.SetItemsProcessed(rows);
  RealCloseFile(&f, __FILE__, __LINE__);
}

// --- (c) inserts in one batch ------------------------------------------------------------

std::vector<uint8_t> g_insert_rows;

// Makes an empty row file with eight keys in dir (replacing the previous one).
void FreshRowFile(const std::string& dir) {
  std::filesystem::create_directories(dir);
  FileSpec spec = RowSpec(false);
  Check(ZORCreateFile(&spec, kCreateReplace, (dir + "/JRNLROW.DAT").c_str()), "create rows");
}

void BM_InsertDirect(benchmark::State& state) {
  const std::string dir = Dir("insert-direct");
  for (auto _ : state) {
    state.PauseTiming();
    FreshRowFile(dir);
    sqlite3* db = OpenDirect(dir);
    const std::string t = TableOf(db, "jrnlrow.dat");
    sqlite3_stmt* s = Prepare(
        db, "INSERT INTO " + t +
                "(ver, k0, k1, k2, k3, k4, k5, k6, k7, data) VALUES(1, ?1, ?2, ?3, ?4, ?5, ?6, "
                "?7, ?8, ?9)");
    state.ResumeTiming();
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    uint8_t keys[128];
    for (int i = 0; i < kInsertRows; ++i) {
      const uint8_t* r = &g_insert_rows[static_cast<size_t>(i) * kRowLen];
      uint8_t* k = keys;
      uint8_t* k0 = k;
      k = EncUns(k, r + kPost, 4);
      uint8_t* k1 = k;
      k = EncUns(k, r + kPost, 4);
      k = EncInt(k, r + kLine, 2);
      uint8_t* k2 = k;
      k = EncInt(k, r + kAccount, 4);
      k = EncUns(k, r + kDate, 4);
      k = EncUns(k, r + kPost, 4);
      uint8_t* k3 = k;
      k = EncInt(k, r + kItem, 4);
      k = EncUns(k, r + kDate, 4);
      uint8_t* k4 = k;
      k = EncInt(k, r + kJob, 4);
      k = EncZStr(k, r + kPhase, 21);
      uint8_t* k5 = k;
      k = EncUns(k, r + kLink, 4);
      k = EncUns(k, r + kDate, 4);
      uint8_t* k6 = k;
      k = EncInt(k, r + kJob, 4);
      k = EncZStr(k, r + kCost, 21);
      uint8_t* k7 = k;
      k = EncInt(k, r + kItem, 4);
      k = EncInt(k, r + kJrnl, 4);
      k = EncUns(k, r + kDate, 4);
      k = EncUns(k, r + kFlag, 1);
      uint8_t* bounds[] = {k0, k1, k2, k3, k4, k5, k6, k7, k};
      for (int j = 0; j < 8; ++j) {
        sqlite3_bind_blob(s, j + 1, bounds[j], static_cast<int>(bounds[j + 1] - bounds[j]),
                          SQLITE_STATIC);
      }
      sqlite3_bind_blob(s, 9, r, kRowLen, SQLITE_STATIC);
      if (sqlite3_step(s) != SQLITE_DONE) state.SkipWithError("insert");
      sqlite3_reset(s);
    }
    if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
      state.SkipWithError("commit");
    }
    state.PauseTiming();
    sqlite3_finalize(s);
    sqlite3_close_v2(db);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInsertRows);
}

void BM_InsertRecordManager(benchmark::State& state) {
  const std::string dir = Dir("insert-ours");
  for (auto _ : state) {
    state.PauseTiming();
    FreshRowFile(dir);
    BtrvFile* f = nullptr;
    Check(RealOpenBFile(&f, (dir + "/JRNLROW.DAT").c_str(), 0, 48, __FILE__, __LINE__), "open");
    state.ResumeTiming();
    Check(bBeginBatchUpdate(f), "begin");
    for (int i = 0; i < kInsertRows; ++i) {
      if (!InsertRecord(f, kRowLen, &g_insert_rows[static_cast<size_t>(i) * kRowLen])) {
        state.SkipWithError("insert");
      }
    }
    if (!bEndBatchUpdate(f)) state.SkipWithError("end batch");
    state.PauseTiming();
    RealCloseFile(&f, __FILE__, __LINE__);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kInsertRows);
}

// Keeps the best items/s of every benchmark (over repetitions) for the ratio lines.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      auto it = run.counters.find("items_per_second");
      if (it == run.counters.end()) continue;
      std::string name = run.run_name.function_name;
      best_[name] = std::max(best_[name], static_cast<double>(it->second));
    }
    ConsoleReporter::ReportRuns(runs);
  }
  // Ours / direct in time per operation.
  double Ratio(const std::string& direct, const std::string& ours) const {
    auto d = best_.find(direct);
    auto o = best_.find(ours);
    if (d == best_.end() || o == best_.end() || o->second <= 0) return -1;
    return d->second / o->second;
  }

 private:
  std::map<std::string, double> best_;
};

}  // namespace

BENCHMARK(BM_ReadDirect)->Repetitions(3)->MinTime(0.5)->UseRealTime();
BENCHMARK(BM_ReadRecordManager)->Repetitions(3)->MinTime(0.5)->UseRealTime();
BENCHMARK(BM_WalkDirect)
    ->Repetitions(3)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WalkRecordManager)
    ->Repetitions(3)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertDirect)
    ->Repetitions(3)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertRecordManager)
    ->Repetitions(3)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  char pattern[] = "/tmp/rm-bench-XXXXXX";
  Check(mkdtemp(pattern) != nullptr, "mkdtemp");
  g_root = pattern;
  BuildMaster();
  BuildWalk();
  g_insert_rows = MakeRows(kInsertRows, 7);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::filesystem::remove_all(g_root);
  std::printf("ratio read %.2f\n", reporter.Ratio("BM_ReadDirect", "BM_ReadRecordManager"));
  std::printf("ratio walk %.2f\n", reporter.Ratio("BM_WalkDirect", "BM_WalkRecordManager"));
  std::printf("ratio insert %.2f\n", reporter.Ratio("BM_InsertDirect", "BM_InsertRecordManager"));
  benchmark::Shutdown();
  return 0;
}
