// The UAI reader and writer. A network file is
//
//   BAYES | MARKOV
//   N  card_0 ... card_{N-1}
//   F  then F scopes: k v_1 ... v_k
//   then F tables: the entry count and the entries, the last variable of
//   the scope fastest
//
// all numbers separated by white space. In a BAYES file the last variable of
// each scope is the one whose conditional table the function is. An evidence
// file is "K v_1 s_1 ... v_K s_K", or the older "1 K v_1 s_1 ..." of one
// sample.
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "api/boundary.h"
#include "io/exchange.h"
#include "io/uai.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "table/table.h"

namespace orvel {
namespace {

struct Word {
  std::string_view text;
  std::uint32_t line = 0, column = 0;
};

bool is_space(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// The next white-space separated word; empty at the end.
Word next_word(TextSource &src) {
  while (!src.at_end() && is_space(src.text[src.pos])) src.advance();
  Word w;
  w.line = src.line;
  w.column = src.column_at(src.pos);
  const std::size_t start = src.pos;
  while (!src.at_end() && !is_space(src.text[src.pos])) src.advance();
  w.text = std::string_view(src.text).substr(start, src.pos - start);
  return w;
}

void report_expected(TextSource &src, const Word &w, const char *what) {
  if (w.text.empty())
    source_report(src, w.line, w.column, "%s expected, found the end of the input", what);
  else
    source_report(src, w.line, w.column, "%s expected, found `%.*s'", what,
                  static_cast<int>(std::min<std::size_t>(w.text.size(), 200)), w.text.data());
}

// A count no greater than `limit`.
bool read_count(TextSource &src, std::uint64_t limit, const char *what, std::uint64_t &value, Word *where = nullptr) {
  Word local;
  Word &w = where != nullptr ? *where : local;
  w = next_word(src);
  if (parse_count(w.text, value) && value <= limit) return true;
  report_expected(src, w, what);
  return false;
}

bool api_failed(TextSource &src) {
  const ov_error_t code = ov_error_code() == ov_error_none ? ov_error_error : ov_error_code();
  source_report(src, src.line, src.column_at(src.pos), "%s", ov_error_description(code));
  set_error(code);
  return false;
}

// A name or label made of a letter and a number.
struct Numbered {
  char text[24];
};
Numbered numbered(char letter, std::uint64_t n) {
  Numbered name;
  std::snprintf(name.text, sizeof name.text, "%c%llu", letter, static_cast<unsigned long long>(n));
  return name;
}

constexpr std::uint64_t max_variables = 1u << 24;

bool read_markov_functions(TextSource &src, Domain *domain, const std::vector<Node *> &nodes);

bool read_network(TextSource &src, Domain *domain) {
  Word kind = next_word(src);
  if (kind.text != "BAYES" && kind.text != "MARKOV") return report_expected(src, kind, "`BAYES' or `MARKOV'"), false;
  std::uint64_t count = 0;
  Word at;
  if (!read_count(src, max_variables, "number of variables", count, &at)) return false;
  if (count == 0) {
    source_report(src, at.line, at.column, "no variables");
    return false;
  }
  std::vector<Node *> nodes;
  std::uint64_t state_budget = src.text.size() / 2;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint64_t states = 0;
    if (!read_count(src, 0x7fffffff, "number of states", states, &at)) return false;
    if (states == 0) {
      source_report(src, at.line, at.column, "variable %llu has no states", static_cast<unsigned long long>(i));
      return false;
    }
    // Each state is a number of the variable's table, two bytes at least.
    if (states > state_budget) {
      source_report(src, at.line, at.column, "variable %llu has more states than the file has numbers",
                    static_cast<unsigned long long>(i));
      return false;
    }
    state_budget -= states;
    Node *node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    if (node == nullptr || ov_node_set_name(node, numbered('v', i).text) != ov_error_none ||
        ov_node_set_number_of_states(node, static_cast<ov_count_t>(states)) != ov_error_none)
      return api_failed(src);
    for (std::uint64_t s = 0; s < states; ++s)
      if (ov_node_set_state_label(node, static_cast<ov_index_t>(s), numbered('s', s).text) != ov_error_none)
        return api_failed(src);
    nodes.push_back(node);
  }
  if (kind.text == "MARKOV") return read_markov_functions(src, domain, nodes);
  std::uint64_t functions = 0;
  if (!read_count(src, count, "number of functions (one per variable)", functions, &at)) return false;
  if (functions != count) {
    source_report(src, at.line, at.column, "%llu functions for %llu variables",
                  static_cast<unsigned long long>(functions), static_cast<unsigned long long>(count));
    return false;
  }
  std::vector<Node *> child_of(functions, nullptr);
  std::vector<char> has_function(count, 0);
  for (std::uint64_t f = 0; f < functions; ++f) {
    std::uint64_t size = 0;
    if (!read_count(src, count, "scope size", size)) return false;
    if (size == 0) return report_expected(src, next_word(src), "a scope of at least one variable"), false;
    std::vector<Node *> scope;
    std::uint64_t v = 0;
    for (std::uint64_t k = 0; k < size; ++k) {
      if (!read_count(src, count - 1, "variable index", v, &at)) return false;
      scope.push_back(nodes[v]);
    }
    Node *child = scope.back();
    const auto index = static_cast<std::size_t>(v);
    if (has_function[index]) {
      source_report(src, at.line, at.column, "a second function for variable %zu", index);
      return false;
    }
    has_function[index] = 1;
    child_of[f] = child;
    scope.pop_back();
    if (table_cells(child, scope) > src.text.size() / 2) {
      source_report(src, at.line, at.column, "the table of variable %zu has more entries than the file has numbers",
                    index);
      return false;
    }
    std::size_t failed = 0;
    if (add_parents_in_order(child, scope, failed) != ov_error_none) {
      const ov_error_t code = ov_error_code();
      source_report(src, at.line, at.column, "%s in the scope of variable %zu",
                    code == ov_error_cyclic_network ? "a cycle" : "a variable twice or its own parent", index);
      set_error(code == ov_error_cyclic_network ? code : ov_error_parse);
      return false;
    }
  }
  for (std::uint64_t f = 0; f < functions; ++f) {
    const TableLayout layout = table_layout(child_of[f]);
    std::uint64_t entries = 0;
    if (!read_count(src, ~std::uint64_t{0}, "number of entries", entries, &at)) return false;
    if (entries != layout.size) {
      source_report(src, at.line, at.column, "function %llu has %llu entries, %zu expected",
                    static_cast<unsigned long long>(f), static_cast<unsigned long long>(entries), layout.size);
      return false;
    }
    for (std::size_t row = 0; row < layout.rows; ++row)
      for (std::uint32_t s = 0; s < layout.child_states; ++s) {
        Word w = next_word(src);
        double value = 0;
        if (!parse_number(w.text, value)) return report_expected(src, w, "number"), false;
        layout.data[table_offset(layout, row, s)] = static_cast<float>(value);
      }
  }
  Word rest = next_word(src);
  if (!rest.text.empty()) return report_expected(src, rest, "the end of the input"), false;
  return true;
}

// A Markov network becomes a chain graph: its variables are parentless
// nodes with uniform tables, and each function a chain potential over its
// scope, so that the domain's distribution is the normalised product of the
// functions. The scopes may be listed in any order and overlap freely.
bool read_markov_functions(TextSource &src, Domain *domain, const std::vector<Node *> &nodes) {
  const std::uint64_t count = nodes.size();
  Word at;
  std::uint64_t functions = 0;
  if (!read_count(src, src.text.size() / 2, "number of functions", functions, &at)) return false;
  std::vector<Table *> tables;
  for (std::uint64_t f = 0; f < functions; ++f) {
    std::uint64_t size = 0;
    if (!read_count(src, count, "scope size", size)) return false;
    if (size == 0) return report_expected(src, next_word(src), "a scope of at least one variable"), false;
    std::vector<Node *> scope;
    std::uint64_t cells = 1;
    for (std::uint64_t k = 0; k < size; ++k) {
      std::uint64_t v = 0;
      if (!read_count(src, count - 1, "variable index", v, &at)) return false;
      if (std::find(scope.begin(), scope.end(), nodes[v]) != scope.end()) {
        source_report(src, at.line, at.column, "variable %llu twice in the scope of function %llu",
                      static_cast<unsigned long long>(v), static_cast<unsigned long long>(f));
        return false;
      }
      scope.push_back(nodes[v]);
      cells *= nodes[v]->state_count;
      if (cells > src.text.size() / 2) {
        source_report(src, at.line, at.column, "function %llu has more entries than the file has numbers",
                      static_cast<unsigned long long>(f));
        return false;
      }
    }
    scope.push_back(nullptr);
    Table *table = table_new(domain, scope.data(), ov_table_kind_probability, 0, false, true);
    if (table == nullptr) return api_failed(src);
    tables.push_back(table);
  }
  for (std::uint64_t f = 0; f < functions; ++f) {
    Table *table = tables[f];
    std::uint64_t entries = 0;
    if (!read_count(src, ~std::uint64_t{0}, "number of entries", entries, &at)) return false;
    if (entries != table->size) {
      source_report(src, at.line, at.column, "function %llu has %llu entries, %llu expected",
                    static_cast<unsigned long long>(f), static_cast<unsigned long long>(entries),
                    static_cast<unsigned long long>(table->size));
      return false;
    }
    for (Size i = 0; i < table->size; ++i) {
      Word w = next_word(src);
      double value = 0;
      if (!parse_number(w.text, value)) return report_expected(src, w, "number"), false;
      if (!(value >= 0.0)) {
        source_report(src, w.line, w.column, "function values must be nonnegative");
        return false;
      }
      table->data[i] = static_cast<float>(value);
    }
  }
  Word rest = next_word(src);
  if (!rest.text.empty()) return report_expected(src, rest, "the end of the input"), false;
  for (Node *node : nodes) {
    Table *own = node_table(node);
    if (own == nullptr || (!own->data && table_allocate(own) != ov_error_none)) return api_failed(src);
    std::fill(own->data.get(), own->data.get() + own->size, 1.0f);
  }
  // A function of one variable goes into the variable's own table; the
  // others tie their scopes together by undirected links.
  for (Table *table : tables) {
    if (table->nodes.size() == 1) {
      Table *own = node_table(table->nodes[0]);
      for (Size i = 0; i < own->size; ++i) own->data[i] *= table->data[i];
      table_delete(table);
    } else if (domain_add_chain_potential(domain, table, static_cast<std::uint32_t>(table->nodes.size())) !=
               ov_error_none) {
      return api_failed(src);
    }
  }
  return true;
}

bool load(TextSource &src, const char *file_name, const char *text) {
  if (file_name == nullptr) return source_from_string(src, text), true;
  return source_from_file(src, file_name);
}

} // namespace

Domain *uai_parse(const char *file_name, const char *text, ov_parse_error_handler_t handler, void *data) noexcept {
  return guarded<Domain *>(nullptr, [&]() -> Domain * {
    TextSource src;
    src.handler = handler;
    src.data = data;
    if (!load(src, file_name, text)) return nullptr;
    return read_new_domain(file_name, [&](Domain *domain) { return read_network(src, domain); });
  });
}

ov_status_t uai_save_file(Domain *domain, const char *file_name) {
  if (!check_discrete_network(domain, "UAI")) return ov_error_code();
  const std::vector<Node *> nodes = domain_nodes(domain);
  std::unordered_map<Node *, std::size_t> index_of;
  for (std::size_t i = 0; i < nodes.size(); ++i) index_of.emplace(nodes[i], i);
  std::string out = "BAYES\n";
  out += std::to_string(nodes.size());
  out += '\n';
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    out += std::to_string(ov_node_get_number_of_states(nodes[i]));
    out += i + 1 < nodes.size() ? ' ' : '\n';
  }
  out += std::to_string(nodes.size());
  out += '\n';
  std::vector<TableLayout> layouts;
  for (Node *node : nodes) {
    layouts.push_back(table_layout(node));
    out += std::to_string(layouts.back().parents.size() + 1);
    for (Node *p : layouts.back().parents) {
      out += ' ';
      out += std::to_string(index_of[p]);
    }
    out += ' ';
    out += std::to_string(index_of[node]);
    out += '\n';
  }
  for (const TableLayout &layout : layouts) {
    out += '\n';
    out += std::to_string(layout.size);
    out += '\n';
    for (std::size_t row = 0; row < layout.rows; ++row) {
      for (std::uint32_t s = 0; s < layout.child_states; ++s) {
        if (s > 0) out += ' ';
        out += float_text(layout.data[table_offset(layout, row, s)]);
      }
      out += '\n';
    }
  }
  std::FILE *file = std::fopen(file_name, "wb");
  if (file == nullptr) return fail(ov_error_io);
  const bool written = std::fwrite(out.data(), 1, out.size(), file) == out.size();
  if (std::fclose(file) != 0 || !written) return fail(ov_error_io);
  domain->file_name.emplace(file_name);
  return fail(ov_error_none);
}

ov_status_t uai_enter_evidence(Domain *domain, const char *file_name, const char *text,
                               ov_parse_error_handler_t handler, void *data) {
  TextSource src;
  src.handler = handler;
  src.data = data;
  if (!load(src, file_name, text)) return ov_error_code();
  const std::vector<Node *> nodes = domain_nodes(domain);
  std::uint64_t count = 0;
  if (!read_count(src, nodes.size(), "number of observed variables", count)) return ov_error_code();
  // The older form: one sample, then its count.
  std::vector<Word> words;
  for (Word w = next_word(src); !w.text.empty(); w = next_word(src)) words.push_back(w);
  std::size_t first = 0;
  if (words.size() != 2 * count && count == 1 && !words.empty()) {
    std::uint64_t inner = 0;
    if (parse_count(words[0].text, inner) && words.size() == 2 * inner + 1) {
      count = inner;
      first = 1;
    }
  }
  if (words.size() - first != 2 * count) {
    const Word &w = words.empty() ? Word{} : words.back();
    source_report(src, w.line, w.column, "%llu observations announced, %zu numbers follow",
                  static_cast<unsigned long long>(count), words.size() - first);
    return ov_error_parse;
  }
  std::vector<std::pair<Node *, ov_index_t>> findings;
  for (std::size_t k = first; k < words.size(); k += 2) {
    std::uint64_t v = 0, s = 0;
    if (!parse_count(words[k].text, v) || v >= nodes.size())
      return report_expected(src, words[k], "variable index"), ov_error_parse;
    if (!parse_count(words[k + 1].text, s) || s >= static_cast<std::uint64_t>(ov_node_get_number_of_states(nodes[v])))
      return report_expected(src, words[k + 1], "state index"), ov_error_parse;
    findings.emplace_back(nodes[v], static_cast<ov_index_t>(s));
  }
  // Nothing is entered unless the whole file reads.
  for (auto [node, state] : findings)
    if (ov_node_select_state(node, state) != ov_error_none) return ov_error_code();
  return fail(ov_error_none);
}

} // namespace orvel
