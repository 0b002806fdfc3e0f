// Reshaping tables when the graph changes: widening by a node, narrowing by
// a node, resizing a node's dimension, and conditional normalisation.
//
// All reshaping runs in place over whole state slices. Growing extends the
// arrays with realloc and spreads the blocks from the back; shrinking moves
// blocks down from the front and gives memory back with mem_shrink, which
// cannot fail, so that making a table smaller never costs an allocation.
#include <algorithm>
#include <cstring>
#include <new>

#include "api/error.h"
#include "model/domain.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

namespace {

// Configurations of the discrete nodes of `table` ahead of position `at`
// (a) and behind it (b).
void block_extent(const Table *table, std::uint32_t at, Size &a, Size &b) noexcept {
  a = 1;
  for (std::uint32_t i = 0; i < at; ++i) a = size_multiply(a, table->nodes[i]->state_count);
  b = 1;
  for (std::uint32_t i = at + 1; i < table->discrete_count; ++i) b = size_multiply(b, table->nodes[i]->state_count);
}

// Extends an array to `count` elements, keeping its contents. On failure
// the array is untouched and no_memory is recorded.
template <class T> bool grow_buffer(Buffer<T> &buffer, Size count) noexcept {
  T *grown = static_cast<T *>(mem_realloc(buffer.get(), size_multiply(static_cast<Size>(sizeof(T)), count)));
  if (grown == nullptr) return false;
  (void)buffer.release();
  buffer.reset(grown);
  return true;
}

// Gives back the memory behind the first `count` elements; cannot fail.
template <class T> void shrink_buffer(Buffer<T> &buffer, Size count) noexcept {
  buffer.reset(static_cast<T *>(mem_shrink(buffer.release(), static_cast<Size>(sizeof(T) * count))));
}

// The array holds `blocks` blocks of `old_states` state slices of `slice`
// elements, and has room for `new_states` slices per block. Spreads the
// blocks to their new places, from the last to the first, and fills each
// new state with a copy of the block's state 0 slice.
template <class T>
void spread_states(T *data, Size blocks, Size old_states, Size new_states, std::size_t slice) noexcept {
  const std::size_t old_block = old_states * slice, new_block = new_states * slice;
  for (Size block = blocks; block-- > 0;) {
    T *from = data + block * old_block;
    T *to = data + block * new_block;
    // The new slices lie behind the old block, on memory already moved.
    for (Size state = old_states; state < new_states; ++state) std::memcpy(to + state * slice, from, slice * sizeof(T));
    std::memmove(to, from, old_block * sizeof(T));
  }
}

// Keeps the first `new_states` slices of each block, moving the blocks down
// from the first to the last.
template <class T>
void gather_states(T *data, Size blocks, Size old_states, Size new_states, std::size_t slice) noexcept {
  const std::size_t old_block = old_states * slice, new_block = new_states * slice;
  for (Size block = 1; block < blocks; ++block)
    std::memmove(data + block * new_block, data + block * old_block, new_block * sizeof(T));
}

// Changes the extent of a discrete dimension whose blocks are described by
// a and b, from k to count states, for a table with data.
ov_status_t reshape_dimension(Table *table, Size a, Size b, Size k, Size count) noexcept {
  const Size old_size = table->size;
  const Size new_size = size_multiply(size_multiply(a, b), count);
  const std::uint32_t w = table->cg_stride;
  if (count > k) {
    if (!grow_buffer(table->data, new_size)) return ov_error_no_memory;
    if (table->cg_data && !grow_buffer(table->cg_data, size_multiply(new_size, w))) {
      shrink_buffer(table->data, old_size);
      return ov_error_no_memory;
    }
    spread_states(table->data.get(), a, k, count, b);
    if (table->cg_data) spread_states(table->cg_data.get(), a, k, count, static_cast<std::size_t>(b) * w);
  } else {
    gather_states(table->data.get(), a, k, count, b);
    shrink_buffer(table->data, new_size);
    if (table->cg_data) {
      gather_states(table->cg_data.get(), a, k, count, static_cast<std::size_t>(b) * w);
      shrink_buffer(table->cg_data, new_size * w);
    }
  }
  table->size = new_size;
  return ov_error_none;
}

// Whether room for one more node can be made in the table's list.
bool reserve_node(Table *table) noexcept {
  try {
    table->nodes.reserve_one();
    return true;
  } catch (const std::bad_alloc &) {
    return false;
  }
}

ov_status_t add_discrete_node(Table *table, Node *node) noexcept {
  const Size count = node->state_count;
  if (table->data && count > 1) {
    // The new node is the slowest dimension: one block, the old contents as
    // its state 0 slice.
    ov_status_t status = reshape_dimension(table, 1, table->size, 1, count);
    if (status != ov_error_none) return fail(static_cast<ov_error_t>(status));
  } else {
    table->size = size_multiply(count, table->size);
  }
  table->nodes.push_front(node);
  ++table->discrete_count;
  return set_error(ov_error_none);
}

ov_status_t add_continuous_node(Table *table, Node *node) noexcept {
  const std::uint32_t c = table->continuous_count;
  const std::uint32_t w = table->cg_stride, new_w = cg_stride_for(c + 1);
  // A larger role array than needed is harmless if a later step fails.
  if (!grow_buffer(table->cg_roles, c + 1)) return ov_error_no_memory;
  if (table->data) {
    if (!grow_buffer(table->cg_data, size_multiply(table->size, new_w))) return ov_error_no_memory;
    // Each configuration's entries keep their offsets; the new node's row
    // comes last and starts at 0.0. From the back, so the move runs in place.
    double *cg = table->cg_data.get();
    for (Size cell = table->size; cell-- > 0;) {
      double *to = cg + static_cast<std::size_t>(cell) * new_w;
      if (w > 0) std::memmove(to, cg + static_cast<std::size_t>(cell) * w, sizeof(double) * w);
      std::fill(to + w, to + new_w, 0.0);
    }
  }
  table->cg_roles[c] = cg_unset;
  table->cg_stride = new_w;
  table->nodes.push_back(node);
  ++table->continuous_count;
  return set_error(ov_error_none);
}

} // namespace

ov_status_t table_add_node(Table *table, Node *node) noexcept {
  if (table == nullptr || node == nullptr || node->home != table->domain) return fail(ov_error_usage);
  if (table->nodes.contains(node)) return set_error(ov_error_none);
  if (!reserve_node(table)) return fail(ov_error_no_memory);
  return node->is_discrete() ? add_discrete_node(table, node) : add_continuous_node(table, node);
}

ov_status_t table_remove_node(Table *table, Node *node) noexcept {
  if (table == nullptr || node == nullptr) return fail(ov_error_usage);
  const std::int64_t position = table->nodes.index_of(node);
  if (position < 0) return set_error(ov_error_none);
  const std::uint32_t at = static_cast<std::uint32_t>(position);

  if (at < table->discrete_count) {
    Size a, b;
    block_extent(table, at, a, b);
    if (table->data) {
      const Size k = table->size / size_multiply(a, b);
      reshape_dimension(table, a, b, k, 1); // shrinking: cannot fail
    } else {
      table->size = size_multiply(a, b);
    }
    table->nodes.erase_at(at);
    --table->discrete_count;
    return set_error(ov_error_none);
  }

  // Continuous: close up the row and column of node r in every configuration.
  const std::uint32_t c = table->continuous_count;
  const std::uint32_t r = at - table->discrete_count;
  const std::uint32_t w = table->cg_stride, new_w = cg_stride_for(c - 1);
  if (table->cg_data) {
    double *cg = table->cg_data.get();
    for (Size cell = 0; cell < table->size; ++cell) {
      const double *from = cg + static_cast<std::size_t>(cell) * w;
      double *to = cg + static_cast<std::size_t>(cell) * new_w;
      // Entries are read and written in increasing offset, and no write
      // lands ahead of the read that feeds it.
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
      shrink_buffer(table->cg_data, table->size * new_w);
  }
  for (std::uint32_t i = r; i + 1 < c; ++i) table->cg_roles[i] = table->cg_roles[i + 1];
  if (c == 1)
    table->cg_roles.reset();
  else
    shrink_buffer(table->cg_roles, c - 1);
  table->cg_stride = new_w;
  table->nodes.erase_at(at);
  --table->continuous_count;
  return set_error(ov_error_none);
}

ov_status_t table_resize_node(Table *table, Node *node, std::uint32_t count) noexcept {
  if (table == nullptr || node == nullptr || count == 0 || !node->is_discrete()) return fail(ov_error_usage);
  const std::int64_t position = table->nodes.index_of(node);
  if (position < 0) return set_error(ov_error_none);
  Size a, b;
  block_extent(table, static_cast<std::uint32_t>(position), a, b);
  const Size other = size_multiply(a, b);
  const Size new_size = size_multiply(other, count);
  if (new_size == table->size) return set_error(ov_error_none);
  if (table->size == size_overflow || !table->data) {
    // No data can exist: only the size changes.
    table->size = new_size;
    return set_error(ov_error_none);
  }
  const Size k = table->size / other;
  ov_status_t status = reshape_dimension(table, a, b, k, count);
  return status == ov_error_none ? set_error(ov_error_none) : fail(static_cast<ov_error_t>(status));
}

ov_status_t table_normalize_conditional(Table *table, bool strict) noexcept {
  if (table == nullptr) return fail(ov_error_usage);
  if (table_allocate(table) != ov_error_none) return ov_error_code();
  ov_number_t *data = table->data.get();
  if (table->continuous_count > 0) {
    // The weights of a conditional Gaussian table carry no meaning yet.
    std::fill_n(data, table->size, 1.0f);
    return set_error(ov_error_none);
  }
  for (Size i = 0; i < table->size; ++i)
    if (data[i] < 0.0f) return fail(ov_error_negative_probability);
  const Size n = table->discrete_count > 0 ? table->nodes[table->discrete_count - 1]->state_count : 1;
  const Size runs = table->size / n;
  if (strict) {
    // Refuse before any change, so that a failure leaves the table as it was.
    for (Size run = 0; run < runs; ++run) {
      double sum = 0.0;
      for (Size i = 0; i < n; ++i) sum += data[run * n + i];
      if (!(sum > 0.0)) return fail(ov_error_zero_sum);
    }
  }
  for (Size run = 0; run < runs; ++run) {
    ov_number_t *cells = data + static_cast<std::size_t>(run) * n;
    double sum = 0.0;
    for (Size i = 0; i < n; ++i) sum += cells[i];
    if (sum > 0.0) {
      const double scale = 1.0 / sum;
      for (Size i = 0; i < n; ++i) cells[i] = static_cast<ov_number_t>(cells[i] * scale);
    } else {
      std::fill_n(cells, n, static_cast<ov_number_t>(1.0 / n));
    }
  }
  return set_error(ov_error_none);
}

} // namespace orvel
