// The bundled example project, indexed and asked the four questions through the command
// line, gives the answers it was written to show.
#include <gtest/gtest.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <set>
#include <sstream>

#include "test_index.h"

namespace quarry {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

class ExampleProject : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_ = testing::copy_example_project("quarry_bookstore");
    ASSERT_EQ(run({"index", root_.string()}).first, 0);
  }
  static void TearDownTestSuite() { fs::remove_all(root_); }

  static std::pair<int, std::string> run(std::vector<std::string> args) {
    if (args[0] != "index") {
      args.insert(args.end(), {"--json", "--db", (root_ / ".quarry" / "index.db").string()});
    }
    const auto result = testing::run_cli(std::move(args));
    return {result.status, result.out + result.err};
  }

  static Json query(std::vector<std::string> args) {
    const auto [status, text] = run(std::move(args));
    EXPECT_EQ(status, 0) << text;
    return Json::parse(text);
  }

  static std::set<std::string> strings(const Json& list, const char* key) {
    std::set<std::string> out;
    for (const auto& item : list)
      out.insert(item[key].get<std::string>());
    return out;
  }

  static fs::path root_;
};

fs::path ExampleProject::root_;

TEST_F(ExampleProject, DeadCode) {
  const Json page = query({"dead-code"});
  std::map<std::string, std::pair<std::string, bool>> listed;
  for (const auto& symbol : page["symbols"]) {
    listed[symbol["fqn"]] = {symbol["confidence"], symbol["used_by_tests"]};
  }
  const std::map<std::string, std::pair<std::string, bool>> expected = {
      {"bookstore.handlers.unused_helper", {"certain", false}},
      {"bookstore.pricing.legacy_rounding", {"certain", false}},
      {"bookstore.storage.orders.export_orders", {"certain", true}},
      {"bookstore.catalog.Book.price", {"likely", false}},
  };
  EXPECT_EQ(listed, expected);
}

TEST_F(ExampleProject, Cycles) {
  const Json files = query({"cycles", "--level", "file"});
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0]["nodes"], Json({"bookstore/catalog.py", "bookstore/pricing.py"}));
  const Json components = query({"cycles"});
  ASSERT_EQ(components.size(), 1u);
  EXPECT_EQ(components[0]["nodes"], Json({"bookstore", "bookstore.storage"}));
  EXPECT_EQ(components[0]["cycle"], Json({"bookstore", "bookstore.storage", "bookstore"}));
}

TEST_F(ExampleProject, CallersAndImpact) {
  EXPECT_EQ(strings(query({"callers", "bookstore.pricing.price_with_tax"}), "fqn"),
            (std::set<std::string>{"bookstore.catalog.Book.price", "bookstore.pricing.discounted",
                                   "bookstore.storage.orders.save_order",
                                   "tests.test_pricing.test_price_with_tax"}));
  const Json impact = query({"impact", "bookstore.pricing.price_with_tax"});
  EXPECT_EQ(impact["affected_components"], Json({"bookstore", "bookstore.storage"}));
  EXPECT_EQ(impact["affected_tests"], Json::array());
  EXPECT_EQ(strings(impact["transitive_callers"], "fqn").count("bookstore.catalog.Catalog.total"),
            1u);
  const Json with_tests = query({"impact", "bookstore.pricing.price_with_tax", "--include-tests"});
  EXPECT_EQ(with_tests["affected_tests"], Json({"tests/test_pricing.py"}));
}

}  // namespace
}  // namespace quarry
