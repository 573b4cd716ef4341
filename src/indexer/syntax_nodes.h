// Small readers of tree-sitter nodes shared by the Python readers.
#pragma once

#include <tree_sitter/api.h>

#include <cstdint>
#include <cstring>
#include <string_view>

namespace quarry::indexer {

inline std::string_view type_of(TSNode node) {
  return ts_node_type(node);
}

// The child of `node` under the field `name`; a null node when there is none.
inline TSNode field(TSNode node, const char* name) {
  return ts_node_child_by_field_name(node, name, static_cast<std::uint32_t>(std::strlen(name)));
}

// The 1-based lines where `node` starts and ends.
inline std::int64_t line_of(TSNode node) {
  return ts_node_start_point(node).row + 1;
}
inline std::int64_t end_line_of(TSNode node) {
  return ts_node_end_point(node).row + 1;
}

}  // namespace quarry::indexer
