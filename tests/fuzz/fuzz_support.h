// What the fuzz loops share: seeded choices, byte mutations and the loop itself.
#pragma once

#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>

#include "cli/output.h"  // printable, utf8_length; string, string_view, vector

namespace quarry::fuzz {

// Choices drawn from a generator seeded by (seed, iteration): any iteration can be run
// again on its own, whatever ran before it.
struct Chooser {
  Chooser(std::uint64_t seed, std::uint64_t iteration) : rng(seed << 32 ^ iteration) {}
  // A number in [0, n); 0 when n is 0.
  std::size_t below(std::size_t n) { return n == 0 ? 0 : rng() % n; }
  bool one_in(std::size_t n) { return below(n) == 0; }
  const std::string& pick(const std::vector<std::string>& v) { return v[below(v.size())]; }
  std::mt19937_64 rng;
};

// One random edit of `text`: a bit flipped, a byte set, a token inserted, a range deleted
// or repeated, or the rest replaced with the end of `other`.
inline void mutate(Chooser& choose, std::string& text, const std::vector<std::string>& tokens,
                   std::string_view other) {
  const std::size_t at = choose.below(text.size() + 1);
  const std::size_t span = 1 + choose.below(choose.one_in(8) ? 256 : 16);
  const char byte = at < text.size() ? text[at] : 0;
  const std::string pieces[] = {std::string{char(byte ^ (1 << choose.below(8)))},
                                std::string{char(choose.below(256))},
                                choose.pick(tokens),
                                "",
                                text.substr(choose.below(text.size() + 1), span),
                                std::string(other.substr(choose.below(other.size() + 1)))};
  const std::size_t replaced[] = {1, 1, 0, span, 0, std::string::npos};
  const std::size_t kind = choose.below(6);
  text.replace(at, replaced[kind], pieces[kind]);
}

inline std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces(1);
  for (const char c : text)
    c == separator ? pieces.emplace_back() : pieces.back() += c;
  return pieces;
}

// Whether `word` is one of the space-separated `words`.
inline bool listed(std::string_view words, std::string_view word) {
  return (' ' + std::string(words) + ' ').find(' ' + std::string(word) + ' ') != std::string::npos;
}

// `text` quoted and made printable, for reports.
inline std::string show(std::string_view text) {
  return '"' + cli::printable(text) + '"';
}

// Runs iterations FIRST .. FIRST + ITERATIONS - 1 of `iteration`, which returns what it
// found wrong; the command line is [ITERATIONS [SEED [FIRST]]]. Stops after ten failed
// iterations, each reported with the command that runs it alone. Returns 1 on a failure.
inline int loop(int argc, char** argv, std::string_view name, std::uint64_t iterations,
                const std::function<std::vector<std::string>(Chooser&)>& iteration) {
  const auto arg = [&](int i, std::uint64_t or_else) {
    return argc > i ? std::strtoull(argv[i], nullptr, 10) : or_else;
  };
  const std::uint64_t count = arg(1, iterations), seed = arg(2, 1), first = arg(3, 0);
  int failures = 0;
  for (std::uint64_t i = first; i < first + count && failures < 10; ++i) {
    Chooser choose(seed, i);
    const std::vector<std::string> problems = iteration(choose);
    if (problems.empty()) continue;
    ++failures;
    std::cerr << name << ": iteration " << i << " failed; rerun: " << name << " 1 " << seed << ' '
              << i << '\n';
    for (std::size_t p = 0; p < problems.size() && p < 10; ++p)
      std::cerr << "  " << problems[p] << '\n';
  }
  std::cout << name << ": " << failures << " of " << count << " iterations failed\n";
  return failures == 0 ? 0 : 1;
}

}  // namespace quarry::fuzz
