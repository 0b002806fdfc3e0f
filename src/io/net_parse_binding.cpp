// Class blocks of the NET format and the binding pass of their interfaces at the block's end.
#include "io/net_parse_pieces.h"

#include <string>

#include "api/error.h"
#include "io/name_resolver.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"

namespace orvel {

namespace {

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

} // namespace

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

} // namespace orvel
