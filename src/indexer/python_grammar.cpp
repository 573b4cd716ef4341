#include "indexer/python_grammar.h"

#include <tree_sitter/api.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace quarry::indexer {

namespace {

// A leaf of a syntax tree: a name, a keyword, a punctuation mark, a piece of a string.
struct Token {
  std::string_view type;
  std::uint32_t start = 0;
  std::uint32_t end = 0;
  std::uint32_t row = 0;  // where it starts
  bool operator==(const Token&) const = default;
};

// The byte at, and the one that stands there instead.
using Substitution = std::pair<std::uint32_t, char>;

// The leaves of `root` in source order, less those the parser made up to recover from an
// error.
std::vector<Token> tokens_of(TSNode root) {
  std::vector<Token> tokens;
  TSTreeCursor cursor = ts_tree_cursor_new(root);
  for (bool more = true; more;) {
    if (ts_tree_cursor_goto_first_child(&cursor)) continue;
    const TSNode node = ts_tree_cursor_current_node(&cursor);
    if (!ts_node_is_missing(node)) {
      tokens.push_back({ts_node_type(node), ts_node_start_byte(node), ts_node_end_byte(node),
                        ts_node_start_point(node).row});
    }
    while (more && !ts_tree_cursor_goto_next_sibling(&cursor))
      more = ts_tree_cursor_goto_parent(&cursor);
  }
  ts_tree_cursor_delete(&cursor);
  return tokens;
}

bool opens(std::string_view type) {
  return type == "(" || type == "[" || type == "{";
}
bool closes(std::string_view type) {
  return type == ")" || type == "]" || type == "}";
}

// A t-string's prefix (t, T, or one of them with r or R) is read as a name right before a
// string: it becomes f or F.
void t_strings(const std::vector<Token>& tokens, std::string_view text,
               std::vector<Substitution>& out) {
  for (std::size_t i = 0; i + 1 < tokens.size(); ++i) {
    const Token& name = tokens[i];
    if (name.type != "identifier" || tokens[i + 1].type != "string_start" ||
        tokens[i + 1].start != name.end || name.end - name.start > 2) {
      continue;
    }
    const std::string_view prefix = text.substr(name.start, name.end - name.start);
    const std::size_t t = prefix.find_first_of("tT");
    if (t == std::string_view::npos ||
        (prefix.size() == 2 && prefix.find_first_of("rR") == std::string_view::npos)) {
      continue;
    }
    out.emplace_back(name.start + static_cast<std::uint32_t>(t), prefix[t] == 't' ? 'f' : 'F');
  }
}

// `except A, B, C:` lists its types without parentheses: the commas become `|`. With a
// single comma the grammar reads the clause already (as the older `except A, name:`), so
// it is left as it is, whether or not the file has other errors.
void except_lists(const std::vector<Token>& tokens, std::vector<Substitution>& out) {
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (tokens[i].type != "except" && tokens[i].type != "except*") continue;
    std::vector<std::uint32_t> commas;
    int depth = 0;
    bool closed = false;
    // Ends at the clause's colon; the next clause or definition ends an unclosed one, so
    // that no token is looked at twice.
    for (std::size_t j = i + 1; j < tokens.size() && !closed; ++j) {
      const std::string_view type = tokens[j].type;
      if (type == "except" || type == "except*" || type == "def" || type == "class" ||
          (depth == 0 && (tokens[j].row != tokens[j - 1].row || type == "as"))) {
        break;
      }
      if (opens(type)) {
        ++depth;
      } else if (closes(type)) {
        if (--depth < 0) break;
      } else if (depth == 0 && type == ",") {
        commas.push_back(tokens[j].start);
      } else {
        closed = depth == 0 && type == ":";
      }
    }
    if (!closed || commas.size() < 2) continue;
    for (std::uint32_t comma : commas)
      out.emplace_back(comma, '|');
  }
}

// `def f[T = int](`, `class C[T = int]:` or `(`, `type A[T = int] =`: each `=` between the
// brackets becomes `:`.
void type_parameter_defaults(const std::vector<Token>& tokens, std::vector<Substitution>& out) {
  for (std::size_t i = 0; i + 3 < tokens.size(); ++i) {
    const std::string_view keyword = tokens[i].type;
    if ((keyword != "def" && keyword != "class" && keyword != "type") ||
        tokens[i + 1].type != "identifier" || tokens[i + 2].type != "[") {
      continue;
    }
    std::vector<std::uint32_t> defaults;
    int depth = 1;
    std::size_t j = i + 3;
    for (; j < tokens.size() && depth > 0; ++j) {
      const std::string_view type = tokens[j].type;
      if (type == "def" || type == "class" || type == "type") break;  // not closed
      if (opens(type)) {
        ++depth;
      } else if (closes(type)) {
        --depth;
      } else if (depth == 1 && type == "=") {
        defaults.push_back(tokens[j].start);
      }
    }
    if (depth != 0 || j >= tokens.size()) continue;
    const std::string_view next = tokens[j].type;
    const bool header = keyword == "def"     ? next == "("
                        : keyword == "class" ? next == "(" || next == ":"
                                             : next == "=";
    if (!header) continue;
    for (std::uint32_t equals : defaults)
      out.emplace_back(equals, ':');
  }
}

TSTree* parse_text(TSParser* parser, std::string_view text) {
  return ts_parser_parse_string(parser, nullptr, text.data(),
                                static_cast<std::uint32_t>(text.size()));
}

}  // namespace

TSTree* parse_python(TSParser* parser, std::string_view source) {
  TSTree* tree = parse_text(parser, source);
  std::string text;  // `source` with the substitutions made so far
  // A t-string inside another one is found once the outer one reads as an f-string: each
  // round goes one level deeper.
  for (int round = 0; round < 4 && tree != nullptr && ts_node_has_error(ts_tree_root_node(tree));
       ++round) {
    const std::vector<Token> tokens = tokens_of(ts_tree_root_node(tree));
    std::vector<Substitution> substitutions;
    t_strings(tokens, round == 0 ? source : std::string_view(text), substitutions);
    except_lists(tokens, substitutions);
    type_parameter_defaults(tokens, substitutions);
    if (substitutions.empty()) break;
    if (round == 0) text.assign(source);
    for (const auto& [at, replacement] : substitutions)
      text[at] = replacement;
    TSTree* again = parse_text(parser, text);
    if (again == nullptr) break;
    ts_tree_delete(tree);
    tree = again;
  }
  return tree;
}

}  // namespace quarry::indexer
