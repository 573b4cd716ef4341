// quarry dead-code [--component NAME] [--limit N] [--offset N] [--runtime-member NAME]...
#include "cli/command.h"

namespace quarry::cli {

namespace {

struct DeadCodeArgs {
  std::string component;
  std::string limit;
  std::string offset;
  std::vector<std::string> runtime_members;
};

}  // namespace

void add_dead_code_command(CLI::App& app, Context& context) {
  auto args = std::make_shared<DeadCodeArgs>();
  CLI::App* command =
      app.add_subcommand("dead-code", "List one page of definitions that nothing uses");
  command->add_option("--component", args->component, "Only the definitions of this component")
      ->type_name("NAME");
  const CLI::Option* limit =
      command->add_option("--limit", args->limit, "At most N definitions (default 100)")
          ->type_name("N");
  const CLI::Option* offset =
      command->add_option("--offset", args->offset, "Skip the first N definitions (default 0)")
          ->type_name("N");
  command
      ->add_option("--runtime-member", args->runtime_members,
                   "A method name of the runtime's own values; such methods are never listed "
                   "(repeatable)")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command->callback([&context, args, limit, offset] {
    context.action = [&context, args, limit, offset] {
      DeadCodeOptions options{.runtime_members = args->runtime_members};
      if (!args->component.empty()) options.component = args->component;
      if (limit->count() > 0) options.limit = parse_integer("--limit", args->limit, true);
      if (offset->count() > 0) options.offset = parse_integer("--offset", args->offset, true);
      context.render(report::DeadCodeReport{
          .page = context.open_repository()->get_dead_code(options), .offset = options.offset});
    };
  });
}

}  // namespace quarry::cli
