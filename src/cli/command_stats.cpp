// quarry stats
#include <ostream>

#include "cli/command.h"
#include "cli/output.h"

namespace quarry::cli {

void add_stats_command(CLI::App& app, Context& context) {
  CLI::App* command = app.add_subcommand("stats", "Show the size of the index");
  command->callback([&context] {
    context.action = [&context] {
      const auto stats = context.open_repository()->get_stats();
      if (context.json) {
        Json document = Json::object();
        for (const auto& [name, count] : stats)
          document[name] = count;
        print_json(*context.out, document);
        return;
      }
      Table table({"TABLE", "ROWS"});
      for (const auto& [name, count] : stats)
        table.add({name, std::to_string(count)});
      table.print(*context.out, context.colour, 0);
    };
  });
}

}  // namespace quarry::cli
