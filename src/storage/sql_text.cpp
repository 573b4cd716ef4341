#include "storage/sql_text.h"

namespace quarry {

std::string placeholders(std::size_t count) {
  std::string out;
  if (count == 0) return out;
  out.reserve(count * 2 - 1);
  out += '?';
  for (std::size_t i = 1; i < count; ++i)
    out += ",?";
  return out;
}

std::string fill_placeholder(std::string_view text, std::string_view name, std::string_view value) {
  const std::string key = "{" + std::string(name) + "}";
  std::string out;
  std::size_t start = 0;
  for (std::size_t at = text.find(key); at != std::string_view::npos; at = text.find(key, start)) {
    out.append(text.substr(start, at - start));
    out.append(value);
    start = at + key.size();
  }
  out.append(text.substr(start));
  return out;
}

void append_json_string(std::string& out, std::string_view text) {
  static constexpr char HEX[] = "0123456789abcdef";
  out += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (byte < 0x20) {
      out += "\\u00";
      out += HEX[byte >> 4];
      out += HEX[byte & 0x0f];
    } else {
      out += c;
    }
  }
  out += '"';
}

}  // namespace quarry
