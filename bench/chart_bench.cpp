// Chart lookups on a 2,000-account chart: GetAccountInfo by ID and by record number with
// random keys, against the same keyed read made straight through the record manager. Ends
// with "ratio lookup X.XX" (library time per lookup over the record manager's).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Basics.h"

namespace {

constexpr int kAccounts = 2000;

std::string g_dir;
std::vector<FixedString<16>> g_ids;
std::vector<int32_t> g_numbers;

// A small, fixed pseudo-random sequence: every run reads the same keys.
struct Xorshift {
  uint32_t state = 2463534242u;
  uint32_t Next() {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
  }
};

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
  Xorshift random;
  for (int i = 0; ok && i < kAccounts; ++i) {
    AccountType account;
    std::memset(&account, 0, sizeof(account));
    char id[16];
    std::snprintf(id, sizeof(id), "%04u-%04d", random.Next() % 10000, i);
    account.ID = id;
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

void RemoveCompany() {
  CloseInternalChartFile();
  if (chdir("/") != 0) return;
  std::error_code ignored;
  if (!g_dir.empty()) std::filesystem::remove_all(g_dir, ignored);
}

void BM_GetAccountInfoByID(benchmark::State& state) {
  Xorshift random;
  AccountType account;
  for (auto _ : state) {
    bool found = GetAccountInfo(g_ids[random.Next() % g_ids.size()], &account);
    benchmark::DoNotOptimize(found);
    if (!found) state.SkipWithError("account not found");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetAccountInfoByID);

void BM_GetAccountInfoByRecordNumber(benchmark::State& state) {
  Xorshift random;
  AccountType account;
  for (auto _ : state) {
    bool found = GetAccountInfo(g_numbers[random.Next() % g_numbers.size()], &account);
    benchmark::DoNotOptimize(found);
    if (!found) state.SkipWithError("account not found");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetAccountInfoByRecordNumber);

// The reference: the same read by ID made directly on a read-only handle.
void BM_RecordManagerEqualByID(benchmark::State& state) {
  BtrvFile* chart = nullptr;
  if (!OpenChartFile(&chart, kOpenModeReadOnly)) {
    state.SkipWithError("chart not opened");
    return;
  }
  Xorshift random;
  AccountType account;
  for (auto _ : state) {
    std::memset(&account, 0, sizeof(account));
    account.ID = g_ids[random.Next() % g_ids.size()];
    bool found = GetFileEqual(chart, kLockBiasNone, sizeof(account), &account, kChartKeyID);
    benchmark::DoNotOptimize(found);
    if (!found) state.SkipWithError("account not found");
  }
  state.SetItemsProcessed(state.iterations());
  RealCloseFile(&chart, __FILE__, __LINE__);
}
BENCHMARK(BM_RecordManagerEqualByID);

// Keeps the time per iteration of every run so that main can print the ratio.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    // With repetitions the mean stands for the benchmark; single runs stand for themselves.
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "mean") {
        times_[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Time(const std::string& name) const {
    auto it = times_.find(name);
    return it == times_.end() ? 0.0 : it->second;
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (!BuildCompany()) {
    std::fprintf(stderr, "could not build the sample company\n");
    RemoveCompany();
    return 1;
  }
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const double library = reporter.Time("BM_GetAccountInfoByID");
  const double reference = reporter.Time("BM_RecordManagerEqualByID");
  if (library > 0 && reference > 0) std::printf("ratio lookup %.2f\n", library / reference);
  RemoveCompany();
  benchmark::Shutdown();
  return 0;
}
