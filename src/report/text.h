// The building blocks of rendering: JSON documents, strings made safe for a terminal,
// aligned tables and counted nouns.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::report {

using Json = nlohmann::ordered_json;

// Writes `document` as one JSON document and a newline. A string that is not valid UTF-8
// is written with U+FFFD in place of each invalid byte, since JSON cannot carry it.
void print_json(std::ostream& out, const Json& document);

// `path:line`, the form editors and terminals jump to, made printable.
std::string location(std::string_view path, std::int64_t line);

// The length of the well-formed UTF-8 sequence that starts at `text[i]` (1 for ASCII), or
// 0 when the byte there starts none (a stray byte, an overlong form, a surrogate, past
// U+10FFFF, or cut off by the end). Requires i < text.size().
std::size_t utf8_length(std::string_view text, std::size_t i);

// `text` safe to print on a terminal: control characters (C0, DEL, C1) and bytes that are
// not UTF-8 become `\xNN`, bidirectional controls `\u{NNNN}`, so that a file name or
// an index string can neither drive the terminal nor reorder what is shown. Every other
// character is unchanged. Text output passes every string from the index or the user
// through this; JSON output is exact instead.
std::string printable(std::string_view text);

// `text` in bold (or dim) when `colour` is set, else unchanged.
std::string bold(std::string_view text, bool colour);
std::string dim(std::string_view text, bool colour);

// Columns aligned under a header; the last column is not padded. Cells are made printable.
class Table {
 public:
  explicit Table(std::vector<std::string> header);
  void add(std::vector<std::string> row);
  bool empty() const { return rows_.empty(); }
  // Prints the header and the rows, each line indented by `indent` spaces.
  void print(std::ostream& out, bool colour, std::size_t indent = 2) const;

 private:
  std::vector<std::string> header_;
  std::vector<std::vector<std::string>> rows_;
};

// "1 caller" / "2 callers".
std::string count_of(std::int64_t count, std::string_view singular, std::string_view plural);

// A JSON null for an absent value.
Json optional_json(const std::optional<std::int64_t>& value);

// `names` one after another with `separator` between them.
std::string joined(const std::vector<std::string>& names, std::string_view separator);

}  // namespace quarry::report
