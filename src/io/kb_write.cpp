// The KB writer: a domain, its triangulation, its junction forest and its
// findings in the decompressed form of a KB file, then through gzip.
#include <random>

#include <zlib.h>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "io/kb_files.h"
#include "io/kb_format.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

namespace {

struct KbWriter {
  Domain *domain;
  KbOut out;
  // Serial in the file of each table of the domain, by its own serial;
  // tables handed to the caller are not written.
  std::vector<std::uint32_t> table_serials;
  bool compiled = false;

  std::uint32_t table_ref(const Table *table) const noexcept {
    return table == nullptr ? 0 : table_serials[table->serial];
  }
  static std::uint32_t plan_ref(const KernelPlan *plan) noexcept { return plan == nullptr ? 0 : plan->serial; }
  static std::uint32_t clique_ref(const Clique *clique) noexcept {
    return clique == nullptr ? 0 : clique->position + 1;
  }
  void node_refs(const NodeList &nodes) {
    out.count(nodes.size());
    for (const Node *node : nodes) out.count(node->number);
  }
  void attributes(const AttributeList &list) {
    for (const Attribute *a = list.first.get(); a != nullptr; a = a->next.get()) {
      out.string(a->key);
      out.string(a->value);
    }
    out.null_string();
  }
  // The tables in the order of the file: the plain ones first, then those
  // of the forest, each in list order. Node tables made at first need by a
  // compile stand among the forest's on the list; in the file they stand
  // where a reader makes them.
  std::vector<const Table *> written_tables() const {
    std::vector<const Table *> list;
    for (auto &table : domain->tables)
      if (table->role == role_plain) list.push_back(table.get());
    for (auto &table : domain->tables)
      if (table->role != role_plain && table->role != role_returned) list.push_back(table.get());
    return list;
  }
  void header(int version, int state);
  void node_record(const Node *node);
  void table_record(const Table *table);
  void expression(const Expression *expression);
  void node_links(Node *node, int state);
};

void KbWriter::header(int version, int state) {
  out.byte(kb_magic_1);
  out.byte(kb_magic_2);
  out.byte(static_cast<std::uint32_t>(version));
  out.byte(out.swap ? (kb_native_order() == 2 ? 1 : 2) : kb_native_order());
  out.byte(4);
  out.count(sizeof(ov_number_t));
  out.byte(8);
  out.byte(1);
  out.byte(2);
  out.byte(4);
  const CompiledForest &forest = *domain->forest;
  out.count(domain->node_count());
  std::uint32_t tables = 0;
  for (const Table *table : written_tables()) table_serials[table->serial] = ++tables;
  out.count(tables);
  out.count(compiled ? static_cast<std::uint32_t>(forest.kernel_plans.size()) : 0);
  out.count(compiled ? static_cast<std::uint32_t>(forest.cliques.size()) : 0);
  out.count(compiled ? static_cast<std::uint32_t>(forest.junction_trees.size()) : 0);
  out.byte(compiled && forest.compressed != 0 ? 1 : 0);
  out.byte(static_cast<std::uint32_t>(state));
  out.count(static_cast<std::uint32_t>(domain->node_width));
  out.count(static_cast<std::uint32_t>(domain->node_height));
  attributes(domain->attributes);
}

void KbWriter::node_record(const Node *node) {
  out.byte(node->category);
  out.byte(node->kind);
  if (node->name)
    out.string(*node->name);
  else
    out.null_string();
  out.string(node->label);
  out.integer32(node->position_x);
  out.integer32(node->position_y);
  attributes(node->attributes);
  if (node->category != ov_category_chance && node->category != ov_category_decision) return;
  if (!node->is_discrete()) {
    out.byte(node->value_entered ? 1 : 0);
    if (node->value_entered) out.real(node->entered_value);
    return;
  }
  out.count(node->state_count);
  out.byte(node->subtype);
  out.byte(node->state_labels ? 1 : 0);
  if (node->state_labels)
    for (const auto &label : *node->state_labels) {
      if (label)
        out.string(*label);
      else
        out.null_string();
    }
  out.byte(node->state_values ? 1 : 0);
  if (node->state_values) out.items(node->state_values->data(), 8, node->state_count + 1);
  if (!node->has_entered_finding || node->entered_finding.size() != node->state_count) {
    out.byte(0);
    return;
  }
  // One state with a weight, the others zero, is a selection; anything
  // else is a likelihood.
  std::uint32_t nonzero = 0, state = 0;
  for (std::uint32_t s = 0; s < node->state_count; ++s)
    if (node->entered_finding[s] != 0.0f) ++nonzero, state = s;
  if (nonzero == 1) {
    const float weight = node->entered_finding[state];
    out.byte(weight == 1.0f ? 1 : 2);
    out.count(state);
    if (weight != 1.0f) out.number(weight);
  } else {
    out.byte(3);
    out.items(node->entered_finding.data(), 4, node->state_count);
  }
}

void KbWriter::table_record(const Table *table) {
  node_refs(table->nodes);
  out.byte(static_cast<std::uint32_t>(table->value_kind));
  out.byte(static_cast<std::uint32_t>(table->role));
  if (domain->forest->compressed != 0 && (table->role == role_clique || table->role == role_separator))
    out.count(static_cast<std::uint32_t>(table->size));
  if (table->role != role_plain) return;
  // An unallocated table holds the contents of a fresh one.
  if (table->data) {
    out.items(table->data.get(), 4, table->size);
  } else {
    const float fill = table->value_kind == ov_table_kind_utility ? 0.0f : 1.0f;
    for (Size i = 0; i < table->size; ++i) out.number(fill);
  }
  const Size cg = table->size * table->cg_stride;
  for (Size i = 0; i < cg; ++i) out.number(table->cg_data ? static_cast<float>(table->cg_data[i]) : 0.0f);
  for (std::uint32_t i = 0; i < table->continuous_count; ++i)
    out.byte(table->cg_roles ? static_cast<std::uint32_t>(table->cg_roles[i]) : std::uint32_t{cg_unset});
}

void KbWriter::expression(const Expression *e) {
  if (e == nullptr) {
    out.byte(0);
    return;
  }
  out.byte(static_cast<std::uint32_t>(e->operator_code));
  switch (e->operator_code) {
  case ov_op_number: out.real(e->value.number); break;
  case ov_op_label: out.string(e->value.label, std::strlen(e->value.label)); break;
  case ov_op_node: out.count(e->value.node->number); break;
  case ov_op_boolean: out.byte(e->value.boolean != 0 ? 1 : 0); break;
  default: {
    const std::uint32_t n = operand_count(e);
    out.count(n);
    for (std::uint32_t i = 0; i < n; ++i) expression(e->value.operands[i]);
  }
  }
}

void KbWriter::node_links(Node *node, int state) {
  node_refs(node->parents);
  node_refs(node->children);
  const bool chance = node->category == ov_category_chance;
  const bool decision = node->category == ov_category_decision;
  const bool utility = node->category == ov_category_utility;
  const bool discrete_chance = chance && node->is_discrete();
  if (chance || utility) out.count(table_ref(node->table));
  if (discrete_chance) {
    out.count(table_ref(node->experience_table));
    out.count(table_ref(node->fading_table));
  }
  if (discrete_chance || utility) {
    Model *model = node->model.get();
    out.byte(model != nullptr ? 1 : 0);
    if (model != nullptr) {
      node_refs(model->nodes);
      if (model_make_array(model) != ov_error_none) throw std::bad_alloc();
      for (Size i = 0; i < model->size; ++i) expression(model->expressions[i]);
      out.count(model->samples_per_interval);
      out.byte(model->table_is_stale != 0 ? 1 : 0);
    }
  }
  if (state >= 1) out.count(node->elimination_number);
  if (state < 2) return;
  out.count(node->junction_tree == nullptr ? 0 : node->junction_tree->position + 1);
  if (chance || utility) out.count(plan_ref(node->table_plan));
  if (chance) out.count(table_ref(node->belief_table));
  if (decision) out.count(table_ref(node->belief_table));
  if (chance || decision) out.count(plan_ref(node->marginal_plan));
  if (discrete_chance || decision) {
    out.count(table_ref(node->propagated_finding));
    out.count(plan_ref(node->finding_plan));
    out.count(clique_ref(node->finding_clique));
  }
}

} // namespace

ov_status_t kb_write_bytes(Domain *domain, const char *password, int byte_order, std::vector<std::uint8_t> &bytes) {
  if (domain->is_class()) return fail(ov_error_usage);
  // The index maps of a compressed forest are not written yet.
  if (domain_is_compiled(domain) && domain->forest->compressed != 0) return fail(ov_error_compressed);
  KbWriter w{domain, KbOut{bytes, byte_order != kb_native_order()}, {}, domain_is_compiled(domain)};
  w.table_serials.assign(domain->tables.size() + 1, 0);
  const int state = w.compiled ? 2 : domain_is_triangulated(domain) ? 1 : 0;
  const int version = password != nullptr ? kb_password_version : kb_plain_version;
  w.header(version, state);
  for (auto &node : domain->nodes) w.node_record(node.get());
  if (password != nullptr) {
    std::uint8_t salt[8];
    std::random_device device;
    for (auto &b : salt) b = static_cast<std::uint8_t>(device());
    const auto block = kb_password_block(password, salt);
    w.out.count(static_cast<std::uint32_t>(block.size()));
    w.out.items(block.data(), 1, block.size());
  }
  for (const Table *table : w.written_tables()) w.table_record(table);
  const CompiledForest &forest = *domain->forest;
  if (w.compiled) {
    for (auto &plan : forest.kernel_plans) {
      w.out.count(w.table_ref(plan->source));
      w.out.count(w.table_ref(plan->source_utility));
      w.out.count(w.table_ref(plan->target));
      w.out.count(w.table_ref(plan->target_utility));
    }
  }
  for (auto &component : domain->chain_components) {
    w.out.byte(1);
    w.node_refs(component->members);
    w.out.count(static_cast<std::uint32_t>(component->potentials.size()));
    for (const Table *table : component->potentials) w.out.count(w.table_ref(table));
    if (w.compiled) {
      // The normaliser and its plan; each member is normalised through it.
      w.out.count(w.table_ref(component->normalizer));
      w.out.count(w.plan_ref(component->normalizer_plan));
      for (std::uint32_t i = 0; i < component->members.size(); ++i) w.out.count(w.plan_ref(component->normalizer_plan));
    }
  }
  w.out.byte(0);
  if (w.compiled) {
    for (auto &clique : forest.cliques) {
      w.out.count(w.table_ref(clique->table));
      w.out.count(w.table_ref(clique->utility_table));
    }
    for (auto &tree : forest.junction_trees) w.out.count(w.clique_ref(tree->root));
  }
  for (auto &node : domain->nodes) w.node_links(node.get(), state);
  if (w.compiled)
    for (auto &clique : forest.cliques) {
      for (const CliqueLink &link : clique->links) {
        w.out.count(w.clique_ref(link.neighbour));
        w.out.count(w.plan_ref(link.plan));
      }
      w.out.count(0);
    }
  return set_error(ov_error_none);
}

ov_status_t kb_save_file(Domain *domain, const char *file_name, const char *password, int byte_order) {
  std::vector<std::uint8_t> bytes;
  if (kb_write_bytes(domain, password, byte_order, bytes) != ov_error_none) return ov_error_code();
  gzFile file = gzopen(file_name, "wb9");
  if (file == nullptr) return fail(ov_error_io);
  bool ok = true;
  for (std::size_t at = 0; ok && at < bytes.size();) {
    const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(bytes.size() - at, 1u << 30));
    ok = gzwrite(file, bytes.data() + at, chunk) == static_cast<int>(chunk);
    at += chunk;
  }
  if (gzclose(file) != Z_OK || !ok) return fail(ov_error_io);
  domain->file_name = file_name;
  return set_error(ov_error_none);
}

} // namespace orvel
