// Structural edits of a network and the table reshaping that goes with them.
#include <cstring>

#include "api/error.h"
#include "expr/model.h"
#include "model/domain.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

ov_status_t table_remove_node(Table *table, Node *node) noexcept {
  std::int64_t position = table->nodes.index_of(node);
  if (position < 0) return set_error(ov_error_none);
  const std::uint32_t at = static_cast<std::uint32_t>(position);
  const std::uint32_t w = table->cg_stride;
  if (node->is_discrete()) {
    // a: configurations of the nodes ahead, b: of those behind.
    Size b = 1;
    for (std::uint32_t i = at + 1; i < table->discrete_count; ++i) b = size_multiply(b, table->nodes[i]->state_count);
    Size a = 1;
    for (std::uint32_t i = 0; i < at; ++i) a = size_multiply(a, table->nodes[i]->state_count);
    Size new_size = size_multiply(a, b);
    if (table->data) {
      Size k = node->state_count;
      for (Size block = 0; block < a; ++block) {
        std::memmove(table->data.get() + static_cast<std::size_t>(block) * b,
                     table->data.get() + static_cast<std::size_t>(block) * k * b, sizeof(ov_number_t) * b);
        if (table->cg_data)
          std::memmove(table->cg_data.get() + static_cast<std::size_t>(block) * b * w,
                       table->cg_data.get() + static_cast<std::size_t>(block) * k * b * w, sizeof(double) * b * w);
      }
      table->data.reset(static_cast<ov_number_t *>(mem_shrink(table->data.release(), sizeof(ov_number_t) * new_size)));
      if (table->cg_data)
        table->cg_data.reset(
            static_cast<double *>(mem_shrink(table->cg_data.release(), static_cast<Size>(sizeof(double) * new_size * w))));
    }
    table->size = new_size;
    table->nodes.erase_at(at);
    --table->discrete_count;
    return set_error(ov_error_none);
  }
  // Continuous: close up the row and column of node r in every configuration.
  const std::uint32_t c = table->continuous_count;
  const std::uint32_t r = at - table->discrete_count;
  const std::uint32_t new_w = cg_stride_for(c - 1);
  if (table->cg_data) {
    double *cg = table->cg_data.get();
    for (Size cell = 0; cell < table->size; ++cell) {
      const double *from = cg + static_cast<std::size_t>(cell) * w;
      double *to = cg + static_cast<std::size_t>(cell) * new_w;
      // Entries are written in increasing offset, never ahead of the read.
      for (std::uint32_t i = 0, ni = 0; i < c; ++i) {
        if (i == r) continue;
        to[cg_mean_offset(ni)] = from[cg_mean_offset(i)];
        for (std::uint32_t j = 0, nj = 0; j <= i; ++j) {
          if (j == r) continue;
          to[cg_entry_offset(ni, nj)] = from[cg_entry_offset(i, j)];
          ++nj;
        }
        ++ni;
      }
    }
    if (new_w == 0)
      table->cg_data.reset();
    else
      table->cg_data.reset(
          static_cast<double *>(mem_shrink(table->cg_data.release(), static_cast<Size>(sizeof(double) * table->size * new_w))));
  }
  for (std::uint32_t i = r; i + 1 < c; ++i) table->cg_roles[i] = table->cg_roles[i + 1];
  if (c == 1) table->cg_roles.reset();
  table->cg_stride = new_w;
  table->nodes.erase_at(at);
  --table->continuous_count;
  return set_error(ov_error_none);
}

ov_status_t remove_parent(Node *child, Node *parent) {
  child->parents.remove(parent);
  parent->children.remove(child);
  for (Table *table : {child->table, child->experience_table, child->fading_table})
    if (table != nullptr) table_remove_node(table, parent);
  invalidate_model(child);
  domain_uncompile(child->home);
  return set_error(ov_error_none);
}

} // namespace orvel
