// Text and JSON output of the command line.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::cli {

using Json = nlohmann::ordered_json;

// Writes `document` as one JSON document and a newline.
void print_json(std::ostream& out, const Json& document);

// `path:line`, the form editors and terminals jump to.
std::string location(std::string_view path, std::int64_t line);

// `text` in bold (or dim) when `colour` is set, else unchanged.
std::string bold(std::string_view text, bool colour);
std::string dim(std::string_view text, bool colour);

// Columns aligned under a header; the last column is not padded.
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

}  // namespace quarry::cli
