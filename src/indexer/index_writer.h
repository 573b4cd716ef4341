// Writes a complete index database from the parsed and resolved repository.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "indexer/python_model.h"
#include "indexer/python_resolver.h"
#include "storage/index_meta.h"

namespace quarry::indexer {

struct ListedFile {
  std::string path;
  std::string language;
  int model = -1;  // index into the parsed Python files, or -1
};

struct WriteCounts {
  std::size_t symbols = 0;
  std::size_t edges = 0;
  std::size_t pending_references = 0;
};

// Writes the whole index, with `meta` in its meta table, into the new, empty file at `path`
// (an IndexTarget's temporary file). `links[i]` belongs to `models[i]`; symbol ids are the
// resolver's. Calls `progress` (when set) now and then with the steps done and their total
// (a step per listed file, per file's links, and one for the lookup indexes), last with
// done == total.
WriteCounts write_index(const std::string& path, const std::vector<ListedFile>& files,
                        const std::vector<FileModel>& models, const PythonResolver& resolver,
                        const std::vector<FileLinks>& links, const IndexMeta& meta,
                        const std::function<void(std::size_t done, std::size_t total)>& progress);

}  // namespace quarry::indexer
