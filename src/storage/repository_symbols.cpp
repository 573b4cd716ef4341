#include "storage/repository_symbols.h"

namespace quarry {

namespace {

constexpr std::string_view SYMBOL_COLUMNS =
    "SELECT id, file_id, name, kind, fqn, start_line, signature, is_export FROM symbols ";

std::optional<Symbol> to_symbol(const std::optional<Row>& row) {
  if (!row) return std::nullopt;
  const Row& r = *row;
  return Symbol{.id = to_optional_int(r[0]),
                .file_id = to_int(r[1]),
                .name = to_text(r[2]),
                .kind = to_text(r[3]),
                .fqn = to_text(r[4]),
                .start_line = to_int(r[5]),
                .signature = is_null(r[6]) ? std::nullopt : std::optional(to_text(r[6])),
                .is_export = to_int(r[7]) != 0};
}

}  // namespace

std::optional<Symbol> SymbolQueries::get_symbol_by_fqn(const std::string& fqn) {
  return to_symbol(
      db().fetchone(std::string(SYMBOL_COLUMNS) + "WHERE fqn = ? ORDER BY id LIMIT 1", {fqn}));
}

std::optional<Symbol> SymbolQueries::get_symbol_by_id(std::int64_t id) {
  return to_symbol(db().fetchone(std::string(SYMBOL_COLUMNS) + "WHERE id = ?", {id}));
}

}  // namespace quarry
