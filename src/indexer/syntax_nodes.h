// Small readers of tree-sitter nodes shared by the Python readers.
#pragma once

#include <tree_sitter/api.h>

#include <cstdint>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace quarry::indexer {

inline std::string_view type_of(TSNode node) {
  return ts_node_type(node);
}

// The id of the field `name` in `language` (0 when the grammar has none). The grammar's
// lookup compares the name with each of its field names; this one asks it once per
// thread for each language and name (its callers pass string literals, so the name's
// address stands for its text).
inline TSFieldId field_id(const TSLanguage* language, const char* name) {
  thread_local std::unordered_map<const char*, std::pair<const TSLanguage*, TSFieldId>> known;
  auto [it, inserted] = known.try_emplace(name, language, TSFieldId{0});
  if (inserted || it->second.first != language) {
    it->second = {language, ts_language_field_id_for_name(
                                language, name, static_cast<std::uint32_t>(std::strlen(name)))};
  }
  return it->second.second;
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

}  // namespace quarry::indexer
