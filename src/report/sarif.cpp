// SARIF 2.1.0 output of dead code and cycles: one run of the tool quarry, with the rules of
// the report and one result per finding.
#include <algorithm>
#include <ostream>

#include "report/findings.h"
#include "report/text.h"

namespace quarry::report::detail {

namespace {

constexpr std::string_view SCHEMA = "https://json.schemastore.org/sarif-2.1.0.json";
constexpr std::string_view ROOT_ID = "SRCROOT";
constexpr std::string_view FINGERPRINT = "quarryFindingId/v1";

// `path` as the path of a URI: every byte but the unreserved characters and '/' is
// percent-encoded, so that spaces, '#', '?', ':' and bytes that are not UTF-8 survive.
std::string uri_path(std::string_view path) {
  static constexpr std::string_view HEX = "0123456789ABCDEF";
  std::string out;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                       (byte >= '0' && byte <= '9') || c == '-' || c == '.' || c == '_' ||
                       c == '~' || c == '/';
    if (plain) {
      out += c;
    } else {
      out += '%';
      out += HEX[byte >> 4];
      out += HEX[byte & 15];
    }
  }
  return out;
}

Json rule_json(const Rule& rule) {
  return Json{{"id", rule.id},
              {"name", rule.name},
              {"shortDescription", {{"text", rule.short_description}}},
              {"fullDescription", {{"text", rule.full_description}}},
              {"help", {{"text", rule.help}}},
              {"defaultConfiguration", {{"level", rule.level}}},
              {"properties", {{"precision", rule.precision}, {"tags", {"maintainability"}}}}};
}

// A file of the repository, relative to SRCROOT.
Json artifact(std::string_view path) {
  return Json{{"uri", uri_path(path)}, {"uriBaseId", ROOT_ID}};
}

// The SARIF kind of a logical location for a symbol kind, or "" for none that fits.
std::string_view logical_kind(std::string_view kind) {
  if (kind == "function") return "function";
  if (kind == "method") return "member";
  if (kind == "class") return "type";
  if (kind == "module") return "module";
  if (kind == "variable" || kind == "constant") return "variable";
  return "";
}

// A result of `rule` with its message and fingerprint; locations are added by the caller.
Json result(std::span<const Rule> rules, const Rule& rule, const std::string& text,
            const std::string& id) {
  const auto index = static_cast<std::size_t>(&rule - rules.data());
  return Json{{"ruleId", rule.id},
              {"ruleIndex", index},
              {"level", rule.level},
              {"message", {{"text", text}}},
              {"locations", Json::array()},
              {"partialFingerprints", {{FINGERPRINT, id}}},
              {"properties", {{"precision", rule.precision}}}};
}

Json result(const UnusedSymbol& symbol) {
  Json found = result(dead_code_rules(), rule_of(symbol), message(symbol), finding_id(symbol));
  Json logical{{"name", symbol.name}, {"fullyQualifiedName", symbol.fqn}};
  if (const auto kind = logical_kind(symbol.kind); !kind.empty()) logical["kind"] = kind;
  // A definition without a line of its own (a module's) is reported at the top of its file.
  found["locations"].push_back(
      Json{{"physicalLocation",
            {{"artifactLocation", artifact(symbol.file)},
             {"region", {{"startLine", std::max<std::int64_t>(symbol.line, 1)}}}}},
           {"logicalLocations", Json::array({std::move(logical)})}});
  return found;
}

Json result(const CycleComponent& cycle, std::string_view level) {
  Json found =
      result(cycle_rules(), rule_of_cycle(level), message(cycle, level), finding_id(cycle));
  if (level == "component") {
    // A component is no file: its members are named as logical locations only.
    Json members = Json::array();
    for (const std::string& node : cycle.nodes)
      members.push_back(Json{{"name", node}, {"fullyQualifiedName", node}, {"kind", "module"}});
    found["locations"].push_back(Json{{"logicalLocations", std::move(members)}});
    return found;
  }
  // A file cycle is shown at its first member; the others are related to it.
  found["locations"].push_back(Json{
      {"physicalLocation",
       {{"artifactLocation", artifact(cycle.nodes.front())}, {"region", {{"startLine", 1}}}}}});
  Json related = Json::array();
  for (std::size_t i = 1; i < cycle.nodes.size(); ++i) {
    related.push_back(Json{{"id", i},
                           {"physicalLocation", {{"artifactLocation", artifact(cycle.nodes[i])}}},
                           {"message", {{"text", "member of the cycle"}}}});
  }
  if (!related.empty()) found["relatedLocations"] = std::move(related);
  return found;
}

void print_log(const RenderContext& context, std::span<const Rule> rules, Json results) {
  Json driver{{"name", "quarry"}};
  if (!context.version.empty()) driver["version"] = context.version;
  Json rule_list = Json::array();
  for (const Rule& rule : rules)
    rule_list.push_back(rule_json(rule));
  driver["rules"] = std::move(rule_list);
  Json run{{"tool", {{"driver", std::move(driver)}}}};
  if (!context.root.empty()) {
    std::string uri = "file://" + uri_path(context.root);
    if (!uri.ends_with('/')) uri += '/';
    run["originalUriBaseIds"] = {{ROOT_ID, {{"uri", std::move(uri)}}}};
  }
  run["results"] = std::move(results);
  print_json(
      *context.out,
      Json{{"$schema", SCHEMA}, {"version", "2.1.0"}, {"runs", Json::array({std::move(run)})}});
}

}  // namespace

void render_sarif(const RenderContext& context, const DeadCodeReport& report) {
  Json results = Json::array();
  for (const UnusedSymbol& symbol : report.page.symbols)
    results.push_back(result(symbol));
  print_log(context, dead_code_rules(), std::move(results));
}

void render_sarif(const RenderContext& context, const CyclesReport& report) {
  Json results = Json::array();
  for (const CycleFinding& finding : report.cycles)
    results.push_back(result(finding.cycle, report.level));
  print_log(context, cycle_rules(), std::move(results));
}

}  // namespace quarry::report::detail
