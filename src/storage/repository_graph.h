// Queries over the index as a whole: its size.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "storage/database.h"

namespace quarry {

class GraphQueries {
 public:
  virtual ~GraphQueries() = default;

  // The connection to the index, supplied by the repository.
  virtual Database& db() = 0;

  // The number of rows of each index table, under the keys "files", "symbols", "edges",
  // "components" and "pending_references".
  virtual std::map<std::string, std::int64_t> get_stats();
};

}  // namespace quarry
