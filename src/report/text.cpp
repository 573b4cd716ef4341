#include "report/text.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace quarry::report {

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
  return printable(path) + ":" + std::to_string(line);
}

std::size_t utf8_length(std::string_view text, std::size_t i) {
  const auto byte = static_cast<unsigned char>(text[i]);
  if (byte < 0x80) return 1;
  // The lead byte gives the length; reject overlong forms, surrogates and code points
  // past U+10FFFF.
  const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 0;
  if (length == 0 || byte < 0xC2 || byte > 0xF4 || i + length > text.size()) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return 0;
  }
  const auto second = static_cast<unsigned char>(text[i + 1]);
  if ((byte == 0xE0 && second < 0xA0) || (byte == 0xED && second >= 0xA0) ||
      (byte == 0xF0 && second < 0x90) || (byte == 0xF4 && second >= 0x90)) {
    return 0;
  }
  return length;
}

std::string printable(std::string_view text) {
  static constexpr std::string_view HEX = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  auto escape_byte = [&](unsigned char byte) {
    out += "\\x";
    out += HEX[byte >> 4];
    out += HEX[byte & 15];
  };
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = utf8_length(text, i);
    const auto byte = static_cast<unsigned char>(text[i]);
    if (length == 0 || (length == 1 && (byte < 0x20 || byte == 0x7F))) {
      escape_byte(byte);
      ++i;
      continue;
    }
    const std::string_view sequence = text.substr(i, length);
    i += length;
    // C1 controls (U+0080..U+009F) and the bidirectional controls (U+200E, U+200F,
    // U+202A..U+202E, U+2066..U+2069) are shown by their code points.
    unsigned code = 0;
    if (length == 2) code = ((byte & 0x1Fu) << 6) | (sequence[1] & 0x3Fu);
    if (length == 3)
      code = ((byte & 0x0Fu) << 12) | ((sequence[1] & 0x3Fu) << 6) | (sequence[2] & 0x3Fu);
    const bool control = (code >= 0x80 && code <= 0x9F) || code == 0x200E || code == 0x200F ||
                         (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    if (control) {
      char escaped[16];
      std::snprintf(escaped, sizeof escaped, "\\u{%x}", code);
      out += escaped;
      continue;
    }
    out.append(sequence);
  }
  return out;
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
  for (std::string& cell : row)
    cell = printable(cell);
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

std::string joined(const std::vector<std::string>& names, std::string_view separator) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += separator;
    text += names[i];
  }
  return text;
}

}  // namespace quarry::report
