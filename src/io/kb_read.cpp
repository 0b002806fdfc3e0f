// The KB reader. Nodes and plain tables are made from their records; the
// junction forest is made again from the stored elimination order by the
// same stages that made it before, skipping the search for an order, and
// then checked against the stored cliques and trees.
#include <algorithm>
#include <memory>

#include <zlib.h>

#include "api/error.h"
#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/forest.h"
#include "compile/triangulate.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "inference/evidence.h"
#include "io/kb_files.h"
#include "io/kb_format.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

namespace {

// A table record: the plain ones become tables of the domain; the others
// belong to the forest and are only compared with the one made again.
struct TableRecord {
  NodeList nodes;
  std::int32_t role = 0;
  Table *table = nullptr; // plain tables
};

struct Finding {
  Node *node;
  std::uint32_t kind; // 1 to 3 for a discrete node; 4 a value
  std::uint32_t state = 0;
  float weight = 1.0f;
  std::vector<float> likelihood;
  double value = 0.0;
};

struct PendingComponent {
  NodeList members;
  std::vector<std::uint32_t> tables;
};

struct KbReader {
  KbIn in;
  Domain *domain;
  const char *password;
  std::uint32_t version = 0;
  std::uint32_t node_count = 0, table_count = 0, plan_count = 0, clique_count = 0, tree_count = 0;
  std::uint32_t compressed = 0, state = 0;
  std::vector<Node *> nodes;
  std::vector<TableRecord> tables;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> cliques; // the two table refs
  std::vector<std::uint32_t> tree_roots;
  std::vector<std::uint32_t> elimination;
  std::vector<NodeList> children;
  std::vector<Finding> findings;
  std::vector<PendingComponent> components;

  bool format() noexcept { return in.fail_with(ov_error_format); }
  bool failed_code(ov_status_t code) noexcept {
    if (code == ov_error_none) return true;
    if (!in.failed) set_error(static_cast<unsigned>(code));
    in.failed = true;
    return false;
  }
  // A ref within 0..limit, with 0 refused unless `may_be_zero`.
  bool ref(std::uint32_t &value, std::uint32_t limit, bool may_be_zero) noexcept {
    if (!in.count(value)) return false;
    if (value > limit || (value == 0 && !may_be_zero)) return format();
    return true;
  }
  bool node_ref_list(NodeList &list) {
    std::uint32_t n = 0;
    if (!in.count(n) || !in.has(n, 1)) return false;
    for (std::uint32_t i = 0; i < n; ++i) {
      std::uint32_t r = 0;
      if (!ref(r, node_count, false)) return false;
      list.push_back(nodes[r - 1]);
    }
    return true;
  }
  template <class Set> bool attributes(Set &&set) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (;;) {
      std::string key, value;
      bool has_key = false, has_value = false;
      if (!in.string(key, has_key)) return false;
      if (!has_key) break;
      if (!in.string(value, has_value)) return false;
      if (!has_value) return format();
      pairs.emplace_back(std::move(key), std::move(value));
    }
    // The list was written newest first: the oldest is set first.
    for (auto it = pairs.rbegin(); it != pairs.rend(); ++it)
      if (!failed_code(set(it->first.c_str(), it->second.c_str()))) return false;
    return true;
  }

  // A link that the graph refuses (a cycle, a kind of parent the node may
  // not have, a node twice) is bad data.
  bool link_parent(Node *child, Node *parent) {
    const ov_status_t code = add_parent(child, parent);
    return code == ov_error_none || code == ov_error_no_memory ? failed_code(code) : format();
  }
  bool header();
  bool node_record();
  bool password_block();
  bool table_record();
  bool plans();
  bool chain_components();
  bool forest_records();
  bool expression(ExpressionPtr &result, std::uint32_t depth);
  bool node_links(std::uint32_t index);
  bool clique_links();
  bool finish();
};

bool KbReader::header() {
  std::uint32_t b[10] = {};
  for (int i = 0; i < 5; ++i)
    if (!in.byte(b[i])) return false;
  if (b[0] != kb_magic_1 || b[1] != kb_magic_2) return in.fail_with(ov_error_bad_file);
  version = b[2];
  if (version < static_cast<std::uint32_t>(kb_oldest_version) ||
      version > static_cast<std::uint32_t>(kb_password_version))
    return in.fail_with(ov_error_bad_version);
  if (b[3] != 1 && b[3] != 2) return format();
  in.swap = static_cast<int>(b[3]) != kb_native_order();
  if (b[4] != 4) return format();
  std::uint32_t width = 0;
  if (!in.count(width)) return false;
  if (width != 4 && width != 8) return format();
  in.number_width = width;
  for (int i = 5; i < 9; ++i)
    if (!in.byte(b[i])) return false;
  if (b[5] != 8 || b[6] != 1 || b[7] != 2 || b[8] != 4) return format();
  if (!in.count(node_count) || !in.count(table_count) || !in.count(plan_count) || !in.count(clique_count) ||
      !in.count(tree_count) || !in.byte_upto(compressed, 1) || !in.byte_upto(state, 2))
    return false;
  // Every record takes at least one byte: larger counts cannot be honest.
  for (std::uint32_t c : {node_count, table_count, plan_count, clique_count, tree_count})
    if (!in.has(c, 1)) return false;
  if (compressed != 0) return failed_code(fail(ov_error_compressed));
  std::uint32_t width_px = 0, height_px = 0;
  if (!in.count(width_px) || !in.count(height_px)) return false;
  domain->node_width = static_cast<int>(width_px);
  domain->node_height = static_cast<int>(height_px);
  return attributes([&](const char *k, const char *v) { return attribute_set(domain->attributes, k, v, false); });
}

bool KbReader::node_record() {
  std::uint32_t category = 0, kind = 0;
  if (!in.byte(category) || !in.byte(kind)) return false;
  if (category < ov_category_chance || category > ov_category_utility || kind > ov_kind_continuous) return format();
  Node *node =
      node_create(domain, static_cast<ov_category_t>(category), static_cast<ov_kind_t>(kind), ov_subtype_label, false);
  if (node == nullptr) return ov_error_code() == ov_error_usage ? format() : failed_code(ov_error_code());
  nodes.push_back(node);
  std::string name, label;
  bool has_name = false, has_label = false;
  if (!in.string(name, has_name) || !in.string(label, has_label)) return false;
  if (has_name) {
    // A name that is not a name, or one that another node holds, is bad data.
    const ov_status_t code = node_set_name(node, name.c_str());
    if (code == ov_error_invalid_name || code == ov_error_twice || code == ov_error_usage) return format();
    if (!failed_code(code)) return false;
  }
  node->label = label;
  if (!in.integer32(node->position_x) || !in.integer32(node->position_y)) return false;
  if (!attributes([&](const char *k, const char *v) { return attribute_set(node->attributes, k, v, false); }))
    return false;
  if (category == ov_category_utility) return true;
  if (kind == ov_kind_continuous) {
    std::uint32_t has_value = 0;
    if (!in.byte_upto(has_value, 1)) return false;
    if (has_value == 1) {
      Finding f{node, 4, 0, 1.0f, {}, 0.0};
      if (!in.real(f.value)) return false;
      findings.push_back(std::move(f));
    }
    return true;
  }
  std::uint32_t states = 0, subtype = 0, has_labels = 0, has_values = 0, finding = 0;
  if (!in.count(states)) return false;
  if (states == 0 || !in.has(states, 1)) return format();
  if (!failed_code(set_number_of_states(node, states))) return false;
  if (!in.byte(subtype)) return false;
  if (subtype < ov_subtype_label || subtype > ov_subtype_interval) return format();
  node_set_subtype(node, static_cast<ov_subtype_t>(subtype));
  if (!in.byte_upto(has_labels, 1)) return false;
  if (has_labels == 1) {
    auto labels = std::make_shared<StateLabels>(states);
    for (auto &entry : *labels) {
      std::string text;
      bool present = false;
      if (!in.string(text, present)) return false;
      if (present) entry = std::move(text);
    }
    node->state_labels = std::move(labels);
  }
  if (!in.byte_upto(has_values, 1)) return false;
  if (has_values == 1) {
    if (!in.has(std::uint64_t{states} + 1, 8)) return false;
    auto values = std::make_shared<StateValues>(states + 1);
    if (!in.items(values->data(), 8, states + 1)) return false;
    node->state_values = std::move(values);
  }
  if (!in.byte_upto(finding, 3)) return false;
  if (finding == 0) return true;
  Finding f{node, finding, 0, 1.0f, {}, 0.0};
  if (finding <= 2) {
    if (!in.count(f.state)) return false;
    if (f.state >= states) return format();
    if (finding == 2 && !in.number(f.weight)) return false;
  } else {
    if (!in.has(states, in.number_width)) return false;
    f.likelihood.resize(states);
    for (float &v : f.likelihood)
      if (!in.number(v)) return false;
  }
  findings.push_back(std::move(f));
  return true;
}

bool KbReader::password_block() {
  std::uint32_t n = 0;
  if (!in.count(n) || !in.has(n, 1)) return false;
  std::vector<std::uint8_t> block(in.at, in.at + n);
  in.at += n;
  if (password == nullptr || n != 16 || kb_password_block(password, block.data()) != block)
    return in.fail_with(ov_error_invalid_password);
  return true;
}

bool KbReader::table_record() {
  TableRecord record;
  std::uint32_t n = 0, value_kind = 0, role = 0;
  if (!in.count(n) || !in.has(n, 1)) return false;
  for (std::uint32_t i = 0; i < n; ++i) {
    std::uint32_t r = 0;
    if (!ref(r, node_count, false)) return false;
    record.nodes.push_back(nodes[r - 1]);
  }
  if (!in.byte_upto(value_kind, 3) || !in.byte_upto(role, 5)) return false;
  record.role = static_cast<std::int32_t>(role);
  if (role == role_plain) {
    Table *table =
        table_new(domain, record.nodes.data(), static_cast<std::int32_t>(value_kind), role_plain, false, false);
    if (table == nullptr) return ov_error_code() == ov_error_usage ? format() : failed_code(ov_error_code());
    record.table = table;
    // The data must be there before it is allocated.
    if (table->size == size_overflow || !in.has(table->size, in.number_width) ||
        !in.has(size_multiply(table->size, table->cg_stride), in.number_width) || !in.has(table->continuous_count, 1))
      return in.failed ? false : format();
    if (!failed_code(table_allocate(table))) return false;
    for (Size i = 0; i < table->size; ++i)
      if (!in.number(table->data[i])) return false;
    for (Size i = 0; i < table->size * table->cg_stride; ++i) {
      float v = 0.0f;
      if (!in.number(v)) return false;
      table->cg_data[i] = v;
    }
    for (std::uint32_t i = 0; i < table->continuous_count; ++i) {
      std::uint32_t r = 0;
      if (!in.byte_upto(r, cg_unset)) return false;
      table->cg_roles[i] = static_cast<std::int8_t>(r);
    }
  }
  tables.push_back(std::move(record));
  return true;
}

bool KbReader::plans() {
  for (std::uint32_t i = 0; i < plan_count; ++i) {
    std::uint32_t r[4] = {};
    for (auto &value : r)
      if (!ref(value, table_count, true)) return false;
    if ((r[0] == 0 && r[1] == 0) || (r[2] == 0 && r[3] == 0)) return format();
  }
  return true;
}

bool KbReader::chain_components() {
  for (;;) {
    std::uint32_t more = 0;
    if (!in.byte_upto(more, 1)) return false;
    if (more == 0) return true;
    PendingComponent component;
    if (!node_ref_list(component.members)) return false;
    std::uint32_t n = 0;
    if (!in.count(n) || !in.has(n, 1)) return false;
    for (std::uint32_t i = 0; i < n; ++i) {
      std::uint32_t r = 0;
      if (!ref(r, table_count, false)) return false;
      if (tables[r - 1].table == nullptr) return format();
      component.tables.push_back(r);
    }
    if (state == 2) {
      std::uint32_t r = 0;
      if (!ref(r, table_count, false) || !ref(r, plan_count, false)) return false;
      for (std::uint32_t i = 0; i < component.members.size(); ++i)
        if (!ref(r, plan_count, false)) return false;
    }
    for (const auto &other : components)
      for (Node *member : component.members)
        if (std::find(other.members.begin(), other.members.end(), member) != other.members.end()) return format();
    components.push_back(std::move(component));
  }
}

bool KbReader::forest_records() {
  if (state != 2) return true;
  for (std::uint32_t i = 0; i < clique_count; ++i) {
    std::uint32_t a = 0, b = 0;
    if (!ref(a, table_count, true) || !ref(b, table_count, true)) return false;
    if (a == 0 && b == 0) return format();
    cliques.emplace_back(a, b);
  }
  for (std::uint32_t i = 0; i < tree_count; ++i) {
    std::uint32_t root = 0;
    if (!ref(root, clique_count, false)) return false;
    tree_roots.push_back(root);
  }
  return true;
}

bool KbReader::expression(ExpressionPtr &result, std::uint32_t depth) {
  std::uint32_t code = 0;
  if (!in.byte(code)) return false;
  if (code == 0) return true;
  const int op = kb_operator_from_byte(static_cast<int>(version), code);
  if (op == 0 || depth > expression_height_limit) return format();
  Expression *made = nullptr;
  if (op == ov_op_number) {
    double value = 0.0;
    if (!in.real(value)) return false;
    made = number_expression(value);
  } else if (op == ov_op_label) {
    std::string text;
    bool present = false;
    if (!in.string(text, present)) return false;
    if (!present) return format();
    made = label_expression(text.c_str());
  } else if (op == ov_op_node) {
    std::uint32_t r = 0;
    if (!ref(r, node_count, false)) return false;
    made = node_expression(nodes[r - 1]);
  } else if (op == ov_op_boolean) {
    std::uint32_t value = 0;
    if (!in.byte_upto(value, 1)) return false;
    made = boolean_expression(static_cast<int>(value));
  } else {
    std::uint32_t n = 0;
    if (!in.count(n) || !in.has(n, 1)) return false;
    std::vector<ExpressionPtr> operands(n);
    for (auto &operand : operands) {
      if (!expression(operand, depth + 1)) return false;
      if (!operand) return format();
    }
    Buffer<Expression *> array = alloc_array<Expression *>(Size{n} + 1);
    if (!array) return failed_code(fail(ov_error_no_memory));
    for (std::uint32_t i = 0; i < n; ++i) array[i] = operands[i].get();
    array[n] = nullptr;
    made = expression_new(op, array);
    if (made == nullptr) {
      const ov_error_t code_now = ov_error_code();
      return code_now == ov_error_no_memory ? failed_code(code_now) : format();
    }
    // The operands now belong to the new tree.
    for (auto &operand : operands) static_cast<void>(operand.release());
    result.reset(made);
    return true;
  }
  if (made == nullptr) return failed_code(ov_error_code());
  result.reset(made);
  return true;
}

// The table at `r` if it is a plain table that no node owns, for `node`.
bool take_table(KbReader &r, std::uint32_t serial, Table *&slot, Node *node) {
  if (serial == 0) return true;
  Table *table = r.tables[serial - 1].table;
  if (table == nullptr || table->owner != nullptr) return r.format();
  table->owner = node;
  slot = table;
  return true;
}

bool same_nodes(const NodeList &a, const NodeList &b) {
  if (a.size() != b.size()) return false;
  for (Node *node : a)
    if (std::find(b.begin(), b.end(), node) == b.end()) return false;
  return true;
}

bool KbReader::node_links(std::uint32_t index) {
  Node *node = nodes[index];
  NodeList parents;
  if (!node_ref_list(parents) || !node_ref_list(children[index])) return false;
  // add_parent puts a discrete parent first and a continuous one last.
  for (auto it = parents.end(); it != parents.begin();) {
    Node *parent = *--it;
    if (parent->is_discrete() && !link_parent(node, parent)) return false;
  }
  for (Node *parent : parents)
    if (!parent->is_discrete() && !link_parent(node, parent)) return false;
  if (node->parents.size() != parents.size() || !std::equal(parents.begin(), parents.end(), node->parents.begin()))
    return format();
  const bool chance = node->category == ov_category_chance;
  const bool decision = node->category == ov_category_decision;
  const bool utility = node->category == ov_category_utility;
  const bool discrete_chance = chance && node->is_discrete();
  std::uint32_t r = 0;
  if (chance || utility) {
    // A node gets its table at first need, and a compile needs it.
    if (!ref(r, table_count, state != 2) || !take_table(*this, r, node->table, node)) return false;
    if (node->table != nullptr) {
      // The family, in an order that a node's table may take.
      node->table = nullptr;
      Table *stored = tables[r - 1].table;
      stored->owner = nullptr;
      Table *canonical = node_table(node);
      if (canonical == nullptr) return failed_code(ov_error_code());
      canonical->owner = nullptr;
      node->table = nullptr;
      const bool fits = canonical->value_kind == stored->value_kind && same_nodes(canonical->nodes, stored->nodes);
      table_delete(canonical);
      stored->owner = node;
      node->table = stored;
      if (!fits || !table_reorder_is_valid(stored, stored->nodes.data())) return format();
    }
  }
  if (discrete_chance) {
    NodeList family;
    for (Node *parent : node->parents)
      if (parent->is_discrete()) family.push_back(parent);
    family.push_back(node);
    for (Table **slot : {&node->experience_table, &node->fading_table}) {
      if (!ref(r, table_count, true) || !take_table(*this, r, *slot, node)) return false;
      if (*slot != nullptr && !same_nodes((*slot)->nodes, family)) {
        NodeList parents_only;
        for (Node *parent : node->parents)
          if (parent->is_discrete()) parents_only.push_back(parent);
        if (!same_nodes((*slot)->nodes, parents_only)) return format();
      }
    }
  }
  if (discrete_chance || utility) {
    std::uint32_t has_model = 0;
    if (!in.byte_upto(has_model, 1)) return false;
    if (has_model == 1) {
      NodeList model_nodes;
      if (!node_ref_list(model_nodes)) return false;
      if (!valid_model_nodes(node, model_nodes.data())) return format();
      // One byte at least for each expression, before the slots are made.
      Size slots = 1;
      for (const Node *m : model_nodes) slots = size_multiply(slots, m->state_count);
      if (!in.has(slots, 1)) return false;
      Model *model = model_create(node, model_nodes.data());
      if (model == nullptr || !failed_code(model_make_array(model))) return failed_code(ov_error_code());
      for (Size i = 0; i < model->size; ++i) {
        ExpressionPtr e;
        if (!expression(e, 1)) return false;
        if (e) {
          const ov_status_t code = model_set_expression(model, static_cast<std::int64_t>(i), e.get());
          if (code == ov_error_invalid_expression) return format();
          if (!failed_code(code)) return false;
        }
      }
      if (version >= 7) {
        std::uint32_t stale = 0;
        if (!in.count(model->samples_per_interval) || !in.byte_upto(stale, 1)) return false;
        if (model->samples_per_interval == 0) return format();
        model->table_is_stale = static_cast<int>(stale);
      }
    }
  }
  if (state >= 1) {
    if (!in.count(elimination[index])) return false;
    if (elimination[index] == 0 || elimination[index] > node_count) return format();
  }
  if (state < 2) return true;
  if (!ref(r, tree_count, false)) return false;
  if (chance || utility) {
    if (!ref(r, plan_count, true)) return false;
  }
  if (chance || decision) {
    if (!ref(r, table_count, true) || !ref(r, plan_count, false)) return false;
  }
  if (discrete_chance || decision) {
    if (!ref(r, table_count, false) || !ref(r, plan_count, false) || !ref(r, clique_count, false)) return false;
  }
  return true;
}

bool KbReader::clique_links() {
  if (state != 2) return true;
  for (std::uint32_t i = 0; i < clique_count; ++i)
    for (;;) {
      std::uint32_t other = 0, plan = 0;
      if (!ref(other, clique_count, true)) return false;
      if (other == 0) break;
      if (!ref(plan, plan_count, false)) return false;
    }
  return true;
}

// Makes the triangulation and the forest again and enters the findings.
bool KbReader::finish() {
  // The children lists, as stored.
  for (std::uint32_t i = 0; i < node_count; ++i) {
    if (!same_nodes(children[i], nodes[i]->children)) return format();
    nodes[i]->children = children[i];
  }
  for (auto &component : components) {
    for (std::uint32_t serial : component.tables) {
      Table *table = tables[serial - 1].table;
      if (table->owner != nullptr) return format();
      std::uint32_t child_count = 0;
      for (Node *node : table->nodes)
        if (std::find(component.members.begin(), component.members.end(), node) != component.members.end())
          ++child_count;
      const ov_status_t code = domain_add_chain_potential(domain, table, child_count);
      if (code == ov_error_usage || code == ov_error_cyclic_network) return format();
      if (!failed_code(code)) return false;
    }
  }
  if (state >= 1) {
    std::vector<Node *> order;
    for (Node *node : nodes)
      if (in_moral_graph(node)) order.push_back(node);
    std::sort(order.begin(), order.end(),
              [&](Node *a, Node *b) { return elimination[a->number - 1] > elimination[b->number - 1]; });
    order.push_back(nullptr);
    const ov_status_t code = domain_triangulate_with_order(domain, order.data());
    if (code == ov_error_enumeration || code == ov_error_usage || code == ov_error_cyclic_network) return format();
    if (!failed_code(code)) return false;
    for (std::uint32_t i = 0; i < node_count; ++i)
      if (nodes[i]->elimination_number != elimination[i]) return format();
  }
  if (state == 2) {
    // The cliques as they were made, in the order of their tables, so that
    // ordering them and joining them into trees goes as it went before.
    std::vector<std::uint32_t> made_order(clique_count);
    for (std::uint32_t i = 0; i < clique_count; ++i) made_order[i] = i;
    const auto serial_of = [&](std::uint32_t i) {
      return cliques[i].first != 0 ? cliques[i].first : cliques[i].second;
    };
    std::sort(made_order.begin(), made_order.end(),
              [&](std::uint32_t a, std::uint32_t b) { return serial_of(a) < serial_of(b); });
    // They must be the cliques of the triangulation: made from it once to
    // compare, then released again with the triangulation kept.
    const auto node_numbers = [](const NodeList &list) {
      std::vector<std::uint32_t> numbers;
      for (const Node *node : list) numbers.push_back(node->number);
      std::sort(numbers.begin(), numbers.end());
      return numbers;
    };
    if (!failed_code(build_cliques(domain))) return false;
    std::vector<std::vector<std::uint32_t>> expected, stored;
    for (auto &clique : domain->forest->cliques) expected.push_back(node_numbers(clique->table->nodes));
    release_forest(domain, false);
    for (std::uint32_t i = 0; i < clique_count; ++i) stored.push_back(node_numbers(tables[serial_of(i) - 1].nodes));
    std::sort(expected.begin(), expected.end());
    std::sort(stored.begin(), stored.end());
    if (expected != stored) return format();
    std::vector<std::unique_ptr<Clique>> made;
    for (std::uint32_t i : made_order) {
      const TableRecord &record = tables[serial_of(i) - 1];
      if (record.role != role_clique || record.nodes.empty()) return format();
      Table *table = table_new(domain, record.nodes.data(), ov_table_kind_probability, role_clique, false, false);
      if (table == nullptr) return ov_error_code() == ov_error_usage ? format() : failed_code(ov_error_code());
      std::unique_ptr<Clique> clique = clique_new(domain, table);
      if (!clique) return failed_code(ov_error_code());
      made.push_back(std::move(clique));
    }
    install_cliques(domain, std::move(made));
    const ov_status_t code = domain_compile_with_progress(domain, nullptr);
    if (code == ov_error_no_memory) return failed_code(code);
    if (code == ov_error_none) {
      // The forest made again must be the stored one.
      const CompiledForest &forest = *domain->forest;
      if (forest.cliques.size() != clique_count || forest.junction_trees.size() != tree_count ||
          forest.kernel_plans.size() != plan_count)
        return format();
      for (std::uint32_t i = 0; i < clique_count; ++i) {
        const std::uint32_t serial = cliques[i].first != 0 ? cliques[i].first : cliques[i].second;
        if (!same_nodes(forest.cliques[i]->table->nodes, tables[serial - 1].nodes)) return format();
      }
      for (std::uint32_t i = 0; i < tree_count; ++i)
        if (forest.junction_trees[i]->root->position + 1 != tree_roots[i]) return format();
    } else {
      release_forest(domain, false);
    }
  }
  for (const Finding &f : findings) {
    ov_status_t code = ov_error_none;
    if (f.kind == 4) {
      code = node_enter_value(f.node, f.value);
    } else if (f.kind <= 2) {
      code = node_select_state(f.node, f.state);
      if (code == ov_error_none && f.kind == 2) code = node_enter_finding(f.node, f.state, f.weight);
    } else {
      for (std::uint32_t s = 0; code == ov_error_none && s < f.likelihood.size(); ++s)
        code = node_enter_finding(f.node, s, f.likelihood[s]);
    }
    if (code == ov_error_usage || code == ov_error_cg_evidence_incorporated) return format();
    if (!failed_code(code)) return false;
  }
  return true;
}

Domain *read_domain(KbReader &r) {
  if (!r.header()) return nullptr;
  r.nodes.reserve(r.node_count);
  for (std::uint32_t i = 0; i < r.node_count; ++i)
    if (!r.node_record()) return nullptr;
  if (r.version == static_cast<std::uint32_t>(kb_password_version) && !r.password_block()) return nullptr;
  for (std::uint32_t i = 0; i < r.table_count; ++i)
    if (!r.table_record()) return nullptr;
  if (r.state == 2 && !r.plans()) return nullptr;
  if (!r.chain_components() || !r.forest_records()) return nullptr;
  r.elimination.assign(r.node_count, 0);
  r.children.resize(r.node_count);
  for (std::uint32_t i = 0; i < r.node_count; ++i)
    if (!r.node_links(i)) return nullptr;
  if (!r.clique_links()) return nullptr;
  if (r.in.at != r.in.end) {
    r.format();
    return nullptr;
  }
  if (!r.finish()) return nullptr;
  return r.domain;
}

} // namespace

Domain *kb_read_bytes(const std::uint8_t *bytes, std::size_t size, const char *password) {
  Domain *domain = new ov_domain_s;
  KbReader r{KbIn{bytes, bytes + size}, domain, password, 0, 0, 0, 0, 0, 0, 0, 0, {}, {}, {}, {}, {}, {}, {}, {}};
  Domain *result = nullptr;
  try {
    result = read_domain(r);
  } catch (const std::bad_alloc &) {
    r.failed_code(fail(ov_error_no_memory));
  }
  if (result == nullptr) {
    const ov_error_t code = ov_error_code();
    domain_delete(domain);
    set_error(code == ov_error_none ? ov_error_format : code);
    return nullptr;
  }
  set_error(ov_error_none);
  return result;
}

Domain *kb_load_file(const char *file_name, const char *password) {
  gzFile file = gzopen(file_name, "rb");
  if (file == nullptr) {
    set_error(ov_error_io);
    return nullptr;
  }
  std::vector<std::uint8_t> bytes;
  bool ok = true;
  for (;;) {
    const std::size_t at = bytes.size();
    bytes.resize(at + (1u << 16));
    const int got = gzread(file, bytes.data() + at, 1u << 16);
    if (got < 0) ok = false;
    bytes.resize(at + static_cast<std::size_t>(std::max(got, 0)));
    if (got <= 0) break;
  }
  if (gzclose(file) != Z_OK || !ok) {
    set_error(ov_error_io);
    return nullptr;
  }
  Domain *domain = kb_read_bytes(bytes.data(), bytes.size(), password);
  if (domain != nullptr) domain->file_name = file_name;
  return domain;
}

} // namespace orvel
