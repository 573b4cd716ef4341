#include "cli/cli.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <ostream>
#include <span>

#include "cli/command.h"
#include "cli/output.h"
#include "report/baseline.h"
#include "storage/database.h"
#include "storage/index_meta.h"

#ifndef QUARRY_VERSION
#define QUARRY_VERSION "0.0.0"
#endif

namespace quarry::cli {

namespace {

// Errors are printed as one line, whatever the message holds, and safe for a terminal:
// messages name files and values that come from the user or the index.
void print_error(std::ostream& err, std::string message, std::string_view kind = "error") {
  std::replace(message.begin(), message.end(), '\n', ' ');
  while (!message.empty() && message.back() == ' ')
    message.pop_back();
  err << "quarry: " << kind << ": " << printable(message) << '\n';
}

// "--db=" with nothing after the sign: CLI11 would take the next argument as its value.
void reject_empty_assignments(const std::vector<std::string>& args) {
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--") return;
    if (args[i].starts_with("--") && args[i].size() > 3 && args[i].back() == '=' &&
        args[i].find('=') == args[i].size() - 1) {
      throw UsageError(args[i].substr(0, args[i].size() - 1) + " needs a value");
    }
  }
}

// Every option or argument, of the program or of the chosen command, that takes a value and
// was given one got a non-empty one.
void reject_empty_values(CLI::App& app) {
  std::vector<const CLI::App*> apps{&app};
  for (const CLI::App* command : app.get_subcommands())
    apps.push_back(command);
  for (const CLI::App* each : apps) {
    for (const CLI::Option* option : each->get_options()) {
      if (option->get_type_size_min() == 0) continue;  // a flag
      for (const std::string& value : option->results()) {
        if (value.empty()) throw UsageError(option->get_name() + " needs a value, not ''");
      }
    }
  }
}

// "text, json, sarif, github or dot".
std::string format_list(std::span<const report::Format> formats) {
  std::string text;
  for (std::size_t i = 0; i < formats.size(); ++i) {
    if (i > 0) text += i + 1 == formats.size() ? " or " : ", ";
    text += report::to_string(formats[i]);
  }
  return text;
}

// Sets context.format from --format (given, when `format_given`, as `name`) and --json, for
// the command named `command`. Throws UsageError for an unknown format, one that the
// command does not print, or --json with another format.
void choose_format(Context& context, bool format_given, const std::string& name,
                   std::string_view command) {
  if (format_given) {
    const auto format = report::parse_format(name);
    if (!format) {
      throw UsageError("--format takes " + format_list(report::all_formats()) + ", not '" + name +
                       "'");
    }
    if (context.json && *format != report::Format::json) {
      throw UsageError("--format " + name + " cannot be combined with --json");
    }
    context.format = *format;
  } else if (context.json) {
    context.format = report::Format::json;
  }
  const auto offered = report::formats_of(command);
  if (std::find(offered.begin(), offered.end(), context.format) == offered.end()) {
    throw UsageError(std::string(command) + " has no " +
                     std::string(report::to_string(context.format)) + " output; it prints " +
                     format_list(offered));
  }
  context.json = context.format == report::Format::json;
}

}  // namespace

std::unique_ptr<Repository> Context::open_repository() {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path cwd = fs::current_path(ec);
  if (!db_given && !ec) {
    if (auto found = find_index(cwd)) db_path = found->string();
  }
  auto repo = std::make_unique<Repository>(db_path);
  const IndexMeta meta = repo->index_meta();
  fs::path repository_root;
  if (meta.root) {
    repository_root = *meta.root;
  } else {
    // An index without a meta table, in a .quarry directory: the tree around it.
    const fs::path db = fs::absolute(db_path, ec).lexically_normal();
    if (!ec && db.parent_path().filename() == INDEX_DIR_NAME) {
      repository_root = db.parent_path().parent_path();
    }
  }
  if (repository_root.empty() || cwd.empty()) return repo;
  root = repository_root.string();
  // The working directory is a physical path: compare it with the root's physical path.
  fs::path physical = fs::weakly_canonical(repository_root, ec);
  if (ec) physical = repository_root;
  display_path = [physical, cwd](std::string_view stored) {
    const fs::path relative = (physical / fs::path(stored)).lexically_relative(cwd);
    return relative.empty() ? std::string(stored) : relative.string();
  };
  if (err != nullptr && index_is_stale(meta, repository_root)) {
    *err << "quarry: warning: the index was built at commit " << meta.git_commit->substr(0, 12)
         << " and the work tree is at another; it may be stale (run quarry index)\n";
  }
  return repo;
}

Config Context::configuration(const std::filesystem::path& start) const {
  if (given_config) return *given_config;
  std::error_code ec;
  const std::filesystem::path from = start.empty() ? std::filesystem::current_path(ec) : start;
  if (ec) return {};
  return find_config(from).value_or(Config{});
}

report::RenderContext Context::render_context() const {
  return {.out = out,
          .colour = colour,
          .display_path = display_path,
          .root = root,
          .version = QUARRY_VERSION};
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
  context.err = &err;
  context.colour = colour;

  CLI::App app(
      "Answers quality questions about a code base from its index: dead code, "
      "dependency cycles, callers and impact.",
      "quarry");
  app.set_version_flag("--version", QUARRY_VERSION);
  app.footer(
      "Exit status: 0 the command ran; 1 the index cannot be used, or a name or component "
      "matches nothing; 2 usage or configuration; 3 findings remain (--fail-on).");
  CLI::Option* db_option =
      app.add_option("--db", context.db_path,
                     "The index database (SQLite); default: the first .quarry/index.db from "
                     "the working directory upward")
          ->type_name("FILE");
  app.add_option("--config", context.config_path,
                 "The configuration file; default: [tool.quarry] of the nearest "
                 "pyproject.toml, or the nearest quarry.toml, from the working directory up")
      ->type_name("FILE");
  std::string format_name;
  const CLI::Option* format_option = app.add_option("--format", format_name,
                                                    "text, json, sarif (dead-code, cycles), github "
                                                    "(dead-code, cycles: workflow annotations) "
                                                    "or dot (cycles: a Graphviz digraph)")
                                         ->type_name("F");
  app.add_flag("--json", context.json, "Short for --format json");
  app.require_subcommand(1);
  app.fallthrough();
  add_callers_command(app, context);
  add_impact_command(app, context);
  add_stats_command(app, context);
  add_index_command(app, context);
  add_dead_code_command(app, context);
  add_cycles_command(app, context);
  add_baseline_command(app, context);

  try {
    reject_empty_assignments(args);
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    if (!reversed.empty()) reversed.pop_back();  // the program name
    app.parse(reversed);
    reject_empty_values(app);
    context.db_given = db_option->count() > 0;
    choose_format(context, format_option->count() > 0, format_name,
                  app.get_subcommands().front()->get_name());
    // A --config that is malformed is an error whichever command runs.
    if (!context.config_path.empty()) context.given_config = load_config(context.config_path);
    if (context.action) context.action();
    return context.status;
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
  } catch (const ConfigError& error) {
    print_error(err, error.what());
    return 2;
  } catch (const report::BaselineError& error) {
    print_error(err, error.what());
    return 2;
  } catch (const std::runtime_error& error) {
    // An index that cannot be used, a failed statement, a name that matches nothing, a
    // file or directory that cannot be read or written.
    print_error(err, error.what());
    return 1;
  } catch (const std::length_error& error) {
    // A dependency graph too large for the cycle search.
    print_error(err, error.what());
    return 1;
  } catch (const std::bad_alloc&) {
    print_error(err, "out of memory");
    return 1;
  } catch (const std::exception& error) {
    print_error(err, error.what(), "internal error");
    return 1;
  } catch (...) {
    print_error(err, "unknown exception", "internal error");
    return 1;
  }
}

int run_main(int argc, char** argv) {
  // A closed pipe is reported by write() as EPIPE and handled below, rather than ending
  // the process with SIGPIPE.
  std::signal(SIGPIPE, SIG_IGN);
  const char* no_color = std::getenv("NO_COLOR");
  const bool colour = isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
  DescriptorOutput buffer(STDOUT_FILENO);
  std::ostream out(&buffer);
  const int status = run(std::vector<std::string>(argv, argv + argc), out, std::cerr, colour);
  out.flush();
  if (buffer.error() == 0) return status;
  // The reader stopped early (`| head`): nothing is lost that anyone wanted.
  if (buffer.error() == EPIPE) return status;
  print_error(std::cerr, std::string("cannot write the output: ") + std::strerror(buffer.error()));
  return 1;
}

}  // namespace quarry::cli
