// Reads one JavaScript or TypeScript file with tree-sitter into a FileModel, the model the
// resolver binds across files for Python too.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "indexer/python_model.h"
#include "indexer/script_modules.h"

struct TSParser;

namespace quarry::indexer {

// A parser for JavaScript, TypeScript and TSX sources. Not thread-safe: use one per thread.
//
// The model it makes, in the resolver's terms:
//  - the file's module is its ScriptModules name; definitions are functions (declarations
//    and function or arrow expressions bound to a name), classes, methods, interfaces, type
//    aliases, enums, and the names a module declares (constants and variables);
//  - an import binds names to what another file's module defines ("default" for a default
//    import), `export ... from` and `export *` re-export as Python's imports in a package do,
//    `require("./x")` binds the module (or its `module.exports` value, its "default");
//  - `this` in a method is an instance of its class; annotations, `new C()` and return types
//    are type hints;
//  - a name that no scope of the file binds is a global of the runtime (console, window,
//    process): its uses are dropped rather than left pending.
// The names the module exports (ES exports and CommonJS `exports.x`/`module.exports`) are
// listed in FileModel::exports; a declaration file's definitions are all exported.
class ScriptParser {
 public:
  explicit ScriptParser(const ScriptModules& modules);
  ~ScriptParser();
  ScriptParser(const ScriptParser&) = delete;
  ScriptParser& operator=(const ScriptParser&) = delete;

  // Parses `source`, the text of the script file at `path` (one that ScriptModules knows).
  // Never throws for bad input: a file that does not parse, or is not valid UTF-8, gives
  // what could be read and a warning.
  // The models of one parser share a store (FileModel::store) that lives as long as the
  // parser or any of them: a parser keeps what every file it read stored.
  FileModel parse(const std::string& path, std::string_view source);

 private:
  const ScriptModules& modules_;
  TSParser* parser_;
  std::shared_ptr<ModelStore> store_ = std::make_shared<ModelStore>();
};

}  // namespace quarry::indexer
