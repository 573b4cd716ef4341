// quarry dead-code [--component NAME] [--limit N] [--offset N] [--runtime-member NAME]...
#include <ostream>

#include "cli/command.h"
#include "cli/output.h"

namespace quarry::cli {

namespace {

struct DeadCodeArgs {
  std::string component;
  std::string limit;
  std::string offset;
  std::vector<std::string> runtime_members;
};

Json to_json(const DeadCodePage& page) {
  Json symbols = Json::array();
  for (const UnusedSymbol& s : page.symbols) {
    symbols.push_back(Json{{"fqn", s.fqn},
                           {"name", s.name},
                           {"kind", s.kind},
                           {"file", s.file},
                           {"line", s.line},
                           {"confidence", to_string(s.confidence)},
                           {"reasons", s.reasons},
                           {"used_by_tests", s.used_by_tests}});
  }
  return Json{{"total_count", page.total_count},
              {"truncated", page.truncated},
              {"symbols", std::move(symbols)}};
}

// The candidates of one confidence under a heading; likely ones with their reasons.
void print_group(std::ostream& out, bool colour, const DeadCodePage& page,
                 DeadConfidence confidence) {
  const bool likely = confidence == DeadConfidence::likely;
  Table table(likely ? std::vector<std::string>{"LOCATION", "KIND", "SYMBOL", "WHY"}
                     : std::vector<std::string>{"LOCATION", "KIND", "SYMBOL"});
  for (const UnusedSymbol& s : page.symbols) {
    if (s.confidence != confidence) continue;
    std::string why;
    for (const std::string& reason : s.reasons)
      why += (why.empty() ? "" : "; ") + reason;
    // A test's use keeps nothing alive, but tells the reader to delete the test too.
    table.add({location(s.file, s.line), s.kind,
               s.fqn + (s.used_by_tests ? " (used by tests)" : ""), why});
  }
  if (table.empty()) return;
  out << bold(likely ? "Likely unused" : "Certainly unused", colour) << '\n';
  table.print(out, colour);
}

void print_text(std::ostream& out, bool colour, const DeadCodePage& page, std::int64_t offset) {
  print_group(out, colour, page, DeadConfidence::certain);
  print_group(out, colour, page, DeadConfidence::likely);
  const auto shown = static_cast<std::int64_t>(page.symbols.size());
  out << shown << " of " << count_of(page.total_count, "unused definition", "unused definitions")
      << " shown";
  if (page.truncated) out << "; next page: --offset " << offset + shown;
  out << '\n';
}

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
      const DeadCodePage page = context.open_repository()->get_dead_code(options);
      if (context.json) {
        print_json(*context.out, to_json(page));
      } else {
        print_text(*context.out, context.colour, page, options.offset);
      }
    };
  });
}

}  // namespace quarry::cli
