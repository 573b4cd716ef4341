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
// from when there is one: "./x.js" for x.ts, or for x.d.ts when x.js is not there.
constexpr std::array<std::pair<std::string_view, std::array<std::string_view, 3>>, 4> SOURCES_OF{{
    {".js", {".ts", ".tsx", ".d.ts"}},
    {".jsx", {".tsx", "", ""}},
    {".mjs", {".mts", ".d.mts", ""}},
    {".cjs", {".cts", ".d.cts", ""}},
}};

std::string_view directory_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

}  // namespace

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
                             const std::vector<std::string>& taken,
                             std::vector<ScriptPackage> packages,
                             std::vector<ScriptPathMapping> mappings)
    : packages_(std::move(packages)), mappings_(std::move(mappings)) {
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

// The file that `path` (relative to the root, normalized) names as an import would: the
// TypeScript source of a JavaScript name, the file itself, the file with an extension, or
// the directory's index file.
std::optional<std::string> ScriptModules::resolve_path(std::string_view path) const {
  const std::string base(path);
  const auto known = [&](const std::string& file) { return modules_.contains(file); };
  for (const auto& [written, sources] : SOURCES_OF) {
    if (!base.ends_with(written)) continue;
    const std::string stem = base.substr(0, base.size() - written.size());
    for (std::string_view source : sources) {
      // A declaration describes the file it names: that file itself, when it is there.
      if (source.empty() || (source.starts_with(".d.") && known(base))) continue;
      if (known(stem + std::string(source))) return stem + std::string(source);
    }
  }
  if (!base.empty() && known(base)) return base;
  std::vector<std::string> stems;
  if (!base.empty()) stems.push_back(base);
  stems.push_back(base.empty() ? std::string("index") : base + "/index");
  for (const std::string& stem : stems) {
    for (std::string_view completion : COMPLETIONS) {
      std::string candidate = stem + std::string(completion);
      if (known(candidate)) return candidate;
    }
  }
  return std::nullopt;
}

namespace {

// Whether `path` is `directory` or lies under it ("" holds everything).
bool is_under(std::string_view path, std::string_view directory) {
  return directory.empty() || (path.starts_with(directory) && path.size() > directory.size() &&
                               path[directory.size()] == '/');
}

std::string joined(std::string_view directory, std::string_view path) {
  if (directory.empty()) return std::string(path);
  return std::string(directory) + "/" + std::string(path);
}

// Directories that hold what a build makes from src/, nested as builds nest them
// (dist/cjs/index.js, lib/esm/index.js).
constexpr std::array<std::string_view, 13> OUTPUT_DIRECTORIES{
    "dist/", "lib/",   "build/", "out/",    "esm/",    "es/",    "cjs/",
    "esm5/", "types/", "umd/",   "module/", "modern/", "legacy/"};

// The extensions of built files, longest first where one ends another: a built file names
// its source by its stem (index.cjs and index.d.ts are built from index.ts).
constexpr std::array<std::string_view, 6> BUILT_EXTENSIONS{".d.ts", ".d.mts", ".d.cts",
                                                           ".js",   ".mjs",   ".cjs"};

}  // namespace

std::optional<std::string> ScriptModules::resolve_mapped(std::string_view importer,
                                                         std::string_view specifier) const {
  // The nearest tsconfig above the importer.
  const ScriptPathMapping* mapping = nullptr;
  for (const ScriptPathMapping& candidate : mappings_) {
    if (is_under(importer, candidate.directory) &&
        (mapping == nullptr || candidate.directory.size() > mapping->directory.size())) {
      mapping = &candidate;
    }
  }
  if (mapping == nullptr) return std::nullopt;
  for (const auto& [pattern, targets] : mapping->paths) {
    const std::size_t star = pattern.find('*');
    std::string_view matched;
    if (star == std::string::npos) {
      if (specifier != pattern) continue;
    } else {
      const std::string_view prefix = std::string_view(pattern).substr(0, star);
      const std::string_view suffix = std::string_view(pattern).substr(star + 1);
      if (specifier.size() < prefix.size() + suffix.size() || !specifier.starts_with(prefix) ||
          !specifier.ends_with(suffix)) {
        continue;
      }
      matched = specifier.substr(prefix.size(), specifier.size() - prefix.size() - suffix.size());
    }
    for (std::string target : targets) {
      if (const std::size_t at = target.find('*'); at != std::string::npos)
        target.replace(at, 1, matched);
      if (const auto path = normalized(target)) {
        if (auto file = resolve_path(*path)) return file;
      }
    }
  }
  if (mapping->base_url) {
    if (const auto path = normalized(joined(*mapping->base_url, specifier)))
      return resolve_path(*path);
  }
  return std::nullopt;
}

std::optional<std::string> ScriptModules::resolve_package(std::string_view specifier) const {
  for (const ScriptPackage& package : packages_) {
    if (package.name.empty() || !specifier.starts_with(package.name)) continue;
    const std::string_view rest = specifier.substr(package.name.size());
    if (rest.empty()) {
      std::vector<std::string> files = entry_files(package);
      if (files.empty()) return std::nullopt;
      return std::move(files.front());
    }
    if (rest.front() != '/') continue;
    const std::string subpath = "." + std::string(rest);
    for (const auto& [exported, target] : package.subpaths) {
      if (exported == subpath) return entry_file(package, target);
    }
    return entry_file(package, rest.substr(1));
  }
  return std::nullopt;
}

std::optional<std::string> ScriptModules::entry_file(const ScriptPackage& package,
                                                     std::string_view entry) const {
  if (entry.starts_with("./")) entry.remove_prefix(2);
  if (const auto path = normalized(joined(package.directory, entry))) {
    if (auto file = resolve_path(*path)) return file;
  }
  bool stripped = false;
  for (bool again = true; again;) {
    again = false;
    for (std::string_view output : OUTPUT_DIRECTORIES) {
      if (entry.starts_with(output)) {
        entry.remove_prefix(output.size());
        stripped = again = true;
      }
    }
  }
  if (!stripped) return std::nullopt;
  std::string_view stem = entry;
  for (std::string_view extension : BUILT_EXTENSIONS) {
    if (stem.ends_with(extension)) {
      stem.remove_suffix(extension.size());
      break;
    }
  }
  for (std::string_view written : {entry, stem}) {
    for (std::string_view source_directory : {"src/", ""}) {
      const auto path = normalized(
          joined(package.directory, std::string(source_directory) + std::string(written)));
      if (!path) continue;
      if (auto file = resolve_path(*path)) return file;
    }
  }
  return std::nullopt;
}

std::vector<std::string> ScriptModules::entry_files(const ScriptPackage& package) const {
  std::vector<std::string> files;
  for (const std::string& entry : package.entries) {
    if (auto file = entry_file(package, entry)) files.push_back(std::move(*file));
  }
  if (!files.empty()) return files;
  // None found: the conventional entries of a package's sources.
  for (std::string_view conventional : {"index", "src/index"}) {
    if (auto file = entry_file(package, conventional)) return {std::move(*file)};
  }
  return files;
}

const ScriptPackage* ScriptModules::package_of(std::string_view path) const {
  const ScriptPackage* nearest = nullptr;
  for (const ScriptPackage& package : packages_) {
    if (is_under(path, package.directory) &&
        (nearest == nullptr || package.directory.size() > nearest->directory.size())) {
      nearest = &package;
    }
  }
  return nearest;
}

std::optional<std::string> ScriptModules::resolve(std::string_view importer,
                                                  std::string_view specifier) const {
  if (specifier.starts_with("./") || specifier.starts_with("../") || specifier == "." ||
      specifier == "..") {
    std::string path(directory_of(importer));
    if (!path.empty()) path += '/';
    path += specifier;
    const std::optional<std::string> base = normalized(path);
    if (!base) return std::nullopt;
    return resolve_path(*base);
  }
  if (specifier.empty() || specifier.starts_with("/") ||
      specifier.find(':') != std::string_view::npos)
    return std::nullopt;  // absolute paths, URLs and node: builtins
  if (auto file = resolve_mapped(importer, specifier)) return file;
  return resolve_package(specifier);
}

std::string ScriptModules::module_for(std::string_view importer, std::string_view specifier) const {
  if (const auto path = resolve(importer, specifier)) return modules_.at(*path);
  return "npm:" + std::string(specifier);
}

}  // namespace quarry::indexer
