// The settings hot paths: WhichGLperiod on a date in the current period (answered from
// Current) and on a date of the history year (the open years are searched first), and a
// cached mode-0 GetGeneralDataPtr, which must make no store call at all. The reference is
// the same read with the cache cleared each time, so that every read goes to the store.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "General.h"
#include "OpenDat.h"
#include "file_creation.h"
#include "record_manager.h"
#include "utility.h"

namespace {

uint64_t g_cached_read_store_calls = 0;

// A new company's current period is 15 (January 1997); June 1996 lies in the history year.
void BM_WhichGLperiod(benchmark::State& state, int month, int day, int year, int period) {
  DatesType date;
  MakeDate(month, day, year, date);
  for (auto _ : state) benchmark::DoNotOptimize(WhichGLperiod(date));
  if (WhichGLperiod(date) != period) state.SkipWithError("wrong period");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_WhichGLperiod, CurrentPeriod, 1, 15, 1997, 15);
BENCHMARK_CAPTURE(BM_WhichGLperiod, HistoryYear, 6, 15, 1996, 1);

// cached: mode 0 on a record already read; else the cache is cleared before every read.
void BM_SettingsRead(benchmark::State& state, bool cached) {
  GeneralDataType* rec = nullptr;
  GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false);  // fill the slot
  uint64_t before = StoreCallCount();
  for (auto _ : state) {
    if (!cached) ClearGeneralCache();
    benchmark::DoNotOptimize(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false));
  }
  uint64_t calls = StoreCallCount() - before;
  if (cached) g_cached_read_store_calls += calls;
  state.counters["store_calls"] = static_cast<double>(calls);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_SettingsRead, Cached, true);
BENCHMARK_CAPTURE(BM_SettingsRead, UncachedReference, false);

}  // namespace

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  std::string pattern = (std::filesystem::temp_directory_path() / "general-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr || chdir(pattern.c_str()) != 0) {
    std::fprintf(stderr, "cannot make a temporary company directory\n");
    return 1;
  }
  int result = 0;
  g_szCompanyPath = pattern.c_str();
  if (CreateNewCompany(pattern.c_str()) != 1 || InitGeneralFile() != 1) {
    std::fprintf(stderr, "cannot create the company\n");
    result = 1;
  } else {
    benchmark::RunSpecifiedBenchmarks();
    std::printf("cached settings read store calls %llu\n",
                static_cast<unsigned long long>(g_cached_read_store_calls));
  }
  CloseGeneralFile();
  DeallocGeneralRecReadPtr();
  benchmark::Shutdown();
  if (chdir("/") != 0) result = 1;
  std::error_code ignored;
  std::filesystem::remove_all(pattern, ignored);
  return result;
}
