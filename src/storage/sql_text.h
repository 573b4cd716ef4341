// Small helpers for building statement texts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "storage/database.h"

namespace quarry {

// The most values one statement binds for a list of ids or paths.
inline constexpr std::size_t MAX_BOUND_VALUES = 900;

// `count` placeholders joined by "," with no spaces: "?,?,?". Empty for 0.
std::string placeholders(std::size_t count);

// Replaces every "{name}" in `text` by `value`; the rest of the text is unchanged.
std::string fill_placeholder(std::string_view text, std::string_view name, std::string_view value);

// Appends `text` to `out` as a JSON string: between double quotes, with quotes and
// backslashes escaped and control characters (below 0x20) written as \u00XX. Every other
// byte, UTF-8 included, is written unchanged.
void append_json_string(std::string& out, std::string_view text);

// `values` (strings) as one JSON array text, ["a","b"], in their order, for binding
// to a json_each(?) placeholder so that the statement text does not depend on the count.
template <typename Strings>
std::string json_string_array(const Strings& values) {
  std::string out = "[";
  bool first = true;
  for (std::string_view value : values) {
    if (!first) out += ',';
    first = false;
    append_json_string(out, value);
  }
  out += ']';
  return out;
}

// Appends each of `values` (strings) to `params` as a text value, in order: the lists
// that the system binds as one placeholder per entry.
template <typename Strings>
void append_texts(std::vector<Value>& params, const Strings& values) {
  for (std::string_view value : values)
    params.emplace_back(std::string(value));
}

// Calls `visit` with consecutive chunks of at most `size` items of `items`, in order.
// An empty `items` gives no call.
template <typename T, typename Visit>
void for_each_chunk(const std::vector<T>& items, Visit&& visit,
                    std::size_t size = MAX_BOUND_VALUES) {
  for (std::size_t start = 0; start < items.size(); start += size) {
    const std::size_t length = std::min(size, items.size() - start);
    visit(std::span<const T>(items.data() + start, length));
  }
}

}  // namespace quarry
