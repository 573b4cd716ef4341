// Glob patterns for fully qualified names and for repository paths.
//
// Both flavours share the pattern characters, compared byte by byte, case-sensitively:
//   *        any run of characters, the empty one included
//   ?        exactly one character
//   [abc]    one of the characters listed; `a-z` is a range, and a `]` right after the
//            opening `[` (or after its `!`) is listed like any other character
//   [!a-z]   one character not listed (`[^a-z]` too)
//   \c       the character c itself (`\*` is a star, `\\` a backslash)
// A `[` without its closing `]` is the character `[`, and a trailing `\` is a backslash.
//
// Matching takes time proportional to the product of the pattern's and the text's lengths
// at worst (no backtracking that can blow up: `*a*a*a*b` against a long run of `a`s ends
// quickly), and never recurses.
#pragma once

#include <string_view>

namespace quarry {

// Whether `fqn` matches `pattern` as a whole. `*` and `?` match dots like any other
// character, so `app.*` matches `app.cli` and `app.cli.main`, `*.test_*` matches any
// function named test_... in any module, and `app.?` matches `app.a` but not `app.ab`.
bool fqn_glob_match(std::string_view pattern, std::string_view fqn);

// Whether `pattern`, written as in a .gitignore file, selects the file at `path` (relative
// to the repository's root, "/" separators, no "./" or trailing "/"). The rules:
//   - `*`, `?` and classes never match "/": each works within one segment of the path;
//   - a segment that is exactly `**` matches any number of whole segments, none included
//     (`**/test`, `src/**/gen`, `docs/**`); `**` within a segment is a `*`;
//   - a pattern selects a path when it matches the whole path or any of its directories
//     (a leading part that ends just before a "/"), so a pattern that matches a directory
//     selects everything under it;
//   - a pattern with a trailing "/" matches directories only: `build/` selects what lies
//     under a directory named build, never a file named build;
//   - a pattern with no "/" but a trailing one matches a name in any directory: `*.pyc`
//     selects every .pyc file, `vendor` every file or directory named vendor;
//   - a pattern with a "/" elsewhere is anchored at the root: `src/gen` selects src/gen
//     but not lib/src/gen; a leading "/" or "./" anchors and is otherwise ignored;
//   - an empty pattern (or one of slashes alone) selects nothing.
bool path_glob_match(std::string_view pattern, std::string_view path);

}  // namespace quarry
