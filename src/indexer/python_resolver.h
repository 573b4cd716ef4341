// Binds the uses of names of every Python file to definitions of the repository.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "indexer/python_model.h"

namespace quarry::indexer {

struct ResolvedEdge {
  std::int64_t source;
  std::int64_t target;
  std::string_view kind;
  std::string_view resolution;
  std::int64_t line;

  bool operator==(const ResolvedEdge&) const = default;
};

struct PendingReference {
  std::int64_t source;
  std::string name;
  std::int64_t line;

  bool operator==(const PendingReference&) const = default;
};

struct FileLinks {
  std::vector<ResolvedEdge> edges;
  std::vector<PendingReference> pending;
  CallBindings calls;
};

// The most guessed edges one call of a method on a value of unknown type makes.
inline constexpr std::size_t MAX_GUESSES = 5;

// The most classes deriving from a class that are searched for a member the class lacks
// (`self.parse()` in a mixin): beyond, the member is guessed at by name.
inline constexpr std::size_t MAX_DERIVED_LOOKED_UP = 64;

// The most exports of a script module that one use of the module as a value references.
inline constexpr std::size_t MAX_EXPORTS_LISTED = 1000;

// Whether `name` is one of Python's builtins (print, len, object, ValueError, ...).
bool is_python_builtin(std::string_view name);

// The symbol id of the first definition of each of `files` when their definitions are
// numbered in order from `first_id` on: file 0's definitions first.
std::vector<std::int64_t> first_symbol_ids(const std::vector<FileModel>& files,
                                           std::int64_t first_id = 1);

// Symbol ids are given to the definitions of `files` as first_symbol_ids numbers them. The
// files must outlive the resolver.
class PythonResolver {
 public:
  PythonResolver(const std::vector<FileModel>& files, std::int64_t first_id = 1);

  // The symbol id of definition `definition` of file `file`.
  std::int64_t symbol_id(std::size_t file, int definition) const;

  // The edges and pending references of one file. Safe to call from several threads.
  FileLinks resolve(std::size_t file) const;

  // How many type hints one binding is followed through at most: `x = a.b()` with b
  // annotated, a.b's value held in an attribute, and so on.
  static constexpr int INFERENCE_DEPTH = 8;

  // Lookups for names that code gives as strings (python_strings.cpp). All are safe to
  // call from several threads.

  // The symbol of `module` when it is a module of the index.
  std::optional<std::int64_t> module_symbol(std::string_view module) const;

  // What `chain` (as in Use::chain) stands for when read in `scope` of `file`, when that is
  // a module or classes of the index: the module's symbol, or the classes it names or is an
  // instance of. Empty for anything else.
  std::vector<std::int64_t> owners_of(std::size_t file, int scope, Chain chain) const;

  // The attribute `name` of `owner`, a module symbol or a class: the definitions it names in
  // the module (re-exports followed) or in the class and its bases, or a submodule's symbol.
  // Empty when there is none or `owner` is neither.
  std::vector<std::int64_t> attribute_of(std::int64_t owner, std::string_view name) const;

  // The classes `classes`, then their bases as far as the index knows them, in method
  // resolution order, each once.
  std::vector<std::int64_t> hierarchy_of(const std::vector<std::int64_t>& classes) const;

  // The classes of the repository that derive from any of `classes`, directly or not,
  // each once, in no particular order; `classes` themselves only where one derives from
  // another. Stops soon after more than `limit` are found.
  std::vector<std::int64_t> subclasses_of(const std::vector<std::int64_t>& classes,
                                          std::size_t limit = SIZE_MAX) const;

  // The functions, classes and methods named `name`, in fqn order.
  const std::vector<std::int64_t>& callables_named(std::string_view name) const;

  // The functions and methods of the repository's Python files whose names start with
  // `prefix`, in id order. The first call builds a list of them in name order; calls may
  // come from several threads.
  std::vector<std::int64_t> python_callables_starting(std::string_view prefix) const;

  // The file and the definition index of symbol `id`.
  std::pair<std::size_t, int> location_of(std::int64_t id) const;

 private:
  struct Value;
  // A class of the repository that a chain reads an attribute of (`Color.RED`,
  // `Limits.helper()`), and how the chain's head was bound.
  // The classes of `file` that derive from a class whose __init_subclass__ the repository
  // defines may be used by that method (a registry by subclassing): a guessed edge from it
  // to each (guessed, so that the base's file never depends on its subclasses').
  void registered_by_bases(std::size_t file, FileLinks& links) const;
  // Whether definition `inner` lies in the body of definition `outer` (same file, and its
  // qualified name continues `outer`'s).
  bool is_inside(std::int64_t inner, std::int64_t outer) const;
  struct ReadClass {
    std::int64_t id;
    std::string_view resolution;
  };
  Value resolve_chain(std::size_t file, int scope, Chain chain, std::string_view& resolution,
                      std::vector<ReadClass>* read_classes = nullptr) const;
  Value value_of(std::size_t file, const Binding& binding, int depth) const;
  Value value_of_hints(std::size_t file, std::span<const TypeHint> hints, int depth) const;
  Value value_of_chain(std::size_t file, int scope, Chain chain, int depth) const;
  Value instance_of(const Value& value) const;
  Value call_result(const Value& value, int depth) const;
  Value resolve_from(std::string_view module, std::string_view name) const;
  Value module_value(std::string_view module) const;
  std::vector<std::int64_t> exports_of(std::string_view module) const;
  std::vector<std::int64_t> lookup_order(const std::vector<std::int64_t>& classes) const;
  Value member(const std::vector<std::int64_t>& classes, std::string_view name,
               bool skip_own) const;
  Value instance_attribute(const std::vector<std::int64_t>& classes, std::string_view name,
                           int depth) const;
  Value attribute(const Value& value, std::string_view name, int depth) const;
  const Binding* lookup(std::size_t file, int scope, std::string_view name) const;
  const Definition& definition(std::int64_t id) const;
  std::size_t file_of(std::int64_t id) const;
  void linearize(std::int64_t cls);
  // The (definition, method) pairs handed_outside has guessed at in one file.
  struct PairHash {
    std::size_t operator()(const std::pair<std::int64_t, std::int64_t>& p) const {
      return std::hash<std::int64_t>()(p.first) * 31 + std::hash<std::int64_t>()(p.second);
    }
  };
  using HandedOver = std::unordered_set<std::pair<std::int64_t, std::int64_t>, PairHash>;
  void handed_outside(std::size_t file, const Use& use, FileLinks& links, HandedOver& handed) const;
  void overridden_outside(std::size_t file, FileLinks& links) const;
  void collect_arguments();
  Value passed_to(std::int64_t function, std::string_view name, int depth) const;

  const std::vector<FileModel>& files_;
  std::vector<std::int64_t> first_ids_;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> where_;  // id - first_id -> (file, def)
  std::int64_t first_id_;
  // Keyed by views into the files' models.
  std::unordered_map<std::string_view, std::vector<std::int64_t>> by_fqn_;
  std::unordered_map<std::string_view, std::size_t> module_files_;
  // Methods and nested classes by name, and methods alone, each sorted by fqn.
  std::unordered_map<std::string_view, std::vector<std::int64_t>> members_by_name_;
  std::unordered_map<std::string_view, std::vector<std::int64_t>> methods_by_name_;
  // The repository's functions, methods and classes by name, sorted by fqn.
  std::unordered_map<std::string_view, std::vector<std::int64_t>> callables_by_name_;
  // The functions and methods of Python files as (name, id), in that order; built on first
  // use (python_callables_starting), which few repositories ever make.
  mutable std::vector<std::pair<std::string_view, std::int64_t>> python_callables_;
  mutable std::once_flag python_callables_built_;
  std::unordered_map<std::int64_t, std::vector<std::int64_t>> bases_;
  // The classes that name each class as a direct base.
  std::unordered_map<std::int64_t, std::vector<std::int64_t>> derived_;
  // The public methods (no leading underscore) each class defines.
  std::unordered_map<std::int64_t, std::vector<std::int64_t>> methods_of_;
  // Classes with a base that is no class of the repository (object, dict, an import).
  std::set<std::int64_t> open_classes_;
  // What the calls of a function pass as each of its parameters: (file, hint) pairs.
  std::map<std::pair<std::int64_t, std::string_view>, std::vector<std::pair<std::size_t, TypeHint>>>
      passed_;
  // Classes with a base from outside the repository that is no builtin.
  std::set<std::int64_t> framework_classes_;
  // The method resolution order of a class with a base in the repository, itself first:
  // `head`, then the order of `rest` when there is one. A class with one base is itself
  // followed by its base's order, so a chain of n classes holds n entries, not n * n / 2.
  struct ResolutionOrder {
    std::vector<std::int64_t> head;
    std::optional<std::int64_t> rest;
  };
  std::unordered_map<std::int64_t, ResolutionOrder> mro_;
  // Calls `visit(cls)` for `start` and its bases in method resolution order until it
  // returns false; whether it never did.
  template <typename Visit>
  bool each_in_order(std::int64_t start, Visit&& visit) const;
};

}  // namespace quarry::indexer
