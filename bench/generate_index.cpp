#include "generate_index.h"

#include <array>
#include <random>
#include <string_view>
#include <vector>

#include "storage/database.h"

namespace quarry::bench {

namespace {

constexpr std::int64_t SYMBOLS_PER_FILE = 50;
constexpr std::int64_t COMPONENTS = 20;

class Generator {
 public:
  Generator(Database& db, const GenerateOptions& options)
      : db_(db), options_(options), rng_(options.seed) {}

  void run() {
    for (std::int64_t c = 0; c < COMPONENTS; ++c)
      db_.fetchall("INSERT INTO components (id, name) VALUES (?, ?)",
                   {c + 1, "comp" + std::to_string(c)});
    const std::int64_t files = std::max<std::int64_t>(1, options_.symbols / SYMBOLS_PER_FILE);
    for (std::int64_t f = 1; f <= files && next_id_ <= options_.symbols; ++f)
      add_file(f, f == files ? options_.symbols - next_id_ + 1 : SYMBOLS_PER_FILE);
    add_edges();
    for (std::int64_t i = 0; i < options_.symbols / 20; ++i)
      db_.fetchall("INSERT INTO pending_references (target_name) VALUES (?)", {pooled_name()});
  }

 private:
  std::int64_t below(std::int64_t n) {
    return static_cast<std::int64_t>(rng_() % static_cast<std::uint64_t>(n));
  }
  bool chance(int percent) { return below(100) < percent; }

  // Names repeat across the code base, a few of them very often.
  std::string pooled_name() {
    const std::int64_t pool = std::max<std::int64_t>(1, options_.symbols / 4);
    const double u = static_cast<double>(below(1'000'000)) / 1'000'000.0;
    static constexpr std::array<std::string_view, 6> PREFIXES{"",       "",        "",
                                                              "visit_", "handle_", "get_"};
    const auto k = static_cast<std::int64_t>(static_cast<double>(pool) * u * u * u);
    return std::string(PREFIXES[static_cast<std::size_t>(below(PREFIXES.size()))]) + "name" +
           std::to_string(k);
  }

  std::int64_t add_symbol(std::int64_t file, const std::string& name, std::string_view kind,
                          const std::string& fqn, std::int64_t line, const Value& signature) {
    const std::int64_t id = next_id_++;
    db_.fetchall(
        "INSERT INTO symbols (id, file_id, name, kind, fqn, start_line, end_line, signature, "
        "is_export) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
        {id, file, name, std::string(kind), fqn, line, line + 5, signature,
         std::int64_t{chance(10) ? 1 : 0}});
    return id;
  }

  void add_file(std::int64_t file, std::int64_t count) {
    const std::int64_t component = file % COMPONENTS;
    std::string module = "comp" + std::to_string(component) + ".mod" + std::to_string(file);
    std::string path = "comp" + std::to_string(component) + "/mod" + std::to_string(file) + ".py";
    std::string language = "python";
    if (file % 10 == 0) {
      module = "tests.test_mod" + std::to_string(file);
      path = "tests/test_mod" + std::to_string(file) + ".py";
    } else if (file % 37 == 0) {
      module = "docs.page" + std::to_string(file);
      path = "docs/page" + std::to_string(file) + ".md";
      language = "markdown";
    }
    db_.fetchall("INSERT INTO files (id, path, language, component_id) VALUES (?, ?, ?, ?)",
                 {file, path, language, component + 1});

    add_symbol(file, "mod" + std::to_string(file), "module", module, 1, Value());
    std::int64_t line = 2;
    std::string owner;  // the class or function that later definitions may belong to
    std::string_view owner_kind;
    for (std::int64_t i = 1; i < count; ++i, line += 7) {
      const std::string name = pooled_name();
      const std::int64_t roll = below(100);
      if (roll < 12) {
        owner = module + "." + name;
        owner_kind = "class";
        const std::string signature = chance(30)   ? "class " + name + "(Base):"
                                      : chance(10) ? "class " + name + " extends Base"
                                                   : "class " + name + ":";
        hierarchy_candidates_.push_back(add_symbol(file, name, "class", owner, line, signature));
      } else if (roll < 55 && owner_kind == "class") {
        add_symbol(file, name, "method", owner + "." + name, line, "def " + name + "(self):");
      } else if (roll < 62 && !owner.empty()) {
        add_symbol(file, name, "function", owner + "." + name, line, "def " + name + "():");
      } else if (roll < 70) {
        add_symbol(file, "NAME" + std::to_string(i), "constant",
                   module + ".NAME" + std::to_string(i), line, Value());
      } else {
        owner = module + "." + name;
        owner_kind = "function";
        const std::string signature =
            chance(5) ? "@decorator def " + name + "():" : "def " + name + "():";
        add_symbol(file, name, "function", owner, line, signature);
      }
    }
  }

  void add_edges() {
    static constexpr std::array<std::string_view, 6> KINDS{"call",   "call",      "call",
                                                           "import", "reference", "type"};
    static constexpr std::array<std::string_view, 8> RESOLUTIONS{
        "exact", "exact", "exact", "import", "local", "ambiguous", "model", ""};
    const std::int64_t symbols = next_id_ - 1;
    // Every fourth symbol is never the target of an edge: ids 1 + k + k / 3 skip them.
    const std::int64_t reachable = std::max<std::int64_t>(1, symbols * 3 / 4);
    for (std::int64_t i = 0; i < options_.edges; ++i) {
      const std::int64_t source = 1 + below(symbols);
      if (chance(3) && hierarchy_candidates_.size() > 1) {
        const auto pick = [&] {
          return hierarchy_candidates_[static_cast<std::size_t>(
              below(static_cast<std::int64_t>(hierarchy_candidates_.size())))];
        };
        db_.fetchall(
            "INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (?, ?, ?, "
            "?, ?)",
            {pick(), pick(), std::string("inherits"), std::string("exact"), Value()});
        continue;
      }
      // Targets are skewed towards the first symbols, as uses gather on a few.
      const double u = static_cast<double>(below(1'000'000)) / 1'000'000.0;
      const auto k = static_cast<std::int64_t>(static_cast<double>(reachable) * u * u);
      const std::int64_t target = 1 + k + k / 3;
      const std::string_view resolution =
          RESOLUTIONS[static_cast<std::size_t>(below(RESOLUTIONS.size()))];
      db_.fetchall(
          "INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (?, ?, ?, ?, "
          "?)",
          {source, target, std::string(KINDS[static_cast<std::size_t>(below(KINDS.size()))]),
           resolution.empty() ? Value() : Value(std::string(resolution)), 1 + below(500)});
    }
  }

  Database& db_;
  const GenerateOptions& options_;
  std::mt19937_64 rng_;
  std::int64_t next_id_ = 1;
  std::vector<std::int64_t> hierarchy_candidates_;
};

}  // namespace

void generate_index(const std::string& path, const GenerateOptions& options) {
  Database db = create_index(path, false);
  db.execute("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN");
  Generator(db, options).run();
  db.execute("COMMIT");
  db.execute(INDEX_LOOKUPS_SQL);
}

}  // namespace quarry::bench
