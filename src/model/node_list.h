// The list form of the whole library: node pointers ended by a null entry.
//
// NodeList keeps the terminator behind its entries at all times, so data()
// can be handed to a caller as a null-terminated array and stays valid until
// the list is changed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "model/forward.h"

namespace orvel {

class NodeList {
public:
  NodeList() : items_(1, nullptr) {}
  // The entries of a null-terminated array; a null array gives an empty list.
  explicit NodeList(Node *const *array) : items_(1, nullptr) {
    if (array != nullptr)
      for (; *array != nullptr; ++array) push_back(*array);
  }

  std::uint32_t size() const noexcept { return static_cast<std::uint32_t>(items_.size() - 1); }
  bool empty() const noexcept { return items_.size() == 1; }
  Node *operator[](std::uint32_t i) const noexcept { return items_[i]; }
  Node *&operator[](std::uint32_t i) noexcept { return items_[i]; }
  Node *const *begin() const noexcept { return items_.data(); }
  Node *const *end() const noexcept { return items_.data() + size(); }
  Node **begin() noexcept { return items_.data(); }
  Node **end() noexcept { return items_.data() + size(); }
  // The null-terminated array.
  Node **data() noexcept { return items_.data(); }
  Node *const *data() const noexcept { return items_.data(); }
  Node *back() const noexcept { return items_[size() - 1]; }

  // Room for one more entry, so that a following push_back cannot throw.
  void reserve_one() { items_.reserve(items_.size() + 1); }
  void reserve(std::uint32_t count) { items_.reserve(static_cast<std::size_t>(count) + 1); }
  void push_back(Node *node) { items_.insert(items_.end() - 1, node); }
  void push_front(Node *node) { items_.insert(items_.begin(), node); }
  void insert(std::uint32_t position, Node *node) { items_.insert(items_.begin() + position, node); }
  void erase_at(std::uint32_t position) noexcept { items_.erase(items_.begin() + position); }
  // Removes the first occurrence of a node; false if it was absent.
  bool remove(const Node *node) noexcept {
    std::int64_t i = index_of(node);
    if (i < 0) return false;
    erase_at(static_cast<std::uint32_t>(i));
    return true;
  }
  void clear() noexcept { items_.assign(1, nullptr); }

  // The position of a node, or -1 if it is null or absent.
  std::int64_t index_of(const Node *node) const noexcept {
    if (node == nullptr) return -1;
    auto it = std::find(items_.begin(), items_.end() - 1, node);
    return it == items_.end() - 1 ? -1 : it - items_.begin();
  }
  bool contains(const Node *node) const noexcept { return index_of(node) >= 0; }

  friend bool operator==(const NodeList &a, const NodeList &b) noexcept { return a.items_ == b.items_; }

private:
  std::vector<Node *> items_;
};

// Operations on null-terminated arrays, the form in which lists cross the
// public interface. A null array reads as an empty list throughout.

// The number of entries.
std::uint32_t node_list_length(Node *const *list) noexcept;
// The position of a node, or -1 if the list or the node is null or the node
// is absent.
std::int64_t node_list_index(Node *const *list, const Node *node) noexcept;
inline bool node_list_contains(Node *const *list, const Node *node) noexcept {
  return node_list_index(list, node) >= 0;
}
// Whether every entry of `part` stands in `whole`; an empty `part` is a
// subset of anything.
bool node_list_subset(Node *const *part, Node *const *whole) noexcept;
// The same entries in the same order.
bool node_list_equal(Node *const *a, Node *const *b) noexcept;
// Whether no entry has a non-zero mark.
bool node_list_all_unmarked(Node *const *list) noexcept;
// Zeroes the mark of each entry.
void node_list_clear_marks(Node *const *list) noexcept;

} // namespace orvel
