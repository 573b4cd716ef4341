// Steps that the Python and script readers share when they make a FileModel: the records
// they begin with, the bindings they keep, the room they give back.
#pragma once

#include <tree_sitter/api.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "indexer/model_store.h"
#include "indexer/python_model.h"

namespace quarry::indexer {

// An expression of attributes and calls read from its outer end down to where it starts,
// as both readers walk one: a long chain is walked once, not once per link.
struct ChainWalk {
  std::vector<std::string> names;  // in source order once finish() has run
  // The calls inside the chain: the length of the chain each calls, and its node.
  std::vector<std::pair<std::size_t, TSNode>> calls;
  TSNode base{};  // what a chain that starts from no name starts from
  bool has_base = false;

  // A call met on the way down (the outermost first): its result is the next name.
  void met_call(TSNode call) {
    met_.emplace_back(names.size(), call);
    names.emplace_back(CALL_RESULT);
  }
  // Once the start is reached: the names in source order, and the calls with their lengths.
  void finish() {
    std::reverse(names.begin(), names.end());
    for (const auto& [at, call] : met_)
      calls.emplace_back(names.size() - 1 - at, call);
  }

 private:
  std::vector<std::pair<std::size_t, TSNode>> met_;
};

// Adds to `model` (with its `module` set, and nothing else yet) the definitions of its
// module, named `name`, and of its top-level code, and its module scope, stored in `store`.
void add_module_definitions(FileModel& model, ModelStore& store, std::string_view name);

// Stores in `scope` the names `bindings` holds, in the order it walks them (which orders
// some guessed edges), and their order by name when there are more than MAX_SCOPE_SCAN.
void keep_bindings(Scope& scope, const BindingMap& bindings, ModelStore& store);

// A binding of an import: of `module`, or of `name` imported from it, stored in `store`.
Binding imported_binding(ModelStore& store, Binding::Kind kind, std::string_view module,
                         std::string_view name = {});

// Makes `binding` stand for `definition` too (a name defined twice, a fallback of an import).
void bind_also(ModelStore& store, Binding& binding, int definition);

// The qualified name of `name` bound in the scope named `scope_fqn`, stored in `store`.
std::string_view member_fqn(ModelStore& store, std::string_view scope_fqn, std::string_view name);

// The chain of BUILTIN_VALUE alone, stored in `store`.
Chain builtin_chain(ModelStore& store);

// Adds to `to` those of `from` it lacks, up to MAX_TYPE_HINTS.
void add_hints(std::vector<TypeHint>& to, std::vector<TypeHint> from);

// Adds `from` to the hints `to` of a model, stored anew in `store` when they grow.
void add_hints(ModelStore& store, std::span<const TypeHint>& to, std::vector<TypeHint> from);

// The hints of the attribute `name` of the instances of class `cls`, which then has it.
std::span<const TypeHint>& attribute_hints(ModelStore& store, Definition& cls,
                                           std::string_view name);

// Frees the spare room of the model's lists: the models of all files are held until every
// file is resolved.
void shrink_model(FileModel& model);

}  // namespace quarry::indexer
