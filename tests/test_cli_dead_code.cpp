#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

#include "test_index.h"

namespace quarry {
namespace {

using Json = nlohmann::ordered_json;
using Args = std::vector<std::string>;

// Runs quarry on `db` with `args`; returns the status and what went to stdout and stderr.
std::tuple<int, std::string, std::string> run(const std::string& db, Args args) {
  args.insert(args.begin(), {"--db", db, "dead-code"});
  auto [status, out, err] = testing::run_cli(std::move(args));
  return {status, std::move(out), std::move(err)};
}

// The example's candidates in listing order: three certain, then one likely.
const Args EXAMPLE = {"shop.api.handlers.Page", "shop.billing.tax.old_rate",
                      "shop.cart.legacy_discount", "shop.billing.invoice.format_amount"};

TEST(CliDeadCode, JsonPagesWithTheContractKeys) {
  const std::vector<std::tuple<Args, Args, bool, int>> cases = {
      {{}, EXAMPLE, false, 4},
      {{"--limit", "2", "--offset", "1"}, {EXAMPLE[1], EXAMPLE[2]}, true, 4},
      {{"--limit", "0"}, {}, true, 4},
      {{"--offset", "4"}, {}, false, 4},
      {{"--component", "shop.billing"}, {EXAMPLE[1], EXAMPLE[3]}, false, 2},
      {{"--component", "nowhere"}, {}, false, 0}};
  for (const auto& [options, fqns, truncated, total] : cases) {
    Args args = options;
    args.push_back("--json");
    const auto [status, out, err] = run(QUARRY_EXAMPLE_DB, args);
    ASSERT_EQ(status, 0) << err;
    const Json page = Json::parse(out);
    EXPECT_EQ(page, (Json{{"total_count", total},
                          {"truncated", truncated},
                          {"symbols", page["symbols"]}}));  // keys in this order
    Args listed;
    for (const auto& s : page["symbols"])
      listed.push_back(s["fqn"]);
    EXPECT_EQ(listed, fqns);
  }
  const Json likely = Json::parse(std::get<1>(run(QUARRY_EXAMPLE_DB, {"--json"})))["symbols"][3];
  EXPECT_EQ(likely, Json::parse(R"({
      "fqn": "shop.billing.invoice.format_amount", "name": "format_amount",
      "kind": "function", "file": "shop/billing/invoice.py", "line": 25, "confidence": "likely",
      "reasons": ["its only uses are guesses between same-named definitions",
                  "a reference to its name is not bound yet"], "used_by_tests": false})"));
}

TEST(CliDeadCode, TextListsCertainThenLikelyAndTheNextOffset) {
  // Each case: the options, texts that appear in this order, a text that must not.
  const std::vector<std::tuple<Args, Args, std::string>> cases = {
      {{},
       {"Certainly unused", "shop/api/handlers.py:15  class     shop.api.handlers.Page",
        "shop/cart.py:30", "Likely unused",
        "shop/billing/invoice.py:25  function  shop.billing.invoice.format_amount  its only uses "
        "are guesses between same-named definitions; a reference to its name is not bound yet",
        "4 of 4 unused definitions shown\n"},
       "next page"},
      {{"--limit", "2", "--offset", "1"},
       {"tax.py:20", "cart.py:30", "2 of 4 unused definitions shown; next page: --offset 3\n"},
       "Likely"},
      {{"--offset", "3"}, {"Likely unused", "1 of 4 unused definitions shown\n"}, "Certainly"}};
  for (const auto& [options, texts, absent] : cases) {
    const auto [status, out, err] = run(QUARRY_EXAMPLE_DB, options);
    ASSERT_EQ(status, 0) << err;
    std::size_t at = 0;
    for (const std::string& text : texts) {
      at = out.find(text, at);
      EXPECT_NE(at, std::string::npos) << text << "\nin:\n" << out;
    }
    EXPECT_EQ(out.find(absent), std::string::npos) << out;
  }
}

TEST(CliDeadCode, RuntimeMembersRepeatAndBadNumbersAreUsageErrors) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  for (const char* name : {"get", "put", "pop"})
    index.symbol(f, name, "method", std::string("a.C.") + name);
  index.close();
  const std::string before = testing::file_bytes(index.path());
  const auto [status, out, err] =
      run(index.path(), {"--runtime-member", "put", "--runtime-member", "get", "--json"});
  ASSERT_EQ(status, 0) << err;
  EXPECT_EQ(Json::parse(out)["symbols"][0]["fqn"], "a.C.pop");
  EXPECT_EQ(Json::parse(out)["total_count"], 1);
  EXPECT_EQ(testing::file_bytes(index.path()), before);

  const std::vector<Args> usage = {{"--limit", "-1"},
                                   {"--offset", "-3"},
                                   {"--limit", "ten"},
                                   {"--offset", ""},
                                   {"--limit"},
                                   {"--runtime-member"},
                                   {"--offset", "1e3"},
                                   {"--runtime-member", "get", "put"},
                                   {"--limit", "99999999999999999999"}};
  for (const auto& options : usage) {
    const auto [bad, bad_out, bad_err] = run(index.path(), options);
    EXPECT_EQ(bad, 2) << options.front();
    EXPECT_TRUE(bad_err.starts_with("quarry: error: ")) << bad_err;
    EXPECT_TRUE(bad_out.empty());
  }
}

}  // namespace
}  // namespace quarry
