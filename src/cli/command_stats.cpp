// quarry stats
#include "cli/command.h"

namespace quarry::cli {

void add_stats_command(CLI::App& app, Context& context) {
  CLI::App* command = app.add_subcommand("stats", "Show the size of the index");
  command->callback([&context] {
    context.action = [&context] {
      context.render(report::StatsReport{context.open_repository()->get_stats()});
    };
  });
}

}  // namespace quarry::cli
