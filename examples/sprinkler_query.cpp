// A C++ program that uses the library through its C interface: load the
// sprinkler network, see the grass wet, and ask why.
#include <orvel.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

// Owns a domain for the length of a scope.
struct DomainDeleter {
  void operator()(ov_domain_s *domain) const { ov_domain_delete(domain); }
};
using Domain = std::unique_ptr<ov_domain_s, DomainDeleter>;

int fail(const std::string &what) {
  ov_error_t code = ov_error_code();
  std::fprintf(stderr, "%s: %s (%s)\n", what.c_str(), ov_error_description(code), ov_error_name(code));
  return 1;
}

} // namespace

int main(int argc, char **argv) {
  std::string file = argc > 1 ? argv[1] : "examples/sprinkler.net";
  Domain domain(ov_net_parse_domain(
      file.c_str(),
      [](uint32_t line, ov_string_t message, void *) { std::fprintf(stderr, "line %u: %s\n", line, message); },
      nullptr));
  if (!domain) return fail("loading " + file);
  if (ov_domain_compile(domain.get()) != ov_error_none) return fail("compiling");

  ov_node_t wet = ov_domain_get_node_by_name(domain.get(), "WetGrass");
  ov_node_t rain = ov_domain_get_node_by_name(domain.get(), "Rain");
  ov_node_t sprinkler = ov_domain_get_node_by_name(domain.get(), "Sprinkler");
  if (wet == nullptr || rain == nullptr || sprinkler == nullptr) return fail("finding the nodes");

  std::printf("before any evidence: P(Rain = yes) = %.4f\n", ov_node_get_belief(rain, 0));
  if (ov_node_select_state(wet, ov_node_get_state_index_from_label(wet, "yes")) != ov_error_none ||
      ov_domain_propagate(domain.get(), ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
    return fail("propagating");
  std::printf("the grass is wet:    P(Rain = yes) = %.4f, P(Sprinkler = on) = %.4f\n", ov_node_get_belief(rain, 0),
              ov_node_get_belief(sprinkler, 0));
  std::printf("probability of the evidence: %.4f\n", ov_domain_get_normalization_constant(domain.get()));

  // Explaining away: learning that it rained makes the sprinkler less likely.
  if (ov_node_select_state(rain, 0) != ov_error_none ||
      ov_domain_propagate(domain.get(), ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
    return fail("propagating");
  std::printf("and it rained:       P(Sprinkler = on) = %.4f\n", ov_node_get_belief(sprinkler, 0));
  return 0;
}
