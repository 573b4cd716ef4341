#include "indexer/source_files.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace quarry::indexer {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::pair<std::string_view, std::string_view>, 34> LANGUAGES{{
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

// Directories that hold no code of the project itself.
bool is_skipped_directory(const fs::path& dir) {
  const std::string name = dir.filename().string();
  static constexpr std::array<std::string_view, 12> SKIPPED{
      ".git", ".hg",  ".svn",  "node_modules", "__pycache__", ".venv",
      "venv", ".tox", "build", "dist",         ".mypy_cache", ".pytest_cache"};
  if (std::find(SKIPPED.begin(), SKIPPED.end(), name) != SKIPPED.end()) return true;
  if (name.ends_with(".egg-info")) return true;
  std::error_code ec;
  return fs::exists(dir / "pyvenv.cfg", ec);  // a virtual environment of any name
}

std::string relative_name(const fs::path& path, const fs::path& root) {
  return path.lexically_relative(root).generic_string();
}

bool under(const std::string& path, const std::string& dir) {
  return !dir.empty() && (path == dir || (path.starts_with(dir) && path[dir.size()] == '/'));
}

std::vector<std::string> walk(const fs::path& root) {
  std::vector<std::string> files;
  std::error_code ec;
  fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, ec);
  if (ec) throw std::runtime_error(root.string() + ": " + ec.message());
  for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (ec) break;
    const fs::directory_entry& entry = *it;
    if (entry.is_symlink(ec)) continue;
    if (entry.is_directory(ec)) {
      if (is_skipped_directory(entry.path())) it.disable_recursion_pending();
      continue;
    }
    if (entry.is_regular_file(ec)) files.push_back(relative_name(entry.path(), root));
  }
  return files;
}

// The files git lists for `root`, or nothing when `root` is not in a git work tree.
std::optional<std::vector<std::string>> git_files(const fs::path& root) {
  const auto inside =
      run_program({"git", "-C", root.string(), "rev-parse", "--is-inside-work-tree"});
  if (!inside || !inside->starts_with("true")) return std::nullopt;
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

std::optional<std::string> run_program(const std::vector<std::string>& args) {
  int pipe_fds[2];
  if (pipe(pipe_fds) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipe_fds[0]);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
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
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return output;
}

std::vector<std::string> list_source_files(const fs::path& root, const std::string& skip) {
  std::error_code ec;
  if (!fs::is_directory(root, ec)) throw std::runtime_error(root.string() + ": not a directory");
  auto tracked = git_files(root);
  std::vector<std::string> files = tracked ? std::move(*tracked) : walk(root);
  std::erase_if(files, [&](const std::string& path) { return under(path, skip); });
  std::sort(files.begin(), files.end());
  files.erase(std::unique(files.begin(), files.end()), files.end());
  return files;
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
