// The reports of callers, impact and stats: text and JSON.
#include <array>
#include <charconv>
#include <map>
#include <ostream>
#include <set>

#include "report/findings.h"
#include "report/report.h"
#include "report/text.h"

namespace quarry::report {

namespace {

Json callers_json(const std::vector<Caller>& callers) {
  Json list = Json::array();
  for (const Caller& c : callers) {
    list.push_back(Json{{"of", c.of},
                        {"id", c.id},
                        {"name", c.name},
                        {"kind", c.kind},
                        {"fqn", c.fqn},
                        {"path", c.path},
                        {"line", c.line},
                        {"resolution", c.resolution},
                        {"total", c.total},
                        {"call_line", optional_json(c.call_line)}});
  }
  return list;
}

void print_callers(const RenderContext& context, const CallersReport& report) {
  std::ostream& out = *context.out;
  const bool colour = context.colour;
  const std::string_view kind = report.guessed ? "guessed" : "proven";
  std::map<std::int64_t, std::vector<const Caller*>> by_symbol;
  for (const Caller& c : report.callers)
    by_symbol[c.of].push_back(&c);

  std::set<std::string> shown;
  for (const AskedSymbol& a : report.asked) {
    // Each symbol once, however often it was asked for (an id out of range by its digits).
    if (!shown.insert(a.id ? std::to_string(*a.id) : a.label).second) continue;
    const auto& found = a.id ? by_symbol[*a.id] : std::vector<const Caller*>{};
    // A symbol that is not in the index is shown by its id alone.
    std::string heading = bold(printable(a.label), colour);
    if (a.found) heading += dim(" #" + std::to_string(*a.id), colour);
    heading += ": ";
    if (found.empty()) {
      out << heading << "no " << kind << " callers\n";
      continue;
    }
    const std::int64_t total = found.front()->total;
    heading += count_of(total, std::string(kind) + " caller", std::string(kind) + " callers");
    if (static_cast<std::int64_t>(found.size()) < total) {
      heading += " (" + std::to_string(found.size()) + " shown)";
    }
    out << heading << '\n';
    Table table({"CALL SITE", "KIND", "CALLER", "RESOLUTION"});
    for (const Caller* c : found) {
      table.add({location(context.path(c->path), c->call_line.value_or(c->line)), c->kind, c->fqn,
                 c->resolution});
    }
    table.print(out, colour);
  }
  out << count_of(static_cast<std::int64_t>(report.callers.size()), "caller", "callers") << " of "
      << count_of(static_cast<std::int64_t>(shown.size()), "symbol", "symbols") << '\n';
}

Json impact_callers_json(const std::vector<CallerInfo>& callers) {
  Json list = Json::array();
  for (const CallerInfo& c : callers) {
    list.push_back(Json{{"id", c.id},
                        {"name", c.name},
                        {"kind", c.kind},
                        {"fqn", c.fqn},
                        {"line", c.line},
                        {"call_line", optional_json(c.call_line)},
                        {"file", c.file},
                        {"depth", c.depth}});
  }
  return list;
}

Json impact_json(const ImpactAnalysis& analysis) {
  // The score is a JSON number; dump() writes a double in its shortest round-trip form.
  return Json{{"fqn", analysis.fqn},
              {"direct_callers", impact_callers_json(analysis.direct_callers)},
              {"transitive_callers", impact_callers_json(analysis.transitive_callers)},
              {"affected_files", analysis.affected_files},
              {"affected_components", analysis.affected_components},
              {"affected_tests", analysis.affected_tests},
              {"impact_score", analysis.impact_score},
              {"depth", analysis.depth}};
}

// The score with its three decimals: 0.307, 0.720, 0.000.
std::string score_text(double score) {
  std::array<char, 32> text{};
  const auto written =
      std::to_chars(text.data(), text.data() + text.size(), score, std::chars_format::fixed, 3);
  return std::string(text.data(), written.ptr);
}

void print_impact_callers(const RenderContext& context, std::string_view title,
                          const std::vector<CallerInfo>& callers, bool with_depth) {
  std::ostream& out = *context.out;
  out << bold(title, context.colour);
  if (callers.empty()) {
    out << ": none\n";
    return;
  }
  out << '\n';
  std::vector<std::string> header{"CALLER", "KIND", "DEFINED AT", "CALL SITE"};
  if (with_depth) header.insert(header.begin(), "DEPTH");
  Table table(header);
  for (const CallerInfo& c : callers) {
    const std::string file = context.path(c.file);
    std::vector<std::string> row{c.fqn, c.kind, location(file, c.line),
                                 c.call_line ? location(file, *c.call_line) : "-"};
    if (with_depth) row.insert(row.begin(), std::to_string(c.depth));
    table.add(std::move(row));
  }
  table.print(out, context.colour);
}

void print_list(std::ostream& out, bool colour, std::string_view title,
                const std::vector<std::string>& items) {
  out << bold(title, colour) << (items.empty() ? ": none\n" : "\n");
  for (const std::string& item : items)
    out << "  " << printable(item) << '\n';
}

void print_impact(const RenderContext& context, const ImpactReport& report) {
  std::ostream& out = *context.out;
  const bool colour = context.colour;
  const ImpactAnalysis& analysis = report.analysis;
  out << bold(printable(analysis.fqn), colour) << ": impact score "
      << score_text(analysis.impact_score)
      << dim(" (callers up to depth " + std::to_string(analysis.depth) + ")", colour) << '\n';
  print_impact_callers(context, "Direct callers", analysis.direct_callers, false);
  print_impact_callers(context, "Transitive callers", analysis.transitive_callers, true);
  std::vector<std::string> files;
  for (const std::string& file : analysis.affected_files)
    files.push_back(context.path(file));
  print_list(out, colour, "Affected files", files);
  print_list(out, colour, "Affected components", analysis.affected_components);
  print_list(out, colour, "Affected tests", analysis.affected_tests);
  const auto size = [](const auto& items) { return static_cast<std::int64_t>(items.size()); };
  out << count_of(size(analysis.direct_callers), "direct caller", "direct callers") << ", "
      << count_of(size(analysis.transitive_callers), "transitive caller", "transitive callers")
      << ", " << count_of(size(analysis.affected_files), "file", "files") << ", "
      << count_of(size(analysis.affected_components), "component", "components") << ", "
      << count_of(size(analysis.affected_tests), "test", "tests") << " affected\n";
}

}  // namespace

void render(const RenderContext& context, Format format, const CallersReport& report) {
  switch (format) {
    case Format::text:
      return print_callers(context, report);
    case Format::json:
      return print_json(*context.out, callers_json(report.callers));
    default:
      detail::unsupported(format, "callers");
  }
}

void render(const RenderContext& context, Format format, const ImpactReport& report) {
  switch (format) {
    case Format::text:
      return print_impact(context, report);
    case Format::json:
      return print_json(*context.out, impact_json(report.analysis));
    default:
      detail::unsupported(format, "impact");
  }
}

void render(const RenderContext& context, Format format, const StatsReport& report) {
  switch (format) {
    case Format::text: {
      Table table({"TABLE", "ROWS"});
      for (const auto& [name, count] : report.stats)
        table.add({name, std::to_string(count)});
      return table.print(*context.out, context.colour, 0);
    }
    case Format::json: {
      Json document = Json::object();
      for (const auto& [name, count] : report.stats)
        document[name] = count;
      return print_json(*context.out, document);
    }
    default:
      detail::unsupported(format, "stats");
  }
}

}  // namespace quarry::report
