// Binds the uses of names of every Python file to definitions of the repository.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
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

// Whether `name` is one of Python's builtins (print, len, object, ValueError, ...).
bool is_python_builtin(std::string_view name);

// Symbol ids are given to the definitions of `files` in order, from `first_id` on: file 0's
// definitions first. The files must outlive the resolver.
class PythonResolver {
 public:
  PythonResolver(const std::vector<FileModel>& files, std::int64_t first_id = 1);

  // The symbol id of definition `definition` of file `file`.
  std::int64_t symbol_id(std::size_t file, int definition) const;

  // The edges and pending references of one file. Safe to call from several threads.
  FileLinks resolve(std::size_t file) const;

  // How many type hints one binding is followed through at most: `x = a.b()` with b
  // annotated, a.b's value held in an attribute, and so on.
  static constexpr int INFERENCE_DEPTH = 4;

 private:
  struct Value;
  Value resolve_chain(std::size_t file, const Use& use, std::string_view& resolution) const;
  Value value_of(std::size_t file, const Binding& binding, int depth) const;
  Value value_of_hints(std::size_t file, const std::vector<TypeHint>& hints, int depth) const;
  Value value_of_chain(std::size_t file, int scope, const std::vector<std::string>& chain,
                       int depth) const;
  Value instance_of(const Value& value) const;
  Value call_result(const Value& value, int depth) const;
  Value resolve_from(const std::string& module, const std::string& name) const;
  Value module_value(const std::string& module) const;
  std::vector<std::int64_t> lookup_order(const std::vector<std::int64_t>& classes) const;
  Value member(const std::vector<std::int64_t>& classes, const std::string& name,
               bool skip_own) const;
  Value instance_attribute(const std::vector<std::int64_t>& classes, const std::string& name,
                           int depth) const;
  Value attribute(const Value& value, const std::string& name, int depth) const;
  const Binding* lookup(std::size_t file, int scope, const std::string& name) const;
  const Definition& definition(std::int64_t id) const;
  std::size_t file_of(std::int64_t id) const;
  void linearize(std::int64_t cls);

  const std::vector<FileModel>& files_;
  std::vector<std::int64_t> first_ids_;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> where_;  // id - first_id -> (file, def)
  std::int64_t first_id_;
  std::unordered_map<std::string, std::vector<std::int64_t>> by_fqn_;
  std::unordered_map<std::string, std::size_t> module_files_;
  // Methods and nested classes by name, and methods alone, each sorted by fqn.
  std::unordered_map<std::string, std::vector<std::int64_t>> members_by_name_;
  std::unordered_map<std::string, std::vector<std::int64_t>> methods_by_name_;
  // The names of the repository's functions, methods and classes.
  std::unordered_set<std::string> callable_names_;
  std::unordered_map<std::int64_t, std::vector<std::int64_t>> bases_;
  // Classes with a base that is no class of the repository (object, dict, an import).
  std::set<std::int64_t> open_classes_;
  // Method resolution order of each class with a base in the repository, itself first.
  std::unordered_map<std::int64_t, std::vector<std::int64_t>> mro_;
};

}  // namespace quarry::indexer
