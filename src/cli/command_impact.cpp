// quarry impact FQN [--depth N] [--include-tests]
#include <array>
#include <charconv>
#include <ostream>

#include "cli/command.h"
#include "cli/output.h"

namespace quarry::cli {

namespace {

struct ImpactArgs {
  std::string fqn;
  std::string depth;
  bool include_tests = false;
};

constexpr std::int64_t DEFAULT_DEPTH = 3;

Json to_json(const std::vector<CallerInfo>& callers) {
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

Json to_json(const ImpactAnalysis& analysis) {
  // The score is a JSON number; dump() writes a double in its shortest round-trip form.
  return Json{{"fqn", analysis.fqn},
              {"direct_callers", to_json(analysis.direct_callers)},
              {"transitive_callers", to_json(analysis.transitive_callers)},
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

void print_callers(std::ostream& out, bool colour, std::string_view title,
                   const std::vector<CallerInfo>& callers, bool with_depth) {
  out << bold(title, colour);
  if (callers.empty()) {
    out << ": none\n";
    return;
  }
  out << '\n';
  std::vector<std::string> header{"CALLER", "KIND", "DEFINED AT", "CALL SITE"};
  if (with_depth) header.insert(header.begin(), "DEPTH");
  Table table(header);
  for (const CallerInfo& c : callers) {
    std::vector<std::string> row{c.fqn, c.kind, location(c.file, c.line),
                                 c.call_line ? location(c.file, *c.call_line) : "-"};
    if (with_depth) row.insert(row.begin(), std::to_string(c.depth));
    table.add(std::move(row));
  }
  table.print(out, colour);
}

void print_list(std::ostream& out, bool colour, std::string_view title,
                const std::vector<std::string>& items) {
  out << bold(title, colour) << (items.empty() ? ": none\n" : "\n");
  for (const std::string& item : items)
    out << "  " << printable(item) << '\n';
}

void print_text(std::ostream& out, bool colour, const ImpactAnalysis& analysis, bool found) {
  if (!found) out << "no symbol named '" << printable(analysis.fqn) << "'\n";
  out << bold(printable(analysis.fqn), colour) << ": impact score "
      << score_text(analysis.impact_score)
      << dim(" (callers up to depth " + std::to_string(analysis.depth) + ")", colour) << '\n';
  print_callers(out, colour, "Direct callers", analysis.direct_callers, false);
  print_callers(out, colour, "Transitive callers", analysis.transitive_callers, true);
  print_list(out, colour, "Affected files", analysis.affected_files);
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

void add_impact_command(CLI::App& app, Context& context) {
  auto args = std::make_shared<ImpactArgs>();
  CLI::App* command = app.add_subcommand("impact", "Show what changing a symbol would affect");
  command->add_option("FQN", args->fqn, "The fully qualified name of the symbol")->required();
  const CLI::Option* depth_option = command->add_option(
      "--depth", args->depth, "How many levels of callers to walk (default 3, held to 1..5)");
  command->add_flag("--include-tests", args->include_tests, "Walk and list callers in test files");
  command->callback([&context, args, depth_option] {
    context.action = [&context, args, depth_option] {
      const std::int64_t depth =
          depth_option->count() == 0 ? DEFAULT_DEPTH : parse_integer("--depth", args->depth, false);
      auto repo = context.open_repository();
      const ImpactAnalysis analysis = repo->analyze_impact(args->fqn, depth, args->include_tests);
      if (context.json) {
        print_json(*context.out, to_json(analysis));
        return;
      }
      const auto symbol = repo->get_symbol_by_fqn(args->fqn);
      print_text(*context.out, context.colour, analysis, symbol && symbol->id);
    };
  });
}

}  // namespace quarry::cli
