#include "io/name_resolver.h"

#include <cstring>

#include "api/error.h"
#include "model/domain.h"
#include "oo/class.h"

namespace orvel {

namespace {

// Puts a cut dot back when resolution is over, however it ends.
struct RestoreDot {
  char *dot;
  ~RestoreDot() {
    if (dot != nullptr) *dot = '.';
  }
};

const char *class_name_of(const Domain *scope) noexcept {
  return scope->is_class() && scope->class_info.name ? scope->class_info.name->c_str() : nullptr;
}

Node *resolve_failure() noexcept {
  set_error(ov_error_parse);
  return nullptr;
}

// The output clone that stands for `output` in an instance, or null if
// `output` is no output of the instance's class.
Node *instance_output(const Node *instance, const Node *output) noexcept {
  std::int64_t position = output_position(instance, output);
  if (position < 0 || static_cast<std::uint64_t>(position) >= instance->output_clones.size()) return nullptr;
  return instance->output_clones[static_cast<std::uint32_t>(position)];
}

} // namespace

Node *resolve_node_path(ParseContext *ctx, Domain *scope, char *path) {
  char *dot = std::strchr(path, '.');
  if (dot != nullptr) *dot = 0;
  RestoreDot restore{dot};
  const char *scope_name = class_name_of(scope);

  Node *node = domain_find_node(scope, path);
  if (node == nullptr) {
    if (scope_name != nullptr)
      parse_reportf(ctx, "class `%s' has no node named `%s'", message_name(scope_name).text, message_name(path).text);
    else
      parse_reportf(ctx, "node `%s' not found", message_name(path).text);
    return resolve_failure();
  }
  if (dot == nullptr) return node;

  if (node->category != ov_category_instance || node->instance_class == nullptr) {
    if (scope_name != nullptr)
      parse_reportf(ctx, "node `%s' is not an instance node in class `%s'", message_name(path).text,
                    message_name(scope_name).text);
    else
      parse_reportf(ctx, "node `%s' is not an instance node", message_name(path).text);
    return resolve_failure();
  }
  Domain *instance_class = node->instance_class;
  Node *inner = resolve_node_path(ctx, instance_class, dot + 1);
  if (inner == nullptr) return nullptr;
  Node *output = instance_output(node, inner);
  if (output == nullptr) {
    const char *inner_class_name = class_name_of(instance_class);
    if (inner_class_name != nullptr)
      parse_reportf(ctx, "node `%s' is not an output node in class `%s'", message_name(dot + 1).text,
                    message_name(inner_class_name).text);
    else
      parse_reportf(ctx, "node `%s' is not an output node", message_name(dot + 1).text);
    return resolve_failure();
  }
  set_error(ov_error_none);
  return output;
}

} // namespace orvel
