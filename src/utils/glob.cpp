#include "utils/glob.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace quarry {

namespace {

constexpr std::size_t NONE = std::string_view::npos;

// One pattern element that matches a single character, or a star.
struct Atom {
  enum class Kind { literal, any, set, star } kind = Kind::literal;
  char literal = 0;
  std::string_view set;  // a class's characters and ranges, its `!` and brackets left out
  bool negated = false;
  std::size_t end = 0;  // where the next atom of the pattern begins
};

// The atom of `pattern` that begins at `at` (< pattern.size()). Consecutive stars are one.
Atom atom_at(std::string_view pattern, std::size_t at) {
  const char c = pattern[at];
  if (c == '*') {
    std::size_t end = at + 1;
    while (end < pattern.size() && pattern[end] == '*')
      ++end;
    return {.kind = Atom::Kind::star, .end = end};
  }
  if (c == '?') return {.kind = Atom::Kind::any, .end = at + 1};
  if (c == '\\' && at + 1 < pattern.size()) {
    return {.kind = Atom::Kind::literal, .literal = pattern[at + 1], .end = at + 2};
  }
  if (c == '[') {
    std::size_t first = at + 1;
    const bool negated = first < pattern.size() && (pattern[first] == '!' || pattern[first] == '^');
    if (negated) ++first;
    // A `]` first in the class is one of its characters.
    const std::size_t close = pattern.find(']', first < pattern.size() ? first + 1 : first);
    if (close != NONE) {
      return {.kind = Atom::Kind::set,
              .set = pattern.substr(first, close - first),
              .negated = negated,
              .end = close + 1};
    }
  }
  return {.kind = Atom::Kind::literal, .literal = c, .end = at + 1};
}

bool in_set(std::string_view set, char c) {
  const auto u = static_cast<unsigned char>(c);
  for (std::size_t k = 0; k < set.size(); ++k) {
    if (k + 2 < set.size() && set[k + 1] == '-') {
      if (static_cast<unsigned char>(set[k]) <= u && u <= static_cast<unsigned char>(set[k + 2]))
        return true;
      k += 2;
    } else if (set[k] == c) {
      return true;
    }
  }
  return false;
}

bool atom_matches(const Atom& atom, char c) {
  switch (atom.kind) {
    case Atom::Kind::literal:
      return atom.literal == c;
    case Atom::Kind::any:
      return true;
    case Atom::Kind::set:
      return in_set(atom.set, c) != atom.negated;
    case Atom::Kind::star:
      break;
  }
  return false;
}

// Whether `text` matches `pattern` as a whole, character by character. Every atom but the
// star takes exactly one character, so on a mismatch only the latest star needs to take
// one character more: an earlier star's choices can never help once a later one matched.
bool match_characters(std::string_view pattern, std::string_view text) {
  std::size_t p = 0, t = 0;
  std::size_t star_end = NONE, star_t = 0;  // after the latest star, and where it stopped
  while (t < text.size()) {
    if (p < pattern.size()) {
      const Atom atom = atom_at(pattern, p);
      if (atom.kind == Atom::Kind::star) {
        p = star_end = atom.end;
        star_t = t;
        continue;
      }
      if (atom_matches(atom, text[t])) {
        p = atom.end;
        ++t;
        continue;
      }
    }
    if (star_end == NONE) return false;
    p = star_end;
    t = ++star_t;
  }
  while (p < pattern.size()) {
    const Atom atom = atom_at(pattern, p);
    if (atom.kind != Atom::Kind::star) return false;
    p = atom.end;
  }
  return true;
}

// The non-empty segments of `text` between "/".
std::vector<std::string_view> segments(std::string_view text) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const std::size_t slash = text.find('/');
    if (slash != 0) parts.push_back(text.substr(0, slash));
    if (slash == NONE) break;
    text.remove_prefix(slash + 1);
  }
  return parts;
}

// Whether the path segments `path` match the pattern segments `pattern`, where a `**`
// segment matches any number of path segments: the character matcher's method, one level
// up.
bool match_segments(const std::vector<std::string_view>& pattern,
                    const std::vector<std::string_view>& path, std::size_t path_size) {
  std::size_t p = 0, t = 0;
  std::size_t star_end = NONE, star_t = 0;
  while (t < path_size) {
    if (p < pattern.size() && pattern[p] == "**") {
      star_end = ++p;
      star_t = t;
      continue;
    }
    if (p < pattern.size() && match_characters(pattern[p], path[t])) {
      ++p;
      ++t;
      continue;
    }
    if (star_end == NONE) return false;
    p = star_end;
    t = ++star_t;
  }
  while (p < pattern.size() && pattern[p] == "**")
    ++p;
  return p == pattern.size();
}

}  // namespace

bool fqn_glob_match(std::string_view pattern, std::string_view fqn) {
  return match_characters(pattern, fqn);
}

bool path_glob_match(std::string_view pattern, std::string_view path) {
  const bool directories_only = pattern.ends_with('/');
  while (pattern.ends_with('/'))
    pattern.remove_suffix(1);
  const bool anchored = pattern.find('/') != NONE;
  if (pattern.starts_with("./")) pattern.remove_prefix(2);
  const std::vector<std::string_view> wanted = segments(pattern);
  const std::vector<std::string_view> parts = segments(path);
  if (wanted.empty() || parts.empty()) return false;
  // The path's directories, then (unless only directories are wanted) the file itself.
  const std::size_t last = directories_only ? parts.size() - 1 : parts.size();
  if (!anchored) {
    // One segment: a name anywhere. "**" alone matches any name, like "*".
    for (std::size_t i = 0; i < last; ++i) {
      if (wanted[0] == "**" || match_characters(wanted[0], parts[i])) return true;
    }
    return false;
  }
  for (std::size_t size = 1; size <= last; ++size) {
    if (match_segments(wanted, parts, size)) return true;
  }
  return false;
}

}  // namespace quarry
