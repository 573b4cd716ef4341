// The vocabulary of the index's edges: their kinds and how the indexer resolved them.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace quarry {

// Edge kinds. Every kind but LINK is an edge of code; LINK joins documents.
namespace edge_kind {
inline constexpr std::string_view CALL = "call";
inline constexpr std::string_view IMPORT = "import";
inline constexpr std::string_view INHERITS = "inherits";
inline constexpr std::string_view IMPLEMENTS = "implements";
inline constexpr std::string_view REFERENCE = "reference";
inline constexpr std::string_view TYPE = "type";
inline constexpr std::string_view DECORATES = "decorates";
inline constexpr std::string_view EXPORT = "export";
inline constexpr std::string_view LINK = "link";
}  // namespace edge_kind

inline constexpr std::array<std::string_view, 9> EDGE_KINDS{
    edge_kind::CALL,       edge_kind::IMPORT,    edge_kind::INHERITS,
    edge_kind::IMPLEMENTS, edge_kind::REFERENCE, edge_kind::TYPE,
    edge_kind::DECORATES,  edge_kind::EXPORT,    edge_kind::LINK};

// How the indexer bound an edge's target. EXACT, IMPORT and LOCAL are bindings on
// evidence; AMBIGUOUS is a guess between definitions that share a name, and MODEL such a
// guess that the indexer's decision model bound again. An edge without a resolution (NULL)
// is neither proven nor guessed.
namespace resolution {
inline constexpr std::string_view EXACT = "exact";
inline constexpr std::string_view IMPORT = "import";
inline constexpr std::string_view LOCAL = "local";
inline constexpr std::string_view AMBIGUOUS = "ambiguous";
inline constexpr std::string_view MODEL = "model";
}  // namespace resolution

// The resolutions that mark a guess. No member holds a single quote: they are written
// into SQL text as quoted literals.
inline constexpr std::array<std::string_view, 2> GUESSED_RESOLUTIONS{resolution::AMBIGUOUS,
                                                                     resolution::MODEL};

// The edge kinds from a class to a type it derives from or implements.
inline constexpr std::array<std::string_view, 2> HIERARCHY_KINDS{edge_kind::INHERITS,
                                                                 edge_kind::IMPLEMENTS};

// A predicate over one edges row, without alias, that holds for an edge of code and not
// for a document's link. It begins with a column name, so "e." + CODE_EDGE_SQL is a
// predicate over the alias e.
inline constexpr std::string_view CODE_EDGE_SQL = "kind != 'link'";

// Writes `values` as an SQL list of quoted literals: "('a', 'b')". The values are written
// unchanged, so none may hold a single quote.
template <std::size_t N>
std::string sql_quoted_list(const std::array<std::string_view, N>& values) {
  std::string out = "(";
  for (std::size_t i = 0; i < N; ++i) {
    if (i > 0) out += ", ";
    out += '\'';
    out += values[i];
    out += '\'';
  }
  out += ')';
  return out;
}

}  // namespace quarry
