// The pieces shared by the BIF, XMLBIF and UAI readers and writers.
#include "io/exchange.h"

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "api/error.h"
#include "api/memory.h"
#include "io/net_parser.h"
#include "io/scanner.h"
#include "model/domain.h"

namespace orvel {

bool source_from_file(TextSource &source, const char *file_name) {
  source.name = file_name;
  std::FILE *file = std::fopen(file_name, "rb");
  if (file == nullptr) return set_error(ov_error_io), false;
  char buffer[65536];
  std::size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) source.text.append(buffer, got);
  const bool failed = std::ferror(file) != 0;
  if (std::fclose(file) != 0 || failed) {
    if (source.handler != nullptr) source.handler(1, read_failure_message, source.data);
    return set_error(ov_error_io), false;
  }
  return true;
}

void source_from_string(TextSource &source, const char *text) {
  source.name = "<string>";
  source.text = text;
}

void source_report(TextSource &source, std::uint32_t line, std::uint32_t column, const char *format, ...) {
  char message[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  ++source.errors;
  set_error(ov_error_parse);
  if (source.handler == nullptr) return;
  std::string text = source.name + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
  source.handler(line, text.c_str(), source.data);
}

bool parse_number(std::string_view word, double &value) noexcept {
  const char *first = word.data(), *last = word.data() + word.size();
  if (first != last && *first == '+') ++first;
  auto [end, ec] = std::from_chars(first, last, value, std::chars_format::general);
  // Tables hold 32-bit floats: a number beyond their range is refused.
  return ec == std::errc() && end == last && std::isfinite(static_cast<float>(value));
}

bool parse_count(std::string_view word, std::uint64_t &value) noexcept {
  auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), value);
  return ec == std::errc() && end == word.data() + word.size() && !word.empty();
}

std::string float_text(float value) {
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  (void)ec;
  return std::string(buffer, end);
}

TableLayout table_layout(Node *node) {
  TableLayout layout;
  for (ov_node_t *p = ov_node_get_parents(node); p != nullptr && *p != nullptr; ++p) layout.parents.push_back(*p);
  layout.child_states = static_cast<std::uint32_t>(ov_node_get_number_of_states(node));
  ov_table_t table = ov_node_get_table(node);
  layout.data = ov_table_get_data(table);
  layout.size = static_cast<std::size_t>(ov_table_get_size(table));
  // The table's own order: its last node varies fastest.
  std::vector<Node *> order;
  for (ov_node_t *t = ov_table_get_nodes(table); *t != nullptr; ++t) order.push_back(*t);
  std::vector<std::size_t> strides(order.size());
  std::size_t stride = 1;
  for (std::size_t i = order.size(); i-- > 0;) {
    strides[i] = stride;
    stride *= static_cast<std::size_t>(ov_node_get_number_of_states(order[i]));
  }
  auto stride_of = [&](Node *n) {
    for (std::size_t i = 0; i < order.size(); ++i)
      if (order[i] == n) return strides[i];
    return std::size_t{0};
  };
  layout.child_stride = stride_of(node);
  for (Node *p : layout.parents) {
    layout.parent_strides.push_back(stride_of(p));
    layout.rows *= static_cast<std::size_t>(ov_node_get_number_of_states(p));
  }
  return layout;
}

std::size_t table_offset(const TableLayout &layout, std::size_t row, std::uint32_t state) {
  std::size_t offset = state * layout.child_stride;
  for (std::size_t i = layout.parents.size(); i-- > 0;) {
    auto states = static_cast<std::size_t>(ov_node_get_number_of_states(layout.parents[i]));
    offset += (row % states) * layout.parent_strides[i];
    row /= states;
  }
  return offset;
}

std::uint64_t table_cells(Node *child, const std::vector<Node *> &parents) {
  constexpr std::uint64_t limit = std::uint64_t{1} << 63;
  auto cells = static_cast<std::uint64_t>(ov_node_get_number_of_states(child));
  for (Node *p : parents) {
    const auto states = static_cast<std::uint64_t>(ov_node_get_number_of_states(p));
    cells = cells > limit / states ? limit : cells * states;
  }
  return cells;
}

ov_status_t add_parents_in_order(Node *child, const std::vector<Node *> &parents, std::size_t &failed) {
  for (std::size_t i = parents.size(); i-- > 0;) {
    failed = i;
    const ov_status_t status = ov_node_add_parent(child, parents[i]);
    if (status != ov_error_none) return status;
  }
  ov_node_t *list = ov_node_get_parents(child);
  for (std::size_t i = 0; i < parents.size(); ++i)
    if (list[i] != parents[i]) return fail(ov_error_error);
  return fail(ov_error_none);
}

void finish_read_domain(Domain *domain) noexcept { domain_finish_lists(domain); }

void discard_read_domain(Domain *domain) noexcept {
  const ov_error_t code = ov_error_code();
  ov_domain_delete(domain);
  set_error(code == ov_error_none ? ov_error_parse : code);
}

std::vector<Node *> domain_nodes(Domain *domain) {
  std::vector<Node *> nodes;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

bool check_discrete_network(Domain *domain, const char *format_name) {
  if (domain->is_class()) {
    log_printf(domain, "%s cannot hold a class\n", format_name);
    return fail(ov_error_format), false;
  }
  for (Node *node : domain_nodes(domain)) {
    const char *what = nullptr;
    if (ov_node_get_category(node) != ov_category_chance)
      what = "a decision, utility or instance node";
    else if (ov_node_get_kind(node) != ov_kind_discrete)
      what = "a continuous node";
    else if (ov_node_get_model(node) != nullptr)
      what = "a model";
    else if (node->chain_component != nullptr)
      what = "undirected links (a chain graph or a Markov network)";
    if (what != nullptr) {
      log_printf(domain, "%s cannot hold %s: `%s'\n", format_name, what, ov_node_get_name(node));
      return fail(ov_error_format), false;
    }
  }
  set_error(ov_error_none);
  return true;
}

} // namespace orvel
