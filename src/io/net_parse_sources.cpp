// Whole NET sources: a file of blocks and a file of classes.
#include "io/net_parse_pieces.h"

#include <cstring>
#include <string>

#include "api/error.h"
#include "model/domain.h"
#include "oo/class.h"

namespace orvel {

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
