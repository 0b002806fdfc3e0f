// Parsing speed of NET files against the time of reading the same bytes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

std::string network(const char *file) { return std::string(ORVEL_NETWORKS "/") + file; }

long file_size(const std::string &path) {
  std::FILE *f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return 0;
  std::fseek(f, 0, SEEK_END);
  long size = std::ftell(f);
  std::fclose(f);
  return size;
}

void BM_NetParse(benchmark::State &state, const char *file) {
  const std::string path = network(file);
  for (auto _ : state) {
    ov_domain_t domain = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
    if (domain == nullptr) {
      state.SkipWithError("parse failed");
      break;
    }
    ov_domain_delete(domain);
  }
  state.SetBytesProcessed(state.iterations() * file_size(path));
}

// The floor: reading the file byte by byte through the C stream, as a
// simple word count would.
void BM_ReadBytes(benchmark::State &state, const char *file) {
  const std::string path = network(file);
  for (auto _ : state) {
    std::FILE *f = std::fopen(path.c_str(), "r");
    long words = 0;
    bool in_word = false;
    for (int c; (c = std::getc(f)) != EOF;) {
      bool space = c == ' ' || c == '\n' || c == '\t';
      words += !space && !in_word;
      in_word = !space;
    }
    std::fclose(f);
    benchmark::DoNotOptimize(words);
  }
  state.SetBytesProcessed(state.iterations() * file_size(path));
}

BENCHMARK_CAPTURE(BM_NetParse, barley, "barley.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NetParse, mildew, "mildew.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NetParse, link, "link.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadBytes, barley, "barley.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadBytes, mildew, "mildew.net")->Unit(benchmark::kMillisecond);

} // namespace
