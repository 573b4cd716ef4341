// The dead-code listing of the whole index from sequential reads: the files, the symbols, the
// edges and the pending references are read once each and the candidate filter, the rules of
// unseen uses and the reasons are decided in memory, as the statements decide them.
#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <ranges>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "models/edge.h"
#include "models/symbol.h"
#include "storage/repository_graph.h"
#include "storage/repository_quality.h"
#include "utils/language_filter.h"
#include "utils/path_filter.h"

namespace quarry {

namespace {

using detail::IdPositions;
using detail::RowScan;

constexpr std::uint32_t NONE = IdPositions::NONE;
// The most distinct symbol kinds the listing tells apart in memory (the indexer writes a
// dozen): each symbol's kind is found among them by comparison.
constexpr std::uint32_t MAX_KINDS = 64;

// What the edges and the signature tell of one symbol.
enum SymbolBit : std::uint8_t {
  NOT_EXPORTED = 1,     // is_export = 0
  DECORATED = 2,        // its signature begins with "@"
  NAMES_BASE = 4,       // its signature holds "(", " extends " or " implements "
  USED = 8,             // a production use whose resolution is set and no guess
  GUESSED_USE = 16,     // a production use that is a guess
  PRODUCTION_USE = 32,  // a production use of any resolution
  TEST_USE = 64,        // a use from a symbol of a test file
  IN_TEST_FILE = 128,   // it is a symbol of a test file
};

// SQLite's text functions and LIKE read a text up to its first NUL byte.
std::string_view as_sql_text(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

// The position after the character at `at`, stepping as SQLite's length() and substr() do:
// a byte from 0xc0 up takes the continuation bytes (0x80-0xbf) after it, any other byte is
// a character of its own.
std::size_t after_character(std::string_view text, std::size_t at) {
  if (static_cast<unsigned char>(text[at++]) >= 0xc0) {
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80)
      ++at;
  }
  return at;
}

// length(text) for a text without NUL bytes.
std::int64_t sql_length(std::string_view text) {
  std::int64_t count = 0;
  for (std::size_t at = 0; at < text.size(); at = after_character(text, at))
    ++count;
  return count;
}

// substr(text, 1, count) for a text without NUL bytes: nothing when count <= 0.
std::string_view sql_head(std::string_view text, std::int64_t count) {
  std::size_t at = 0;
  for (; count > 0 && at < text.size(); --count)
    at = after_character(text, at);
  return text.substr(0, at);
}

// The text of detail::PARENT_FQN for a symbol of this fqn and name.
std::string_view parent_fqn(std::string_view fqn, std::string_view name) {
  const std::string_view text = as_sql_text(fqn);
  return sql_head(text, sql_length(text) - sql_length(as_sql_text(name)) - 1);
}

// `text LIKE '%word%'` for a word of lower-case ASCII letters and spaces: LIKE folds the
// case of ASCII letters only, and no character of several bytes equals one of them.
bool like_contains_word(std::string_view text, std::string_view word) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::search(text.begin(), text.end(), word.begin(), word.end(),
                     [&](char a, char b) { return lower(a) == b; }) != text.end();
}

// The signature test of the third rule of unseen uses: "signature LIKE '%(%' OR signature
// LIKE '% extends %' OR signature LIKE '% implements %'".
bool names_base(std::string_view signature) {
  signature = as_sql_text(signature);
  return signature.find('(') != std::string_view::npos ||
         like_contains_word(signature, " extends ") ||
         like_contains_word(signature, " implements ");
}

// The dunder pattern of the candidate filter, '\_\_%\_\_': two underscores at each end of a
// name of four characters or more (the underscores are single bytes, so of four bytes).
bool is_dunder(std::string_view name) {
  name = as_sql_text(name);
  return name.size() >= 4 && name.starts_with("__") && name.ends_with("__");
}

template <typename List>
bool is_member(std::string_view text, const List& list) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

struct File {
  std::string path;
  bool source = false;  // its language is one of SOURCE_LANGUAGES
  bool test = false;    // its path is a test path
};

// Texts copied into blocks that never move, so that views of them stay valid.
class TextStore {
 public:
  std::string_view add(std::string_view text) {
    if (text.size() > free_) {
      const std::size_t size = std::max(BLOCK, text.size());
      blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
      next_ = blocks_.back().get();
      free_ = size;
    }
    if (!text.empty()) std::memcpy(next_, text.data(), text.size());
    const std::string_view stored(next_, text.size());
    next_ += text.size();
    free_ -= text.size();
    return stored;
  }

 private:
  static constexpr std::size_t BLOCK = std::size_t{1} << 22;
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  std::size_t free_ = 0;
};

// One symbol. Its texts lie in a TextStore; the name is the end of the fqn when the fqn
// ends with it. SQLite's texts are shorter than 2 GiB, so their sizes fit 32 bits.
struct Definition {
  const char* fqn = nullptr;
  const char* name = nullptr;
  std::int64_t line = 0;
  std::uint32_t fqn_size = 0, name_size = 0;
  std::uint32_t file = NONE;  // position in the files, or NONE when its file_id names none
  std::uint32_t kind = 0;     // position in the distinct kinds
  std::uint8_t bits = 0;

  std::string_view fqn_text() const { return {fqn, fqn_size}; }
  std::string_view name_text() const { return {name, name_size}; }
};

// The symbols with one fqn, found by hashing: the positions are chained per bucket.
class FqnIndex {
 public:
  explicit FqnIndex(const std::vector<Definition>& symbols) : symbols_(symbols) {
    std::size_t buckets = 1;
    while (buckets < symbols.size() * 2)
      buckets *= 2;
    heads_.assign(buckets, NONE);
    next_.assign(symbols.size(), NONE);
    for (std::size_t i = symbols.size(); i-- > 0;) {
      std::uint32_t& head = heads_[bucket(fqn(static_cast<std::uint32_t>(i)))];
      next_[i] = head;
      head = static_cast<std::uint32_t>(i);
    }
  }

  // Calls visit(position) for each symbol whose fqn is `text`, in id order, until it
  // returns true; returns whether one did.
  template <typename Visit>
  bool any_of(std::string_view text, Visit visit) const {
    for (std::uint32_t i = heads_[bucket(text)]; i != NONE; i = next_[i]) {
      if (fqn(i) == text && visit(i)) return true;
    }
    return false;
  }

  std::string_view fqn(std::uint32_t i) const { return symbols_[i].fqn_text(); }

 private:
  std::size_t bucket(std::string_view text) const {
    return std::hash<std::string_view>{}(text) & (heads_.size() - 1);
  }

  const std::vector<Definition>& symbols_;
  std::vector<std::uint32_t> heads_;
  std::vector<std::uint32_t> next_;
};

// The lowest and highest id of the symbols of one name that have a property, or none.
struct IdRange {
  std::int64_t low = std::numeric_limits<std::int64_t>::max();
  std::int64_t high = std::numeric_limits<std::int64_t>::min();

  void add(std::int64_t id) {
    low = std::min(low, id);
    high = std::max(high, id);
  }
  // Whether a symbol other than `id` has the property.
  bool other_than(std::int64_t id) const { return low <= high && (low != id || high != id); }
};

struct NameUses {
  IdRange guessed;       // symbols with a guessed production use (GUESSED_NAMES)
  IdRange used_methods;  // methods with a production use of any resolution
};

}  // namespace

std::optional<DeadCodePage> QualityQueries::scan_dead_code(const DeadCodeOptions& options) {
  if (options.component && !options.component->empty()) return std::nullopt;
  Database& database = db();
  const detail::ReadTransaction snapshot(database);

  std::vector<std::int64_t> file_ids;
  std::vector<File> files;
  {
    RowScan rows(database, "SELECT f.id, f.path, f.language, " +
                               sql_test_path_filter("f", false, "path").first + " FROM files f");
    while (rows.next()) {
      const std::optional<std::string_view> path = rows.text_if(1), language = rows.text_if(2);
      if (!path) return std::nullopt;
      file_ids.push_back(rows.integer(0));
      files.push_back({std::string(*path), language && is_member(*language, SOURCE_LANGUAGES),
                       rows.integer(3) != 0});
    }
  }
  const IdPositions file_positions(file_ids);

  std::vector<std::int64_t> ids;
  std::vector<Definition> symbols;
  std::vector<std::string> kinds;
  TextStore texts;
  {
    // Reserved, so that the largest vectors never hold two copies while they grow.
    RowScan count(database, "SELECT COUNT(*) FROM symbols");
    const auto rows = static_cast<std::size_t>(count.next() ? count.integer(0) : 0);
    ids.reserve(rows);
    symbols.reserve(rows);
  }
  {
    RowScan rows(database,
                 "SELECT id, file_id, kind, name, fqn, start_line, is_export, signature FROM "
                 "symbols");
    std::uint32_t last_kind = 0;
    while (rows.next()) {
      const std::optional<std::string_view> kind = rows.text_if(2), name = rows.text_if(3),
                                            fqn = rows.text_if(4);
      const std::optional<std::int64_t> line = rows.integer_if(5);
      if (!kind || !name || !fqn || !line) return std::nullopt;
      Definition symbol;
      symbol.line = *line;
      if (const std::optional<std::int64_t> file = rows.integer_if(1)) {
        symbol.file = file_positions.find(*file);
        if (symbol.file != NONE && files[symbol.file].test) symbol.bits |= IN_TEST_FILE;
      }
      if (kinds.empty() || kinds[last_kind] != *kind) {
        last_kind = static_cast<std::uint32_t>(std::find(kinds.begin(), kinds.end(), *kind) -
                                               kinds.begin());
        if (last_kind == MAX_KINDS) return std::nullopt;
        if (last_kind == kinds.size()) kinds.emplace_back(*kind);
      }
      symbol.kind = last_kind;
      const std::string_view stored = texts.add(*fqn);
      symbol.fqn = stored.data();
      symbol.fqn_size = static_cast<std::uint32_t>(stored.size());
      symbol.name = stored.ends_with(*name) ? stored.data() + stored.size() - name->size()
                                            : texts.add(*name).data();
      symbol.name_size = static_cast<std::uint32_t>(name->size());
      if (rows.integer_if(6) == 0) symbol.bits |= NOT_EXPORTED;
      if (const std::optional<std::string_view> signature = rows.text_if(7)) {
        if (signature->starts_with('@')) symbol.bits |= DECORATED;
        if (names_base(*signature)) symbol.bits |= NAMES_BASE;
      }
      ids.push_back(rows.integer(0));
      symbols.push_back(symbol);
    }
  }
  const IdPositions symbol_positions(ids);
  const auto name_of = [&symbols](std::uint32_t i) { return symbols[i].name_text(); };

  // Every edge into a symbol is a use: from a test file's symbol, or from production (any
  // other source, one that names no symbol included).
  {
    RowScan rows(database, "SELECT target_id, source_id, resolution FROM edges");
    while (rows.next()) {
      const std::optional<std::int64_t> target_id = rows.integer_if(0);
      const std::uint32_t target = target_id ? symbol_positions.find(*target_id) : NONE;
      if (target == NONE) continue;
      const std::optional<std::int64_t> source_id = rows.integer_if(1);
      const std::uint32_t source = source_id ? symbol_positions.find(*source_id) : NONE;
      std::uint8_t& bits = symbols[target].bits;
      if (source != NONE && (symbols[source].bits & IN_TEST_FILE) != 0) {
        bits |= TEST_USE;
      } else if (const std::optional<std::string_view> resolution = rows.text_if(2)) {
        bits |= PRODUCTION_USE | (is_member(*resolution, GUESSED_RESOLUTIONS) ? GUESSED_USE : USED);
      } else {
        bits |= PRODUCTION_USE;
      }
    }
  }

  std::unordered_set<std::string> pending;
  {
    RowScan rows(database,
                 "SELECT DISTINCT target_name FROM pending_references WHERE typeof(target_name) = "
                 "'text'");
    while (rows.next())
      pending.emplace(rows.text(0));
  }

  const auto kind_position = [&kinds](std::string_view kind) {
    return static_cast<std::uint32_t>(std::find(kinds.begin(), kinds.end(), kind) - kinds.begin());
  };
  const std::uint32_t method = kind_position(symbol_kind::METHOD);
  const std::uint32_t function = kind_position(symbol_kind::FUNCTION);
  std::vector<bool> dead_kind(kinds.size());
  for (std::size_t k = 0; k < kinds.size(); ++k)
    dead_kind[k] = !is_member(kinds[k], detail::NOT_DEAD_CODE_KINDS);

  // The filter up to the uses, in id order.
  std::vector<std::uint32_t> candidates;
  for (std::uint32_t i = 0; i < symbols.size(); ++i) {
    const Definition& s = symbols[i];
    if (s.file == NONE || !files[s.file].source || files[s.file].test || !dead_kind[s.kind])
      continue;
    if ((s.bits & (NOT_EXPORTED | DECORATED | USED)) != NOT_EXPORTED) continue;
    const std::string_view name = name_of(i);
    if (is_dunder(name) || is_member(name, DEAD_CODE_ENTRY_NAMES)) continue;
    candidates.push_back(i);
  }

  // The names' uses that the namesake rule and the second reason read.
  std::unordered_map<std::string_view, NameUses> name_uses;
  for (std::uint32_t i = 0; i < symbols.size(); ++i) {
    const std::uint8_t bits = symbols[i].bits;
    if ((bits & GUESSED_USE) != 0) name_uses[name_of(i)].guessed.add(ids[i]);
    if ((bits & PRODUCTION_USE) != 0 && symbols[i].kind == method)
      name_uses[name_of(i)].used_methods.add(ids[i]);
  }
  const auto uses_of = [&name_uses](std::string_view name) -> const NameUses* {
    const auto found = name_uses.find(name);
    return found == name_uses.end() ? nullptr : &found->second;
  };

  // The sizes of the dispatch families: symbols per file, kind and prefix.
  const auto family_key = [](std::uint32_t file, std::uint32_t kind, std::size_t prefix) {
    return (std::uint64_t{file} << 32) | (std::uint64_t{kind} << 16) | prefix;
  };
  static_assert(MAX_KINDS <= 0xffff && DISPATCH_PREFIXES.size() <= 0xffff);
  static_assert(std::ranges::none_of(DISPATCH_PREFIXES,
                                     [](std::string_view prefix) { return prefix.empty(); }));
  std::array<bool, 256> prefix_start{};  // the first bytes of the prefixes
  for (const std::string_view prefix : DISPATCH_PREFIXES)
    prefix_start[static_cast<unsigned char>(prefix.front())] = true;
  std::unordered_map<std::uint64_t, std::int64_t> families;
  for (std::uint32_t i = 0; i < symbols.size(); ++i) {
    const std::string_view name = name_of(i);
    if (symbols[i].file == NONE || name.empty() ||
        !prefix_start[static_cast<unsigned char>(name.front())])
      continue;
    for (std::size_t d = 0; d < DISPATCH_PREFIXES.size(); ++d) {
      if (name.starts_with(DISPATCH_PREFIXES[d]))
        ++families[family_key(symbols[i].file, symbols[i].kind, d)];
    }
  }
  const auto family_size = [&families](std::uint64_t key) {
    const auto found = families.find(key);
    return found == families.end() ? 0 : found->second;
  };

  const FqnIndex by_fqn(symbols);
  // The targets of a class's hierarchy edges, looked up once per class asked about. The
  // kinds are tested here: with `kind IN (...)` in the search SQLite builds the list's
  // table anew at each run.
  RowScan edges_from(database, "SELECT b.kind, b.target_id FROM edges b WHERE b.source_id = ?",
                     {Value{std::int64_t{0}}});
  std::unordered_map<std::uint32_t, std::vector<std::optional<std::int64_t>>> bases_of;
  const auto bases = [&](std::uint32_t c) -> const std::vector<std::optional<std::int64_t>>& {
    const auto [found, added] = bases_of.try_emplace(c);
    if (added) {
      edges_from.rerun(&ids[c], 1);
      while (edges_from.next()) {
        const std::optional<std::string_view> kind = edges_from.text_if(0);
        if (kind && is_member(*kind, HIERARCHY_KINDS))
          found->second.push_back(edges_from.integer_if(1));
      }
    }
    return found->second;
  };
  const std::unordered_set<std::string_view> runtime_members(options.runtime_members.begin(),
                                                             options.runtime_members.end());

  // The rules of unseen uses (detail::UNSEEN_USES), in their order.
  const auto unseen = [&](std::uint32_t i) {
    const Definition& s = symbols[i];
    const std::string_view name = name_of(i);
    const std::string_view parent = parent_fqn(s.fqn_text(), name);
    if (by_fqn.any_of(parent, [&](std::uint32_t p) {
          return symbols[p].file == s.file &&
                 (symbols[p].kind == function || symbols[p].kind == method);
        }))
      return true;
    if (s.kind == method) {
      const bool overrides = by_fqn.any_of(parent, [&](std::uint32_t c) {
        for (const std::optional<std::int64_t>& target : bases(c)) {
          const std::uint32_t base = target ? symbol_positions.find(*target) : NONE;
          if (base == NONE) continue;
          const std::string member = std::string(by_fqn.fqn(base)) + "." + std::string(name);
          if (by_fqn.any_of(member, [](std::uint32_t) { return true; })) return true;
        }
        return false;
      });
      if (overrides) return true;
      if (by_fqn.any_of(parent, [&](std::uint32_t c) {
            return (symbols[c].bits & NAMES_BASE) != 0 && bases(c).empty();
          }))
        return true;
      const NameUses* uses = uses_of(name);
      if (uses != nullptr && uses->used_methods.other_than(ids[i])) return true;
      if (runtime_members.contains(name)) return true;
    }
    for (std::size_t d = 0; d < DISPATCH_PREFIXES.size(); ++d) {
      if (name.starts_with(DISPATCH_PREFIXES[d]) &&
          family_size(family_key(s.file, s.kind, d)) >= DISPATCH_FAMILY_SIZE)
        return true;
    }
    return false;
  };
  std::erase_if(candidates, unseen);

  // The reasons, then the listing order: certain before likely, by path and line, and
  // (as the statements) by file id, kind and id among equals. Paths and kinds are compared
  // by their ranks in byte order, equal texts having equal ranks.
  const auto ranks = [](const auto& texts_of, std::size_t count) {
    std::vector<std::uint32_t> order(count), rank(count);
    for (std::uint32_t i = 0; i < count; ++i)
      order[i] = i;
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t a, std::uint32_t b) { return texts_of(a) < texts_of(b); });
    for (std::size_t n = 1; n < count; ++n)
      rank[order[n]] = rank[order[n - 1]] + (texts_of(order[n - 1]) < texts_of(order[n]) ? 1 : 0);
    return rank;
  };
  const std::vector<std::uint32_t> path_rank = ranks(
      [&files](std::uint32_t f) -> const std::string& { return files[f].path; }, files.size());
  const std::vector<std::uint32_t> kind_rank =
      ranks([&kinds](std::uint32_t k) -> const std::string& { return kinds[k]; }, kinds.size());
  struct Listed {
    std::tuple<bool, std::uint32_t, std::int64_t, std::int64_t, std::uint32_t, std::int64_t> key;
    std::uint32_t symbol;
    std::array<bool, 3> reasons;
  };
  std::vector<Listed> listed;
  listed.reserve(candidates.size());
  for (const std::uint32_t i : candidates) {
    const Definition& s = symbols[i];
    const std::string_view name = name_of(i);
    const NameUses* uses = uses_of(name);
    const std::array<bool, 3> reasons{(s.bits & GUESSED_USE) != 0,
                                      uses != nullptr && uses->guessed.other_than(ids[i]),
                                      pending.contains(std::string(name))};
    listed.push_back({{reasons[0] || reasons[1] || reasons[2], path_rank[s.file], s.line,
                       file_ids[s.file], kind_rank[s.kind], ids[i]},
                      i,
                      reasons});
  }
  std::sort(listed.begin(), listed.end(),
            [](const Listed& a, const Listed& b) { return a.key < b.key; });

  // The page as the statements cut it: LIMIT limit + 1 (a negative limit is none) OFFSET
  // offset (a negative offset is none).
  DeadCodePage page;
  const auto total = static_cast<std::int64_t>(listed.size());
  const std::int64_t start = std::clamp<std::int64_t>(options.offset, 0, total);
  const std::int64_t fetch =
      options.limit == std::numeric_limits<std::int64_t>::max() ? options.limit : options.limit + 1;
  const std::int64_t fetched = fetch < 0 ? total - start : std::min(fetch, total - start);
  const std::int64_t shown = std::min(std::max<std::int64_t>(options.limit, 0), fetched);
  page.truncated = fetched > shown;
  // Past the last candidate the statements count them; an empty first page counts none.
  page.total_count = fetched > 0 || options.offset > 0 ? total : 0;
  for (std::int64_t n = start; n < start + shown; ++n) {
    const Listed& entry = listed[static_cast<std::size_t>(n)];
    const Definition& s = symbols[entry.symbol];
    std::vector<std::string> reasons;
    for (std::size_t r = 0; r < entry.reasons.size(); ++r) {
      if (entry.reasons[r]) reasons.push_back(detail::LIKELY_REASONS[r].second);
    }
    const DeadConfidence confidence =
        reasons.empty() ? DeadConfidence::certain : DeadConfidence::likely;
    page.symbols.push_back(UnusedSymbol{
        {std::string(s.fqn_text()), std::string(name_of(entry.symbol)), kinds[s.kind],
         files[s.file].path, s.line},
        confidence,
        std::move(reasons),
        (s.bits & TEST_USE) != 0,
    });
  }
  return page;
}

}  // namespace quarry
