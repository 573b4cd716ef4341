// Synthetic indexes of a chosen size, for benchmarks and for timing the command line.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quarry::bench {

struct GenerateOptions {
  std::int64_t symbols = 100'000;  // rows of symbols (module symbols included)
  std::int64_t edges = 500'000;    // rows of edges
  std::uint64_t seed = 1;          // the same options always give the same index
};

// The named scales of the benchmarks: S has 10,000 symbols and 50,000 edges, M 100,000
// and 500,000, L 1,000,000 and 5,000,000.
enum class Scale { S, M, L };
inline constexpr std::array<Scale, 3> SCALES{Scale::S, Scale::M, Scale::L};

// "S", "M" or "L".
std::string_view scale_name(Scale scale);
// The scale named `name` ("S", "M" or "L", either case), or nothing.
std::optional<Scale> parse_scale(std::string_view name);
// The sizes of `scale`, with `seed`.
GenerateOptions scale_options(Scale scale, std::uint64_t seed = 1);

// How many hub functions every generated index has, and the fqn of the one of rank
// `rank` (< HUB_COUNT). Rank 0 has the most callers, about edges / 500 of them; rank r
// about 1 / (r + 1) of that.
inline constexpr std::size_t HUB_COUNT = 8;
std::string hub_fqn(std::size_t rank);

// Writes a new index at `path` (which must not exist) through create_index, shaped like a
// layered Python monorepo. Files of about 50 symbols (a module, classes with methods,
// functions, nested functions, constants) lie in components of contiguous files, the
// first component being the core; every tenth file is a test and a few are documents.
// Names repeat across the code base, a few of them thousands of times, and dispatch
// families, decorated and exported definitions occur. Edges:
// - a few hub functions in the first file, called from thousands of places;
// - long call chains, each call going one layer down;
// - class hierarchies (inherits edges to an earlier class, with overriding methods that
//   reuse their base's method names; some bases lie outside the index);
// - module imports of earlier files, plus a few small import cycles between files of a
//   component and between components;
// - the bulk: calls, references, types, imports and decorations, mostly within a file or
//   down to earlier files of the component or to earlier components, 1% back up within
//   the component; 3% of them guesses (to a definition of the same name), 2% without a
//   resolution.
// An eighth of the symbols (past the hubs), modules aside, are never the target of an edge. Pending
// references by name are added; the lookup indexes are created after the rows, and the
// statistics are gathered with ANALYZE, as the indexer does.
void generate_index(const std::string& path, const GenerateOptions& options = {});

// The index generated for `options`, made on first use and kept: in the directory named
// by the environment variable QUARRY_BENCH_INDEXES, or else in the build directory's
// bench-indexes. The file name holds the options and the generator's version, so a
// changed generator or size never reuses a stale file. Safe against an interrupted
// generation (the file is written under a temporary name and renamed when complete).
std::filesystem::path cached_index(const GenerateOptions& options);

}  // namespace quarry::bench
