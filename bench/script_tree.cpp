#include "script_tree.h"

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

std::string module_path(int module) {
  return "pkg" + std::to_string(module / MODULES_PER_PACKAGE) + "/mod" + std::to_string(module);
}

// The specifier of module `to` as imported from module `from`.
std::string specifier(int from, int to) {
  if (from / MODULES_PER_PACKAGE == to / MODULES_PER_PACKAGE) return "./mod" + std::to_string(to);
  return "../" + module_path(to);
}

std::size_t count_lines(const std::string& text) {
  std::size_t lines = 0;
  for (char c : text)
    lines += c == '\n' ? 1 : 0;
  return lines;
}

// One module: imports of a few earlier and later modules (so files import each other in
// cycles), classes deriving from a class of another module, and functions.
std::string module_source(int module, int modules, std::mt19937_64& random) {
  std::uniform_int_distribution<int> pick_module(0, modules - 1);
  std::uniform_int_distribution<int> pick_function(0, FUNCTIONS_PER_MODULE - 1);
  std::uniform_int_distribution<int> pick_method(0, METHODS_PER_CLASS - 1);
  const std::string id = std::to_string(module);
  std::string text = "// Generated module " + id + ".\n";
  std::vector<int> imported;
  for (int i = 0; i < 3; ++i) {
    const int other = i == 0 ? (module + 1) % modules : pick_module(random);
    if (other == module) continue;
    imported.push_back(other);
    const std::string o = std::to_string(other);
    text += "import { func0 as f" + o + ", Class0 as C" + o + " } from '" +
            specifier(module, other) + "';\n";
  }
  text += "import * as peer from '" +
          specifier(module, imported.empty() ? module : imported.front()) + "';\n\n";
  text += "export const LIMIT = " + id + ";\nconst registry: Record<string, Handler> = {};\n\n";
  text += "export interface Handler {\n  (value: number): number;\n}\n\n";
  text +=
      "export function route(path: string) {\n"
      "  return (target: object, key: string, descriptor: PropertyDescriptor) => {\n"
      "    registry[path] = descriptor.value;\n    return descriptor;\n  };\n}\n\n";
  for (int c = 0; c < CLASSES_PER_MODULE; ++c) {
    const std::string base =
        c == 0 && !imported.empty() ? " extends C" + std::to_string(imported[0]) : "";
    text += "export class Class" + std::to_string(c) + base + " {\n";
    text += "  kind = 'c" + std::to_string(c) + "';\n\n";
    for (int m = 0; m < METHODS_PER_CLASS; ++m) {
      if (m == 0) text += "  @route('/c" + std::to_string(c) + "')\n";
      text += "  method" + std::to_string(m) + "(value: number): number {\n";
      text += "    let total = value > 0 ? value + this.method" +
              std::to_string(pick_method(random)) + "(value - 1) : 0;\n";
      text += "    const helper = makeHelper();\n";
      text += "    total += helper.method" + std::to_string(pick_method(random)) + "(value);\n";
      text += "    return total + func" + std::to_string(pick_function(random)) + "(value);\n";
      text += "  }\n\n";
    }
    text += "}\n\n";
  }
  for (int f = 0; f < FUNCTIONS_PER_MODULE; ++f) {
    const std::string name = "func" + std::to_string(f);
    if (f % 4 == 3) {
      text += "export const " + name + " = (value: number): number => {\n";
    } else {
      text += "export function " + name + "(value: number): number {\n";
    }
    text += "  if (value <= 0) {\n    return LIMIT;\n  }\n";
    text += "  let result = func" + std::to_string(pick_function(random)) + "(value - 1);\n";
    if (!imported.empty()) {
      const std::string other =
          std::to_string(imported[static_cast<std::size_t>(f) % imported.size()]);
      text += "  result += f" + other + "(Math.floor(value / 2));\n";
      text += "  const item = new C" + other + "();\n";
      text += "  result += item.method" + std::to_string(pick_method(random)) + "(value);\n";
    }
    text += "  result += peer.func" + std::to_string(pick_function(random)) +
            "(Math.floor(value / 3));\n";
    text += "  return [1, 2, 3].map((x) => x * 2).length + result;\n";
    text += f % 4 == 3 ? "};\n\n" : "}\n\n";
  }
  text += "export function makeHelper(): Class" + std::to_string(module % CLASSES_PER_MODULE) +
          " {\n  return new Class" + std::to_string(module % CLASSES_PER_MODULE) + "();\n}\n";
  return text;
}

// A component per package, rendering one of its modules' results.
std::string component_source(int package) {
  const int module = package * MODULES_PER_PACKAGE;
  return "import { func1 } from './mod" + std::to_string(module) + "';\n\n" +
         "export function Panel(props: { value: number }) {\n"
         "  return <div className=\"panel\">{func1(props.value)}</div>;\n}\n\n"
         "export function Page() {\n  return <Panel value={3} />;\n}\n";
}

std::string test_source(int module) {
  return "import { func0, Class1 } from '../" + module_path(module) + "';\n\n" +
         "test('func0', () => {\n  expect(func0(3)).toBeGreaterThanOrEqual(0);\n});\n\n"
         "test('Class1', () => {\n  expect(new Class1().method0(2)).toBeGreaterThanOrEqual(0);\n"
         "});\n";
}

}  // namespace

std::size_t write_script_tree(const std::filesystem::path& root, std::size_t min_lines,
                              std::uint64_t seed) {
  std::mt19937_64 random(seed);
  // Estimate the modules needed from one module's size, then write them all.
  std::size_t probe_lines = 0;
  {
    std::mt19937_64 probe(seed);
    probe_lines = count_lines(module_source(0, 2, probe));
  }
  const int modules = static_cast<int>(min_lines / probe_lines + 1);
  std::size_t lines = 0;
  const auto write = [&](const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
    lines += count_lines(text);
  };
  write(root / "package.json", "{\n  \"name\": \"generated\",\n  \"main\": \"pkg0/mod0.ts\"\n}\n");
  for (int m = 0; m < modules; ++m) {
    write(root / (module_path(m) + ".ts"), module_source(m, modules, random));
    if (m % MODULES_PER_PACKAGE == 0) {
      write(root / ("pkg" + std::to_string(m / MODULES_PER_PACKAGE)) / "Panel.tsx",
            component_source(m / MODULES_PER_PACKAGE));
    }
    if (m % 10 == 0)
      write(root / "tests" / ("mod" + std::to_string(m) + ".test.ts"), test_source(m));
  }
  return lines;
}

}  // namespace quarry::bench
