#include "indexer/script_modules.h"

#include <array>
#include <unordered_set>

namespace quarry::indexer {

namespace {

struct Extension {
  std::string_view text;
  ScriptDialect dialect;
};

// Longest first where one ends another: ".d.ts" is looked for before ".ts".
constexpr std::array<Extension, 8> EXTENSIONS{{
    {".ts", ScriptDialect::typescript},
    {".tsx", ScriptDialect::tsx},
    {".mts", ScriptDialect::typescript},
    {".cts", ScriptDialect::typescript},
    {".js", ScriptDialect::javascript},
    {".jsx", ScriptDialect::javascript},
    {".mjs", ScriptDialect::javascript},
    {".cjs", ScriptDialect::javascript},
}};

constexpr std::array<std::string_view, 3> DECLARATION_EXTENSIONS{".d.ts", ".d.mts", ".d.cts"};

// The order in which a specifier without an extension is completed: sources before what is
// built from them, declarations last.
constexpr std::array<std::string_view, 11> COMPLETIONS{
    ".ts", ".tsx", ".mts", ".cts", ".js", ".jsx", ".mjs", ".cjs", ".d.ts", ".d.mts", ".d.cts"};

// A specifier written with a JavaScript extension names the TypeScript source it is built
// from when there is one: "./x.js" for x.ts.
constexpr std::array<std::pair<std::string_view, std::array<std::string_view, 3>>, 4> SOURCES_OF{{
    {".js", {".ts", ".tsx", ".d.ts"}},
    {".jsx", {".tsx", "", ""}},
    {".mjs", {".mts", ".d.mts", ""}},
    {".cjs", {".cts", ".d.cts", ""}},
}};

// `path` with "." and ".." segments folded; nothing when it climbs above the root.
std::optional<std::string> normalized(std::string_view path) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string_view::npos) slash = path.size();
    const std::string_view part = path.substr(start, slash - start);
    if (part == "..") {
      if (parts.empty()) return std::nullopt;
      parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = slash + 1;
  }
  std::string out;
  for (std::string_view part : parts) {
    if (!out.empty()) out += '/';
    out += part;
  }
  return out;
}

std::string_view directory_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

}  // namespace

std::optional<ScriptDialect> script_dialect_of(std::string_view path) {
  for (const Extension& extension : EXTENSIONS) {
    if (path.ends_with(extension.text) && path.size() > extension.text.size() &&
        path[path.size() - extension.text.size() - 1] != '/') {
      return extension.dialect;
    }
  }
  return std::nullopt;
}

bool is_declaration_file(std::string_view path) {
  for (std::string_view extension : DECLARATION_EXTENSIONS) {
    if (path.ends_with(extension)) return true;
  }
  return false;
}

std::string script_module_name_of(std::string_view path) {
  for (const Extension& extension : EXTENSIONS) {
    if (path.ends_with(extension.text))
      return std::string(path.substr(0, path.size() - extension.text.size()));
  }
  return std::string(path);
}

ScriptModules::ScriptModules(const std::vector<std::string>& paths,
                             const std::vector<std::string>& taken) {
  std::unordered_set<std::string> names(taken.begin(), taken.end());
  for (const std::string& path : paths) {
    std::string name = script_module_name_of(path);
    if (!names.insert(name).second) name = path;
    names.insert(name);
    modules_.emplace(path, std::move(name));
  }
}

const std::string& ScriptModules::module_of(const std::string& path) const {
  return modules_.at(path);
}

std::optional<std::string> ScriptModules::resolve(std::string_view importer,
                                                  std::string_view specifier) const {
  if (!specifier.starts_with("./") && !specifier.starts_with("../") && specifier != "." &&
      specifier != "..") {
    return std::nullopt;
  }
  std::string joined(directory_of(importer));
  if (!joined.empty()) joined += '/';
  joined += specifier;
  const std::optional<std::string> base = normalized(joined);
  if (!base) return std::nullopt;
  const auto known = [&](const std::string& path) { return modules_.contains(path); };
  // Written with a JavaScript extension: the TypeScript source it is built from, if any,
  // else the file itself.
  for (const auto& [written, sources] : SOURCES_OF) {
    if (!base->ends_with(written)) continue;
    const std::string stem = base->substr(0, base->size() - written.size());
    for (std::string_view source : sources) {
      if (!source.empty() && known(stem + std::string(source))) return stem + std::string(source);
    }
  }
  if (!base->empty() && known(*base)) return *base;
  // Without an extension: the file with one, else the directory's index file.
  std::vector<std::string> stems;
  if (!base->empty()) stems.push_back(*base);
  stems.push_back(base->empty() ? std::string("index") : *base + "/index");
  for (const std::string& stem : stems) {
    for (std::string_view completion : COMPLETIONS) {
      std::string candidate = stem + std::string(completion);
      if (known(candidate)) return candidate;
    }
  }
  return std::nullopt;
}

std::string ScriptModules::module_for(std::string_view importer, std::string_view specifier) const {
  if (const auto path = resolve(importer, specifier)) return modules_.at(*path);
  return "npm:" + std::string(specifier);
}

}  // namespace quarry::indexer
