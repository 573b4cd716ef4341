#include "indexer/python_resolver.h"

#include <algorithm>
#include <array>
#include <deque>
#include <set>

#include "indexer/python_strings.h"
#include "indexer/script_modules.h"
#include "models/edge.h"
#include "models/symbol.h"

namespace quarry::indexer {

namespace {

// Python's builtins, sorted.
constexpr std::array<std::string_view, 165> BUILTINS{"ArithmeticError",
                                                     "AssertionError",
                                                     "AttributeError",
                                                     "BaseException",
                                                     "BaseExceptionGroup",
                                                     "BlockingIOError",
                                                     "BrokenPipeError",
                                                     "BufferError",
                                                     "BytesWarning",
                                                     "ChildProcessError",
                                                     "ConnectionAbortedError",
                                                     "ConnectionError",
                                                     "ConnectionRefusedError",
                                                     "ConnectionResetError",
                                                     "DeprecationWarning",
                                                     "EOFError",
                                                     "Ellipsis",
                                                     "EncodingWarning",
                                                     "EnvironmentError",
                                                     "Exception",
                                                     "ExceptionGroup",
                                                     "False",
                                                     "FileExistsError",
                                                     "FileNotFoundError",
                                                     "FloatingPointError",
                                                     "FutureWarning",
                                                     "GeneratorExit",
                                                     "IOError",
                                                     "ImportError",
                                                     "ImportWarning",
                                                     "IndentationError",
                                                     "IndexError",
                                                     "InterruptedError",
                                                     "IsADirectoryError",
                                                     "KeyError",
                                                     "KeyboardInterrupt",
                                                     "LookupError",
                                                     "MemoryError",
                                                     "ModuleNotFoundError",
                                                     "NameError",
                                                     "None",
                                                     "NotADirectoryError",
                                                     "NotImplemented",
                                                     "NotImplementedError",
                                                     "OSError",
                                                     "OverflowError",
                                                     "PendingDeprecationWarning",
                                                     "PermissionError",
                                                     "ProcessLookupError",
                                                     "RecursionError",
                                                     "ReferenceError",
                                                     "ResourceWarning",
                                                     "RuntimeError",
                                                     "RuntimeWarning",
                                                     "StopAsyncIteration",
                                                     "StopIteration",
                                                     "SyntaxError",
                                                     "SyntaxWarning",
                                                     "SystemError",
                                                     "SystemExit",
                                                     "TabError",
                                                     "TimeoutError",
                                                     "True",
                                                     "TypeError",
                                                     "UnboundLocalError",
                                                     "UnicodeDecodeError",
                                                     "UnicodeEncodeError",
                                                     "UnicodeError",
                                                     "UnicodeTranslateError",
                                                     "UnicodeWarning",
                                                     "UserWarning",
                                                     "ValueError",
                                                     "Warning",
                                                     "ZeroDivisionError",
                                                     "__annotations__",
                                                     "__build_class__",
                                                     "__builtins__",
                                                     "__class__",
                                                     "__debug__",
                                                     "__dict__",
                                                     "__doc__",
                                                     "__file__",
                                                     "__import__",
                                                     "__loader__",
                                                     "__module__",
                                                     "__name__",
                                                     "__package__",
                                                     "__path__",
                                                     "__qualname__",
                                                     "__spec__",
                                                     "abs",
                                                     "aiter",
                                                     "all",
                                                     "anext",
                                                     "any",
                                                     "ascii",
                                                     "bin",
                                                     "bool",
                                                     "breakpoint",
                                                     "bytearray",
                                                     "bytes",
                                                     "callable",
                                                     "chr",
                                                     "classmethod",
                                                     "compile",
                                                     "complex",
                                                     "copyright",
                                                     "credits",
                                                     "delattr",
                                                     "dict",
                                                     "dir",
                                                     "divmod",
                                                     "enumerate",
                                                     "eval",
                                                     "exec",
                                                     "exit",
                                                     "filter",
                                                     "float",
                                                     "format",
                                                     "frozenset",
                                                     "getattr",
                                                     "globals",
                                                     "hasattr",
                                                     "hash",
                                                     "help",
                                                     "hex",
                                                     "id",
                                                     "input",
                                                     "int",
                                                     "isinstance",
                                                     "issubclass",
                                                     "iter",
                                                     "len",
                                                     "license",
                                                     "list",
                                                     "locals",
                                                     "map",
                                                     "max",
                                                     "memoryview",
                                                     "min",
                                                     "next",
                                                     "object",
                                                     "oct",
                                                     "open",
                                                     "ord",
                                                     "pow",
                                                     "print",
                                                     "property",
                                                     "quit",
                                                     "range",
                                                     "repr",
                                                     "reversed",
                                                     "round",
                                                     "set",
                                                     "setattr",
                                                     "slice",
                                                     "sorted",
                                                     "staticmethod",
                                                     "str",
                                                     "sum",
                                                     "super",
                                                     "tuple",
                                                     "type",
                                                     "vars",
                                                     "zip"};

static_assert(std::is_sorted(BUILTINS.begin(), BUILTINS.end()));
static_assert(!BUILTINS.back().empty());

// How many sets of type hints the binding of one use may read at most. Hints lead to
// further hints (an attribute's, a function's result), at most INFERENCE_DEPTH deep, but
// each may hold several chains of several attributes: the budget keeps a use's cost
// bounded whatever the code.
constexpr std::size_t MAX_INFERENCE_STEPS = 256;
// The hint sets read so far for the use being bound (reset by resolve_chain), per thread.
thread_local std::size_t inference_steps = 0;

// How many re-exports and star imports one name is followed through at most.
constexpr std::size_t MAX_IMPORT_HOPS = 32;

// The method of every Python class that lists the classes deriving from it directly.
constexpr std::string_view SUBCLASSES_METHOD = "__subclasses__";
// The method of a Python class that runs whenever a class deriving from it is defined.
constexpr std::string_view INIT_SUBCLASS_METHOD = "__init_subclass__";

std::string_view edge_kind_of(UseKind kind) {
  switch (kind) {
    case UseKind::call:
      return edge_kind::CALL;
    case UseKind::reference:
      return edge_kind::REFERENCE;
    case UseKind::type:
      return edge_kind::TYPE;
    case UseKind::decorates:
      return edge_kind::DECORATES;
    case UseKind::inherits:
      return edge_kind::INHERITS;
    case UseKind::implements:
      return edge_kind::IMPLEMENTS;
    case UseKind::import:
      return edge_kind::IMPORT;
  }
  return edge_kind::REFERENCE;
}

// `name` in `owner`: "owner.name".
std::string dotted(std::string_view owner, std::string_view name) {
  std::string text;
  text.reserve(owner.size() + 1 + name.size());
  text += owner;
  text += '.';
  text += name;
  return text;
}

}  // namespace

bool is_python_builtin(std::string_view name) {
  return std::binary_search(BUILTINS.begin(), BUILTINS.end(), name);
}

// What an expression stands for while its chain is followed.
struct PythonResolver::Value {
  enum class Kind {
    symbols,   // definitions of the repository (`ids`)
    module,    // a module of the repository (`ids` holds its module symbol)
    instance,  // an instance of the classes `ids`
    unknown,   // a value of unknown type: only an attribute's name is known
    external,  // something outside the repository
    unbound,   // a name bound nowhere
  };
  Kind kind = Kind::external;
  std::vector<std::int64_t> ids;
  // The module, for a module; for symbols, a module whose exports their attributes are
  // first (a script module's value and the properties set on it), if any.
  std::string module;
  // For symbols: found only in classes deriving from the value's own (a member a subclass
  // or a mixin beside it has), so a guess between them.
  bool guessed = false;
};

std::vector<std::int64_t> first_symbol_ids(const std::vector<FileModel>& files,
                                           std::int64_t first_id) {
  std::vector<std::int64_t> ids;
  ids.reserve(files.size());
  for (const FileModel& file : files) {
    ids.push_back(first_id);
    first_id += static_cast<std::int64_t>(file.definitions.size());
  }
  return ids;
}

PythonResolver::PythonResolver(const std::vector<FileModel>& files, std::int64_t first_id)
    : files_(files), first_ids_(first_symbol_ids(files, first_id)), first_id_(first_id) {
  std::int64_t next = first_id;
  for (std::size_t f = 0; f < files.size(); ++f) {
    const auto& definitions = files[f].definitions;
    for (std::size_t d = 0; d < definitions.size(); ++d) {
      where_.emplace_back(static_cast<std::uint32_t>(f), static_cast<std::uint32_t>(d));
      by_fqn_[definitions[d].fqn].push_back(next);
      if (is_callable_kind(definitions[d].kind)) {
        callables_by_name_[definitions[d].name].push_back(next);
      }
      ++next;
    }
    module_files_.try_emplace(files[f].module, f);
  }
  // The members of classes by name: the definitions an attribute of a value of unknown
  // type may be.
  for (std::size_t f = 0; f < files.size(); ++f) {
    for (const Scope& scope : files[f].scopes) {
      if (scope.kind != Scope::Kind::class_body) continue;
      for (const auto& [name, binding] : scope.bindings) {
        if (binding.kind != Binding::Kind::definition) continue;
        std::vector<int> ids{binding.definition};
        ids.insert(ids.end(), binding.also().begin(), binding.also().end());
        for (int d : ids) {
          const Definition& member = files[f].definitions[static_cast<std::size_t>(d)];
          const std::string_view kind = member.kind;
          if (kind == symbol_kind::METHOD) {
            methods_by_name_[name].push_back(symbol_id(f, d));
            // Public: no leading underscore, no script `#name`, not declared private or
            // protected (TypeScript).
            const std::string_view signature = member.signature ? *member.signature : "";
            if (!name.starts_with("_") && !name.starts_with("#") &&
                !signature.starts_with("private ") && !signature.starts_with("protected ")) {
              methods_of_[symbol_id(f, scope.owner)].push_back(symbol_id(f, d));
            }
          }
          if (kind == symbol_kind::METHOD || kind == symbol_kind::CLASS) {
            members_by_name_[name].push_back(symbol_id(f, d));
          }
        }
      }
    }
  }
  for (auto* by_name : {&callables_by_name_, &members_by_name_, &methods_by_name_}) {
    for (auto& [name, ids] : *by_name) {
      std::sort(ids.begin(), ids.end(), [&](std::int64_t a, std::int64_t b) {
        return std::tie(definition(a).fqn, a) < std::tie(definition(b).fqn, b);
      });
    }
  }
  // Class hierarchy first, so that members are found through bases afterwards.
  for (std::size_t f = 0; f < files.size(); ++f) {
    for (const Use& use : files[f].uses) {
      if (use.kind != UseKind::inherits) continue;
      std::string_view resolution;
      const Value base = resolve_chain(f, use.scope, use.chain, resolution);
      const std::int64_t cls = symbol_id(f, use.source);
      auto& bases = bases_[cls];
      bool found = false;
      for (std::int64_t id :
           base.kind == Value::Kind::symbols ? base.ids : std::vector<std::int64_t>{}) {
        if (definition(id).kind != symbol_kind::CLASS) continue;
        found = true;
        if (std::find(bases.begin(), bases.end(), id) == bases.end()) bases.push_back(id);
      }
      if (!found) open_classes_.insert(cls);
      // A base from outside the repository that is no builtin (a framework's class) may
      // call the methods its subclasses define.
      if (!found && base.kind != Value::Kind::symbols && base.kind != Value::Kind::module &&
          !(use.chain.size() == 1 && is_python_builtin(use.chain.front()))) {
        framework_classes_.insert(cls);
      }
    }
  }
  for (const auto& [cls, bases] : bases_) {
    linearize(cls);
    for (std::int64_t base : bases)
      derived_[base].push_back(cls);
  }
  collect_arguments();
}

namespace {

// The C3 merge of `lists` appended to `order`: repeatedly the first head of a list that is
// in no list's tail, taken off every list it heads. False when no head qualifies (the
// lists admit no common order). Each list is walked by a position, and how often each
// class stands in the lists' tails is counted, so a merge costs the lists' total length
// times their number, not its square.
bool merge_orders(const std::vector<const std::vector<std::int64_t>*>& lists,
                  std::vector<std::int64_t>& order) {
  std::vector<std::size_t> at(lists.size(), 0);
  std::unordered_map<std::int64_t, std::size_t> in_tails;
  for (const auto* list : lists) {
    for (std::size_t i = 1; i < list->size(); ++i)
      ++in_tails[(*list)[i]];
  }
  while (true) {
    std::optional<std::int64_t> head;
    bool any_left = false;
    for (std::size_t l = 0; l < lists.size(); ++l) {
      if (at[l] >= lists[l]->size()) continue;
      any_left = true;
      const std::int64_t candidate = (*lists[l])[at[l]];
      const auto tails = in_tails.find(candidate);
      if (tails == in_tails.end() || tails->second == 0) {
        head = candidate;
        break;
      }
    }
    if (!any_left) return true;
    if (!head) return false;
    order.push_back(*head);
    for (std::size_t l = 0; l < lists.size(); ++l) {
      if (at[l] >= lists[l]->size() || (*lists[l])[at[l]] != *head) continue;
      // The next class of the list leaves its tail to become its head.
      if (++at[l] < lists[l]->size()) --in_tails[(*lists[l])[at[l]]];
    }
  }
}

}  // namespace

template <typename Visit>
bool PythonResolver::each_in_order(std::int64_t start, Visit&& visit) const {
  // A `rest` always names a class whose order was complete before, so the walk ends.
  std::optional<std::int64_t> at = start;
  while (at) {
    auto it = mro_.find(*at);
    if (it == mro_.end()) return visit(*at);  // no base in the repository: the class alone
    for (std::int64_t cls : it->second.head) {
      if (!visit(cls)) return false;
    }
    at = it->second.rest;
  }
  return true;
}

// Computes the method resolution order of `cls` and of its bases, bases first, with an
// explicit stack: the C3 merge of the bases' orders, or breadth first where the hierarchy
// admits no such order (a cycle, or bases listed against their own order).
void PythonResolver::linearize(std::int64_t cls) {
  if (mro_.contains(cls)) return;
  std::vector<std::int64_t> stack{cls};
  std::set<std::int64_t> entered;
  while (!stack.empty()) {
    const std::int64_t current = stack.back();
    if (mro_.contains(current)) {
      stack.pop_back();
      continue;
    }
    const auto bases = bases_.find(current);
    const std::vector<std::int64_t> none;
    const std::vector<std::int64_t>& direct = bases == bases_.end() ? none : bases->second;
    if (entered.insert(current).second) {
      for (std::int64_t base : direct) {
        if (!mro_.contains(base) && !entered.contains(base)) stack.push_back(base);
      }
      continue;
    }
    stack.pop_back();
    // Every base is done unless the hierarchy has a cycle through `current`.
    const bool consistent_bases = std::all_of(
        direct.begin(), direct.end(), [&](std::int64_t base) { return mro_.contains(base); });
    if (consistent_bases && direct.size() == 1) {
      // One base: the merge gives the base's own order, which is kept by reference.
      mro_.emplace(current, ResolutionOrder{{current}, direct.front()});
      continue;
    }
    std::vector<std::vector<std::int64_t>> base_orders;
    if (consistent_bases) {
      for (std::int64_t base : direct)
        base_orders.push_back(lookup_order({base}));
    }
    std::vector<const std::vector<std::int64_t>*> lists;
    for (const auto& base_order : base_orders)
      lists.push_back(&base_order);
    lists.push_back(&direct);
    std::vector<std::int64_t> order{current};
    bool consistent = consistent_bases && merge_orders(lists, order);
    if (!consistent) {
      // Breadth first through the bases, each class once.
      order.assign(1, current);
      for (std::size_t i = 0; i < order.size(); ++i) {
        auto it = bases_.find(order[i]);
        if (it == bases_.end()) continue;
        for (std::int64_t base : it->second) {
          if (std::find(order.begin(), order.end(), base) == order.end()) order.push_back(base);
        }
      }
    }
    mro_.emplace(current, ResolutionOrder{std::move(order), std::nullopt});
  }
}

std::size_t PythonResolver::file_of(std::int64_t id) const {
  return where_[static_cast<std::size_t>(id - first_id_)].first;
}

std::int64_t PythonResolver::symbol_id(std::size_t file, int definition) const {
  return first_ids_[file] + definition;
}

const Definition& PythonResolver::definition(std::int64_t id) const {
  const auto [file, index] = where_[static_cast<std::size_t>(id - first_id_)];
  return files_[file].definitions[index];
}

const Binding* PythonResolver::lookup(std::size_t file, int scope, std::string_view name) const {
  const auto& scopes = files_[file].scopes;
  bool innermost = true;
  for (int current = scope; current >= 0;
       current = scopes[static_cast<std::size_t>(current)].parent) {
    const Scope& s = scopes[static_cast<std::size_t>(current)];
    // A class body's names are seen only by the code directly in it.
    if (innermost || s.kind != Scope::Kind::class_body) {
      if (const Binding* binding = s.find(name)) return binding;
    }
    innermost = false;
  }
  return nullptr;
}

PythonResolver::Value PythonResolver::module_value(std::string_view module) const {
  auto it = module_files_.find(module);
  if (it == module_files_.end()) return {Value::Kind::external, {}, std::string(module)};
  return {Value::Kind::module, {symbol_id(it->second, MODULE_DEFINITION)}, std::string(module)};
}

// The definitions that script module `module` exports, its `export *` modules' included, as
// far as each name resolves: at most MAX_EXPORTS_LISTED.
std::vector<std::int64_t> PythonResolver::exports_of(std::string_view module) const {
  std::vector<std::int64_t> ids;
  std::deque<std::string> modules{std::string(module)};
  std::set<std::string> seen;
  while (!modules.empty() && ids.size() < MAX_EXPORTS_LISTED) {
    const std::string current = std::move(modules.front());
    modules.pop_front();
    auto file = module_files_.find(current);
    if (file == module_files_.end() || !seen.insert(current).second) continue;
    const FileModel& model = files_[file->second];
    for (std::string_view name : model.exports) {
      const Value value = resolve_from(current, name);
      if (value.kind != Value::Kind::symbols) continue;
      for (std::int64_t id : value.ids) {
        if (is_callable_kind(definition(id).kind) && ids.size() < MAX_EXPORTS_LISTED)
          ids.push_back(id);
      }
    }
    modules.insert(modules.end(), model.star_imports.begin(), model.star_imports.end());
  }
  return ids;
}

// `name` as found in `module`: a definition there, a submodule, or what its imports (named
// or "*") bring in, followed through re-exports.
PythonResolver::Value PythonResolver::resolve_from(std::string_view module,
                                                   std::string_view name) const {
  std::deque<std::pair<std::string, std::string>> queue{{std::string(module), std::string(name)}};
  std::set<std::pair<std::string, std::string>> seen;
  for (std::size_t hops = 0; !queue.empty() && hops < MAX_IMPORT_HOPS; ++hops) {
    auto [from, wanted] = queue.front();
    queue.pop_front();
    if (!seen.insert({from, wanted}).second) continue;
    const std::string fqn = from + "." + wanted;
    auto found = by_fqn_.find(fqn);
    if (found != by_fqn_.end()) {
      std::vector<std::int64_t> ids;
      const Binding* reexport = nullptr;
      for (std::int64_t id : found->second) {
        const Definition& d = definition(id);
        if (d.import) {
          if (reexport == nullptr) reexport = d.import;
        } else if (d.kind != symbol_kind::MODULE) {
          ids.push_back(id);
        }
      }
      if (!ids.empty()) return {Value::Kind::symbols, std::move(ids), {}};
      // A package that imports its own submodule (`from . import sub` in pkg/__init__)
      // binds the submodule's own name.
      if (reexport != nullptr && module_files_.contains(fqn) &&
          (reexport->kind == Binding::Kind::module
               ? reexport->module() == fqn
               : dotted(reexport->module(), reexport->name()) == fqn)) {
        return module_value(fqn);
      }
      if (reexport != nullptr) {
        if (reexport->kind == Binding::Kind::module) return module_value(reexport->module());
        queue.emplace_back(reexport->module(), reexport->name());
        continue;
      }
    }
    if (module_files_.contains(fqn)) return module_value(fqn);
    auto file = module_files_.find(from);
    if (file != module_files_.end()) {
      for (const std::string& star : files_[file->second].star_imports) {
        queue.emplace_back(star, wanted);
      }
    }
  }
  return {Value::Kind::external, {}, {}};
}

PythonResolver::Value PythonResolver::value_of(std::size_t file, const Binding& binding,
                                               int depth) const {
  switch (binding.kind) {
    case Binding::Kind::definition: {
      Value value{Value::Kind::symbols, {symbol_id(file, binding.definition)}, {}};
      for (int other : binding.also())
        value.ids.push_back(symbol_id(file, other));
      return value;
    }
    case Binding::Kind::module:
    case Binding::Kind::imported_name: {
      Value value = binding.kind == Binding::Kind::imported_name
                        ? resolve_from(binding.module(), binding.name())
                        : module_value(binding.module());
      // A module bound with a name (a script's default import or require) stands for that
      // export when the module has it, else for the module itself.
      if (binding.kind == Binding::Kind::module && !binding.name().empty()) {
        Value named = resolve_from(binding.module(), binding.name());
        if (named.kind == Value::Kind::symbols) {
          // Its attributes are the module's exports first (`module.exports = f` and
          // `module.exports.x = ...` make x an attribute of f).
          named.module = std::string(binding.module());
          value = std::move(named);
        }
      }
      if (binding.also().empty()) return value;
      // Imported, with a fallback defined beside the import: the fallback too.
      if (value.kind != Value::Kind::symbols) value = {Value::Kind::symbols, {}, {}};
      for (int other : binding.also())
        value.ids.push_back(symbol_id(file, other));
      return value;
    }
    case Binding::Kind::instance:
      return {Value::Kind::instance, {symbol_id(file, binding.definition)}, {}};
    case Binding::Kind::value: {
      Value value = value_of_hints(file, binding.hints, depth);
      if (value.kind != Value::Kind::unknown || !binding.parameter) return value;
      value = passed_to(symbol_id(file, binding.definition), binding.name(), depth);
      if (value.kind != Value::Kind::unknown || binding.defaults().empty()) return value;
      // No call tells: the default, when it is something of the repository (a default
      // of None or a literal says nothing of what callers pass).
      Value given = value_of_hints(file, binding.defaults(), depth);
      if (given.kind == Value::Kind::symbols || given.kind == Value::Kind::instance) return given;
      return value;
    }
  }
  return {Value::Kind::unknown, {}, {}};
}

// What `hints` of file `file` say a value is: the instances of every class they name, else
// the first thing one of them names.
PythonResolver::Value PythonResolver::value_of_hints(std::size_t file,
                                                     std::span<const TypeHint> hints,
                                                     int depth) const {
  if (depth <= 0 || hints.empty()) return {Value::Kind::unknown, {}, {}};
  if (++inference_steps > MAX_INFERENCE_STEPS) return {Value::Kind::unknown, {}, {}};
  Value instances{Value::Kind::instance, {}, {}};
  Value other{Value::Kind::unknown, {}, {}};
  bool external = false;
  for (const TypeHint& hint : hints) {
    Value value = value_of_chain(file, hint.scope, hint.chain, depth - 1);
    if (hint.kind == TypeHint::Kind::call) {
      value = call_result(value, depth - 1);
    } else if (hint.kind == TypeHint::Kind::annotation) {
      value = instance_of(value);
    }
    if (value.kind == Value::Kind::instance) {
      instances.ids.insert(instances.ids.end(), value.ids.begin(), value.ids.end());
    } else if (value.kind == Value::Kind::external) {
      external = true;
    } else if (other.kind == Value::Kind::unknown && value.kind != Value::Kind::unbound) {
      other = std::move(value);
    }
  }
  if (!instances.ids.empty()) return instances;
  // Only values from outside the repository: their attributes are outside it too.
  if (other.kind == Value::Kind::unknown && external) return {Value::Kind::external, {}, {}};
  return other;
}

// An instance of the classes among `value`'s symbols, or unknown.
PythonResolver::Value PythonResolver::instance_of(const Value& value) const {
  if (value.kind == Value::Kind::external) return value;
  if (value.kind != Value::Kind::symbols) return {Value::Kind::unknown, {}, {}};
  Value instance{Value::Kind::instance, {}, {}};
  for (std::int64_t id : value.ids) {
    if (definition(id).kind == symbol_kind::CLASS) instance.ids.push_back(id);
  }
  if (instance.ids.empty()) instance.kind = Value::Kind::unknown;
  return instance;
}

// What calling `value` returns: an instance of a class it names, or what the return
// annotations (or return statements) of the functions it names say; from outside the
// repository when those only return values from outside it.
PythonResolver::Value PythonResolver::call_result(const Value& value, int depth) const {
  // What something from outside the repository returns is from outside it too.
  if (value.kind == Value::Kind::external) return value;
  if (value.kind != Value::Kind::symbols) return {Value::Kind::unknown, {}, {}};
  Value instances = instance_of(value);
  if (instances.kind != Value::Kind::instance) instances = {Value::Kind::instance, {}, {}};
  Value other{Value::Kind::unknown, {}, {}};  // a class, function or module returned
  bool outside = false;
  for (std::int64_t id : value.ids) {
    const Definition& callee = definition(id);
    if (callee.kind != symbol_kind::FUNCTION && callee.kind != symbol_kind::METHOD) continue;
    Value returned = value_of_hints(file_of(id), callee.hints, depth);
    if (returned.kind == Value::Kind::instance) {
      instances.ids.insert(instances.ids.end(), returned.ids.begin(), returned.ids.end());
    } else if (returned.kind == Value::Kind::symbols || returned.kind == Value::Kind::module) {
      if (other.kind == Value::Kind::unknown) other = std::move(returned);
    }
    outside |= returned.kind == Value::Kind::external;
  }
  if (!instances.ids.empty()) return instances;
  if (other.kind != Value::Kind::unknown) return other;
  return {outside ? Value::Kind::external : Value::Kind::unknown, {}, {}};
}

// The classes of `classes` and their bases in method resolution order, each once.
std::vector<std::int64_t> PythonResolver::lookup_order(
    const std::vector<std::int64_t>& classes) const {
  std::vector<std::int64_t> order;
  for (std::int64_t id : classes) {
    each_in_order(id, [&](std::int64_t cls) {
      order.push_back(cls);
      return true;
    });
  }
  return order;
}

// The member `name` of the classes `classes` or of their bases, in method resolution
// order; with `skip_own`, the classes' own members are passed over (super()).
PythonResolver::Value PythonResolver::member(const std::vector<std::int64_t>& classes,
                                             std::string_view name, bool skip_own) const {
  std::vector<std::int64_t> found;
  bool open = false;
  for (std::int64_t cls : classes) {
    bool here = false;
    bool own = true;
    bool open_base = false;
    each_in_order(cls, [&](std::int64_t c) {
      open_base |= open_classes_.contains(c);
      if (std::exchange(own, false) && skip_own) return true;
      auto it = by_fqn_.find(dotted(definition(c).fqn, name));
      if (it == by_fqn_.end()) return true;
      for (std::int64_t id : it->second) {
        if (std::find(found.begin(), found.end(), id) == found.end()) found.push_back(id);
      }
      here = true;
      return false;
    });
    open |= !here && open_base;
  }
  if (!found.empty()) return {Value::Kind::symbols, std::move(found), {}};
  // Not a member of these classes: one of a base outside the repository (dict.get), if
  // they have such a base, or one that every object has (__dict__, __class__).
  return {open || is_special_name(name) ? Value::Kind::external : Value::Kind::unknown, {}, {}};
}

// The attribute `name` of instances of `classes`: a member of their classes, else what the
// methods of the first class in resolution order that assigns it say it is.
PythonResolver::Value PythonResolver::instance_attribute(const std::vector<std::int64_t>& classes,
                                                         std::string_view name, int depth) const {
  Value found = member(classes, name, false);
  if (found.kind == Value::Kind::symbols) return found;
  for (std::int64_t cls : lookup_order(classes)) {
    const Definition& owner = definition(cls);
    const Attribute* assigned = owner.attribute(name);
    if (assigned == nullptr) continue;
    // Assigned by a method: of the type its hints give, else unknown.
    return value_of_hints(file_of(cls), assigned->hints, depth);
  }
  if (found.kind != Value::Kind::unknown) return found;
  // Neither the class nor its bases have it: the instance is of a class deriving from it
  // that gets the member elsewhere, as a mixin calls what the class combining it has, or a
  // base a hook its subclasses define. A guess at those few places, when the few classes
  // deriving from it have it in no more (never a binding on evidence: the base's file does
  // not depend on its subclasses').
  const std::vector<std::int64_t> derived = subclasses_of(classes, MAX_DERIVED_LOOKED_UP);
  if (derived.empty() || derived.size() > MAX_DERIVED_LOOKED_UP) return found;
  Value members{Value::Kind::symbols, {}, {}};
  for (std::int64_t cls : derived) {
    const Value in_family = member({cls}, name, false);
    if (in_family.kind != Value::Kind::symbols) continue;
    members.ids.insert(members.ids.end(), in_family.ids.begin(), in_family.ids.end());
  }
  std::sort(members.ids.begin(), members.ids.end());
  members.ids.erase(std::unique(members.ids.begin(), members.ids.end()), members.ids.end());
  if (members.ids.empty() || members.ids.size() > MAX_GUESSES) return found;
  members.guessed = true;
  return members;
}

PythonResolver::Value PythonResolver::attribute(const Value& value, std::string_view name,
                                                int depth) const {
  if (name == CALL_RESULT) return call_result(value, depth);
  switch (value.kind) {
    case Value::Kind::module:
      return resolve_from(value.module, name);
    case Value::Kind::instance:
      return instance_attribute(value.ids, name, depth);
    case Value::Kind::symbols: {
      if (!value.module.empty()) {
        Value exported = resolve_from(value.module, name);
        if (exported.kind == Value::Kind::symbols) return exported;
      }
      // The members of an object literal with a body of its own (a script's exported
      // `const api = { get() {} }`); a class's members are found below, through its order.
      Value members{Value::Kind::symbols, {}, {}};
      for (std::int64_t id : value.ids) {
        const Definition& holder = definition(id);
        if (holder.body_scope < 0 || holder.kind == symbol_kind::CLASS) continue;
        const std::size_t file = file_of(id);
        const Binding* member =
            files_[file].scopes[static_cast<std::size_t>(holder.body_scope)].find(name);
        if (!member || member->kind != Binding::Kind::definition) continue;
        members.ids.push_back(symbol_id(file, member->definition));
        for (int other : member->also())
          members.ids.push_back(symbol_id(file, other));
      }
      if (!members.ids.empty()) return members;
      const Value classes = instance_of(value);
      if (classes.kind == Value::Kind::instance) return member(classes.ids, name, false);
      // A variable or a property: the attribute of the value its hints give.
      if (depth <= 0) break;
      Value held{Value::Kind::instance, {}, {}};
      bool outside = false;
      for (std::int64_t id : value.ids) {
        const Definition& holder = definition(id);
        const bool property = holder.kind == symbol_kind::METHOD && holder.signature &&
                              (holder.signature->starts_with("@property") ||
                               holder.signature->find("cached_property") != std::string::npos);
        if (holder.kind != symbol_kind::VARIABLE && holder.kind != symbol_kind::CONSTANT &&
            !property) {
          continue;
        }
        const Value inner = value_of_hints(file_of(id), holder.hints, depth);
        if (inner.kind == Value::Kind::instance) {
          held.ids.insert(held.ids.end(), inner.ids.begin(), inner.ids.end());
        } else if (inner.kind == Value::Kind::module) {
          return resolve_from(inner.module, name);
        } else if (inner.kind == Value::Kind::external) {
          outside = true;
        }
      }
      if (!held.ids.empty()) return instance_attribute(held.ids, name, depth - 1);
      if (outside) return {Value::Kind::external, {}, {}};
      break;
    }
    case Value::Kind::unknown:
    case Value::Kind::external:
    case Value::Kind::unbound:
      return {value.kind, {}, {}};
  }
  return {Value::Kind::unknown, {}, {}};
}

// The value of `chain` looked up from `scope` of file `file`, for a type hint: its head a
// name bound there (or brought in by a star import), then its attributes.
PythonResolver::Value PythonResolver::value_of_chain(std::size_t file, int scope, Chain chain,
                                                     int depth) const {
  if (chain.empty() || chain.front().empty()) return {Value::Kind::unknown, {}, {}};
  Value value;
  if (chain.front() == BUILTIN_VALUE) {
    value = {Value::Kind::external, {}, {}};
  } else if (const Binding* binding = lookup(file, scope, chain.front())) {
    value = value_of(file, *binding, depth);
  } else {
    value = {Value::Kind::unbound, {}, {}};
    for (const std::string& star : files_[file].star_imports) {
      value = resolve_from(star, chain.front());
      if (value.kind != Value::Kind::external) break;
    }
    if (value.kind == Value::Kind::unbound && is_python_builtin(chain.front())) {
      value.kind = Value::Kind::external;
    }
  }
  for (std::size_t i = 1; i < chain.size(); ++i)
    value = attribute(value, chain[i], depth);
  return value;
}

PythonResolver::Value PythonResolver::resolve_chain(std::size_t file, int scope, Chain chain,
                                                    std::string_view& resolution,
                                                    std::vector<ReadClass>* read_classes) const {
  inference_steps = 0;  // a use's own budget; what follows it (handed_outside) shares it
  const FileModel& model = files_[file];
  const std::string_view head = chain.front();
  Value value;
  resolution = resolution::EXACT;
  std::size_t next = 1;
  if (head.empty()) {
    // super().name: a member of a base of the class whose method this is.
    int method = scope;
    while (method >= 0 && model.scopes[static_cast<std::size_t>(method)].method_of < 0) {
      method = model.scopes[static_cast<std::size_t>(method)].parent;
    }
    if (method < 0 || chain.size() < 2) return {Value::Kind::unknown, {}, {}};
    const int cls = model.scopes[static_cast<std::size_t>(method)].method_of;
    value = member({symbol_id(file, cls)}, chain[1], true);
    next = 2;
  } else if (head == UNKNOWN_VALUE) {
    value = {Value::Kind::unknown, {}, {}};
  } else if (head == BUILTIN_VALUE) {
    value = {Value::Kind::external, {}, {}};
  } else if (const Binding* binding = lookup(file, scope, head)) {
    value = value_of(file, *binding, INFERENCE_DEPTH);
    if (binding->kind == Binding::Kind::module || binding->kind == Binding::Kind::imported_name) {
      resolution = resolution::IMPORT;
    } else if (binding->kind == Binding::Kind::definition && chain.size() == 1) {
      resolution = resolution::LOCAL;
    }
  } else {
    value = {Value::Kind::unbound, {}, {}};
    for (const std::string& star : model.star_imports) {
      Value found = resolve_from(star, head);
      if (found.kind != Value::Kind::external) {
        value = std::move(found);
        resolution = resolution::IMPORT;
        break;
      }
    }
    if (value.kind == Value::Kind::unbound &&
        (is_python_builtin(head) || !model.star_imports.empty())) {
      value.kind = Value::Kind::external;
    }
  }
  for (; next < chain.size(); ++next) {
    // What follows an instance is bound by its type, not by how the head was bound.
    if (value.kind == Value::Kind::instance || chain[next] == CALL_RESULT) {
      resolution = resolution::EXACT;
    }
    if (read_classes != nullptr && value.kind == Value::Kind::symbols &&
        chain[next] != CALL_RESULT) {
      for (std::int64_t id : value.ids) {
        // A class, or a script's enum (`Color.Red`).
        const std::string_view kind = definition(id).kind;
        if (kind == symbol_kind::CLASS || kind == "enum") read_classes->push_back({id, resolution});
      }
    }
    value = attribute(value, chain[next], INFERENCE_DEPTH);
  }
  return value;
}

FileLinks PythonResolver::resolve(std::size_t file) const {
  FileLinks links;
  const FileModel& model = files_[file];
  const bool script = script_dialect_of(model.path).has_value();
  overridden_outside(file, links);
  registered_by_bases(file, links);
  HandedOver handed;
  for (const Use& use : model.uses) {
    const std::int64_t source = symbol_id(file, use.source);
    const std::string_view kind = edge_kind_of(use.kind);
    if (use.imported) {
      const Value value = value_of(file, *use.imported, 0);
      if (value.kind == Value::Kind::module && use.kind == UseKind::reference) {
        // A script's module loaded for what it exports (`import("./m")`, whose value goes
        // where the index cannot follow): each of its exports may be used.
        for (std::int64_t id : exports_of(value.module))
          links.edges.push_back({source, id, kind, resolution::IMPORT, use.line});
      } else if (value.kind == Value::Kind::symbols || value.kind == Value::Kind::module) {
        for (std::int64_t id : value.ids) {
          links.edges.push_back({source, id, kind, resolution::IMPORT, use.line});
        }
      }
      continue;
    }
    std::string_view resolution;
    std::vector<ReadClass> read_classes;
    const Value value = resolve_chain(file, use.scope, use.chain, resolution, &read_classes);
    // Reading an attribute of a class (`Color.RED`, `Limits.helper()`) uses the class, unless
    // the class reads it itself (in its body or its methods), as a function's call of itself
    // is no use of it.
    for (const auto& [id, how] : read_classes) {
      if (id == source || is_inside(source, id)) continue;
      links.edges.push_back({source, id, edge_kind_of(UseKind::reference), how, use.line});
    }
    // `Plugin.__subclasses__()`, `cls.__subclasses__()` hand out every class deriving from
    // the class (a registry by subclassing): a guess at each of them.
    if (use.kind == UseKind::call && use.chain.size() >= 2 &&
        use.chain.back() == SUBCLASSES_METHOD) {
      std::string_view ignored;
      const Value owner =
          resolve_chain(file, use.scope, use.chain.first(use.chain.size() - 1), ignored);
      std::vector<std::int64_t> classes;
      for (std::int64_t id :
           owner.kind == Value::Kind::symbols || owner.kind == Value::Kind::instance
               ? owner.ids
               : std::vector<std::int64_t>{}) {
        if (definition(id).kind == symbol_kind::CLASS) classes.push_back(id);
      }
      for (std::int64_t id : subclasses_of(classes))
        links.edges.push_back(
            {source, id, edge_kind_of(UseKind::reference), resolution::AMBIGUOUS, use.line});
    }
    const std::size_t edges_before = links.edges.size();
    bool called_itself = false;
    switch (value.kind) {
      case Value::Kind::symbols:
        for (std::int64_t id : value.ids) {
          const Definition& target = definition(id);
          // A name used as a value counts for functions and classes; a variable read is
          // no relation worth an edge.
          if (use.kind == UseKind::reference && !is_callable_kind(target.kind)) continue;
          // A function's call of itself is no use of it from elsewhere (the call is still
          // bound, as the counts below say): a function only its own recursion calls is dead.
          if (id == source && use.kind == UseKind::call) {
            called_itself = true;
            continue;
          }
          links.edges.push_back(
              {source, id, kind, value.guessed ? resolution::AMBIGUOUS : resolution, use.line});
        }
        break;
      case Value::Kind::unknown: {
        // obj.m() on a value of unknown type, or obj.m passed as a value: a guess at each
        // member of a class named m. An attribute can be no plain function.
        if (use.chain.size() < 2 || use.chain.back() == CALL_RESULT) break;
        const bool value_use = use.kind == UseKind::reference;
        if (use.kind != UseKind::call && use.kind != UseKind::decorates && !value_use) break;
        auto candidates = (value_use ? methods_by_name_ : members_by_name_).find(use.chain.back());
        if (candidates == (value_use ? methods_by_name_ : members_by_name_).end()) break;
        const std::size_t count = std::min(MAX_GUESSES, candidates->second.size());
        for (std::size_t i = 0; i < count; ++i) {
          links.edges.push_back(
              {source, candidates->second[i], kind, resolution::AMBIGUOUS, use.line});
        }
        break;
      }
      case Value::Kind::unbound:
        links.pending.push_back({source, std::string(use.chain.front()), use.line});
        break;
      case Value::Kind::module:
        // A script's namespace import used as a value (`{ formatters }`, `register(api)`):
        // any of the module's exports may be read from it.
        if (use.kind == UseKind::reference && use.chain.size() == 1 && script) {
          for (std::int64_t id : exports_of(value.module))
            links.edges.push_back({source, id, kind, resolution::IMPORT, use.line});
        }
        break;
      case Value::Kind::instance:
      case Value::Kind::external:
        break;
    }
    const bool made_edges = links.edges.size() > edges_before || called_itself;
    const bool outside_call =
        value.kind == Value::Kind::external || (value.kind == Value::Kind::unknown && !made_edges);
    if (use.kind == UseKind::call && outside_call && !use.arguments().empty() &&
        !(use.chain.size() == 1 && is_python_builtin(use.chain.front()))) {
      handed_outside(file, use, links, handed);
    }
    if (use.kind == UseKind::call && callables_by_name_.contains(use.chain.back())) {
      if (value.kind == Value::Kind::symbols && made_edges && !value.guessed) {
        ++links.calls.in_repository;
      } else if (value.kind == Value::Kind::symbols && made_edges) {
        ++links.calls.guessed;
      } else if (value.kind == Value::Kind::unknown && made_edges) {
        ++links.calls.guessed;
      } else if (value.kind == Value::Kind::external || value.kind == Value::Kind::instance ||
                 value.kind == Value::Kind::module) {
        ++links.calls.outside;
      } else {
        ++links.calls.unbound;
      }
    }
  }
  resolve_string_uses(*this, files_, file, links);
  return links;
}

// What the calls of `function` in the repository pass as its parameter `name`: the
// instances their arguments are when one is known, outside values when all are.
PythonResolver::Value PythonResolver::passed_to(std::int64_t function, std::string_view name,
                                                int depth) const {
  auto it = passed_.find({function, name});
  if (it == passed_.end() || depth <= 0) return {Value::Kind::unknown, {}, {}};
  Value instances{Value::Kind::instance, {}, {}};
  bool all_outside = true;
  for (const auto& [file, hint] : it->second) {
    const Value value = value_of_hints(file, std::span(&hint, 1), depth - 1);
    if (value.kind == Value::Kind::instance) {
      instances.ids.insert(instances.ids.end(), value.ids.begin(), value.ids.end());
    }
    all_outside &= value.kind == Value::Kind::external;
  }
  if (!instances.ids.empty()) return instances;
  // Every call passes a value from outside the repository (a dict, a string).
  return {all_outside ? Value::Kind::external : Value::Kind::unknown, {}, {}};
}

// Records, for the functions and methods that each call with arguments reaches, which
// argument each of their parameters receives. A method called on an instance receives the
// instance as its first parameter; a class called is its __init__ called so.
void PythonResolver::collect_arguments() {
  for (std::size_t f = 0; f < files_.size(); ++f) {
    for (const Use& use : files_[f].uses) {
      if (use.kind != UseKind::call || use.arguments().empty()) continue;
      std::string_view resolution;
      const Value value = resolve_chain(f, use.scope, use.chain, resolution);
      if (value.kind != Value::Kind::symbols) continue;
      for (std::int64_t id : value.ids) {
        std::int64_t callee = id;
        std::size_t skipped = 0;
        const Definition* target = &definition(id);
        if (target->kind == symbol_kind::CLASS) {
          const Value init = member({id}, "__init__", false);
          if (init.kind != Value::Kind::symbols || init.ids.size() != 1) continue;
          callee = init.ids.front();
          target = &definition(callee);
          skipped = 1;
        } else if (target->kind == symbol_kind::METHOD) {
          const bool is_static =
              target->signature && target->signature->find("@staticmethod") != std::string::npos;
          skipped = is_static || use.chain.size() < 2 ? 0 : 1;
        } else if (target->kind != symbol_kind::FUNCTION) {
          continue;
        }
        for (const Argument& argument : use.arguments()) {
          std::string_view parameter = argument.keyword;
          if (parameter.empty()) {
            const std::size_t at = static_cast<std::size_t>(argument.position) + skipped;
            if (argument.position < 0 || at >= target->parameters.size()) continue;
            parameter = target->parameters[at];
          }
          auto& hints = passed_[{callee, parameter}];
          if (hints.size() < MAX_TYPE_HINTS) hints.emplace_back(f, argument.hint);
        }
      }
    }
  }
}

// The public methods of a class with a base from outside the repository, directly or
// through its bases, may be called by that base (a framework calls the methods its
// subclasses override): each is guessed at, from the class.
void PythonResolver::overridden_outside(std::size_t file, FileLinks& links) const {
  const auto& definitions = files_[file].definitions;
  for (std::size_t d = 0; d < definitions.size(); ++d) {
    if (definitions[d].kind != symbol_kind::CLASS) continue;
    const std::int64_t cls = symbol_id(file, static_cast<int>(d));
    auto methods = methods_of_.find(cls);
    if (methods == methods_of_.end()) continue;
    if (each_in_order(cls, [&](std::int64_t c) { return !framework_classes_.contains(c); })) {
      continue;  // no class in its order is a framework's subclass
    }
    for (std::int64_t method : methods->second) {
      links.edges.push_back(
          {cls, method, edge_kind::REFERENCE, resolution::AMBIGUOUS, definitions[d].start_line});
    }
  }
}

// An instance of a class of the repository handed to code outside it (`jar.extract_cookies(
// MockRequest(r))`, `io.TextIOWrapper(Stream())`) may have any of its public methods called
// there: each is guessed at, from the calling definition.
void PythonResolver::handed_outside(std::size_t file, const Use& use, FileLinks& links,
                                    HandedOver& handed) const {
  const std::int64_t source = symbol_id(file, use.source);
  std::vector<std::int64_t> targets;
  for (const Argument& argument : use.arguments()) {
    const Value value = value_of_hints(file, std::span(&argument.hint, 1), INFERENCE_DEPTH);
    if (value.kind != Value::Kind::instance) continue;
    for (std::int64_t cls : lookup_order(value.ids)) {
      auto methods = methods_of_.find(cls);
      if (methods == methods_of_.end()) continue;
      for (std::int64_t id : methods->second) {
        if (std::find(targets.begin(), targets.end(), id) == targets.end()) targets.push_back(id);
      }
    }
  }
  for (std::int64_t id : targets) {
    // One guess per definition and method says all there is: a guessed reference has no
    // call site to show, and a code base that hands instances out in thousands of places
    // (generated rule tables) would otherwise write a member list per place.
    if (!handed.emplace(source, id).second) continue;
    links.edges.push_back({source, id, edge_kind::REFERENCE, resolution::AMBIGUOUS, use.line});
  }
}

// Lookups for names given as strings.

std::optional<std::int64_t> PythonResolver::module_symbol(std::string_view module) const {
  auto it = module_files_.find(module);
  if (it == module_files_.end()) return std::nullopt;
  return symbol_id(it->second, MODULE_DEFINITION);
}

std::vector<std::int64_t> PythonResolver::owners_of(std::size_t file, int scope,
                                                    Chain chain) const {
  if (chain.empty()) return {};
  std::string_view resolution;
  Value value = resolve_chain(file, scope, chain, resolution);
  if (value.kind == Value::Kind::symbols && value.ids.size() == 1) {
    // A variable whose hints say what it holds: an instance of a class, say.
    const Definition& variable = definition(value.ids[0]);
    if (variable.kind == symbol_kind::VARIABLE || variable.kind == symbol_kind::CONSTANT) {
      value = value_of_hints(file_of(value.ids[0]), variable.hints, INFERENCE_DEPTH);
    }
  }
  if (value.kind == Value::Kind::module || value.kind == Value::Kind::instance) return value.ids;
  if (value.kind != Value::Kind::symbols) return {};
  std::erase_if(value.ids,
                [&](std::int64_t id) { return definition(id).kind != symbol_kind::CLASS; });
  return value.ids;
}

std::vector<std::int64_t> PythonResolver::attribute_of(std::int64_t owner,
                                                       std::string_view name) const {
  const Definition& d = definition(owner);
  Value value;
  if (d.kind == symbol_kind::MODULE) {
    value = resolve_from(d.fqn, name);
  } else if (d.kind == symbol_kind::CLASS) {
    value = member({owner}, name, false);
  }
  if (value.kind == Value::Kind::symbols || value.kind == Value::Kind::module) return value.ids;
  return {};
}

std::vector<std::int64_t> PythonResolver::hierarchy_of(
    const std::vector<std::int64_t>& classes) const {
  std::vector<std::int64_t> order;
  for (std::int64_t id : lookup_order(classes)) {
    if (std::find(order.begin(), order.end(), id) == order.end()) order.push_back(id);
  }
  return order;
}

void PythonResolver::registered_by_bases(std::size_t file, FileLinks& links) const {
  const auto& definitions = files_[file].definitions;
  for (std::size_t d = 0; d < definitions.size(); ++d) {
    if (definitions[d].kind != symbol_kind::CLASS) continue;
    const std::int64_t cls = symbol_id(file, static_cast<int>(d));
    const auto bases = bases_.find(cls);
    if (bases == bases_.end()) continue;
    const Value hook = member(bases->second, INIT_SUBCLASS_METHOD, false);
    if (hook.kind != Value::Kind::symbols) continue;
    for (std::int64_t id : hook.ids) {
      if (definition(id).kind == symbol_kind::METHOD)
        links.edges.push_back({id, cls, edge_kind_of(UseKind::reference), resolution::AMBIGUOUS,
                               definitions[d].start_line});
    }
  }
}

bool PythonResolver::is_inside(std::int64_t inner, std::int64_t outer) const {
  const std::string_view inner_fqn = definition(inner).fqn;
  const std::string_view outer_fqn = definition(outer).fqn;
  return inner_fqn.size() > outer_fqn.size() && inner_fqn.starts_with(outer_fqn) &&
         inner_fqn[outer_fqn.size()] == '.' && location_of(inner).first == location_of(outer).first;
}

std::vector<std::int64_t> PythonResolver::subclasses_of(const std::vector<std::int64_t>& classes,
                                                        std::size_t limit) const {
  std::vector<std::int64_t> found;
  std::unordered_set<std::int64_t> seen;
  std::vector<std::int64_t> pending(classes.begin(), classes.end());
  while (!pending.empty() && found.size() <= limit) {
    const std::int64_t cls = pending.back();
    pending.pop_back();
    const auto it = derived_.find(cls);
    if (it == derived_.end()) continue;
    for (std::int64_t sub : it->second) {
      if (!seen.insert(sub).second) continue;
      found.push_back(sub);
      pending.push_back(sub);
    }
  }
  return found;
}

const std::vector<std::int64_t>& PythonResolver::callables_named(std::string_view name) const {
  static const std::vector<std::int64_t> none;
  auto it = callables_by_name_.find(name);
  return it == callables_by_name_.end() ? none : it->second;
}

std::vector<std::int64_t> PythonResolver::python_callables_starting(std::string_view prefix) const {
  std::call_once(python_callables_built_, [&] {
    for (std::size_t f = 0; f < files_.size(); ++f) {
      if (script_dialect_of(files_[f].path)) continue;
      const auto& definitions = files_[f].definitions;
      for (std::size_t d = 0; d < definitions.size(); ++d) {
        const std::string_view kind = definitions[d].kind;
        if (kind == symbol_kind::FUNCTION || kind == symbol_kind::METHOD)
          python_callables_.emplace_back(definitions[d].name, symbol_id(f, static_cast<int>(d)));
      }
    }
    std::sort(python_callables_.begin(), python_callables_.end());
  });
  std::vector<std::int64_t> found;
  for (auto it = std::lower_bound(python_callables_.begin(), python_callables_.end(),
                                  std::pair<std::string_view, std::int64_t>{prefix, 0});
       it != python_callables_.end() && it->first.starts_with(prefix); ++it) {
    found.push_back(it->second);
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::pair<std::size_t, int> PythonResolver::location_of(std::int64_t id) const {
  const auto [file, index] = where_[static_cast<std::size_t>(id - first_id_)];
  return {file, static_cast<int>(index)};
}

}  // namespace quarry::indexer
