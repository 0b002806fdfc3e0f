// The NET writer: prints a domain, a class or a whole class collection in
// the block format that the NET parser reads back.
//
// Layout. A domain's blocks stand at the left margin with their items
// indented by four blanks and table continuation lines by one tab; a class
// wraps everything in its own block, so each of these moves one step in.
// Tables are printed nested, one pair of parentheses per discrete node, and
// each line of a table ends in a comment naming the configuration it
// finishes, so that a human reader can find a number.
//
// Every piece goes out through its own stream call. The first failing call
// records io; the writer then prints nothing more and returns io as soon as
// the work in hand reaches its next check.
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
#include "io/string_escape.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"
#include "table/table.h"

namespace orvel {
namespace {

// The stream and the indents of the object being written.
struct Writer {
  std::FILE *stream = nullptr;
  Domain *domain = nullptr;
  bool is_class = false;
  const char *outer = "";          // blocks of nodes, instances and potentials
  const char *inner = "    ";      // items inside those blocks
  const char *table_indent = "\t"; // continuation lines of tables
  bool failed = false;

  // Each returns false once output has failed.
  bool put(const char *text) {
    if (!failed && std::fputs(text, stream) < 0) failed = true;
    return !failed;
  }
  [[gnu::format(printf, 2, 3)]] bool print(const char *format, ...) {
    if (failed) return false;
    va_list args;
    va_start(args, format);
    int written = std::vfprintf(stream, format, args);
    va_end(args);
    if (written < 0) failed = true;
    return !failed;
  }
  // A string between double quotes, escaped so that the scanner reads back
  // the same bytes.
  bool quoted(const char *text) {
    std::string escaped(escape_string(text, nullptr), '\0');
    escape_string(text, escaped.data());
    return put("\"") && put(escaped.c_str()) && put("\"");
  }
  // io once output has failed, else none.
  ov_status_t status() const { return failed ? fail(ov_error_io) : ov_error_none; }
};

// The status of the work so far: io after a failed output call, else the
// given status.
#define OV_WRITE_CHECK(writer, expression)                                                                             \
  do {                                                                                                                 \
    ov_status_t check_status_ = (expression);                                                                          \
    if (check_status_ != ov_error_none) return check_status_;                                                          \
    if ((writer).failed) return fail(ov_error_io);                                                                     \
  } while (0)

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

// The label and position items shared by nodes and instances.
ov_status_t write_label_and_position(Writer &w, const Node *node) {
  if (!node->label.empty()) {
    w.print("%slabel = ", w.inner);
    w.quoted(node->label.c_str());
    w.put(";\n");
  }
  if (node->position_x != 0 || node->position_y != 0)
    w.print("%sposition = (%ld %ld);\n", w.inner, static_cast<long>(node->position_x),
            static_cast<long>(node->position_y));
  return w.status();
}

// ---------------------------------------------------------------- node blocks

ov_status_t write_node(Writer &w, Node *node) {
  const char *name = name_of(node);
  if (name == nullptr) return ov_error_code();
  const char *keyword;
  switch (node->category) {
  case ov_category_decision: keyword = "decision"; break;
  case ov_category_utility: keyword = "utility"; break;
  default: keyword = "node"; break;
  }
  w.print("\n%s%s%s %s\n%s{\n", w.outer, node->kind == ov_kind_continuous ? "continuous " : "", keyword, name, w.outer);
  OV_WRITE_CHECK(w, write_label_and_position(w, node));
  if (node->has_states()) {
    w.print("%sstates = (", w.inner);
    for (std::uint32_t s = 0; s < node->state_count; ++s) {
      if (s > 0) w.put(" ");
      w.quoted(state_label(node, s));
    }
    w.put(");\n");
    const char *subtype = nullptr;
    switch (node->subtype) {
    case ov_subtype_label: subtype = node->model ? "label" : nullptr; break;
    case ov_subtype_boolean: subtype = "boolean"; break;
    case ov_subtype_number: subtype = "number"; break;
    case ov_subtype_interval: subtype = "interval"; break;
    default: return fail(ov_error_error);
    }
    if (subtype != nullptr) w.print("%ssubtype = %s;\n", w.inner, subtype);
    bool numeric = node->subtype == ov_subtype_number || node->subtype == ov_subtype_interval;
    if (numeric && node->state_values) {
      std::uint32_t count = node->state_count + (node->subtype == ov_subtype_interval ? 1 : 0);
      w.print("%sstate_values = (", w.inner);
      for (std::uint32_t i = 0; i < count && i < node->state_values->size(); ++i) {
        char text[64];
        format_value(text, sizeof text, (*node->state_values)[i]);
        if (i > 0) w.put(" ");
        w.put(text);
      }
      w.put(");\n");
    }
  }
  OV_WRITE_CHECK(w, write_attributes(w, node->attributes, w.inner));
  w.print("%s}\n", w.outer);
  return w.status();
}

// Whether an output clone must be named in its instance's bindings: it has
// a name, or children, or feeds an input of some instance.
bool clone_is_used(const Domain *domain, const Node *clone) {
  if (clone->name || clone->children.size() > 0) return true;
  for (const auto &other : domain->nodes) {
    if (other->category != ov_category_instance) continue;
    for (const Node *actual : other->input_bindings)
      if (actual == clone) return true;
  }
  return false;
}

ov_status_t write_instance(Writer &w, Node *instance) {
  const char *name = name_of(instance);
  if (name == nullptr) return ov_error_code();
  Domain *cls = instance->instance_class;
  const char *class_name = class_get_name(cls);
  if (class_name == nullptr) return ov_error_code();
  w.print("\n%sinstance %s : %s (", w.outer, name, class_name);
  bool first = true;
  for (std::uint32_t i = 0; i < cls->class_info.inputs.size(); ++i) {
    Node *actual = instance_input(instance, i);
    if (actual == nullptr) continue;
    const char *formal_name = name_of(cls->class_info.inputs[i]);
    if (formal_name == nullptr) return ov_error_code();
    const char *actual_name = name_of(actual);
    if (actual_name == nullptr) return ov_error_code();
    w.print("%s%s = %s", first ? "" : ", ", formal_name, actual_name);
    first = false;
  }
  first = true;
  for (std::uint32_t i = 0; i < cls->class_info.outputs.size() && i < instance->output_clones.size(); ++i) {
    Node *clone = instance->output_clones[i];
    if (!clone_is_used(w.domain, clone)) continue;
    const char *clone_name = name_of(clone);
    if (clone_name == nullptr) return ov_error_code();
    const char *output_name = name_of(cls->class_info.outputs[i]);
    if (output_name == nullptr) return ov_error_code();
    w.print("%s%s = %s", first ? "; " : ", ", clone_name, output_name);
    first = false;
  }
  w.print(")\n%s{\n", w.outer);
  OV_WRITE_CHECK(w, write_label_and_position(w, instance));
  OV_WRITE_CHECK(w, write_attributes(w, instance->attributes, w.inner));
  w.print("%s}\n", w.outer);
  return w.status();
}

// ---------------------------------------------------------------- tables

// Whether a table prints on the line of its key: it has no discrete nodes,
// or it is a probability table over one discrete node alone.
bool table_is_simple(const Table *table) {
  if (table->discrete_count == 0) return true;
  return table->value_kind == ov_table_kind_probability && table->discrete_count == 1 && table->continuous_count == 0;
}

// Prints the value of a table, nested, with a comment at the end of each
// line naming the configuration that line finishes.
struct TablePrinter {
  Writer &w;
  const Table *table;
  std::uint32_t named = 0;      // nodes named in the comments, from the first
  bool break_at_leaves = false; // a line per value, not per innermost group
  std::vector<std::uint32_t> states;
  Size next = 0; // the configuration printed next

  TablePrinter(Writer &writer, const Table *t) : w(writer), table(t), states(t->discrete_count, 0) {
    bool probabilities = t->value_kind == ov_table_kind_probability && t->continuous_count == 0;
    named = probabilities ? (t->discrete_count > 0 ? t->discrete_count - 1 : 0) : t->discrete_count;
    break_at_leaves = !probabilities;
  }

  // The text of a state in a comment.
  ov_status_t state_text(Node *node, std::uint32_t state) {
    const char *label = state_label(node, state);
    if (label[0] != 0) return w.put(label) ? ov_error_none : fail(ov_error_io);
    bool has_values = node->state_values != nullptr;
    char text[160];
    if (node->subtype == ov_subtype_number && has_values) {
      format_value(text, sizeof text, state_value(node, state));
    } else if (node->subtype == ov_subtype_interval && has_values) {
      char low[64], high[64];
      format_value(low, sizeof low, state_value(node, state));
      format_value(high, sizeof high, state_value(node, state + 1));
      std::snprintf(text, sizeof text, "interval(%s,%s)", low, high);
    } else {
      std::snprintf(text, sizeof text, "<%s>", format_count(w.domain, state));
    }
    return w.put(text) ? ov_error_none : fail(ov_error_io);
  }

  ov_status_t comment() {
    w.put("\t%");
    for (std::uint32_t i = 0; i < named; ++i) {
      Node *node = table->nodes[i];
      const char *name = name_of(node);
      if (name == nullptr) return ov_error_code();
      w.print("  %s=", name);
      OV_WRITE_CHECK(w, state_text(node, states[i]));
    }
    return w.status();
  }

  // The comment, then a new line indented to the depth of the next entry.
  ov_status_t line_break(std::uint32_t open) {
    if (named > 0) OV_WRITE_CHECK(w, comment());
    w.print("\n%s", w.table_indent);
    for (std::uint32_t i = 0; i < open; ++i) w.put(" ");
    return w.status();
  }

  // One entry of the data: a number or, for a table with continuous nodes,
  // the normal distribution of the first of them.
  ov_status_t leaf() {
    Size configuration = next++;
    if (table->continuous_count == 0) {
      w.print("%G", static_cast<double>(table->data[configuration]));
      return w.status();
    }
    const double *record = table->cg_data.get() + std::size_t{configuration} * table->cg_stride;
    const std::uint32_t first = table->discrete_count;
    w.put("normal ( ");
    bool printed = false;
    if (record[0] != 0.0) {
      w.print("%G", record[0]);
      printed = true;
    }
    for (std::uint32_t j = 1; j < table->continuous_count; ++j) {
      double beta = record[cg_entry_offset(j, 0)];
      if (beta == 0.0) continue;
      if (printed)
        w.put(beta < 0 ? " - " : " + ");
      else if (beta < 0)
        w.put("-");
      if (std::fabs(beta) != 1.0) w.print("%G * ", std::fabs(beta));
      const char *name = name_of(table->nodes[first + j]);
      if (name == nullptr) return ov_error_code();
      w.put(name);
      printed = true;
    }
    if (!printed) w.print("%G", 0.0);
    w.print(", %G )", record[1]);
    return w.status();
  }

  ov_status_t level(std::uint32_t depth) {
    Node *node = table->nodes[depth];
    bool innermost = depth + 1 == table->discrete_count;
    w.put("(");
    for (std::uint32_t s = 0; s < node->state_count; ++s) {
      states[depth] = s;
      if (innermost) {
        w.put(" ");
        OV_WRITE_CHECK(w, leaf());
      } else {
        OV_WRITE_CHECK(w, level(depth + 1));
      }
      if (s + 1 < node->state_count && (!innermost || break_at_leaves)) OV_WRITE_CHECK(w, line_break(depth + 1));
    }
    w.put(innermost ? " )" : ")");
    return w.status();
  }

  // The whole value, the terminator and the last line's comment.
  ov_status_t print() {
    if (table->data.get() == nullptr) {
      ov_status_t status = table_allocate(const_cast<Table *>(table));
      if (status != ov_error_none) return status;
    }
    if (table->discrete_count == 0)
      OV_WRITE_CHECK(w, leaf());
    else
      OV_WRITE_CHECK(w, level(0));
    w.put(";");
    if (named > 0) OV_WRITE_CHECK(w, comment());
    w.put("\n");
    return w.status();
  }
};

ov_status_t write_table(Writer &w, const Table *table) { return TablePrinter(w, table).print(); }

// ---------------------------------------------------------------- potentials

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
  ov_status_t status = write_object(domain, stream);
  return status == ov_error_none ? fail(ov_error_none) : status;
}

ov_status_t net_write_collection(ClassCollection *collection, std::FILE *stream) {
  const std::uint32_t count = collection->count();
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

// ---------------------------------------------------------------- interface

using namespace orvel;

namespace {

// Opens a file for writing, runs `write` on it and closes it; io when the
// file does not open or close.
template <class F> ov_status_t write_file(const char *file_name, F &&write) {
  std::FILE *stream = std::fopen(file_name, "w");
  if (stream == nullptr) return fail(ov_error_io);
  ov_status_t status = write(stream);
  if (std::fclose(stream) != 0 && status == ov_error_none) status = fail(ov_error_io);
  if (status != ov_error_none) set_error(static_cast<unsigned>(status));
  return status;
}

} // namespace

ov_status_t ov_domain_write_net(ov_domain_t domain, FILE *stream) {
  if (check_usage(domain == nullptr || stream == nullptr)) return ov_error_usage;
  return guarded_status([&] {
    LocaleGuard guard;
    if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
    ov_status_t status = net_write(domain, stream);
    if (std::fflush(stream) != 0 && status == ov_error_none) status = fail(ov_error_io);
    return status;
  });
}

ov_status_t ov_domain_save_as_net(ov_domain_t domain, ov_string_t file_name) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] {
    ov_status_t status = write_file(file_name, [&](std::FILE *stream) { return ov_domain_write_net(domain, stream); });
    if (status == ov_error_none) domain->file_name.emplace(file_name);
    return status;
  });
}

ov_status_t ov_class_save_as_net(ov_class_t cls, ov_string_t file_name) {
  return ov_domain_save_as_net(as_domain(cls), file_name);
}

ov_status_t ov_cc_save_as_net(ov_class_collection_t collection, ov_string_t file_name) {
  if (check_usage(collection == nullptr || file_name == nullptr || collection->count() == 0)) return ov_error_usage;
  return guarded_status([&] {
    LocaleGuard guard;
    if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
    ov_status_t status =
        write_file(file_name, [&](std::FILE *stream) { return net_write_collection(collection, stream); });
    if (status == ov_error_none)
      for (std::uint32_t i = 0; i < collection->count(); ++i) collection->member(i)->file_name.emplace(file_name);
    return status;
  });
}
