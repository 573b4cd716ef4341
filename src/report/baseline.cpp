#include "report/baseline.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <system_error>

namespace quarry::report {

namespace {

using Json = nlohmann::ordered_json;

std::vector<std::string> sorted(std::vector<std::string> members) {
  std::sort(members.begin(), members.end());
  return members;
}

[[noreturn]] void malformed(const std::filesystem::path& path, const std::string& what) {
  throw BaselineError(path.string() + ": not a quarry baseline: " + what);
}

// The string `entry[key]`, or an error naming the entry.
std::string string_at(const std::filesystem::path& path, const Json& entry, const char* key,
                      const char* list) {
  if (!entry.is_object() || !entry.contains(key) || !entry[key].is_string()) {
    malformed(path, std::string("an entry of '") + list + "' has no string '" + key + "'");
  }
  return entry[key].get<std::string>();
}

}  // namespace

BaselineCycle baseline_identity(const CycleComponent& cycle) {
  return {cycle.type, sorted(cycle.nodes)};
}

Baseline make_baseline(const std::vector<UnusedSymbol>& symbols,
                       const std::vector<CycleComponent>& cycles) {
  Baseline baseline;
  for (const UnusedSymbol& s : symbols)
    baseline.dead_code.insert({s.fqn, s.kind});
  for (const CycleComponent& c : cycles)
    baseline.cycles.insert(baseline_identity(c));
  return baseline;
}

Baseline read_baseline(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw BaselineError(path.string() +
                        ": cannot read the baseline file (write one with 'quarry baseline')");
  }
  std::stringstream text;
  text << in.rdbuf();
  const Json document = Json::parse(text.str(), nullptr, false);
  if (document.is_discarded()) malformed(path, "it is not JSON");
  if (!document.is_object()) malformed(path, "it is not a JSON object");
  if (!document.contains("version") || document["version"] != BASELINE_VERSION) {
    malformed(path, "its 'version' is not " + std::to_string(BASELINE_VERSION));
  }
  Baseline baseline;
  for (const char* list : {"dead_code", "cycles"}) {
    if (document.contains(list) && !document[list].is_array()) {
      malformed(path, std::string("'") + list + "' is not a list");
    }
  }
  for (const Json& entry : document.value("dead_code", Json::array())) {
    baseline.dead_code.insert(
        {string_at(path, entry, "fqn", "dead_code"), string_at(path, entry, "kind", "dead_code")});
  }
  for (const Json& entry : document.value("cycles", Json::array())) {
    BaselineCycle cycle{string_at(path, entry, "type", "cycles"), {}};
    if (!entry.contains("members") || !entry["members"].is_array()) {
      malformed(path, "an entry of 'cycles' has no list 'members'");
    }
    for (const Json& member : entry["members"]) {
      if (!member.is_string()) malformed(path, "a member of a cycle is not a string");
      cycle.members.push_back(member.get<std::string>());
    }
    cycle.members = sorted(std::move(cycle.members));
    baseline.cycles.insert(std::move(cycle));
  }
  return baseline;
}

void write_baseline(const std::filesystem::path& path, const Baseline& baseline) {
  Json dead_code = Json::array();
  for (const BaselineSymbol& s : baseline.dead_code)
    dead_code.push_back(Json{{"fqn", s.fqn}, {"kind", s.kind}});
  Json cycles = Json::array();
  for (const BaselineCycle& c : baseline.cycles)
    cycles.push_back(Json{{"type", c.type}, {"members", c.members}});
  const Json document{{"version", BASELINE_VERSION}, {"dead_code", dead_code}, {"cycles", cycles}};

  std::error_code ec;
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ec);
  std::filesystem::path temporary = path;
  temporary += ".tmp-" + std::to_string(getpid());
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    out.close();
    if (!out) {
      std::filesystem::remove(temporary, ec);
      throw std::runtime_error(path.string() + ": cannot write the baseline file");
    }
  }
  std::filesystem::rename(temporary, path, ec);
  if (ec) {
    std::filesystem::remove(temporary, ec);
    throw std::runtime_error(path.string() + ": cannot write the baseline file: " + ec.message());
  }
}

Filtered<UnusedSymbol> filter_dead_code(std::vector<UnusedSymbol> symbols, const Baseline* baseline,
                                        const std::function<bool(const std::string&)>& ignored) {
  Filtered<UnusedSymbol> result;
  std::set<BaselineSymbol> seen;
  for (UnusedSymbol& s : symbols) {
    BaselineSymbol key{s.fqn, s.kind};
    const bool known = baseline != nullptr && baseline->dead_code.contains(key);
    if (known) seen.insert(std::move(key));
    if (ignored && ignored(s.fqn)) continue;
    if (known) {
      ++result.hidden;
      continue;
    }
    result.kept.push_back(std::move(s));
  }
  if (baseline != nullptr) {
    result.stale = static_cast<std::int64_t>(baseline->dead_code.size() - seen.size());
  }
  return result;
}

std::int64_t failing_dead_code(const std::vector<UnusedSymbol>& symbols,
                               const std::string& fail_on) {
  if (fail_on == "any") return static_cast<std::int64_t>(symbols.size());
  if (fail_on != "certain" && fail_on != "likely") {
    throw std::invalid_argument("--fail-on takes certain, likely or any, not '" + fail_on + "'");
  }
  const DeadConfidence wanted =
      fail_on == "certain" ? DeadConfidence::certain : DeadConfidence::likely;
  return std::count_if(symbols.begin(), symbols.end(),
                       [&](const UnusedSymbol& s) { return s.confidence == wanted; });
}

}  // namespace quarry::report
