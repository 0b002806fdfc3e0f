// The DOT writer. Everything is read through the domain's queries; the text
// is built whole in memory and written at once.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "api/error.h"
#include "io/dot.h"
#include "io/exchange.h"
#include "model/domain.h"

namespace orvel {
namespace {

// The length in bytes of the valid UTF-8 sequence at `s`, or 0.
std::size_t utf8_length(const unsigned char *s) {
  std::size_t n = 0;
  std::uint32_t code = 0;
  if (s[0] < 0x80) return 1;
  if (s[0] >= 0xc2 && s[0] <= 0xdf)
    n = 2, code = s[0] & 0x1f;
  else if (s[0] >= 0xe0 && s[0] <= 0xef)
    n = 3, code = s[0] & 0x0f;
  else if (s[0] >= 0xf0 && s[0] <= 0xf4)
    n = 4, code = s[0] & 0x07;
  else
    return 0;
  for (std::size_t i = 1; i < n; ++i) {
    if ((s[i] & 0xc0) != 0x80) return 0;
    code = code << 6 | (s[i] & 0x3f);
  }
  const bool overlong = (n == 3 && code < 0x800) || (n == 4 && code < 0x10000);
  const bool invalid = code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff);
  return overlong || invalid ? 0 : n;
}

// Text made valid UTF-8 without control characters, with the characters
// that `quote` must escape in the target syntax.
template <class Quote> std::string clean(const char *text, Quote quote) {
  std::string out;
  const auto *s = reinterpret_cast<const unsigned char *>(text == nullptr ? "" : text);
  while (*s != 0) {
    if (*s < 0x20 || *s == 0x7f) {
      out.push_back(' ');
      ++s;
      continue;
    }
    const std::size_t n = utf8_length(s);
    if (n == 0) { // a byte of another encoding: the character of its value
      out.push_back(static_cast<char>(0xc0 | *s >> 6));
      out.push_back(static_cast<char>(0x80 | (*s & 0x3f)));
      ++s;
    } else if (n == 1) {
      quote(out, static_cast<char>(*s++));
    } else {
      out.append(reinterpret_cast<const char *>(s), n);
      s += n;
    }
  }
  return out;
}

// The inside of a DOT quoted string.
std::string escaped(const char *text) {
  return clean(text, [](std::string &out, char c) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  });
}

std::string quoted(const char *text) {
  std::string out(1, '"');
  out += escaped(text);
  out += '"';
  return out;
}

// Text inside an HTML-like label.
std::string html(const char *text) {
  return clean(text, [](std::string &out, char c) {
    switch (c) {
    case '&': out += "&amp;"; break;
    case '<': out += "&lt;"; break;
    case '>': out += "&gt;"; break;
    case '"': out += "&quot;"; break;
    default: out.push_back(c);
    }
  });
}

const char *shape_of(Node *node) {
  switch (ov_node_get_category(node)) {
  case ov_category_decision: return "box";
  case ov_category_utility: return "diamond";
  case ov_category_instance: return "doubleoctagon";
  default: return "ellipse";
  }
}

// The node's label when it has one that says more than its name.
const char *extra_label(Node *node) {
  const char *label = ov_node_get_label(node);
  if (label == nullptr || *label == 0 || std::strcmp(label, ov_node_get_name(node)) == 0) return nullptr;
  return label;
}

void plain_node(std::string &out, Node *node) {
  out += "  ";
  out += quoted(ov_node_get_name(node));
  out += " [shape=";
  out += shape_of(node);
  out += ", label=\"";
  out += escaped(ov_node_get_name(node));
  if (const char *label = extra_label(node)) {
    out += "\\n";
    out += escaped(label);
  }
  out += "\"];\n";
}

// A discrete chance node as a table: a title row, then per state its label,
// its bar and its percentage.
void belief_node(std::string &out, Node *node) {
  const bool evidence = ov_node_evidence_is_propagated(node) == 1;
  const char *colour = evidence ? "#c0392b" : "#4682b4";
  out += "  " + quoted(ov_node_get_name(node)) + " [shape=box, style=\"rounded";
  out += evidence ? ",bold\"" : "\"";
  out += ", margin=0.05, label=<<table border=\"0\" cellspacing=\"0\" cellpadding=\"2\">\n";
  out += "    <tr><td colspan=\"3\"><b>" + html(ov_node_get_name(node)) + "</b>";
  if (const char *label = extra_label(node)) out += "<br/>" + html(label);
  out += "</td></tr>\n";
  const ov_count_t states = ov_node_get_number_of_states(node);
  for (ov_count_t s = 0; s < states; ++s) {
    const double belief = ov_node_get_belief(node, s);
    const long filled = std::lround(std::fmin(std::fmax(belief, 0.0), 1.0) * double{ov_dot_bar_length});
    out += "    <tr><td align=\"left\">" + html(ov_node_get_state_label(node, s)) + "</td><td>";
    out += "<table border=\"1\" color=\"#bbbbbb\" cellborder=\"0\" cellspacing=\"0\" cellpadding=\"0\"><tr>";
    // Graphviz draws a cell of width 0 one point wide, so an empty part is
    // left out rather than written with width 0.
    if (filled > 0)
      out += "<td fixedsize=\"true\" width=\"" + std::to_string(filled) + "\" height=\"9\" bgcolor=\"" + colour +
             "\"></td>";
    if (filled < ov_dot_bar_length)
      out += "<td fixedsize=\"true\" width=\"" + std::to_string(ov_dot_bar_length - filled) + "\" height=\"9\"></td>";
    char percent[32];
    std::snprintf(percent, sizeof percent, "%.1f%%", 100.0 * belief);
    out += "</tr></table></td><td align=\"right\">" + std::string(percent) + "</td></tr>\n";
  }
  out += "  </table>>];\n";
}

std::string network_text(Domain *domain, bool beliefs) {
  std::string out = "digraph network {\n  node [fontname=\"Helvetica\", fontsize=11];\n"
                    "  edge [color=\"#555555\"];\n";
  const std::vector<Node *> nodes = domain_nodes(domain);
  for (Node *node : nodes) {
    const bool bars =
        beliefs && ov_node_get_category(node) == ov_category_chance && ov_node_get_kind(node) == ov_kind_discrete;
    if (bars)
      belief_node(out, node);
    else
      plain_node(out, node);
  }
  for (Node *node : nodes) {
    ov_node_t *parents = ov_node_get_parents(node);
    for (; parents != nullptr && *parents != nullptr; ++parents)
      out += "  " + quoted(ov_node_get_name(*parents)) + " -> " + quoted(ov_node_get_name(node)) + ";\n";
  }
  return out + "}\n";
}

// The names of discrete or continuous nodes, one line, and their table size.
std::string members_text(const std::vector<Node *> &members) {
  std::string names;
  std::uint64_t size = 1;
  for (Node *node : members) {
    if (!names.empty()) names += ' ';
    names += ov_node_get_name(node);
    if (ov_node_get_kind(node) != ov_kind_discrete) continue;
    const auto states = static_cast<std::uint64_t>(ov_node_get_number_of_states(node));
    size = states != 0 && size > UINT64_MAX / states ? UINT64_MAX : size * states;
  }
  std::string text(1, '"');
  text += escaped(names.c_str());
  text += "\\nsize ";
  text += std::to_string(size);
  text += '"';
  return text;
}

std::vector<Node *> members_of(ov_clique_t clique) {
  std::vector<Node *> members;
  for (ov_node_t *m = ov_clique_get_members(clique); m != nullptr && *m != nullptr; ++m) members.push_back(*m);
  return members;
}

std::string junction_text(Domain *domain) {
  std::string out = "graph junction_forest {\n  node [shape=box, style=rounded, fontname=\"Helvetica\", "
                    "fontsize=11];\n  edge [fontname=\"Helvetica\", fontsize=9, color=\"#555555\"];\n";
  std::unordered_map<ov_clique_t, std::size_t> index;
  std::vector<ov_clique_t> cliques;
  for (ov_clique_t c = ov_domain_get_first_clique(domain); c != nullptr; c = ov_clique_get_next(c)) {
    index.emplace(c, cliques.size());
    cliques.push_back(c);
  }
  for (std::size_t i = 0; i < cliques.size(); ++i)
    out += "  C" + std::to_string(i) + " [label=" + members_text(members_of(cliques[i])) + "];\n";
  for (std::size_t i = 0; i < cliques.size(); ++i) {
    const std::vector<Node *> members = members_of(cliques[i]);
    for (ov_clique_t *n = ov_clique_get_neighbors(cliques[i]); n != nullptr && *n != nullptr; ++n) {
      const std::size_t j = index.at(*n);
      if (j < i) continue; // each separator once
      std::vector<Node *> separator;
      const std::vector<Node *> other = members_of(*n);
      for (Node *node : members)
        if (std::find(other.begin(), other.end(), node) != other.end()) separator.push_back(node);
      out += "  C" + std::to_string(i) + " -- C" + std::to_string(j) + " [label=" + members_text(separator) + "];\n";
    }
  }
  return out + "}\n";
}

} // namespace

ov_status_t dot_save_file(Domain *domain, const char *file_name, ov_dot_form_t form) {
  if (form != ov_dot_network && ov_domain_is_compiled(domain) != 1) return fail(ov_error_not_compiled);
  const std::string text =
      form == ov_dot_junction_tree ? junction_text(domain) : network_text(domain, form == ov_dot_beliefs);
  std::FILE *file = std::fopen(file_name, "wb");
  if (file == nullptr) return fail(ov_error_io);
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (std::fclose(file) != 0 || !written) return fail(ov_error_io);
  return fail(ov_error_none);
}

} // namespace orvel
