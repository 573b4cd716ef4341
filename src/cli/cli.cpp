#include "cli/cli.h"

#include <algorithm>
#include <charconv>
#include <ostream>

#include "cli/command.h"

#ifndef QUARRY_VERSION
#define QUARRY_VERSION "0.0.0"
#endif

namespace quarry::cli {

namespace {

// Errors are printed as one line, whatever the message holds.
void print_error(std::ostream& err, std::string message) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  while (!message.empty() && message.back() == ' ')
    message.pop_back();
  err << "quarry: error: " << message << '\n';
}

}  // namespace

std::unique_ptr<Repository> Context::open_repository() const {
  return std::make_unique<Repository>(db_path);
}

std::int64_t parse_integer(std::string_view option, const std::string& text, bool non_negative) {
  const std::string_view digits =
      !non_negative && text.starts_with('-') ? std::string_view(text).substr(1) : text;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool decimal =
      !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
  if (!decimal || error != std::errc() || end != text.data() + text.size()) {
    throw UsageError(std::string(option) + " takes " +
                     (non_negative ? "a whole number of zero or more" : "a whole number") +
                     ", not '" + text + "'");
  }
  return value;
}

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err, bool colour) {
  Context context;
  context.out = &out;
  context.colour = colour;

  CLI::App app(
      "Answers quality questions about a code base from its index: dead code, "
      "dependency cycles, callers and impact.",
      "quarry");
  app.set_version_flag("--version", QUARRY_VERSION);
  CLI::Option* db_option =
      app.add_option("--db", context.db_path, "The index database (SQLite)")->capture_default_str();
  app.add_flag("--json", context.json, "Print one JSON document instead of text");
  app.require_subcommand(1);
  app.fallthrough();
  add_callers_command(app, context);
  add_impact_command(app, context);
  add_stats_command(app, context);
  add_index_command(app, context);
  add_dead_code_command(app, context);
  add_cycles_command(app, context);

  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    if (!reversed.empty()) reversed.pop_back();  // the program name
    app.parse(reversed);
    context.db_given = db_option->count() > 0;
    if (context.action) context.action();
    return 0;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app.exit(error, out, err);
      return 0;
    }
    const auto extras = app.remaining();
    if (app.get_subcommands().empty() && !extras.empty() && !extras.front().starts_with('-')) {
      print_error(err, "unknown command '" + extras.front() + "'");
    } else {
      print_error(err, error.what());
    }
    return 2;
  } catch (const UsageError& error) {
    print_error(err, error.what());
    return 2;
  } catch (const std::exception& error) {
    // An index that cannot be used, a failed statement, a name that matches nothing.
    print_error(err, error.what());
    return 1;
  }
}

}  // namespace quarry::cli
