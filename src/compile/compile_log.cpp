// Lists of names and table sizes in the compile log.
#include <cstring>

#include "api/error.h"
#include "compile/compile.h"

namespace orvel {

namespace {
constexpr std::size_t log_width = 75;
constexpr std::size_t log_indent = 4;
} // namespace

ov_status_t log_names(Domain *domain, const std::vector<const char *> &names) {
  if (domain->log_file == nullptr || names.empty()) return ov_error_none;
  std::string text(log_indent, ' ');
  std::size_t column = log_indent;
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::size_t length = std::strlen(names[i]);
    if (i > 0) {
      // The next name stays on the line if it and its separators fit,
      // counting the comma that follows it unless it is the last.
      std::size_t needed = column + length + 2 + (i + 1 < names.size() ? 1 : 0);
      if (needed <= log_width) {
        text += ", ";
        column += 2;
      } else {
        text += ",\n";
        text.append(log_indent, ' ');
        column = log_indent;
      }
    }
    text += names[i];
    column += length;
  }
  text += '\n';
  return log_printf(domain, "%s", text.c_str());
}

ov_status_t log_node_names(Domain *domain, Node *const *nodes, std::size_t count) {
  if (domain->log_file == nullptr) return ov_error_none;
  std::vector<const char *> names;
  names.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const char *name = node_get_name(nodes[i]);
    if (name == nullptr) return ov_error_code();
    names.push_back(name);
  }
  return log_names(domain, names);
}

ov_status_t log_node_line(Domain *domain, const char *format, Node *node) {
  if (domain->log_file == nullptr) return ov_error_none;
  const char *name = node_get_name(node);
  if (name == nullptr) return ov_error_code();
  return log_printf(domain, format, name);
}

ov_status_t log_node_pair(Domain *domain, const char *format, Node *a, Node *b) {
  if (domain->log_file == nullptr) return ov_error_none;
  const char *first = node_get_name(a);
  const char *second = first == nullptr ? nullptr : node_get_name(b);
  if (second == nullptr) return ov_error_code();
  return log_printf(domain, format, first, second);
}

ov_status_t log_table_size(Domain *domain, Size size, std::uint32_t cg_stride) {
  if (log_printf(domain, "%s", format_count(domain, size)) != ov_error_none) return ov_error_io;
  if (cg_stride == 0) return ov_error_none;
  return log_printf(domain, " + %s", format_count(domain, size_multiply(size, cg_stride)));
}

} // namespace orvel
