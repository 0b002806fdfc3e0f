// The BIF reader. A file is a sequence of blocks:
//
//   network NAME { property ...; }
//   variable NAME { type discrete [ N ] { s1, s2, ... }; property ...; }
//   probability ( CHILD | P1, P2, ... ) { ENTRY... }
//
// where an ENTRY is a row by parent labels, "( l1, l2 ) v1, v2, ...;", a
// "default v1, ...;" for every row not listed, a "table v1, v2, ...;" of the
// whole table (child state fastest, then the last parent), or a property.
// Comments are "//" to the end of the line and "/* ... */". A property is
// "property KEY = VALUE;" or the same inside quotes: position and label set
// those of a node, other keys become attributes of the node or the domain.
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "api/boundary.h"
#include "io/bif.h"
#include "io/exchange.h"
#include "model/domain.h"

namespace orvel {
namespace {

enum class Tok { eof, punct, word, string, error };

struct Token {
  Tok kind = Tok::eof;
  char punct = 0;
  std::string_view word; // a word, or the raw text of a string
  std::string value;     // a string with its escapes resolved
  std::uint32_t line = 0, column = 0;
};

bool is_punct(char c) noexcept { return std::strchr("{}[](),;|", c) != nullptr && c != 0; }
bool is_blank(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
  return s;
}

// The text of a quoted string without its quotes, escapes resolved; false if
// `s` is not one whole string.
bool unquote(std::string_view s, std::string &out) {
  if (s.size() < 2 || s.front() != '"' || s.back() != '"') return false;
  out.clear();
  for (std::size_t i = 1; i + 1 < s.size(); ++i) {
    char c = s[i];
    if (c == '"') return false;
    if (c == '\\') {
      if (i + 2 >= s.size()) return false;
      c = s[++i];
    }
    out.push_back(c);
  }
  return true;
}

constexpr std::uint64_t max_default_cells = std::uint64_t{1} << 24;

struct NodeInfo {
  Node *node = nullptr;
  std::unordered_map<std::string, std::uint32_t> labels;
  bool has_table = false;
};

class BifReader {
public:
  BifReader(TextSource &source, Domain *domain) : src_(source), domain_(domain) {}
  bool read();

private:
  TextSource &src_;
  Domain *domain_;
  std::unordered_map<std::string, NodeInfo> nodes_;
  std::vector<std::string> order_;

  // ------------------------------------------------------------ scanning

  bool skip_blanks() {
    const std::string &t = src_.text;
    while (!src_.at_end()) {
      char c = t[src_.pos];
      if (is_blank(c)) {
        src_.advance();
      } else if (c == '/' && src_.pos + 1 < t.size() && t[src_.pos + 1] == '/') {
        while (!src_.at_end() && t[src_.pos] != '\n') src_.advance();
      } else if (c == '/' && src_.pos + 1 < t.size() && t[src_.pos + 1] == '*') {
        const std::uint32_t line = src_.line, column = src_.column_at(src_.pos);
        src_.advance();
        src_.advance();
        while (!src_.at_end() && !(t[src_.pos] == '*' && src_.pos + 1 < t.size() && t[src_.pos + 1] == '/'))
          src_.advance();
        if (src_.at_end()) {
          source_report(src_, line, column, "comment did not end");
          return false;
        }
        src_.advance();
        src_.advance();
      } else {
        return true;
      }
    }
    return true;
  }

  Token next() {
    Token tok;
    if (!skip_blanks()) {
      tok.kind = Tok::error;
      return tok;
    }
    tok.line = src_.line;
    tok.column = src_.column_at(src_.pos);
    if (src_.at_end()) return tok;
    const std::string &t = src_.text;
    const std::size_t start = src_.pos;
    char c = t[start];
    if (is_punct(c)) {
      src_.advance();
      tok.kind = Tok::punct;
      tok.punct = c;
      return tok;
    }
    if (c == '"') {
      src_.advance();
      while (!src_.at_end() && t[src_.pos] != '"' && t[src_.pos] != '\n') {
        if (t[src_.pos] == '\\' && src_.pos + 1 < t.size() && t[src_.pos + 1] != '\n') src_.advance();
        src_.advance();
      }
      if (src_.at_end() || t[src_.pos] != '"') {
        source_report(src_, tok.line, tok.column, "string did not end");
        tok.kind = Tok::error;
        return tok;
      }
      src_.advance();
      tok.kind = Tok::string;
      tok.word = std::string_view(t).substr(start, src_.pos - start);
      unquote(tok.word, tok.value);
      return tok;
    }
    while (!src_.at_end() && !is_blank(t[src_.pos]) && !is_punct(t[src_.pos]) && t[src_.pos] != '"') src_.advance();
    tok.kind = Tok::word;
    tok.word = std::string_view(t).substr(start, src_.pos - start);
    return tok;
  }

  // Reports that `what` was expected where `tok` stands (an error token was
  // reported by the scanner already).
  bool expected(const Token &tok, const char *what) {
    if (tok.kind == Tok::error) return false;
    if (tok.kind == Tok::eof)
      source_report(src_, tok.line, tok.column, "%s expected, found the end of the input", what);
    else if (tok.kind == Tok::punct)
      source_report(src_, tok.line, tok.column, "%s expected, found `%c'", what, tok.punct);
    else
      source_report(src_, tok.line, tok.column, "%s expected, found `%.*s'", what,
                    static_cast<int>(std::min<std::size_t>(tok.word.size(), 200)), tok.word.data());
    return false;
  }

  bool expect(char punct) {
    Token tok = next();
    if (tok.kind == Tok::punct && tok.punct == punct) return true;
    char what[8] = "`?'";
    what[1] = punct;
    return expected(tok, what);
  }

  static bool is(const Token &tok, char punct) { return tok.kind == Tok::punct && tok.punct == punct; }
  static bool is_word(const Token &tok, const char *word) { return tok.kind == Tok::word && tok.word == word; }

  // A name or label: a word or a string.
  static bool name_of(const Token &tok, std::string &out) {
    if (tok.kind == Tok::word) return out.assign(tok.word), true;
    if (tok.kind == Tok::string) return out = tok.value, true;
    return false;
  }

  // ------------------------------------------------------------ properties

  // The text after "property" up to its ';', as a key and a value.
  bool property(std::string &key, std::string &value, std::uint32_t &line, std::uint32_t &column) {
    if (!skip_blanks()) return false;
    line = src_.line;
    column = src_.column_at(src_.pos);
    const std::string &t = src_.text;
    const std::size_t start = src_.pos;
    bool quoted = false;
    while (!src_.at_end() && (quoted || t[src_.pos] != ';')) {
      if (t[src_.pos] == '"')
        quoted = !quoted;
      else if (quoted && t[src_.pos] == '\\' && src_.pos + 1 < t.size())
        src_.advance();
      src_.advance();
    }
    if (src_.at_end()) {
      source_report(src_, line, column, "`;' expected after the property, found the end of the input");
      return false;
    }
    std::string_view raw = trim(std::string_view(t).substr(start, src_.pos - start));
    src_.advance();
    std::string inner;
    if (unquote(raw, inner)) raw = trim(inner);
    const std::size_t eq = raw.find('=');
    key.assign(trim(raw.substr(0, eq)));
    value.clear();
    if (eq != std::string_view::npos) {
      std::string_view rest = trim(raw.substr(eq + 1));
      std::string unquoted;
      if (unquote(rest, unquoted))
        value = unquoted;
      else
        value.assign(rest);
    }
    return true;
  }

  // Stores a property on a node (position and label are the node's own) or,
  // without a node, on the domain. A key that cannot name an attribute is
  // passed over with a warning.
  bool store_property(Node *node, const std::string &key, const std::string &value, std::uint32_t line,
                      std::uint32_t column) {
    if (node != nullptr && key == "position") {
      int x = 0, y = 0;
      char tail = 0;
      if (std::sscanf(value.c_str(), " ( %d , %d ) %c", &x, &y, &tail) == 2)
        return ov_node_set_position(node, x, y) == 0;
    }
    if (node != nullptr && key == "label")
      return ov_node_set_label(node, value.c_str()) == 0 || api_failed(line, column);
    const ov_status_t status = node != nullptr ? ov_node_set_attribute(node, key.c_str(), value.c_str())
                                               : ov_domain_set_attribute(domain_, key.c_str(), value.c_str());
    if (status == ov_error_none) return true;
    if (ov_error_code() == ov_error_no_memory) return api_failed(line, column);
    if (src_.handler != nullptr) {
      std::string note = src_.name + ":" + std::to_string(line) + ":" + std::to_string(column) +
                         ": warning: property `" + key.substr(0, 200) + "' is not kept";
      src_.handler(line, note.c_str(), src_.data);
    }
    return true;
  }

  bool api_failed(std::uint32_t line, std::uint32_t column) {
    const ov_error_t code = ov_error_code();
    source_report(src_, line, column, "%s", ov_error_description(code == ov_error_none ? ov_error_error : code));
    set_error(code == ov_error_none ? ov_error_error : code);
    return false;
  }

  // ------------------------------------------------------------ blocks

  bool network_block() {
    Token tok = next();
    if (tok.kind == Tok::word || tok.kind == Tok::string) tok = next();
    if (!is(tok, '{')) return expected(tok, "`{'");
    for (;;) {
      tok = next();
      if (is(tok, '}')) return true;
      if (!is_word(tok, "property")) return expected(tok, "`property' or `}'");
      std::string key, value;
      std::uint32_t line, column;
      if (!property(key, value, line, column) || !store_property(nullptr, key, value, line, column)) return false;
    }
  }

  bool variable_block() {
    Token tok = next();
    std::string name;
    if (!name_of(tok, name)) return expected(tok, "variable name");
    if (nodes_.count(name) != 0) {
      source_report(src_, tok.line, tok.column, "variable `%s' declared twice", name.substr(0, 200).c_str());
      return false;
    }
    NodeInfo info;
    info.node = ov_domain_new_node(domain_, ov_category_chance, ov_kind_discrete);
    if (info.node == nullptr) return api_failed(tok.line, tok.column);
    if (ov_node_set_name(info.node, name.c_str()) != ov_error_none) {
      source_report(src_, tok.line, tok.column, "`%s' is not a legal node name", name.substr(0, 200).c_str());
      return false;
    }
    if (!expect('{')) return false;
    bool typed = false;
    for (;;) {
      tok = next();
      if (is(tok, '}')) break;
      if (is_word(tok, "property")) {
        std::string key, value;
        std::uint32_t line, column;
        if (!property(key, value, line, column) || !store_property(info.node, key, value, line, column)) return false;
        continue;
      }
      if (!is_word(tok, "type")) return expected(tok, "`type', `property' or `}'");
      if (typed) {
        source_report(src_, tok.line, tok.column, "a second type for `%s'", name.substr(0, 200).c_str());
        return false;
      }
      typed = true;
      if (!states(info, name)) return false;
    }
    if (!typed) {
      source_report(src_, tok.line, tok.column, "variable `%s' has no type", name.substr(0, 200).c_str());
      return false;
    }
    order_.push_back(name);
    nodes_.emplace(std::move(name), std::move(info));
    return true;
  }

  // "discrete [ N ] { s1, ..., sN };" after "type".
  bool states(NodeInfo &info, const std::string &name) {
    Token tok = next();
    if (!is_word(tok, "discrete")) return expected(tok, "`discrete' (only discrete variables are supported)");
    if (!expect('[')) return false;
    tok = next();
    std::uint64_t count = 0;
    if (tok.kind != Tok::word || !parse_count(tok.word, count) || count == 0 || count > 0x7fffffff)
      return expected(tok, "number of states");
    if (!expect(']') || !expect('{')) return false;
    std::vector<std::string> labels;
    for (;;) {
      tok = next();
      std::string label;
      if (!name_of(tok, label)) return expected(tok, "state name");
      if (info.labels.count(label) != 0) {
        source_report(src_, tok.line, tok.column, "state `%s' of `%s' given twice", label.substr(0, 200).c_str(),
                      name.substr(0, 200).c_str());
        return false;
      }
      info.labels.emplace(label, static_cast<std::uint32_t>(labels.size()));
      labels.push_back(std::move(label));
      tok = next();
      if (is(tok, '}')) break;
      if (!is(tok, ',')) return expected(tok, "`,' or `}'");
    }
    if (labels.size() != count) {
      source_report(src_, tok.line, tok.column, "`%s' declares %llu states but lists %zu", name.substr(0, 200).c_str(),
                    static_cast<unsigned long long>(count), labels.size());
      return false;
    }
    if (!expect(';')) return false;
    if (ov_node_set_number_of_states(info.node, static_cast<ov_count_t>(count)) != ov_error_none)
      return api_failed(tok.line, tok.column);
    for (std::size_t i = 0; i < labels.size(); ++i)
      if (ov_node_set_state_label(info.node, static_cast<ov_index_t>(i), labels[i].c_str()) != ov_error_none)
        return api_failed(tok.line, tok.column);
    return true;
  }

  NodeInfo *declared(const Token &tok, std::string &name) {
    if (!name_of(tok, name)) return expected(tok, "variable name"), nullptr;
    auto found = nodes_.find(name);
    if (found != nodes_.end()) return &found->second;
    source_report(src_, tok.line, tok.column, "variable `%s' is not declared", name.substr(0, 200).c_str());
    return nullptr;
  }

  // Values up to the closing ';', commas between them optional; `wanted`
  // of them unless it is 0 (any number).
  bool values(std::vector<double> &out, std::size_t wanted, const char *what, const std::string &child) {
    out.clear();
    Token tok = next();
    for (;;) {
      if (is(tok, ';')) break;
      double value = 0;
      if (tok.kind != Tok::word || !parse_number(tok.word, value)) return expected(tok, "probability");
      out.push_back(value);
      tok = next();
      if (is(tok, ',')) tok = next();
    }
    if (wanted != 0 && out.size() != wanted) {
      source_report(src_, tok.line, tok.column, "%s of `%s' has %zu numbers, %zu expected", what,
                    child.substr(0, 200).c_str(), out.size(), wanted);
      return false;
    }
    return true;
  }

  bool probability_block() {
    Token open = next();
    if (!is(open, '(')) return expected(open, "`('");
    Token tok = next();
    std::string child_name;
    NodeInfo *child = declared(tok, child_name);
    if (child == nullptr) return false;
    if (child->has_table) {
      source_report(src_, tok.line, tok.column, "a second probability block for `%s'",
                    child_name.substr(0, 200).c_str());
      return false;
    }
    child->has_table = true;
    std::vector<NodeInfo *> parents;
    std::vector<Node *> parent_nodes;
    std::vector<Token> parent_tokens;
    tok = next();
    if (is(tok, '|')) tok = next();
    while (!is(tok, ')')) {
      std::string parent_name;
      NodeInfo *parent = declared(tok, parent_name);
      if (parent == nullptr) return false;
      for (NodeInfo *seen : parents)
        if (seen == parent) {
          source_report(src_, tok.line, tok.column, "`%s' is listed twice", parent_name.substr(0, 200).c_str());
          return false;
        }
      if (parent == child) {
        source_report(src_, tok.line, tok.column, "`%s' is its own parent", parent_name.substr(0, 200).c_str());
        return false;
      }
      parents.push_back(parent);
      parent_nodes.push_back(parent->node);
      parent_tokens.push_back(tok);
      tok = next();
      if (is(tok, ',')) tok = next();
    }
    // A table listed in full takes two bytes a cell at least; one completed
    // by a default row may be larger, up to max_default_cells.
    const std::uint64_t cells = table_cells(child->node, parent_nodes);
    if (cells > max_default_cells && cells > src_.text.size() / 2) {
      source_report(src_, open.line, open.column, "the table of `%s' is too large (%llu cells)",
                    child_name.substr(0, 200).c_str(), static_cast<unsigned long long>(cells));
      set_error(ov_error_size_too_large);
      return false;
    }
    std::size_t failed = 0;
    if (add_parents_in_order(child->node, parent_nodes, failed) != ov_error_none) {
      const Token &at = parent_tokens[failed];
      if (ov_error_code() == ov_error_cyclic_network) {
        source_report(src_, at.line, at.column, "`%s' as a parent of `%s' makes a cycle",
                      ov_node_get_name(parent_nodes[failed]), child_name.substr(0, 200).c_str());
        set_error(ov_error_cyclic_network);
        return false;
      }
      return api_failed(at.line, at.column);
    }
    if (!expect('{')) return false;
    return entries(*child, child_name, parents);
  }

  bool entries(NodeInfo &child, const std::string &name, const std::vector<NodeInfo *> &parents) {
    TableLayout layout = table_layout(child.node);
    const std::uint32_t states = layout.child_states;
    std::vector<char> given(layout.rows, 0);
    std::vector<double> numbers, fallback;
    bool has_default = false, has_table = false;
    Token tok;
    for (;;) {
      tok = next();
      if (is(tok, '}')) break;
      if (is_word(tok, "property")) {
        std::string key, value;
        std::uint32_t line, column;
        if (!property(key, value, line, column) || !store_property(child.node, key, value, line, column)) return false;
      } else if (is_word(tok, "table")) {
        if (!values(numbers, layout.size, "the table", name)) return false;
        for (std::size_t row = 0; row < layout.rows; ++row)
          for (std::uint32_t s = 0; s < states; ++s)
            layout.data[table_offset(layout, row, s)] = static_cast<float>(numbers[row * states + s]);
        std::fill(given.begin(), given.end(), 1);
        has_table = true;
      } else if (is_word(tok, "default")) {
        if (!values(fallback, states, "the default row", name)) return false;
        has_default = true;
      } else if (is(tok, '(')) {
        std::size_t row = 0;
        for (std::size_t i = 0; i < parents.size(); ++i) {
          if (i > 0 && !expect(',')) return false;
          Token label_tok = next();
          std::string label;
          if (!name_of(label_tok, label)) return expected(label_tok, "state name");
          auto found = parents[i]->labels.find(label);
          if (found == parents[i]->labels.end()) {
            source_report(src_, label_tok.line, label_tok.column, "`%s' is not a state of `%s'",
                          label.substr(0, 200).c_str(), ov_node_get_name(parents[i]->node));
            return false;
          }
          row = row * parents[i]->labels.size() + found->second;
        }
        if (!expect(')')) return false;
        if (given[row]) {
          source_report(src_, tok.line, tok.column, "row of `%s' given twice", name.substr(0, 200).c_str());
          return false;
        }
        given[row] = 1;
        if (!values(numbers, states, "a row", name)) return false;
        for (std::uint32_t s = 0; s < states; ++s)
          layout.data[table_offset(layout, row, s)] = static_cast<float>(numbers[s]);
      } else {
        return expected(tok, "`(', `table', `default', `property' or `}'");
      }
    }
    for (std::size_t row = 0; row < layout.rows; ++row) {
      if (given[row]) continue;
      if (!has_default) {
        source_report(src_, tok.line, tok.column, "`%s' has %s", name.substr(0, 200).c_str(),
                      has_table ? "rows missing" : "no probabilities for some configurations of its parents");
        return false;
      }
      for (std::uint32_t s = 0; s < states; ++s)
        layout.data[table_offset(layout, row, s)] = static_cast<float>(fallback[s]);
    }
    return true;
  }
};

bool BifReader::read() {
  for (;;) {
    Token tok = next();
    if (tok.kind == Tok::eof) break;
    bool ok;
    if (is_word(tok, "network"))
      ok = network_block();
    else if (is_word(tok, "variable"))
      ok = variable_block();
    else if (is_word(tok, "probability"))
      ok = probability_block();
    else
      ok = expected(tok, "`network', `variable' or `probability'");
    if (!ok) return false;
  }
  for (const std::string &name : order_)
    if (!nodes_[name].has_table) {
      source_report(src_, src_.line, src_.column_at(src_.pos), "no probability block for `%s'",
                    name.substr(0, 200).c_str());
      return false;
    }
  if (order_.empty()) {
    source_report(src_, src_.line, src_.column_at(src_.pos), "no variables");
    return false;
  }
  return true;
}

} // namespace

Domain *bif_parse(const char *file_name, const char *text, ov_parse_error_handler_t handler, void *data) noexcept {
  return guarded<Domain *>(nullptr, [&]() -> Domain * {
    TextSource source;
    source.handler = handler;
    source.data = data;
    if (file_name != nullptr) {
      if (!source_from_file(source, file_name)) return nullptr;
    } else {
      source_from_string(source, text);
    }
    return read_new_domain(file_name, [&](Domain *domain) {
      BifReader reader(source, domain);
      return reader.read();
    });
  });
}

} // namespace orvel
