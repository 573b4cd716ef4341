// The dead-code report: text and JSON here, SARIF and GitHub annotations with the other
// findings.
#include <ostream>

#include "report/findings.h"
#include "report/report.h"
#include "report/text.h"

namespace quarry::report {

namespace {

Json dead_code_json(const DeadCodePage& page) {
  Json symbols = Json::array();
  for (const UnusedSymbol& s : page.symbols) {
    symbols.push_back(Json{{"fqn", s.fqn},
                           {"name", s.name},
                           {"kind", s.kind},
                           {"file", s.file},
                           {"line", s.line},
                           {"confidence", to_string(s.confidence)},
                           {"reasons", s.reasons},
                           {"used_by_tests", s.used_by_tests}});
  }
  return Json{{"total_count", page.total_count},
              {"truncated", page.truncated},
              {"symbols", std::move(symbols)}};
}

// The candidates of one confidence under a heading; likely ones with their reasons.
void print_group(const RenderContext& context, const DeadCodePage& page,
                 DeadConfidence confidence) {
  const bool likely = confidence == DeadConfidence::likely;
  Table table(likely ? std::vector<std::string>{"LOCATION", "KIND", "SYMBOL", "WHY"}
                     : std::vector<std::string>{"LOCATION", "KIND", "SYMBOL"});
  for (const UnusedSymbol& s : page.symbols) {
    if (s.confidence != confidence) continue;
    std::string why;
    for (const std::string& reason : s.reasons)
      why += (why.empty() ? "" : "; ") + reason;
    // A test's use keeps nothing alive, but tells the reader to delete the test too.
    table.add({location(context.path(s.file), s.line), s.kind,
               s.fqn + (s.used_by_tests ? " (used by tests)" : ""), why});
  }
  if (table.empty()) return;
  *context.out << bold(likely ? "Likely unused" : "Certainly unused", context.colour) << '\n';
  table.print(*context.out, context.colour);
}

void print_text(const RenderContext& context, const DeadCodeReport& report) {
  const DeadCodePage& page = report.page;
  std::ostream& out = *context.out;
  print_group(context, page, DeadConfidence::certain);
  print_group(context, page, DeadConfidence::likely);
  const auto shown = static_cast<std::int64_t>(page.symbols.size());
  out << shown << " of " << count_of(page.total_count, "unused definition", "unused definitions")
      << " shown";
  if (page.truncated) out << "; next page: --offset " << report.offset + shown;
  out << detail::baseline_summary(report.baseline) << '\n';
}

}  // namespace

void render(const RenderContext& context, Format format, const DeadCodeReport& report) {
  switch (format) {
    case Format::text:
      return print_text(context, report);
    case Format::json:
      return print_json(*context.out, dead_code_json(report.page));
    case Format::sarif:
      return detail::render_sarif(context, report);
    case Format::github:
      return detail::render_github(context, report);
    default:
      detail::unsupported(format, "dead-code");
  }
}

}  // namespace quarry::report
