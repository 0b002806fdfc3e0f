// The BIF writer. Labels that are not plain words are written as strings,
// properties carry the node labels, positions and the attributes; rows of a
// table with parents are written by parent labels, a table without parents
// with "table".
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>

#include "api/error.h"
#include "io/bif.h"
#include "io/exchange.h"
#include "model/domain.h"

namespace orvel {
namespace {

bool plain_word(const char *s) {
  if (*s == 0 || (s[0] == '/' && (s[1] == '/' || s[1] == '*'))) return false;
  for (; *s != 0; ++s)
    if (std::strchr("{}[](),;|\" \t\r\n\f\v", *s) != nullptr) return false;
  return true;
}

bool has_control(const char *s) {
  for (; *s != 0; ++s)
    if (static_cast<unsigned char>(*s) < 0x20 || *s == 0x7f) return true;
  return false;
}

std::string quoted(const char *s) {
  std::string out = "\"";
  for (; *s != 0; ++s) {
    if (*s == '"' || *s == '\\') out.push_back('\\');
    out.push_back(*s);
  }
  return out + "\"";
}

std::string word_or_string(const char *s) { return plain_word(s) ? std::string(s) : quoted(s); }

// A property value as it reads back: raw when it is plain text, else quoted.
std::string property_value(const char *s) {
  const std::size_t n = std::strlen(s);
  bool raw = n > 0 && s[0] != ' ' && s[n - 1] != ' ' && s[0] != '"';
  for (const char *p = s; raw && *p != 0; ++p)
    if (*p == ';' || *p == '"' || *p == '\\') raw = false;
  return raw ? std::string(s) : quoted(s);
}

bool refuse_bif(Domain *domain, const char *what, const char *name) {
  log_printf(domain, "BIF cannot hold %s: `%s'\n", what, name);
  return fail(ov_error_format), false;
}

bool key_fits(const char *key) {
  if (*key == 0) return false;
  for (const char *p = key; *p != 0; ++p)
    if (std::strchr("=;\" \t\r\n\f\v", *p) != nullptr || static_cast<unsigned char>(*p) < 0x20) return false;
  return true;
}

// What BIF cannot give back beyond what check_discrete_network refuses:
// states without a label, labels twice or with control characters,
// attributes whose key BIF cannot write or that it reads as a node item.
bool check_bif(Domain *domain) {
  if (!check_discrete_network(domain, "BIF")) return false;
  for (ov_attribute_t a = ov_domain_get_first_attribute(domain); a != nullptr; a = ov_attribute_get_next(a))
    if (!key_fits(ov_attribute_get_key(a)) || has_control(ov_attribute_get_value(a)))
      return refuse_bif(domain, "the attribute", ov_attribute_get_key(a));
  for (Node *node : domain_nodes(domain)) {
    std::unordered_set<std::string> seen;
    const ov_count_t states = ov_node_get_number_of_states(node);
    for (ov_count_t s = 0; s < states; ++s) {
      const char *label = ov_node_get_state_label(node, s);
      if (label == nullptr || *label == 0)
        return refuse_bif(domain, "a state without a label of", ov_node_get_name(node));
      if (has_control(label) || !seen.insert(label).second)
        return refuse_bif(domain, "a state label (twice, or with control characters) of", ov_node_get_name(node));
    }
    const char *node_label = ov_node_get_label(node);
    if (node_label != nullptr && has_control(node_label))
      return refuse_bif(domain, "a label with control characters of", ov_node_get_name(node));
    for (ov_attribute_t a = ov_node_get_first_attribute(node); a != nullptr; a = ov_attribute_get_next(a)) {
      const char *key = ov_attribute_get_key(a);
      if (!key_fits(key) || has_control(ov_attribute_get_value(a)) || std::strcmp(key, "label") == 0 ||
          std::strcmp(key, "position") == 0)
        return refuse_bif(domain, "the attribute", key);
    }
  }
  set_error(ov_error_none);
  return true;
}

void write_attributes(std::string &out, ov_attribute_t a) {
  for (; a != nullptr; a = ov_attribute_get_next(a))
    out += "  property " + std::string(ov_attribute_get_key(a)) + " = " + property_value(ov_attribute_get_value(a)) +
           ";\n";
}

std::string bif_text(Domain *domain) {
  std::string out = "// BIF written by Orvel\nnetwork unknown {\n";
  write_attributes(out, ov_domain_get_first_attribute(domain));
  out += "}\n";
  const std::vector<Node *> nodes = domain_nodes(domain);
  for (Node *node : nodes) {
    out += "variable " + std::string(ov_node_get_name(node)) + " {\n  type discrete [ ";
    const ov_count_t states = ov_node_get_number_of_states(node);
    out += std::to_string(states) + " ] { ";
    for (ov_count_t s = 0; s < states; ++s) {
      if (s > 0) out += ", ";
      out += word_or_string(ov_node_get_state_label(node, s));
    }
    out += " };\n";
    const char *label = ov_node_get_label(node);
    if (label != nullptr && *label != 0) out += "  property label = " + property_value(label) + ";\n";
    int x = 0, y = 0;
    if (ov_node_get_position(node, &x, &y) == ov_error_none && (x != 0 || y != 0))
      out += "  property position = (" + std::to_string(x) + ", " + std::to_string(y) + ");\n";
    write_attributes(out, ov_node_get_first_attribute(node));
    out += "}\n";
  }
  for (Node *node : nodes) {
    const TableLayout layout = table_layout(node);
    out += "probability ( " + std::string(ov_node_get_name(node));
    for (std::size_t i = 0; i < layout.parents.size(); ++i)
      out += std::string(i == 0 ? " | " : ", ") + ov_node_get_name(layout.parents[i]);
    out += " ) {\n";
    std::vector<std::uint32_t> config(layout.parents.size(), 0);
    for (std::size_t row = 0; row < layout.rows; ++row) {
      if (layout.parents.empty()) {
        out += "  table ";
      } else {
        out += "  (";
        for (std::size_t i = 0; i < config.size(); ++i) {
          if (i > 0) out += ", ";
          out += word_or_string(ov_node_get_state_label(layout.parents[i], config[i]));
        }
        out += ") ";
      }
      for (std::uint32_t s = 0; s < layout.child_states; ++s) {
        if (s > 0) out += ", ";
        out += float_text(layout.data[table_offset(layout, row, s)]);
      }
      out += ";\n";
      // The next configuration, the last parent fastest.
      for (std::size_t i = config.size(); i-- > 0;) {
        if (++config[i] < static_cast<std::uint32_t>(ov_node_get_number_of_states(layout.parents[i]))) break;
        config[i] = 0;
      }
    }
    out += "}\n";
  }
  return out;
}

} // namespace

ov_status_t bif_save_file(Domain *domain, const char *file_name) {
  if (!check_bif(domain)) return ov_error_code();
  const std::string text = bif_text(domain);
  std::FILE *file = std::fopen(file_name, "wb");
  if (file == nullptr) return fail(ov_error_io);
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (std::fclose(file) != 0 || !written) return fail(ov_error_io);
  domain->file_name.emplace(file_name);
  return fail(ov_error_none);
}

} // namespace orvel
