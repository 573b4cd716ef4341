// Writes a complete index database from the parsed and resolved repository.
#pragma once

#include <string>
#include <vector>

#include "indexer/python_model.h"
#include "indexer/python_resolver.h"

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

// Writes the whole index into the new, empty file at `path` (an IndexTarget's temporary
// file). `links[i]` belongs to `models[i]`; symbol ids are the resolver's.
WriteCounts write_index(const std::string& path, const std::vector<ListedFile>& files,
                        const std::vector<FileModel>& models, const PythonResolver& resolver,
                        const std::vector<FileLinks>& links);

}  // namespace quarry::indexer
