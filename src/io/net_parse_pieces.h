// Pieces of the NET parser that its files share: the net and node blocks
// (net_parser.cpp), instance blocks (net_parse_instances.cpp), the items of
// file level and class blocks (net_parse_items.cpp), class blocks and their
// binding pass (net_parse_binding.cpp), the old node format
// (net_parse_old_format.cpp) and whole sources (net_parse_sources.cpp).
#pragma once

#include <cmath>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "io/net_parser.h"
#include "model/attribute.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// A double as an int, truncated towards 0 and held within the int range
// (NaN reads as 0), so that hostile numbers cannot overflow a conversion.
inline int clamp_to_int(double value) noexcept {
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int>(value);
}

// A name copied out of the scanner's buffer, which the next token reuses.
inline std::string token_text(const NetParser &p) { return p.ctx.text_or_empty(); }

// Turns round the entries added to an attribute list since it held
// `old_count` entries (they stand newest first at its head) and puts them
// behind the older ones, so that the list is in file order.
void attributes_in_file_order(AttributeList &list, std::size_t old_count);

// Items of a net block, or the attribute items of a class block (with its
// two interface keys), after the key.
ov_status_t parse_scope_attribute(NetParser &p, const std::string &key);
// The net block, after its keyword.
ov_status_t parse_net_block(NetParser &p);

// `(` strings `)`, after the `=` of a states item.
ov_status_t parse_state_list(NetParser &p, std::vector<std::optional<std::string>> &labels);
// Gives the node these states.
void set_states(Node *node, std::vector<std::optional<std::string>> &&labels);
// Items up to `}` of a node or (with `instance`) an instance block.
ov_status_t parse_node_items(NetParser &p, Node *node, bool instance);
// A node block of that category and kind, after its keywords.
ov_status_t parse_node_block(NetParser &p, ov_category_t category, ov_kind_t kind);

// An instance block, after its keyword.
ov_status_t parse_instance_block(NetParser &p);

// The node and potential items shared by the file level and class blocks,
// after the first name. `matched` is false if the name starts none of them.
ov_status_t parse_shared_item(NetParser &p, const char *word, bool &matched);
// The failure at the end of a parse that counted errors: the recorded code,
// or parse.
ov_status_t counted_failure() noexcept;

// A class block, after its keyword, with the binding of its interface and
// of its instances' inputs at its end.
ov_status_t parse_class_block(NetParser &p);

} // namespace orvel
