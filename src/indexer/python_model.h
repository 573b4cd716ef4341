// What the indexer learns from one Python file before names are bound across files:
// its definitions, its scopes with the names each binds, and the uses of names.
//
// The records hold their names, chains and lists as views into the ModelStore of the
// parser that read the file (FileModel::store keeps it alive): a repository has millions
// of uses and bindings, and a record of a few words with no allocation of its own keeps
// all of them in memory at a fraction of the size.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "indexer/model_store.h"
#include "models/symbol.h"

namespace quarry::indexer {

// Where the type of a value can be read from. Chains are looked up in `scope` of the file
// that holds the hint; their elements are names, CALL_RESULT for the value a call returns,
// and UNKNOWN_VALUE never.
struct TypeHint {
  enum class Kind {
    call,        // the value a call of `chain` returns: `x = Session()`, `x = make()`
    annotation,  // an instance of the class `chain` names: `x: Session`, `except E as x`
    name,        // the value `chain` stands for: `self.session = session`
  };
  Kind kind = Kind::name;
  int scope = 0;
  Chain chain;

  bool operator==(const TypeHint& other) const {
    return kind == other.kind && scope == other.scope && std::ranges::equal(chain, other.chain);
  }
};

// The most hints kept for one value, one function's result or one attribute of a class.
inline constexpr std::size_t MAX_TYPE_HINTS = 4;

// What a name is bound to in one scope.
struct Binding {
  enum class Kind : std::uint8_t {
    definition,     // a definition of this file (`definition` is its index)
    module,         // an imported module (`module()`); with a `name()`, that export of the
                    // module when it has one (a script's default import), else the module
    imported_name,  // `name()` imported from `module()`
    instance,       // self or cls in a method: an instance of the class `definition`
    value,          // a local value of unknown type (parameter, local variable)
  };
  // What only imports, parameters and names defined twice have: kept apart, so that the
  // million bindings of a large repository stay small.
  struct Details {
    std::string_view module;
    std::string_view name;
    // Further definitions of the same name in the same scope (a name defined twice).
    std::span<const int> also;
    // For a parameter without an annotation: what its default value is (`loader=Loader`),
    // read when no call of the repository tells what it is given.
    std::span<const TypeHint> defaults;
  };
  Kind kind = Kind::value;
  // For a parameter (a value whose `definition` is its function and `name()` its own): the
  // arguments of the function's calls tell its type too.
  bool parameter = false;
  int definition = -1;
  // For a value: where its type can be read from (its annotation, what it is assigned).
  std::span<const TypeHint> hints;
  const Details* details = nullptr;

  std::string_view module() const { return details ? details->module : std::string_view(); }
  std::string_view name() const { return details ? details->name : std::string_view(); }
  std::span<const int> also() const { return details ? details->also : std::span<const int>(); }
  std::span<const TypeHint> defaults() const {
    return details ? details->defaults : std::span<const TypeHint>();
  }
};

// A name bound in a scope, and what to.
struct NamedBinding {
  std::string_view name;
  Binding binding;
};

// The names a scope binds while its file is read; the model keeps them as a Scope's
// `bindings`. Keyed by views into the store and hashed as the names themselves.
using BindingMap = std::unordered_map<std::string_view, Binding>;

// An attribute of a class's instances and where its type can be read from.
struct Attribute {
  std::string_view name;
  std::span<const TypeHint> hints;
};

// One row of `symbols`, local to its file.
struct Definition {
  std::string_view name;
  std::string_view kind;  // one of symbol_kind's, or TOPLEVEL_KIND
  std::string_view fqn;
  std::int64_t start_line = 0;
  std::int64_t end_line = 0;
  std::optional<std::string_view> signature;
  bool is_export = false;
  // For an import binding: what it binds, so that re-exports can be followed.
  const Binding* import = nullptr;
  // For a class (or a script's exported object literal): the scope of its body, where its
  // members are bound.
  int body_scope = -1;
  // For a variable: where its type can be read from; for a function: its return
  // annotation, or without one what its return statements return.
  std::span<const TypeHint> hints;
  bool returns_annotated = false;
  // For a function or method: the names of its parameters that an argument can be given
  // by position, in order (self included).
  std::span<const std::string_view> parameters;
  // For a class: the types of the attributes its methods assign (`self.x = ...`) or that
  // its body annotates, in the order first met.
  std::vector<Attribute> attributes;

  // The attribute `name` of the class's instances, or null.
  const Attribute* attribute(std::string_view name) const {
    auto it = std::ranges::find(attributes, name, &Attribute::name);
    return it == attributes.end() ? nullptr : &*it;
  }
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
  std::string_view fqn;
  // The names bound here, in the order the parser's BindingMap of them walks them (which
  // orders some guessed edges).
  std::span<const NamedBinding> bindings;
  // Indexes into `bindings` in name order, for a scope with more than a few names.
  std::span<const std::uint32_t> by_name;

  // What `name` is bound to here, or null.
  const Binding* find(std::string_view name) const {
    const auto name_at = [&](std::uint32_t i) { return bindings[i].name; };
    if (by_name.empty()) {
      auto it = std::ranges::find(bindings, name, &NamedBinding::name);
      return it == bindings.end() ? nullptr : &it->binding;
    }
    auto it = std::ranges::lower_bound(by_name, name, {}, name_at);
    return it == by_name.end() || bindings[*it].name != name ? nullptr : &bindings[*it].binding;
  }
};

// Scopes with more names than this are looked up through Scope::by_name.
inline constexpr std::size_t MAX_SCOPE_SCAN = 8;

enum class UseKind : std::uint8_t {
  call,
  reference,
  type,
  decorates,
  inherits,
  implements,
  import
};

// An argument of a call: its position among the positional arguments (or -1), or its
// keyword, and what it is.
struct Argument {
  int position = -1;
  std::string_view keyword;
  TypeHint hint;

  bool operator==(const Argument&) const = default;
};

// A use of a name: the head name looked up in `scope`, then attributes, in `chain`.
// An empty head stands for super(). A use with `imported` set is an import's: its edge
// goes to what the binding names (an import, or a type-only import in TypeScript).
struct Use {
  UseKind kind = UseKind::reference;
  // How many arguments `argument_data` holds: at most MAX_ARGUMENT_HINTS + MAX_TYPE_HINTS.
  std::uint8_t argument_count = 0;
  int scope = 0;
  int source = 0;  // the definition the edge comes from
  std::uint32_t line = 0;
  Chain chain;
  // For an import: what it imported (the chain is empty).
  const Binding* imported = nullptr;
  const Argument* argument_data = nullptr;

  // For a call: what its arguments are, as far as a hint tells (names, attributes, calls).
  std::span<const Argument> arguments() const { return {argument_data, argument_count}; }
};

// The longest chain that is followed name by name; a call further down a longer chain is
// known only by its name (`...x.m()` is a guess at m), so that a chain of n calls costs
// n steps, not n * n.
inline constexpr std::size_t MAX_CHAIN_LENGTH = 32;

// The most arguments of one call whose values are recorded.
inline constexpr std::size_t MAX_ARGUMENT_HINTS = 8;

// A string that names definitions of the repository (see python_strings.h).
struct StringUse {
  enum class Kind {
    path,    // the whole string is a dotted path: "pkg.mod.f", "pkg.mod:Class.method"
    name,    // a name that code looks up: getattr(x, "name"), globals()["name"]
    prefix,  // the start of names that code looks up: getattr(x, "on_" + event)
    beside,  // a name written beside dotted paths in one literal: ("pkg.mod", "Name")
    handed,  // the start of names handed to a call: run(x, "on_" + event)
    every,   // every name of a module's namespace: globals().values(), dir(module)
  };
  Kind kind = Kind::path;
  int scope = 0;
  int source = 0;    // the definition the edge comes from
  std::string text;  // the path, the name or the prefix
  // For a name or prefix: the object it is looked up on, as a chain read in `scope`; empty
  // when that object is no chain. For a prefix handed to a call: the called name alone.
  std::vector<std::string> receiver;
  // For a name or prefix: the module it is looked up in, when code names that module itself
  // (globals(), importlib.import_module("m"), sys.modules["m"]). For a name beside paths:
  // those paths, in source order.
  std::vector<std::string> modules;
  std::int64_t line = 0;

  bool operator==(const StringUse&) const = default;
};

struct FileModel {
  // Holds what the records view; shared by the models of files one parser read.
  std::shared_ptr<const ModelStore> store;
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
  // The names a JavaScript or TypeScript module exports, sorted: what an entry file of a
  // package makes public.
  std::vector<std::string_view> exports;
};

// How the call sites of names that the repository defines were bound: to definitions of
// the repository, on evidence to something outside it (dict.get on a dict), by a guess
// between same-named definitions, or not at all.
struct CallBindings {
  std::size_t in_repository = 0;
  std::size_t outside = 0;
  std::size_t guessed = 0;
  std::size_t unbound = 0;

  CallBindings& operator+=(const CallBindings& other) {
    in_repository += other.in_repository;
    outside += other.outside;
    guessed += other.guessed;
    unbound += other.unbound;
    return *this;
  }
  std::size_t total() const { return in_repository + outside + guessed + unbound; }
  bool operator==(const CallBindings&) const = default;
};

// The head of a chain whose value is an expression of unknown type: `xs[0].m()`.
inline constexpr std::string_view UNKNOWN_VALUE = "?";
// The head of a chain whose value is a literal of a builtin type: `", ".join(xs)`, and of
// the hint of a value assigned one (`options = {}`) or collected by `*args` or `**kwargs`.
inline constexpr std::string_view BUILTIN_VALUE = "!";
// A chain element for the value that calling the chain before it returns: `f().m()` is
// {f, "()", m}.
inline constexpr std::string_view CALL_RESULT = "()";

// Whether a definition of this kind can be called: a function, a method or a class.
inline bool is_callable_kind(std::string_view kind) {
  return kind == symbol_kind::FUNCTION || kind == symbol_kind::METHOD || kind == symbol_kind::CLASS;
}

// Whether `name` is a special name ("__iter__"), one that the runtime looks up itself.
inline bool is_special_name(std::string_view name) {
  return name.size() > 4 && name.starts_with("__") && name.ends_with("__");
}

inline constexpr int MODULE_DEFINITION = 0;
inline constexpr int TOPLEVEL_DEFINITION = 1;
inline constexpr int MODULE_SCOPE = 0;

}  // namespace quarry::indexer
