#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "test_index.h"

namespace quarry {
namespace {

using Json = nlohmann::ordered_json;
using Args = std::vector<std::string>;

// Runs quarry dead-code on `db` with `args`.
testing::CliResult run(const std::string& db, Args args) {
  args.insert(args.begin(), {"--db", db, "dead-code"});
  return testing::run_cli(std::move(args));
}

TEST(CliDeadCode, JsonHasTheContractKeysInOrder) {
  const auto r = run(QUARRY_EXAMPLE_DB, {"--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const Json page = Json::parse(r.out);
  // Ordered objects compare their keys in order.
  EXPECT_EQ(page, (Json{{"total_count", 4}, {"truncated", false}, {"symbols", page["symbols"]}}));
  // The one likely candidate.
  EXPECT_EQ(page["symbols"].at(3), Json::parse(R"({
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
      {{"--component", "shop.billing"},
       {"tax.py:20", "Likely unused", "invoice.py:25", "2 of 2 unused definitions shown\n"},
       "cart.py"}};
  for (const auto& [options, texts, absent] : cases) {
    const auto r = run(QUARRY_EXAMPLE_DB, options);
    ASSERT_EQ(r.status, 0) << r.err;
    std::size_t at = 0;
    for (const std::string& text : texts) {
      at = r.out.find(text, at);
      EXPECT_NE(at, std::string::npos) << text << "\nin:\n" << r.out;
    }
    EXPECT_EQ(r.out.find(absent), std::string::npos) << r.out;
  }
}

TEST(CliDeadCode, RuntimeMembersRepeatAndBadNumbersAreUsageErrors) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  for (const char* name : {"get", "put", "pop"})
    index.symbol(f, name, "method", std::string("a.C.") + name);
  index.close();
  const auto r =
      run(index.path(), {"--runtime-member", "put", "--runtime-member", "get", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Json::parse(r.out)["total_count"], 1);  // only pop

  const std::vector<Args> usage = {{"--offset", "-3"},
                                   {"--limit", "ten"},
                                   {"--offset", ""},
                                   {"--runtime-member"},
                                   {"--limit", "99999999999999999999"},
                                   {"--runtime-member", "get", "put"}};
  for (const auto& options : usage) {
    const auto bad = run(index.path(), options);
    EXPECT_EQ(bad.status, 2) << options.front();
    EXPECT_TRUE(bad.err.starts_with("quarry: error: ")) << bad.err;
    EXPECT_TRUE(bad.out.empty());
  }
}

}  // namespace
}  // namespace quarry
