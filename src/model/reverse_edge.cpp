// Reversing a link between two chance nodes so that the joint distribution
// of the network stays the same.
//
// With P the parent and C the child, the new table of C is the distribution
// of C given the parents of both, and the new table of P the distribution of
// P given C and the same parents. Both are computed on working copies of the
// two tables, so that a failure leaves the network as it was; only after
// the arithmetic has succeeded do the links and tables change.
//
// The discrete arithmetic (multiply a table into a finer one, marginalise a
// finer table onto a coarser one, divide by a coarser one) is written out
// here over the table layout with the same meaning as the general table
// kernels; each of the three helpers below can be replaced by its kernel.
#include <cstring>
#include <vector>

#include "api/error.h"
#include "expr/model.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

namespace {

// A working table on the domain's list, deleted unless it is released.
class WorkTable {
public:
  WorkTable() = default;
  WorkTable(const WorkTable &) = delete;
  WorkTable &operator=(const WorkTable &) = delete;
  ~WorkTable() { table_delete(table_); }

  Table *get() const noexcept { return table_; }
  explicit operator bool() const noexcept { return table_ != nullptr; }
  void reset(Table *table) noexcept {
    table_delete(table_);
    table_ = table;
  }
  Table *release() noexcept {
    Table *table = table_;
    table_ = nullptr;
    return table;
  }

private:
  Table *table_ = nullptr;
};

// Walks the configurations of `fine` in order and keeps the index of the
// matching configuration of `coarse`, whose discrete nodes all stand in
// `fine` (in any order).
class Projection {
public:
  Projection(const Table *fine, const Table *coarse)
      : stride_(fine->discrete_count, 0), count_(fine->discrete_count), digit_(fine->discrete_count, 0) {
    std::vector<Size> coarse_stride(coarse->discrete_count);
    Size stride = 1;
    for (std::uint32_t i = coarse->discrete_count; i-- > 0;) {
      coarse_stride[i] = stride;
      stride *= coarse->nodes[i]->state_count;
    }
    for (std::uint32_t i = 0; i < fine->discrete_count; ++i) {
      count_[i] = fine->nodes[i]->state_count;
      for (std::uint32_t j = 0; j < coarse->discrete_count; ++j)
        if (coarse->nodes[j] == fine->nodes[i]) stride_[i] = coarse_stride[j];
    }
  }

  Size index() const noexcept { return index_; }
  void next() noexcept {
    for (std::size_t i = digit_.size(); i-- > 0;) {
      if (++digit_[i] < count_[i]) {
        index_ += stride_[i];
        return;
      }
      digit_[i] = 0;
      index_ -= stride_[i] * (count_[i] - 1);
    }
  }

private:
  std::vector<Size> stride_, count_, digit_;
  Size index_ = 0;
};

// fine *= coarse.
void multiply_into(Table *fine, const Table *coarse) {
  Projection at(fine, coarse);
  ov_number_t *data = fine->data.get();
  const ov_number_t *factor = coarse->data.get();
  for (Size cell = 0; cell < fine->size; ++cell, at.next()) data[cell] *= factor[at.index()];
}

// coarse = the sum of fine over the nodes that coarse lacks.
void marginalize_onto(const Table *fine, Table *coarse) {
  std::vector<double> sums(coarse->size, 0.0);
  Projection at(fine, coarse);
  const ov_number_t *data = fine->data.get();
  for (Size cell = 0; cell < fine->size; ++cell, at.next()) sums[at.index()] += data[cell];
  for (Size cell = 0; cell < coarse->size; ++cell) coarse->data[cell] = static_cast<ov_number_t>(sums[cell]);
}

// fine /= coarse, with a quotient of 0 where the divisor is 0.
void divide_by(Table *fine, const Table *coarse) {
  Projection at(fine, coarse);
  ov_number_t *data = fine->data.get();
  const ov_number_t *divisor = coarse->data.get();
  for (Size cell = 0; cell < fine->size; ++cell, at.next()) {
    const ov_number_t d = divisor[at.index()];
    data[cell] = d == 0.0f ? 0.0f : data[cell] / d;
  }
}

// Widens a table by each node of a list; the error of the first failure.
ov_status_t widen(Table *table, const NodeList &nodes) noexcept {
  for (Node *node : nodes)
    if (table_add_node(table, node) != ov_error_none) return ov_error_code();
  return ov_error_none;
}

// Discrete reversal: tp and tc hold the normalised tables of P and C.
ov_status_t reverse_discrete(Table *tp, Table *tc, Node *p, Node *c) {
  // tp becomes the joint of P and C given the parents of both.
  if (widen(tp, c->parents) != ov_error_none || table_add_node(tp, c) != ov_error_none) return ov_error_code();
  multiply_into(tp, tc);
  // tc becomes the distribution of C given the parents of both: P summed out.
  table_remove_node(tc, p);
  if (widen(tc, p->parents) != ov_error_none) return ov_error_code();
  marginalize_onto(tp, tc);
  // tp becomes the distribution of P given C and the parents; runs of
  // probability 0 become uniform.
  divide_by(tp, tc);
  return table_normalize_conditional(tp, false);
}

// Continuous reversal, per discrete configuration, on the regression form
// of the two tables:
//   P = ap + sum bp_z z + e,         Var e = gp
//   C = ac + sum bc_z z + b P + f,   Var f = gc
// gives, with v = gc + b^2 gp and K = b gp / v (0 when v is 0),
//   C = ac + b ap + sum (bc_z + b bp_z) z + f',            Var f' = v
//   P = ap - K (ac + b ap) + sum (bp_z - K (bc_z + b bp_z)) z + K C + e',
//                                                           Var e' = gp gc / v
// which is the conditioning of the joint Gaussian of P and C on C.
ov_status_t reverse_continuous(Table *tp, Table *tc, Node *p, Node *c) {
  if (widen(tp, c->parents) != ov_error_none || table_add_node(tp, c) != ov_error_none) return ov_error_code();
  if (widen(tc, p->parents) != ov_error_none) return ov_error_code();

  // P is the first continuous node of tp, C the first of tc; the other
  // continuous nodes stand in both.
  struct Place {
    std::uint32_t in_p, in_c;
  };
  std::vector<Place> others;
  for (std::uint32_t i = 1; i < tp->continuous_count; ++i) {
    Node *node = tp->nodes[tp->discrete_count + i];
    if (node == c) continue;
    others.push_back({i, static_cast<std::uint32_t>(table_continuous_index(tc, node))});
  }
  const std::uint32_t c_in_p = static_cast<std::uint32_t>(table_continuous_index(tp, c));
  const std::uint32_t p_in_c = static_cast<std::uint32_t>(table_continuous_index(tc, p));
  const std::uint32_t wp = tp->cg_stride, wc = tc->cg_stride;

  Projection at(tp, tc);
  for (Size cell = 0; cell < tp->size; ++cell, at.next()) {
    double *rp = tp->cg_data.get() + static_cast<std::size_t>(cell) * wp;
    double *rc = tc->cg_data.get() + static_cast<std::size_t>(at.index()) * wc;
    const double ap = rp[cg_mean_offset(0)], gp = rp[cg_entry_offset(0, 0)];
    const double ac = rc[cg_mean_offset(0)], gc = rc[cg_entry_offset(0, 0)];
    const double b = rc[cg_entry_offset(p_in_c, 0)];
    const double v = gc + b * b * gp;
    const double gain = v > 0.0 ? b * gp / v : 0.0;
    const double new_ac = ac + b * ap;
    rc[cg_mean_offset(0)] = new_ac;
    rc[cg_entry_offset(0, 0)] = v;
    rc[cg_entry_offset(p_in_c, 0)] = 0.0;
    rp[cg_mean_offset(0)] = ap - gain * new_ac;
    rp[cg_entry_offset(0, 0)] = v > 0.0 ? gp * gc / v : gp;
    rp[cg_entry_offset(c_in_p, 0)] = gain;
    for (const Place &z : others) {
      const double bp = rp[cg_entry_offset(z.in_p, 0)];
      const double new_bc = rc[cg_entry_offset(z.in_c, 0)] + b * bp;
      rc[cg_entry_offset(z.in_c, 0)] = new_bc;
      rp[cg_entry_offset(z.in_p, 0)] = bp - gain * new_bc;
    }
  }
  table_remove_node(tc, p);
  // Each node is the head of its table, all others are its tails.
  for (Table *table : {tp, tc}) {
    table->cg_roles[0] = cg_head;
    for (std::uint32_t i = 1; i < table->continuous_count; ++i) table->cg_roles[i] = cg_tail;
  }
  return ov_error_none;
}

// A working copy of the node's table, normalised; a node without table
// gets a fresh one, which is taken over and so leaves the node without
// table for now.
ov_status_t take_working_table(Node *node, WorkTable &work) {
  if (node->table != nullptr) {
    work.reset(table_clone(node->table));
  } else {
    Table *fresh = node_table(node);
    if (fresh != nullptr) {
      node->table = nullptr;
      fresh->owner = nullptr;
    }
    work.reset(fresh);
  }
  if (!work) return ov_error_code();
  return table_normalize_conditional(work.get(), true);
}

// Gives the node the contents of a working table: swapped into the node's
// own table if it has one, else the working table becomes it.
void adopt_table(Node *node, WorkTable &work) noexcept {
  if (!work) return;
  if (node->table != nullptr) {
    table_swap_contents(node->table, work.get());
  } else {
    node->table = work.release();
    node->table->owner = node;
  }
}

// The links of the reversal. All list room is made first, so that a
// failure leaves every list as it was; the insertions cannot fail.
void relink(Node *p, Node *c) {
  const NodeList old_p_parents = p->parents, old_c_parents = c->parents;
  std::vector<Node *> to_p, to_c;
  for (Node *x : old_c_parents)
    if (x != p && !old_p_parents.contains(x)) to_p.push_back(x);
  for (Node *x : old_p_parents)
    if (!old_c_parents.contains(x)) to_c.push_back(x);
  p->parents.reserve(static_cast<std::uint32_t>(p->parents.size() + to_p.size() + 1));
  c->parents.reserve(static_cast<std::uint32_t>(c->parents.size() + to_c.size()));
  c->children.reserve(c->children.size() + 1);
  for (Node *x : to_p) x->children.reserve(x->children.size() + 1);
  for (Node *x : to_c) x->children.reserve(x->children.size() + 1);

  for (Node *x : to_p) {
    node_list_insert_by_kind(p->parents, x);
    node_list_insert_by_kind(x->children, p);
  }
  for (Node *x : to_c) {
    node_list_insert_by_kind(c->parents, x);
    node_list_insert_by_kind(x->children, c);
  }
  node_list_insert_by_kind(p->parents, c);
  node_list_insert_by_kind(c->children, p);
  c->parents.remove(p);
  p->children.remove(c);
}

// Models and learning data of a node lose their meaning with the change.
void forget_derived_data(Node *node) noexcept {
  if (node->model) {
    model_on_edge_reversed(node->model.get());
    node->model.reset();
  }
  table_delete(node->experience_table);
  node->experience_table = nullptr;
  table_delete(node->fading_table);
  node->fading_table = nullptr;
}

} // namespace

bool reversal_allowed(const Node *a, const Node *b) noexcept {
  if (a == nullptr || b == nullptr || a == b || a->home != b->home) return false;
  if (a->category != ov_category_chance || b->category != ov_category_chance || a->kind != b->kind) return false;
  if (a->chain_component != nullptr || b->chain_component != nullptr) return false;
  const bool a_to_b = b->parents.contains(a);
  if (!a_to_b && !a->parents.contains(b)) return false;
  // The parent is going to receive parents.
  const Node *parent = a_to_b ? a : b;
  return parent->master == nullptr && !parent->home->class_info.inputs.contains(parent);
}

ov_status_t reverse_edge(Node *a, Node *b) {
  if (!reversal_allowed(a, b)) return fail(ov_error_usage);
  const bool a_to_b = b->parents.contains(a);
  Node *p = a_to_b ? a : b;
  Node *c = a_to_b ? b : a;
  if (reaches_by_other_path(p, c)) return fail(ov_error_cyclic_network);

  WorkTable tp, tc;
  if (p->table != nullptr || c->table != nullptr) {
    if (take_working_table(c, tc) != ov_error_none) return ov_error_code();
    if (take_working_table(p, tp) != ov_error_none) return ov_error_code();
    const ov_status_t status =
        p->is_discrete() ? reverse_discrete(tp.get(), tc.get(), p, c) : reverse_continuous(tp.get(), tc.get(), p, c);
    if (status != ov_error_none) return fail(static_cast<ov_error_t>(status));
  }
  relink(p, c);
  adopt_table(p, tp);
  adopt_table(c, tc);
  forget_derived_data(p);
  forget_derived_data(c);
  domain_uncompile(p->home);
  return set_error(ov_error_none);
}

} // namespace orvel
