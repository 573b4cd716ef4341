// quarry baseline [--output FILE]
#include <limits>
#include <ostream>

#include "cli/command.h"
#include "cli/gate.h"
#include "cli/output.h"
#include "storage/index_meta.h"

namespace quarry::cli {

void add_baseline_command(CLI::App& app, Context& context) {
  auto output = std::make_shared<std::string>();
  auto runtime_members = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand(
      "baseline", "Write today's dead code and cycles to the baseline file, to be committed");
  command
      ->add_option("--output", *output,
                   "The baseline file (default: the configured baseline, else "
                   ".quarry/baseline.json beside the index)")
      ->type_name("FILE");
  command
      ->add_option("--runtime-member", *runtime_members,
                   "As for dead-code: such methods are never listed (repeatable)")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command->callback([&context, output, runtime_members] {
    context.action = [&context, output, runtime_members] {
      const Config config = context.configuration();
      auto repo = context.open_repository();
      DeadCodeOptions options = dead_code_options(config, *runtime_members);
      options.limit = std::numeric_limits<std::int64_t>::max();
      // What the ignores hide is never a finding; it has no place in the baseline either.
      auto symbols = report::filter_dead_code(repo->get_dead_code(options).symbols, nullptr,
                                              ignored_names(config))
                         .kept;
      std::vector<CycleComponent> cycles = repo->find_circular_dependencies("component");
      for (CycleComponent& cycle : repo->find_circular_dependencies("file"))
        cycles.push_back(std::move(cycle));

      std::filesystem::path file = *output;
      if (file.empty()) file = config.baseline_path().value_or(std::filesystem::path());
      if (file.empty()) {
        file = std::filesystem::path(context.db_path).parent_path() / "baseline.json";
      }
      const report::Baseline baseline = report::make_baseline(symbols, cycles);
      report::write_baseline(file, baseline);
      if (context.json) {
        print_json(*context.out, Json{{"file", file.string()},
                                      {"dead_code", baseline.dead_code.size()},
                                      {"cycles", baseline.cycles.size()}});
        return;
      }
      *context.out << "wrote "
                   << count_of(static_cast<std::int64_t>(baseline.dead_code.size()),
                               "dead-code finding", "dead-code findings")
                   << " and "
                   << count_of(static_cast<std::int64_t>(baseline.cycles.size()), "cycle", "cycles")
                   << " to " << printable(file.string()) << '\n';
    };
  });
}

}  // namespace quarry::cli
