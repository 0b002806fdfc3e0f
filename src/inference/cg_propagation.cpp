// Conditional Gaussian propagation on the strong junction tree, in
// canonical form (design in the header).
#include "inference/cg_propagation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <unordered_map>
#include <vector>

#include "api/error.h"
#include "compile/clique.h"
#include "compile/compiled_forest.h"
#include "compile/junction_tree.h"
#include "inference/configurations.h"
#include "inference/propagation_engine.h"
#include "model/node.h"
#include "model/node_list.h"
#include "table/table.h"

namespace orvel {

namespace {

constexpr double minus_infinity = -std::numeric_limits<double>::infinity();
constexpr double log_two_pi = 1.8378770664093454835606594728112;

// A failure deep in the linear algebra, carried out to solve_cg_tree.
struct CgFailure {
  ov_error_t code;
};

bool observed(const Node *node) noexcept { return !node->is_discrete() && node->value_propagated; }

// exp(g + h'x - x'Kx/2) for each configuration of the discrete nodes (the
// last varying fastest), over the continuous nodes.
struct CgPotential {
  std::vector<Node *> discrete, continuous;
  std::vector<double> g, h, k; // per configuration: 1, n and n * n numbers
  std::size_t n() const noexcept { return continuous.size(); }
};

CgPotential unit_potential(std::vector<Node *> discrete, std::vector<Node *> continuous) {
  const std::size_t m = configurations(discrete), n = continuous.size();
  return CgPotential{std::move(discrete), std::move(continuous), std::vector<double>(m, 0.0),
                     std::vector<double>(m * n, 0.0), std::vector<double>(m * n * n, 0.0)};
}

// The place of each of `small`'s nodes in `big`.
std::vector<std::size_t> places(const std::vector<Node *> &big, const std::vector<Node *> &small) {
  std::vector<std::size_t> at(small.size());
  for (std::size_t i = 0; i < small.size(); ++i)
    at[i] = static_cast<std::size_t>(std::find(big.begin(), big.end(), small[i]) - big.begin());
  return at;
}

// Multiplies (sign 1) or divides (sign -1) the source into the target,
// whose nodes include the source's. A configuration of weight 0 on either
// side ends with weight 0: so 0/0 is 0.
void combine(CgPotential &t, const CgPotential &s, double sign) {
  const std::vector<std::size_t> map = restriction(t.discrete, s.discrete);
  const std::vector<std::size_t> at = places(t.continuous, s.continuous);
  const std::size_t n = t.n(), ns = s.n();
  for (std::size_t i = 0; i < map.size(); ++i) {
    const std::size_t j = map[i];
    if (t.g[i] == minus_infinity) continue;
    if (s.g[j] == minus_infinity) {
      t.g[i] = minus_infinity;
      continue;
    }
    t.g[i] += sign * s.g[j];
    for (std::size_t a = 0; a < ns; ++a) {
      t.h[i * n + at[a]] += sign * s.h[j * ns + a];
      for (std::size_t b = 0; b < ns; ++b) t.k[(i * n + at[a]) * n + at[b]] += sign * s.k[(j * ns + a) * ns + b];
    }
  }
}

// The lower Cholesky factor of a symmetric n x n matrix, in place; fails
// with rounding unless the matrix is positive definite.
void cholesky(std::vector<double> &a, std::size_t n) {
  for (std::size_t j = 0; j < n; ++j) {
    double d = a[j * n + j];
    for (std::size_t p = 0; p < j; ++p) d -= a[j * n + p] * a[j * n + p];
    if (!(d > 0.0) || !std::isfinite(d)) throw CgFailure{ov_error_rounding};
    const double l = std::sqrt(d);
    a[j * n + j] = l;
    for (std::size_t i = j + 1; i < n; ++i) {
      double s = a[i * n + j];
      for (std::size_t p = 0; p < j; ++p) s -= a[i * n + p] * a[j * n + p];
      a[i * n + j] = s / l;
    }
    for (std::size_t i = 0; i < j; ++i) a[i * n + j] = 0.0;
  }
}

// Solves L L' x = b in place.
void cholesky_solve(const std::vector<double> &l, std::size_t n, double *x) noexcept {
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t p = 0; p < i; ++p) x[i] -= l[i * n + p] * x[p];
    x[i] /= l[i * n + i];
  }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t p = i + 1; p < n; ++p) x[i] -= l[p * n + i] * x[p];
    x[i] /= l[i * n + i];
  }
}

double cholesky_log_det(const std::vector<double> &l, std::size_t n) noexcept {
  double s = 0.0;
  for (std::size_t i = 0; i < n; ++i) s += std::log(l[i * n + i]);
  return 2.0 * s;
}

// Integrates out the continuous nodes that `kept` lacks (kept lists some
// of the potential's continuous nodes, in its order).
CgPotential integrate(const CgPotential &p, const std::vector<Node *> &kept) {
  if (kept.size() == p.n()) return p;
  const std::vector<std::size_t> a = places(p.continuous, kept);
  std::vector<std::size_t> b;
  for (std::size_t i = 0; i < p.n(); ++i)
    if (std::find(a.begin(), a.end(), i) == a.end()) b.push_back(i);
  const std::size_t n = p.n(), na = a.size(), nb = b.size();
  CgPotential r = unit_potential(p.discrete, kept);
  std::vector<double> l(nb * nb), x(nb), y(nb * na), column(nb);
  for (std::size_t c = 0; c < p.g.size(); ++c) {
    if (p.g[c] == minus_infinity) {
      r.g[c] = minus_infinity;
      continue;
    }
    const double *h = &p.h[c * n];
    const double *k = &p.k[c * n * n];
    for (std::size_t i = 0; i < nb; ++i)
      for (std::size_t j = 0; j < nb; ++j) l[i * nb + j] = k[b[i] * n + b[j]];
    cholesky(l, nb);
    for (std::size_t i = 0; i < nb; ++i) x[i] = h[b[i]];
    cholesky_solve(l, nb, x.data());
    for (std::size_t j = 0; j < na; ++j) {
      for (std::size_t i = 0; i < nb; ++i) column[i] = k[b[i] * n + a[j]];
      cholesky_solve(l, nb, column.data());
      for (std::size_t i = 0; i < nb; ++i) y[i * na + j] = column[i];
    }
    double hx = 0.0;
    for (std::size_t i = 0; i < nb; ++i) hx += h[b[i]] * x[i];
    r.g[c] = p.g[c] + 0.5 * (static_cast<double>(nb) * log_two_pi - cholesky_log_det(l, nb) + hx);
    for (std::size_t i = 0; i < na; ++i) {
      double hi = h[a[i]];
      for (std::size_t q = 0; q < nb; ++q) hi -= k[a[i] * n + b[q]] * x[q];
      r.h[c * na + i] = hi;
      for (std::size_t j = 0; j < na; ++j) {
        double kij = k[a[i] * n + a[j]];
        for (std::size_t q = 0; q < nb; ++q) kij -= k[a[i] * n + b[q]] * y[q * na + j];
        r.k[(c * na + i) * na + j] = kij;
      }
    }
  }
  return r;
}

// One configuration in moment form: log total weight, mean and covariance.
struct Moments {
  double log_weight = minus_infinity;
  std::vector<double> mean, covariance;
};

Moments moments(const CgPotential &p, std::size_t c) {
  const std::size_t n = p.n();
  Moments m;
  if (p.g[c] == minus_infinity) return m;
  std::vector<double> l(p.k.begin() + static_cast<std::ptrdiff_t>(c * n * n),
                        p.k.begin() + static_cast<std::ptrdiff_t>((c + 1) * n * n));
  cholesky(l, n);
  m.mean.assign(p.h.begin() + static_cast<std::ptrdiff_t>(c * n),
                p.h.begin() + static_cast<std::ptrdiff_t>((c + 1) * n));
  cholesky_solve(l, n, m.mean.data());
  m.covariance.assign(n * n, 0.0);
  std::vector<double> column(n);
  for (std::size_t j = 0; j < n; ++j) {
    std::fill(column.begin(), column.end(), 0.0);
    column[j] = 1.0;
    cholesky_solve(l, n, column.data());
    for (std::size_t i = 0; i < n; ++i) m.covariance[i * n + j] = column[i];
  }
  double hm = 0.0;
  for (std::size_t i = 0; i < n; ++i) hm += p.h[c * n + i] * m.mean[i];
  m.log_weight = p.g[c] + 0.5 * (static_cast<double>(n) * log_two_pi - cholesky_log_det(l, n) + hm);
  return m;
}

// Sums out the discrete nodes that `kept` lacks. Without continuous nodes
// the sum is exact; with them each group of configurations is collapsed to
// one Gaussian with the mixture's weight, mean and covariance.
CgPotential sum_discrete(const CgPotential &p, const std::vector<Node *> &kept) {
  if (kept.size() == p.discrete.size()) return p;
  const std::size_t n = p.n();
  CgPotential r = unit_potential(kept, p.continuous);
  const std::vector<std::size_t> map = restriction(p.discrete, kept);
  const std::size_t groups = r.g.size();
  std::vector<Moments> parts(p.g.size());
  for (std::size_t c = 0; c < p.g.size(); ++c) {
    if (n == 0)
      parts[c].log_weight = p.g[c];
    else
      parts[c] = moments(p, c);
  }
  std::vector<double> top(groups, minus_infinity), total(groups, 0.0), mean(groups * n, 0.0),
      covariance(groups * n * n, 0.0);
  for (std::size_t c = 0; c < p.g.size(); ++c) top[map[c]] = std::max(top[map[c]], parts[c].log_weight);
  for (std::size_t c = 0; c < p.g.size(); ++c) {
    if (parts[c].log_weight == minus_infinity) continue;
    const std::size_t j = map[c];
    const double w = std::exp(parts[c].log_weight - top[j]);
    total[j] += w;
    for (std::size_t i = 0; i < n; ++i) mean[j * n + i] += w * parts[c].mean[i];
  }
  for (std::size_t j = 0; j < groups; ++j)
    for (std::size_t i = 0; i < n && total[j] > 0.0; ++i) mean[j * n + i] /= total[j];
  for (std::size_t c = 0; c < p.g.size() && n > 0; ++c) {
    if (parts[c].log_weight == minus_infinity) continue;
    const std::size_t j = map[c];
    const double w = std::exp(parts[c].log_weight - top[j]) / total[j];
    for (std::size_t a = 0; a < n; ++a)
      for (std::size_t b = 0; b < n; ++b)
        covariance[(j * n + a) * n + b] +=
            w * (parts[c].covariance[a * n + b] +
                 (parts[c].mean[a] - mean[j * n + a]) * (parts[c].mean[b] - mean[j * n + b]));
  }
  for (std::size_t j = 0; j < groups; ++j) {
    if (!(total[j] > 0.0)) {
      r.g[j] = minus_infinity;
      continue;
    }
    const double log_total = top[j] + std::log(total[j]);
    if (n == 0) {
      r.g[j] = log_total;
      continue;
    }
    // Back to canonical form: K = inverse covariance, h = K mean.
    std::vector<double> l(covariance.begin() + static_cast<std::ptrdiff_t>(j * n * n),
                          covariance.begin() + static_cast<std::ptrdiff_t>((j + 1) * n * n));
    cholesky(l, n);
    std::vector<double> column(n);
    for (std::size_t b = 0; b < n; ++b) {
      std::fill(column.begin(), column.end(), 0.0);
      column[b] = 1.0;
      cholesky_solve(l, n, column.data());
      for (std::size_t a = 0; a < n; ++a) r.k[(j * n + a) * n + b] = column[a];
    }
    double mh = 0.0;
    for (std::size_t a = 0; a < n; ++a) {
      double ha = 0.0;
      for (std::size_t b = 0; b < n; ++b) ha += r.k[(j * n + a) * n + b] * mean[j * n + b];
      r.h[j * n + a] = ha;
      mh += mean[j * n + a] * ha;
    }
    r.g[j] = log_total - 0.5 * (static_cast<double>(n) * log_two_pi + cholesky_log_det(l, n)) - 0.5 * mh;
  }
  return r;
}

CgPotential marginal(const CgPotential &p, const std::vector<Node *> &discrete, const std::vector<Node *> &continuous) {
  return sum_discrete(integrate(p, continuous), discrete);
}

// The table of a discrete chance node, each row scaled in double to sum
// to 1, as the engine normalises the float rows.
CgPotential discrete_factor(Node *node) {
  const Table *table = node_table(node);
  CgPotential p = unit_potential(std::vector<Node *>(table->nodes.begin(), table->nodes.end()), {});
  const std::size_t n = node->state_count;
  for (std::size_t row = 0; row < p.g.size(); row += n) {
    double total = 0.0;
    for (std::size_t i = row; i < row + n; ++i) total += table->data[i];
    for (std::size_t i = row; i < row + n; ++i) {
      const double x = table->data[i];
      p.g[i] = x > 0.0 ? std::log(x / total) : minus_infinity;
    }
  }
  return p;
}

// The table of a continuous chance node y with continuous parents x:
// exp(-(u'z - a)^2 / 2v) / sqrt(2 pi v) with z = (y, x) and u = (1, -b).
// Observed members of z are substituted into a.
CgPotential continuous_factor(Node *node) {
  const Table *table = node_table(node);
  const std::uint32_t d = table->discrete_count, c = table->continuous_count;
  std::vector<Node *> discrete(table->nodes.begin(), table->nodes.begin() + d), continuous;
  for (std::uint32_t i = 0; i < c; ++i)
    if (!observed(table->nodes[d + i])) continuous.push_back(table->nodes[d + i]);
  CgPotential p = unit_potential(std::move(discrete), std::move(continuous));
  const std::size_t n = p.n();
  std::vector<double> u;
  for (std::size_t config = 0; config < p.g.size(); ++config) {
    const double *cg = &table->cg_data[config * table->cg_stride];
    double a = cg[0];
    const double v = cg[1];
    if (!(v > 0.0)) throw CgFailure{ov_error_zero_variance};
    u.clear();
    for (std::uint32_t i = 0; i < c; ++i) {
      const double ui = i == 0 ? 1.0 : -cg[cg_entry_offset(i, 0)];
      const Node *member = table->nodes[d + i];
      if (observed(member))
        a -= ui * member->propagated_value;
      else
        u.push_back(ui);
    }
    p.g[config] = -0.5 * (a * a / v + log_two_pi + std::log(v));
    for (std::size_t i = 0; i < n; ++i) {
      p.h[config * n + i] = a * u[i] / v;
      for (std::size_t j = 0; j < n; ++j) p.k[(config * n + i) * n + j] = u[i] * u[j] / v;
    }
  }
  return p;
}

// The discrete and the unobserved continuous nodes that both cliques hold.
void shared_nodes(const Clique *a, const Clique *b, std::vector<Node *> &discrete, std::vector<Node *> &continuous) {
  for (Node *node : a->table->nodes) {
    if (!b->table->nodes.contains(node) || observed(node)) continue;
    (node->is_discrete() ? discrete : continuous).push_back(node);
  }
}

struct Solver {
  std::unordered_map<const Clique *, CgPotential> potential;
  std::unordered_map<const Clique *, CgPotential> message; // collect message of each clique to its parent

  void collect(Clique *clique, const Clique *parent) {
    for (const CliqueLink &link : clique->links) {
      if (link.neighbour == parent) continue;
      collect(link.neighbour, clique);
      std::vector<Node *> discrete, continuous;
      shared_nodes(link.neighbour, clique, discrete, continuous);
      CgPotential m = marginal(potential.at(link.neighbour), discrete, continuous);
      combine(potential.at(clique), m, 1.0);
      message.insert_or_assign(link.neighbour, std::move(m));
    }
  }

  void distribute(Clique *clique, const Clique *parent) {
    for (const CliqueLink &link : clique->links) {
      if (link.neighbour == parent) continue;
      std::vector<Node *> discrete, continuous;
      shared_nodes(link.neighbour, clique, discrete, continuous);
      CgPotential &child = potential.at(link.neighbour);
      combine(child, marginal(potential.at(clique), discrete, continuous), 1.0);
      combine(child, message.at(link.neighbour), -1.0);
      distribute(link.neighbour, clique);
    }
  }
};

// The potentials of the tree's cliques with its node tables and
// propagated findings; `fixed`, when given, replaces each discrete node's
// finding by its state there.
Solver prepare(JunctionTree *tree, const std::unordered_map<const Node *, std::uint32_t> *fixed) {
  Solver solver;
  for (Clique *clique : tree->cliques) {
    std::vector<Node *> discrete, continuous;
    shared_nodes(clique, clique, discrete, continuous);
    solver.potential.emplace(clique, unit_potential(std::move(discrete), std::move(continuous)));
  }
  for (Node *node : tree->members) {
    if (node->category != ov_category_chance) continue;
    const Table *table = node_table(node);
    Clique *home = home_of(tree->root, nullptr, std::vector<Node *>(table->nodes.begin(), table->nodes.end()));
    if (home == nullptr) throw CgFailure{ov_error_error};
    combine(solver.potential.at(home), node->is_discrete() ? discrete_factor(node) : continuous_factor(node), 1.0);
    if (!node->is_discrete()) continue;
    CgPotential finding = unit_potential({node}, {});
    if (fixed != nullptr) {
      for (std::uint32_t i = 0; i < node->state_count; ++i) finding.g[i] = i == fixed->at(node) ? 0.0 : minus_infinity;
    } else {
      const ov_number_t *f = node->propagated_finding->data.get();
      if (std::all_of(f, f + node->state_count, [](ov_number_t x) { return x == 1.0f; })) continue;
      for (std::uint32_t i = 0; i < node->state_count; ++i)
        finding.g[i] = f[i] > 0.0f ? std::log(static_cast<double>(f[i])) : minus_infinity;
    }
    combine(solver.potential.at(home_of(tree->root, nullptr, {node})), finding, 1.0);
  }
  return solver;
}

// Collect and distribute: every clique ends with its marginal. Returns the
// log density of the evidence; low_density (with continuous evidence) or
// inconsistency_or_underflow where it has none as a normal double.
double run(JunctionTree *tree, Solver &solver) {
  solver.collect(tree->root, nullptr);
  const double log_density = marginal(solver.potential.at(tree->root), {}, {}).g[0];
  const double density = std::exp(log_density);
  bool continuous_evidence = false;
  for (Node *node : tree->members) continuous_evidence = continuous_evidence || observed(node);
  if (!(density >= engine::smallest_normal))
    throw CgFailure{continuous_evidence ? ov_error_low_density : ov_error_inconsistency_or_underflow};
  if (!(density < engine::largest_finite)) throw CgFailure{ov_error_overflow};
  solver.distribute(tree->root, nullptr);
  return log_density;
}

void solve(JunctionTree *tree) {
  Solver solver = prepare(tree, nullptr);
  const double log_density = run(tree, solver);

  for (Node *node : tree->members) {
    if (node->category != ov_category_chance) continue;
    Table *belief = node->belief_table;
    if (observed(node)) {
      belief->data[0] = 1.0f;
      belief->cg_data[0] = node->propagated_value;
      belief->cg_data[1] = 0.0;
      continue;
    }
    const CgPotential &home = solver.potential.at(home_of(tree->root, nullptr, {node}));
    if (node->is_discrete()) {
      const CgPotential m = marginal(home, {node}, {});
      const double top = *std::max_element(m.g.begin(), m.g.end());
      double total = 0.0;
      for (double g : m.g) total += std::exp(g - top);
      for (std::uint32_t i = 0; i < node->state_count; ++i)
        belief->data[i] = static_cast<ov_number_t>(std::exp(m.g[i] - top) / total);
      continue;
    }
    const CgPotential m = integrate(home, {node});
    std::vector<Moments> parts(m.g.size());
    double top = minus_infinity, total = 0.0, mean = 0.0, variance = 0.0;
    for (std::size_t c = 0; c < m.g.size(); ++c) {
      parts[c] = moments(m, c);
      top = std::max(top, parts[c].log_weight);
    }
    for (const Moments &part : parts)
      if (part.log_weight != minus_infinity) {
        const double w = std::exp(part.log_weight - top);
        total += w;
        mean += w * part.mean[0];
      }
    mean /= total;
    for (const Moments &part : parts)
      if (part.log_weight != minus_infinity) {
        const double w = std::exp(part.log_weight - top) / total;
        variance += w * (part.covariance[0] + (part.mean[0] - mean) * (part.mean[0] - mean));
      }
    if (!std::isfinite(mean) || !std::isfinite(variance)) throw CgFailure{ov_error_rounding};
    belief->data[0] = 1.0f;
    belief->cg_data[0] = mean;
    belief->cg_data[1] = variance;
  }
  tree->total_constant = std::exp(log_density);
  tree->total_log_constant = log_density;
}

// Draws the clique's undrawn continuous members given its discrete
// configuration and the values drawn so far: substituted into the canonical
// form, which then gives the conditional mean and covariance.
void draw_continuous(const CgPotential &p, std::size_t c, std::unordered_map<const Node *, double> &values,
                     const std::function<double()> &standard_normal) {
  const std::size_t n = p.n();
  std::vector<std::size_t> free;
  for (std::size_t i = 0; i < n; ++i)
    if (!values.contains(p.continuous[i])) free.push_back(i);
  if (free.empty()) return;
  CgPotential q = unit_potential({}, {});
  for (std::size_t i : free) q.continuous.push_back(p.continuous[i]);
  const std::size_t m = free.size();
  q.h.assign(m, 0.0);
  q.k.assign(m * m, 0.0);
  for (std::size_t a = 0; a < m; ++a) {
    double h = p.h[c * n + free[a]];
    for (std::size_t j = 0; j < n; ++j)
      if (values.contains(p.continuous[j])) h -= p.k[(c * n + free[a]) * n + j] * values.at(p.continuous[j]);
    q.h[a] = h;
    for (std::size_t b = 0; b < m; ++b) q.k[a * m + b] = p.k[(c * n + free[a]) * n + free[b]];
  }
  const Moments moment = moments(q, 0);
  std::vector<double> l = moment.covariance;
  cholesky(l, m);
  std::vector<double> z(m);
  for (double &x : z) x = standard_normal();
  for (std::size_t a = 0; a < m; ++a) {
    double x = moment.mean[a];
    for (std::size_t b = 0; b <= a; ++b) x += l[a * m + b] * z[b];
    values[q.continuous[a]] = x;
  }
}

void draw(JunctionTree *tree, const std::function<std::uint32_t(const std::vector<double> &)> &choose,
          const std::function<double()> &standard_normal) {
  // The discrete nodes, clique by clique from the strong root, each in
  // proportion to its clique's discrete marginal given those drawn.
  Solver solver = prepare(tree, nullptr);
  run(tree, solver);
  std::unordered_map<const Node *, std::uint32_t> states;
  double probability = 1.0;
  std::vector<const Clique *> order;
  std::vector<std::pair<Clique *, const Clique *>> stack{{tree->root, nullptr}};
  while (!stack.empty()) {
    auto [clique, parent] = stack.back();
    stack.pop_back();
    order.push_back(clique);
    for (const CliqueLink &link : clique->links)
      if (link.neighbour != parent) stack.emplace_back(link.neighbour, clique);
    const CgPotential &p = solver.potential.at(clique);
    const CgPotential m = marginal(p, p.discrete, {});
    std::vector<double> weights(m.g.size(), 0.0);
    std::vector<std::uint32_t> digit(m.discrete.size(), 0);
    const double top = *std::max_element(m.g.begin(), m.g.end());
    double total = 0.0;
    for (std::size_t c = 0; c < m.g.size(); ++c) {
      bool agrees = true;
      for (std::size_t i = 0; i < digit.size(); ++i)
        if (states.contains(m.discrete[i]) && states.at(m.discrete[i]) != digit[i]) agrees = false;
      if (agrees && m.g[c] != minus_infinity) weights[c] = std::exp(m.g[c] - top);
      total += weights[c];
      for (std::size_t i = digit.size(); i-- > 0;) {
        if (++digit[i] < m.discrete[i]->state_count) break;
        digit[i] = 0;
      }
    }
    if (!(total > 0.0)) throw CgFailure{ov_error_inconsistency_or_underflow};
    std::size_t chosen = choose(weights);
    probability *= weights[chosen] / total;
    for (std::size_t i = m.discrete.size(); i-- > 0;) {
      states[m.discrete[i]] = static_cast<std::uint32_t>(chosen % m.discrete[i]->state_count);
      chosen /= m.discrete[i]->state_count;
    }
  }
  // The continuous nodes given all discrete ones: with those fixed every
  // clique holds one exact Gaussian, drawn in the same order.
  Solver fixed = prepare(tree, &states);
  run(tree, fixed);
  std::unordered_map<const Node *, double> values;
  for (Node *node : tree->members)
    if (observed(node)) values[node] = node->propagated_value;
  for (const Clique *clique : order) {
    const CgPotential &p = fixed.potential.at(clique);
    std::size_t c = 0;
    for (const Node *node : p.discrete) c = c * node->state_count + states.at(node);
    draw_continuous(p, c, values, standard_normal);
  }
  for (Node *node : tree->members) {
    if (node->category != ov_category_chance) continue;
    if (node->is_discrete()) {
      node->simulated_state = static_cast<std::int32_t>(states.at(node));
    } else {
      node->simulated_value = values.at(node);
      node->simulated_value_set = true;
    }
  }
  tree->probability_of_random_selection = probability;
}

} // namespace

ov_status_t solve_cg_tree(JunctionTree *tree) {
  try {
    solve(tree);
  } catch (const CgFailure &failure) {
    return fail(failure.code);
  }
  return set_error(ov_error_none);
}

Table *cg_node_distribution(Node *node) {
  JunctionTree *tree = node->junction_tree;
  Table *table = nullptr;
  try {
    Solver solver = prepare(tree, nullptr);
    run(tree, solver);
    const CgPotential m = integrate(solver.potential.at(home_of(tree->root, nullptr, {node})), {node});
    NodeList nodes;
    for (Node *member : m.discrete) nodes.push_back(member);
    nodes.push_back(node);
    table = table_new(tree->domain, nodes.data(), ov_table_kind_probability, role_returned, false, true);
    if (table == nullptr) return nullptr;
    std::vector<Moments> parts(m.g.size());
    double top = minus_infinity, total = 0.0;
    for (std::size_t c = 0; c < m.g.size(); ++c) {
      parts[c] = moments(m, c);
      top = std::max(top, parts[c].log_weight);
    }
    for (const Moments &part : parts) total += std::exp(part.log_weight - top);
    table->cg_roles[0] = cg_head;
    for (std::size_t c = 0; c < m.g.size(); ++c) {
      table->data[c] = static_cast<ov_number_t>(std::exp(parts[c].log_weight - top) / total);
      // A configuration of probability 0 has no distribution: mean and
      // variance 0.
      table->cg_data[c * 2] = parts[c].mean.empty() ? 0.0 : parts[c].mean[0];
      table->cg_data[c * 2 + 1] = parts[c].covariance.empty() ? 0.0 : parts[c].covariance[0];
    }
  } catch (const CgFailure &failure) {
    table_delete(table);
    return fail(failure.code), nullptr;
  } catch (const std::bad_alloc &) {
    table_delete(table);
    return fail(ov_error_no_memory), nullptr;
  }
  set_error(ov_error_none);
  return table_detach(table);
}

ov_status_t simulate_cg_tree(JunctionTree *tree,
                             const std::function<std::uint32_t(const std::vector<double> &)> &choose,
                             const std::function<double()> &standard_normal) {
  try {
    draw(tree, choose, standard_normal);
  } catch (const CgFailure &failure) {
    return fail(failure.code);
  } catch (const std::bad_alloc &) {
    return fail(ov_error_no_memory);
  }
  return set_error(ov_error_none);
}

} // namespace orvel
