// The domain as a whole: lifetime and name lookup.
#include "model/domain.h"

#include <cstring>

#include "api/error.h"
#include "model/hooks.h"

namespace orvel {
constexpr std::uint32_t default_random_seed = 310952;
}

ov_domain_s::ov_domain_s()
    : forest(orvel::compiled_forest_new()), random(orvel::random_state_new(orvel::default_random_seed)) {}

ov_domain_s::~ov_domain_s() {
  // Nodes refer to tables and to each other only through borrowed pointers,
  // so the members can go in any order. Only the classes that this record's
  // instance nodes belong to hold pointers back into it.
  for (auto &node : nodes)
    if (node->category == ov_category_instance && node->instance_class != nullptr && node->instance_class != this)
      node->instance_class->class_info.instances.remove(node.get());
}

namespace orvel {

bool domain_is_triangulated(const Domain *domain) noexcept {
  const Node *first = domain->first_node();
  return first != nullptr && first->elimination_number != 0;
}

void domain_delete(Domain *domain) noexcept {
  domain_uncompile(domain);
  delete domain;
}

namespace {

bool is_prime(std::uint32_t n) noexcept {
  if (n < 2) return false;
  if (n % 2 == 0) return n == 2;
  for (std::uint32_t d = 3; d <= n / d; d += 2)
    if (n % d == 0) return false;
  return true;
}

std::uint32_t first_prime_from(std::uint32_t n) noexcept {
  while (!is_prime(n)) ++n;
  return n;
}

std::size_t name_hash(const char *name, std::size_t bucket_count) noexcept {
  std::size_t h = 0;
  for (const unsigned char *c = reinterpret_cast<const unsigned char *>(name); *c != 0; ++c)
    h = (*c + 2 * h) % bucket_count;
  return h;
}

void name_table_insert(NameTable &table, Node *node) {
  auto &bucket = table.buckets[name_hash(node->name->c_str(), table.buckets.size())];
  bucket.insert(bucket.begin(), node);
}

// Builds the table anew with the first prime not below the node count as
// its number of buckets. On failure no table is left.
void name_table_build(Domain *domain) noexcept {
  try {
    NameTable fresh;
    fresh.buckets.resize(first_prime_from(domain->node_count()));
    for (auto &node : domain->nodes)
      if (node->name) name_table_insert(fresh, node.get());
    domain->names = std::move(fresh);
  } catch (const std::bad_alloc &) {
    domain->names.buckets.clear();
    set_error(ov_error_no_memory);
  }
}

} // namespace

Node *domain_find_node(Domain *domain, const char *name) {
  std::uint32_t count = domain->node_count();
  NameTable &table = domain->names;
  if (table.buckets.empty() ? count > 10 : count > 2 * table.buckets.size()) name_table_build(domain);
  if (table.buckets.empty()) {
    for (auto &node : domain->nodes)
      if (node->name && *node->name == name) return node.get();
    return nullptr;
  }
  for (Node *node : table.buckets[name_hash(name, table.buckets.size())])
    if (*node->name == name) return node;
  return nullptr;
}

void name_table_remove(Domain *domain, Node *node) noexcept {
  NameTable &table = domain->names;
  if (table.buckets.empty() || !node->name) return;
  auto &bucket = table.buckets[name_hash(node->name->c_str(), table.buckets.size())];
  for (auto it = bucket.begin(); it != bucket.end(); ++it)
    if (*it == node) {
      bucket.erase(it);
      return;
    }
}

void name_table_rename(Domain *domain, Node *node, const std::optional<std::string> &old_name) noexcept {
  NameTable &table = domain->names;
  if (table.buckets.empty()) return;
  if (old_name) {
    auto &bucket = table.buckets[name_hash(old_name->c_str(), table.buckets.size())];
    for (auto it = bucket.begin(); it != bucket.end(); ++it)
      if (*it == node) {
        bucket.erase(it);
        break;
      }
  }
  try {
    name_table_insert(table, node);
  } catch (const std::bad_alloc &) {
    // Lookups scan the node list until a later lookup builds a table again.
    table.buckets.clear();
  }
}

} // namespace orvel
