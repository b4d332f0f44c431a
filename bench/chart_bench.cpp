// Chart lookups on a 2,000-account chart: GetAccountInfo by ID and by record number with
// random keys, against the same keyed read made straight through the record manager. Ends
// with "ratio lookup X.XX" (library time per lookup over the record manager's).
#include <unistd.h>

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

constexpr int kAccounts = 2000;

std::string g_dir;
std::vector<FixedString<16>> g_ids;
std::vector<int32_t> g_numbers;

bool BuildCompany() {
  char pattern[] = "/tmp/chart_bench_XXXXXX";
  if (mkdtemp(pattern) == nullptr) return false;
  g_dir = pattern;
  if (chdir(g_dir.c_str()) != 0) return false;
  ResetStandardFileNames();
  if (!CreateNewCompany(g_dir.c_str())) return false;
  g_szCompanyPath = g_dir.c_str();

  BtrvFile* chart = nullptr;
  if (!OpenChartFile(&chart, kOpenModeNormal)) return false;
  bool ok = bBeginBatchUpdate(chart) == 1;
  std::minstd_rand random;  // the same chart on every run
  for (int i = 0; ok && i < kAccounts; ++i) {
    AccountType account;
    std::memset(&account, 0, sizeof(account));
    std::snprintf(account.ID.s, sizeof(account.ID), "%04u-%04d",
                  static_cast<unsigned>(random() % 10000), i);
    account.Type = static_cast<int16_t>(i % 25);
    std::snprintf(account.Description.s, sizeof(account.Description), "Account %d", i);
    AssignGUID(account.Guid);
    for (int p = 0; p < 42; ++p) account.Periods[p].Net = i + p;
    ok = InsertRecord(chart, sizeof(account), &account) != 0;
    g_ids.push_back(account.ID);
    g_numbers.push_back(account.RecordNumber);
  }
  ok = bEndBatchUpdate(chart) == 1 && ok;
  RealCloseFile(&chart, __FILE__, __LINE__);
  return ok;
}

// by_number: GetAccountInfo by record number, else by ID; the same random keys every run.
void BM_GetAccountInfo(benchmark::State& state, bool by_number) {
  std::minstd_rand random;
  AccountType account;
  for (auto _ : state) {
    size_t i = random() % kAccounts;
    bool found =
        by_number ? GetAccountInfo(g_numbers[i], &account) : GetAccountInfo(g_ids[i], &account);
    benchmark::DoNotOptimize(found);
    if (!found) state.SkipWithError("account not found");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_GetAccountInfo, ByID, false);
BENCHMARK_CAPTURE(BM_GetAccountInfo, ByRecordNumber, true);

// The reference: the same read by ID made directly on a read-only handle.
void BM_RecordManagerEqualByID(benchmark::State& state) {
  BtrvFile* chart = nullptr;
  if (!OpenChartFile(&chart, kOpenModeReadOnly)) return state.SkipWithError("chart not opened");
  std::minstd_rand random;
  AccountType account;
  for (auto _ : state) {
    std::memset(&account, 0, sizeof(account));
    account.ID = g_ids[random() % kAccounts];
    bool found = GetFileEqual(chart, kLockBiasNone, sizeof(account), &account, kChartKeyID);
    benchmark::DoNotOptimize(found);
    if (!found) state.SkipWithError("account not found");
  }
  state.SetItemsProcessed(state.iterations());
  RealCloseFile(&chart, __FILE__, __LINE__);
}
BENCHMARK(BM_RecordManagerEqualByID);

}  // namespace

int main(int argc, char** argv) {
  InitializeBenchmarks(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  int result = 0;
  if (!BuildCompany()) {
    std::fprintf(stderr, "could not build the sample company\n");
    result = 1;
  } else {
    MeanReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double library = reporter.times["BM_GetAccountInfo/ByID"];
    const double reference = reporter.times["BM_RecordManagerEqualByID"];
    if (library > 0 && reference > 0) std::printf("ratio lookup %.2f\n", library / reference);
  }
  CloseInternalChartFile();
  benchmark::Shutdown();
  std::error_code ignored;
  if (chdir("/") == 0 && !g_dir.empty()) std::filesystem::remove_all(g_dir, ignored);
  return result;
}
