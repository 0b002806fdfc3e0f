// The node and potential items of the NET format shared by the file level and class blocks.
#include "io/net_parse_pieces.h"

#include <cstring>

#include "api/error.h"

namespace orvel {

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

} // namespace orvel
