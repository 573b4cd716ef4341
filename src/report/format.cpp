#include <algorithm>
#include <array>
#include <stdexcept>

#include "report/findings.h"
#include "report/report.h"
#include "report/text.h"

namespace quarry::report {

namespace {

constexpr std::array FORMATS{Format::text, Format::json, Format::sarif, Format::github,
                             Format::dot};
constexpr std::array<std::string_view, FORMATS.size()> NAMES{"text", "json", "sarif", "github",
                                                             "dot"};

constexpr std::array PLAIN{Format::text, Format::json};
constexpr std::array DEAD_CODE{Format::text, Format::json, Format::sarif, Format::github};
constexpr std::array CYCLES{Format::text, Format::json, Format::sarif, Format::github, Format::dot};

}  // namespace

std::string_view to_string(Format format) {
  return NAMES.at(static_cast<std::size_t>(format));
}

std::optional<Format> parse_format(std::string_view name) {
  for (std::size_t i = 0; i < NAMES.size(); ++i) {
    if (NAMES[i] == name) return FORMATS[i];
  }
  return std::nullopt;
}

std::span<const Format> all_formats() {
  return FORMATS;
}

std::span<const Format> formats_of(std::string_view command) {
  if (command == "dead-code") return DEAD_CODE;
  if (command == "cycles") return CYCLES;
  return PLAIN;
}

std::string RenderContext::path(std::string_view index_path) const {
  return display_path ? display_path(index_path) : std::string(index_path);
}

std::string finding_id(const UnusedSymbol& symbol) {
  return symbol.fqn;
}

std::string finding_id(const CycleComponent& cycle) {
  // The members are sorted already; sorting again keeps the identity whoever built it.
  std::vector<std::string> members = cycle.nodes;
  std::sort(members.begin(), members.end());
  return joined(members, ", ");
}

namespace detail {

void unsupported(Format format, std::string_view what) {
  throw std::logic_error("no " + std::string(to_string(format)) + " output for " +
                         std::string(what));
}

}  // namespace detail

}  // namespace quarry::report
