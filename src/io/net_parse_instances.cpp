// Instance blocks of the NET format, with their input and output bindings.
#include "io/net_parse_pieces.h"

#include <string>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"

namespace orvel {

namespace {

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

} // namespace

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

} // namespace orvel
