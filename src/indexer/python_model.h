// What the indexer learns from one Python file before names are bound across files:
// its definitions, its scopes with the names each binds, and the uses of names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quarry::indexer {

// What a name is bound to in one scope.
struct Binding {
  enum class Kind {
    definition,     // a definition of this file (`definition` is its index)
    module,         // an imported module (`module`)
    imported_name,  // `name` imported from `module`
    instance,       // self or cls in a method: an instance of the class `definition`
    value,          // a local value of unknown type (parameter, local variable)
  };
  Kind kind = Kind::value;
  int definition = -1;
  std::string module;
  std::string name;
  // Further definitions of the same name in the same scope (a name defined twice).
  std::vector<int> also;
  // For a value assigned from a call, `x = Cls()`: the called chain and the scope it is
  // looked up in, so that x can be known as an instance of Cls.
  std::vector<std::string> made_by;
  int made_in = -1;
};

// One row of `symbols`, local to its file.
struct Definition {
  std::string name;
  std::string kind;
  std::string fqn;
  std::int64_t start_line = 0;
  std::int64_t end_line = 0;
  std::optional<std::string> signature;
  bool is_export = false;
  // For an import binding: what it binds, so that re-exports can be followed.
  std::optional<Binding> import;
  // For a class: the scope of its body, where its members are bound.
  int body_scope = -1;
  // For a variable assigned from a call, `X = Cls()`: the called chain and its scope.
  std::vector<std::string> made_by;
  int made_in = -1;
};

struct Scope {
  enum class Kind { module, class_body, function, lambda };
  Kind kind = Kind::module;
  int parent = -1;
  // The definition that uses in this scope are attributed to (the innermost enclosing
  // definition; the module's top-level symbol for module-level code).
  int owner = 0;
  // The class whose method this scope is the body of, or -1.
  int method_of = -1;
  std::string fqn;
  std::unordered_map<std::string, Binding> bindings;
  std::vector<std::string> globals;  // names declared global or nonlocal here
};

enum class UseKind { call, reference, type, decorates, inherits, import };

// A use of a name: the head name looked up in `scope`, then attributes, in `chain`.
// An empty head stands for super().
struct Use {
  UseKind kind = UseKind::reference;
  int scope = 0;
  int source = 0;  // the definition the edge comes from
  std::vector<std::string> chain;
  std::int64_t line = 0;
  // For an import: what it imported (the chain is empty).
  std::optional<Binding> imported;
};

// A string that names definitions of the repository (see python_strings.h).
struct StringUse {
  enum class Kind {
    path,    // the whole string is a dotted path: "pkg.mod.f", "pkg.mod:Class.method"
    name,    // a name that code looks up: getattr(x, "name"), globals()["name"]
    prefix,  // the start of names that code looks up: getattr(x, "on_" + event)
    beside,  // a name written beside dotted paths in one literal: ("pkg.mod", "Name")
  };
  Kind kind = Kind::path;
  int scope = 0;
  int source = 0;    // the definition the edge comes from
  std::string text;  // the path, the name or the prefix
  // For a name or prefix: the object it is looked up on, as a chain read in `scope`; empty
  // when that object is no chain.
  std::vector<std::string> receiver;
  // For a name or prefix: the module it is looked up in, when code names that module itself
  // (globals(), importlib.import_module("m"), sys.modules["m"]). For a name beside paths:
  // those paths, in source order.
  std::vector<std::string> modules;
  std::int64_t line = 0;

  bool operator==(const StringUse&) const = default;
};

struct FileModel {
  std::string path;
  std::string module;       // dotted module name
  bool is_package = false;  // an __init__ file
  // definitions[0] is the module, definitions[1] its top-level code.
  std::vector<Definition> definitions;
  std::vector<Scope> scopes;  // scopes[0] is the module scope
  std::vector<Use> uses;
  std::vector<std::string> star_imports;  // modules imported with "*"
  std::vector<std::string> warnings;
  std::vector<StringUse> string_uses;
};

// The head of a chain whose value is an expression of unknown type: `f().m()`.
inline constexpr std::string_view UNKNOWN_VALUE = "?";

inline constexpr int MODULE_DEFINITION = 0;
inline constexpr int TOPLEVEL_DEFINITION = 1;
inline constexpr int MODULE_SCOPE = 0;

}  // namespace quarry::indexer
