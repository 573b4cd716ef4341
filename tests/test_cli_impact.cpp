#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "test_index.h"

namespace quarry {
namespace {

std::pair<int, std::string> run(std::vector<std::string> args) {
  args.insert(args.begin(), {"--db", QUARRY_EXAMPLE_DB, "impact"});
  const auto result = testing::run_cli(std::move(args));
  return {result.status, result.out + result.err};
}

std::vector<std::string> keys(const nlohmann::ordered_json& object) {
  std::vector<std::string> names;
  for (const auto& [key, value] : object.items())
    names.push_back(key);
  return names;
}

TEST(CliImpact, JsonKeysScoreOptionsAndText) {
  const std::string total = "shop.cart.Cart.total";
  const auto [status, out] = run({total, "--json"});
  ASSERT_EQ(status, 0) << out;
  const auto json = nlohmann::ordered_json::parse(out);
  EXPECT_EQ(keys(json), (std::vector<std::string>{"fqn", "direct_callers", "transitive_callers",
                                                  "affected_files", "affected_components",
                                                  "affected_tests", "impact_score", "depth"}));
  EXPECT_EQ(keys(json["direct_callers"].at(0)),
            (std::vector<std::string>{"id", "name", "kind", "fqn", "line", "call_line", "file",
                                      "depth"}));
  // 4 of 7 files in 3 components, in its shortest form.
  EXPECT_NE(out.find("\"impact_score\": 0.546,"), std::string::npos) << out;

  const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> cases = {
      {{total, "--depth", "-4", "--json"}, {"\"transitive_callers\": []", "\"depth\": 1\n"}},
      {{total, "--include-tests"},
       {"impact score 0.632", "shop/cart.py:22", "shop/cart.py:23", "tests/test_cart.py:4",
        "Affected tests\n  tests/test_cart.py\n",
        "2 direct callers, 3 transitive callers, 5 files, 3 components, 1 test affected"}},
  };
  for (const auto& [args, shown] : cases) {
    const auto result = run(args);
    EXPECT_EQ(result.first, 0) << result.second;
    for (const std::string& text : shown)
      EXPECT_NE(result.second.find(text), std::string::npos) << text << "\n" << result.second;
  }
  EXPECT_EQ(run({total, "--depth", "2x"}).first, 2);
}

}  // namespace
}  // namespace quarry
