#include "indexer/script_config.h"

#include <nlohmann/json.hpp>

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

std::string directory_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

// The path relative to the root of `relative`, written relative to `directory`.
std::optional<std::string> from_root(const std::string& directory, std::string_view relative) {
  return normalized(directory.empty() ? std::string(relative)
                                      : directory + "/" + std::string(relative));
}

// `text` without the commas that close an object or array (`[1, 2,]`), outside strings:
// TypeScript reads such configurations.
std::string without_trailing_commas(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  bool in_string = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (in_string) {
      out += c;
      if (c == '\\' && i + 1 < text.size()) {
        out += text[++i];
      } else if (c == '"') {
        in_string = false;
      }
      continue;
    }
    if (c == '"') in_string = true;
    if (c == ',') {
      std::size_t next = i + 1;
      while (next < text.size() && (text[next] == ' ' || text[next] == '\t' || text[next] == '\n' ||
                                    text[next] == '\r')) {
        ++next;
      }
      if (next < text.size() && (text[next] == '}' || text[next] == ']')) continue;
    }
    out += c;
  }
  return out;
}

constexpr int MAX_EXTENDS_DEPTH = 8;

}  // namespace

ScriptPackage read_package(std::string_view path, std::string_view text,
                           std::vector<std::string>& warnings) {
  ScriptPackage package;
  package.directory = directory_of(path);
  const Json json = Json::parse(text, nullptr, false);
  if (json.is_discarded()) {
    warnings.push_back(std::string(path) + ": not valid JSON; its entry points are not read");
    return package;
  }
  if (!json.is_object()) return package;
  if (auto name = json.find("name"); name != json.end() && name->is_string())
    package.name = name->get<std::string>();
  package.workspaces = json.contains("workspaces");
  for (const char* key : {"main", "module", "browser", "types", "typings", "bin", "exports"}) {
    if (auto it = json.find(key); it != json.end()) collect_paths(*it, package.entries);
  }
  if (auto exports = json.find("exports"); exports != json.end() && exports->is_object()) {
    for (const auto& [key, target] : exports->items()) {
      if (!key.starts_with("./") || key.find('*') != std::string::npos) continue;
      std::vector<std::string> targets;
      collect_paths(target, targets);
      if (!targets.empty()) package.subpaths.emplace_back(key, targets.front());
    }
  }
  if (auto scripts = json.find("scripts"); scripts != json.end() && scripts->is_object()) {
    for (const Json& command : *scripts) {
      if (command.is_string()) collect_script_words(command.get<std::string>(), package.entries);
    }
  }
  std::erase_if(package.entries, [](const std::string& entry) {
    return entry.empty() || entry.find('*') != std::string::npos;
  });
  return package;
}

ScriptPathMapping read_tsconfig(
    std::string_view path, std::string_view text,
    const std::function<std::optional<std::string>(const std::string&)>& read,
    std::vector<std::string>& warnings) {
  ScriptPathMapping mapping;
  mapping.directory = directory_of(path);
  // The configurations from the file itself down what it extends; the nearest setting wins.
  std::string current(path);
  std::optional<std::string> current_text(text);
  bool has_paths = false;
  for (int depth = 0; depth < MAX_EXTENDS_DEPTH && current_text; ++depth) {
    const Json json = Json::parse(without_trailing_commas(*current_text), nullptr, false,
                                  /*ignore_comments=*/true);
    if (json.is_discarded() || !json.is_object()) {
      warnings.push_back(current + ": not valid JSON; its module resolution is not read");
      break;
    }
    const std::string directory = directory_of(current);
    const Json options = json.value("compilerOptions", Json::object());
    std::optional<std::string> base_url;
    if (options.is_object() && options.contains("baseUrl") && options["baseUrl"].is_string())
      base_url = from_root(directory, options["baseUrl"].get<std::string>());
    if (!mapping.base_url && base_url) mapping.base_url = base_url;
    if (!has_paths && options.is_object() && options.contains("paths") &&
        options["paths"].is_object()) {
      has_paths = true;
      // Targets are relative to the baseUrl of the file that sets paths, else to its directory.
      const std::string from = base_url ? *base_url : directory;
      for (const auto& [pattern, targets] : options["paths"].items()) {
        std::vector<std::string> mapped;
        std::vector<std::string> written;
        collect_paths(targets, written);
        for (const std::string& target : written) {
          if (auto at = from_root(from, target)) mapped.push_back(*at);
        }
        mapping.paths.emplace_back(pattern, std::move(mapped));
      }
    }
    // What it extends: a relative path (a package's configuration is outside the tree).
    std::string extends;
    if (auto it = json.find("extends"); it != json.end()) {
      if (it->is_string()) extends = it->get<std::string>();
      if (it->is_array() && !it->empty() && it->front().is_string())
        extends = it->front().get<std::string>();
    }
    if (!extends.starts_with("./") && !extends.starts_with("../")) break;
    if (!extends.ends_with(".json")) extends += ".json";
    const auto next = from_root(directory, extends);
    if (!next) break;
    current = *next;
    current_text = read(current);
  }
  return mapping;
}

ScriptConfig read_script_config(const std::filesystem::path& root,
                                const std::vector<std::string>& paths,
                                std::uintmax_t max_file_size) {
  ScriptConfig config;
  const auto read = [&](const std::string& path) -> std::optional<std::string> {
    SourceText source = read_source(root / path, max_file_size);
    if (!source.text) config.warnings.push_back(path + ": not read (" + source.problem + ")");
    return std::move(source.text);
  };
  const auto named = [](const std::string& path, std::string_view name) {
    return path == name || (path.ends_with(name) && path[path.size() - name.size() - 1] == '/');
  };
  for (const std::string& path : paths) {
    if (named(path, "package.json")) {
      if (const auto text = read(path))
        config.packages.push_back(read_package(path, *text, config.warnings));
    } else if (named(path, "tsconfig.json") || named(path, "jsconfig.json")) {
      if (const auto text = read(path))
        config.mappings.push_back(read_tsconfig(path, *text, read, config.warnings));
    }
  }
  return config;
}

}  // namespace quarry::indexer
