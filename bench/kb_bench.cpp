// KB files against NET files: loading compiled munin1 and link from a KB
// file, against parsing their NET file and compiling it, with the file sizes
// as counters. Run with --benchmark_repetitions=N to get medians.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "orvel.h"

namespace {

std::string net_path(const char *name) { return std::string(ORVEL_NETWORKS "/") + name + ".net"; }

// The network compiled and saved as a KB file next to the other temporary
// files; the path.
std::string kb_file(const char *name) {
  const std::string path = (std::filesystem::temp_directory_path() / (std::string(name) + "_bench.kb")).string();
  ov_domain_t d = ov_net_parse_domain(net_path(name).c_str(), nullptr, nullptr);
  if (d == nullptr || ov_domain_compile(d) != ov_error_none || ov_domain_save_as_kb(d, path.c_str(), nullptr) != 0)
    std::abort();
  ov_domain_delete(d);
  return path;
}

void BM_NetParseAndCompile(benchmark::State &state, const char *name) {
  const std::string path = net_path(name);
  for (auto _ : state) {
    ov_domain_t d = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
    if (d == nullptr || ov_domain_compile(d) != ov_error_none) state.SkipWithError("compile failed");
    ov_domain_delete(d);
  }
  state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
}

void BM_KbLoadCompiled(benchmark::State &state, const char *name) {
  const std::string path = kb_file(name);
  for (auto _ : state) {
    ov_domain_t d = ov_load_domain(path.c_str());
    if (d == nullptr || ov_domain_is_compiled(d) != 1) state.SkipWithError("load failed");
    ov_domain_delete(d);
  }
  state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
  std::remove(path.c_str());
}

BENCHMARK_CAPTURE(BM_NetParseAndCompile, munin1, "munin1")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_KbLoadCompiled, munin1, "munin1")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NetParseAndCompile, link, "link")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_KbLoadCompiled, link, "link")->Unit(benchmark::kMillisecond);

} // namespace
