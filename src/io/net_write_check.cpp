// What NET text cannot hold. The parser reads an item name as an item
// wherever it is one, stores positions and node sizes as 32-bit floats and
// has no notation for a number that is not finite (nor, in the flat form of
// a probability table, for a negative one), so a domain that holds
// any of these would come back changed or not at all. The writer refuses
// such a domain with format before it prints anything.
#include <cmath>
#include <cstring>
#include <vector>

#include "api/error.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "io/net_writer.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

namespace {

bool one_of(const std::string &key, std::initializer_list<const char *> words) {
  for (const char *word : words)
    if (key == word) return true;
  return false;
}

// Keys that the parser takes for an item of the block that would hold the
// attribute.
bool key_is_item(const std::string &key, const Domain *scope, const Node *node) {
  if (node != nullptr) {
    if (one_of(key, {"label", "position"})) return true;
    return node->category != ov_category_instance && one_of(key, {"states", "subtype", "state_values"});
  }
  if (key == "node_size") return true;
  return scope->is_class() && one_of(key, {"inputs", "outputs", "class", "instance", "node", "decision", "utility",
                                           "potential", "continuous", "discrete"});
}

bool keys_read_back(const AttributeList &list, const Domain *scope, const Node *node) {
  for (const Attribute *a = list.first.get(); a != nullptr; a = a->next.get())
    if (key_is_item(a->key, scope, node)) return false;
  return true;
}

// A value that the parser reads as a 32-bit float and truncates.
bool float_exact(int value) { return static_cast<double>(static_cast<float>(value)) == static_cast<double>(value); }

// The numbers of a table as the writer prints them. A probability table
// over one discrete node is printed in the flat form, which takes no
// negative number (the nested form of larger tables only warns).
bool table_reads_back(const Table *table) {
  if (table == nullptr || table->data.get() == nullptr) return true;
  const bool flat =
      table->value_kind == ov_table_kind_probability && table->discrete_count == 1 && table->continuous_count == 0;
  for (Size i = 0; i < table->size; ++i)
    if (!std::isfinite(table->data[i]) || (flat && table->data[i] < 0.0f)) return false;
  if (table->continuous_count == 0 || table->cg_data.get() == nullptr) return true;
  for (Size i = 0; i < table->size; ++i) {
    const double *record = table->cg_data.get() + std::size_t{i} * table->cg_stride;
    if (!std::isfinite(record[0]) || !std::isfinite(record[1])) return false;
    for (std::uint32_t j = 1; j < table->continuous_count; ++j)
      if (!std::isfinite(record[cg_entry_offset(j, 0)])) return false;
  }
  return true;
}

// The number constants of a model's expressions (walked with a stack of
// our own: expressions may be as deep as the height limit).
bool model_is_finite(const Model *model) {
  if (model == nullptr || model->expressions.get() == nullptr) return true;
  std::vector<const Expression *> pending;
  for (Size i = 0; i < model->size; ++i)
    if (model->expressions[i] != nullptr) pending.push_back(model->expressions[i]);
  while (!pending.empty()) {
    const Expression *e = pending.back();
    pending.pop_back();
    if (e->operator_code == ov_op_number && !std::isfinite(e->value.number)) return false;
    if (is_composite_operator(e->operator_code))
      for (Expression *const *operand = e->value.operands; *operand != nullptr; ++operand) pending.push_back(*operand);
  }
  return true;
}

bool node_reads_back(const Domain *scope, const Node *node) {
  if (!keys_read_back(node->attributes, scope, node)) return false;
  if (!float_exact(node->position_x) || !float_exact(node->position_y)) return false;
  if (node->state_values)
    for (double value : *node->state_values)
      if (std::isnan(value)) return false;
  if (node->category == ov_category_instance) return true;
  const Model *model = node->model.get();
  const bool data_written = !(model != nullptr && model->table_is_stale);
  return (!data_written || table_reads_back(node->table)) && model_is_finite(model) &&
         table_reads_back(node->experience_table) && table_reads_back(node->fading_table);
}

} // namespace

ov_status_t check_writable(const Domain *domain) {
  bool good = keys_read_back(domain->attributes, domain, nullptr) && domain->node_width >= 0 &&
              domain->node_height >= 0 && float_exact(domain->node_width) && float_exact(domain->node_height);
  for (const auto &node : domain->nodes)
    if (good && node->master == nullptr) good = node_reads_back(domain, node.get());
  for (const auto &component : domain->chain_components)
    for (const Table *table : component->potentials)
      if (good) good = table_reads_back(table);
  return good ? set_error(ov_error_none) : fail(ov_error_format);
}

} // namespace orvel
