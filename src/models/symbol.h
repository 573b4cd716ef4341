// A definition of the index (a row of `symbols`) and the vocabulary of symbol kinds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarry {

namespace symbol_kind {
inline constexpr std::string_view MODULE = "module";
inline constexpr std::string_view CLASS = "class";
inline constexpr std::string_view FUNCTION = "function";
inline constexpr std::string_view METHOD = "method";
inline constexpr std::string_view CONSTANT = "constant";
inline constexpr std::string_view VARIABLE = "variable";
inline constexpr std::string_view IMPORT = "import";
inline constexpr std::string_view FILE = "file";
inline constexpr std::string_view SECTION = "section";
}  // namespace symbol_kind

// The kind of the symbol that owns a module's top-level code.
inline constexpr std::string_view TOPLEVEL_KIND = "toplevel";

struct Symbol {
  // Absent only for a symbol that a host made up without a row; such a symbol counts as
  // not found wherever symbols are looked up.
  std::optional<std::int64_t> id;
  std::int64_t file_id = 0;
  std::string name;
  std::string kind;
  std::string fqn;
  std::int64_t start_line = 0;
  std::optional<std::string> signature;
  bool is_export = false;

  bool operator==(const Symbol&) const = default;
};

}  // namespace quarry
