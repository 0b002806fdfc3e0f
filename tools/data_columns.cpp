// Reading the columns of a data file: a light scan that only gathers the
// distinct values of each column; the library's data-file reader then reads
// the cases themselves, with its full checks.
#include "data_columns.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <vector>

namespace orvel_tool {

namespace {

enum class Kind { none, number, label, index };

struct Column {
  std::string name;
  Kind kind = Kind::none;
  std::vector<double> numbers;
  std::vector<std::string> labels; // in order of first appearance
  long max_index = -1;
};

// The values of one line: fields split at commas (or blanks), a quoted
// string kept whole, a '%' comment ends the line.
std::vector<std::string> fields(const std::string &line) {
  std::vector<std::string> out;
  std::string field;
  bool open = false, quoted = false, comma_before = true;
  for (std::size_t i = 0; i <= line.size(); ++i) {
    const char c = i < line.size() ? line[i] : '\n';
    if (quoted) {
      field += c;
      if (c == '\\' && i + 1 < line.size())
        field += line[++i];
      else if (c == '"')
        quoted = false;
      continue;
    }
    if (c == '"') {
      quoted = open = true;
      field += c;
    } else if (c == ',' || c == '%' || c == '\n') {
      if (open || (c == ',' && comma_before)) out.push_back(field);
      field.clear();
      open = false;
      comma_before = c == ',';
      if (c != ',') break;
    } else if (std::isspace(static_cast<unsigned char>(c))) {
      if (open) {
        out.push_back(field);
        field.clear();
        open = comma_before = false;
      }
    } else {
      field += c;
      open = true;
    }
  }
  return out;
}

bool is_number(const std::string &text, double &value) {
  char *end = nullptr;
  value = std::strtod(text.c_str(), &end);
  return !text.empty() && end == text.c_str() + text.size() &&
         (std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '-' || text[0] == '+' || text[0] == '.');
}

std::string unquote(const std::string &text) {
  if (text.size() < 2 || text.front() != '"') return text;
  std::string out;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '\\' && i + 2 < text.size()) ++i;
    out += text[i];
  }
  return out;
}

bool add_value(Column &column, const std::string &text, std::string &error) {
  if (text.empty() || text == "*" || text == "?") return true;
  double number = 0.0;
  Kind kind = Kind::label;
  if (text[0] == '#')
    kind = Kind::index;
  else if (is_number(text, number))
    kind = Kind::number;
  if (column.kind != Kind::none && column.kind != kind) {
    error = "column '" + column.name + "' mixes numbers, labels and state indices";
    return false;
  }
  column.kind = kind;
  if (kind == Kind::number) {
    if (std::find(column.numbers.begin(), column.numbers.end(), number) == column.numbers.end())
      column.numbers.push_back(number);
  } else if (kind == Kind::index) {
    column.max_index = std::max(column.max_index, std::strtol(text.c_str() + 1, nullptr, 10));
  } else {
    const std::string label = unquote(text);
    if (std::find(column.labels.begin(), column.labels.end(), label) == column.labels.end())
      column.labels.push_back(label);
  }
  return true;
}

} // namespace

ov_domain_t domain_from_data_columns(const std::string &file, std::string &error) {
  std::unique_ptr<std::FILE, int (*)(std::FILE *)> in(std::fopen(file.c_str(), "rb"), std::fclose);
  if (!in) {
    error = "cannot open " + file;
    return nullptr;
  }
  std::vector<Column> columns;
  bool counts = false;
  std::string line;
  for (int c = 0;;) {
    line.clear();
    while ((c = std::fgetc(in.get())) != EOF && c != '\n') line += static_cast<char>(c);
    std::vector<std::string> items = fields(line);
    items.erase(
        std::remove_if(items.begin(), items.end(), [&](const std::string &s) { return s.empty() && columns.empty(); }),
        items.end());
    if (columns.empty()) {
      if (!items.empty() && items[0] == "#") {
        counts = true;
        items.erase(items.begin());
      }
      for (const std::string &name : items) {
        columns.emplace_back();
        columns.back().name = name;
      }
    } else if (!items.empty()) {
      for (std::size_t i = 0; i < columns.size() && i + (counts ? 1 : 0) < items.size(); ++i)
        if (!add_value(columns[i], items[i + (counts ? 1 : 0)], error)) return nullptr;
    }
    if (c == EOF) break;
  }
  if (columns.empty()) {
    error = file + " has no header line";
    return nullptr;
  }
  ov_domain_t domain = ov_new_domain();
  for (const Column &column : columns) {
    ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    bool ok = node != nullptr && ov_node_set_name(node, column.name.c_str()) == 0;
    std::vector<double> numbers = column.numbers;
    std::sort(numbers.begin(), numbers.end());
    std::size_t states = column.kind == Kind::number  ? numbers.size()
                         : column.kind == Kind::index ? static_cast<std::size_t>(column.max_index + 1)
                                                      : column.labels.size();
    ok = ok && ov_node_set_number_of_states(node, static_cast<ov_count_t>(std::max<std::size_t>(states, 1))) == 0;
    if (ok && column.kind == Kind::number) {
      ok = ov_node_set_subtype(node, ov_subtype_number) == 0;
      for (std::size_t s = 0; ok && s < numbers.size(); ++s)
        ok = ov_node_set_state_value(node, static_cast<ov_index_t>(s), numbers[s]) == 0;
    }
    for (std::size_t s = 0; ok && column.kind == Kind::label && s < column.labels.size(); ++s)
      ok = ov_node_set_state_label(node, static_cast<ov_index_t>(s), column.labels[s].c_str()) == 0;
    if (!ok) {
      error = "cannot make a node for column '" + column.name + "': " + ov_error_name(ov_error_code());
      ov_domain_delete(domain);
      return nullptr;
    }
  }
  return domain;
}

} // namespace orvel_tool
