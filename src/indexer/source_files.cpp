#include "indexer/source_files.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "utils/glob.h"

extern char** environ;

namespace quarry::indexer {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::pair<std::string_view, std::string_view>, 36> LANGUAGES{{
    {".py", "python"},
    {".pyi", "python"},
    {".md", "markdown"},
    {".markdown", "markdown"},
    {".rst", "text"},
    {".txt", "text"},
    {".json", "json"},
    {".yaml", "yaml"},
    {".yml", "yaml"},
    {".toml", "toml"},
    {".cfg", "ini"},
    {".ini", "ini"},
    {".js", "javascript"},
    {".mjs", "javascript"},
    {".cjs", "javascript"},
    {".jsx", "javascript"},
    {".ts", "typescript"},
    {".tsx", "typescript"},
    {".mts", "typescript"},
    {".cts", "typescript"},
    {".java", "java"},
    {".go", "go"},
    {".rs", "rust"},
    {".c", "c"},
    {".h", "c"},
    {".cc", "cpp"},
    {".cpp", "cpp"},
    {".hpp", "cpp"},
    {".cs", "csharp"},
    {".rb", "ruby"},
    {".php", "php"},
    {".kt", "kotlin"},
    {".swift", "swift"},
    {".scala", "scala"},
    {".html", "html"},
    {".sh", "shell"},
}};

// Directories that hold no code of the project itself. build/ and dist/ are taken for
// build output unless they are Python packages (operations/build/__init__.py, say).
bool is_skipped_directory(const fs::path& dir) {
  const std::string name = dir.filename().string();
  static constexpr std::array<std::string_view, 10> SKIPPED{
      ".git",  ".hg",  ".svn", "node_modules", "__pycache__",
      ".venv", "venv", ".tox", ".mypy_cache",  ".pytest_cache"};
  if (std::find(SKIPPED.begin(), SKIPPED.end(), name) != SKIPPED.end()) return true;
  if (name.ends_with(".egg-info")) return true;
  std::error_code ec;
  if (name == "build" || name == "dist") return !fs::exists(dir / "__init__.py", ec);
  return fs::exists(dir / "pyvenv.cfg", ec);  // a virtual environment of any name
}

std::string relative_name(const fs::path& path, const fs::path& root) {
  return path.lexically_relative(root).generic_string();
}

// "812 bytes", "4.0 MiB".
std::string byte_size(std::uintmax_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  static constexpr std::array<std::string_view, 3> UNITS{"KiB", "MiB", "GiB"};
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  for (; value >= 1024 && unit + 1 < UNITS.size(); ++unit)
    value /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, UNITS[unit].data());
  return text;
}

bool under(const std::string& path, const std::string& dir) {
  return !dir.empty() && (path == dir || (path.starts_with(dir) && path[dir.size()] == '/'));
}

// Every regular file below `root`, directory by directory from an explicit stack. A
// directory that cannot be listed, whole or in part, is named in a warning.
std::vector<std::string> walk(const fs::path& root, std::vector<std::string>& warnings) {
  std::vector<std::string> files;
  std::vector<fs::path> pending{root};
  while (!pending.empty()) {
    const fs::path dir = std::move(pending.back());
    pending.pop_back();
    std::error_code ec;
    fs::directory_iterator it(dir, ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
      const fs::directory_entry& entry = *it;
      std::error_code type_error;
      const fs::file_status status = entry.symlink_status(type_error);
      if (type_error || fs::is_symlink(status)) continue;
      if (fs::is_directory(status)) {
        if (!is_skipped_directory(entry.path())) pending.push_back(entry.path());
      } else if (fs::is_regular_file(status)) {
        files.push_back(relative_name(entry.path(), root));
      }
    }
    if (ec) {
      if (dir == root) throw std::runtime_error(root.string() + ": " + ec.message());
      warnings.push_back(relative_name(dir, root) + "/: cannot be listed (" + ec.message() +
                         "); left out");
    }
  }
  return files;
}

// Whether `root` or a directory above it holds a .git, as a work tree does.
bool looks_like_work_tree(const fs::path& root) {
  std::error_code ec;
  for (fs::path dir = fs::absolute(root, ec); !ec && !dir.empty(); dir = dir.parent_path()) {
    if (fs::exists(dir / ".git", ec)) return true;
    if (dir == dir.root_path()) break;
  }
  return false;
}

// The files git lists for `root`, or nothing when `root` is not in a git work tree. When
// it is one but git will not list it, says so in `warnings`.
std::optional<std::vector<std::string>> git_files(const fs::path& root,
                                                  std::vector<std::string>& warnings) {
  std::string refusal;
  const auto inside =
      run_program({"git", "-C", root.string(), "rev-parse", "--is-inside-work-tree"}, &refusal);
  if (!inside || !inside->starts_with("true")) {
    if (looks_like_work_tree(root)) {
      std::string reason = refusal.substr(0, refusal.find('\n'));
      if (!inside && reason.empty()) reason = "git could not be run";
      std::string warning = root.string() + ": git will not list this work tree (" + reason +
                            "); every file was walked instead, files that git ignores and "
                            "submodules included";
      if (refusal.find("safe.directory") != std::string::npos) {
        warning += "; to let git list it: git config --global --add safe.directory " +
                   fs::absolute(root).lexically_normal().string();
      }
      warnings.push_back(std::move(warning));
    }
    return std::nullopt;
  }
  const auto listed = run_program(
      {"git", "-C", root.string(), "ls-files", "-z", "--cached", "--others", "--exclude-standard"});
  if (!listed) return std::nullopt;
  std::vector<std::string> files;
  std::size_t start = 0;
  for (std::size_t end = listed->find('\0'); end != std::string::npos;
       end = listed->find('\0', start)) {
    std::string path = listed->substr(start, end - start);
    start = end + 1;
    std::error_code ec;
    const auto status = fs::symlink_status(root / path, ec);
    // Deleted but still tracked files, submodules and links are not read.
    if (!ec && fs::is_regular_file(status)) files.push_back(std::move(path));
  }
  return files;
}

}  // namespace

std::optional<std::string> run_program(const std::vector<std::string>& args,
                                       std::string* error_output) {
  int pipe_fds[2];
  if (pipe(pipe_fds) != 0) return std::nullopt;
  // Standard error goes to an unnamed temporary file, read once the program has ended, so
  // that neither of two pipes can fill up while the other is read.
  std::unique_ptr<FILE, int (*)(FILE*)> errors(error_output ? std::tmpfile() : nullptr,
                                               &std::fclose);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipe_fds[0]);
  if (errors) {
    posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), STDERR_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  std::vector<char*> argv;
  for (const std::string& arg : args)
    argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_fds[1]);
  if (rc != 0) {
    close(pipe_fds[0]);
    return std::nullopt;
  }
  std::string output;
  char buffer[65536];
  for (ssize_t n; (n = read(pipe_fds[0], buffer, sizeof buffer)) != 0;) {
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    output.append(buffer, static_cast<std::size_t>(n));
  }
  close(pipe_fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (errors) {
    std::rewind(errors.get());
    error_output->clear();
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, errors.get())) > 0;)
      error_output->append(buffer, n);
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return output;
}

SourceListing list_source_files(const fs::path& root, const std::vector<std::string>& skip,
                                const std::vector<std::string>& exclude) {
  std::error_code ec;
  if (!fs::is_directory(root, ec)) throw std::runtime_error(root.string() + ": not a directory");
  SourceListing listing;
  auto tracked = git_files(root, listing.warnings);
  listing.files = tracked ? std::move(*tracked) : walk(root, listing.warnings);
  std::erase_if(listing.files, [&](const std::string& path) {
    return std::any_of(skip.begin(), skip.end(),
                       [&](const std::string& dir) { return under(path, dir); }) ||
           std::any_of(exclude.begin(), exclude.end(),
                       [&](const std::string& glob) { return path_glob_match(glob, path); });
  });
  std::sort(listing.files.begin(), listing.files.end());
  listing.files.erase(std::unique(listing.files.begin(), listing.files.end()), listing.files.end());
  return listing;
}

SourceText read_source(const fs::path& path, std::uintmax_t max_size) {
  // Non-blocking, so that a FIFO or a device put where a source was listed cannot stall
  // the run; only a regular file is read.
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return {std::nullopt, std::strerror(errno)};
  struct Closer {
    int fd;
    ~Closer() { close(fd); }
  } closer{fd};
  struct stat info {};
  if (fstat(fd, &info) != 0) return {std::nullopt, std::strerror(errno)};
  if (!S_ISREG(info.st_mode)) return {std::nullopt, "not a regular file"};
  const auto size = static_cast<std::uintmax_t>(info.st_size);
  if (max_size != 0 && size > max_size) {
    return {std::nullopt,
            byte_size(size) + ", over the --max-file-size limit of " + byte_size(max_size)};
  }
  std::string text;
  text.reserve(size);
  char buffer[65536];
  while (true) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      return {std::nullopt, std::strerror(errno)};
    }
    text.append(buffer, static_cast<std::size_t>(n));
    // A file that grew after fstat is read to the limit and no further.
    if (max_size != 0 && text.size() > max_size) {
      return {std::nullopt, "over the --max-file-size limit of " + byte_size(max_size)};
    }
  }
  return {std::move(text), {}};
}

std::string_view language_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return "other";
  std::string extension(name.substr(dot));
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const auto& [ext, language] : LANGUAGES) {
    if (ext == extension) return language;
  }
  return "other";
}

}  // namespace quarry::indexer
