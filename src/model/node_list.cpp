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
