// The NET parser: file structure, net, node, class and instance blocks, the
// deferred binding pass of class interfaces and the old node format.
#include "io/net_parser.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "api/error.h"
#include "io/name_resolver.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"
#include "table/table.h"

namespace orvel {

// ---------------------------------------------------------------- tokens and errors

int net_next(NetParser &p) noexcept {
  const std::uint32_t before = p.ctx.error_count;
  int token = p.ctx.next_token(&p.ctx);
  p.scanner_reported = p.ctx.error_count != before;
  return token;
}

int net_next_expression(NetParser &p) noexcept {
  const std::uint32_t before = p.ctx.error_count;
  int token = scan_expression_token(&p.ctx);
  p.scanner_reported = p.ctx.error_count != before;
  return token;
}

namespace {

void report_v(NetParser &p, const char *format, va_list args) noexcept {
  char message[message_capacity];
  std::vsnprintf(message, sizeof message, format, args);
  parse_report(&p.ctx, message);
}

} // namespace

ov_status_t net_hard(NetParser &p, ov_error_t code, const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  report_v(p, format, args);
  va_end(args);
  return fail(code);
}

ov_status_t net_unexpected(NetParser &p, int token, const char *format, ...) noexcept {
  if (token == tok_error && p.scanner_reported) {
    ov_error_t code = ov_error_code();
    return fail(code == ov_error_none ? ov_error_parse : code);
  }
  va_list args;
  va_start(args, format);
  report_v(p, format, args);
  va_end(args);
  return fail(ov_error_parse);
}

ov_status_t net_api_error(NetParser &p) noexcept {
  ov_error_t code = ov_error_code();
  if (code == ov_error_none) code = ov_error_error;
  parse_reportf(&p.ctx, "API error: %s", ov_error_name(code));
  return fail(code);
}

ov_status_t net_expect(NetParser &p, int c) noexcept {
  int token = net_next(p);
  if (token == c) return ov_error_none;
  return net_unexpected(p, token, "`%c' expected", c);
}

namespace {

// A double as an int, truncated towards 0 and held within the int range
// (NaN reads as 0), so that hostile numbers cannot overflow a conversion.
int clamp_to_int(double value) noexcept {
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int>(value);
}

// A name copied out of the scanner's buffer, which the next token reuses.
std::string token_text(const NetParser &p) { return p.ctx.text_or_empty(); }

// Turns round the entries added to an attribute list since it held
// `old_count` entries (they stand newest first at its head) and puts them
// behind the older ones, so that the list is in file order.
void attributes_in_file_order(AttributeList &list, std::size_t old_count) {
  std::vector<std::unique_ptr<Attribute>> entries;
  for (std::unique_ptr<Attribute> a = std::move(list.first); a;) {
    std::unique_ptr<Attribute> next = std::move(a->next);
    entries.push_back(std::move(a));
    a = std::move(next);
  }
  const std::size_t added = entries.size() - std::min(old_count, entries.size());
  std::reverse(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(added));
  std::rotate(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(added), entries.end());
  for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
    (*it)->next = std::move(list.first);
    list.first = std::move(*it);
  }
}

std::size_t attribute_count(const AttributeList &list) noexcept {
  std::size_t n = 0;
  for (const Attribute *a = list.first.get(); a != nullptr; a = a->next.get()) ++n;
  return n;
}

// The rest of an attribute item `name = value ;` whose name has been read: a
// string value stored with the key test off.
ov_status_t parse_user_attribute(NetParser &p, AttributeList &list, const std::string &key) {
  int token = net_next(p);
  if (token != tok_string) return net_unexpected(p, token, "value of a user-defined attribute must be a string");
  if (attribute_set(list, key.c_str(), p.ctx.text_or_empty(), false) != ov_error_none) return net_api_error(p);
  return net_expect(p, ';');
}

// `(` names `)` of a class's inputs or outputs, recorded for the binding pass.
ov_status_t parse_interface_names(NetParser &p, std::vector<NameAtLine> &names) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == ')') break;
    if (token != tok_name && token != tok_dotted_name) return net_unexpected(p, token, "node name or `)' expected");
    names.push_back({token_text(p), p.ctx.line});
  }
  return net_expect(p, ';');
}

// Items of a net block, or the attribute items of a class block (with its
// two interface keys), after the key.
ov_status_t parse_scope_attribute(NetParser &p, const std::string &key) {
  if (net_expect(p, '=') != ov_error_none) return ov_error_code();
  Domain *scope = p.scope;
  if (key == "node_size") {
    float size[2];
    if (parse_number_list(p, 2, size, false) != ov_error_none) return ov_error_code();
    scope->node_width = clamp_to_int(static_cast<double>(size[0]) + 0.5);
    scope->node_height = clamp_to_int(static_cast<double>(size[1]) + 0.5);
    return net_expect(p, ';');
  }
  if (scope->is_class() && (key == "inputs" || key == "outputs")) {
    bool &seen = key == "inputs" ? p.inputs_seen : p.outputs_seen;
    if (seen) return net_hard(p, ov_error_parse, "attribute `%s' defined twice", key.c_str());
    seen = true;
    return parse_interface_names(p, key == "inputs" ? p.inputs : p.outputs);
  }
  return parse_user_attribute(p, scope->attributes, key);
}

ov_status_t parse_net_block(NetParser &p) {
  if (net_expect(p, '{') != ov_error_none) return ov_error_code();
  const std::size_t old_count = attribute_count(p.scope->attributes);
  for (;;) {
    int token = net_next(p);
    if (token == '}') break;
    if (token != tok_name) return net_unexpected(p, token, "`}' or an attribute name expected");
    std::string key = token_text(p);
    if (parse_scope_attribute(p, key) != ov_error_none) return ov_error_code();
  }
  attributes_in_file_order(p.scope->attributes, old_count);
  return set_error(ov_error_none);
}

bool is_discrete_state_node(const Node *node) noexcept { return node->has_states(); }

// `(` strings `)`, after the `=` of a states item. With `keep` false the
// labels are read for their syntax only.
ov_status_t parse_state_list(NetParser &p, std::vector<std::optional<std::string>> &labels) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == ')') break;
    if (token != tok_string) return net_unexpected(p, token, "state or `)' expected");
    labels.emplace_back(p.ctx.text_or_empty());
  }
  if (labels.empty()) return net_hard(p, ov_error_parse, "empty list of states");
  return set_error(ov_error_none);
}

void set_states(Node *node, std::vector<std::optional<std::string>> &&labels) {
  auto shared = std::make_shared<StateLabels>(std::move(labels));
  node->state_count = static_cast<std::uint32_t>(shared->size());
  node->state_labels = std::move(shared);
  node->state_values.reset();
}

ov_status_t parse_states_item(NetParser &p, Node *node) {
  bool keep = true;
  if (!is_discrete_state_node(node)) {
    parse_report(&p.ctx, "only discrete nodes can have states");
    keep = false;
  } else if (node->state_labels) {
    parse_report(&p.ctx, "states specified twice (or more)");
    keep = false;
  }
  std::vector<std::optional<std::string>> labels;
  if (parse_state_list(p, labels) != ov_error_none) return ov_error_code();
  if (keep) set_states(node, std::move(labels));
  return set_error(ov_error_none);
}

ov_status_t parse_subtype_item(NetParser &p, Node *node) {
  const bool discrete = is_discrete_state_node(node);
  if (!discrete) parse_report(&p.ctx, "subtype designations only make sense for discrete nodes");
  int token = net_next(p);
  static const char *const expected = "`label', `boolean', `number', or `interval' expected";
  if (token != tok_name) return net_unexpected(p, token, "%s", expected);
  const char *text = p.ctx.text_or_empty();
  ov_subtype_t subtype;
  if (std::strcmp(text, "label") == 0)
    subtype = ov_subtype_label;
  else if (std::strcmp(text, "boolean") == 0)
    subtype = ov_subtype_boolean;
  else if (std::strcmp(text, "number") == 0)
    subtype = ov_subtype_number;
  else if (std::strcmp(text, "interval") == 0)
    subtype = ov_subtype_interval;
  else {
    parse_report(&p.ctx, expected);
    return set_error(ov_error_none);
  }
  if (discrete) node->subtype = subtype;
  return set_error(ov_error_none);
}

ov_status_t parse_state_values_item(NetParser &p, Node *node) {
  if (!is_discrete_state_node(node)) return net_hard(p, ov_error_parse, "only discrete nodes can have state values");
  if (node->subtype != ov_subtype_number && node->subtype != ov_subtype_interval)
    return net_hard(p, ov_error_parse, "only numeric nodes can have state values");
  if (!node->state_labels) return net_hard(p, ov_error_parse, "states must be specified before state values");
  if (node->state_values) return net_hard(p, ov_error_parse, "state values have already been specified");
  auto values = std::make_shared<StateValues>(static_cast<std::size_t>(node->state_count) + 1, -1.0);
  if (node->subtype == ov_subtype_interval) {
    values->front() = -DBL_MAX;
    values->back() = DBL_MAX;
  }
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  std::uint64_t count = 0;
  for (;;) {
    int token = net_next_expression(p);
    if (token == ')') break;
    double sign = 1.0;
    if (token == '+' || token == '-') {
      if (token == '-') sign = -1.0;
      token = net_next_expression(p);
    }
    double value;
    if (token == tok_number)
      value = p.ctx.number;
    else if (token == tok_name && std::strcmp(p.ctx.text_or_empty(), "infinity") == 0)
      value = DBL_MAX;
    else
      return net_unexpected(p, token, "state value expected");
    if (count < values->size()) (*values)[count] = sign * value;
    ++count;
  }
  const std::uint64_t wanted = node->subtype == ov_subtype_number ? node->state_count : node->state_count + 1ull;
  if (count != wanted) parse_report(&p.ctx, "incorrect number of state values");
  node->state_values = std::move(values);
  return net_expect(p, ';');
}

// label, position and user attributes: the items shared by node and
// instance blocks. `handled` is false for any other key.
ov_status_t parse_common_node_item(NetParser &p, Node *node, const std::string &key, bool &handled) {
  handled = true;
  if (key == "label") {
    int token = net_next(p);
    if (token != tok_string) return net_unexpected(p, token, "string expected");
    if (ov_node_set_label(node, p.ctx.text_or_empty()) != ov_error_none) return net_api_error(p);
    return net_expect(p, ';');
  }
  if (key == "position") {
    float position[2];
    if (parse_number_list(p, 2, position, true) != ov_error_none) return ov_error_code();
    node->position_x = clamp_to_int(position[0]);
    node->position_y = clamp_to_int(position[1]);
    return net_expect(p, ';');
  }
  handled = false;
  return ov_error_none;
}

// Items up to `}` of a node or (with `instance`) an instance block.
ov_status_t parse_node_items(NetParser &p, Node *node, bool instance) {
  if (net_expect(p, '{') != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == '}') break;
    if (token != tok_name) return net_unexpected(p, token, "`}' or an attribute name expected");
    std::string key = token_text(p);
    if (net_expect(p, '=') != ov_error_none) return ov_error_code();
    bool handled;
    if (parse_common_node_item(p, node, key, handled) != ov_error_none) return ov_error_code();
    if (handled) continue;
    ov_status_t status;
    if (!instance && key == "states") {
      if ((status = parse_states_item(p, node)) == ov_error_none) status = net_expect(p, ';');
    } else if (!instance && key == "subtype") {
      if ((status = parse_subtype_item(p, node)) == ov_error_none) status = net_expect(p, ';');
    } else if (!instance && key == "state_values") {
      status = parse_state_values_item(p, node);
    } else {
      status = parse_user_attribute(p, node->attributes, key);
    }
    if (status != ov_error_none) return status;
  }
  attributes_in_file_order(node->attributes, 0);
  if (!instance && is_discrete_state_node(node) && node->subtype == ov_subtype_boolean && node->state_count != 2)
    parse_report(&p.ctx, "a boolean node must have exactly two states");
  return set_error(ov_error_none);
}

ov_status_t parse_node_block(NetParser &p, ov_category_t category, ov_kind_t kind) {
  Node *node = ov_domain_new_node(p.scope, category, kind);
  if (node == nullptr) return net_api_error(p);
  int token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "name expected");
  std::string name = token_text(p);
  ov_status_t status = ov_node_set_name(node, name.c_str());
  if (status == ov_error_twice)
    return net_hard(p, ov_error_twice, "a node with name `%s' already exists", message_name(name.c_str()).text);
  if (status != ov_error_none) return net_api_error(p);
  return parse_node_items(p, node, false);
}

// ---------------------------------------------------------------- instances

ov_status_t parse_output_bindings(NetParser &p, Node *instance, Domain *cls) {
  bool first = true;
  for (;;) {
    int token = net_next(p);
    if (token != tok_name) {
      if (first) return net_unexpected(p, token, "name or `)' expected");
      return net_unexpected(p, token, "name expected");
    }
    first = false;
    std::string new_name = token_text(p);
    if (net_expect(p, '=') != ov_error_none) return ov_error_code();
    token = net_next(p);
    if (token != tok_name) return net_unexpected(p, token, "name expected");
    std::string output_name = token_text(p);
    const char *class_name = class_get_name(cls);
    if (class_name == nullptr) return net_api_error(p);
    Node *output = domain_find_node(cls, output_name.c_str());
    if (output == nullptr)
      return net_hard(p, ov_error_parse, "class `%s' does not have a node named `%s'", message_name(class_name).text,
                      message_name(output_name.c_str()).text);
    Node *clone = ov_node_get_output(instance, output);
    if (clone == nullptr)
      return net_hard(p, ov_error_parse, "node `%s' is not an output node in class `%s'",
                      message_name(output_name.c_str()).text, message_name(class_name).text);
    ov_status_t status = ov_node_set_name(clone, new_name.c_str());
    if (status == ov_error_twice)
      return net_hard(p, ov_error_twice, "a node named `%s' already exists", message_name(new_name.c_str()).text);
    if (status != ov_error_none) return net_api_error(p);
    token = net_next(p);
    if (token == ')') return set_error(ov_error_none);
    if (token != ',') return net_unexpected(p, token, "`,' or `)' expected");
  }
}

ov_status_t parse_bindings(NetParser &p, Node *instance, Domain *cls) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  int token = net_next(p);
  if (token == ')') return set_error(ov_error_none);
  if (token == ';') return parse_output_bindings(p, instance, cls);
  if (token != tok_name) return net_unexpected(p, token, "name, `;', or `)' expected");
  p.bindings.push_back({instance, {}, {}});
  for (;;) {
    // The formal's name is in the buffer.
    InstanceBindings &record = p.bindings.back();
    record.formals.push_back({token_text(p), p.ctx.line});
    if (net_expect(p, '=') != ov_error_none) return ov_error_code();
    token = net_next(p);
    if (token != tok_name && token != tok_dotted_name) return net_unexpected(p, token, "name expected");
    record.actuals.push_back({token_text(p), p.ctx.line});
    token = net_next(p);
    if (token == ')') return set_error(ov_error_none);
    if (token == ';') return parse_output_bindings(p, instance, cls);
    if (token != ',') return net_unexpected(p, token, "`,', `;', or `)' expected");
    token = net_next(p);
    if (token != tok_name) return net_unexpected(p, token, "name expected");
  }
}

ov_status_t parse_instance_block(NetParser &p) {
  int token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "name expected");
  std::string name = token_text(p);
  if (net_expect(p, ':') != ov_error_none) return ov_error_code();
  token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "name expected");
  std::string class_name = token_text(p);
  ClassCollection *collection = p.ctx.class_collection;
  Domain *cls = cc_find_class(collection, class_name.c_str());
  if (cls == nullptr && p.ctx.class_loader != nullptr) {
    // The loader gets a private copy, freed when it returns.
    std::string copy = class_name;
    p.ctx.class_loader(copy.data(), collection, p.ctx.class_loader_data);
    cls = cc_find_class(collection, class_name.c_str());
  }
  if (cls == nullptr)
    return net_hard(p, ov_error_parse, "loading class `%s' failed", message_name(class_name.c_str()).text);
  Node *instance = ov_class_new_instance(as_class(p.scope), as_class(cls));
  if (instance == nullptr) {
    if (ov_error_code() == ov_error_cyclic_instance_hierarchy)
      return net_hard(p, ov_error_cyclic_instance_hierarchy,
                      "adding class instance `%s' creates a cycle in the instance hierarchy",
                      message_name(name.c_str()).text);
    return net_api_error(p);
  }
  ov_status_t status = ov_node_set_name(instance, name.c_str());
  if (status == ov_error_twice)
    return net_hard(p, ov_error_twice, "a node named `%s' already exists", message_name(name.c_str()).text);
  if (status != ov_error_none) return net_api_error(p);
  if (parse_bindings(p, instance, cls) != ov_error_none) return ov_error_code();
  return parse_node_items(p, instance, true);
}

// ---------------------------------------------------------------- items

// The node and potential items shared by the file level and class blocks,
// after the first name. `matched` is false if the name starts none of them.
ov_status_t parse_shared_item(NetParser &p, const char *word, bool &matched) {
  matched = true;
  if (std::strcmp(word, "node") == 0) return parse_node_block(p, ov_category_chance, ov_kind_discrete);
  if (std::strcmp(word, "decision") == 0) return parse_node_block(p, ov_category_decision, ov_kind_discrete);
  if (std::strcmp(word, "utility") == 0) return parse_node_block(p, ov_category_utility, ov_kind_discrete);
  if (std::strcmp(word, "potential") == 0) return parse_potential(p);
  if (std::strcmp(word, "continuous") == 0) {
    int token = net_next(p);
    if (token != tok_name || std::strcmp(p.ctx.text_or_empty(), "node") != 0)
      return net_unexpected(p, token, "keyword `node' expected");
    return parse_node_block(p, ov_category_chance, ov_kind_continuous);
  }
  if (std::strcmp(word, "discrete") == 0) {
    int token = net_next(p);
    const char *next = p.ctx.text_or_empty();
    if (token == tok_name && std::strcmp(next, "node") == 0)
      return parse_node_block(p, ov_category_chance, ov_kind_discrete);
    if (token == tok_name && std::strcmp(next, "decision") == 0)
      return parse_node_block(p, ov_category_decision, ov_kind_discrete);
    return net_unexpected(p, token, "keyword `node' or keyword `decision' expected");
  }
  matched = false;
  return ov_error_none;
}

// The failure at the end of a parse that counted errors: the recorded code,
// or parse.
ov_status_t counted_failure() noexcept {
  ov_error_t code = ov_error_code();
  return fail(code == ov_error_none ? ov_error_parse : code);
}

// ---------------------------------------------------------------- binding pass

// Resolves a recorded name with the context's line set to the name's own.
Node *resolve_at_line(NetParser &p, Domain *scope, const NameAtLine &name) {
  std::string path = name.name;
  p.ctx.line = name.line;
  return resolve_node_path(&p.ctx, scope, path.data());
}

ov_status_t bind_interface(NetParser &p) {
  Domain *cls = p.scope;
  for (const NameAtLine &name : p.inputs) {
    Node *node = resolve_at_line(p, cls, name);
    if (node == nullptr) return ov_error_code();
    const MessageName shown = message_name(name.name.c_str());
    const char *text = shown.text;
    if (cls->class_info.inputs.contains(node))
      return net_hard(p, ov_error_parse, "node `%s' specified as input twice", text);
    ov_status_t status = ov_node_add_to_inputs(node);
    if (status == ov_error_usage) return net_hard(p, ov_error_parse, "node `%s' is not a valid input node", text);
    if (status != ov_error_none) return net_api_error(p);
  }
  for (const NameAtLine &name : p.outputs) {
    Node *node = resolve_at_line(p, cls, name);
    if (node == nullptr) return ov_error_code();
    const MessageName shown = message_name(name.name.c_str());
    const char *text = shown.text;
    if (cls->class_info.outputs.contains(node))
      return net_hard(p, ov_error_parse, "node `%s' specified as output twice", text);
    if (cls->class_info.inputs.contains(node))
      return net_hard(p, ov_error_parse, "node `%s' is specified both as input and as output", text);
    ov_status_t status = ov_node_add_to_outputs(node);
    if (status == ov_error_usage) return net_hard(p, ov_error_parse, "node `%s' is not a valid output node", text);
    if (status != ov_error_none) return net_api_error(p);
  }
  // Instances in list order: the order in which they were made.
  for (InstanceBindings &record : p.bindings) {
    Node *instance = record.instance;
    Domain *instance_class = instance->instance_class;
    for (std::size_t i = 0; i < record.formals.size(); ++i) {
      Node *formal = resolve_at_line(p, instance_class, record.formals[i]);
      if (formal == nullptr) return ov_error_code();
      const char *class_name = class_get_name(instance_class);
      if (class_name == nullptr) return net_api_error(p);
      const MessageName formal_shown = message_name(record.formals[i].name.c_str());
      const char *formal_text = formal_shown.text;
      if (!instance_class->class_info.inputs.contains(formal))
        return net_hard(p, ov_error_parse, "node `%s' is not an input parameter of class `%s'", formal_text,
                        message_name(class_name).text);
      if (ov_node_get_input(instance, formal) != nullptr)
        return net_hard(p, ov_error_parse, "input for node `%s' has been specified twice", formal_text);
      Node *actual = resolve_at_line(p, cls, record.actuals[i]);
      if (actual == nullptr) return ov_error_code();
      ov_status_t status = ov_node_set_input(instance, formal, actual);
      if (status == ov_error_usage)
        return net_hard(p, ov_error_parse, "nodes `%s' and `%s' are not compatible", formal_text,
                        message_name(record.actuals[i].name.c_str()).text);
      if (status != ov_error_none) return net_api_error(p);
    }
  }
  return set_error(ov_error_none);
}

ov_status_t parse_class_block(NetParser &p) {
  int token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "class name expected");
  std::string name = token_text(p);
  Domain *cls = as_domain(ov_cc_new_class(p.ctx.class_collection));
  if (cls == nullptr) return net_api_error(p);
  ov_status_t status = ov_class_set_name(as_class(cls), name.c_str());
  if (status == ov_error_twice)
    return net_hard(p, ov_error_twice, "a class with name `%s' already exists", message_name(name.c_str()).text);
  if (status != ov_error_none) return net_api_error(p);
  if (p.file_name != nullptr) cls->file_name.emplace(p.file_name);

  p.scope = cls;
  p.ctx.domain = cls;
  p.inputs.clear();
  p.outputs.clear();
  p.inputs_seen = p.outputs_seen = false;
  p.bindings.clear();
  p.decisions_specified.clear();

  if (net_expect(p, '{') != ov_error_none) return ov_error_code();
  for (;;) {
    token = net_next(p);
    if (token == '}') break;
    if (token != tok_name) return net_unexpected(p, token, "unexpected token");
    std::string word = token_text(p);
    if (word == "class") return net_hard(p, ov_error_parse, "nested classes are not permitted");
    if (word == "instance") {
      if (parse_instance_block(p) != ov_error_none) return ov_error_code();
      continue;
    }
    bool matched;
    if (parse_shared_item(p, word.c_str(), matched) != ov_error_none) return ov_error_code();
    if (matched) continue;
    if (parse_scope_attribute(p, word) != ov_error_none) return ov_error_code();
  }
  if (p.ctx.error_count > 0) return counted_failure();
  const std::uint32_t line = p.ctx.line;
  status = bind_interface(p);
  p.ctx.line = line;
  if (status != ov_error_none) return status;
  attributes_in_file_order(cls->attributes, 0);
  domain_finish_lists(cls);
  return set_error(ov_error_none);
}

// ---------------------------------------------------------------- old node format

struct OldNodeRecord {
  std::uint32_t first_use_line = 0;
  std::uint32_t defined_line = 0;
  bool defined = false;
};

using OldRecords = std::unordered_map<Node *, OldNodeRecord>;

// The node of that name, or a new discrete chance node without states. Names
// of this format are words and need not be identifiers.
Node *old_find_or_make(NetParser &p, OldRecords &records, const std::string &name) {
  Node *node = domain_find_node(p.scope, name.c_str());
  if (node != nullptr) return node;
  node = ov_domain_new_node(p.scope, ov_category_chance, ov_kind_discrete);
  if (node == nullptr) return nullptr;
  node->name.emplace(name);
  name_table_rename(p.scope, node, std::nullopt);
  node->state_count = 0;
  records[node].first_use_line = p.ctx.line;
  return node;
}

ov_status_t old_header(NetParser &p) {
  Domain *domain = p.scope;
  int token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "name expected");
  if (attribute_set(domain->attributes, "name", p.ctx.text_or_empty(), false) != ov_error_none) return net_api_error(p);
  token = net_next(p);
  if (token != tok_string) return net_unexpected(p, token, "string expected");
  if (*p.ctx.text_or_empty() != 0 &&
      attribute_set(domain->attributes, "label", p.ctx.text_or_empty(), false) != ov_error_none)
    return net_api_error(p);
  double numbers[3];
  for (double &number : numbers) {
    token = net_next(p);
    if (token != tok_number) return net_unexpected(p, token, "number expected");
    number = p.ctx.number;
  }
  if (!(numbers[0] >= 0 && numbers[1] >= 0 && numbers[2] >= 0))
    return net_hard(p, ov_error_parse, "node width and height, and scale factor must be nonnegative");
  domain->node_width = clamp_to_int(numbers[0] * numbers[2] + 0.5);
  domain->node_height = clamp_to_int(numbers[1] * numbers[2] + 0.5);
  p.ctx.scale = numbers[2];
  attributes_in_file_order(domain->attributes, 0);
  return set_error(ov_error_none);
}

ov_status_t old_node_record(NetParser &p, OldRecords &records, const std::string &name) {
  Node *node = old_find_or_make(p, records, name);
  if (node == nullptr) return net_api_error(p);
  OldNodeRecord &record = records[node];
  if (record.defined)
    return net_hard(p, ov_error_parse, "node `%s' has already been defined (at line %s)",
                    message_name(name.c_str()).text, format_count(p.scope, record.defined_line));
  record.defined = true;
  record.defined_line = p.ctx.line;

  int token = net_next(p);
  if (token != tok_string) return net_unexpected(p, token, "string expected");
  if (ov_node_set_label(node, p.ctx.text_or_empty()) != ov_error_none) return net_api_error(p);
  double xy[2];
  for (double &v : xy) {
    token = net_next(p);
    if (token != tok_number) return net_unexpected(p, token, "number expected");
    v = p.ctx.number;
  }
  node->position_x = clamp_to_int(xy[0] * p.ctx.scale + 0.5);
  node->position_y = clamp_to_int(xy[1] * p.ctx.scale + 0.5);

  std::vector<std::optional<std::string>> labels;
  if (parse_state_list(p, labels) != ov_error_none) return ov_error_code();
  if (node->state_count != 0 && node->state_count != labels.size()) {
    parse_reportf(&p.ctx, "number of states (%s) does not match previous usage (line %s)",
                  format_count(p.scope, labels.size()), format_count(p.scope, record.first_use_line));
  } else {
    set_states(node, std::move(labels));
  }

  NodeList table_nodes;
  for (;;) {
    token = net_next(p);
    if (token == '(') break;
    if (token != tok_name) return net_unexpected(p, token, "parent node name or a left parenthesis expected");
    std::string parent_name = token_text(p);
    Node *parent = old_find_or_make(p, records, parent_name);
    if (parent == nullptr) return net_api_error(p);
    ov_status_t status = ov_node_add_parent(node, parent);
    if (status == ov_error_usage)
      return net_hard(p, ov_error_parse, "node `%s' appears twice as a parent of `%s'",
                      message_name(parent_name.c_str()).text, message_name(name.c_str()).text);
    if (status == ov_error_cyclic_network)
      return net_hard(p, ov_error_cyclic_network, "adding the link %s --> %s creates a directed cycle",
                      message_name(parent_name.c_str()).text, message_name(name.c_str()).text);
    if (status != ov_error_none) return net_api_error(p);
    table_nodes.push_back(parent);
  }
  unget_token(&p.ctx, '(');
  table_nodes.push_back(node);
  std::vector<float> numbers;
  if (read_nested_table(p, table_nodes, nullptr, numbers, true) != ov_error_none) return ov_error_code();
  for (Node *member : table_nodes)
    if (member->state_count == 0) return net_hard(p, ov_error_parse, "empty list of states");

  Table *table = table_new(p.scope, table_nodes.data(), ov_table_kind_probability, role_plain, false, true);
  if (table == nullptr) return net_api_error(p);
  if (table->size != numbers.size()) return net_hard(p, ov_error_parse, "number expected");
  std::copy(numbers.begin(), numbers.end(), table->data.get());
  if (node->table != nullptr) node->table->owner = nullptr;
  node->table = table;
  table->owner = node;
  return set_error(ov_error_none);
}

} // namespace

// ---------------------------------------------------------------- shared pieces

ov_status_t parse_number_list(NetParser &p, std::uint32_t count, float *values, bool allow_negative) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (std::uint32_t i = 0; i < count; ++i) {
    int token = net_next(p);
    if (token != tok_number) return net_unexpected(p, token, "number expected");
    if (!allow_negative && p.ctx.number < 0) parse_report(&p.ctx, "<number> must be nonnegative");
    values[i] = static_cast<float>(p.ctx.number);
  }
  return net_expect(p, ')');
}

void domain_finish_lists(Domain *domain) noexcept {
  std::reverse(domain->nodes.begin(), domain->nodes.end());
  for (std::uint32_t i = 0; i < domain->nodes.size(); ++i) domain->nodes[i]->number = i + 1;
  std::reverse(domain->tables.begin(), domain->tables.end());
  for (std::uint32_t i = 0; i < domain->tables.size(); ++i) domain->tables[i]->serial = i + 1;
}

// ---------------------------------------------------------------- whole sources

ov_status_t parse_net_blocks(NetParser &p) {
  for (;;) {
    int token = net_next(p);
    if (token == tok_eof) break;
    if (token != tok_name) return net_unexpected(p, token, "unexpected token");
    std::string word = token_text(p);
    if (word == "net") {
      if (parse_net_block(p) != ov_error_none) return ov_error_code();
      continue;
    }
    bool matched;
    if (parse_shared_item(p, word.c_str(), matched) != ov_error_none) return ov_error_code();
    if (!matched) return net_hard(p, ov_error_parse, "unknown object type: %s", message_name(word.c_str()).text);
  }
  if (p.ctx.error_count > 0) return counted_failure();
  domain_finish_lists(p.scope);
  return set_error(ov_error_none);
}

ov_status_t parse_old_net(NetParser &p) {
  OldRecords records;
  if (old_header(p) != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == tok_eof) break;
    if (token != tok_name) return net_unexpected(p, token, "node name (or end-of-file) expected");
    std::string name = token_text(p);
    if (old_node_record(p, records, name) != ov_error_none) return ov_error_code();
  }
  for (auto &node : p.scope->nodes) {
    const OldNodeRecord &record = records[node.get()];
    if (!record.defined)
      parse_reportf(&p.ctx, "node `%s' (used at line %s) has not been defined",
                    message_name(node->name ? node->name->c_str() : "").text,
                    format_count(p.scope, record.first_use_line));
  }
  if (p.ctx.error_count > 0) return counted_failure();
  domain_finish_lists(p.scope);
  return set_error(ov_error_none);
}

ov_status_t parse_class_file(NetParser &p) {
  for (;;) {
    int token = net_next(p);
    if (token == tok_eof) break;
    if (token != tok_name || std::strcmp(p.ctx.text_or_empty(), "class") != 0)
      return net_unexpected(p, token, "expected `class' keyword");
    if (parse_class_block(p) != ov_error_none) return ov_error_code();
  }
  if (p.ctx.error_count > 0) return counted_failure();
  return set_error(ov_error_none);
}

} // namespace orvel
