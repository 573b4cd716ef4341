#include "indexer/script_entry_points.h"

#include <array>
#include <deque>
#include <set>
#include <unordered_map>

namespace quarry::indexer {

namespace {

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
        for (std::string_view name : model->exports)
          names_.emplace_back(module, std::string(name));
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
        if (!made.import->name().empty()) {
          names_.emplace_back(std::string(made.import->module()), std::string(made.import->name()));
        } else {
          modules.emplace_back(made.import->module());  // `export * as ns from "./m"`
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
      ids.insert(ids.end(), binding.also().begin(), binding.also().end());
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

bool is_tool_config(std::string_view path) {
  if (!script_dialect_of(path)) return false;
  const std::size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  return name.find(".config.") != std::string_view::npos || name.starts_with(".") ||
         name.starts_with("gulpfile.") || name.starts_with("Gruntfile.");
}

void mark_script_entry_points(const std::vector<std::string>& paths, const ScriptModules& modules,
                              std::vector<FileModel>& models) {
  std::unordered_map<std::string, std::size_t> by_module;
  for (std::size_t m = 0; m < models.size(); ++m) {
    if (script_dialect_of(models[m].path)) by_module.emplace(models[m].module, m);
  }
  if (by_module.empty()) return;
  // The modules whose exports are public.
  std::deque<std::string> pending;
  for (const std::string& path : paths) {
    if (is_tool_config(path)) pending.push_back(modules.module_of(path));
  }
  for (const ScriptPackage& package : modules.packages()) {
    for (const std::string& file : modules.entry_files(package))
      pending.push_back(modules.module_of(file));
  }
  PublicMarker(models, by_module).mark(pending);
}

}  // namespace quarry::indexer
