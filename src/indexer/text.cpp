#include "indexer/text.h"

#include <cstdint>

namespace quarry::indexer {

namespace {

// The length of the well-formed UTF-8 sequence at `i`, or 0 when there is none.
std::size_t sequence_length(std::string_view text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<std::uint8_t>(text[k]); };
  const std::uint8_t lead = byte(i);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  std::uint8_t low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  if (byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
  }
  return length;
}

}  // namespace

bool is_valid_utf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = sequence_length(text, i);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

std::string valid_utf8(std::string_view text) {
  if (is_valid_utf8(text)) return std::string(text);
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = sequence_length(text, i);
    if (length == 0) {
      out += "\xEF\xBF\xBD";
      ++i;
    } else {
      out.append(text.substr(i, length));
      i += length;
    }
  }
  return out;
}

std::string collapse_whitespace(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  bool blank = false;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
      blank = !out.empty();
      continue;
    }
    if (blank) out += ' ';
    blank = false;
    out += c;
  }
  return out;
}

}  // namespace quarry::indexer
