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

#include "General.h"
#include "OpenDat.h"
#include "file_creation.h"
#include "record_manager.h"
#include "utility.h"

namespace {

uint64_t g_cached_read_store_calls = 0;

DatesType D(int month, int day, int year) {
  DatesType d;
  MakeDate(month, day, year, d);
  return d;
}

void BM_WhichGLperiodCurrentPeriod(benchmark::State& state) {
  DatesType date = D(1, 15, 1997);  // period 15, the current period of a new company
  for (auto _ : state) benchmark::DoNotOptimize(WhichGLperiod(date));
  if (WhichGLperiod(date) != 15) state.SkipWithError("wrong period");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WhichGLperiodCurrentPeriod);

void BM_WhichGLperiodHistoryYear(benchmark::State& state) {
  // June 1996 lies in the history year; both open years are searched before it.
  DatesType date = D(6, 15, 1996);
  for (auto _ : state) benchmark::DoNotOptimize(WhichGLperiod(date));
  if (WhichGLperiod(date) != 1) state.SkipWithError("wrong period");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WhichGLperiodHistoryYear);

void BM_CachedSettingsRead(benchmark::State& state) {
  GeneralDataType* rec = nullptr;
  GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false);  // fill the slot
  uint64_t before = StoreCallCount();
  for (auto _ : state) {
    benchmark::DoNotOptimize(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false));
  }
  uint64_t calls = StoreCallCount() - before;
  g_cached_read_store_calls += calls;
  state.counters["store_calls"] = static_cast<double>(calls);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CachedSettingsRead);

void BM_UncachedSettingsReadReference(benchmark::State& state) {
  GeneralDataType* rec = nullptr;
  for (auto _ : state) {
    ClearGeneralCache();
    benchmark::DoNotOptimize(GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_UncachedSettingsReadReference);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
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
