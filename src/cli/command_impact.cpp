// quarry impact FQN [--depth N] [--include-tests]
#include "cli/command.h"

namespace quarry::cli {

namespace {

struct ImpactArgs {
  std::string fqn;
  std::string depth;
  bool include_tests = false;
};

constexpr std::int64_t DEFAULT_DEPTH = 3;

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
      const auto symbol = repo->get_symbol_by_fqn(args->fqn);
      if (!symbol || !symbol->id) throw NotFoundError("no symbol named '" + args->fqn + "'");
      context.render(report::ImpactReport{
          .analysis = repo->analyze_impact(args->fqn, depth, args->include_tests)});
    };
  });
}

}  // namespace quarry::cli
