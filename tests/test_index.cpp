#include "test_index.h"

#include "cli/cli.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>

extern char** environ;

namespace quarry::testing {

TestIndex::TestIndex() {
  static std::atomic<int> counter{0};
  path_ = ::testing::TempDir() + "quarry_test_" + std::to_string(getpid()) + "_" +
          std::to_string(counter++) + ".db";
  std::filesystem::remove(path_);
  writer_.emplace(create_index(path_));
}

TestIndex::~TestIndex() {
  writer_.reset();
  std::filesystem::remove(path_);
}

Database& TestIndex::writer() {
  if (!writer_) writer_.emplace(Database::open_writable(path_));
  if (!in_transaction_) {
    writer_->execute("BEGIN");
    in_transaction_ = true;
  }
  return *writer_;
}

std::int64_t TestIndex::insert(const std::string& sql, const Params& params) {
  return to_int(writer().fetchone(sql + " RETURNING id", params)->at(0));
}

std::int64_t TestIndex::component(const std::string& name) {
  return insert("INSERT INTO components (name) VALUES (?)", {name});
}

std::int64_t TestIndex::file(const std::string& path, const std::string& language,
                             std::optional<std::int64_t> component) {
  return insert("INSERT INTO files (path, language, component_id) VALUES (?, ?, ?)",
                {path, language, component ? Value(*component) : Value()});
}

std::int64_t TestIndex::symbol(std::int64_t file_id, const std::string& name,
                               const std::string& kind, std::string fqn, std::int64_t line,
                               std::optional<std::string> signature, bool is_export) {
  if (fqn.empty()) fqn = name;
  return insert(
      "INSERT INTO symbols (file_id, name, kind, fqn, start_line, signature, is_export) "
      "VALUES (?, ?, ?, ?, ?, ?, ?)",
      {file_id, name, kind, fqn, line, signature ? Value(*signature) : Value(),
       std::int64_t{is_export ? 1 : 0}});
}

void TestIndex::edge(std::int64_t source, std::int64_t target, const std::string& kind,
                     std::optional<std::string> resolution, std::optional<std::int64_t> line) {
  insert("INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (?, ?, ?, ?, ?)",
         {source, target, kind, resolution ? Value(*resolution) : Value(),
          line ? Value(*line) : Value()});
}

void TestIndex::pending(const std::string& target_name) {
  insert("INSERT INTO pending_references (target_name) VALUES (?)", {target_name});
}

void TestIndex::execute(const std::string& sql) {
  writer().execute(sql);
}

void TestIndex::close() {
  if (writer_ && in_transaction_) writer_->execute("COMMIT");
  in_transaction_ = false;
  writer_.reset();
}

std::unique_ptr<Repository> TestIndex::open() {
  close();
  return std::make_unique<Repository>(path_);
}

std::filesystem::path copy_example_project(const std::string& name, const std::string& example) {
  namespace fs = std::filesystem;
  const fs::path root = fs::path(::testing::TempDir()) / (name + "_" + std::to_string(getpid()));
  fs::remove_all(root);
  fs::copy(fs::path(QUARRY_SOURCE_DIR) / "examples" / example, root,
           fs::copy_options::recursive);
  fs::remove_all(root / ".quarry");
  return root;
}

CliResult run_cli(std::vector<std::string> args) {
  args.insert(args.begin(), "quarry");
  std::ostringstream out, err;
  const int status = cli::run(args, out, err, false);
  return {status, out.str(), err.str()};
}

pid_t start_quarry(std::vector<std::string> args, int stdout_fd, const std::string& stderr_path) {
  args.insert(args.begin(), QUARRY_BINARY);
  std::vector<char*> argv;
  for (auto& arg : args)
    argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (stdout_fd >= 0) {
    posix_spawn_file_actions_adddup2(&actions, stdout_fd, STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO,
                                   stderr_path.empty() ? "/dev/null" : stderr_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return spawned == 0 ? pid : -1;
}

std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

TempTree::TempTree(const SourceTree& files) {
  static int counter = 0;
  root_ = std::filesystem::path(::testing::TempDir()) /
          ("quarry_tree_" + std::to_string(getpid()) + "_" + std::to_string(counter++));
  std::filesystem::remove_all(root_);
  std::filesystem::create_directories(root_);
  for (const auto& [path, text] : files)
    write(path, text);
}

TempTree::~TempTree() {
  std::filesystem::remove_all(root_);
}

void TempTree::write(const std::string& path, const std::string& text) const {
  std::filesystem::create_directories((root_ / path).parent_path());
  std::ofstream(root_ / path, std::ios::binary) << text;
}

indexer::IndexSummary TempTree::index() const {
  return indexer::build_index({.root = root_, .db_path = db(), .threads = 2});
}

std::set<EdgeRow> edges_of(Repository& repo) {
  std::set<EdgeRow> edges;
  for (const Row& row : repo.db().fetchall(
           "SELECT s.fqn, t.fqn, e.kind, COALESCE(e.resolution, '') FROM edges e "
           "JOIN symbols s ON s.id = e.source_id JOIN symbols t ON t.id = e.target_id")) {
    edges.emplace(to_text(row[0]), to_text(row[1]), to_text(row[2]), to_text(row[3]));
  }
  return edges;
}

std::set<std::string> pending_of(Repository& repo) {
  std::set<std::string> names;
  for (const Row& row : repo.db().fetchall("SELECT target_name FROM pending_references")) {
    names.insert(to_text(row[0]));
  }
  return names;
}

void check_binding(const BindingCase& c) {
  SCOPED_TRACE(c.name);
  TempTree tree(c.files);
  tree.index();
  Repository repo(tree.db());
  const std::set<EdgeRow> edges = edges_of(repo);
  const auto show = [](const EdgeRow& e) {
    return std::get<0>(e) + " -> " + std::get<1>(e) + " " + std::get<2>(e) + " " + std::get<3>(e);
  };
  for (const EdgeRow& edge : c.expected)
    EXPECT_TRUE(edges.contains(edge)) << "missing " << show(edge);
  for (const EdgeRow& edge : c.absent)
    EXPECT_FALSE(edges.contains(edge)) << "unexpected " << show(edge);
  for (const EdgeRow& edge : edges) {
    for (const auto& [source, target] : c.unrelated) {
      EXPECT_FALSE(std::get<0>(edge) == source && std::get<1>(edge) == target)
          << "unexpected " << show(edge);
    }
  }
  std::map<std::string, std::string> listed;
  for (const UnusedSymbol& symbol : repo.get_dead_code({.limit = 1000}).symbols)
    listed[symbol.fqn] = std::string(to_string(symbol.confidence));
  for (const auto& [fqn, verdict] : c.verdicts)
    EXPECT_EQ(listed.contains(fqn) ? listed[fqn] : "", verdict) << fqn;
}

}  // namespace quarry::testing
