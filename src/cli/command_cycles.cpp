// quarry cycles [--level component|file]
#include "cli/command.h"

namespace quarry::cli {

void add_cycles_command(CLI::App& app, Context& context) {
  auto level = std::make_shared<std::string>("component");
  CLI::App* command = app.add_subcommand(
      "cycles", "List the dependency cycles between components or between files");
  command
      ->add_option("--level", *level,
                   "component: cycles between components; file: cycles between files")
      ->capture_default_str();
  command->callback([&context, level] {
    context.action = [&context, level] {
      if (*level != "component" && *level != "file") {
        throw UsageError("--level takes component or file, not '" + *level + "'");
      }
      const DependencyGraph graph = context.open_repository()->dependency_graph(*level);
      context.render(report::make_cycles_report(graph, *level));
    };
  });
}

}  // namespace quarry::cli
