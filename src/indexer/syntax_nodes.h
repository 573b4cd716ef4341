// Small readers of tree-sitter nodes shared by the Python and script readers.
#pragma once

#include <tree_sitter/api.h>

#include <cstdint>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace quarry::indexer {

inline std::string_view type_of(TSNode node) {
  return ts_node_type(node);
}

// The id of the field `name` in `language` (0 when the grammar has none). The grammar's
// lookup compares the name with each of its field names; this one asks it once per
// thread for each language and name (its callers pass string literals, so the name's
// address stands for its text).
inline TSFieldId field_id(const TSLanguage* language, const char* name) {
  thread_local std::unordered_map<const char*, std::vector<std::pair<const TSLanguage*, TSFieldId>>>
      known;
  auto& ids = known[name];  // one entry per language this thread has asked for the name
  for (const auto& [asked, id] : ids) {
    if (asked == language) return id;
  }
  const TSFieldId id =
      ts_language_field_id_for_name(language, name, static_cast<std::uint32_t>(std::strlen(name)));
  ids.emplace_back(language, id);
  return id;
}

// The child of `node` under the field `name`; a null node when there is none.
inline TSNode field(TSNode node, const char* name) {
  if (ts_node_is_null(node)) return node;
  const TSFieldId id = field_id(ts_tree_language(node.tree), name);
  return id == 0 ? TSNode{} : ts_node_child_by_field_id(node, id);
}

// The 1-based lines where `node` starts and ends.
inline std::int64_t line_of(TSNode node) {
  return ts_node_start_point(node).row + 1;
}
inline std::int64_t end_line_of(TSNode node) {
  return ts_node_end_point(node).row + 1;
}

// The line (from 1) of the first place, in source order, where the tree holds a syntax
// error: an error node or a node the parser had to assume missing.
inline std::int64_t first_error_line(TSNode root) {
  TSTreeCursor cursor = ts_tree_cursor_new(root);
  TSNode node = root;
  // An error node's symbol is the largest; this tree-sitter has no ts_node_is_error.
  const auto is_error = [](TSNode n) { return ts_node_symbol(n) == static_cast<TSSymbol>(-1); };
  while (!is_error(node) && !ts_node_is_missing(node)) {
    bool found = false;
    if (ts_tree_cursor_goto_first_child(&cursor)) {
      do {
        found = ts_node_has_error(ts_tree_cursor_current_node(&cursor));
      } while (!found && ts_tree_cursor_goto_next_sibling(&cursor));
    }
    if (!found) break;  // the error is in `node` itself
    node = ts_tree_cursor_current_node(&cursor);
  }
  ts_tree_cursor_delete(&cursor);
  return static_cast<std::int64_t>(ts_node_start_point(node).row) + 1;
}

}  // namespace quarry::indexer
