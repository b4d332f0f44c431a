// What every benchmark program shares: its flags, with colour codes only on a terminal
// (Google Benchmark colours its console output whenever TERM allows, also into a pipe or
// a file); the run's temporary directory and failure exit; and, for the programs that
// measure the record manager against SQLite used directly, the direct side's connection,
// statements and key bytes, and the reporter that keeps each benchmark's best rate.
#ifndef BASICS_BENCH_BENCH_SUPPORT_H_
#define BASICS_BENCH_BENCH_SUPPORT_H_

#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "record_manager.h"

// Initialises the library with argv, adding --benchmark_color=false when standard output
// is not a terminal and the caller chose no colour setting of its own.
inline void InitializeBenchmarks(int* argc, char** argv) {
  static std::vector<char*> args;
  static char no_colour[] = "--benchmark_color=false";
  args.assign(argv, argv + *argc);
  bool chosen = false;
  for (char* arg : args) chosen = chosen || std::strncmp(arg, "--benchmark_color", 17) == 0;
  if (!chosen && isatty(STDOUT_FILENO) == 0) args.push_back(no_colour);
  int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&count, args.data());
  *argc = count;
}

// The output options of a console reporter made by the program itself (the library's
// colour flag reaches only the reporter it makes): colour on a terminal only.
inline benchmark::ConsoleReporter::OutputOptions ConsoleOptions() {
  return isatty(STDOUT_FILENO) != 0 ? benchmark::ConsoleReporter::OO_Defaults
                                    : benchmark::ConsoleReporter::OO_Tabular;
}

// One pass per repetition, for benchmarks whose files grow or are rebuilt with every pass.
inline void OnePass(benchmark::internal::Benchmark* b) {
  b->Repetitions(3)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}

// --- The run ------------------------------------------------------------------------------

struct BenchRun {
  const char* name = "bench";          // the program, in failure messages
  std::string root;                    // the run's temporary directory
  void (*before_removal)() = nullptr;  // closes what still holds files under root
};
inline BenchRun g_run;

// Closes what the program left open and removes the run's directory (from "/", as the
// program may have made a directory under it its working directory). Safe to call twice.
inline void EndRun() {
  if (g_run.before_removal != nullptr) g_run.before_removal();
  if (g_run.root.empty()) return;
  if (chdir("/") != 0) std::perror("chdir");
  std::error_code ignored;
  std::filesystem::remove_all(g_run.root, ignored);
  g_run.root.clear();
}

// Does nothing when ok; otherwise reports what failed with the record manager's last
// status, ends the run and exits with 1.
inline void Check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "%s: %s failed (status %u)\n", g_run.name, what, GetErrorCode(nullptr));
  EndRun();
  std::exit(1);
}

// Makes the run's temporary directory /tmp/<name>-XXXXXX (exits when it cannot).
inline void StartRun(const char* name, void (*before_removal)() = nullptr) {
  g_run.name = name;
  g_run.before_removal = before_removal;
  std::string pattern = std::string("/tmp/") + name + "-XXXXXX";
  Check(mkdtemp(pattern.data()) != nullptr, "mkdtemp");
  g_run.root = pattern;
}

// --- SQLite used directly, on the tables the record manager made ---------------------------

// A connection to dir/records.db set up as the record manager sets up its own: WAL, full
// sync, a 32 MB cache. Exits on failure; the caller closes it with sqlite3_close_v2.
inline sqlite3* OpenDirect(const std::string& dir) {
  sqlite3* db = nullptr;
  const char* pragmas =
      "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768";
  Check(sqlite3_open_v2((dir + "/records.db").c_str(), &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK &&
            sqlite3_exec(db, pragmas, nullptr, nullptr, nullptr) == SQLITE_OK,
        "opening SQLite");
  sqlite3_busy_timeout(db, 5000);
  return db;
}

// A persistent statement from sql, "$T" in it standing for the table of data file base
// (looked up in the _files catalogue, any case). Exits on failure; the caller finalizes it.
inline sqlite3_stmt* Prepare(sqlite3* db, const char* base, std::string sql) {
  sqlite3_stmt* s = nullptr;
  if (const size_t at = sql.find("$T"); at != std::string::npos) {
    sqlite3_prepare_v2(db, "SELECT id FROM _files WHERE name=?1 COLLATE NOCASE", -1, &s, nullptr);
    sqlite3_bind_text(s, 1, base, -1, SQLITE_STATIC);
    Check(sqlite3_step(s) == SQLITE_ROW, "catalogue look-up");
    sql.replace(at, 2, "f" + std::to_string(sqlite3_column_int64(s, 0)));
    sqlite3_finalize(s);
  }
  Check(
      sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr) == SQLITE_OK,
      sql.c_str());
  return s;
}

// "INSERT INTO $T(ver, k0, ... data) VALUES(1, ?1, ...)": key k is parameter k + 1, the
// record parameter keys + 1.
inline std::string InsertSql(size_t keys) {
  std::string sql = "INSERT INTO $T(ver", values = "VALUES(1";
  for (size_t i = 0; i < keys; ++i) {
    sql += ", k" + std::to_string(i);
    values += ", ?" + std::to_string(i + 1);
  }
  return sql + ", data) " + values + ", ?" + std::to_string(keys + 1) + ")";
}

// A key segment: the key (column) it belongs to, the field's offset and length, its
// extended type. A file's segments are listed key after key, in column order.
struct KeySeg {
  int key;
  size_t off;
  uint16_t len;
  uint8_t type;
  bool descending = false;
};

// The number of keys (columns) of segs, and the bytes all of them take.
inline size_t KeyCount(std::span<const KeySeg> segs) {
  return segs.empty() ? 0 : static_cast<size_t>(segs.back().key) + 1;
}
inline size_t KeyBytes(std::span<const KeySeg> segs) {
  size_t total = 0;
  for (const KeySeg& s : segs) total += s.len;
  return total;
}

// Key bytes as the store orders them: integers big-endian with the sign bit flipped,
// unsigned numbers and dates (year, month, day) big-endian, zero-terminated text padded
// with zeros, other text as it is; descending segments inverted. Answers the end.
inline uint8_t* EncodeKey(uint8_t* out, const uint8_t* rec, const KeySeg& s) {
  const uint8_t* src = rec + s.off;
  if (s.type == kExtString) {
    std::memcpy(out, src, s.len);
  } else if (s.type == kExtZString) {
    const size_t n = strnlen(reinterpret_cast<const char*>(src), s.len);
    std::memcpy(out, src, n);
    std::memset(out + n, 0, s.len - n);
  } else {
    for (size_t i = 0; i < s.len; ++i) out[i] = src[s.len - 1 - i];
    if (s.type == kExtInteger || s.type == kExtAutoIncrement) out[0] ^= 0x80;
  }
  if (s.descending)
    for (size_t i = 0; i < s.len; ++i) out[i] = static_cast<uint8_t>(~out[i]);
  return out + s.len;
}

// Encodes every key of rec into buf (room for the sum of the segment lengths) and calls
// use(column, bytes, size) for each key in turn.
template <typename Use>
void ForEachKey(std::span<const KeySeg> segs, const void* rec, uint8_t* buf, Use&& use) {
  const auto* r = static_cast<const uint8_t*>(rec);
  uint8_t* start = buf;
  for (size_t i = 0; i < segs.size(); ++i) {
    buf = EncodeKey(buf, r, segs[i]);
    if (i + 1 == segs.size() || segs[i + 1].key != segs[i].key) {
      use(segs[i].key, start, static_cast<size_t>(buf - start));
      start = buf;
    }
  }
}

// Binds every key of rec to its parameter of an InsertSql statement (buf as for ForEachKey,
// and kept until the statement has run).
inline void BindKeys(sqlite3_stmt* s, std::span<const KeySeg> segs, const void* rec, uint8_t* buf) {
  ForEachKey(segs, rec, buf, [s](int key, const uint8_t* bytes, size_t size) {
    sqlite3_bind_blob(s, key + 1, bytes, static_cast<int>(size), SQLITE_STATIC);
  });
}

// The segments of a file's creation description, keys numbered by their place in it.
// Exits on a segment type the encoding does not cover (floats, case-blind text).
inline std::vector<KeySeg> KeySegments(const FileSpec& spec) {
  std::vector<KeySeg> out;
  int key = 0;
  for (int i = 0; i < spec.numberOfSegments; ++i) {
    const KeySegmentSpec& s = spec.segments[i];
    const uint8_t type = (s.flags & kKeyExtendedType) ? s.extendedType
                         : (s.flags & kKeyBinary)     ? uint8_t{kExtUnsignedBinary}
                                                      : uint8_t{kExtString};
    Check(type != kExtFloat && (s.flags & kKeyNoCase) == 0, "a key type the bench encodes");
    out.push_back({key, static_cast<size_t>(s.position - 1), s.length, type,
                   (s.flags & kKeyDescending) != 0});
    if ((s.flags & kKeySegmented) == 0) ++key;
  }
  return out;
}

// --- Results ------------------------------------------------------------------------------

// A console reporter that also keeps the best items/s of every benchmark (over repetitions).
// Keeps each benchmark's time per iteration and items/s (the mean over repetitions, or the
// one run), by its full name ("BM_GetSaleCost/real_time/threads:4").
class MeanReporter : public benchmark::ConsoleReporter {
 public:
  MeanReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred ||
          (run.run_type != Run::RT_Iteration && run.aggregate_name != "mean")) {
        continue;
      }
      const std::string name = run.run_name.str();
      times[name] = run.GetAdjustedRealTime();
      auto rate = run.counters.find("items_per_second");
      if (rate != run.counters.end()) rates[name] = rate->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
  std::map<std::string, double> rates;
};

struct RatioReporter : benchmark::ConsoleReporter {
  RatioReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      auto it = run.counters.find("items_per_second");
      if (run.run_type != Run::RT_Iteration || run.error_occurred || it == run.counters.end())
        continue;
      double& best = best_[run.run_name.function_name];
      best = std::max(best, static_cast<double>(it->second));
    }
    ConsoleReporter::ReportRuns(runs);
  }
  // The best items/s of benchmark name, 0 when it did not run.
  double Best(const std::string& name) const {
    auto it = best_.find(name);
    return it == best_.end() ? 0 : it->second;
  }
  // a's best time per item over b's; -1 when either did not run.
  double TimeRatio(const std::string& a, const std::string& b) const {
    return Best(a) > 0 && Best(b) > 0 ? Best(b) / Best(a) : -1.0;
  }

 private:
  std::map<std::string, double> best_;
};

#endif  // BASICS_BENCH_BENCH_SUPPORT_H_
