// Reads one Python file with tree-sitter into a FileModel.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "indexer/python_model.h"

struct TSParser;

namespace quarry::indexer {

// The dotted module name of a Python file at `path` (relative, "/" separators): the path
// without its extension, a leading "src/" dropped, "__init__" standing for its package.
std::string module_name_of(std::string_view path);

// The component of a Python file: the dotted path of its directory, "." for the top.
std::string component_of(std::string_view path);

// A parser for Python sources. Not thread-safe: use one per thread.
class PythonParser {
 public:
  PythonParser();
  ~PythonParser();
  PythonParser(const PythonParser&) = delete;
  PythonParser& operator=(const PythonParser&) = delete;

  // Parses `source`, the text of the file at `path`. Never throws for bad input: a file
  // that does not parse, or is not valid UTF-8, gives what could be read and a warning.
  // The models of one parser share a store (FileModel::store) that lives as long as the
  // parser or any of them: a parser keeps what every file it read stored.
  FileModel parse(const std::string& path, std::string_view source);

 private:
  TSParser* parser_;
  std::shared_ptr<ModelStore> store_ = std::make_shared<ModelStore>();
};

}  // namespace quarry::indexer
