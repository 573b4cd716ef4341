// quarry cycles [--level component|file] [--baseline FILE] [--fail-on any]
#include "cli/command.h"
#include "cli/gate.h"

namespace quarry::cli {

void add_cycles_command(CLI::App& app, Context& context) {
  auto level = std::make_shared<std::string>("component");
  auto gate = std::make_shared<GateArgs>();
  CLI::App* command = app.add_subcommand(
      "cycles", "List the dependency cycles between components or between files");
  command
      ->add_option("--level", *level,
                   "component: cycles between components; file: cycles between files")
      ->capture_default_str();
  add_gate_options(*command, *gate, "any");
  command->callback([&context, level, gate] {
    context.action = [&context, level, gate] {
      if (*level != "component" && *level != "file") {
        throw UsageError("--level takes component or file, not '" + *level + "'");
      }
      const Config config = context.configuration();
      const std::optional<std::string> fail_on = gate_fail_on(*gate, config, {"any"}, true);
      const DependencyGraph graph = context.open_repository()->dependency_graph(*level);
      report::CyclesReport report = report::make_cycles_report(graph, *level);
      if (const auto baseline = gate_baseline(*gate, config)) {
        auto filtered =
            report::filter_cycles(std::move(report.cycles), *level, &*baseline,
                                  [](const report::CycleFinding& finding) -> const CycleComponent& {
                                    return finding.cycle;
                                  });
        report.cycles = std::move(filtered.kept);
        report.baseline = {.used = true, .hidden = filtered.hidden, .stale = filtered.stale};
      }
      if (fail_on && !report.cycles.empty()) context.status = 3;
      context.render(report);
    };
  });
}

}  // namespace quarry::cli
