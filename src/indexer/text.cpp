#include "indexer/text.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

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

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\f';
}

// The encoding that `line` declares, or "" when it declares none: a comment that holds
// `coding:` or `coding=`, then a name of letters, digits and `-_.`.
std::string_view declared_in(std::string_view line) {
  std::size_t i = 0;
  while (i < line.size() && is_blank(line[i]))
    ++i;
  if (i == line.size() || line[i] != '#') return {};
  for (std::size_t at = line.find("coding", i); at != std::string_view::npos;
       at = line.find("coding", at + 1)) {
    std::size_t start = at + 6;
    if (start >= line.size() || (line[start] != ':' && line[start] != '=')) continue;
    ++start;
    while (start < line.size() && is_blank(line[start]))
      ++start;
    std::size_t end = start;
    while (end < line.size() &&
           ((line[end] >= 'a' && line[end] <= 'z') || (line[end] >= 'A' && line[end] <= 'Z') ||
            (line[end] >= '0' && line[end] <= '9') || line[end] == '-' || line[end] == '_' ||
            line[end] == '.')) {
      ++end;
    }
    if (end > start) return line.substr(start, end - start);
  }
  return {};
}

// The encoding declared on the first line, or on the second below a blank or comment line.
std::string_view declared_encoding(std::string_view text) {
  const std::size_t first_end = std::min(text.find('\n'), text.size());
  const std::string_view first = text.substr(0, first_end);
  if (const std::string_view name = declared_in(first); !name.empty()) return name;
  const std::size_t code = first.find_first_not_of(" \t\f\r");
  if (first_end == text.size() || (code != std::string_view::npos && first[code] != '#')) return {};
  const std::string_view rest = text.substr(first_end + 1);
  return declared_in(rest.substr(0, rest.find('\n')));
}

// `name` in lower case with '_' for '-'.
std::string folded(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c == '_') c = '-';
  }
  return out;
}

bool is_utf8_name(std::string_view name) {
  const std::string fold = folded(name);
  return fold == "utf-8" || fold == "utf8" || fold == "u8" || fold.starts_with("utf-8-");
}

// A converter from `name` to UTF-8, trying the spellings that Python accepts and iconv
// spells otherwise ("latin-1", "euc_jp", "iso_8859_15"); (iconv_t)-1 when none is known.
iconv_t open_converter(std::string_view name) {
  const std::string fold = folded(name);
  std::vector<std::string> spellings{std::string(name), fold};
  for (std::string_view latin1 : {"latin-1", "iso-8859-1", "iso-latin-1"}) {
    if (fold == latin1 || fold.starts_with(std::string(latin1) + "-"))
      spellings.push_back("LATIN1");
  }
  std::string joined = fold;
  std::erase(joined, '-');
  spellings.push_back(joined);
  for (const std::string& spelling : spellings) {
    const iconv_t converter = iconv_open("UTF-8", spelling.c_str());
    if (converter != reinterpret_cast<iconv_t>(-1)) return converter;
  }
  return reinterpret_cast<iconv_t>(-1);
}

// Converts `in` with `converter`, each byte that does not convert made U+FFFD; counts them
// in `failed`.
std::string convert(iconv_t converter, std::string_view in, std::size_t& failed) {
  std::string out(in.size() + in.size() / 2 + 16, '\0');
  char* from = const_cast<char*>(in.data());
  std::size_t from_left = in.size();
  std::size_t used = 0;
  failed = 0;
  // The last round, with no input, writes what a stateful encoding still holds.
  for (bool flushed = false; !flushed;) {
    if (out.size() - used < 16) out.resize(out.size() * 2);
    char* to = out.data() + used;
    std::size_t to_left = out.size() - used;
    const bool flushing = from_left == 0;
    const std::size_t done = flushing ? iconv(converter, nullptr, nullptr, &to, &to_left)
                                      : iconv(converter, &from, &from_left, &to, &to_left);
    used = static_cast<std::size_t>(to - out.data());
    if (done != static_cast<std::size_t>(-1)) {
      flushed = flushing;
    } else if (errno == E2BIG) {
      out.resize(out.size() * 2);
    } else if (!flushing) {  // EILSEQ, or EINVAL for a sequence cut off by the end
      out.replace(used, REPLACEMENT.size(), REPLACEMENT);
      used += REPLACEMENT.size();
      ++from;
      --from_left;
      ++failed;
      iconv(converter, nullptr, nullptr, nullptr, nullptr);
    } else {
      flushed = true;
    }
  }
  out.resize(used);
  return out;
}

}  // namespace

DecodedSource decode_python_source(std::string bytes) {
  constexpr std::string_view BOM = "\xEF\xBB\xBF";
  const bool bom = bytes.starts_with(BOM);
  if (bom) bytes.erase(0, BOM.size());
  const std::string name(declared_encoding(bytes));
  if (name.empty() || is_utf8_name(name)) return {std::move(bytes), {}};
  const std::string quoted = "encoding \"" + name + "\"";
  if (bom) {
    return {valid_utf8(bytes),
            "a UTF-8 byte order mark, but " + quoted + " declared; read as UTF-8"};
  }
  const iconv_t converter = open_converter(name);
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    return {valid_utf8(bytes), "unknown " + quoted + "; read as UTF-8, indexed what could be read"};
  }
  struct Closer {
    iconv_t converter;
    ~Closer() { iconv_close(converter); }
  } closer{converter};
  // Python reads only encodings in which ASCII stands for itself, and so do line numbers.
  constexpr std::string_view ASCII =
      "\t\n\f\r !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
      "abcdefghijklmnopqrstuvwxyz{|}~";
  std::size_t failed = 0;
  if (convert(converter, ASCII, failed) != ASCII) {
    return {valid_utf8(bytes), quoted +
                                   " is not ASCII-compatible; read as UTF-8, indexed what "
                                   "could be read"};
  }
  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  std::string text = convert(converter, bytes, failed);
  if (failed == 0) return {std::move(text), {}};
  return {std::move(text), "not valid " + name + " (" + std::to_string(failed) +
                               (failed == 1 ? " byte" : " bytes") +
                               " could not be decoded); indexed what could be read"};
}

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

bool is_python_identifier(std::string_view name) {
  if (name.empty() || (name.front() >= '0' && name.front() <= '9')) return false;
  return std::all_of(name.begin(), name.end(), [](char c) {
    const auto u = static_cast<unsigned char>(c);
    return u == '_' || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') ||
           u >= 0x80;
  });
}

}  // namespace quarry::indexer
