// quarry cycles [--level component|file] [--format text|dot]
#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>

#include "cli/command.h"
#include "cli/output.h"

namespace quarry::cli {

namespace {

struct CyclesArgs {
  std::string level = "component";
  std::string format = "text";
};

Json to_json(const std::vector<CycleComponent>& cycles) {
  Json list = Json::array();
  for (const CycleComponent& c : cycles)
    list.push_back(Json{{"nodes", c.nodes}, {"type", c.type}, {"cycle", c.cycle}});
  return list;
}

std::string joined(const std::vector<std::string>& names, std::string_view separator) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += separator;
    text += names[i];
  }
  return text;
}

// "component"/"components" or "file"/"files".
std::string nodes_of(std::int64_t count, const std::string& level) {
  return count_of(count, level, level + "s");
}

std::string summary(const std::vector<CycleComponent>& cycles, const std::string& level) {
  if (cycles.empty()) return "no cycles between " + level + "s";
  std::int64_t members = 0;
  for (const CycleComponent& c : cycles)
    members += static_cast<std::int64_t>(c.nodes.size());
  return count_of(static_cast<std::int64_t>(cycles.size()), "cycle", "cycles") + " between " +
         level + "s (" + nodes_of(members, level) + " in all)";
}

void print_text(std::ostream& out, bool colour, const std::vector<CycleComponent>& cycles,
                const std::string& level) {
  for (std::size_t i = 0; i < cycles.size(); ++i) {
    const CycleComponent& c = cycles[i];
    out << bold("cycle " + std::to_string(i + 1) + ": " +
                    nodes_of(static_cast<std::int64_t>(c.nodes.size()), level),
                colour)
        << '\n';
    for (const std::string& node : c.nodes)
      out << "  " << printable(node) << '\n';
    out << "  " << dim("shortest:", colour) << ' ' << printable(joined(c.cycle, " -> ")) << "\n\n";
  }
  out << summary(cycles, level) << '\n';
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
void print_dot(std::ostream& out, const DependencyGraph& graph,
               const std::vector<CycleComponent>& cycles, const std::string& level) {
  out << "digraph cycles {\n"
      << "  label=\"" << dot_text(summary(cycles, level)) << "\";\n"
      << "  labelloc=t;\n"
      << "  node [shape=box];\n"
      << "  edge [color=gray40];\n";
  std::size_t next_id = 0;
  for (std::size_t i = 0; i < cycles.size(); ++i) {
    const CycleComponent& c = cycles[i];
    std::map<std::string, std::string, std::less<>> ids;  // member name -> DOT node name
    out << "  subgraph cluster_" << i + 1 << " {\n"
        << "    label=\"cycle " << i + 1 << ": "
        << nodes_of(static_cast<std::int64_t>(c.nodes.size()), level) << "\";\n";
    for (const std::string& node : c.nodes) {
      const std::string id = "n" + std::to_string(++next_id);
      ids.emplace(node, id);
      out << "    " << id << " [label=\"" << dot_text(node) << "\"];\n";
    }
    std::set<std::pair<std::string, std::string>> highlighted;
    for (std::size_t k = 0; k + 1 < c.cycle.size(); ++k)
      highlighted.emplace(c.cycle[k], c.cycle[k + 1]);
    for (const std::string& source : c.nodes) {
      const auto node = graph.find(source);
      if (!node) continue;
      std::vector<std::string> targets;
      for (const DependencyGraph::Node successor : graph.successors(*node)) {
        if (ids.contains(graph.name(successor))) targets.emplace_back(graph.name(successor));
      }
      std::sort(targets.begin(), targets.end());
      for (const std::string& target : targets) {
        out << "    " << ids.at(source) << " -> " << ids.at(target);
        if (highlighted.contains({source, target})) out << " [color=red, penwidth=2]";
        out << ";\n";
      }
    }
    out << "  }\n";
  }
  out << "}\n";
}

}  // namespace

void add_cycles_command(CLI::App& app, Context& context) {
  auto args = std::make_shared<CyclesArgs>();
  CLI::App* command = app.add_subcommand(
      "cycles", "List the dependency cycles between components or between files");
  command
      ->add_option("--level", args->level,
                   "component: cycles between components; file: cycles between files")
      ->capture_default_str();
  command
      ->add_option("--format", args->format,
                   "text, or dot: a Graphviz digraph of every cycle (not with --json)")
      ->capture_default_str();
  command->callback([&context, args] {
    context.action = [&context, args] {
      if (args->level != "component" && args->level != "file") {
        throw UsageError("--level takes component or file, not '" + args->level + "'");
      }
      if (args->format != "text" && args->format != "dot") {
        throw UsageError("--format takes text or dot, not '" + args->format + "'");
      }
      if (args->format == "dot" && context.json) {
        throw UsageError("--format dot cannot be combined with --json");
      }
      auto repo = context.open_repository();
      if (args->format == "dot") {
        const DependencyGraph graph = repo->dependency_graph(args->level);
        print_dot(*context.out, graph, condense_cycles(graph, args->level), args->level);
        return;
      }
      const auto cycles = repo->find_circular_dependencies(args->level);
      if (context.json) {
        print_json(*context.out, to_json(cycles));
      } else {
        print_text(*context.out, context.colour, cycles, args->level);
      }
    };
  });
}

}  // namespace quarry::cli
