#include "indexer/python_resolver.h"

#include <algorithm>
#include <array>
#include <deque>
#include <set>

#include "indexer/python_strings.h"
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

// How many re-exports and star imports one name is followed through at most.
constexpr std::size_t MAX_IMPORT_HOPS = 32;

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
    case UseKind::import:
      return edge_kind::IMPORT;
  }
  return edge_kind::REFERENCE;
}

bool is_callable_kind(std::string_view kind) {
  return kind == symbol_kind::FUNCTION || kind == symbol_kind::METHOD || kind == symbol_kind::CLASS;
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
  std::string module;
};

PythonResolver::PythonResolver(const std::vector<FileModel>& files, std::int64_t first_id)
    : files_(files), first_id_(first_id) {
  std::int64_t next = first_id;
  for (std::size_t f = 0; f < files.size(); ++f) {
    first_ids_.push_back(next);
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
  for (auto& [name, ids] : callables_by_name_) {
    std::sort(ids.begin(), ids.end(), [&](std::int64_t a, std::int64_t b) {
      return std::tie(definition(a).fqn, a) < std::tie(definition(b).fqn, b);
    });
  }
  // Class hierarchy first, so that members are found through bases afterwards.
  for (std::size_t f = 0; f < files.size(); ++f) {
    for (const Use& use : files[f].uses) {
      if (use.kind != UseKind::inherits) continue;
      std::string_view resolution;
      const Value base = resolve_chain(f, use, resolution);
      if (base.kind != Value::Kind::symbols) continue;
      auto& bases = bases_[symbol_id(f, use.source)];
      for (std::int64_t id : base.ids) {
        if (definition(id).kind == symbol_kind::CLASS) bases.push_back(id);
      }
    }
  }
}

std::int64_t PythonResolver::symbol_id(std::size_t file, int definition) const {
  return first_ids_[file] + definition;
}

const Definition& PythonResolver::definition(std::int64_t id) const {
  const auto [file, index] = where_[static_cast<std::size_t>(id - first_id_)];
  return files_[file].definitions[index];
}

const Binding* PythonResolver::lookup(std::size_t file, int scope, const std::string& name) const {
  const auto& scopes = files_[file].scopes;
  bool innermost = true;
  for (int current = scope; current >= 0;
       current = scopes[static_cast<std::size_t>(current)].parent) {
    const Scope& s = scopes[static_cast<std::size_t>(current)];
    // A class body's names are seen only by the code directly in it.
    if (innermost || s.kind != Scope::Kind::class_body) {
      auto it = s.bindings.find(name);
      if (it != s.bindings.end()) return &it->second;
    }
    innermost = false;
  }
  return nullptr;
}

PythonResolver::Value PythonResolver::module_value(const std::string& module) const {
  auto it = module_files_.find(module);
  if (it == module_files_.end()) return {Value::Kind::external, {}, module};
  return {Value::Kind::module, {symbol_id(it->second, MODULE_DEFINITION)}, module};
}

// `name` as found in `module`: a definition there, a submodule, or what its imports (named
// or "*") bring in, followed through re-exports.
PythonResolver::Value PythonResolver::resolve_from(const std::string& module,
                                                   const std::string& name) const {
  std::deque<std::pair<std::string, std::string>> queue{{module, name}};
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
          if (reexport == nullptr) reexport = &*d.import;
        } else if (d.kind != symbol_kind::MODULE) {
          ids.push_back(id);
        }
      }
      if (!ids.empty()) return {Value::Kind::symbols, std::move(ids), {}};
      if (reexport != nullptr) {
        if (reexport->kind == Binding::Kind::module) return module_value(reexport->module);
        queue.emplace_back(reexport->module, reexport->name);
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

// What `Chain(...)` makes, looked up in `scope`: an instance when Chain names a class.
// Values made this way are not followed further (`x = y(); z = x()`), which keeps the
// lookup bounded.
PythonResolver::Value PythonResolver::constructed(std::size_t file, int scope,
                                                  const std::vector<std::string>& chain) const {
  const Binding* binding = lookup(file, scope, chain.front());
  if (binding == nullptr) return {Value::Kind::unknown, {}, {}};
  Value value = resolve_binding(file, *binding, false);
  for (std::size_t i = 1; i < chain.size(); ++i)
    value = attribute(value, chain[i], false);
  if (value.kind != Value::Kind::symbols) return {Value::Kind::unknown, {}, {}};
  std::vector<std::int64_t> classes;
  for (std::int64_t id : value.ids) {
    if (definition(id).kind == symbol_kind::CLASS) classes.push_back(id);
  }
  if (classes.empty()) return {Value::Kind::unknown, {}, {}};
  return {Value::Kind::instance, std::move(classes), {}};
}

PythonResolver::Value PythonResolver::resolve_binding(std::size_t file, const Binding& binding,
                                                      bool infer) const {
  switch (binding.kind) {
    case Binding::Kind::definition: {
      Value value{Value::Kind::symbols, {symbol_id(file, binding.definition)}, {}};
      for (int other : binding.also)
        value.ids.push_back(symbol_id(file, other));
      return value;
    }
    case Binding::Kind::module:
      return module_value(binding.module);
    case Binding::Kind::imported_name:
      return resolve_from(binding.module, binding.name);
    case Binding::Kind::instance:
      return {Value::Kind::instance, {symbol_id(file, binding.definition)}, {}};
    case Binding::Kind::value:
      if (infer && !binding.made_by.empty()) {
        return constructed(file, binding.made_in, binding.made_by);
      }
      break;
  }
  return {Value::Kind::unknown, {}, {}};
}

// The member `name` of the classes `classes` or of their bases, breadth first; with
// `skip_own`, the classes' own members are passed over (super()).
PythonResolver::Value PythonResolver::member(const std::vector<std::int64_t>& classes,
                                             const std::string& name, bool skip_own) const {
  std::deque<std::pair<std::int64_t, bool>> queue;
  for (std::int64_t id : classes)
    queue.emplace_back(id, skip_own);
  std::set<std::int64_t> seen;
  while (!queue.empty()) {
    const auto [id, skip] = queue.front();
    queue.pop_front();
    if (!seen.insert(id).second) continue;
    if (!skip) {
      auto found = by_fqn_.find(definition(id).fqn + "." + name);
      if (found != by_fqn_.end()) return {Value::Kind::symbols, found->second, {}};
    }
    auto bases = bases_.find(id);
    if (bases == bases_.end()) continue;
    for (std::int64_t base : bases->second)
      queue.emplace_back(base, false);
  }
  return {Value::Kind::unknown, {}, {}};
}

PythonResolver::Value PythonResolver::attribute(const Value& value, const std::string& name,
                                                bool infer) const {
  switch (value.kind) {
    case Value::Kind::module:
      return resolve_from(value.module, name);
    case Value::Kind::instance:
      return member(value.ids, name, false);
    case Value::Kind::symbols: {
      std::vector<std::int64_t> classes;
      for (std::int64_t id : value.ids) {
        if (definition(id).kind == symbol_kind::CLASS) classes.push_back(id);
      }
      if (!classes.empty()) return member(classes, name, false);
      // A variable made by calling a class: an instance of that class.
      if (infer && value.ids.size() == 1) {
        const auto [file, index] = where_[static_cast<std::size_t>(value.ids[0] - first_id_)];
        const Definition& variable = files_[file].definitions[index];
        if (!variable.made_by.empty()) {
          return attribute(constructed(file, variable.made_in, variable.made_by), name, false);
        }
      }
      return {Value::Kind::unknown, {}, {}};
    }
    case Value::Kind::unknown:
    case Value::Kind::external:
    case Value::Kind::unbound:
      break;
  }
  return {value.kind, {}, {}};
}

PythonResolver::Value PythonResolver::resolve_chain(std::size_t file, const Use& use,
                                                    std::string_view& resolution) const {
  const FileModel& model = files_[file];
  const std::string& head = use.chain.front();
  Value value;
  resolution = resolution::EXACT;
  std::size_t next = 1;
  if (head.empty()) {
    // super().name: a member of a base of the class whose method this is.
    int scope = use.scope;
    while (scope >= 0 && model.scopes[static_cast<std::size_t>(scope)].method_of < 0) {
      scope = model.scopes[static_cast<std::size_t>(scope)].parent;
    }
    if (scope < 0 || use.chain.size() < 2) return {Value::Kind::unknown, {}, {}};
    const int cls = model.scopes[static_cast<std::size_t>(scope)].method_of;
    value = member({symbol_id(file, cls)}, use.chain[1], true);
    next = 2;
  } else if (head == UNKNOWN_VALUE) {
    value = {Value::Kind::unknown, {}, {}};
  } else if (const Binding* binding = lookup(file, use.scope, head)) {
    value = resolve_binding(file, *binding);
    if (binding->kind == Binding::Kind::module || binding->kind == Binding::Kind::imported_name) {
      resolution = resolution::IMPORT;
    } else if (binding->kind == Binding::Kind::definition && use.chain.size() == 1) {
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
  for (; next < use.chain.size(); ++next)
    value = attribute(value, use.chain[next]);
  return value;
}

FileLinks PythonResolver::resolve(std::size_t file) const {
  FileLinks links;
  const FileModel& model = files_[file];
  for (const Use& use : model.uses) {
    const std::int64_t source = symbol_id(file, use.source);
    const std::string_view kind = edge_kind_of(use.kind);
    if (use.kind == UseKind::import) {
      const Value value = resolve_binding(file, *use.imported);
      if (value.kind == Value::Kind::symbols || value.kind == Value::Kind::module) {
        for (std::int64_t id : value.ids) {
          links.edges.push_back({source, id, kind, resolution::IMPORT, use.line});
        }
      }
      continue;
    }
    std::string_view resolution;
    const Value value = resolve_chain(file, use, resolution);
    switch (value.kind) {
      case Value::Kind::symbols:
        for (std::int64_t id : value.ids) {
          const Definition& target = definition(id);
          // A name used as a value counts for functions and classes; a variable read is
          // no relation worth an edge.
          if (use.kind == UseKind::reference && !is_callable_kind(target.kind)) continue;
          links.edges.push_back({source, id, kind, resolution, use.line});
        }
        break;
      case Value::Kind::unknown: {
        // obj.m() on a value of unknown type: a guess at each definition named m.
        if (use.chain.size() < 2 || (use.kind != UseKind::call && use.kind != UseKind::decorates)) {
          break;
        }
        auto candidates = callables_by_name_.find(use.chain.back());
        if (candidates == callables_by_name_.end()) break;
        const std::size_t count = std::min(MAX_GUESSES, candidates->second.size());
        for (std::size_t i = 0; i < count; ++i) {
          links.edges.push_back(
              {source, candidates->second[i], kind, resolution::AMBIGUOUS, use.line});
        }
        break;
      }
      case Value::Kind::unbound:
        links.pending.push_back({source, use.chain.front(), use.line});
        break;
      case Value::Kind::module:
      case Value::Kind::instance:
      case Value::Kind::external:
        break;
    }
  }
  resolve_string_uses(*this, files_, file, links);
  return links;
}

// Lookups for names given as strings.

std::optional<std::int64_t> PythonResolver::module_symbol(const std::string& module) const {
  auto it = module_files_.find(module);
  if (it == module_files_.end()) return std::nullopt;
  return symbol_id(it->second, MODULE_DEFINITION);
}

std::vector<std::int64_t> PythonResolver::owners_of(std::size_t file, int scope,
                                                    const std::vector<std::string>& chain) const {
  if (chain.empty()) return {};
  Use use;
  use.scope = scope;
  use.chain = chain;
  std::string_view resolution;
  Value value = resolve_chain(file, use, resolution);
  if (value.kind == Value::Kind::symbols && value.ids.size() == 1) {
    // A variable made by calling a class: an instance of that class.
    const auto [where, index] = location_of(value.ids[0]);
    const Definition& variable = files_[where].definitions[static_cast<std::size_t>(index)];
    if (!variable.made_by.empty()) value = constructed(where, variable.made_in, variable.made_by);
  }
  if (value.kind == Value::Kind::module || value.kind == Value::Kind::instance) return value.ids;
  if (value.kind != Value::Kind::symbols) return {};
  std::erase_if(value.ids,
                [&](std::int64_t id) { return definition(id).kind != symbol_kind::CLASS; });
  return value.ids;
}

std::vector<std::int64_t> PythonResolver::attribute_of(std::int64_t owner,
                                                       const std::string& name) const {
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
  std::set<std::int64_t> seen;
  for (std::int64_t id : classes) {
    if (seen.insert(id).second) order.push_back(id);
  }
  for (std::size_t next = 0; next < order.size(); ++next) {
    auto bases = bases_.find(order[next]);
    if (bases == bases_.end()) continue;
    for (std::int64_t base : bases->second) {
      if (seen.insert(base).second) order.push_back(base);
    }
  }
  return order;
}

const std::vector<std::int64_t>& PythonResolver::callables_named(const std::string& name) const {
  static const std::vector<std::int64_t> none;
  auto it = callables_by_name_.find(name);
  return it == callables_by_name_.end() ? none : it->second;
}

std::pair<std::size_t, int> PythonResolver::location_of(std::int64_t id) const {
  const auto [file, index] = where_[static_cast<std::size_t>(id - first_id_)];
  return {file, static_cast<int>(index)};
}

}  // namespace quarry::indexer
