#include "indexer/script_entry_points.h"

#include <array>
#include <deque>
#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>

#include "indexer/source_files.h"

namespace quarry::indexer {

namespace {

using Json = nlohmann::json;

// Every string in `value`, depth first: a path, an array of paths, or an object of them
// (conditions of `exports`, commands of `bin`).
void collect_paths(const Json& value, std::vector<std::string>& out) {
  std::vector<const Json*> pending{&value};
  while (!pending.empty()) {
    const Json* item = pending.back();
    pending.pop_back();
    if (item->is_string()) {
      out.push_back(item->get<std::string>());
    } else if (item->is_object() || item->is_array()) {
      for (auto it = item->rbegin(); it != item->rend(); ++it)
        pending.push_back(&*it);
    }
  }
}

// The words of a shell command that name script files: "node scripts/build.js --fast"
// names scripts/build.js.
void collect_script_words(std::string_view command, std::vector<std::string>& out) {
  std::size_t start = 0;
  while (start < command.size()) {
    const std::size_t end = command.find_first_of(" \t;&|()'\"=", start);
    const std::string_view word =
        command.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    if (script_dialect_of(word) && !word.starts_with("-")) out.emplace_back(word);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
}

// Directories that hold what a build makes from src/.
constexpr std::array<std::string_view, 6> OUTPUT_DIRECTORIES{"dist/", "lib/", "build/",
                                                             "out/",  "esm/", "cjs/"};

}  // namespace

std::vector<std::string> read_package_entries(std::string_view path, std::string_view text,
                                              std::vector<std::string>& warnings) {
  std::vector<std::string> entries;
  const Json package = Json::parse(text, nullptr, false);
  if (package.is_discarded()) {
    warnings.push_back(std::string(path) + ": not valid JSON; its entry points are not read");
    return entries;
  }
  if (!package.is_object()) return entries;
  for (const char* key : {"main", "module", "browser", "types", "typings", "bin", "exports"}) {
    if (auto it = package.find(key); it != package.end()) collect_paths(*it, entries);
  }
  if (auto scripts = package.find("scripts"); scripts != package.end() && scripts->is_object()) {
    for (const Json& command : *scripts) {
      if (command.is_string()) collect_script_words(command.get<std::string>(), entries);
    }
  }
  // Patterns (`"./*": "./src/*.js"`) and what is no file are left out.
  std::erase_if(entries, [](const std::string& entry) {
    return entry.empty() || entry.find('*') != std::string::npos;
  });
  return entries;
}

bool is_tool_config(std::string_view path) {
  if (!script_dialect_of(path)) return false;
  const std::size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  return name.find(".config.") != std::string_view::npos || name.starts_with(".") ||
         name.starts_with("gulpfile.") || name.starts_with("Gruntfile.");
}

std::vector<std::string> mark_script_entry_points(const std::filesystem::path& root,
                                                  const std::vector<std::string>& paths,
                                                  std::uintmax_t max_file_size,
                                                  const ScriptModules& modules,
                                                  std::vector<FileModel>& models) {
  std::vector<std::string> warnings;
  std::unordered_map<std::string, std::size_t> by_module;
  for (std::size_t m = 0; m < models.size(); ++m) {
    if (script_dialect_of(models[m].path)) by_module.emplace(models[m].module, m);
  }
  if (by_module.empty()) return warnings;

  // The modules whose exports are public, as found.
  std::deque<std::string> pending;
  for (const std::string& path : paths) {
    if (is_tool_config(path)) pending.push_back(modules.module_of(path));
    if (path != "package.json" && !path.ends_with("/package.json")) continue;
    const SourceText source = read_source(root / path, max_file_size);
    if (!source.text) {
      warnings.push_back(path + ": not read (" + source.problem +
                         "); its entry points are not read");
      continue;
    }
    for (std::string entry : read_package_entries(path, *source.text, warnings)) {
      if (entry.starts_with("./")) entry.erase(0, 2);
      std::optional<std::string> file = modules.resolve(path, "./" + entry);
      for (std::string_view output : OUTPUT_DIRECTORIES) {
        if (file || !entry.starts_with(output)) continue;
        file = modules.resolve(path, "./src/" + entry.substr(output.size()));
      }
      if (file) pending.push_back(modules.module_of(*file));
    }
  }

  std::set<std::string> seen;
  while (!pending.empty()) {
    const std::string module = std::move(pending.front());
    pending.pop_front();
    if (!seen.insert(module).second) continue;
    auto found = by_module.find(module);
    if (found == by_module.end()) continue;
    FileModel& model = models[found->second];
    // Each exported name, and the names of this module that it aliases.
    std::deque<std::string> names(model.exports.begin(), model.exports.end());
    std::set<std::string> marked;
    while (!names.empty()) {
      const std::string name = std::move(names.front());
      names.pop_front();
      if (!marked.insert(name).second) continue;
      for (Definition& made : model.definitions) {
        if (made.name != name || made.fqn != model.module + "." + name) continue;
        made.is_export = true;
        if (made.import && made.import->module == model.module && !made.import->name.empty())
          names.push_back(made.import->name);
      }
    }
    for (const std::string& star : model.star_imports)
      pending.push_back(star);
  }
  return warnings;
}

}  // namespace quarry::indexer
