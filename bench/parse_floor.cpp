#include "parse_floor.h"

#include <tree_sitter/api.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern "C" const TSLanguage* tree_sitter_python();
extern "C" const TSLanguage* tree_sitter_javascript();
extern "C" const TSLanguage* tree_sitter_typescript();
extern "C" const TSLanguage* tree_sitter_tsx();

namespace quarry::bench {

namespace {

// The grammar the indexer parses a file with, by its extension; null for other files.
const TSLanguage* grammar_of(const std::string& ext) {
  if (ext == ".py" || ext == ".pyi") return tree_sitter_python();
  if (ext == ".ts" || ext == ".mts" || ext == ".cts") return tree_sitter_typescript();
  if (ext == ".tsx") return tree_sitter_tsx();
  if (ext == ".js" || ext == ".mjs" || ext == ".cjs" || ext == ".jsx")
    return tree_sitter_javascript();
  return nullptr;
}

}  // namespace

ParseFloor parse_floor(const std::filesystem::path& root, unsigned threads) {
  namespace fs = std::filesystem;
  std::vector<std::pair<fs::path, const TSLanguage*>> files;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string name = it->path().filename().string();
    if (it->is_directory() && (name == ".git" || name == ".quarry")) {
      it.disable_recursion_pending();
      continue;
    }
    const TSLanguage* grammar = grammar_of(it->path().extension().string());
    if (it->is_regular_file() && grammar != nullptr) files.emplace_back(it->path(), grammar);
  }
  if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());

  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> bytes{0};
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < threads; ++t) {
    workers.emplace_back([&] {
      TSParser* parser = ts_parser_new();
      for (std::size_t i = next++; i < files.size(); i = next++) {
        ts_parser_set_language(parser, files[i].second);
        std::ifstream in(files[i].first, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        const std::string source = text.str();
        bytes += source.size();
        TSTree* tree = ts_parser_parse_string(parser, nullptr, source.data(),
                                              static_cast<std::uint32_t>(source.size()));
        ts_tree_delete(tree);
      }
      ts_parser_delete(parser);
    });
  }
  for (std::thread& worker : workers)
    worker.join();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return {files.size(), bytes.load(), seconds};
}

}  // namespace quarry::bench
