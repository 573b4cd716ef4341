#include "indexer/python_strings.h"

#include <algorithm>
#include <cstring>

#include "indexer/python_resolver.h"
#include "indexer/syntax_nodes.h"
#include "indexer/text.h"
#include "models/edge.h"
#include "models/symbol.h"

namespace quarry::indexer {

namespace {

// Longer strings are taken for text, not for paths.
constexpr std::size_t MAX_PATH_LENGTH = 256;
// A literal with more elements than this holds data, not a registry entry.
constexpr std::uint32_t MAX_REGISTRY_ELEMENTS = 16;

bool is_name_start(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool is_name_char(char c) {
  return is_name_start(c) || (c >= '0' && c <= '9');
}

std::string scope_key(int scope, std::string_view name) {
  std::string key = std::to_string(scope);
  key += ':';
  key += name;
  return key;
}

// A prefix worth looking methods up by, or nothing: underscores alone ("__%s__" % name)
// would take in every special method.
std::optional<std::string> dispatch_prefix(std::string_view text) {
  if (text.size() < MIN_DISPATCH_PREFIX || !is_identifier(text) ||
      text.find_first_not_of('_') == std::string_view::npos) {
    return std::nullopt;
  }
  return std::string(text);
}

}  // namespace

bool is_identifier(std::string_view text) {
  return !text.empty() && is_name_start(text.front()) &&
         std::all_of(text.begin() + 1, text.end(), is_name_char);
}

bool is_dotted_path(std::string_view text) {
  if (text.size() > MAX_PATH_LENGTH) return false;
  const std::size_t colon = text.find(':');
  if (colon != std::string_view::npos && text.find(':', colon + 1) != std::string_view::npos) {
    return false;
  }
  bool separated = false;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && text[i] != '.' && text[i] != ':') continue;
    if (!is_identifier(text.substr(start, i - start))) return false;
    separated = separated || i < text.size();
    start = i + 1;
  }
  return separated;
}

// ---- Noting strings while the parser walks a file ----

StringEvidence::StringEvidence(FileModel& model, const std::vector<BindingMap>& bindings,
                               std::string_view source, TSNode root)
    : model_(model), bindings_(bindings), source_(source), cursor_(ts_tree_cursor_new(root)) {}

StringEvidence::~StringEvidence() {
  ts_tree_cursor_delete(&cursor_);
}

std::vector<TSNode> StringEvidence::children(TSNode node, bool named_only) {
  std::vector<TSNode> out;
  ts_tree_cursor_reset(&cursor_, node);
  if (ts_tree_cursor_goto_first_child(&cursor_)) {
    do {
      const TSNode child = ts_tree_cursor_current_node(&cursor_);
      if (!named_only || (ts_node_is_named(child) && type_of(child) != "comment")) {
        out.push_back(child);
      }
    } while (ts_tree_cursor_goto_next_sibling(&cursor_));
  }
  return out;
}

std::string_view StringEvidence::raw(TSNode node) const {
  const std::uint32_t start = ts_node_start_byte(node);
  const std::uint32_t end =
      std::min<std::uint32_t>(ts_node_end_byte(node), static_cast<std::uint32_t>(source_.size()));
  if (start >= end) return {};
  return source_.substr(start, end - start);
}

// The text of a string literal (a concatenation of them counts as one) that interpolates
// nothing and is no bytes literal; escapes are kept as written.
std::optional<std::string> StringEvidence::literal(TSNode node) {
  std::vector<TSNode> pieces{node};
  if (type_of(node) == "concatenated_string") {
    pieces = children(node, true);
  } else if (type_of(node) != "string") {
    return std::nullopt;
  }
  std::string text;
  for (TSNode piece : pieces) {
    if (type_of(piece) != "string") return std::nullopt;
    for (TSNode part : children(piece, true)) {
      const std::string_view type = type_of(part);
      if (type == "string_content") {
        text += raw(part);
      } else if (type == "string_start") {
        const std::string_view start = raw(part);
        if (start.find_first_of("bB") != std::string_view::npos) return std::nullopt;
      } else if (type != "string_end") {
        return std::nullopt;  // an interpolation
      }
    }
  }
  return text;
}

std::optional<std::vector<std::string>> StringEvidence::chain_of(TSNode node) const {
  std::vector<std::string> names;
  while (type_of(node) == "attribute") {
    names.push_back(valid_utf8(raw(field(node, "attribute"))));
    node = field(node, "object");
    if (ts_node_is_null(node)) return std::nullopt;
  }
  if (type_of(node) != "identifier") return std::nullopt;
  names.push_back(valid_utf8(raw(node)));
  std::reverse(names.begin(), names.end());
  return names;
}

// What `name` was last assigned, as seen from `scope`: the innermost scope that binds the
// name decides, and a binding of it that was no noted assignment hides outer ones.
const StringEvidence::Assigned* StringEvidence::assigned(int scope, std::string_view name) const {
  if (assigned_.empty()) return nullptr;
  const std::string wanted(name);
  for (int current = scope; current >= 0;
       current = model_.scopes[static_cast<std::size_t>(current)].parent) {
    auto it = assigned_.find(scope_key(current, name));
    if (it != assigned_.end()) return &it->second;
    if (bindings_[static_cast<std::size_t>(current)].contains(wanted)) return nullptr;
  }
  return nullptr;
}

// The module of importlib.import_module("pkg.mod"), or nothing.
std::optional<std::string> StringEvidence::module_of_call(TSNode node) {
  if (type_of(node) != "call") return std::nullopt;
  const auto chain = chain_of(field(node, "function"));
  const TSNode arguments = field(node, "arguments");
  if (!chain || chain->back() != "import_module" || ts_node_is_null(arguments)) {
    return std::nullopt;
  }
  const TSNode first = ts_node_named_child(arguments, 0);
  if (ts_node_is_null(first)) return std::nullopt;
  auto module = literal(first);
  if (!module || module->find(':') != std::string::npos ||
      !(is_identifier(*module) || is_dotted_path(*module))) {
    return std::nullopt;
  }
  return module;
}

// The object whose names `node` holds, when `node` is such a mapping: globals() (this
// module), vars(x) and x.__dict__ (x); vars() and locals() hold names of an unknown object.
std::optional<StringEvidence::Receiver> StringEvidence::namespace_of(TSNode node, int scope) {
  const std::string_view type = type_of(node);
  if (type == "attribute") {
    const TSNode object = field(node, "object");
    if (ts_node_is_null(object) || raw(field(node, "attribute")) != "__dict__") return std::nullopt;
    return receiver_of(object, scope);
  }
  if (type != "call") return std::nullopt;
  const TSNode function = field(node, "function");
  const TSNode arguments = field(node, "arguments");
  if (type_of(function) != "identifier" || ts_node_is_null(arguments)) return std::nullopt;
  const std::string_view name = raw(function);
  const std::uint32_t count = ts_node_named_child_count(arguments);
  if (name == "globals" && count == 0) return Receiver{{}, model_.module};
  if ((name == "vars" || name == "locals") && count == 0) return Receiver{};
  if (name == "vars" && count == 1) return receiver_of(ts_node_named_child(arguments, 0), scope);
  return std::nullopt;
}

// The object a name is looked up on, as far as this file tells.
StringEvidence::Receiver StringEvidence::receiver_of(TSNode node, int scope) {
  if (type_of(node) == "identifier") {
    const Assigned* known = assigned(scope, raw(node));
    if (known != nullptr && known->kind == StringUse::Kind::path) return {{}, known->text};
  }
  if (auto chain = chain_of(node)) return {std::move(*chain), {}};
  if (auto module = module_of_call(node)) return {{}, std::move(*module)};
  if (type_of(node) == "subscript") {
    // sys.modules[__name__], sys.modules["pkg.mod"]
    const auto chain = chain_of(field(node, "value"));
    const TSNode key = field(node, "subscript");
    if (!chain || *chain != std::vector<std::string>{"sys", "modules"} || ts_node_is_null(key)) {
      return {};
    }
    if (type_of(key) == "identifier" && raw(key) == "__name__") return {{}, model_.module};
    if (auto module = literal(key); module && (is_identifier(*module) || is_dotted_path(*module))) {
      return {{}, std::move(*module)};
    }
  }
  return {};
}

// The name, or the prefix of names, that the expression `node` makes, when it is a constant
// name, a constant prefix joined to anything ("on_" + x, f"on_{x}", "on_%s" % x,
// "on_{}".format(x)), or a plain name assigned one of these before.
std::optional<StringEvidence::Assigned> StringEvidence::key_of(TSNode node, int scope) {
  const std::string_view type = type_of(node);
  if (type == "string" || type == "concatenated_string") {
    if (auto text = literal(node)) {
      if (!is_identifier(*text)) return std::nullopt;
      return Assigned{StringUse::Kind::name, std::move(*text)};
    }
    if (type != "string") return std::nullopt;
    // An f-string: the constant text before its first interpolation.
    const std::vector<TSNode> parts = children(node, true);
    if (parts.size() < 3 || type_of(parts[1]) != "string_content" ||
        type_of(parts[2]) != "interpolation") {
      return std::nullopt;
    }
    auto prefix = dispatch_prefix(raw(parts[1]));
    if (!prefix) return std::nullopt;
    return Assigned{StringUse::Kind::prefix, std::move(*prefix)};
  }
  if (type == "identifier") {
    const Assigned* known = assigned(scope, raw(node));
    if (known == nullptr || known->kind == StringUse::Kind::path) return std::nullopt;
    return *known;
  }
  std::optional<std::string> text;
  char stop = '\0';
  if (type == "binary_operator") {
    const std::string_view op = raw(field(node, "operator"));
    TSNode left = field(node, "left");
    if (op == "+") {
      while (type_of(left) == "binary_operator" && raw(field(left, "operator")) == "+")
        left = field(left, "left");
    } else if (op == "%") {
      stop = '%';
    } else {
      return std::nullopt;
    }
    text = literal(left);
  } else if (type == "call") {
    const TSNode function = field(node, "function");
    if (type_of(function) != "attribute" || raw(field(function, "attribute")) != "format") {
      return std::nullopt;
    }
    text = literal(field(function, "object"));
    stop = '{';
  }
  if (!text) return std::nullopt;
  if (stop != '\0') {
    const std::size_t at = text->find(stop);
    if (at == std::string::npos) return std::nullopt;
    text->resize(at);
  }
  auto prefix = dispatch_prefix(*text);
  if (!prefix) return std::nullopt;
  return Assigned{StringUse::Kind::prefix, std::move(*prefix)};
}

void StringEvidence::visit(TSNode node, int scope, int owner) {
  const std::string_view type = type_of(node);
  if (type == "string" || type == "concatenated_string") {
    note_literal(node, scope, owner);
  } else if (type == "call") {
    note_call(node, scope, owner);
  } else if (type == "subscript") {
    note_subscript(node, scope, owner);
  } else if (type == "assignment") {
    note_assignment(node, scope);
  } else if (type == "tuple" || type == "list" || type == "dictionary" ||
             type == "expression_list") {
    note_registry(node, scope, owner);
  }
}

void StringEvidence::note_literal(TSNode node, int scope, int owner) {
  const std::uint32_t start = ts_node_start_byte(node);
  const std::uint32_t end = ts_node_end_byte(node);
  if (type_of(node) == "concatenated_string") {
    pieces_start_ = start;
    pieces_end_ = end;
  } else if (start >= pieces_start_ && end <= pieces_end_) {
    return;  // a piece of the concatenation noted last
  }
  // Most strings are text: a path is short and holds a "." or a ":".
  const std::string_view written = raw(node);
  if (written.size() > MAX_PATH_LENGTH + 16 ||
      written.find_first_of(".:") == std::string_view::npos) {
    return;
  }
  auto text = literal(node);
  if (!text || !is_dotted_path(*text)) return;
  model_.string_uses.push_back(
      {StringUse::Kind::path, scope, owner, std::move(*text), {}, {}, line_of(node)});
}

void StringEvidence::note_lookup(const Receiver& receiver, TSNode key, int scope, int owner,
                                 TSNode at) {
  if (ts_node_is_null(key)) return;
  auto found = key_of(key, scope);
  if (!found) return;
  std::vector<std::string> modules;
  if (!receiver.module.empty()) modules.push_back(receiver.module);
  model_.string_uses.push_back({found->kind, scope, owner, std::move(found->text), receiver.chain,
                                std::move(modules), line_of(at)});
}

// getattr(x, key), hasattr(x, key), and NAMES.get(key) on a mapping of names.
void StringEvidence::note_call(TSNode node, int scope, int owner) {
  const TSNode function = field(node, "function");
  const TSNode arguments = field(node, "arguments");
  if (ts_node_is_null(arguments) || type_of(arguments) != "argument_list") return;
  // The arguments, read once: a registry entry written as a call (Info("pkg.mod", "Name")),
  // a prefix handed on, a name looked up.
  const std::uint32_t count = ts_node_named_child_count(arguments);
  std::vector<TSNode> listed;
  // Without a quote among them (looked for in a short list only), no argument names code,
  // unless a name was assigned a string before: most calls are passed over unread.
  const std::string_view text = raw(arguments);
  const bool plain = assigned_.empty() && text.size() <= MAX_SCANNED_ARGUMENTS &&
                     text.find_first_of("'\"") == std::string_view::npos;
  if (count > 0 && count <= MAX_REGISTRY_ELEMENTS && !plain) {
    listed = children(arguments, true);
    note_beside(listed, scope, owner);
  }
  const std::string_view type = type_of(function);
  std::optional<Receiver> receiver;
  std::size_t key = 0;
  const std::string_view method = type == "attribute" ? raw(field(function, "attribute")) : "";
  if (type == "identifier" && (raw(function) == "getattr" || raw(function) == "hasattr")) {
    key = 1;
  } else if (method == "get") {
    const TSNode object = field(function, "object");
    if (ts_node_is_null(object) || !(receiver = namespace_of(object, scope))) return;
  } else if (method == "values" || method == "items" || method == "keys") {
    // globals().values(), vars(module).items(), module.__dict__.keys(): every name of the
    // namespace is read.
    const TSNode object = field(function, "object");
    if (!ts_node_is_null(object)) {
      if (auto namespace_ = namespace_of(object, scope))
        note_every(*namespace_, scope, owner, node);
    }
    return;
  } else if ((type == "identifier" && raw(function) == "dir") ||
             (method.empty() ? raw(function) : method) == "getmembers") {
    // dir(module), inspect.getmembers(module): as above, when the module is known.
    const TSNode first = ts_node_named_child(arguments, 0);
    if (!ts_node_is_null(first) && type_of(first) != "keyword_argument") {
      note_every(namespace_of(first, scope).value_or(receiver_of(first, scope)), scope, owner,
                 node);
    }
    return;
  } else {
    note_handed(function, listed, scope, owner, node);
    return;
  }
  std::vector<TSNode> positional =
      count <= MAX_REGISTRY_ELEMENTS ? std::move(listed) : children(arguments, true);
  std::erase_if(positional, [](TSNode n) {
    const std::string_view t = type_of(n);
    return t == "keyword_argument" || t == "list_splat" || t == "dictionary_splat";
  });
  if (positional.size() <= key) return;
  if (!receiver) receiver = receiver_of(positional[0], scope);
  note_lookup(*receiver, positional[key], scope, owner, node);
}

// f(x, "_eval_" + hint), f(name=method) with method = "_eval_%s" % rule: a long prefix
// handed to a call named like a function or method of the repository, which may look the
// name up where the index cannot follow.
void StringEvidence::note_handed(TSNode function, const std::vector<TSNode>& arguments, int scope,
                                 int owner, TSNode at) {
  const std::string_view type = type_of(function);
  TSNode name = function;
  if (type == "attribute") {
    name = field(function, "attribute");
  } else if (type != "identifier") {
    return;
  }
  if (ts_node_is_null(name)) return;
  for (TSNode argument : arguments) {
    if (type_of(argument) == "keyword_argument") argument = field(argument, "value");
    if (ts_node_is_null(argument)) continue;
    // Only what can make a prefix: a name assigned one, "a" + b, "a%s" % b, "a{}".format(b),
    // an f-string; plain literals, the bulk of all arguments, are passed over unread.
    const std::string_view type = type_of(argument);
    if (type == "identifier" ? assigned_.empty()
        : type == "string"   ? raw(argument).find('{') == std::string_view::npos
                             : type != "binary_operator" && type != "call") {
      continue;
    }
    auto found = key_of(argument, scope);
    if (!found || found->kind != StringUse::Kind::prefix ||
        found->text.size() < MIN_REPOSITORY_PREFIX) {
      continue;
    }
    model_.string_uses.push_back({StringUse::Kind::handed,
                                  scope,
                                  owner,
                                  std::move(found->text),
                                  {std::string(raw(name))},
                                  {},
                                  line_of(at)});
  }
}

// Every name of a namespace read at once: a guess at each function and class of the module
// that `receiver` names (the resolver tells whether it names one).
void StringEvidence::note_every(const Receiver& receiver, int scope, int owner, TSNode at) {
  if (receiver.chain.empty() && receiver.module.empty()) return;
  std::vector<std::string> modules;
  if (!receiver.module.empty()) modules.push_back(receiver.module);
  model_.string_uses.push_back({StringUse::Kind::every, scope, owner, std::string(), receiver.chain,
                                std::move(modules), line_of(at)});
}

// NAMES[key] on a mapping of names.
void StringEvidence::note_subscript(TSNode node, int scope, int owner) {
  const TSNode value = field(node, "value");
  if (ts_node_is_null(value)) return;
  if (auto receiver = namespace_of(value, scope)) {
    note_lookup(*receiver, field(node, "subscript"), scope, owner, node);
  }
}

// name = importlib.import_module("m"), name = "run", name = "on_" + event: remembered for
// getattr(name, ...) and getattr(x, name) further on.
void StringEvidence::note_assignment(TSNode node, int scope) {
  const TSNode left = field(node, "left");
  const TSNode right = field(node, "right");
  if (ts_node_is_null(left) || ts_node_is_null(right) || type_of(left) != "identifier") return;
  const std::string key = scope_key(scope, raw(left));
  if (auto module = module_of_call(right)) {
    assigned_[key] = {StringUse::Kind::path, std::move(*module)};
  } else if (auto found = key_of(right, scope)) {
    assigned_[key] = std::move(*found);
  } else if (!assigned_.empty()) {
    assigned_.erase(key);
  }
}

// ("pkg.mod", "Name"), ["pkg.mod", "Name"], {"module": "pkg.mod", "name": "Name"}: the names
// beside dotted paths in one small literal (a call's arguments, Info("pkg.mod", "Name"), are
// read with the call).
void StringEvidence::note_registry(TSNode node, int scope, int owner) {
  if (ts_node_named_child_count(node) > MAX_REGISTRY_ELEMENTS) return;
  note_beside(children(node, true), scope, owner);
}

// The names beside dotted paths among `elements`, the items of one literal or the
// arguments of one call (a dictionary's values, keyword arguments' values).
void StringEvidence::note_beside(const std::vector<TSNode>& elements, int scope, int owner) {
  std::vector<TSNode> strings;
  for (TSNode element : elements) {
    const std::string_view holder = type_of(element);
    if (holder == "pair" || holder == "keyword_argument") element = field(element, "value");
    const std::string_view type = type_of(element);
    if (type == "string" || type == "concatenated_string") strings.push_back(element);
  }
  std::vector<std::string> paths;
  for (TSNode element : strings) {
    if (raw(element).find_first_of(".:") == std::string_view::npos) continue;
    if (auto text = literal(element); text && is_dotted_path(*text)) {
      paths.push_back(std::move(*text));
    }
  }
  if (paths.empty()) return;
  for (TSNode element : strings) {
    if (auto text = literal(element); text && is_identifier(*text)) {
      model_.string_uses.push_back(
          {StringUse::Kind::beside, scope, owner, std::move(*text), {}, paths, line_of(element)});
    }
  }
}

// ---- Binding the noted strings ----

namespace {

class StringBinder {
 public:
  StringBinder(const PythonResolver& resolver, const std::vector<FileModel>& files,
               std::size_t file, FileLinks& links)
      : r_(resolver), files_(files), file_(file), links_(links) {}

  void bind(const StringUse& use) {
    source_ = r_.symbol_id(file_, use.source);
    line_ = use.line;
    switch (use.kind) {
      case StringUse::Kind::path:
        for (std::int64_t id : path_targets(use.text)) {
          const std::string_view kind = definition(id).kind;
          if (kind == symbol_kind::MODULE || is_callable_kind(kind)) {
            emit(id, resolution::EXACT);
          }
        }
        break;
      case StringUse::Kind::name:
        look_up(receivers(use), use.text, true);
        break;
      case StringUse::Kind::beside:
        for (const std::string& path : use.modules) {
          std::vector<std::int64_t> owners = path_targets(path);
          std::erase_if(owners, [&](std::int64_t id) {
            const std::string_view kind = definition(id).kind;
            return kind != symbol_kind::MODULE && kind != symbol_kind::CLASS;
          });
          if (owners.empty()) continue;
          look_up(owners, use.text, false);
          break;
        }
        break;
      case StringUse::Kind::prefix:
        by_prefix(receivers(use), use);
        break;
      case StringUse::Kind::every: {
        std::vector<std::int64_t> found;
        for (std::int64_t owner : receivers(use)) {
          if (definition(owner).kind != symbol_kind::MODULE) continue;
          scan(
              owner, MODULE_SCOPE, [](const Definition& d) { return is_callable_kind(d.kind); },
              found);
        }
        guess_at(std::move(found));
        break;
      }
      case StringUse::Kind::handed:
        if (!r_.callables_named(use.receiver.front()).empty())
          guess_at(r_.python_callables_starting(use.text));
        break;
    }
  }

 private:
  const Definition& definition(std::int64_t id) const {
    const auto [file, index] = r_.location_of(id);
    return files_[file].definitions[static_cast<std::size_t>(index)];
  }

  void emit(std::int64_t target, std::string_view resolution) {
    if (target == source_) return;
    links_.edges.push_back({source_, target, edge_kind::REFERENCE, resolution, line_});
  }

  // The module symbol or the classes a name or prefix is looked up on; empty when unknown.
  std::vector<std::int64_t> receivers(const StringUse& use) const {
    if (!use.modules.empty()) {
      auto module = r_.module_symbol(use.modules.front());
      if (module) return {*module};
      return {};
    }
    const std::vector<std::string_view> chain(use.receiver.begin(), use.receiver.end());
    return r_.owners_of(file_, use.scope, chain);
  }

  // What a dotted path names: the longest leading part that is a module of the index (or
  // the part before ":"), then each further name as an attribute of what came before.
  std::vector<std::int64_t> path_targets(std::string_view path) const {
    std::vector<std::int64_t> found;
    std::string_view rest;
    const std::size_t colon = path.find(':');
    if (colon != std::string_view::npos) {
      if (auto module = r_.module_symbol(std::string(path.substr(0, colon)))) found = {*module};
      rest = path.substr(colon + 1);
    } else {
      for (std::size_t end = path.size();;) {
        if (auto module = r_.module_symbol(std::string(path.substr(0, end)))) {
          found = {*module};
          rest = end < path.size() ? path.substr(end + 1) : std::string_view();
          break;
        }
        end = path.rfind('.', end - 1);
        if (end == std::string_view::npos || end == 0) break;
      }
    }
    while (!rest.empty() && !found.empty()) {
      const std::size_t dot = rest.find('.');
      const std::string name(rest.substr(0, dot));
      rest = dot == std::string_view::npos ? std::string_view() : rest.substr(dot + 1);
      std::vector<std::int64_t> next;
      for (std::int64_t owner : found) {
        for (std::int64_t id : r_.attribute_of(owner, name))
          next.push_back(id);
      }
      found = std::move(next);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
  }

  // `name` on `owners`: the members found there, exactly. When none is found, a guess by
  // name, unless the owners are modules looked in by code (`modules_complete`): a module
  // holds what it defines, while a class's subclasses may define what it lacks.
  void look_up(const std::vector<std::int64_t>& owners, const std::string& name,
               bool modules_complete) {
    std::vector<std::int64_t> found;
    for (std::int64_t owner : owners) {
      for (std::int64_t id : r_.attribute_of(owner, name))
        found.push_back(id);
    }
    if (!found.empty()) {
      std::sort(found.begin(), found.end());
      found.erase(std::unique(found.begin(), found.end()), found.end());
      for (std::int64_t id : found) {
        if (is_callable_kind(definition(id).kind)) emit(id, resolution::EXACT);
      }
      return;
    }
    const bool all_modules =
        !owners.empty() && std::all_of(owners.begin(), owners.end(), [&](std::int64_t id) {
          return definition(id).kind == symbol_kind::MODULE;
        });
    if (is_special_name(name) || (modules_complete && all_modules)) return;
    const auto& namesakes = r_.callables_named(name);
    const std::size_t count = std::min(MAX_GUESSES, namesakes.size());
    for (std::size_t i = 0; i < count; ++i)
      emit(namesakes[i], resolution::AMBIGUOUS);
  }

  // A guess at each callable whose name starts with the prefix, in the scopes of the
  // receiver (a module's top level, or the bodies of a class hierarchy) or, when the
  // receiver is unknown, anywhere in this file.
  void by_prefix(const std::vector<std::int64_t>& owners, const StringUse& use) {
    std::vector<std::int64_t> found;
    const auto matches = [&](const Definition& d) {
      return d.name.starts_with(use.text) && is_callable_kind(d.kind);
    };
    if (owners.empty()) {
      const auto& definitions = files_[file_].definitions;
      for (std::size_t d = 0; d < definitions.size(); ++d) {
        if (matches(definitions[d]) && definitions[d].kind != symbol_kind::CLASS) {
          found.push_back(r_.symbol_id(file_, static_cast<int>(d)));
        }
      }
    } else {
      std::vector<std::int64_t> classes;
      for (std::int64_t owner : owners) {
        if (definition(owner).kind == symbol_kind::CLASS) {
          classes.push_back(owner);
        } else {
          scan(owner, MODULE_SCOPE, matches, found);
        }
      }
      // The class, its bases, and every class deriving from it with the bases it has
      // besides (mixins): a name built on `self` may name a method only a subclass has.
      std::vector<std::int64_t> family = r_.subclasses_of(classes);
      family.insert(family.begin(), classes.begin(), classes.end());
      for (std::int64_t cls : r_.hierarchy_of(family))
        scan(cls, definition(cls).body_scope, matches, found);
    }
    // Looked up where nothing starts with a long prefix: on something the index does not
    // see (a metaclass's class, a value of unknown type).
    if (found.empty() && use.text.size() >= MIN_REPOSITORY_PREFIX)
      found = r_.python_callables_starting(use.text);
    guess_at(std::move(found));
  }

  // A guess at each of `found`, once each, in id order.
  void guess_at(std::vector<std::int64_t> found) {
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    for (std::int64_t id : found)
      emit(id, resolution::AMBIGUOUS);
  }

  // The definitions bound in scope `scope` of the file of `owner` that satisfy `matches`.
  template <typename Matches>
  void scan(std::int64_t owner, int scope, const Matches& matches,
            std::vector<std::int64_t>& found) const {
    if (scope < 0) return;
    const std::size_t file = r_.location_of(owner).first;
    for (const auto& [name, binding] :
         files_[file].scopes[static_cast<std::size_t>(scope)].bindings) {
      if (binding.kind != Binding::Kind::definition) continue;
      std::vector<int> ids{binding.definition};
      ids.insert(ids.end(), binding.also().begin(), binding.also().end());
      for (int index : ids) {
        if (matches(files_[file].definitions[static_cast<std::size_t>(index)])) {
          found.push_back(r_.symbol_id(file, index));
        }
      }
    }
  }

  const PythonResolver& r_;
  const std::vector<FileModel>& files_;
  std::size_t file_;
  FileLinks& links_;
  std::int64_t source_ = 0;
  std::int64_t line_ = 0;
};

}  // namespace

void resolve_string_uses(const PythonResolver& resolver, const std::vector<FileModel>& files,
                         std::size_t file, FileLinks& links) {
  StringBinder binder(resolver, files, file, links);
  for (const StringUse& use : files[file].string_uses)
    binder.bind(use);
}

}  // namespace quarry::indexer
