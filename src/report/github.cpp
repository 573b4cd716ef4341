// GitHub workflow annotations of dead code and cycles: one `::warning` or `::notice`
// command per finding, which a workflow run shows beside the file and line.
#include <algorithm>
#include <ostream>

#include "report/findings.h"
#include "report/text.h"

namespace quarry::report::detail {

namespace {

// `text` as the data of a workflow command, or with `property` as a property value:
// '%', CR and LF (and in a property ':' and ',') are percent-encoded as the runner
// decodes them; other control characters and bytes that are not UTF-8 are shown as
// printable() shows them, so that a name can neither drive the log's terminal nor end the
// command early.
std::string escaped(std::string_view text, bool property) {
  std::string out;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find_first_of("\r\n", start), text.size());
    for (const char c : printable(text.substr(start, end - start))) {
      if (c == '%') {
        out += "%25";
      } else if (property && c == ':') {
        out += "%3A";
      } else if (property && c == ',') {
        out += "%2C";
      } else {
        out += c;
      }
    }
    if (end == text.size()) break;
    out += text[end] == '\r' ? "%0D" : "%0A";
    start = end + 1;
  }
  return out;
}

// One command; `file` empty for none, `line` 0 for none.
void annotate(std::ostream& out, const Rule& rule, std::string_view file, std::int64_t line,
              std::string_view text) {
  out << "::" << (rule.level == "warning" ? "warning" : "notice") << ' ';
  if (!file.empty()) {
    out << "file=" << escaped(file, true) << ',';
    if (line > 0) out << "line=" << line << ',';
  }
  out << "title=" << escaped(rule.short_description, true) << "::" << escaped(text, false) << '\n';
}

}  // namespace

void render_github(const RenderContext& context, const DeadCodeReport& report) {
  for (const UnusedSymbol& symbol : report.page.symbols) {
    annotate(*context.out, rule_of(symbol), context.path(symbol.file),
             std::max<std::int64_t>(symbol.line, 1), message(symbol));
  }
}

void render_github(const RenderContext& context, const CyclesReport& report) {
  for (const CycleFinding& finding : report.cycles) {
    const CycleComponent& cycle = finding.cycle;
    // A component is no file: its annotation belongs to the whole run.
    const std::string file = report.level == "file" ? context.path(cycle.nodes.front()) : "";
    annotate(*context.out, rule_of_cycle(report.level), file, 0, message(cycle, report.level));
  }
}

}  // namespace quarry::report::detail
