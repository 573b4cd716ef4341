#include "utils/git_head.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <string_view>
#include <system_error>

#include "utils/upward.h"

namespace quarry {

namespace fs = std::filesystem;

namespace {

// Git's files that this reads are a line or a few hundred; packed-refs can be large.
constexpr std::uintmax_t MAX_SMALL_FILE = 64 * 1024;
constexpr std::uintmax_t MAX_PACKED_REFS = 256 * 1024 * 1024;
// A symbolic ref may name another; git stops after five.
constexpr int MAX_REF_DEPTH = 5;

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

// The text of a regular file of at most `limit` bytes; nothing for anything else.
std::optional<std::string> read_regular_file(const fs::path& path, std::uintmax_t limit) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  const auto size = fs::file_size(path, ec);
  if (ec || size > limit) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text(static_cast<std::size_t>(size), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(in.gcount()));
  return text;
}

// The first line of a small regular file, trimmed.
std::optional<std::string> first_line(const fs::path& path) {
  const auto text = read_regular_file(path, MAX_SMALL_FILE);
  if (!text) return std::nullopt;
  const std::string_view view(*text);
  return std::string(trimmed(view.substr(0, view.find('\n'))));
}

// An object name: 40 (SHA-1) or 64 (SHA-256) hexadecimal digits.
std::optional<std::string> object_name(std::string_view text) {
  if (text.size() != 40 && text.size() != 64) return std::nullopt;
  std::string name(text);
  for (char& c : name) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return name;
}

// Whether `ref` names a ref inside the git directory, never a path out of it.
bool plausible_ref(std::string_view ref) {
  if (!ref.starts_with("refs/") || ref.ends_with('/')) return false;
  const fs::path path{std::string(ref)};
  return std::none_of(path.begin(), path.end(),
                      [](const fs::path& part) { return part == ".." || part == "."; });
}

// The object `ref` names in `packed-refs` (lines "NAME REF"; "#" headers and "^" peeled
// lines skipped).
std::optional<std::string> packed_ref(const fs::path& common_dir, std::string_view ref) {
  const auto text = read_regular_file(common_dir / "packed-refs", MAX_PACKED_REFS);
  if (!text) return std::nullopt;
  std::string_view rest(*text);
  while (!rest.empty()) {
    const auto end = rest.find('\n');
    const std::string_view line = trimmed(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    const auto space = line.find(' ');
    if (line.starts_with('#') || line.starts_with('^') || space == std::string_view::npos) continue;
    if (trimmed(line.substr(space + 1)) == ref) return object_name(line.substr(0, space));
  }
  return std::nullopt;
}

// The directory that holds the shared refs of `git_dir`: itself, or what its `commondir`
// file names (relative to `git_dir` or absolute) for a linked work tree.
fs::path common_dir_of(const fs::path& git_dir) {
  const auto common = first_line(git_dir / "commondir");
  if (!common || common->empty()) return git_dir;
  return (git_dir / *common).lexically_normal();
}

std::optional<std::string> head_commit(const fs::path& git_dir) {
  const fs::path common_dir = common_dir_of(git_dir);
  auto line = first_line(git_dir / "HEAD");
  for (int depth = 0; line && depth <= MAX_REF_DEPTH; ++depth) {
    if (!line->starts_with("ref:")) return object_name(*line);
    const std::string ref(trimmed(std::string_view(*line).substr(4)));
    if (!plausible_ref(ref)) return std::nullopt;
    // Refs of the work tree's own (refs/bisect, refs/worktree) live in its git directory,
    // the branches in the common one; a loose ref wins over a packed one.
    line = first_line(git_dir / ref);
    if (!line && common_dir != git_dir) line = first_line(common_dir / ref);
    if (!line) return packed_ref(common_dir, ref);
  }
  return std::nullopt;
}

}  // namespace

std::optional<fs::path> find_git_dir(const fs::path& start) {
  try {
    for (const fs::path& dir : directories_upward(start)) {
      std::error_code ec;
      const fs::path dot_git = dir / ".git";
      const auto status = fs::status(dot_git, ec);
      if (fs::is_directory(status)) return dot_git;
      if (fs::is_regular_file(status)) {
        const auto line = first_line(dot_git);
        if (!line || !line->starts_with("gitdir:")) return std::nullopt;
        const std::string target(trimmed(std::string_view(*line).substr(7)));
        if (target.empty()) return std::nullopt;
        const fs::path git_dir = (dir / target).lexically_normal();
        if (!fs::is_directory(git_dir, ec)) return std::nullopt;
        return git_dir;
      }
      if (fs::exists(status)) return std::nullopt;  // a .git that is neither
    }
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

std::optional<std::string> git_head_commit(const fs::path& start) {
  try {
    const auto git_dir = find_git_dir(start);
    if (!git_dir) return std::nullopt;
    return head_commit(*git_dir);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace quarry
