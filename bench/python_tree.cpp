#include "python_tree.h"

#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace quarry::bench {

namespace {

constexpr int MODULES_PER_PACKAGE = 20;
constexpr int FUNCTIONS_PER_MODULE = 12;
constexpr int CLASSES_PER_MODULE = 3;
constexpr int METHODS_PER_CLASS = 5;

std::string module_name(int module) {
  return "pkg" + std::to_string(module / MODULES_PER_PACKAGE) + ".mod" + std::to_string(module);
}

std::string module_path(int module) {
  return "pkg" + std::to_string(module / MODULES_PER_PACKAGE) + "/mod" + std::to_string(module) +
         ".py";
}

// One module: imports of a few earlier and later modules (so files import each other in
// cycles), classes deriving from a class of another module, and functions.
std::string module_source(int module, int modules, std::mt19937_64& random, std::size_t& lines) {
  std::uniform_int_distribution<int> pick_module(0, modules - 1);
  std::uniform_int_distribution<int> pick_function(0, FUNCTIONS_PER_MODULE - 1);
  std::uniform_int_distribution<int> pick_method(0, METHODS_PER_CLASS - 1);
  std::string text = "\"\"\"Generated module " + std::to_string(module) + ".\"\"\"\n";
  std::vector<int> imported;
  for (int i = 0; i < 3; ++i) {
    const int other = i == 0 ? (module + 1) % modules : pick_module(random);
    if (other == module) continue;
    imported.push_back(other);
    text += "from " + module_name(other) + " import func0 as f" + std::to_string(other) +
            ", Class0 as C" + std::to_string(other) + "\n";
  }
  text += "import " + module_name(imported.empty() ? module : imported.front()) + " as peer\n\n";
  text += "LIMIT = " + std::to_string(module) + "\nregistry = {}\n\n\n";
  text +=
      "def route(path):\n    def wrap(handler):\n        registry[path] = handler\n"
      "        return handler\n    return wrap\n\n\n";
  for (int c = 0; c < CLASSES_PER_MODULE; ++c) {
    const std::string base =
        c == 0 && !imported.empty() ? "(C" + std::to_string(imported[0]) + ")" : "";
    text += "class Class" + std::to_string(c) + base + ":\n";
    text += "    KIND = \"c" + std::to_string(c) + "\"\n\n";
    for (int m = 0; m < METHODS_PER_CLASS; ++m) {
      text += "    def method" + std::to_string(m) + "(self, value: int) -> int:\n";
      text += "        total = value + self.method" + std::to_string(pick_method(random)) +
              "(value - 1) if value > 0 else 0\n";
      text += "        helper = make_helper()\n";
      text += "        total += helper.method" + std::to_string(pick_method(random)) + "(value)\n";
      text += "        return total + func" + std::to_string(pick_function(random)) + "(value)\n\n";
    }
    text += "\n";
  }
  for (int f = 0; f < FUNCTIONS_PER_MODULE; ++f) {
    if (f % 4 == 1) text += "@route(\"/f" + std::to_string(f) + "\")\n";
    text += "def func" + std::to_string(f) + "(value):\n";
    text += "    if value <= 0:\n        return LIMIT\n";
    text += "    result = func" + std::to_string(pick_function(random)) + "(value - 1)\n";
    if (!imported.empty()) {
      const int other = imported[static_cast<std::size_t>(f) % imported.size()];
      text += "    result += f" + std::to_string(other) + "(value // 2)\n";
      text += "    item = C" + std::to_string(other) + "()\n";
      text += "    result += item.method" + std::to_string(pick_method(random)) + "(value)\n";
    }
    text += "    result += peer.func" + std::to_string(pick_function(random)) + "(value // 3)\n";
    text += "    return [x * 2 for x in range(result)] and result\n\n\n";
  }
  text +=
      "def make_helper():\n    return Class" + std::to_string(module % CLASSES_PER_MODULE) + "()\n";
  for (char c : text)
    lines += c == '\n' ? 1 : 0;
  return text;
}

std::string test_source(int module, std::size_t& lines) {
  std::string text = "from " + module_name(module) + " import func0, Class1\n\n\n";
  text += "def test_func0():\n    assert func0(3) >= 0\n\n\n";
  text += "def test_class1():\n    assert Class1().method0(2) >= 0\n";
  for (char c : text)
    lines += c == '\n' ? 1 : 0;
  return text;
}

}  // namespace

std::size_t write_python_tree(const std::filesystem::path& root, std::size_t min_lines,
                              std::uint64_t seed) {
  std::mt19937_64 random(seed);
  // Estimate the modules needed from one module's size, then write them all.
  std::size_t probe_lines = 0;
  {
    std::mt19937_64 probe(seed);
    module_source(0, 2, probe, probe_lines);
  }
  const int modules = static_cast<int>(min_lines / probe_lines + 1);
  std::size_t lines = 0;
  for (int p = 0; p * MODULES_PER_PACKAGE < modules; ++p) {
    const auto package = root / ("pkg" + std::to_string(p));
    std::filesystem::create_directories(package);
    std::ofstream(package / "__init__.py") << "";
  }
  std::filesystem::create_directories(root / "tests");
  for (int m = 0; m < modules; ++m) {
    std::ofstream(root / module_path(m)) << module_source(m, modules, random, lines);
    if (m % 10 == 0) {
      std::ofstream(root / "tests" / ("test_mod" + std::to_string(m) + ".py"))
          << test_source(m, lines);
    }
  }
  return lines;
}

}  // namespace quarry::bench
