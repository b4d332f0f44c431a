// What every benchmark program shares: its flags, with colour codes only on a terminal
// (Google Benchmark colours its console output whenever TERM allows, also into a pipe or
// a file).
#ifndef BASICS_BENCH_BENCH_SUPPORT_H_
#define BASICS_BENCH_BENCH_SUPPORT_H_

#include <unistd.h>

#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

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

#endif  // BASICS_BENCH_BENCH_SUPPORT_H_
