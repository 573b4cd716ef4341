#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "indexer/model_store.h"
#include "indexer/python_parser.h"
#include "indexer/script_parser.h"

namespace quarry {
namespace {

using indexer::Chain;
using indexer::ModelStore;

// Whether a name is bound in a scope of a model.
struct BoundCase {
  int scope;
  std::string name;
  bool bound;
};

void expect_bound(const indexer::FileModel& model, const std::vector<BoundCase>& cases) {
  for (const BoundCase& c : cases) {
    const indexer::Binding* found = model.scopes[static_cast<std::size_t>(c.scope)].find(c.name);
    EXPECT_EQ(found != nullptr, c.bound) << c.scope << " " << c.name;
  }
}

// What a store hands out stays where it is and as it was while the store grows past its
// blocks, and equal names and chains are stored once.
TEST(ModelStore, KeepsWhatItStoresAndStoresNamesOnce) {
  ModelStore store;
  const std::string_view first = store.name("session");
  const Chain chain = store.chain(std::vector<std::string>{"self", "session", "get"});
  const std::string large(600 * 1024, 'x');  // more than a block: stored on its own
  const std::string_view copied = store.copy(large);
  std::vector<std::string_view> names;
  for (int i = 0; i < 100000; ++i)
    names.push_back(store.name("name_" + std::to_string(i)));

  EXPECT_EQ(store.name(std::string("session")).data(), first.data());
  EXPECT_EQ(store.chain(std::vector<std::string_view>{"self", "session", "get"}).data(),
            chain.data());
  EXPECT_NE(store.chain(std::vector<std::string>{"self", "session"}).data(), chain.data());
  EXPECT_EQ(chain[1].data(), first.data());
  EXPECT_EQ(copied, large);
  for (int i = 0; i < 100000; i += 997)
    EXPECT_EQ(names[static_cast<std::size_t>(i)], "name_" + std::to_string(i));
  // An empty text has data, so that it is written as a text and not as NULL.
  EXPECT_NE(store.name("").data(), nullptr);
  EXPECT_NE(store.copy(std::string()).data(), nullptr);

  const std::vector<int> ints{3, 1, 2};
  const auto stored = store.copy(ints);
  EXPECT_EQ(std::vector<int>(stored.begin(), stored.end()), ints);
  const auto longer = store.append(stored, 4);
  EXPECT_EQ(std::vector<int>(longer.begin(), longer.end()), (std::vector<int>{3, 1, 2, 4}));
  EXPECT_EQ(stored.size(), 3u);
}

// A scope finds each name it binds, whether it is scanned (a few names) or searched by its
// index in name order (more), and nothing else; the model outlives its parser.
TEST(ModelStore, ScopesFindTheirNamesAfterTheParserIsGone) {
  std::string source = "import os\nfrom pkg import thing as alias\n";
  for (int i = 0; i < 12; ++i)
    source += "value_" + std::to_string(i) + " = " + std::to_string(i) + "\n";
  source += "def f(a, b):\n    c = a\n    return c\n";
  indexer::FileModel model;
  {
    indexer::PythonParser parser;
    model = parser.parse("pkg/mod.py", source);
  }
  const int function = 1;
  const std::vector<BoundCase> cases = {
      {0, "os", true},       {0, "alias", true},     {0, "thing", false},    {0, "value_0", true},
      {0, "value_11", true}, {0, "value_12", false}, {0, "f", true},         {0, "a", false},
      {function, "a", true}, {function, "c", true},  {function, "f", false},
  };
  ASSERT_EQ(model.scopes.size(), 2u);
  EXPECT_GT(model.scopes[0].bindings.size(), indexer::MAX_SCOPE_SCAN);
  EXPECT_EQ(model.scopes[0].by_name.size(), model.scopes[0].bindings.size());
  EXPECT_TRUE(model.scopes[function].by_name.empty());
  expect_bound(model, cases);
  const indexer::Binding* alias = model.scopes[0].find("alias");
  ASSERT_NE(alias, nullptr);
  EXPECT_EQ(alias->module(), "pkg");
  EXPECT_EQ(alias->name(), "thing");
  EXPECT_EQ(model.scopes[function].find("b")->name(), "b");
}

// A script file's model as well: its scopes' names, its imports and its exports are views
// into the store of a parser that is gone.
TEST(ModelStore, ScriptModelsOutliveTheirParser) {
  std::string source = "import x from './b';\nimport { y as z } from './b';\n";
  for (int i = 0; i < 10; ++i)
    source += "export const v_" + std::to_string(i) + " = " + std::to_string(i) + ";\n";
  source += "export function f(a, b) { return g(a); }\nfunction g(c) { return c; }\n";
  const indexer::ScriptModules modules({"src/a.ts", "src/b.ts"}, {});
  indexer::FileModel model;
  {
    indexer::ScriptParser parser(modules);
    model = parser.parse("src/a.ts", source);
  }
  const int function = 1;
  const std::vector<BoundCase> cases = {
      {0, "x", true},        {0, "z", true},        {0, "y", false},        {0, "v_0", true},
      {0, "v_9", true},      {0, "f", true},        {0, "g", true},         {0, "a", false},
      {function, "a", true}, {function, "b", true}, {function, "g", false},
  };
  ASSERT_GT(model.scopes.size(), 1u);
  EXPECT_EQ(model.scopes[0].by_name.size(), model.scopes[0].bindings.size());
  expect_bound(model, cases);
  const indexer::Binding* x = model.scopes[0].find("x");
  ASSERT_NE(x, nullptr);
  EXPECT_EQ(x->kind, indexer::Binding::Kind::module);
  EXPECT_EQ(x->module(), "src/b");
  EXPECT_EQ(x->name(), "default");
  EXPECT_EQ(model.scopes[0].find("z")->name(), "y");
  EXPECT_EQ(model.scopes[function].find("b")->name(), "b");
  const std::vector<std::string_view> exports = {"f",   "v_0", "v_1", "v_2", "v_3", "v_4",
                                                 "v_5", "v_6", "v_7", "v_8", "v_9"};
  EXPECT_EQ(model.exports, exports);
  // The call of g in f, with its argument.
  const auto call = std::ranges::find_if(model.uses, [](const indexer::Use& use) {
    return use.kind == indexer::UseKind::call && use.chain.size() == 1 && use.chain[0] == "g";
  });
  ASSERT_NE(call, model.uses.end());
  ASSERT_EQ(call->arguments().size(), 1u);
  EXPECT_EQ(call->arguments()[0].hint.chain[0], "a");
}

}  // namespace
}  // namespace quarry
