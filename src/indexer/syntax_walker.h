// The walk both source readers make over a syntax tree: an explicit stack of nodes still to
// visit (nothing recurses), and one tree cursor to list children.
#pragma once

#include <tree_sitter/api.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "indexer/text.h"

namespace quarry::indexer {

// Children are listed with the cursor, never by index: tree-sitter keeps the items of a long
// list or block in nested hidden nodes, and fetching the i-th child walks them from the
// start, so reading a list of n items by index costs far more than n steps (minutes for a
// list of a few million numbers). The cursor moves from a child to the next in constant
// time on average.
class SyntaxWalker {
 protected:
  // A node to visit, with the scope it is read in, the definition its uses count for, and
  // whether it is read as a type.
  struct Frame {
    TSNode node;
    int scope;
    int owner;
    bool type_mode;
  };

  // `source` is the text of the tree whose root is `root`.
  SyntaxWalker(std::string_view source, TSNode root)
      : src_(source), root_(root), cursor_(ts_tree_cursor_new(root)) {}
  ~SyntaxWalker() { ts_tree_cursor_delete(&cursor_); }
  SyntaxWalker(const SyntaxWalker&) = delete;
  SyntaxWalker& operator=(const SyntaxWalker&) = delete;

  // The source bytes of `node`, as they are (not checked as UTF-8); empty for a null node.
  std::string_view raw_text(TSNode node) const {
    if (ts_node_is_null(node)) return {};
    const std::uint32_t start = ts_node_start_byte(node);
    const std::uint32_t end =
        std::min<std::uint32_t>(ts_node_end_byte(node), static_cast<std::uint32_t>(src_.size()));
    if (start >= end) return {};
    return src_.substr(start, end - start);
  }

  // The text of `node`, each ill-formed UTF-8 sequence made U+FFFD.
  std::string text(TSNode node) const { return valid_utf8(raw_text(node)); }

  // The named children of `node`, in source order.
  std::vector<TSNode> named_children(TSNode node) {
    std::vector<TSNode> out;
    out.reserve(ts_node_named_child_count(node));
    ts_tree_cursor_reset(&cursor_, node);
    if (ts_tree_cursor_goto_first_child(&cursor_)) {
      do {
        const TSNode child = ts_tree_cursor_current_node(&cursor_);
        if (ts_node_is_named(child)) out.push_back(child);
      } while (ts_tree_cursor_goto_next_sibling(&cursor_));
    }
    return out;
  }

  void push(TSNode node, int scope, int owner, bool type_mode = false) {
    if (!ts_node_is_null(node)) stack_.push_back({node, scope, owner, type_mode});
  }

  // Pushes the named children of the frame's node straight from the cursor (a list may hold
  // millions of items), then reverses them on the stack so that they are visited in source
  // order.
  void push_children(const Frame& frame) {
    const std::size_t first = stack_.size();
    ts_tree_cursor_reset(&cursor_, frame.node);
    if (ts_tree_cursor_goto_first_child(&cursor_)) {
      do {
        const TSNode child = ts_tree_cursor_current_node(&cursor_);
        if (ts_node_is_named(child)) push(child, frame.scope, frame.owner, frame.type_mode);
      } while (ts_tree_cursor_goto_next_sibling(&cursor_));
    }
    std::reverse(stack_.begin() + static_cast<std::ptrdiff_t>(first), stack_.end());
  }

  std::string_view src_;
  TSNode root_;
  TSTreeCursor cursor_;  // lists children; reset for each node, never held across calls
  std::vector<Frame> stack_;
};

}  // namespace quarry::indexer
