// Look-ups of single symbols.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "models/symbol.h"
#include "storage/database.h"

namespace quarry {

class SymbolQueries {
 public:
  virtual ~SymbolQueries() = default;

  // The connection to the index, supplied by the repository.
  virtual Database& db() = 0;

  // The symbol whose fqn is exactly `fqn`; of several, the one with the smallest id.
  // Nothing when no symbol has that fqn.
  virtual std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn);

  // The symbol with that id, or nothing.
  virtual std::optional<Symbol> get_symbol_by_id(std::int64_t id);
};

}  // namespace quarry
