// Fuzz target: the data-file and case-file readers on a fixed network with
// every kind of node a case can name, and the writers on what was read.
//
// The first byte chooses the reader: even for a data file, odd for a case
// file. Besides the sanitizers, the target aborts on success with an error
// recorded, on failure with none, on a message longer than its buffer, on a
// failed read that leaves cases or findings behind, and on cases or findings
// that do not read back the same after writing them.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "io/scanner.h"
#include "orvel.h"

namespace {

const char *const network = "node A { states = (\"yes\" \"no\" \"it's\"); label = \"a\"; }\n"
                            "node B { states = (\"false\" \"true\"); subtype = boolean; }\n"
                            "node N { states = (\"s0\" \"s1\" \"s2\"); subtype = number; "
                            "state_values = (0.5 1 2.25); }\n"
                            "node M { states = (\"a\" \"b\"); subtype = number; state_values = (2 1); }\n"
                            "node I { states = (\"lo\" \"mid\" \"hi\"); subtype = interval; "
                            "state_values = (-infinity 0 10 infinity); }\n"
                            "node D { states = (\"same\" \"same\"); }\n"
                            "continuous node C {}\n";

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

void handler(std::uint32_t, ov_string_t message, void *) {
  check(message != nullptr && std::strlen(message) < orvel::message_capacity, "bad message");
}

// A file of this process's own for the input and one for what is written.
const std::string &scratch(int which) {
  static const std::string names[2] = {
      "/tmp/orvel_data_fuzz_in_" + std::to_string(getpid()),
      "/tmp/orvel_data_fuzz_out_" + std::to_string(getpid()),
  };
  return names[which];
}

bool same_double(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

ov_node_t *case_nodes(ov_domain_t domain) {
  static ov_node_t list[16];
  std::size_t n = 0;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr && n < 15; node = ov_node_get_next(node))
    list[n++] = node;
  list[n] = nullptr;
  return list;
}

void expect_same_cases(ov_domain_t a, ov_domain_t b) {
  const ov_count_t count = ov_domain_get_number_of_cases(a);
  check(ov_domain_get_number_of_cases(b) == count, "the number of cases changed");
  for (ov_index_t i = 0; i < count; ++i) {
    check(ov_domain_get_case_count(a, i) == ov_domain_get_case_count(b, i), "a case count changed");
    for (ov_node_t *n = case_nodes(a); *n != nullptr; ++n) {
      ov_node_t other = ov_domain_get_node_by_name(b, ov_node_get_name(*n));
      const int set = ov_node_case_is_set(*n, i);
      check(ov_node_case_is_set(other, i) == set, "an entry changed presence");
      if (set != 1) continue;
      if (ov_node_get_kind(*n) == ov_kind_continuous)
        check(same_double(ov_node_get_case_value(*n, i), ov_node_get_case_value(other, i)), "a value changed");
      else
        check(ov_node_get_case_state(*n, i) == ov_node_get_case_state(other, i), "a state changed");
    }
  }
}

void expect_same_findings(ov_domain_t a, ov_domain_t b) {
  for (ov_node_t *n = case_nodes(a); *n != nullptr; ++n) {
    ov_node_t other = ov_domain_get_node_by_name(b, ov_node_get_name(*n));
    check(ov_node_evidence_is_entered(*n) == ov_node_evidence_is_entered(other), "a finding changed presence");
    if (ov_node_get_kind(*n) == ov_kind_continuous) {
      if (ov_node_evidence_is_entered(*n) == 1)
        check(same_double(ov_node_get_entered_value(*n), ov_node_get_entered_value(other)), "a value changed");
      continue;
    }
    for (ov_index_t s = 0; s < ov_node_get_number_of_states(*n); ++s)
      check(ov_node_get_entered_finding(*n, s) == ov_node_get_entered_finding(other, s), "a finding changed");
  }
}

void examine_data(ov_domain_t domain) {
  const ov_status_t status = ov_domain_parse_cases(domain, scratch(0).c_str(), handler, nullptr);
  check(ov_error_code() == static_cast<ov_error_t>(status), "status and recorded code differ");
  if (status != ov_error_none) {
    check(ov_domain_get_number_of_cases(domain) == 0, "a failed read left cases");
    return;
  }
  if (ov_domain_save_cases(domain, scratch(1).c_str(), case_nodes(domain), nullptr, 1, ", ", "*") != ov_error_none)
    return;
  ov_domain_t again = ov_net_parse_from_string(network, nullptr);
  check(ov_domain_parse_cases(again, scratch(1).c_str(), handler, nullptr) == ov_error_none,
        "written cases do not read back");
  expect_same_cases(domain, again);
  ov_domain_delete(again);
}

void examine_case(ov_domain_t domain) {
  const ov_status_t status = ov_domain_parse_case(domain, scratch(0).c_str(), handler, nullptr);
  check(ov_error_code() == static_cast<ov_error_t>(status), "status and recorded code differ");
  if (status != ov_error_none) {
    for (ov_node_t *n = case_nodes(domain); *n != nullptr; ++n)
      check(ov_node_evidence_is_entered(*n) == 0, "a failed read left findings");
    return;
  }
  if (ov_domain_save_case(domain, scratch(1).c_str()) != ov_error_none) return;
  ov_domain_t again = ov_net_parse_from_string(network, nullptr);
  check(ov_domain_parse_case(again, scratch(1).c_str(), handler, nullptr) == ov_error_none,
        "a written case does not read back");
  expect_same_findings(domain, again);
  ov_domain_delete(again);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  std::FILE *file = std::fopen(scratch(0).c_str(), "wb");
  if (file == nullptr) return 0;
  const bool written = std::fwrite(data + 1, 1, size - 1, file) == size - 1;
  if (std::fclose(file) != 0 || !written) return 0;
  ov_domain_t domain = ov_net_parse_from_string(network, nullptr);
  check(domain != nullptr, "the network does not read");
  if ((data[0] & 1u) == 0)
    examine_data(domain);
  else
    examine_case(domain);
  ov_domain_delete(domain);
  return 0;
}
