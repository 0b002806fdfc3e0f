// Reading the exchange formats against reading NET: each network is written
// once by our BIF, XMLBIF and UAI writers to a temporary file, then read
// over and over; the rate is bytes of each file per second, and the time
// per read compares the readers on the same network.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "orvel.h"

namespace {

using Save = ov_status_t (*)(ov_domain_t, ov_string_t);
using Parse = ov_domain_t (*)(ov_string_t, ov_parse_error_handler_t, void *);

// The network in the format of `extension`, written once per process.
std::string written(const char *name, const char *extension, Save save) {
  const std::string net = std::string(ORVEL_NETWORKS "/") + name + ".net";
  if (save == nullptr) return net;
  const std::string path =
      (std::filesystem::temp_directory_path() / (std::string("orvel_bench_") + name + "." + extension)).string();
  if (!std::filesystem::exists(path)) {
    ov_domain_t domain = ov_net_parse_domain(net.c_str(), nullptr, nullptr);
    if (domain == nullptr || save(domain, path.c_str()) != ov_error_none) return "";
    ov_domain_delete(domain);
  }
  return path;
}

void BM_Read(benchmark::State &state, const char *name, const char *extension, Save save, Parse parse) {
  const std::string path = written(name, extension, save);
  if (path.empty()) {
    state.SkipWithError("writing failed");
    return;
  }
  for (auto _ : state) {
    ov_domain_t domain = parse(path.c_str(), nullptr, nullptr);
    if (domain == nullptr) {
      state.SkipWithError("reading failed");
      break;
    }
    ov_domain_delete(domain);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(path)));
}

#define EXCHANGE_BENCH(network)                                                                                        \
  BENCHMARK_CAPTURE(BM_Read, network##_net, #network, "net", nullptr, ov_net_parse_domain)                             \
      ->Unit(benchmark::kMillisecond);                                                                                 \
  BENCHMARK_CAPTURE(BM_Read, network##_bif, #network, "bif", ov_domain_save_as_bif, ov_bif_parse_domain)               \
      ->Unit(benchmark::kMillisecond);                                                                                 \
  BENCHMARK_CAPTURE(BM_Read, network##_xmlbif, #network, "xml", ov_domain_save_as_xmlbif, ov_xmlbif_parse_domain)      \
      ->Unit(benchmark::kMillisecond);                                                                                 \
  BENCHMARK_CAPTURE(BM_Read, network##_uai, #network, "uai", ov_domain_save_as_uai, ov_uai_parse_domain)               \
      ->Unit(benchmark::kMillisecond)

EXCHANGE_BENCH(munin1);
EXCHANGE_BENCH(mildew);

} // namespace
