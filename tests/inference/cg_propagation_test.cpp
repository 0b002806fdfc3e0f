// Mixed networks: beliefs, means, variances and the density of the evidence
// against a plain computation, for each discrete configuration, of the joint
// Gaussian of the continuous nodes from their regressions, conditioned on
// the evidence and mixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "orvel.h"

namespace orvel::test {
namespace {

double relative_gap(double a, double b) { return std::fabs(a - b) / std::max(1.0, std::fabs(b)); }

struct Regression {
  std::vector<int> parents; // continuous parents, indices into the continuous nodes
  // Per configuration of the node's discrete parents.
  std::vector<double> alpha, gamma;
  std::vector<std::vector<double>> beta;
};

struct MixedNetwork {
  ov_domain_t domain = ov_new_domain();
  std::vector<ov_node_t> discrete, continuous;
  std::vector<std::vector<double>> tables; // discrete conditional tables
  std::vector<Regression> regressions;
  ~MixedNetwork() { ov_domain_delete(domain); }
};

// The index in the node's own table of the configuration of its discrete
// nodes (parents, and the node itself if it is discrete), read from the
// table's node list.
std::size_t table_index(const MixedNetwork &net, ov_node_t node, const std::vector<int> &states) {
  std::size_t index = 0;
  for (ov_node_t *at = ov_table_get_nodes(ov_node_get_table(node)); *at != nullptr; ++at) {
    if (ov_node_get_kind(*at) != ov_kind_discrete) break;
    const auto found = std::find(net.discrete.begin(), net.discrete.end(), *at);
    index = index * ov_node_get_number_of_states(*at) + states[found - net.discrete.begin()];
  }
  return index;
}

// Calls f with every configuration of the discrete nodes.
template <class F> void for_each_configuration(const MixedNetwork &net, F f) {
  std::vector<int> states(net.discrete.size(), 0);
  for (;;) {
    f(states);
    std::size_t d = states.size();
    while (d-- > 0) {
      if (++states[d] < static_cast<int>(ov_node_get_number_of_states(net.discrete[d]))) break;
      states[d] = 0;
    }
    if (d == static_cast<std::size_t>(-1)) return;
  }
}

MixedNetwork *make_network(std::mt19937 &rng, int discrete_count, int continuous_count) {
  auto *net = new MixedNetwork;
  std::uniform_real_distribution<double> unit(0.0, 1.0), coefficient(-1.5, 1.5);
  for (int i = 0; i < discrete_count; ++i) {
    ov_node_t node = ov_domain_new_node(net->domain, ov_category_chance, ov_kind_discrete);
    ov_node_set_number_of_states(node, 2 + static_cast<int>(rng() % 2));
    for (int p = 0; p < i; ++p)
      if (unit(rng) < 0.4) {
        EXPECT_EQ(ov_node_add_parent(node, net->discrete[p]), ov_error_none);
      }
    net->discrete.push_back(node);
  }
  for (int i = 0; i < continuous_count; ++i) {
    ov_node_t node = ov_domain_new_node(net->domain, ov_category_chance, ov_kind_continuous);
    Regression r;
    std::size_t configurations = 1;
    for (int p = 0; p < discrete_count; ++p)
      if (unit(rng) < 0.4 && ov_node_add_parent(node, net->discrete[p]) == ov_error_none)
        configurations *= ov_node_get_number_of_states(net->discrete[p]);
    for (int p = 0; p < i; ++p)
      if (unit(rng) < 0.45 && ov_node_add_parent(node, net->continuous[p]) == ov_error_none) r.parents.push_back(p);
    net->continuous.push_back(node);
    for (std::size_t c = 0; c < configurations; ++c) {
      r.alpha.push_back(3.0 * coefficient(rng));
      r.gamma.push_back(0.2 + 2.0 * unit(rng));
      r.beta.emplace_back();
      for (std::size_t k = 0; k < r.parents.size(); ++k) r.beta.back().push_back(coefficient(rng));
    }
    net->regressions.push_back(r);
  }
  // Tables and regressions go in once all arcs stand.
  for (int i = 0; i < discrete_count; ++i) {
    ov_table_t table = ov_node_get_table(net->discrete[i]);
    ov_number_t *data = ov_table_get_data(table);
    const std::size_t n = ov_node_get_number_of_states(net->discrete[i]);
    // Rows of multiples of 1/32 that sum to 1 exactly, so that the float
    // table is the distribution of the reference.
    std::vector<double> values(ov_table_get_size(table));
    for (std::size_t row = 0; row < values.size(); row += n) {
      std::vector<int> cuts{0, 32};
      while (cuts.size() < n + 1) {
        const int cut = 1 + static_cast<int>(rng() % 31);
        if (std::find(cuts.begin(), cuts.end(), cut) == cuts.end()) cuts.push_back(cut);
      }
      std::sort(cuts.begin(), cuts.end());
      for (std::size_t s = 0; s < n; ++s) {
        values[row + s] = (cuts[s + 1] - cuts[s]) / 32.0;
        data[row + s] = static_cast<ov_number_t>(values[row + s]);
      }
    }
    net->tables.push_back(values);
  }
  for (int i = 0; i < continuous_count; ++i) {
    const Regression &r = net->regressions[i];
    for (std::size_t c = 0; c < r.alpha.size(); ++c) {
      EXPECT_EQ(ov_node_set_alpha(net->continuous[i], r.alpha[c], c), ov_error_none);
      EXPECT_EQ(ov_node_set_gamma(net->continuous[i], r.gamma[c], c), ov_error_none);
      for (std::size_t k = 0; k < r.parents.size(); ++k)
        EXPECT_EQ(ov_node_set_beta(net->continuous[i], r.beta[c][k], net->continuous[r.parents[k]], c), ov_error_none);
    }
  }
  return net;
}

// Evidence: a selected state per discrete node (-1 none), a value per
// continuous node (NaN none).
struct Evidence {
  std::vector<int> states;
  std::vector<double> values;
};

struct Reference {
  double log_density = 0.0;
  std::vector<std::vector<double>> beliefs;
  std::vector<double> means, variances;
};

// Solves A x = b for a small symmetric positive definite A, by Gaussian
// elimination; A and b are overwritten.
std::vector<double> solve(std::vector<double> a, std::vector<double> b, std::size_t n) {
  for (std::size_t k = 0; k < n; ++k)
    for (std::size_t i = k + 1; i < n; ++i) {
      const double f = a[i * n + k] / a[k * n + k];
      for (std::size_t j = k; j < n; ++j) a[i * n + j] -= f * a[k * n + j];
      b[i] -= f * b[k];
    }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = i + 1; j < n; ++j) b[i] -= a[i * n + j] * b[j];
    b[i] /= a[i * n + i];
  }
  return b;
}

Reference reference(const MixedNetwork &net, const Evidence &evidence) {
  const std::size_t nc = net.continuous.size();
  std::vector<int> observed, free;
  for (std::size_t i = 0; i < nc; ++i)
    (std::isnan(evidence.values[i]) ? free : observed).push_back(static_cast<int>(i));
  struct Part {
    double log_weight;
    std::vector<int> states;
    std::vector<double> mean, variance; // of every continuous node
  };
  std::vector<Part> parts;
  for_each_configuration(net, [&](const std::vector<int> &states) {
    double log_weight = 0.0;
    for (std::size_t i = 0; i < net.discrete.size(); ++i) {
      if (evidence.states[i] >= 0 && evidence.states[i] != states[i]) return;
      log_weight += std::log(net.tables[i][table_index(net, net.discrete[i], states)]);
    }
    // The joint Gaussian from the regressions, in node order.
    std::vector<double> m(nc), s(nc * nc, 0.0);
    for (std::size_t i = 0; i < nc; ++i) {
      const Regression &r = net.regressions[i];
      const std::size_t c = table_index(net, net.continuous[i], states);
      m[i] = r.alpha[c];
      for (std::size_t k = 0; k < r.parents.size(); ++k) m[i] += r.beta[c][k] * m[r.parents[k]];
      for (std::size_t j = 0; j < i; ++j) {
        double v = 0.0;
        for (std::size_t k = 0; k < r.parents.size(); ++k) v += r.beta[c][k] * s[r.parents[k] * nc + j];
        s[i * nc + j] = s[j * nc + i] = v;
      }
      double v = r.gamma[c];
      for (std::size_t k = 0; k < r.parents.size(); ++k) v += r.beta[c][k] * s[i * nc + r.parents[k]];
      s[i * nc + i] = v;
    }
    // Conditioned on the observed values.
    const std::size_t no = observed.size();
    std::vector<double> soo(no * no), residual(no);
    for (std::size_t a = 0; a < no; ++a) {
      residual[a] = evidence.values[observed[a]] - m[observed[a]];
      for (std::size_t b = 0; b < no; ++b) soo[a * no + b] = s[observed[a] * nc + observed[b]];
    }
    const std::vector<double> z = solve(soo, residual, no);
    double quadratic = 0.0;
    for (std::size_t a = 0; a < no; ++a) quadratic += residual[a] * z[a];
    double log_det = 0.0; // by elimination, the product of the pivots
    {
      std::vector<double> a = soo;
      for (std::size_t k = 0; k < no; ++k) {
        log_det += std::log(a[k * no + k]);
        for (std::size_t i = k + 1; i < no; ++i) {
          const double f = a[i * no + k] / a[k * no + k];
          for (std::size_t j = k; j < no; ++j) a[i * no + j] -= f * a[k * no + j];
        }
      }
    }
    log_weight += -0.5 * (quadratic + log_det + static_cast<double>(no) * std::log(2.0 * std::numbers::pi));
    Part part{log_weight, states, m, std::vector<double>(nc, 0.0)};
    for (int o : observed) part.mean[o] = evidence.values[o];
    for (int u : free) {
      std::vector<double> su(no);
      for (std::size_t a = 0; a < no; ++a) su[a] = s[u * nc + observed[a]];
      const std::vector<double> w = solve(soo, su, no);
      double shift = 0.0, shrink = 0.0;
      for (std::size_t a = 0; a < no; ++a) {
        shift += w[a] * residual[a];
        shrink += w[a] * su[a];
      }
      part.mean[u] += shift;
      part.variance[u] = s[u * nc + u] - shrink;
    }
    parts.push_back(part);
  });
  Reference ref;
  double top = -INFINITY;
  for (const Part &p : parts) top = std::max(top, p.log_weight);
  double total = 0.0;
  for (const Part &p : parts) total += std::exp(p.log_weight - top);
  ref.log_density = top + std::log(total);
  for (ov_node_t node : net.discrete) ref.beliefs.emplace_back(ov_node_get_number_of_states(node), 0.0);
  ref.means.assign(nc, 0.0);
  ref.variances.assign(nc, 0.0);
  for (const Part &p : parts) {
    const double w = std::exp(p.log_weight - top) / total;
    for (std::size_t i = 0; i < net.discrete.size(); ++i) ref.beliefs[i][p.states[i]] += w;
    for (std::size_t i = 0; i < nc; ++i) ref.means[i] += w * p.mean[i];
  }
  for (const Part &p : parts) {
    const double w = std::exp(p.log_weight - top) / total;
    for (std::size_t i = 0; i < nc; ++i)
      ref.variances[i] += w * (p.variance[i] + (p.mean[i] - ref.means[i]) * (p.mean[i] - ref.means[i]));
  }
  return ref;
}

// Changes each node's finding to the new one: continuous values are
// entered over the old ones without a retraction.
void enter(const MixedNetwork &net, const Evidence &evidence) {
  for (std::size_t i = 0; i < net.discrete.size(); ++i) {
    const ov_status_t status = evidence.states[i] >= 0 ? ov_node_select_state(net.discrete[i], evidence.states[i])
                                                       : ov_node_retract_findings(net.discrete[i]);
    ASSERT_EQ(status, ov_error_none);
  }
  for (std::size_t i = 0; i < net.continuous.size(); ++i) {
    const ov_status_t status = std::isnan(evidence.values[i])
                                   ? ov_node_retract_findings(net.continuous[i])
                                   : ov_node_enter_value(net.continuous[i], evidence.values[i]);
    ASSERT_EQ(status, ov_error_none);
  }
}

// Means and variances are doubles throughout: 1e-8 relative (to at least
// 1). Beliefs are stored as floats.
void expect_matches(const MixedNetwork &net, const Evidence &evidence) {
  const Reference ref = reference(net, evidence);
  EXPECT_LT(relative_gap(ov_domain_get_log_normalization_constant(net.domain), ref.log_density), 1e-8);
  EXPECT_LT(relative_gap(ov_domain_get_normalization_constant(net.domain), std::exp(ref.log_density)), 1e-8);
  for (std::size_t i = 0; i < net.discrete.size(); ++i)
    for (std::size_t s = 0; s < ref.beliefs[i].size(); ++s)
      EXPECT_NEAR(ov_node_get_belief(net.discrete[i], s), ref.beliefs[i][s], 2e-7) << "discrete " << i;
  for (std::size_t i = 0; i < net.continuous.size(); ++i) {
    EXPECT_LT(relative_gap(ov_node_get_mean(net.continuous[i]), ref.means[i]), 1e-8) << "continuous " << i;
    EXPECT_LT(relative_gap(ov_node_get_variance(net.continuous[i]), ref.variances[i]), 1e-8) << "continuous " << i;
    if (!std::isnan(evidence.values[i])) continue;
    // The mixture has the node's moments, up to its float weights.
    ov_node_t node = net.continuous[i];
    ov_table_t mixture = ov_node_get_distribution(node);
    ASSERT_NE(mixture, nullptr);
    const std::size_t n = ov_table_get_size(mixture);
    const ov_number_t *w = ov_table_get_data(mixture);
    double mean = 0.0, variance = 0.0;
    for (std::size_t c = 0; c < n; ++c) mean += w[c] * ov_table_get_mean(mixture, c, node);
    for (std::size_t c = 0; c < n; ++c)
      variance +=
          w[c] * (ov_table_get_variance(mixture, c, node) + std::pow(ov_table_get_mean(mixture, c, node) - mean, 2));
    EXPECT_LT(relative_gap(mean, ref.means[i]), 1e-6) << "continuous " << i;
    EXPECT_LT(relative_gap(variance, ref.variances[i]), 1e-6) << "continuous " << i;
    ov_table_delete(mixture);
  }
}

Evidence random_evidence(std::mt19937 &rng, const MixedNetwork &net) {
  std::uniform_real_distribution<double> unit(0.0, 1.0), value(-4.0, 4.0);
  Evidence e;
  for (ov_node_t node : net.discrete)
    e.states.push_back(unit(rng) < 0.3 ? static_cast<int>(rng() % ov_node_get_number_of_states(node)) : -1);
  for (std::size_t i = 0; i < net.continuous.size(); ++i) e.values.push_back(unit(rng) < 0.35 ? value(rng) : NAN);
  return e;
}

// Random networks of up to 4 discrete and 6 continuous nodes, each with a
// sequence of evidence changes propagated one after the other (the solver
// must follow added, changed and retracted findings of both kinds), the
// last retracting everything.
TEST(MixedNetworks, RandomNetworksMatchThePlainComputation) {
  std::mt19937 rng(17);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    MixedNetwork *net = make_network(rng, 1 + round % 4, 1 + (round / 4) % 6);
    ASSERT_EQ(ov_domain_compile(net->domain), ov_error_none);
    Evidence none{std::vector<int>(net->discrete.size(), -1), std::vector<double>(net->continuous.size(), NAN)};
    expect_matches(*net, none);
    for (int step = 0; step < 4; ++step) {
      SCOPED_TRACE(step);
      const Evidence e = step < 3 ? random_evidence(rng, *net) : none;
      enter(*net, e);
      ASSERT_EQ(ov_domain_propagate(net->domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      expect_matches(*net, e);
    }
    delete net;
  }
}

// X ~ N(0, 1) under a discrete D, Y = X + N(0, 1).
constexpr const char *kSmall = R"(net {}
node D { states = ("a" "b"); }
continuous node X {}
continuous node Y {}
potential (D) { data = (0.25 0.75); }
potential (X | D) { data = ( normal(0, 1) normal(2, 1) ); }
potential (Y | X) { data = ( normal(X, 1) ); }
)";

TEST(MixedNetworks, DegenerateCasesFailWithTheirCodesAndLeaveTheDomainUsable) {
  ov_domain_t domain = ov_net_parse_from_string(kSmall, nullptr);
  ASSERT_NE(domain, nullptr);
  ov_node_t d = ov_domain_get_node_by_name(domain, "D"), x = ov_domain_get_node_by_name(domain, "X"),
            y = ov_domain_get_node_by_name(domain, "Y");
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  // Evidence 10^6 standard deviations away has no representable density.
  ASSERT_EQ(ov_node_enter_value(y, 1e6), ov_error_none);
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_low_density);
  ASSERT_EQ(ov_node_retract_findings(y), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_mean(y), 0.75 * 2, 1e-12);
  EXPECT_NEAR(ov_node_get_variance(y), 2.0 + 0.25 * 0.75 * 4.0, 1e-12);
  // X's distribution is the mixture over D of X given D.
  ov_table_t mixture = ov_node_get_distribution(x);
  ASSERT_NE(mixture, nullptr);
  ASSERT_EQ(ov_table_get_size(mixture), 2u);
  EXPECT_EQ(ov_table_get_data(mixture)[1], 0.75f);
  EXPECT_NEAR(ov_table_get_mean(mixture, 1, x), 2.0, 1e-12);
  EXPECT_NEAR(ov_table_get_variance(mixture, 1, x), 1.0, 1e-12);
  ov_table_delete(mixture);
  // An observed node has its value as mean and variance 0; Y = 1 shifts D.
  ASSERT_EQ(ov_node_enter_value(y, 1.0), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_EQ(ov_node_get_mean(y), 1.0);
  EXPECT_EQ(ov_node_get_variance(y), 0.0);
  EXPECT_EQ(ov_node_get_propagated_value(y), 1.0);
  EXPECT_EQ(ov_node_get_distribution(y), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // Y ~ N(0, 2) or N(2, 2): the weights 0.25 and 0.75 times equal densities.
  EXPECT_NEAR(ov_node_get_belief(d, 0), 0.25, 1e-7);
  // Only max or fast retraction is refused.
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_max, ov_mode_normal), ov_error_usage);
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_fast_retraction), ov_error_usage);
  // A deterministic relation (variance 0) has no density: zero_variance,
  // until the variance is positive again.
  ASSERT_EQ(ov_node_set_gamma(y, 0.0, 0), ov_error_none);
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_zero_variance);
  ASSERT_EQ(ov_node_set_gamma(y, 1.0, 0), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(d, 0), 0.25, 1e-7);
  EXPECT_TRUE(std::isfinite(ov_node_get_mean(x)) && std::isfinite(ov_node_get_variance(x)));
  ov_domain_delete(domain);
}

// Draws given a continuous finding follow the propagated distribution: the
// sample mean within 5 standard errors, the variance, the frequency of a
// state and the mean given that state likewise (fixed seed, 20000 draws).
TEST(MixedNetworks, DrawsConvergeToThePropagatedMoments) {
  ov_domain_t domain = ov_net_parse_from_string(kSmall, nullptr);
  ASSERT_NE(domain, nullptr);
  ov_node_t d = ov_domain_get_node_by_name(domain, "D"), x = ov_domain_get_node_by_name(domain, "X"),
            y = ov_domain_get_node_by_name(domain, "Y");
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ASSERT_EQ(ov_node_enter_value(y, 2.5), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  ASSERT_EQ(ov_domain_seed_random(domain, 12345), ov_error_none);
  const int n = 20000;
  double sum = 0.0, squares = 0.0, hits = 0.0, sum_given = 0.0;
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(ov_domain_simulate(domain), ov_error_none);
    ASSERT_EQ(ov_node_get_sampled_value(y), 2.5);
    const double v = ov_node_get_sampled_value(x);
    sum += v;
    squares += v * v;
    if (ov_node_get_sampled_state(d) == 1) {
      hits += 1.0;
      sum_given += v;
    }
  }
  const double mean = sum / n, variance = squares / n - mean * mean, p = ov_node_get_belief(d, 1);
  EXPECT_NEAR(mean, ov_node_get_mean(x), 5.0 * std::sqrt(ov_node_get_variance(x) / n));
  EXPECT_NEAR(variance, ov_node_get_variance(x), 5.0 * ov_node_get_variance(x) * std::sqrt(3.0 / n));
  EXPECT_NEAR(hits / n, p, 5.0 * std::sqrt(p * (1.0 - p) / n));
  // The draws of X with D = b follow X given both findings.
  ASSERT_EQ(ov_node_select_state(d, 1), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(sum_given / hits, ov_node_get_mean(x), 5.0 * std::sqrt(ov_node_get_variance(x) / hits));
  ov_domain_delete(domain);
}

} // namespace
} // namespace orvel::test
