#include "indexer/entry_points.h"

#include <toml++/toml.h>
#include <deque>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "indexer/python_parser.h"
#include "indexer/source_files.h"
#include "indexer/text.h"
#include "models/symbol.h"

namespace quarry::indexer {

namespace {

// How many steps (an attribute, a re-export, a star import) one entry point is followed
// through at most.
constexpr std::size_t MAX_HOPS = 64;

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Calls `each` with every line of `text`, its line break left out.
template <typename Each>
void for_each_line(std::string_view text, Each&& each) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    each(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

std::vector<std::string> split_dotted_name(std::string_view name) {
  std::vector<std::string> parts;
  for (;;) {
    const std::size_t dot = name.find('.');
    if (!is_python_identifier(name.substr(0, dot))) return {};
    parts.emplace_back(name.substr(0, dot));
    if (dot == std::string_view::npos) return parts;
    name.remove_prefix(dot + 1);
  }
}

// `module:attr.sub [extras]`; nothing for a module alone or what is no entry point.
std::optional<EntryPoint> parse_value(std::string_view value) {
  value = trim(value.substr(0, value.find('[')));
  const std::size_t colon = value.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view module = trim(value.substr(0, colon));
  std::vector<std::string> attributes = split_dotted_name(trim(value.substr(colon + 1)));
  if (attributes.empty() || split_dotted_name(module).empty()) return std::nullopt;
  return EntryPoint{std::string(module), std::move(attributes)};
}

// `name = module:attr [extras]`, as setup.cfg and setup.py write an entry point.
void add_named(std::string_view line, std::vector<EntryPoint>& out) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || trim(line.substr(0, equals)).empty()) return;
  if (auto entry = parse_value(line.substr(equals + 1))) out.push_back(std::move(*entry));
}

void read_pyproject(std::string_view path, std::string_view text, std::vector<EntryPoint>& out,
                    std::vector<std::string>& warnings) {
  toml::table document;
  try {
    document = toml::parse(text, path);
  } catch (const toml::parse_error& error) {
    warnings.push_back(std::string(path) + ":" + std::to_string(error.source().begin.line) + ": " +
                       std::string(error.description()));
    return;
  }
  const auto add = [&](const std::optional<std::string>& value) {
    if (!value) return;
    if (auto entry = parse_value(*value)) out.push_back(std::move(*entry));
  };
  const auto add_strings = [&](const toml::table* group) {
    if (group == nullptr) return;
    for (const auto& [name, value] : *group)
      add(value.value<std::string>());
  };
  const auto add_groups = [&](const toml::table* groups) {
    if (groups == nullptr) return;
    for (const auto& [name, group] : *groups)
      add_strings(group.as_table());
  };
  const auto project = document["project"];
  add_strings(project["scripts"].as_table());
  add_strings(project["gui-scripts"].as_table());
  add_groups(project["entry-points"].as_table());
  const auto poetry = document["tool"]["poetry"];
  if (const toml::table* scripts = poetry["scripts"].as_table()) {
    for (const auto& [name, value] : *scripts) {
      const toml::table* table = value.as_table();
      if (table == nullptr) {
        add(value.value<std::string>());
      } else if (table->contains("callable")) {
        add((*table)["callable"].value<std::string>());
      } else if ((*table)["type"].value_or(std::string()) != "file") {
        add((*table)["reference"].value<std::string>());
      }
    }
  }
  add_groups(poetry["plugins"].as_table());
}

// The groups of [options.entry_points]: a key line `group =` and its indented lines.
void read_setup_cfg(std::string_view text, std::vector<EntryPoint>& out) {
  bool in_section = false, in_group = false;
  for_each_line(text, [&](std::string_view line) {
    const std::string_view content = trim(line);
    if (content.empty() || content.front() == '#' || content.front() == ';') return;
    const bool indented = line.front() == ' ' || line.front() == '\t';
    if (!indented && content.front() == '[') {
      in_section = content == "[options.entry_points]";
      in_group = false;
    } else if (!in_section) {
      return;
    } else if (indented) {
      if (in_group) add_named(content, out);
    } else {
      const std::size_t delimiter = content.find_first_of("=:");
      in_group = delimiter != std::string_view::npos;
      if (in_group) add_named(content.substr(delimiter + 1), out);
    }
  });
}

// Every line of every string literal; comments are skipped.
void read_setup_py(std::string_view text, std::vector<EntryPoint>& out) {
  std::size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == '#') {
      i = text.find('\n', i);
      continue;
    }
    if (c != '"' && c != '\'') {
      ++i;
      continue;
    }
    const std::string quote(text.substr(i, 3) == std::string(3, c) ? 3 : 1, c);
    const std::size_t start = i + quote.size();
    std::size_t end = start;
    while (end < text.size() && text.compare(end, quote.size(), quote) != 0 &&
           (quote.size() == 3 || text[end] != '\n')) {
      end += text[end] == '\\' ? 2 : 1;
    }
    end = std::min(end, text.size());
    for_each_line(text.substr(start, end - start),
                  [&](std::string_view line) { add_named(line, out); });
    i = end + quote.size();
  }
}

// The dotted package name of a directory of the tree, by module_name_of's rules ("" for the
// top, and for a top-level src/).
std::string package_of(std::string_view directory) {
  if (directory.empty()) return {};
  std::string module = module_name_of(std::string(directory) + "/_.py");
  module.pop_back();
  if (!module.empty()) module.pop_back();
  return module;
}

// Finds and marks what entry points name in the models.
class Marker {
 public:
  explicit Marker(std::vector<FileModel>& models) : models_(models) {
    for (std::size_t f = 0; f < models.size(); ++f) {
      modules_[models[f].module].push_back(f);
      const auto& definitions = models[f].definitions;
      for (std::size_t d = 0; d < definitions.size(); ++d)
        by_fqn_[definitions[d].fqn].emplace_back(f, d);
    }
  }

  // Marks what `entry`, declared in the directory of package `package`, names. Returns
  // whether it named any definition, a module included.
  bool mark(const std::string& package, const EntryPoint& entry) {
    bool named = false;
    struct Step {
      std::string container;  // a module or a class
      std::string wanted;     // a name in it
      std::size_t next;       // the index of the attribute after `wanted`
    };
    const auto& attributes = entry.attributes;
    std::deque<Step> queue;
    for (const std::string& module : candidates(package, entry.module)) {
      if (modules_.contains(module)) queue.push_back({module, attributes[0], 1});
    }
    // What `fqn` leads to: the attribute after it, looked up in it.
    const auto into = [&](const std::string& fqn, std::size_t next) {
      if (next < attributes.size()) queue.push_back({fqn, attributes[next], next + 1});
    };
    std::set<std::tuple<std::string, std::string, std::size_t>> seen;
    for (std::size_t hops = 0; !queue.empty() && hops < MAX_HOPS; ++hops) {
      Step step = std::move(queue.front());
      queue.pop_front();
      if (!seen.emplace(step.container, step.wanted, step.next).second) continue;
      const std::string fqn = step.container + "." + step.wanted;
      const auto found = by_fqn_.find(fqn);
      if (found == by_fqn_.end()) {
        // Perhaps brought in by `from module import *`.
        const auto files = modules_.find(step.container);
        if (files == modules_.end()) continue;
        for (std::size_t f : files->second) {
          for (const std::string& star : models_[f].star_imports)
            queue.push_back({module_of(package, star), step.wanted, step.next});
        }
        continue;
      }
      named = true;
      for (const auto& [f, d] : found->second) {
        Definition& definition = models_[f].definitions[d];
        if (definition.kind == symbol_kind::MODULE) {
          into(fqn, step.next);
          continue;
        }
        definition.is_export = true;
        if (!definition.import) {
          into(fqn, step.next);
        } else if (definition.import->kind == Binding::Kind::module) {
          into(module_of(package, std::string(definition.import->module())), step.next);
        } else {
          queue.push_back({module_of(package, std::string(definition.import->module())),
                           std::string(definition.import->name()), step.next});
        }
      }
    }
    return named;
  }

  // Whether `name` is the name of a module of the models.
  bool is_module(const std::string& name) const { return modules_.contains(name); }

 private:
  // The module names `module` may have, declared in the directory of package `package`.
  static std::vector<std::string> candidates(const std::string& package,
                                             const std::string& module) {
    if (package.empty()) return {module};
    return {package + "." + module, package + ".src." + module};
  }

  // The module an import names: as the tree names it, else relative to the packaging file.
  std::string module_of(const std::string& package, const std::string& module) const {
    if (modules_.contains(module)) return module;
    for (std::string& candidate : candidates(package, module)) {
      if (modules_.contains(candidate)) return candidate;
    }
    return module;
  }

  std::vector<FileModel>& models_;
  // Keys view the models' names, which marking leaves as they are.
  std::unordered_map<std::string_view, std::vector<std::size_t>> modules_;
  std::unordered_map<std::string_view, std::vector<std::pair<std::size_t, std::size_t>>> by_fqn_;
};

}  // namespace

std::vector<EntryPoint> read_entry_points(std::string_view path, std::string_view text,
                                          std::vector<std::string>& warnings) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  std::vector<EntryPoint> entries;
  if (name == "pyproject.toml") {
    read_pyproject(path, text, entries, warnings);
  } else if (name == "setup.cfg") {
    read_setup_cfg(text, entries);
  } else if (name == "setup.py") {
    read_setup_py(text, entries);
  }
  return entries;
}

std::vector<std::string> mark_entry_points(const std::filesystem::path& root,
                                           const std::vector<std::string>& paths,
                                           std::uintmax_t max_file_size,
                                           std::vector<FileModel>& models) {
  std::vector<std::string> warnings;
  std::optional<Marker> marker;  // made for the first entry point
  for (const std::string& path : paths) {
    const std::string_view name = std::string_view(path).substr(path.rfind('/') + 1);
    if (name != "pyproject.toml" && name != "setup.cfg" && name != "setup.py") continue;
    const SourceText source = read_source(root / path, max_file_size);
    if (!source.text) {
      warnings.push_back(path + ": entry points not read: " + source.problem);
      continue;
    }
    const std::vector<EntryPoint> entries = read_entry_points(path, *source.text, warnings);
    if (entries.empty()) continue;
    if (!marker) marker.emplace(models);
    const std::size_t slash = path.rfind('/');
    const std::string package = package_of(
        slash == std::string::npos ? std::string_view() : std::string_view(path).substr(0, slash));
    for (const EntryPoint& entry : entries)
      marker->mark(package, entry);
  }
  return warnings;
}

std::vector<std::string> mark_configured_entry_points(const std::vector<std::string>& fqns,
                                                      std::vector<FileModel>& models) {
  std::vector<std::string> warnings;
  std::optional<Marker> marker;
  for (const std::string& fqn : fqns) {
    const std::vector<std::string> parts = split_dotted_name(fqn);
    if (!parts.empty() && !marker) marker.emplace(models);
    bool named = !parts.empty() && marker->is_module(fqn);
    // `a.b.c` is `c` of module a.b, else `b.c` of module a: the longest module first.
    for (std::size_t split = parts.size() - 1; split >= 1 && split < parts.size() && !named;
         --split) {
      EntryPoint entry{parts[0], {parts.begin() + static_cast<std::ptrdiff_t>(split), parts.end()}};
      for (std::size_t i = 1; i < split; ++i)
        entry.module += "." + parts[i];
      named = marker->mark("", entry);
    }
    if (!named) warnings.push_back("entry point '" + fqn + "' names no definition; ignored");
  }
  return warnings;
}

}  // namespace quarry::indexer
