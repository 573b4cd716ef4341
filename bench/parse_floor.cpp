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

namespace quarry::bench {

ParseFloor parse_floor(const std::filesystem::path& root, unsigned threads) {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string name = it->path().filename().string();
    if (it->is_directory() && (name == ".git" || name == ".quarry")) {
      it.disable_recursion_pending();
      continue;
    }
    const std::string ext = it->path().extension().string();
    if (it->is_regular_file() && (ext == ".py" || ext == ".pyi")) files.push_back(it->path());
  }
  if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());

  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> bytes{0};
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < threads; ++t) {
    workers.emplace_back([&] {
      TSParser* parser = ts_parser_new();
      ts_parser_set_language(parser, tree_sitter_python());
      for (std::size_t i = next++; i < files.size(); i = next++) {
        std::ifstream in(files[i], std::ios::binary);
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
