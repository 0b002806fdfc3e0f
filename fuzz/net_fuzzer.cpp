// Fuzz target: the NET parser over strings and streams, in both grammars,
// and what a parsed network goes through next: writing and reading back,
// compiling and propagating.
//
// The first byte chooses the source: even for a string, odd for a stream.
// Besides the sanitizers, the target aborts on success with an error
// recorded, on failure with none, on a message longer than its buffer, on a
// domain whose node count disagrees with its list, on a written network
// that does not read back with as many nodes (a network that the text cannot
// carry must be refused with format), and on beliefs of a compiled network that are not a
// distribution.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "io/scanner.h"
#include "model/domain.h"
#include "orvel.h"

namespace {

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

void handler(std::uint32_t, ov_string_t message) {
  check(message != nullptr && std::strlen(message) < orvel::message_capacity, "bad message");
}

// The network written as text reads back with the same number of nodes. A
// network the text form cannot carry (a number that is not finite, say) is
// refused by the writer with format, and only with format.
void round_trip(ov_domain_t domain, std::uint32_t count) {
  char *buffer = nullptr;
  std::size_t size = 0;
  std::FILE *stream = open_memstream(&buffer, &size);
  if (stream == nullptr) return;
  const ov_status_t written = ov_domain_write_net(domain, stream);
  std::fclose(stream);
  check(written == ov_error_none || ov_error_code() == ov_error_format,
        "the writer fails with another code than format");
  if (written == ov_error_none) {
    ov_domain_t again = ov_net_parse_from_string(buffer, nullptr);
    check(again != nullptr, "a written network does not read back");
    std::uint32_t again_count = 0;
    for (ov_node_t n = ov_domain_get_first_node(again); n != nullptr; n = ov_node_get_next(n)) ++again_count;
    check(again_count == count, "a written network reads back with another node count");
    ov_domain_delete(again);
  }
  std::free(buffer);
}

// Compiles when the junction forest stays small, and checks that every
// discrete chance node's beliefs form a distribution.
void compile_and_propagate(ov_domain_t domain) {
  if (ov_domain_get_first_node(domain) == nullptr) return;
  if (ov_domain_compile_qualitatively(domain, nullptr) != ov_error_none) return;
  const ov_count_t cost = ov_domain_get_jt_cost(domain);
  if (cost < 0 || cost > (1 << 16)) return;
  if (ov_domain_compile_quantitatively(domain, nullptr) != ov_error_none) return;
  check(ov_domain_is_compiled(domain) == 1, "compiled without the state");
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) {
    if (ov_node_get_category(n) != ov_category_chance || ov_node_get_kind(n) != ov_kind_discrete) continue;
    double sum = 0.0;
    for (ov_index_t s = 0; s < ov_node_get_number_of_states(n); ++s) {
      const double belief = ov_node_get_belief(n, s);
      check(belief >= 0.0 && belief <= 1.0 + 1e-5, "a belief outside [0, 1]");
      sum += belief;
    }
    check(sum > 1.0 - 1e-3 && sum < 1.0 + 1e-3, "beliefs that do not sum to one");
  }
}

void examine(ov_domain_t domain) {
  if (domain == nullptr) {
    check(ov_error_code() != ov_error_none, "failure without a code");
    return;
  }
  check(ov_error_code() == ov_error_none, "success with a code");
  std::uint32_t count = 0;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) {
    ++count;
    check(ov_node_get_name(n) != nullptr, "unnamed node");
  }
  check(count == domain->node_count(), "node list and count disagree");
  round_trip(domain, count);
  compile_and_propagate(domain);
  ov_domain_delete(domain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  if ((data[0] & 1u) == 0) {
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    examine(ov_net_parse_from_string(text.c_str(), handler));
    return 0;
  }
  if (size == 1) return 0;
  std::FILE *file = fmemopen(const_cast<std::uint8_t *>(data + 1), size - 1, "rb");
  if (file == nullptr) return 0;
  examine(ov_net_parse(file, handler));
  std::fclose(file);
  return 0;
}
