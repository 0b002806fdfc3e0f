// The XMLBIF reader and writer. The reader runs expat over the whole source
// and gathers the variables and definitions, then builds the domain, so that
// a definition may come before the variables it names. It accepts exactly
// the elements of the format, each inside its own parent, which bounds the
// nesting; a document type declaration (and with it every entity
// declaration) is refused, and so is an attribute value longer than
// max_attribute bytes.
#include <expat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "api/boundary.h"
#include "io/exchange.h"
#include "io/xmlbif.h"
#include "model/domain.h"

namespace orvel {
namespace {

constexpr std::size_t max_attribute = 1024;

struct Place {
  std::uint32_t line = 0, column = 0;
};

struct Variable {
  std::string name;
  std::vector<std::string> outcomes;
  std::vector<std::pair<std::string, std::string>> properties;
  Place place;
};

struct Definition {
  std::string child;
  std::vector<std::string> given;
  std::string table;
  bool has_table = false;
  std::vector<std::pair<std::string, std::string>> properties;
  Place place;
};

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::strchr(" \t\r\n", s.front()) != nullptr) s.remove_prefix(1);
  while (!s.empty() && std::strchr(" \t\r\n", s.back()) != nullptr) s.remove_suffix(1);
  return s;
}

// The parent each element must have ("" for the root).
const char *parent_of(std::string_view element) {
  static const std::pair<const char *, const char *> table[] = {{"BIF", ""},
                                                                {"NETWORK", "BIF"},
                                                                {"VARIABLE", "NETWORK"},
                                                                {"DEFINITION", "NETWORK"},
                                                                {"OUTCOME", "VARIABLE"},
                                                                {"FOR", "DEFINITION"},
                                                                {"GIVEN", "DEFINITION"},
                                                                {"TABLE", "DEFINITION"}};
  for (const auto &[name, parent] : table)
    if (element == name) return parent;
  return nullptr;
}

struct XmlReader {
  TextSource &src;
  XML_Parser parser = nullptr;
  std::vector<std::string> stack;
  std::string text; // character data of the innermost element
  std::vector<std::pair<std::string, std::string>> network_properties;
  std::vector<Variable> variables;
  std::vector<Definition> definitions;
  bool failed = false;

  explicit XmlReader(TextSource &source) : src(source) {}

  Place here() const {
    return {static_cast<std::uint32_t>(XML_GetCurrentLineNumber(parser)),
            static_cast<std::uint32_t>(XML_GetCurrentColumnNumber(parser) + 1)};
  }

  void stop(const char *format, const char *argument) {
    if (failed) return;
    failed = true;
    const Place p = here();
    source_report(src, p.line, p.column, format, argument);
    XML_StopParser(parser, XML_FALSE);
  }

  void start(const char *name, const char **attributes) {
    if (failed) return;
    for (const char **a = attributes; *a != nullptr; a += 2)
      if (std::strlen(a[1]) > max_attribute) return stop("attribute `%s' is too long", a[0]);
    const std::string_view element = name;
    const std::string parent = stack.empty() ? std::string() : stack.back();
    const char *wanted = parent_of(element);
    bool fits = wanted != nullptr && parent == wanted;
    if (element == "NAME") fits = parent == "NETWORK" || parent == "VARIABLE";
    if (element == "PROPERTY") fits = parent == "NETWORK" || parent == "VARIABLE" || parent == "DEFINITION";
    if (!fits) {
      if (parent.empty()) return stop("<%s> where <BIF> was expected", name);
      std::string message = "<%s> not expected inside <" + parent.substr(0, 64) + ">";
      return stop(message.c_str(), name);
    }
    stack.emplace_back(element);
    text.clear();
    if (element == "VARIABLE") {
      variables.emplace_back();
      variables.back().place = here();
      for (const char **a = attributes; *a != nullptr; a += 2)
        if (std::strcmp(a[0], "TYPE") == 0 && std::strcmp(a[1], "nature") != 0)
          return stop("variables of type `%s' are not supported, only `nature'", a[1]);
    } else if (element == "DEFINITION") {
      definitions.emplace_back();
      definitions.back().place = here();
    }
  }

  void end() {
    if (failed) return;
    const std::string element = stack.back();
    stack.pop_back();
    const std::string parent = stack.empty() ? std::string() : stack.back();
    const std::string value(trim(text));
    if (element == "NAME" && parent == "VARIABLE")
      variables.back().name = value;
    else if (element == "OUTCOME")
      variables.back().outcomes.push_back(value);
    else if (element == "FOR")
      definitions.back().child = value;
    else if (element == "GIVEN")
      definitions.back().given.push_back(value);
    else if (element == "TABLE")
      definitions.back().table = text, definitions.back().has_table = true;
    else if (element == "PROPERTY") {
      const std::size_t eq = value.find('=');
      std::pair<std::string, std::string> property(trim(std::string_view(value).substr(0, eq)), "");
      if (eq != std::string::npos) property.second = trim(std::string_view(value).substr(eq + 1));
      if (parent == "VARIABLE")
        variables.back().properties.push_back(std::move(property));
      else if (parent == "DEFINITION")
        definitions.back().properties.push_back(std::move(property));
      else
        network_properties.push_back(std::move(property));
    }
    text.clear();
  }

  void characters(const char *s, int length) {
    if (failed || stack.empty()) return;
    const std::string &element = stack.back();
    const bool leaf = element == "NAME" || element == "OUTCOME" || element == "FOR" || element == "GIVEN" ||
                      element == "TABLE" || element == "PROPERTY";
    if (leaf) {
      text.append(s, static_cast<std::size_t>(length));
      return;
    }
    for (int i = 0; i < length; ++i)
      if (std::strchr(" \t\r\n", s[i]) == nullptr) return stop("text not expected inside <%s>", element.c_str());
  }
};

void XMLCALL on_start(void *data, const XML_Char *name, const XML_Char **attributes) {
  static_cast<XmlReader *>(data)->start(name, attributes);
}
void XMLCALL on_end(void *data, const XML_Char *) { static_cast<XmlReader *>(data)->end(); }
void XMLCALL on_text(void *data, const XML_Char *s, int length) {
  static_cast<XmlReader *>(data)->characters(s, length);
}
void XMLCALL on_doctype(void *data, const XML_Char *, const XML_Char *, const XML_Char *, int) {
  static_cast<XmlReader *>(data)->stop("%s", "a document type declaration is not allowed");
}

struct ParserHolder {
  XML_Parser parser;
  ~ParserHolder() {
    if (parser != nullptr) XML_ParserFree(parser);
  }
};

bool gather(XmlReader &reader) {
  ParserHolder holder{XML_ParserCreate("UTF-8")};
  if (holder.parser == nullptr) return set_error(ov_error_no_memory), false;
  reader.parser = holder.parser;
  XML_SetUserData(holder.parser, &reader);
  XML_SetElementHandler(holder.parser, on_start, on_end);
  XML_SetCharacterDataHandler(holder.parser, on_text);
  XML_SetStartDoctypeDeclHandler(holder.parser, on_doctype);
  const std::string &t = reader.src.text;
  if (t.size() > 0x7fffffff) {
    source_report(reader.src, 1, 1, "%s", "input too large");
    return false;
  }
  const XML_Status status = XML_Parse(holder.parser, t.data(), static_cast<int>(t.size()), XML_TRUE);
  if (reader.failed) return false;
  if (status != XML_STATUS_OK) {
    source_report(reader.src, static_cast<std::uint32_t>(XML_GetCurrentLineNumber(holder.parser)),
                  static_cast<std::uint32_t>(XML_GetCurrentColumnNumber(holder.parser) + 1), "%s",
                  XML_ErrorString(XML_GetErrorCode(holder.parser)));
    return false;
  }
  return true;
}

bool api_failed(TextSource &src, const Place &p) {
  const ov_error_t code = ov_error_code() == ov_error_none ? ov_error_error : ov_error_code();
  source_report(src, p.line, p.column, "%s", ov_error_description(code));
  set_error(code);
  return false;
}

bool store_properties(TextSource &src, Domain *domain, Node *node,
                      const std::vector<std::pair<std::string, std::string>> &properties, const Place &p) {
  for (const auto &[key, value] : properties) {
    if (node != nullptr && key == "position") {
      int x = 0, y = 0;
      char tail = 0;
      if (std::sscanf(value.c_str(), " ( %d , %d ) %c", &x, &y, &tail) == 2) {
        ov_node_set_position(node, x, y);
        continue;
      }
    }
    if (node != nullptr && key == "label") {
      if (ov_node_set_label(node, value.c_str()) != ov_error_none) return api_failed(src, p);
      continue;
    }
    const ov_status_t status = node != nullptr ? ov_node_set_attribute(node, key.c_str(), value.c_str())
                                               : ov_domain_set_attribute(domain, key.c_str(), value.c_str());
    if (status == ov_error_none) continue;
    if (ov_error_code() == ov_error_no_memory) return api_failed(src, p);
    if (src.handler != nullptr) {
      std::string note = src.name + ":" + std::to_string(p.line) + ":" + std::to_string(p.column) +
                         ": warning: property `" + key.substr(0, 200) + "' is not kept";
      src.handler(p.line, note.c_str(), src.data);
    }
  }
  return true;
}

// The numbers of a definition's table.
bool table_numbers(TextSource &src, const Definition &d, std::vector<double> &numbers) {
  const Place &p = d.place;
  if (!d.has_table)
    return source_report(src, p.line, p.column, "the definition of `%s' has no <TABLE>",
                         d.child.substr(0, 200).c_str()),
           false;
  std::string_view rest = d.table;
  for (;;) {
    rest = trim(rest);
    if (rest.empty()) return true;
    std::size_t end = 0;
    while (end < rest.size() && std::strchr(" \t\r\n", rest[end]) == nullptr) ++end;
    double value = 0;
    if (!parse_number(rest.substr(0, end), value))
      return source_report(src, p.line, p.column, "the table of `%s' holds `%s', not a number",
                           d.child.substr(0, 200).c_str(),
                           std::string(rest.substr(0, std::min<std::size_t>(end, 64))).c_str()),
             false;
    numbers.push_back(value);
    rest.remove_prefix(end);
  }
}

bool build(XmlReader &reader, Domain *domain) {
  TextSource &src = reader.src;
  std::unordered_map<std::string, std::pair<Node *, bool>> nodes; // node, has a definition
  std::unordered_map<Node *, std::unordered_set<std::string>> seen;
  for (const Variable &v : reader.variables) {
    const Place &p = v.place;
    if (nodes.count(v.name) != 0)
      return source_report(src, p.line, p.column, "variable `%s' declared twice", v.name.substr(0, 200).c_str()), false;
    if (v.outcomes.empty())
      return source_report(src, p.line, p.column, "variable `%s' has no outcomes", v.name.substr(0, 200).c_str()),
             false;
    Node *node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    if (node == nullptr) return api_failed(src, p);
    if (ov_node_set_name(node, v.name.c_str()) != ov_error_none)
      return source_report(src, p.line, p.column, "`%s' is not a legal node name", v.name.substr(0, 200).c_str()),
             false;
    if (ov_node_set_number_of_states(node, static_cast<ov_count_t>(v.outcomes.size())) != ov_error_none)
      return api_failed(src, p);
    std::unordered_set<std::string> labels;
    for (std::size_t s = 0; s < v.outcomes.size(); ++s) {
      if (!labels.insert(v.outcomes[s]).second)
        return source_report(src, p.line, p.column, "outcome `%s' of `%s' given twice",
                             v.outcomes[s].substr(0, 200).c_str(), v.name.substr(0, 200).c_str()),
               false;
      if (ov_node_set_state_label(node, static_cast<ov_index_t>(s), v.outcomes[s].c_str()) != ov_error_none)
        return api_failed(src, p);
    }
    if (!store_properties(src, domain, node, v.properties, p)) return false;
    nodes.emplace(v.name, std::make_pair(node, false));
  }
  if (nodes.empty()) return source_report(src, 1, 1, "%s", "no variables"), false;
  if (!store_properties(src, domain, nullptr, reader.network_properties, Place{1, 1})) return false;
  for (const Definition &d : reader.definitions) {
    const Place &p = d.place;
    auto child = nodes.find(d.child);
    if (child == nodes.end())
      return source_report(src, p.line, p.column, "variable `%s' is not declared", d.child.substr(0, 200).c_str()),
             false;
    if (child->second.second)
      return source_report(src, p.line, p.column, "a second definition for `%s'", d.child.substr(0, 200).c_str()),
             false;
    child->second.second = true;
    Node *node = child->second.first;
    std::vector<Node *> parents;
    for (const std::string &g : d.given) {
      auto parent = nodes.find(g);
      if (parent == nodes.end())
        return source_report(src, p.line, p.column, "variable `%s' is not declared", g.substr(0, 200).c_str()), false;
      parents.push_back(parent->second.first);
    }
    std::vector<double> numbers;
    if (!table_numbers(src, d, numbers)) return false;
    const std::uint64_t cells = table_cells(node, parents);
    if (numbers.size() != cells)
      return source_report(src, p.line, p.column, "the table of `%s' has %zu numbers, %llu expected",
                           d.child.substr(0, 200).c_str(), numbers.size(), static_cast<unsigned long long>(cells)),
             false;
    std::size_t failed = 0;
    if (add_parents_in_order(node, parents, failed) != ov_error_none) {
      const ov_error_t code = ov_error_code();
      source_report(src, p.line, p.column, "`%s' as a parent of `%s' %s", d.given[failed].substr(0, 200).c_str(),
                    d.child.substr(0, 200).c_str(),
                    code == ov_error_cyclic_network ? "makes a cycle" : "is given twice or is the node itself");
      set_error(code == ov_error_cyclic_network ? code : ov_error_parse);
      return false;
    }
    const TableLayout layout = table_layout(node);
    for (std::size_t k = 0; k < layout.size; ++k)
      layout.data[table_offset(layout, k / layout.child_states, static_cast<std::uint32_t>(k % layout.child_states))] =
          static_cast<float>(numbers[k]);
    if (!store_properties(src, domain, node, d.properties, p)) return false;
  }
  for (const Variable &v : reader.variables)
    if (!nodes[v.name].second)
      return source_report(src, v.place.line, v.place.column, "no definition for `%s'", v.name.substr(0, 200).c_str()),
             false;
  return true;
}

// ------------------------------------------------------------ writing

bool has_control(const char *s) {
  for (; *s != 0; ++s)
    if (static_cast<unsigned char>(*s) < 0x20 && *s != '\t') return true;
  return false;
}

// Text that reads back the same after the reader trims it.
bool text_fits(const char *s) {
  const std::size_t n = std::strlen(s);
  return !has_control(s) && (n == 0 || (s[0] != ' ' && s[0] != '\t' && s[n - 1] != ' ' && s[n - 1] != '\t'));
}

std::string escaped(const char *s) {
  std::string out;
  for (; *s != 0; ++s) {
    switch (*s) {
    case '&': out += "&amp;"; break;
    case '<': out += "&lt;"; break;
    case '>': out += "&gt;"; break;
    case '"': out += "&quot;"; break;
    default: out.push_back(*s);
    }
  }
  return out;
}

bool refuse_xml(Domain *domain, const char *what, const char *name) {
  log_printf(domain, "XMLBIF cannot hold %s: `%s'\n", what, name);
  return fail(ov_error_format), false;
}

bool attribute_fits(ov_attribute_t a, bool on_node) {
  const char *key = ov_attribute_get_key(a);
  if (*key == 0 || std::strchr(key, '=') != nullptr || !text_fits(key) || !text_fits(ov_attribute_get_value(a)))
    return false;
  return !on_node || (std::strcmp(key, "label") != 0 && std::strcmp(key, "position") != 0);
}

bool check_xmlbif(Domain *domain) {
  if (!check_discrete_network(domain, "XMLBIF")) return false;
  for (ov_attribute_t a = ov_domain_get_first_attribute(domain); a != nullptr; a = ov_attribute_get_next(a))
    if (!attribute_fits(a, false)) return refuse_xml(domain, "the attribute", ov_attribute_get_key(a));
  for (Node *node : domain_nodes(domain)) {
    std::unordered_set<std::string> seen;
    for (ov_count_t s = 0; s < ov_node_get_number_of_states(node); ++s) {
      const char *label = ov_node_get_state_label(node, s);
      if (label == nullptr || *label == 0 || !text_fits(label) || !seen.insert(label).second)
        return refuse_xml(domain, "a state label (missing, twice, with control characters or blanks at an end) of",
                          ov_node_get_name(node));
    }
    const char *label = ov_node_get_label(node);
    if (label != nullptr && !text_fits(label)) return refuse_xml(domain, "the label of", ov_node_get_name(node));
    for (ov_attribute_t a = ov_node_get_first_attribute(node); a != nullptr; a = ov_attribute_get_next(a))
      if (!attribute_fits(a, true)) return refuse_xml(domain, "the attribute", ov_attribute_get_key(a));
  }
  set_error(ov_error_none);
  return true;
}

void write_properties(std::string &out, ov_attribute_t a, const char *indent) {
  for (; a != nullptr; a = ov_attribute_get_next(a))
    out += std::string(indent) + "<PROPERTY>" + escaped(ov_attribute_get_key(a)) + " = " +
           escaped(ov_attribute_get_value(a)) + "</PROPERTY>\n";
}

std::string xmlbif_text(Domain *domain) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- XMLBIF written by Orvel -->\n"
                    "<BIF VERSION=\"0.3\">\n<NETWORK>\n<NAME>unknown</NAME>\n";
  write_properties(out, ov_domain_get_first_attribute(domain), "");
  const std::vector<Node *> nodes = domain_nodes(domain);
  for (Node *node : nodes) {
    out += "<VARIABLE TYPE=\"nature\">\n  <NAME>" + escaped(ov_node_get_name(node)) + "</NAME>\n";
    for (ov_count_t s = 0; s < ov_node_get_number_of_states(node); ++s)
      out += "  <OUTCOME>" + escaped(ov_node_get_state_label(node, s)) + "</OUTCOME>\n";
    const char *label = ov_node_get_label(node);
    if (label != nullptr && *label != 0) out += "  <PROPERTY>label = " + escaped(label) + "</PROPERTY>\n";
    int x = 0, y = 0;
    if (ov_node_get_position(node, &x, &y) == ov_error_none && (x != 0 || y != 0))
      out += "  <PROPERTY>position = (" + std::to_string(x) + ", " + std::to_string(y) + ")</PROPERTY>\n";
    write_properties(out, ov_node_get_first_attribute(node), "  ");
    out += "</VARIABLE>\n";
  }
  for (Node *node : nodes) {
    const TableLayout layout = table_layout(node);
    out += "<DEFINITION>\n  <FOR>" + escaped(ov_node_get_name(node)) + "</FOR>\n";
    for (Node *p : layout.parents) out += "  <GIVEN>" + escaped(ov_node_get_name(p)) + "</GIVEN>\n";
    out += "  <TABLE>";
    for (std::size_t row = 0; row < layout.rows; ++row)
      for (std::uint32_t s = 0; s < layout.child_states; ++s) {
        if ((row | s) != 0) out += ' ';
        out += float_text(layout.data[table_offset(layout, row, s)]);
      }
    out += "</TABLE>\n</DEFINITION>\n";
  }
  return out + "</NETWORK>\n</BIF>\n";
}

} // namespace

Domain *xmlbif_parse(const char *file_name, const char *text, ov_parse_error_handler_t handler, void *data) noexcept {
  return guarded<Domain *>(nullptr, [&]() -> Domain * {
    TextSource src;
    src.handler = handler;
    src.data = data;
    if (file_name != nullptr) {
      if (!source_from_file(src, file_name)) return nullptr;
    } else {
      source_from_string(src, text);
    }
    XmlReader reader(src);
    if (!gather(reader)) return nullptr;
    return read_new_domain(file_name, [&](Domain *domain) { return build(reader, domain); });
  });
}

ov_status_t xmlbif_save_file(Domain *domain, const char *file_name) {
  if (!check_xmlbif(domain)) return ov_error_code();
  const std::string out = xmlbif_text(domain);
  std::FILE *file = std::fopen(file_name, "wb");
  if (file == nullptr) return fail(ov_error_io);
  const bool written = std::fwrite(out.data(), 1, out.size(), file) == out.size();
  if (std::fclose(file) != 0 || !written) return fail(ov_error_io);
  domain->file_name.emplace(file_name);
  return fail(ov_error_none);
}

} // namespace orvel
