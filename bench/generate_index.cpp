#include "generate_index.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <vector>

#include "storage/database.h"

#ifndef QUARRY_BENCH_INDEX_DIR
#define QUARRY_BENCH_INDEX_DIR "bench-indexes"
#endif

namespace quarry::bench {

namespace {

// Bumped whenever the generated shapes change, so that cached indexes are remade. A
// change of the schema or of the lookup indexes remakes them too (see schema_tag).
constexpr int GENERATOR_VERSION = 3;

constexpr std::int64_t SYMBOLS_PER_FILE = 50;
constexpr std::int64_t MIN_COMPONENTS = 20;
constexpr std::int64_t FILES_PER_COMPONENT = 200;
// Ids 1 .. 1 + HUB_COUNT are the first file's module and its hubs.
constexpr std::int64_t LAST_HUB = 1 + static_cast<std::int64_t>(HUB_COUNT);

enum class Kind : std::uint8_t { module, klass, method, function, constant };

std::string_view kind_text(Kind kind) {
  switch (kind) {
    case Kind::module:
      return "module";
    case Kind::klass:
      return "class";
    case Kind::method:
      return "method";
    case Kind::function:
      return "function";
    case Kind::constant:
      return "constant";
  }
  return "";
}

// One prepared insert, bound by position and run once per row.
class Insert {
 public:
  Insert(sqlite3* db, const char* sql) : db_(db) {
    if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) fail();
  }
  Insert(const Insert&) = delete;
  Insert& operator=(const Insert&) = delete;
  ~Insert() { sqlite3_finalize(stmt_); }

  Insert& integer(int at, std::int64_t value) {
    sqlite3_bind_int64(stmt_, at, value);
    return *this;
  }
  Insert& text(int at, std::string_view value) {
    sqlite3_bind_text(stmt_, at, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Insert& null(int at) {
    sqlite3_bind_null(stmt_, at);
    return *this;
  }
  void run() {
    if (sqlite3_step(stmt_) != SQLITE_DONE) fail();
    sqlite3_reset(stmt_);
  }

 private:
  [[noreturn]] void fail() { throw std::runtime_error(sqlite3_errmsg(db_)); }
  sqlite3* db_;
  sqlite3_stmt* stmt_ = nullptr;
};

struct FileInfo {
  std::int64_t first;  // its module symbol; its symbols are first .. next file's first - 1
  std::int64_t count;
  std::int64_t component;  // 0-based
  bool test;
  bool document;
};

class Generator {
 public:
  Generator(sqlite3* db, const GenerateOptions& options)
      : options_(options),
        rng_(options.seed),
        symbol_(db,
                "INSERT INTO symbols (id, file_id, name, kind, fqn, start_line, end_line, "
                "signature, is_export) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        edge_(db,
              "INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (?, ?, ?, "
              "?, ?)") {
    const std::int64_t files = std::max<std::int64_t>(1, options.symbols / SYMBOLS_PER_FILE);
    components_ = std::max(MIN_COMPONENTS, files / FILES_PER_COMPONENT);
    files_.reserve(static_cast<std::size_t>(files));
    kind_.assign(1, Kind::module);  // ids start at 1
    file_of_.assign(1, 0);
    name_of_.assign(1, "");
    Insert component(db, "INSERT INTO components (id, name) VALUES (?, ?)");
    for (std::int64_t c = 0; c < components_; ++c)
      component.integer(1, c + 1).text(2, "comp" + std::to_string(c)).run();
    Insert file(db, "INSERT INTO files (id, path, language, component_id) VALUES (?, ?, ?, ?)");
    for (std::int64_t f = 1; f <= files && next_id_ <= options.symbols; ++f) {
      const std::int64_t count = f == files ? options.symbols - next_id_ + 1 : SYMBOLS_PER_FILE;
      add_file(file, f, (f - 1) * components_ / files, count);
    }
    component_first_file_.assign(static_cast<std::size_t>(components_ + 1), files_.size());
    for (std::size_t f = files_.size(); f-- > 0;)
      component_first_file_[static_cast<std::size_t>(files_[f].component)] = f;
    // A component without files (only in tiny indexes) starts where the next one does.
    for (std::size_t c = static_cast<std::size_t>(components_); c-- > 0;)
      component_first_file_[c] = std::min(component_first_file_[c], component_first_file_[c + 1]);
    group_names();
  }

  void run(sqlite3* db) {
    std::int64_t budget = options_.edges;
    add_hierarchy(budget);
    add_hub_calls(budget);
    add_chains(budget);
    add_imports(budget);
    while (budget > 0) {
      add_bulk_edge();
      --budget;
    }
    Insert pending(db, "INSERT INTO pending_references (target_name) VALUES (?)");
    for (std::int64_t i = 0; i < options_.symbols / 20; ++i)
      pending.text(1, pooled_name()).run();
  }

 private:
  std::int64_t below(std::int64_t n) {
    return n <= 0 ? 0 : static_cast<std::int64_t>(rng_() % static_cast<std::uint64_t>(n));
  }
  bool chance(int percent) { return below(100) < percent; }
  // Uniform in [0, 1).
  double uniform() { return static_cast<double>(rng_() >> 11) * 0x1.0p-53; }
  // In [0, n), skewed towards 0: the density falls like 1 / sqrt(x).
  std::int64_t skewed(std::int64_t n) {
    const double u = uniform();
    return std::min(n - 1, static_cast<std::int64_t>(static_cast<double>(n) * u * u));
  }

  // Names repeat across the code base, a few of them very often.
  std::string pooled_name() {
    const std::int64_t pool = std::max<std::int64_t>(1, options_.symbols / 4);
    const double u = uniform();
    static constexpr std::array<std::string_view, 6> PREFIXES{"",       "",        "",
                                                              "visit_", "handle_", "get_"};
    const auto k = static_cast<std::int64_t>(static_cast<double>(pool) * u * u * u);
    return std::string(PREFIXES[static_cast<std::size_t>(below(PREFIXES.size()))]) + "name" +
           std::to_string(k);
  }

  std::int64_t add_symbol(std::int64_t file, const std::string& name, Kind kind,
                          const std::string& fqn, std::int64_t line, std::string_view signature,
                          bool exported) {
    const std::int64_t id = next_id_++;
    symbol_.integer(1, id)
        .integer(2, file)
        .text(3, name)
        .text(4, kind_text(kind))
        .text(5, fqn)
        .integer(6, line)
        .integer(7, line + 5);
    if (signature.empty()) {
      symbol_.null(8);
    } else {
      symbol_.text(8, signature);
    }
    symbol_.integer(9, exported ? 1 : 0).run();
    kind_.push_back(kind);
    file_of_.push_back(static_cast<std::uint32_t>(file));
    name_of_.push_back(name);
    return id;
  }

  void add_file(Insert& insert, std::int64_t file, std::int64_t component, std::int64_t count) {
    const std::string comp = "comp" + std::to_string(component);
    const std::string stem = "mod" + std::to_string(file);
    std::string module = comp + "." + stem;
    std::string path = comp + "/" + stem + ".py";
    std::string language = "python";
    const bool test = file % 10 == 0;
    const bool document = !test && file % 37 == 0;
    if (test) {
      module = comp + ".tests.test_" + stem;
      path = comp + "/tests/test_" + stem + ".py";
    } else if (document) {
      module = comp + ".docs.page" + std::to_string(file);
      path = comp + "/docs/page" + std::to_string(file) + ".md";
      language = "markdown";
    }
    insert.integer(1, file).text(2, path).text(3, language).integer(4, component + 1).run();
    files_.push_back({next_id_, count, component, test, document});

    add_symbol(file, stem, Kind::module, module, 1, "", false);
    std::int64_t line = 2;
    std::int64_t i = 1;
    if (file == 1) {
      for (; i < count && i <= static_cast<std::int64_t>(HUB_COUNT); ++i, line += 7) {
        const std::string name = "hub" + std::to_string(i - 1);
        add_symbol(file, name, Kind::function, module + "." + name, line,
                   "def " + name + "(*args):", true);
      }
    }

    std::string owner;  // the class or function that later definitions may belong to
    Kind owner_kind = Kind::module;
    std::int64_t base = 0;  // the base in the index of the current class, or 0
    for (; i < count; ++i, line += 7) {
      std::string name = pooled_name();
      const std::int64_t roll = below(100);
      const bool exported = chance(5);
      if (roll < 12) {
        base = classes_.empty() || chance(45) ? 0 : pick_base(file);
        std::string signature = "class " + name + ":";
        if (base != 0) {
          signature = "class " + name + "(" + name_of_[static_cast<std::size_t>(base)] + "):";
        } else if (chance(15)) {
          signature = "class " + name + "(ExternalBase):";  // a base outside the index
        }
        owner = module + "." + name;
        owner_kind = Kind::klass;
        const std::int64_t id =
            add_symbol(file, name, Kind::klass, owner, line, signature, exported);
        classes_.push_back(id);
        if (base != 0) bases_.emplace_back(id, base);
        methods_.emplace_back(method_ids_.size(), 0);
      } else if (roll < 55 && owner_kind == Kind::klass) {
        auto& methods = methods_.back().second;
        if (methods == 0 && chance(40)) {
          name = "__init__";
        } else if (base != 0 && chance(30)) {
          // An override: a method named like one of the base's.
          const auto [base_first, base_methods] = methods_of(base);
          if (base_methods > 0) {
            name = name_of_[static_cast<std::size_t>(
                method_ids_[base_first + static_cast<std::size_t>(
                                             below(static_cast<std::int64_t>(base_methods)))])];
          }
        }
        method_ids_.push_back(add_symbol(file, name, Kind::method, owner + "." + name, line,
                                         "def " + name + "(self):", exported));
        ++methods;
      } else if (roll < 62 && !owner.empty()) {
        add_symbol(file, name, Kind::function, owner + "." + name, line,
                   "def " + name + "():", false);
      } else if (roll < 70) {
        const std::string constant = "NAME" + std::to_string(i);
        add_symbol(file, constant, Kind::constant, module + "." + constant, line, "", false);
      } else {
        owner = module + "." + name;
        owner_kind = Kind::function;
        const std::string signature =
            chance(5) ? "@decorator def " + name + "():" : "def " + name + "():";
        add_symbol(file, name, Kind::function, owner, line, signature, exported);
      }
    }
  }

  // A base for a class of `file`: the latest class of the same file (deepening a
  // hierarchy), or an earlier class, often one of a few popular bases of the core.
  std::int64_t pick_base(std::int64_t file) {
    const std::int64_t latest = classes_.back();
    if (file_of_[static_cast<std::size_t>(latest)] == file && chance(40)) return latest;
    if (chance(30))
      return classes_[static_cast<std::size_t>(
          below(std::min<std::int64_t>(20, static_cast<std::int64_t>(classes_.size()))))];
    return classes_[static_cast<std::size_t>(skewed(static_cast<std::int64_t>(classes_.size())))];
  }

  // The methods of class `id`: where they start in method_ids_, and how many; classes are
  // recorded in id order.
  const std::pair<std::size_t, std::size_t>& methods_of(std::int64_t id) const {
    const auto at = std::lower_bound(classes_.begin(), classes_.end(), id);
    return methods_[static_cast<std::size_t>(at - classes_.begin())];
  }

  // Same-named definitions, to guess between: ids sorted by name.
  void group_names() {
    by_name_.resize(name_of_.size() - 1);
    for (std::size_t i = 0; i < by_name_.size(); ++i)
      by_name_[i] = static_cast<std::uint32_t>(i + 1);
    std::stable_sort(by_name_.begin(), by_name_.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return name_of_[a] < name_of_[b]; });
  }

  // A definition named like `id`, chosen at random among all of that name (`id` itself
  // when the one chosen must never be a target).
  std::int64_t same_named(std::int64_t id) {
    const std::string& name = name_of_[static_cast<std::size_t>(id)];
    const auto first =
        std::lower_bound(by_name_.begin(), by_name_.end(), name,
                         [&](std::uint32_t a, const std::string& n) { return name_of_[a] < n; });
    const auto last =
        std::upper_bound(first, by_name_.end(), name,
                         [&](const std::string& n, std::uint32_t a) { return n < name_of_[a]; });
    const std::int64_t named = first == last ? id : *(first + below(last - first));
    return targetable(named) ? named : id;
  }

  void edge(std::int64_t source, std::int64_t target, std::string_view kind,
            std::string_view resolution, std::int64_t& budget) {
    if (budget <= 0) return;
    --budget;
    edge_.integer(1, source).integer(2, target).text(3, kind);
    if (resolution.empty()) {
      edge_.null(4);
    } else {
      edge_.text(4, resolution);
    }
    edge_.integer(5, 1 + below(400)).run();
  }

  bool targetable(std::int64_t id) const { return id <= LAST_HUB || id % 8 != 0; }

  const FileInfo& file(std::int64_t id) const {
    return files_[static_cast<std::size_t>(file_of_[static_cast<std::size_t>(id)] - 1)];
  }

  // A function or method of file index `f` (0-based), or its module when it has none.
  std::int64_t callable_in(std::size_t f) {
    const FileInfo& info = files_[f];
    for (int attempt = 0; attempt < 8; ++attempt) {
      const std::int64_t id = info.first + below(info.count);
      const Kind kind = kind_[static_cast<std::size_t>(id)];
      if ((kind == Kind::function || kind == Kind::method) && targetable(id) && id > LAST_HUB) {
        return id;
      }
    }
    return info.first;
  }

  // A production source file index at or below `f` in component `component`'s files.
  std::size_t production_file(std::size_t f) const {
    while (f > 0 && (files_[f].test || files_[f].document))
      --f;
    return f;
  }

  void add_hierarchy(std::int64_t& budget) {
    for (const auto& [derived, base] : bases_)
      edge(derived, base, chance(5) ? "implements" : "inherits",
           file_of_[static_cast<std::size_t>(derived)] == file_of_[static_cast<std::size_t>(base)]
               ? "local"
               : "import",
           budget);
  }

  void add_hub_calls(std::int64_t& budget) {
    const std::int64_t top = std::max<std::int64_t>(10, options_.edges / 500);
    for (std::size_t rank = 0;
         rank < HUB_COUNT && 2 + static_cast<std::int64_t>(rank) <= next_id_ - 1; ++rank) {
      const std::int64_t hub = 2 + static_cast<std::int64_t>(rank);
      for (std::int64_t n = top / static_cast<std::int64_t>(rank + 1); n > 0; --n) {
        const std::size_t f =
            1 + static_cast<std::size_t>(below(static_cast<std::int64_t>(files_.size()) - 1));
        if (files_.size() < 2 || files_[f].document) continue;
        edge(callable_in(f), hub, "call", chance(70) ? "import" : "exact", budget);
      }
    }
  }

  // Chains of calls a hundred or more long, each call one layer (a few files) down.
  void add_chains(std::int64_t& budget) {
    const auto files = static_cast<std::int64_t>(files_.size());
    const std::int64_t chains = std::max<std::int64_t>(2, options_.symbols / 10'000);
    for (std::int64_t c = 0; c < chains && files > 1; ++c) {
      const std::int64_t length = 100 + below(100);
      const std::int64_t step = std::max<std::int64_t>(1, files / length);
      std::size_t f = production_file(static_cast<std::size_t>(files - 1 - below(step)));
      std::int64_t caller = callable_in(f);
      for (std::int64_t n = 0; n < length && f > 0; ++n) {
        f = production_file(f -
                            std::min<std::size_t>(f, static_cast<std::size_t>(1 + below(step))));
        const std::int64_t callee = callable_in(f);
        edge(caller, callee, "call", "exact", budget);
        caller = callee;
      }
    }
  }

  // Each module imports a few earlier modules of its component or of the core; small
  // import cycles between files of a component and between components.
  void add_imports(std::int64_t& budget) {
    for (std::size_t f = 1; f < files_.size(); ++f) {
      if (files_[f].document) continue;
      for (int n = 0; n < 4; ++n)
        edge(files_[f].first, files_[lower_file(f)].first, "import", "import", budget);
    }
    for (std::int64_t c = 0; c < components_; ++c) {
      const std::size_t begin = component_first_file_[static_cast<std::size_t>(c)];
      const std::size_t end = component_first_file_[static_cast<std::size_t>(c + 1)];
      for (int cycle = 0; cycle < 2 && end - begin > 8; ++cycle) {
        // a imports b imports c imports a, three production files of the component.
        const std::size_t a = production_file(
            begin + 2 +
            static_cast<std::size_t>(below(static_cast<std::int64_t>(end - begin - 6))));
        const std::size_t b = production_file(a + 3);
        const std::size_t d = production_file(b + 2);
        if (a == b || b == d || a == d) continue;
        edge(files_[a].first, files_[b].first, "import", "import", budget);
        edge(files_[b].first, files_[d].first, "import", "import", budget);
        edge(files_[d].first, files_[a].first, "import", "import", budget);
      }
      // Every seventh component imports one two components up, which imports it back.
      if (c % 7 == 3 && c + 2 < components_) {
        const std::size_t low =
            production_file(component_first_file_[static_cast<std::size_t>(c)] + 1);
        const std::size_t high =
            production_file(component_first_file_[static_cast<std::size_t>(c + 2)] + 1);
        edge(files_[low].first, callable_in(high), "import", "import", budget);
        edge(files_[high].first, callable_in(low), "import", "import", budget);
      }
    }
  }

  // A file index at or below `f`: of the same component, or of an earlier component
  // (most often the core).
  std::size_t lower_file(std::size_t f) {
    const auto component = static_cast<std::size_t>(files_[f].component);
    if (component == 0 || chance(70)) {
      const std::size_t first = component_first_file_[component];
      return f - static_cast<std::size_t>(below(static_cast<std::int64_t>(f - first) + 1));
    }
    const auto lower = static_cast<std::size_t>(skewed(static_cast<std::int64_t>(component)));
    const std::size_t first = component_first_file_[lower];
    const std::size_t end = component_first_file_[lower + 1];
    if (first == end) return f;  // an empty component, in a tiny index
    return first + static_cast<std::size_t>(below(static_cast<std::int64_t>(end - first)));
  }

  void add_bulk_edge() {
    std::int64_t budget = 1;
    const std::int64_t source = 1 + below(next_id_ - 1);
    const FileInfo& from = file(source);
    const std::size_t f = file_of_[static_cast<std::size_t>(source)] - 1;
    if (from.document) {
      const std::size_t to = lower_file(f);
      edge(source, files_[to].first, "link", "exact", budget);
      return;
    }

    const std::int64_t where = below(100);
    std::size_t to = f;
    if (where >= 45 && where < 80) {
      const std::size_t first = component_first_file_[static_cast<std::size_t>(from.component)];
      const std::size_t end = component_first_file_[static_cast<std::size_t>(from.component) + 1];
      if (chance(1)) {
        to = std::min(end - 1, f + 1 + static_cast<std::size_t>(below(3)));  // back up
      } else {
        to = f - static_cast<std::size_t>(below(static_cast<std::int64_t>(f - first) + 1));
      }
    } else if (where >= 80) {
      to = lower_file(f);
    }
    // Nothing but tests uses a test, and code does not use documents.
    if (to != f) to = production_file(to);

    static constexpr std::array<std::string_view, 20> KINDS{
        "call", "call", "call",   "call",   "call",      "call",      "call",
        "call", "call", "call",   "call",   "reference", "reference", "reference",
        "type", "type", "import", "import", "import",    "decorates"};
    const std::string_view kind = KINDS[static_cast<std::size_t>(below(KINDS.size()))];
    const FileInfo& into = files_[to];
    std::int64_t target = into.first;
    if (kind != "import" || chance(50))
      target += 1 + skewed(std::max<std::int64_t>(1, into.count - 1));
    target = std::min(target, into.first + into.count - 1);
    if (!targetable(target)) --target;

    const std::int64_t guess = below(100);
    std::string_view resolution =
        to == f ? (chance(50) ? "local" : "exact") : (chance(60) ? "import" : "exact");
    if (guess < 2) {
      resolution = "ambiguous";
      target = same_named(target);
    } else if (guess < 3) {
      resolution = "model";
      target = same_named(target);
    } else if (guess < 5) {
      resolution = "";
    }
    edge(kind == "import" ? from.first : source, target, kind, resolution, budget);
  }

  const GenerateOptions& options_;
  std::mt19937_64 rng_;
  Insert symbol_;
  Insert edge_;
  std::int64_t components_ = MIN_COMPONENTS;
  std::int64_t next_id_ = 1;
  std::vector<FileInfo> files_;
  std::vector<std::size_t> component_first_file_;  // by component, then the file count
  // By symbol id (index 0 unused).
  std::vector<Kind> kind_;
  std::vector<std::uint32_t> file_of_;
  std::vector<std::string> name_of_;
  std::vector<std::uint32_t> by_name_;
  std::vector<std::int64_t> classes_;                         // in id order
  std::vector<std::pair<std::size_t, std::size_t>> methods_;  // per class, into method_ids_
  std::vector<std::int64_t> method_ids_;                      // grouped by class
  std::vector<std::pair<std::int64_t, std::int64_t>> bases_;  // (class, its base)
};

// A short tag of the schema and lookup indexes (FNV-1a of their text), so that an index
// cached before they changed is never read.
std::string schema_tag() {
  std::uint64_t hash = 14695981039346656037ull;
  for (const std::string_view text :
       {INDEX_TABLES_SQL, INDEX_FILE_LOOKUPS_SQL, INDEX_LINK_LOOKUPS_SQL}) {
    for (const char c : text) {
      hash ^= static_cast<unsigned char>(c);
      hash *= 1099511628211ull;
    }
  }
  static constexpr char DIGITS[] = "0123456789abcdef";
  std::string tag;
  for (int shift = 60; shift >= 32; shift -= 4)
    tag += DIGITS[(hash >> shift) & 0xf];
  return tag;
}

}  // namespace

std::string_view scale_name(Scale scale) {
  switch (scale) {
    case Scale::S:
      return "S";
    case Scale::M:
      return "M";
    case Scale::L:
      return "L";
  }
  return "";
}

std::optional<Scale> parse_scale(std::string_view name) {
  for (const Scale scale : SCALES) {
    if (name.size() == 1 &&
        std::toupper(static_cast<unsigned char>(name[0])) == scale_name(scale)[0])
      return scale;
  }
  return std::nullopt;
}

GenerateOptions scale_options(Scale scale, std::uint64_t seed) {
  switch (scale) {
    case Scale::S:
      return {.symbols = 10'000, .edges = 50'000, .seed = seed};
    case Scale::M:
      return {.symbols = 100'000, .edges = 500'000, .seed = seed};
    case Scale::L:
      return {.symbols = 1'000'000, .edges = 5'000'000, .seed = seed};
  }
  return {};
}

std::string hub_fqn(std::size_t rank) {
  return "comp0.mod1.hub" + std::to_string(rank);
}

void generate_index(const std::string& path, const GenerateOptions& options) {
  if (options.symbols < 1 || options.edges < 0) {
    throw std::invalid_argument("an index needs a symbol and no negative number of edges");
  }
  Database db = create_index(path, false);
  db.execute("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN");
  {
    Generator generator(db.handle(), options);
    generator.run(db.handle());
  }
  db.execute("COMMIT");
  db.execute(INDEX_FILE_LOOKUPS_SQL);
  db.execute(INDEX_LINK_LOOKUPS_SQL);
  db.execute("ANALYZE");
}

std::filesystem::path cached_index(const GenerateOptions& options) {
  const char* variable = std::getenv("QUARRY_BENCH_INDEXES");
  const std::filesystem::path directory =
      variable != nullptr && *variable != '\0' ? variable : QUARRY_BENCH_INDEX_DIR;
  const std::filesystem::path path =
      directory / ("index-" + std::to_string(options.symbols) + "-" +
                   std::to_string(options.edges) + "-" + std::to_string(options.seed) + "-v" +
                   std::to_string(GENERATOR_VERSION) + "-" + schema_tag() + ".db");
  if (std::filesystem::exists(path)) return path;
  std::filesystem::create_directories(directory);
  std::filesystem::path temporary = path;
  temporary += ".tmp";
  std::filesystem::remove(temporary);
  try {
    generate_index(temporary.string(), options);
  } catch (...) {
    std::filesystem::remove(temporary);
    throw;
  }
  std::filesystem::rename(temporary, path);
  return path;
}

}  // namespace quarry::bench
