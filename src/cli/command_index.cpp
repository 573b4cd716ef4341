// quarry index [DIR]
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <ostream>

#include "cli/command.h"
#include "cli/output.h"
#include "indexer/indexer.h"

namespace quarry::cli {

namespace {

// "[#######.......]  120/300 files  415 files/s" on one line of stderr, redrawn in place.
void draw_progress(std::size_t done, std::size_t total, double seconds) {
  constexpr std::size_t WIDTH = 30;
  const std::size_t filled = total == 0 ? WIDTH : done * WIDTH / total;
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
  std::cerr << "\r[" << std::string(filled, '#') << std::string(WIDTH - filled, '.') << "]  "
            << done << "/" << total << " files  " << std::lround(rate) << " files/s" << std::flush;
}

}  // namespace

void add_index_command(CLI::App& app, Context& context) {
  auto dir = std::make_shared<std::string>(".");
  CLI::App* command =
      app.add_subcommand("index", "Build the index of a repository (default DIR/.quarry/index.db)");
  command->add_option("DIR", *dir, "The repository to index")->capture_default_str();
  command->callback([&context, dir] {
    context.action = [&context, dir] {
      std::error_code ec;
      if (!std::filesystem::is_directory(*dir, ec)) {
        throw UsageError("DIR '" + *dir + "' is not a directory");
      }
      indexer::IndexOptions options;
      options.root = *dir;
      options.db_path =
          context.db_given
              ? context.db_path
              : (std::filesystem::path(*dir) / ".quarry" / "index.db").lexically_normal().string();
      const auto started = std::chrono::steady_clock::now();
      const bool terminal = isatty(STDERR_FILENO) != 0;
      if (terminal) {
        options.progress = [started](std::size_t done, std::size_t total) {
          draw_progress(
              done, total,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
        };
      }
      const auto summary = indexer::build_index(options);
      if (terminal) std::cerr << "\r\x1b[K" << std::flush;
      for (const std::string& warning : summary.warnings) {
        std::cerr << "quarry: warning: " << warning << '\n';
      }
      if (context.json) {
        print_json(*context.out, Json{{"db", options.db_path},
                                      {"files", summary.files},
                                      {"python_files", summary.python_files},
                                      {"symbols", summary.symbols},
                                      {"edges", summary.edges},
                                      {"pending_references", summary.pending_references},
                                      {"seconds", summary.seconds},
                                      {"warnings", summary.warnings}});
        return;
      }
      *context.out << "indexed "
                   << count_of(static_cast<std::int64_t>(summary.files), "file", "files") << " ("
                   << summary.python_files << " Python): "
                   << count_of(static_cast<std::int64_t>(summary.symbols), "symbol", "symbols")
                   << ", " << count_of(static_cast<std::int64_t>(summary.edges), "edge", "edges")
                   << ", "
                   << count_of(static_cast<std::int64_t>(summary.pending_references),
                               "pending reference", "pending references")
                   << " in " << std::fixed << std::setprecision(2) << summary.seconds << " s -> "
                   << options.db_path << '\n';
    };
  });
}

}  // namespace quarry::cli
