// quarry index [DIR]
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <memory>
#include <ostream>
#include <string_view>

#include "cli/command.h"
#include "cli/output.h"
#include "indexer/indexer.h"

#ifndef QUARRY_VERSION
#define QUARRY_VERSION "0.0.0"
#endif

namespace quarry::cli {

namespace {

// One line on stderr, redrawn in place, for the phase under way: "listing files  1200 files",
// then "parsing        [#######.......]  120/300 files  415 files/s" and so on. Drawn on a
// change of phase, at its end, and otherwise at most ten times a second; cleared when the
// run ends, however it ends.
class ProgressLine {
 public:
  ProgressLine() = default;
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine() { clear(); }

  void update(std::string_view phase, std::size_t done, std::size_t total) {
    const auto now = std::chrono::steady_clock::now();
    const bool new_phase = phase != phase_;
    if (new_phase) {
      phase_ = phase;
      phase_started_ = now;
    } else if (done != total && now - drawn_at_ < std::chrono::milliseconds(100)) {
      return;
    }
    drawn_at_ = now;
    draw(done, total, std::chrono::duration<double>(now - phase_started_).count());
  }

  void clear() {
    if (phase_.empty()) return;
    std::cerr << "\r\x1b[K" << std::flush;
    phase_.clear();
  }

 private:
  void draw(std::size_t done, std::size_t total, double seconds) const {
    constexpr std::size_t WIDTH = 30;
    std::cerr << "\r" << std::left << std::setw(15) << phase_ << std::right;
    if (phase_ == indexer::PHASE_LISTING) {
      std::cerr << done << " files";
    } else {
      const std::size_t filled = total == 0 ? WIDTH : std::min(done, total) * WIDTH / total;
      const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
      std::cerr << "[" << std::string(filled, '#') << std::string(WIDTH - filled, '.') << "]  "
                << done << "/" << total;
      if (phase_ == indexer::PHASE_PARSING) {
        std::cerr << " files  " << std::lround(rate) << " files/s";
      }
    }
    std::cerr << "\x1b[K" << std::flush;
  }

  std::string phase_;
  std::chrono::steady_clock::time_point phase_started_, drawn_at_;
};

// A size in bytes: decimal digits, optionally followed by K, M or G (powers of 1024).
std::uintmax_t parse_size(std::string_view option, const std::string& text) {
  std::string digits = text;
  std::uintmax_t unit = 1;
  if (!digits.empty()) {
    const char suffix = static_cast<char>(std::toupper(static_cast<unsigned char>(digits.back())));
    const std::string_view units = "KMG";
    if (const auto k = units.find(suffix); k != std::string_view::npos) {
      unit = std::uintmax_t{1} << (10 * (k + 1));
      digits.pop_back();
    }
  }
  std::uintmax_t count = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), count);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
      count > UINTMAX_MAX / unit) {
    throw UsageError(std::string(option) + " takes a size such as 4M or 500K, not '" + text + "'");
  }
  return static_cast<std::uintmax_t>(count) * unit;
}

}  // namespace

void add_index_command(CLI::App& app, Context& context) {
  auto dir = std::make_shared<std::string>(".");
  auto max_file_size =
      std::make_shared<std::string>(std::to_string(indexer::DEFAULT_MAX_FILE_SIZE >> 20) + "M");
  CLI::App* command =
      app.add_subcommand("index", "Build the index of a repository (default DIR/.quarry/index.db)");
  command->add_option("DIR", *dir, "The repository to index")->capture_default_str();
  command
      ->add_option("--max-file-size", *max_file_size,
                   "Leave out (with a warning) source files larger than this: bytes, or with K, "
                   "M or G; 0 for no limit")
      ->capture_default_str();
  command->callback([&context, dir, max_file_size] {
    context.action = [&context, dir, max_file_size] {
      std::error_code ec;
      if (!std::filesystem::is_directory(*dir, ec)) {
        throw UsageError("DIR '" + *dir + "' is not a directory");
      }
      indexer::IndexOptions options;
      options.root = *dir;
      options.max_file_size = parse_size("--max-file-size", *max_file_size);
      options.waiting = [&options] {
        std::cerr << "quarry: waiting for another quarry index run on "
                  << printable(options.db_path) << " to end\n";
      };
      options.db_path =
          context.db_given
              ? context.db_path
              : (std::filesystem::path(*dir) / ".quarry" / "index.db").lexically_normal().string();
      options.quarry_version = QUARRY_VERSION;
      // The indexed tree's own configuration: found from DIR upward.
      const Config config = context.configuration(std::filesystem::absolute(*dir));
      options.exclude = config.exclude_below(std::filesystem::absolute(*dir).lexically_normal());
      options.entry_points = config.entry_points;
      // Cleared also when the run fails, before the error is printed.
      auto progress = std::make_shared<ProgressLine>();
      if (isatty(STDERR_FILENO) != 0) {
        options.progress = [progress](std::string_view phase, std::size_t done, std::size_t total) {
          progress->update(phase, done, total);
        };
      }
      const auto summary = indexer::build_index(options);
      progress->clear();
      for (const std::string& warning : summary.warnings) {
        std::cerr << "quarry: warning: " << printable(warning) << '\n';
      }
      if (context.json) {
        print_json(*context.out, Json{{"db", options.db_path},
                                      {"files", summary.files},
                                      {"python_files", summary.python_files},
                                      {"script_files", summary.script_files},
                                      {"symbols", summary.symbols},
                                      {"edges", summary.edges},
                                      {"pending_references", summary.pending_references},
                                      {"calls",
                                       {{"in_repository", summary.calls.in_repository},
                                        {"outside", summary.calls.outside},
                                        {"guessed", summary.calls.guessed},
                                        {"unbound", summary.calls.unbound}}},
                                      {"seconds", summary.seconds},
                                      {"warnings", summary.warnings}});
        return;
      }
      *context.out << "indexed "
                   << count_of(static_cast<std::int64_t>(summary.files), "file", "files") << " ("
                   << summary.python_files << " Python"
                   << (summary.script_files > 0
                           ? ", " + std::to_string(summary.script_files) + " JavaScript/TypeScript"
                           : std::string())
                   << "): "
                   << count_of(static_cast<std::int64_t>(summary.symbols), "symbol", "symbols")
                   << ", " << count_of(static_cast<std::int64_t>(summary.edges), "edge", "edges")
                   << ", "
                   << count_of(static_cast<std::int64_t>(summary.pending_references),
                               "pending reference", "pending references")
                   << " in " << std::fixed << std::setprecision(2) << summary.seconds << " s -> "
                   << printable(options.db_path) << '\n';
      const auto& calls = summary.calls;
      if (calls.total() == 0) return;
      const auto percent = [&](std::size_t n) {
        return 100.0 * static_cast<double>(n) / static_cast<double>(calls.total());
      };
      *context.out << std::setprecision(1) << "calls of names defined here: "
                   << percent(calls.in_repository + calls.outside) << "% bound on evidence ("
                   << percent(calls.outside) << "% to outside the repository), "
                   << percent(calls.guessed) << "% guessed, " << percent(calls.unbound)
                   << "% unbound, of " << calls.total() << '\n';
    };
  });
}

}  // namespace quarry::cli
