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

// Directories that hold what a build makes from src/, nested as builds nest them
// (dist/cjs/index.js, lib/esm/index.js).
constexpr std::array<std::string_view, 11> OUTPUT_DIRECTORIES{
    "dist/", "lib/", "build/", "out/", "esm/", "es/", "cjs/", "esm5/", "types/", "umd/", "module/"};

// `entry` without the output directories it starts with: "dist/cjs/index.js" gives
// "index.js"; nothing when it starts with none.
std::optional<std::string> source_path_of(std::string_view entry) {
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
  return std::string(entry);
}

// Marks what the entry modules make public: every name each exports, followed through
// aliases and re-exports to the definitions they name in any module, the exports of the
// modules they re-export whole, and the public members of each class so reached (a caller
// outside the package may call any of them).
class PublicMarker {
 public:
  PublicMarker(std::vector<FileModel>& models,
               const std::unordered_map<std::string, std::size_t>& by_module)
      : models_(models), by_module_(by_module) {}

  void mark(std::deque<std::string> modules) {
    std::set<std::string> seen_modules;
    std::set<std::pair<std::string, std::string>> seen_names;
    while (!modules.empty() || !names_.empty()) {
      if (!modules.empty()) {
        const std::string module = std::move(modules.front());
        modules.pop_front();
        FileModel* model = model_of(module);
        if (model == nullptr || !seen_modules.insert(module).second) continue;
        for (const std::string& name : model->exports)
          names_.emplace_back(module, name);
        modules.insert(modules.end(), model->star_imports.begin(), model->star_imports.end());
        continue;
      }
      auto named = std::move(names_.front());
      names_.pop_front();
      FileModel* model = model_of(named.first);
      if (model == nullptr || !seen_names.insert(named).second) continue;
      const std::string fqn = named.first + "." + named.second;
      for (Definition& made : model->definitions) {
        if (made.fqn != fqn) continue;
        made.is_export = true;
        if (made.body_scope >= 0) mark_members(*model, made.body_scope);
        if (!made.import) continue;
        if (!made.import->name.empty()) {
          names_.emplace_back(made.import->module, made.import->name);
        } else {
          modules.push_back(made.import->module);  // `export * as ns from "./m"`
        }
      }
    }
  }

 private:
  FileModel* model_of(const std::string& module) {
    auto found = by_module_.find(module);
    return found == by_module_.end() ? nullptr : &models_[found->second];
  }

  // The members of a class body that code outside the class may use: not `#private`, not
  // marked private or protected, not named with a leading underscore.
  void mark_members(FileModel& model, int body) {
    for (const auto& [name, binding] : model.scopes[static_cast<std::size_t>(body)].bindings) {
      if (binding.kind != Binding::Kind::definition || name.starts_with("_") ||
          name.starts_with("#")) {
        continue;
      }
      std::vector<int> ids{binding.definition};
      ids.insert(ids.end(), binding.also.begin(), binding.also.end());
      for (int id : ids) {
        Definition& member = model.definitions[static_cast<std::size_t>(id)];
        const std::string_view signature = member.signature ? *member.signature : "";
        if (signature.starts_with("private ") || signature.starts_with("protected ")) continue;
        member.is_export = true;
      }
    }
  }

  std::vector<FileModel>& models_;
  const std::unordered_map<std::string, std::size_t>& by_module_;
  std::deque<std::pair<std::string, std::string>> names_;
};

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
      if (const auto source = source_path_of(entry); !file && source) {
        file = modules.resolve(path, "./src/" + *source);
        if (!file) file = modules.resolve(path, "./" + *source);
      }
      if (file) pending.push_back(modules.module_of(*file));
    }
  }

  PublicMarker(models, by_module).mark(pending);
  return warnings;
}

}  // namespace quarry::indexer
