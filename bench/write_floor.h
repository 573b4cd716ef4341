// The floor under writing an index: the rows of an index that quarry made, copied by SQLite
// alone (no binding of values, no models) into a new index with the same tables, the
// writer's settings, the same lookup indexes built at the same points and the same
// statistics gathered.
#pragma once

#include <cstdint>
#include <string>

namespace quarry::bench {

struct WriteFloor {
  std::int64_t edges = 0;
  double seconds = 0;  // wall time of the whole copy
  // Wall time of what only starts once the last link is written: sorting the link lookup
  // indexes, the commit and the statistics.
  double after_links = 0;
};

// Copies every file, definition and link of the index at `made` into a new index at `out`
// (which must not exist; left behind for the caller to remove) and times it. Throws
// DatabaseError when either file cannot be used.
WriteFloor write_floor(const std::string& made, const std::string& out);

}  // namespace quarry::bench
