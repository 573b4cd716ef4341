// Text helpers of the indexer.
#pragma once

#include <string>
#include <string_view>

namespace quarry::indexer {

// Whether `text` is well-formed UTF-8.
bool is_valid_utf8(std::string_view text);

// `text` with every ill-formed UTF-8 sequence replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

// `text` with every run of white space (newlines included) made one blank, and trimmed.
std::string collapse_whitespace(std::string_view text);

}  // namespace quarry::indexer
