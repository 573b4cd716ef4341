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

}  // namespace quarry
