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

// Whether `name` is a Python identifier: letters, digits and "_", not starting with a digit;
// any non-ASCII byte counts as a letter.
bool is_python_identifier(std::string_view name);

// The text of a Python source file, and what stood in the way of reading it.
struct DecodedSource {
  std::string text;
  std::string problem;  // empty when the file was read as it declares
  bool operator==(const DecodedSource&) const = default;
};

// The bytes of a Python source file as UTF-8, decoded from the encoding that a comment on
// its first or second line declares (`# -*- coding: latin-1 -*-`; the second line counts
// only below a line that is blank or a comment), with iconv. A UTF-8 byte order mark is
// dropped. Lines keep their numbers. Without a declaration, or with UTF-8 declared, the
// bytes are kept as they are, well-formed or not. An encoding that iconv does not know, or
// that is not ASCII-compatible, is named in `problem` and the bytes are read as UTF-8, each
// ill-formed sequence made U+FFFD; bytes that the declared encoding cannot decode are each
// made U+FFFD, the rest decoded, and `problem` says so.
DecodedSource decode_python_source(std::string bytes);

}  // namespace quarry::indexer
