// Cost queries on a 100,000-tag file: GetSaleCost with random distributions from one thread
// and from four at once (each through its own tag handle), against the same equal read made
// straight through the record manager. Ends with "cost queries per second N" (one thread),
// the four-thread rate, and "ratio cost query X.XX" (library time per query over the
// record manager's).
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
#include "InvTagDcl.h"

namespace {

constexpr uint32_t kTransactions = 25000;  // four distributions each: 100,000 tags
constexpr int16_t kDistributions = 4;

std::string g_dir;

bool BuildCompany() {
  char pattern[] = "/tmp/invtag_bench_XXXXXX";
  if (mkdtemp(pattern) == nullptr) return false;
  g_dir = pattern;
  if (chdir(g_dir.c_str()) != 0) return false;
  ResetStandardFileNames();
  if (!CreateNewCompany(g_dir.c_str())) return false;
  g_szCompanyPath = g_dir.c_str();

  BtrvFile* tags = nullptr;
  if (!RealOpenBFileOwner(&tags, InvTagName, kOpenModeNormal, kFileNoInvTag, csTheOwner.c_str(),
                          __FILE__, __LINE__)) {
    return false;
  }
  bool ok = bBeginBatchUpdate(tags) == 1;
  std::minstd_rand random;  // the same file on every run
  for (uint32_t post = 1; ok && post <= kTransactions; ++post) {
    for (int16_t index = 0; ok && index < kDistributions; ++index) {
      InvTagRec rec;
      std::memset(&rec, 0, sizeof rec);
      rec.ItemRecordNumber = static_cast<int32_t>(random() % 500 + 1);
      rec.Date = DatesType{static_cast<uint8_t>(random() % 28 + 1),
                           static_cast<uint8_t>(random() % 12 + 1), 2024};
      rec.DistIndex = index;
      rec.TagType = index == 3 ? kInvTagAssemblyCost : kInvTagSaleCost2;
      rec.PostOrder = post;
      rec.Cost = static_cast<double>(random() % 100000) / 100;
      ok = InsertRecord(tags, sizeof rec, &rec) != 0;
    }
  }
  ok = bEndBatchUpdate(tags) == 1 && ok;
  RealCloseFile(&tags, __FILE__, __LINE__);
  // The shared costing and price-item handles are opened once, before any worker asks.
  return ok && OpenInternalInvTagFile() != 0;
}

void BM_GetSaleCost(benchmark::State& state) {
  std::minstd_rand random(static_cast<unsigned>(state.thread_index()) + 1);
  for (auto _ : state) {
    const auto post = static_cast<uint32_t>(random() % kTransactions + 1);
    const auto index = static_cast<int16_t>(random() % 3);
    const double cost = GetSaleCost(post, index);
    benchmark::DoNotOptimize(cost);
  }
  state.SetItemsProcessed(state.iterations());
  if (GetInternalInvTagFile() == nullptr) state.SkipWithError("tag file not open");
  // Thread 0 is the main thread, whose handle stays; a worker closes its own.
  if (state.thread_index() != 0) RealCloseFile(&GetInternalInvTagFile(), __FILE__, __LINE__);
}
BENCHMARK(BM_GetSaleCost);
BENCHMARK(BM_GetSaleCost)->Threads(4)->UseRealTime();

// The reference: the same equal read on key 1 made directly on a handle of its own.
void BM_RecordManagerEqual(benchmark::State& state) {
  BtrvFile* tags = nullptr;
  if (!RealOpenBFileOwner(&tags, InvTagName, kOpenModeNormal, kFileNoInvTag, csTheOwner.c_str(),
                          __FILE__, __LINE__)) {
    return state.SkipWithError("tag file not opened");
  }
  std::minstd_rand random(1);
  InvTagRec rec;
  for (auto _ : state) {
    std::memset(&rec, 0, sizeof rec);
    rec.PostOrder = static_cast<uint32_t>(random() % kTransactions + 1);
    rec.DistIndex = static_cast<int16_t>(random() % 3);
    const bool found = GetFileEqual(tags, kLockBiasNone, sizeof rec, &rec, kInvTagKeyPostOrder);
    benchmark::DoNotOptimize(found);
    if (!found) state.SkipWithError("tag not found");
  }
  state.SetItemsProcessed(state.iterations());
  RealCloseFile(&tags, __FILE__, __LINE__);
}
BENCHMARK(BM_RecordManagerEqual);

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
    const double one = reporter.rates["BM_GetSaleCost"];
    const double four = reporter.rates["BM_GetSaleCost/real_time/threads:4"];
    if (one > 0) std::printf("cost queries per second %.0f\n", one);
    if (four > 0) std::printf("cost queries per second, four threads %.0f\n", four);
    const double library = reporter.times["BM_GetSaleCost"];
    const double reference = reporter.times["BM_RecordManagerEqual"];
    if (library > 0 && reference > 0) std::printf("ratio cost query %.2f\n", library / reference);
  }
  CloseInternalInvTagFile();
  benchmark::Shutdown();
  std::error_code ignored;
  if (chdir("/") == 0 && !g_dir.empty()) std::filesystem::remove_all(g_dir, ignored);
  return result;
}
