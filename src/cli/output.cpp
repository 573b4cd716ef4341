#include "cli/output.h"

#include <algorithm>
#include <ostream>

namespace quarry::cli {

namespace {

// Display width of UTF-8 text: one column per code point, which holds for paths and names.
std::size_t width(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

void print_json(std::ostream& out, const Json& document) {
  // Invalid UTF-8 in the index is replaced rather than aborting the output.
  out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::string location(std::string_view path, std::int64_t line) {
  return std::string(path) + ":" + std::to_string(line);
}

std::string bold(std::string_view text, bool colour) {
  return colour ? "\x1b[1m" + std::string(text) + "\x1b[0m" : std::string(text);
}

std::string dim(std::string_view text, bool colour) {
  return colour ? "\x1b[2m" + std::string(text) + "\x1b[0m" : std::string(text);
}

Table::Table(std::vector<std::string> header) : header_(std::move(header)) {}

void Table::add(std::vector<std::string> row) {
  row.resize(header_.size());
  rows_.push_back(std::move(row));
}

void Table::print(std::ostream& out, bool colour, std::size_t indent) const {
  std::vector<std::size_t> widths(header_.size());
  for (std::size_t i = 0; i < header_.size(); ++i)
    widths[i] = width(header_[i]);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], width(row[i]));
  }
  auto line = [&](const std::vector<std::string>& cells, bool header) {
    std::string text(indent, ' ');
    for (std::size_t i = 0; i < cells.size(); ++i) {
      text += cells[i];
      if (i + 1 < cells.size()) text += std::string(widths[i] - width(cells[i]) + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ')
      text.pop_back();
    out << (header ? bold(text, colour) : text) << '\n';
  };
  line(header_, true);
  for (const auto& row : rows_)
    line(row, false);
}

std::string count_of(std::int64_t count, std::string_view singular, std::string_view plural) {
  return std::to_string(count) + " " + std::string(count == 1 ? singular : plural);
}

Json optional_json(const std::optional<std::int64_t>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace quarry::cli
