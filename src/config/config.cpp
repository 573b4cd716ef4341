#include "config/config.h"

#include <toml++/toml.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "utils/upward.h"

namespace quarry {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view PYPROJECT = "pyproject.toml";
constexpr std::string_view QUARRY_TOML = "quarry.toml";

// `text` with line breaks and other control characters written as escapes, so that a
// message stays on one line whatever a file holds.
std::string one_line(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      static constexpr char HEX[] = "0123456789abcdef";
      out += "\\x";
      out += HEX[static_cast<unsigned char>(c) >> 4];
      out += HEX[c & 0xf];
    } else {
      out += c;
    }
  }
  return out;
}

// How messages name `file` (absolute): relative to the working directory when under it.
std::string display_name(const fs::path& file) {
  std::error_code ec;
  const fs::path cwd = fs::current_path(ec);
  if (!ec) {
    const fs::path relative = file.lexically_relative(cwd);
    if (!relative.empty() && *relative.begin() != "..") return relative.generic_string();
  }
  return file.string();
}

// Reads and parses the configuration file `file` (absolute), named `name` in messages.
class Reader {
 public:
  explicit Reader(fs::path file) : file_(std::move(file)), name_(display_name(file_)) {}

  // The file's text; throws ConfigError when it cannot be read.
  std::string text() const {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(file_.c_str(), "rb"),
                                                       &std::fclose);
    std::string text;
    if (in) {
      char buffer[65536];
      for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, in.get())) > 0;)
        text.append(buffer, n);
    }
    if (!in || std::ferror(in.get())) {
      const int error = errno;
      throw ConfigError(name_ + ": cannot be read (" + std::strerror(error) + ")");
    }
    return text;
  }

  // Parses `text`; throws ConfigError with the parser's line and description.
  toml::table parse(const std::string& text) const {
    try {
      return toml::parse(text, file_.string());
    } catch (const toml::parse_error& error) {
      throw ConfigError(at(error.source().begin.line) + one_line(error.description()));
    }
  }

  // The prefix of a message about line `line` ("FILE:LINE: ", or "FILE: " when unknown).
  std::string at(std::uint32_t line) const {
    return line == 0 ? name_ + ": " : name_ + ":" + std::to_string(line) + ": ";
  }

  const std::string& name() const { return name_; }

 private:
  fs::path file_;
  std::string name_;
};

// "a string", "an array", ... as a message names the type of a value.
std::string_view type_name(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return "a string";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a float";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::date:
      return "a date";
    case toml::node_type::time:
      return "a time";
    case toml::node_type::date_time:
      return "a date-time";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::table:
      return "a table";
    case toml::node_type::none:
      break;
  }
  return "nothing";
}

std::uint32_t line_of(const toml::node& node) {
  return node.source().begin.line;
}

// Fills `config` from the keys of `table`; `where` follows "unknown key 'K'" in messages.
void read_keys(const Reader& reader, const toml::table& table, std::string_view where,
               Config& config) {
  const std::array<std::pair<std::string_view, std::vector<std::string>*>, 4> lists{{
      {"exclude", &config.exclude},
      {"ignore-names", &config.ignore_names},
      {"runtime-members", &config.runtime_members},
      {"entry-points", &config.entry_points},
  }};
  for (const auto& [key, node] : table) {
    const std::string name = one_line(key.str());
    // The key's own line; a key's source is unknown when it was not written as one.
    const std::uint32_t key_line =
        key.source().begin.line != 0 ? key.source().begin.line : line_of(node);
    const auto list = std::find_if(lists.begin(), lists.end(),
                                   [&](const auto& entry) { return entry.first == key.str(); });
    if (list != lists.end()) {
      const toml::array* array = node.as_array();
      if (array == nullptr) {
        throw ConfigError(reader.at(key_line) + "'" + name + "' takes an array of strings, not " +
                          std::string(type_name(node)));
      }
      std::vector<std::string>& values = *list->second;
      values.clear();
      for (std::size_t i = 0; i < array->size(); ++i) {
        const toml::node& item = *array->get(i);
        const auto* value = item.as_string();
        if (value == nullptr) {
          const std::uint32_t line = line_of(item) != 0 ? line_of(item) : key_line;
          throw ConfigError(reader.at(line) + "'" + name + "' takes an array of strings; item " +
                            std::to_string(i + 1) + " is " + std::string(type_name(item)));
        }
        values.push_back(value->get());
      }
    } else if (key.str() == "baseline" || key.str() == "fail-on") {
      const auto* value = node.as_string();
      if (value == nullptr) {
        throw ConfigError(reader.at(key_line) + "'" + name + "' takes a string, not " +
                          std::string(type_name(node)));
      }
      const std::string& text = value->get();
      if (key.str() == "baseline") {
        config.baseline = text;
      } else if (text == "certain" || text == "likely" || text == "any") {
        config.fail_on = text;
      } else {
        throw ConfigError(reader.at(key_line) + "'fail-on' takes certain, likely or any, not '" +
                          one_line(text) + "'");
      }
    } else {
      throw ConfigError(reader.at(key_line) + "unknown key '" + name + "'" + std::string(where));
    }
  }
}

// The [tool.quarry] node of a parsed pyproject.toml, or null.
const toml::node* tool_quarry(const toml::table& document) {
  const toml::table* tool = document["tool"].as_table();
  return tool == nullptr ? nullptr : tool->get("quarry");
}

fs::path absolute_normal(const fs::path& path) {
  fs::path result = fs::absolute(path).lexically_normal();
  if (!result.has_filename() && result.has_relative_path()) result = result.parent_path();
  return result;
}

}  // namespace

std::optional<fs::path> Config::baseline_path() const {
  if (!baseline) return std::nullopt;
  const fs::path written(*baseline);
  if (written.is_absolute() || directory.empty()) return written;
  return (directory / written).lexically_normal();
}

std::vector<std::string> Config::exclude_below(const fs::path& root) const {
  if (directory.empty()) return exclude;
  const std::string prefix = root.lexically_relative(directory).generic_string();
  if (prefix.empty() || prefix == ".") return exclude;
  std::vector<std::string> globs;
  for (std::string glob : exclude) {
    const std::string_view body =
        std::string_view(glob).substr(0, glob.ends_with('/') ? glob.size() - 1 : glob.size());
    if (body.find('/') == std::string_view::npos || glob.starts_with("**/")) {
      globs.push_back(glob);
      continue;
    }
    if (glob.starts_with("./")) glob.erase(0, 2);
    if (glob.starts_with('/')) glob.erase(0, 1);
    if (glob.starts_with(prefix + "/")) globs.push_back("/" + glob.substr(prefix.size() + 1));
  }
  return globs;
}

Config load_config(const fs::path& path) {
  Config config;
  config.file = absolute_normal(path);
  config.directory = config.file.parent_path();
  const Reader reader(config.file);
  const toml::table document = reader.parse(reader.text());
  if (config.file.filename() != PYPROJECT) {
    read_keys(reader, document, "", config);
    return config;
  }
  const toml::node* section = tool_quarry(document);
  if (section == nullptr) return config;
  const toml::table* table = section->as_table();
  if (table == nullptr) {
    throw ConfigError(reader.at(line_of(*section)) + "'tool.quarry' takes a table, not " +
                      std::string(type_name(*section)));
  }
  read_keys(reader, *table, " in [tool.quarry]", config);
  return config;
}

std::optional<Config> find_config(const fs::path& start) {
  for (const fs::path& dir : directories_upward(start)) {
    std::error_code ec;
    const fs::path pyproject = dir / PYPROJECT;
    if (fs::is_regular_file(pyproject, ec)) {
      const Reader reader(pyproject);
      const std::string text = reader.text();
      bool configures = false;
      try {
        configures = tool_quarry(toml::parse(text, pyproject.string())) != nullptr;
      } catch (const toml::parse_error&) {
        configures = text.find("quarry") != std::string::npos;
      }
      if (configures) return load_config(pyproject);
    }
    const fs::path quarry_toml = dir / QUARRY_TOML;
    if (fs::is_regular_file(quarry_toml, ec)) return load_config(quarry_toml);
  }
  return std::nullopt;
}

}  // namespace quarry
