// Parsing with the Python grammar, and reading around the syntax it lacks.
#pragma once

#include <string_view>

struct TSParser;
struct TSTree;

namespace quarry::indexer {

// Parses `source` with `parser`, whose language is the Python grammar, and returns the tree
// (for the caller to delete), or null when tree-sitter gives none.
//
// The grammar that the tree-sitter runtime can load predates some syntax of current Python,
// which it reads as errors. Where the tree has errors, those constructs are parsed as an
// equivalent of the same length, so that every node keeps its place in `source`:
//  - a t-string (t"...", rt'...') as an f-string, so that its interpolations are read;
//  - `except A, B, C:` as `except A| B| C:`;
//  - a type parameter's default (`def f[T = int]`, `class C[T = int]`, `type A[T = int]`)
//    as a bound (`[T : int]`).
// A tree without errors is returned as it is, at no further cost.
TSTree* parse_python(TSParser* parser, std::string_view source);

}  // namespace quarry::indexer
