// quarry callers SYMBOL... [--guessed] [--limit N]
#include <charconv>

#include "cli/command.h"

namespace quarry::cli {

namespace {

struct CallersArgs {
  std::vector<std::string> symbols;
  bool guessed = false;
  std::string limit;
};

using report::AskedSymbol;

// Resolves each SYMBOL: decimal digits are an id, anything else a fully qualified name.
std::vector<AskedSymbol> resolve(Repository& repo, const std::vector<std::string>& symbols) {
  std::vector<AskedSymbol> asked;
  for (const std::string& symbol : symbols) {
    const bool is_id =
        !symbol.empty() && symbol.find_first_not_of("0123456789") == std::string::npos;
    if (is_id) {
      std::int64_t id = 0;
      const auto [end, error] = std::from_chars(symbol.data(), symbol.data() + symbol.size(), id);
      if (error != std::errc()) {
        asked.push_back({std::nullopt, "#" + symbol, false});
        continue;
      }
      const auto found = repo.get_symbol_by_id(id);
      asked.push_back({id, found ? found->fqn : "#" + symbol, found.has_value()});
      continue;
    }
    const auto found = repo.get_symbol_by_fqn(symbol);
    if (!found || !found->id) throw NotFoundError("no symbol named '" + symbol + "'");
    asked.push_back({*found->id, found->fqn});
  }
  return asked;
}

}  // namespace

void add_callers_command(CLI::App& app, Context& context) {
  auto args = std::make_shared<CallersArgs>();
  CLI::App* command = app.add_subcommand("callers", "List the callers of one or more symbols");
  command->add_option("SYMBOL", args->symbols, "A symbol id or fully qualified name")->required();
  command->add_flag("--guessed", args->guessed, "Guessed callers instead of proven ones");
  const CLI::Option* limit_option =
      command->add_option("--limit", args->limit, "At most N callers per symbol");
  command->callback([&context, args, limit_option] {
    context.action = [&context, args, limit_option] {
      std::optional<std::int64_t> limit;
      if (limit_option->count() > 0) limit = parse_integer("--limit", args->limit, true);
      auto repo = context.open_repository();
      const std::vector<AskedSymbol> asked = resolve(*repo, args->symbols);
      std::vector<std::int64_t> ids;
      for (const AskedSymbol& a : asked) {
        if (a.id) ids.push_back(*a.id);
      }
      auto callers = repo->callers_of(ids, {.guessed = args->guessed, .limit = limit});
      context.render(report::CallersReport{
          .asked = asked, .callers = std::move(callers), .guessed = args->guessed});
    };
  });
}

}  // namespace quarry::cli
