// Table values of NET output, nested, with a comment naming each line's configuration.
#include "io/net_write_pieces.h"

#include <cinttypes>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel::writer {

// Whether a table prints on the line of its key: it has no discrete nodes,
// or it is a probability table over one discrete node alone.
bool table_is_simple(const Table *table) {
  if (table->discrete_count == 0) return true;
  return table->value_kind == ov_table_kind_probability && table->discrete_count == 1 && table->continuous_count == 0;
}

namespace {

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
    if (label[0] != 0) {
      // A line break in a label would end the comment early: labels with
      // control characters are shown escaped.
      bool plain = true;
      for (const char *c = label; *c != 0 && plain; ++c) plain = static_cast<unsigned char>(*c) >= 0x20 && *c != 0x7f;
      if (plain) return w.put(label) ? ov_error_none : fail(ov_error_io);
      std::string escaped(escape_string(label, nullptr), '\0');
      escape_string(label, escaped.data());
      return w.put(escaped.c_str()) ? ov_error_none : fail(ov_error_io);
    }
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

} // namespace

ov_status_t write_table(Writer &w, const Table *table) { return TablePrinter(w, table).print(); }

} // namespace orvel::writer
