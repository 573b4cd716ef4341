// quarry callers SYMBOL... [--guessed] [--limit N]
#include <charconv>
#include <map>
#include <ostream>
#include <set>

#include "cli/command.h"
#include "cli/output.h"

namespace quarry::cli {

namespace {

struct CallersArgs {
  std::vector<std::string> symbols;
  bool guessed = false;
  std::string limit;
};

// One asked symbol: its id (none for an id beyond the 64-bit range, which matches no
// symbol) and how to show it.
struct Asked {
  std::optional<std::int64_t> id;
  std::string label;
  bool found = true;
};

// Resolves each SYMBOL: decimal digits are an id, anything else a fully qualified name.
std::vector<Asked> resolve(Repository& repo, const std::vector<std::string>& symbols) {
  std::vector<Asked> asked;
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

Json to_json(const std::vector<Caller>& callers) {
  Json list = Json::array();
  for (const Caller& c : callers) {
    list.push_back(Json{{"of", c.of},
                        {"id", c.id},
                        {"name", c.name},
                        {"kind", c.kind},
                        {"fqn", c.fqn},
                        {"path", c.path},
                        {"line", c.line},
                        {"resolution", c.resolution},
                        {"total", c.total},
                        {"call_line", optional_json(c.call_line)}});
  }
  return list;
}

void print_text(std::ostream& out, bool colour, const std::vector<Asked>& asked,
                const std::vector<Caller>& callers, bool guessed) {
  const std::string_view kind = guessed ? "guessed" : "proven";
  std::map<std::int64_t, std::vector<const Caller*>> by_symbol;
  for (const Caller& c : callers)
    by_symbol[c.of].push_back(&c);

  std::set<std::string> shown;
  for (const Asked& a : asked) {
    // Each symbol once, however often it was asked for (an id out of range by its digits).
    if (!shown.insert(a.id ? std::to_string(*a.id) : a.label).second) continue;
    const auto& found = a.id ? by_symbol[*a.id] : std::vector<const Caller*>{};
    // A symbol that is not in the index is shown by its id alone.
    std::string heading = bold(printable(a.label), colour);
    if (a.found) heading += dim(" #" + std::to_string(*a.id), colour);
    heading += ": ";
    if (found.empty()) {
      out << heading << "no " << kind << " callers\n";
      continue;
    }
    const std::int64_t total = found.front()->total;
    heading += count_of(total, std::string(kind) + " caller", std::string(kind) + " callers");
    if (static_cast<std::int64_t>(found.size()) < total) {
      heading += " (" + std::to_string(found.size()) + " shown)";
    }
    out << heading << '\n';
    Table table({"CALL SITE", "KIND", "CALLER", "RESOLUTION"});
    for (const Caller* c : found) {
      table.add(
          {location(c->path, c->call_line.value_or(c->line)), c->kind, c->fqn, c->resolution});
    }
    table.print(out, colour);
  }
  out << count_of(static_cast<std::int64_t>(callers.size()), "caller", "callers") << " of "
      << count_of(static_cast<std::int64_t>(shown.size()), "symbol", "symbols") << '\n';
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
      const std::vector<Asked> asked = resolve(*repo, args->symbols);
      std::vector<std::int64_t> ids;
      for (const Asked& a : asked) {
        if (a.id) ids.push_back(*a.id);
      }
      const auto callers = repo->callers_of(ids, {.guessed = args->guessed, .limit = limit});
      if (context.json) {
        print_json(*context.out, to_json(callers));
      } else {
        print_text(*context.out, context.colour, asked, callers, args->guessed);
      }
    };
  });
}

}  // namespace quarry::cli
