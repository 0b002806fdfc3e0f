// The NET writer: the helpers every block shares, a whole domain or class, and collections.
#include "io/net_writer.h"

#include <cfloat>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "api/boundary.h"
#include "api/error.h"
#include "api/locale_guard.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "io/net_write_pieces.h"
#include "io/string_escape.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"
#include "table/table.h"

namespace orvel::writer {

// A state value or bound: eight significant digits, and the bounds of the
// double range as words.
void format_value(char *text, std::size_t size, double value) {
  if (value >= DBL_MAX)
    std::snprintf(text, size, "infinity");
  else if (value <= -DBL_MAX)
    std::snprintf(text, size, "-infinity");
  else
    std::snprintf(text, size, "%.8G", value);
}

// The name of a node, made if it has none; null with the code recorded.
const char *name_of(Node *node) { return node_get_name(node); }

ov_status_t write_attributes(Writer &w, const AttributeList &list, const char *indent) {
  for (const Attribute *a = list.first.get(); a != nullptr; a = a->next.get()) {
    w.print("%s%s = ", indent, a->key.c_str());
    w.quoted(a->value.c_str());
    w.put(";\n");
  }
  return w.status();
}

// "key = (a b c);" with the names of the nodes.
ov_status_t write_name_list(Writer &w, const char *key, Node *const *nodes) {
  w.print("%s%s = (", w.inner, key);
  for (Node *const *p = nodes; *p != nullptr; ++p) {
    const char *name = name_of(*p);
    if (name == nullptr) return ov_error_code();
    if (p != nodes) w.put(" ");
    w.put(name);
  }
  w.put(");\n");
  return w.status();
}

} // namespace orvel::writer

namespace orvel {
namespace {

using namespace writer;

// ---------------------------------------------------------------- the object

ov_status_t write_object(Domain *domain, std::FILE *stream) {
  Writer w;
  w.stream = stream;
  w.domain = domain;
  w.is_class = domain->is_class();
  if (w.is_class) {
    w.outer = "    ";
    w.inner = "\t";
    w.table_indent = "\t\t";
    const char *class_name = class_get_name(domain);
    if (class_name == nullptr) return ov_error_code();
    w.print("class %s\n{\n", class_name);
    OV_WRITE_CHECK(w, write_name_list(w, "inputs", domain->class_info.inputs.data()));
    OV_WRITE_CHECK(w, write_name_list(w, "outputs", domain->class_info.outputs.data()));
  } else {
    OV_WRITE_CHECK(w, domain_repair_names(domain));
    w.put("net\n{\n");
  }
  w.print("    node_size = (%s %s);\n", format_count(domain, static_cast<std::uint32_t>(domain->node_width)),
          format_count(domain, static_cast<std::uint32_t>(domain->node_height)));
  OV_WRITE_CHECK(w, write_attributes(w, domain->attributes, w.inner));
  if (!w.is_class) w.put("}\n");

  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) {
    if (node->master != nullptr) continue;
    OV_WRITE_CHECK(w, node->category == ov_category_instance ? write_instance(w, node) : write_node(w, node));
  }
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) {
    if (node->master != nullptr || node->category == ov_category_instance) continue;
    OV_WRITE_CHECK(w, write_potential(w, node));
  }
  for (const auto &component : domain->chain_components) OV_WRITE_CHECK(w, write_chain_potentials(w, *component));
  if (w.is_class) w.print("} %% class %s\n", class_get_name(domain));
  return w.status();
}

} // namespace

ov_status_t net_write(Domain *domain, std::FILE *stream) {
  if (check_writable(domain) != ov_error_none) return ov_error_code();
  ov_status_t status = write_object(domain, stream);
  return status == ov_error_none ? fail(ov_error_none) : status;
}

ov_status_t net_write_collection(ClassCollection *collection, std::FILE *stream) {
  const std::uint32_t count = collection->count();
  for (std::uint32_t i = 0; i < count; ++i)
    if (check_writable(collection->member(i)) != ov_error_none) return ov_error_code();
  // Instances not yet written of each class; -1 once the class is written.
  std::vector<std::int64_t> pending(count);
  for (std::uint32_t i = 0; i < count; ++i) pending[i] = collection->member(i)->instance_count;
  auto position_of = [&](const Domain *cls) -> std::int64_t {
    for (std::uint32_t i = 0; i < count; ++i)
      if (collection->member(i) == cls) return i;
    return -1;
  };
  for (std::uint32_t round = 0; round < count; ++round) {
    std::uint32_t next = 0;
    while (next < count && pending[next] != 0) ++next;
    if (next == count) return fail(ov_error_error); // a cycle of instances
    Domain *cls = collection->member(next);
    if (round > 0 && std::fputs("\n", stream) < 0) return fail(ov_error_io);
    ov_status_t status = net_write(cls, stream);
    if (status != ov_error_none) return status;
    pending[next] = -1;
    for (Node *instance : cls->class_info.instances) {
      std::int64_t holder = position_of(instance->home);
      if (holder >= 0 && pending[holder] > 0) --pending[holder];
    }
  }
  return fail(ov_error_none);
}

} // namespace orvel
