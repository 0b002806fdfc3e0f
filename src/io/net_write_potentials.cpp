// Potential blocks of NET output: tables, models and learning data.
#include "io/net_write_pieces.h"

#include "expr/expression.h"
#include "expr/model.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel::writer {

namespace {

ov_status_t write_model(Writer &w, const Model *model) {
  OV_WRITE_CHECK(w, write_name_list(w, "model_nodes", model->nodes.data()));
  if (model->samples_per_interval != 25)
    w.print("%ssamples_per_interval = %s;\n", w.inner, format_count(w.domain, model->samples_per_interval));
  if (model->expressions.get() == nullptr) return w.status();
  w.print("%smodel_data", w.inner);
  if (model->size < 2)
    w.put(" = ( ");
  else
    w.put(w.is_class ? "  = ( " : "\n\t    = ( ");
  for (Size i = 0; i < model->size; ++i) {
    if (i > 0) w.print(",\n%s\t", w.table_indent);
    if (const Expression *expression = model->expressions[i]) {
      CString text = expression_to_string(expression);
      if (!text) return ov_error_code();
      w.put(text.get());
    }
  }
  w.put(" );\n");
  return w.status();
}

// An experience or fading table.
ov_status_t write_learning_table(Writer &w, const char *key, const Table *table) {
  w.print("%s%s", w.inner, key);
  if (!table_is_simple(table)) w.print("\n%s    ", w.outer);
  w.put(" = ");
  return write_table(w, table);
}

} // namespace

ov_status_t write_potential(Writer &w, Node *node) {
  const char *name = name_of(node);
  if (name == nullptr) return ov_error_code();
  w.print("\n%spotential (%s", w.outer, name);
  const NodeList &parents = node->table != nullptr ? node->table->nodes : node->parents;
  bool bar = false;
  for (Node *parent : parents) {
    if (parent == node) continue;
    const char *parent_name = name_of(parent);
    if (parent_name == nullptr) return ov_error_code();
    if (!bar) w.put(" |");
    bar = true;
    w.print(" %s", parent_name);
  }
  w.put(")");
  const Model *model = node->model.get();
  if (node->category == ov_category_decision || (node->table == nullptr && model == nullptr)) {
    w.put(" {}\n");
    return w.status();
  }
  w.print("\n%s{\n", w.outer);
  if (model != nullptr) OV_WRITE_CHECK(w, write_model(w, model));
  if (node->table != nullptr && !(model != nullptr && model->table_is_stale)) {
    w.print("%sdata", w.inner);
    if (!w.is_class && !table_is_simple(node->table)) w.print("\n%s", w.table_indent);
    w.put(" = ");
    OV_WRITE_CHECK(w, write_table(w, node->table));
  }
  if (node->experience_table != nullptr)
    OV_WRITE_CHECK(w, write_learning_table(w, "experience", node->experience_table));
  if (node->fading_table != nullptr) OV_WRITE_CHECK(w, write_learning_table(w, "fading", node->fading_table));
  w.print("%s}\n", w.outer);
  return w.status();
}

// The potentials of a chain component: each names the members of the
// component it holds as children and the other nodes as parents.
ov_status_t write_chain_potentials(Writer &w, const ChainComponent &component) {
  for (const Table *table : component.potentials) {
    std::uint32_t first = 0;
    while (first < table->nodes.size() && table->nodes[first]->chain_component != &component) ++first;
    w.print("\n%spotential (", w.outer);
    for (std::uint32_t i = first; i < table->nodes.size(); ++i) {
      const char *name = name_of(table->nodes[i]);
      if (name == nullptr) return ov_error_code();
      w.print(i > first ? " %s" : "%s", name);
    }
    if (first > 0) w.put(" |");
    for (std::uint32_t i = 0; i < first; ++i) {
      const char *name = name_of(table->nodes[i]);
      if (name == nullptr) return ov_error_code();
      w.print(" %s", name);
    }
    w.print(")\n%s{\n%sdata = ", w.outer, w.inner);
    OV_WRITE_CHECK(w, write_table(w, table));
    w.print("%s}\n", w.outer);
  }
  return w.status();
}

} // namespace orvel::writer
