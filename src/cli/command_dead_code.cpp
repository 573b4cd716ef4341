// quarry dead-code [--component NAME] [--limit N] [--offset N] [--runtime-member NAME]...
//                  [--baseline FILE] [--fail-on certain|likely|any]
#include <algorithm>
#include <limits>

#include "cli/command.h"
#include "cli/gate.h"

namespace quarry::cli {

namespace {

struct DeadCodeArgs {
  std::string component;
  std::string limit;
  std::string offset;
  std::vector<std::string> runtime_members;
  GateArgs gate;
};

constexpr std::int64_t UNLIMITED = std::numeric_limits<std::int64_t>::max();

}  // namespace

void add_dead_code_command(CLI::App& app, Context& context) {
  auto args = std::make_shared<DeadCodeArgs>();
  CLI::App* command =
      app.add_subcommand("dead-code", "List one page of definitions that nothing uses");
  command->add_option("--component", args->component, "Only the definitions of this component")
      ->type_name("NAME");
  const CLI::Option* limit =
      command
          ->add_option("--limit", args->limit,
                       "At most N definitions (default 100; with --format sarif or github, all)")
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
  add_gate_options(*command, args->gate, "certain|likely|any");
  command->callback([&context, args, limit, offset] {
    context.action = [&context, args, limit, offset] {
      const Config config = context.configuration();
      const std::optional<std::string> fail_on =
          gate_fail_on(args->gate, config, {"certain", "likely", "any"});
      DeadCodeOptions options = dead_code_options(config, args->runtime_members);
      const bool everything =
          context.format == report::Format::sarif || context.format == report::Format::github;
      if (everything) options.limit = UNLIMITED;
      if (limit->count() > 0) options.limit = parse_integer("--limit", args->limit, true);
      if (offset->count() > 0) options.offset = parse_integer("--offset", args->offset, true);
      auto repo = context.open_repository();
      if (!args->component.empty()) {
        if (!repo->db().fetchone("SELECT 1 FROM components WHERE name = ?", {args->component})) {
          throw NotFoundError("no component named '" + args->component + "'");
        }
        options.component = args->component;
      }
      const std::optional<report::Baseline> baseline = gate_baseline(args->gate, config);
      const auto ignored = ignored_names(config);
      if (!baseline && !ignored && !fail_on) {
        context.render(
            report::DeadCodeReport{.page = repo->get_dead_code(options), .offset = options.offset});
        return;
      }
      // Ignores, the baseline and the gate look at every finding; the page is cut after.
      const std::int64_t page_limit = options.limit;
      const std::int64_t page_offset = options.offset;
      options.limit = UNLIMITED;
      options.offset = 0;
      auto filtered = report::filter_dead_code(repo->get_dead_code(options).symbols,
                                               baseline ? &*baseline : nullptr, ignored);
      // Entries of other components are not stale because this one lacks them.
      if (options.component) filtered.stale = 0;
      if (fail_on && report::failing_dead_code(filtered.kept, *fail_on) > 0) context.status = 3;
      report::DeadCodeReport report{
          .offset = page_offset,
          .baseline = {
              .used = baseline.has_value(), .hidden = filtered.hidden, .stale = filtered.stale}};
      report.page.total_count = static_cast<std::int64_t>(filtered.kept.size());
      const auto begin =
          std::min<std::size_t>(static_cast<std::size_t>(page_offset), filtered.kept.size());
      const auto end = begin + std::min<std::size_t>(static_cast<std::size_t>(page_limit),
                                                     filtered.kept.size() - begin);
      report.page.symbols.assign(std::make_move_iterator(filtered.kept.begin() + begin),
                                 std::make_move_iterator(filtered.kept.begin() + end));
      report.page.truncated = end < filtered.kept.size();
      context.render(report);
    };
  });
}

}  // namespace quarry::cli
