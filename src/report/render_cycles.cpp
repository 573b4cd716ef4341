// The cycles report: text, JSON and a Graphviz drawing here, SARIF and GitHub annotations
// with the other findings.
#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>

#include "report/findings.h"
#include "report/report.h"
#include "report/text.h"

namespace quarry::report {

namespace {

Json cycles_json(const std::vector<CycleFinding>& cycles) {
  Json list = Json::array();
  for (const CycleFinding& finding : cycles) {
    const CycleComponent& c = finding.cycle;
    list.push_back(Json{{"nodes", c.nodes}, {"type", c.type}, {"cycle", c.cycle}});
  }
  return list;
}

// "component"/"components" or "file"/"files".
std::string nodes_of(std::int64_t count, const std::string& level) {
  return count_of(count, level, level + "s");
}

std::string summary(const CyclesReport& report) {
  const std::string& level = report.level;
  if (report.cycles.empty()) return "no cycles between " + level + "s";
  std::int64_t members = 0;
  for (const CycleFinding& finding : report.cycles)
    members += static_cast<std::int64_t>(finding.cycle.nodes.size());
  return count_of(static_cast<std::int64_t>(report.cycles.size()), "cycle", "cycles") +
         " between " + level + "s (" + nodes_of(members, level) + " in all)";
}

void print_text(const RenderContext& context, const CyclesReport& report) {
  std::ostream& out = *context.out;
  const bool colour = context.colour;
  // File names are paths, to be shown as the user sees them; component names are not.
  const auto shown = [&](const std::string& node) {
    return printable(report.level == "file" ? context.path(node) : node);
  };
  for (std::size_t i = 0; i < report.cycles.size(); ++i) {
    const CycleComponent& c = report.cycles[i].cycle;
    out << bold("cycle " + std::to_string(i + 1) + ": " +
                    nodes_of(static_cast<std::int64_t>(c.nodes.size()), report.level),
                colour)
        << '\n';
    for (const std::string& node : c.nodes)
      out << "  " << shown(node) << '\n';
    std::string path;
    for (std::size_t k = 0; k < c.cycle.size(); ++k)
      path += (k == 0 ? "" : " -> ") + shown(c.cycle[k]);
    out << "  " << dim("shortest:", colour) << ' ' << path << "\n\n";
  }
  out << summary(report) << detail::baseline_summary(report.baseline) << '\n';
}

// `text` as the inside of a DOT quoted string that Graphviz shows as `text`: quotes and
// backslashes are escaped (a backslash would otherwise start an escape such as \N), and
// control characters and bytes that are not UTF-8 are shown as U+FFFD, since Graphviz
// would otherwise fall back to Latin-1 or write them into its output unchanged.
std::string dot_text(std::string_view text) {
  static constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";
  std::string out;
  out.reserve(text.size() + 2);
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = utf8_length(text, i);
    const auto byte = static_cast<unsigned char>(text[i]);
    if (length == 0 || (length == 1 && (byte < 0x20 || byte == 0x7F))) {
      out += REPLACEMENT;
      ++i;
      continue;
    }
    if (byte == '"' || byte == '\\') out += '\\';
    out.append(text.substr(i, length));
    i += length;
  }
  return out;
}

// One digraph of every cycle: each cycle a cluster of its members, the graph's edges
// between members of the same cycle, the representative cycle's edges in red. Nodes are
// named n1, n2, ... and labelled with their names, so any name is safe.
void print_dot(std::ostream& out, const CyclesReport& report) {
  out << "digraph cycles {\n"
      << "  label=\"" << dot_text(summary(report)) << "\";\n"
      << "  labelloc=t;\n"
      << "  node [shape=box];\n"
      << "  edge [color=gray40];\n";
  std::size_t next_id = 0;
  for (std::size_t i = 0; i < report.cycles.size(); ++i) {
    const CycleComponent& c = report.cycles[i].cycle;
    std::map<std::string, std::string, std::less<>> ids;  // member name -> DOT node name
    out << "  subgraph cluster_" << i + 1 << " {\n"
        << "    label=\"cycle " << i + 1 << ": "
        << nodes_of(static_cast<std::int64_t>(c.nodes.size()), report.level) << "\";\n";
    for (const std::string& node : c.nodes) {
      const std::string id = "n" + std::to_string(++next_id);
      ids.emplace(node, id);
      out << "    " << id << " [label=\"" << dot_text(node) << "\"];\n";
    }
    std::set<std::pair<std::string, std::string>> highlighted;
    for (std::size_t k = 0; k + 1 < c.cycle.size(); ++k)
      highlighted.emplace(c.cycle[k], c.cycle[k + 1]);
    for (const auto& [source, target] : report.cycles[i].edges) {
      out << "    " << ids.at(source) << " -> " << ids.at(target);
      if (highlighted.contains({source, target})) out << " [color=red, penwidth=2]";
      out << ";\n";
    }
    out << "  }\n";
  }
  out << "}\n";
}

}  // namespace

CyclesReport make_cycles_report(const DependencyGraph& graph, const std::string& level) {
  CyclesReport report{.level = level};
  for (CycleComponent& cycle : condense_cycles(graph, level)) {
    const std::set<std::string_view> members(cycle.nodes.begin(), cycle.nodes.end());
    std::vector<std::pair<std::string, std::string>> edges;
    for (const std::string& source : cycle.nodes) {
      const auto node = graph.find(source);
      if (!node) continue;
      for (const DependencyGraph::Node successor : graph.successors(*node)) {
        if (members.contains(graph.name(successor)))
          edges.emplace_back(source, graph.name(successor));
      }
    }
    std::sort(edges.begin(), edges.end());
    report.cycles.push_back({std::move(cycle), std::move(edges)});
  }
  return report;
}

void render(const RenderContext& context, Format format, const CyclesReport& report) {
  switch (format) {
    case Format::text:
      return print_text(context, report);
    case Format::json:
      return print_json(*context.out, cycles_json(report.cycles));
    case Format::dot:
      return print_dot(*context.out, report);
    case Format::sarif:
      return detail::render_sarif(context, report);
    case Format::github:
      return detail::render_github(context, report);
  }
  detail::unsupported(format, "cycles");
}

}  // namespace quarry::report
