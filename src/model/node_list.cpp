#include "model/node_list.h"

#include "model/domain.h"
#include "model/node.h"

namespace orvel {

std::uint32_t node_list_length(Node *const *list) noexcept {
  std::uint32_t n = 0;
  if (list != nullptr)
    while (list[n] != nullptr) ++n;
  return n;
}

std::int64_t node_list_index(Node *const *list, const Node *node) noexcept {
  if (list == nullptr || node == nullptr) return -1;
  for (std::int64_t i = 0; list[i] != nullptr; ++i)
    if (list[i] == node) return i;
  return -1;
}

bool node_list_subset(Node *const *part, Node *const *whole) noexcept {
  if (part == nullptr) return true;
  for (; *part != nullptr; ++part)
    if (!node_list_contains(whole, *part)) return false;
  return true;
}

bool node_list_equal(Node *const *a, Node *const *b) noexcept {
  std::uint32_t n = node_list_length(a);
  if (n != node_list_length(b)) return false;
  for (std::uint32_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

bool node_list_all_unmarked(Node *const *list) noexcept {
  if (list == nullptr) return true;
  for (; *list != nullptr; ++list)
    if ((*list)->mark != 0) return false;
  return true;
}

void node_list_clear_marks(Node *const *list) noexcept {
  if (list == nullptr) return;
  for (; *list != nullptr; ++list) (*list)->mark = 0;
}

void node_list_insert_by_kind(NodeList &list, Node *node) {
  if (node->kind == ov_kind_discrete)
    list.push_front(node);
  else
    list.push_back(node);
}

bool node_list_is_set_of(Node *const *list, const Domain *domain) noexcept {
  if (list == nullptr) return true;
  bool ok = true;
  std::uint32_t n = 0;
  for (; list[n] != nullptr; ++n) {
    Node *node = list[n];
    if (node->home != domain || node->mark != 0) {
      ok = false;
      break;
    }
    node->mark = 1;
  }
  for (std::uint32_t i = 0; i < n; ++i) list[i]->mark = 0;
  return ok;
}

bool node_list_is_set_of(const NodeList &list, const Domain *domain) noexcept {
  return node_list_is_set_of(list.data(), domain);
}

} // namespace orvel
