#include "indexer/script_parser.h"

#include <tree_sitter/api.h>

#include <algorithm>
#include <stdexcept>

#include "indexer/model_building.h"
#include "indexer/syntax_nodes.h"
#include "indexer/syntax_walker.h"
#include "indexer/text.h"
#include "models/symbol.h"

extern "C" const TSLanguage* tree_sitter_javascript();
extern "C" const TSLanguage* tree_sitter_typescript();
extern "C" const TSLanguage* tree_sitter_tsx();

namespace quarry::indexer {

namespace {

// The time a parse of a file gets at least, in microseconds.
constexpr std::uint64_t PARSE_TIMEOUT_MICROS = 1000000;

// The CommonJS names that stand for a module's exports.
constexpr std::string_view MODULE_OBJECT = "module";
constexpr std::string_view EXPORTS_OBJECT = "exports";
constexpr std::string_view DEFAULT_EXPORT = "default";

bool is_function_value(std::string_view type) {
  return type == "arrow_function" || type == "function_expression" || type == "function" ||
         type == "generator_function";
}

bool is_class_value(std::string_view type) {
  return type == "class";
}

// Literals whose value is of a builtin type.
bool is_builtin_literal(std::string_view type) {
  return type == "string" || type == "template_string" || type == "number" || type == "array" ||
         type == "object" || type == "regex" || type == "true" || type == "false";
}

// JSX names of components start with a capital; lower-case ones are the host's elements.
bool is_component_name(std::string_view name) {
  return !name.empty() && name.front() >= 'A' && name.front() <= 'Z';
}

// Builds the model of one script file in a single pass over its syntax tree, with an
// explicit stack of nodes still to visit (SyntaxWalker).
class ScriptBuilder : private SyntaxWalker {
 public:
  // Stores the model's names and lists in `store`.
  ScriptBuilder(FileModel& model, ModelStore& store, std::string_view source, TSNode root,
                const ScriptModules& modules)
      : SyntaxWalker(source, root),
        m_(model),
        store_(store),
        modules_(modules),
        bindings_(model.scopes.size()) {}

  void build() {
    push(root_, MODULE_SCOPE, TOPLEVEL_DEFINITION);
    while (!stack_.empty()) {
      const Frame frame = stack_.back();
      stack_.pop_back();
      visit(frame);
    }
    finish();
  }

 private:
  // The value of a string literal: its fragments, without quotes or escapes read.
  std::string string_value(TSNode node) {
    std::string value;
    if (ts_node_is_null(node) || type_of(node) != "string") return value;
    for (TSNode part : named_children(node)) {
      if (type_of(part) == "string_fragment") value += text(part);
    }
    return value;
  }

  // Whether `node` has an unnamed child written `token` ("default", "type", "static").
  bool has_token(TSNode node, std::string_view token) {
    ts_tree_cursor_reset(&cursor_, node);
    if (ts_tree_cursor_goto_first_child(&cursor_)) {
      do {
        const TSNode child = ts_tree_cursor_current_node(&cursor_);
        if (!ts_node_is_named(child) && type_of(child) == token) return true;
      } while (ts_tree_cursor_goto_next_sibling(&cursor_));
    }
    return false;
  }

  Scope& scope(int index) { return m_.scopes[static_cast<std::size_t>(index)]; }
  Definition& definition(int index) { return m_.definitions[static_cast<std::size_t>(index)]; }

  int add_definition(Definition made) {
    m_.definitions.push_back(std::move(made));
    return static_cast<int>(m_.definitions.size()) - 1;
  }

  int add_scope(Scope made) {
    m_.scopes.push_back(made);
    bindings_.emplace_back();
    return static_cast<int>(m_.scopes.size()) - 1;
  }

  // The names scope `index` binds so far.
  BindingMap& bindings(int index) { return bindings_[static_cast<std::size_t>(index)]; }

  // A definition named `name` (never empty) of `kind` in `scope`, bound there.
  int define(int in_scope, const std::string& name, std::string_view kind, TSNode node) {
    Definition made;
    made.name = store_.name(name);
    made.kind = kind;
    made.fqn = member_fqn(in_scope, name);
    made.start_line = line_of(node);
    made.end_line = end_line_of(node);
    const int id = add_definition(std::move(made));
    bind(in_scope, name, {Binding::Kind::definition, false, id});
    return id;
  }

  // As the Python reader binds: a definition joins those already bound to the name (a
  // getter and setter, overloads), otherwise the first binding of a name is kept.
  void bind(int in_scope, const std::string& name, Binding binding) {
    auto [it, inserted] = bindings(in_scope).try_emplace(store_.name(name), binding);
    if (inserted || binding.kind != Binding::Kind::definition) return;
    Binding& existing = it->second;
    if (existing.kind == Binding::Kind::value) {
      existing = binding;
    } else if (existing.kind != Binding::Kind::instance) {
      bind_also(store_, existing, binding.definition);
    }
  }

  void use(UseKind kind, int in_scope, int source, const std::vector<std::string>& chain,
           std::int64_t line) {
    if (chain.empty() || chain.size() > MAX_CHAIN_LENGTH) return;
    m_.uses.push_back({.kind = kind,
                       .scope = in_scope,
                       .source = source,
                       .line = static_cast<std::uint32_t>(line),
                       .chain = store_.chain(chain)});
  }

  // An import edge (or a type edge, for a type-only import) to what `binding` names.
  void import_use(const Frame& frame, const Binding& binding, std::int64_t line,
                  UseKind kind = UseKind::import) {
    m_.uses.push_back({.kind = kind,
                       .scope = frame.scope,
                       .source = frame.owner,
                       .line = static_cast<std::uint32_t>(line),
                       .imported = store_.copy_one(binding)});
  }

  // A binding of an import: of `module`, or of `name` imported from it.
  Binding imported(Binding::Kind kind, std::string_view module, std::string_view name = {}) {
    return imported_binding(store_, kind, module, name);
  }

  // The qualified name of `name` bound in `in_scope`, stored.
  std::string_view member_fqn(int in_scope, std::string_view name) {
    return indexer::member_fqn(store_, scope(in_scope).fqn, name);
  }

  // The qualified name of `name` in the module, stored.
  std::string_view module_fqn(std::string_view name) {
    return store_.copy(m_.module + "." + std::string(name));
  }

  // Binds an imported name; in the module scope it is a symbol of kind import that the
  // module's exports may name.
  void bind_import(const Frame& frame, const std::string& name, Binding binding, TSNode node) {
    if (name.empty() || bindings(frame.scope).contains(name)) return;
    int id = -1;
    if (frame.scope == MODULE_SCOPE) {
      Definition made;
      made.name = store_.name(name);
      made.kind = symbol_kind::IMPORT;
      made.fqn = module_fqn(name);
      made.start_line = line_of(node);
      made.end_line = end_line_of(node);
      made.import = store_.copy_one(binding);
      id = add_definition(std::move(made));
    }
    binding.definition = id;
    bindings(frame.scope).emplace(store_.name(name), binding);
  }

  // The module's export `name` stands for `target`, a name of this module or `name` of
  // `module`: a symbol of kind import that the resolver follows as a re-export.
  void alias_export(const std::string& name, const std::string& module, const std::string& target,
                    TSNode node) {
    if (name.empty()) return;
    exports_.push_back(name);
    if (module == m_.module && name == target) return;  // the definition itself
    alias_import(name, imported(Binding::Kind::imported_name, module, target), node);
  }

  // A symbol of kind import named `name` in the module scope that stands for what `binding`
  // names, unbound in the file: an export the resolver follows as a re-export.
  void alias_import(const std::string& name, const Binding& binding, TSNode node) {
    if (name.empty()) return;
    exports_.push_back(name);
    Definition made;
    made.name = store_.name(name);
    made.kind = symbol_kind::IMPORT;
    made.fqn = module_fqn(name);
    made.start_line = line_of(node);
    made.end_line = end_line_of(node);
    made.import = store_.copy_one(binding);
    add_definition(std::move(made));
  }

  // The chain an expression names: "a.b.c" as {a, b, c}, `this.x` as {this, x}.
  std::optional<std::vector<std::string>> chain_of(TSNode node) const {
    std::vector<std::string> names;
    while (!ts_node_is_null(node) && type_of(node) == "member_expression") {
      names.push_back(text(field(node, "property")));
      node = field(node, "object");
    }
    if (ts_node_is_null(node)) return std::nullopt;
    const std::string_view type = type_of(node);
    if (type == "identifier" || type == "type_identifier" || type == "this") {
      names.push_back(text(node));
    } else if (type == "nested_type_identifier" || type == "nested_identifier") {
      std::vector<std::string> parts;
      std::string part;
      for (char c : raw_text(node)) {
        if (c == '.') {
          parts.push_back(std::move(part));
          part.clear();
        } else if (c != ' ' && c != '\n' && c != '\t' && c != '\r') {
          part += c;
        }
      }
      parts.push_back(std::move(part));
      names.insert(names.end(), parts.rbegin(), parts.rend());
    } else {
      return std::nullopt;
    }
    std::reverse(names.begin(), names.end());
    // A name the parser made up to recover from an error names nothing.
    if (std::any_of(names.begin(), names.end(), [](const std::string& n) { return n.empty(); }))
      return std::nullopt;
    return names;
  }

  // An expression of members, calls and `new` read down to where it starts: `a.b().c` is
  // {a, b, "()", c}, `new C().m` is {C, "()", m}, `super.m` is {"", m}. A chain that does
  // not start from a name starts from UNKNOWN_VALUE, and `base` is what it starts from.
  ChainWalk walk_chain(TSNode node) {
    ChainWalk walk;
    while (true) {
      const std::string_view type = ts_node_is_null(node) ? std::string_view() : type_of(node);
      if (type == "member_expression") {
        walk.names.push_back(text(field(node, "property")));
        node = field(node, "object");
      } else if (type == "call_expression" || type == "new_expression") {
        const TSNode callee = field(node, type == "new_expression" ? "constructor" : "function");
        if (!ts_node_is_null(callee) && type_of(callee) == "super") {
          // `super(...)` runs the base's constructor, which its class's use already counts.
          walk.names.emplace_back(UNKNOWN_VALUE);
          walk.base = field(node, "arguments");
          walk.has_base = !ts_node_is_null(walk.base);
          break;
        }
        if (!ts_node_is_null(callee) && type_of(callee) == "import") {
          // `import("./m").then(...)`: a promise; the import itself is read on its own.
          walk.names.emplace_back(UNKNOWN_VALUE);
          walk.base = node;
          walk.has_base = true;
          break;
        }
        if (const auto what = required(node)) {
          // `require("./m").f()`, `require("./m")()`: the chain starts from the module's value.
          walk.names.push_back(required_name(*what, line_of(node)));
          break;
        }
        walk.met_call(node);
        node = callee;
      } else if (type == "non_null_expression" || type == "parenthesized_expression") {
        const TSNode inner = ts_node_named_child(node, 0);
        if (type == "parenthesized_expression" &&
            (ts_node_is_null(inner) || type_of(inner) == "sequence_expression")) {
          walk.names.emplace_back(UNKNOWN_VALUE);
          walk.base = node;
          walk.has_base = true;
          break;
        }
        node = inner;
      } else if ((type == "identifier" || type == "this") && !raw_text(node).empty()) {
        walk.names.push_back(text(node));
        break;
      } else if (type == "super") {
        walk.names.emplace_back();
        break;
      } else {
        walk.names.emplace_back(is_builtin_literal(type) ? BUILTIN_VALUE : UNKNOWN_VALUE);
        walk.base = node;
        walk.has_base = !ts_node_is_null(node);
        break;
      }
    }
    walk.finish();
    return walk;
  }

  // The uses an expression of members and calls makes: a call use per call in it, and for
  // an expression that is no call, a use of `kind` of the whole chain.
  void use_chain(const Frame& frame, TSNode node, UseKind kind) {
    ChainWalk walk = walk_chain(node);
    for (const auto& [length, call] : walk.calls) {
      std::vector<std::string> called;
      if (length <= MAX_CHAIN_LENGTH) {
        called.assign(walk.names.begin(), walk.names.begin() + static_cast<std::ptrdiff_t>(length));
      } else {
        called = {std::string(UNKNOWN_VALUE), walk.names[length - 1]};
      }
      const bool worth =
          called.front() != UNKNOWN_VALUE || (called.size() > 1 && called.back() != CALL_RESULT);
      const TSNode arguments = field(call, "arguments");
      if (worth && called.size() >= 2 &&
          (called.back() == "call" || called.back() == "apply" || called.back() == "bind")) {
        // `f.call(...)` and `f.apply(...)` call f; `f.bind(...)` hands it on.
        std::vector<std::string> function(called.begin(), called.end() - 1);
        use(called.back() == "bind" ? UseKind::reference : UseKind::call, frame.scope, frame.owner,
            std::move(function), line_of(call));
      }
      if (worth) {
        use(UseKind::call, frame.scope, frame.owner, called, line_of(call));
        if (!m_.uses.empty()) {
          const auto hints = store_.copy(argument_hints(arguments, frame.scope));
          m_.uses.back().argument_data = hints.data();
          m_.uses.back().argument_count = static_cast<std::uint8_t>(hints.size());
        }
      }
      push(arguments, frame.scope, frame.owner);
      push(field(call, "type_arguments"), frame.scope, frame.owner, true);
    }
    if (walk.has_base) push(walk.base, frame.scope, frame.owner, frame.type_mode);
    if (walk.names.back() != CALL_RESULT && walk.names.front() != UNKNOWN_VALUE &&
        walk.names.front() != BUILTIN_VALUE) {
      use(kind, frame.scope, frame.owner, std::move(walk.names), line_of(node));
    }
  }

  void visit(const Frame& frame) {
    const std::string_view type = type_of(frame.node);
    if (type == "expression_statement") {
      // Its expression is visited next: a require there is for its effects alone.
      statement_expression_ = ts_node_named_child(frame.node, 0);
      push_children(frame);
    } else if (type == "import_statement") {
      visit_import(frame);
    } else if (type == "export_statement") {
      visit_export(frame);
    } else if (type == "function_declaration" || type == "generator_function_declaration" ||
               type == "function_signature") {
      define_function(frame, text(field(frame.node, "name")), frame.node, frame.node);
    } else if (type == "class_declaration" || type == "abstract_class_declaration") {
      define_class(frame, text(field(frame.node, "name")), frame.node, frame.node);
    } else if (type == "lexical_declaration" || type == "variable_declaration") {
      const bool constant = has_token(frame.node, "const");
      for (TSNode declarator : named_children(frame.node)) {
        if (type_of(declarator) == "variable_declarator")
          visit_declarator(frame, declarator, constant);
      }
    } else if ((type == "interface_declaration" || type == "type_alias_declaration" ||
                type == "enum_declaration") &&
               raw_text(field(frame.node, "name")).empty()) {
      push_children(frame);  // a name the parser left out to recover from an error
    } else if (type == "interface_declaration") {
      const int id = define(frame.scope, text(field(frame.node, "name")), "interface", frame.node);
      definition(id).signature = store_.copy(header_of(frame.node, field(frame.node, "body")));
      for (TSNode child : named_children(frame.node)) {
        if (type_of(child) != "extends_type_clause") continue;
        for (TSNode base : named_children(child))
          type_use(frame.scope, id, base, UseKind::inherits);
      }
      define_interface_members(frame, id, field(frame.node, "body"));
    } else if (type == "type_alias_declaration") {
      const int id = define(frame.scope, text(field(frame.node, "name")), "type_alias", frame.node);
      definition(id).signature = store_.copy(header_of(frame.node, field(frame.node, "value")));
      push(field(frame.node, "value"), frame.scope, id, true);
    } else if (type == "enum_declaration") {
      const int id = define(frame.scope, text(field(frame.node, "name")), "enum", frame.node);
      definition(id).signature = store_.copy(header_of(frame.node, field(frame.node, "body")));
      push(field(frame.node, "body"), frame.scope, id);
    } else if (type == "call_expression") {
      visit_call(frame);
    } else if (type == "new_expression") {
      use_chain(frame, frame.node, UseKind::call);
    } else if (type == "member_expression") {
      use_chain(frame, frame.node, frame.type_mode ? UseKind::type : UseKind::reference);
    } else if (type == "identifier" && raw_text(frame.node) == EXPORTS_OBJECT && !frame.type_mode &&
               !bound_anywhere(frame.scope, EXPORTS_OBJECT)) {
      // The module's own exports object handed on (`setup(exports)`): each of its exports
      // may be used from there.
      import_use(frame, imported(Binding::Kind::module, m_.module), line_of(frame.node),
                 UseKind::reference);
    } else if (type == "identifier" || type == "shorthand_property_identifier") {
      use(frame.type_mode ? UseKind::type : UseKind::reference, frame.scope, frame.owner,
          {text(frame.node)}, line_of(frame.node));
    } else if (type == "type_identifier" || type == "nested_type_identifier") {
      type_use(frame.scope, frame.owner, frame.node, UseKind::type);
    } else if (type == "type_annotation" || type == "type_arguments" ||
               type == "implements_clause") {
      push_children({frame.node, frame.scope, frame.owner, true});
    } else if (is_function_value(type)) {
      open_function(frame, frame.node, -1, frame.owner, open_lambda(frame));
    } else if (type == "class") {
      define_class(frame, text(field(frame.node, "name")), frame.node, frame.node);
    } else if (type == "method_definition") {
      // A method of an object literal: a function of its own, owned by what encloses it.
      open_function(frame, frame.node, -1, frame.owner, open_lambda(frame));
    } else if (type == "assignment_expression") {
      visit_assignment(frame);
    } else if (type == "jsx_opening_element" || type == "jsx_self_closing_element") {
      const TSNode name = field(frame.node, "name");
      if (auto chain = chain_of(name); chain && is_component_name(chain->front())) {
        use(UseKind::reference, frame.scope, frame.owner, std::move(*chain), line_of(name));
      }
      for (TSNode child : named_children(frame.node)) {
        if (!ts_node_eq(child, name)) push(child, frame.scope, frame.owner);
      }
    } else if (type == "jsx_attribute") {
      const std::vector<TSNode> children = named_children(frame.node);
      for (std::size_t i = 1; i < children.size(); ++i)
        push(children[i], frame.scope, frame.owner);
    } else if (type == "for_in_statement") {
      bind_pattern(field(frame.node, "left"), frame.scope, frame.owner, {});
      push(field(frame.node, "right"), frame.scope, frame.owner);
      push(field(frame.node, "body"), frame.scope, frame.owner);
    } else if (type == "catch_clause") {
      bind_pattern(field(frame.node, "parameter"), frame.scope, frame.owner, {});
      push(field(frame.node, "body"), frame.scope, frame.owner);
    } else if (type == "return_statement") {
      Definition& function = definition(frame.owner);
      const TSNode value = ts_node_named_child(frame.node, 0);
      if (!ts_node_is_null(value) && !function.returns_annotated &&
          (function.kind == symbol_kind::FUNCTION || function.kind == symbol_kind::METHOD)) {
        add_hints(store_, function.hints, value_hints(value, frame.scope));
      }
      push_children(frame);
    } else if (type == "pair") {
      push(field(frame.node, "value"), frame.scope, frame.owner);
      const TSNode key = field(frame.node, "key");
      if (!ts_node_is_null(key) && type_of(key) == "computed_property_name")
        push(key, frame.scope, frame.owner);
    } else if (type == "as_expression" || type == "satisfies_expression") {
      const std::vector<TSNode> children = named_children(frame.node);
      if (!children.empty()) push(children.front(), frame.scope, frame.owner);
      for (std::size_t i = 1; i < children.size(); ++i)
        push(children[i], frame.scope, frame.owner, true);
    } else if (type == "ambient_declaration") {
      // `declare ...` describes what is defined outside the file (a global, a module's
      // types): what it declares is never dead here.
      ambient_.emplace_back(line_of(frame.node), end_line_of(frame.node));
      push_children(frame);
    } else if (type == "internal_module" || type == "module") {
      push(field(frame.node, "body"), frame.scope, frame.owner);
    } else if (type == "property_identifier" || type == "private_property_identifier" ||
               type == "comment" || type == "string" || type == "number" || type == "regex" ||
               type == "predefined_type" || type == "literal_type" || type == "this" ||
               type == "jsx_closing_element" || type == "jsx_text" || type == "hash_bang_line" ||
               type == "shorthand_property_identifier_pattern" || type == "statement_identifier") {
      // Nothing a name is used in.
    } else {
      push_children(frame);
    }
  }

  // The members an interface declares, as variables of its body (never dead code
  // themselves): a class's method of the same name implements one, so it is used wherever
  // the interface's contract is.
  void define_interface_members(const Frame& frame, int id, TSNode members) {
    if (ts_node_is_null(members)) return;
    const int body =
        add_scope({Scope::Kind::class_body, frame.scope, id, -1, definition(id).fqn, {}, {}});
    definition(id).body_scope = body;
    for (TSNode member : named_children(members)) {
      const std::string_view type = type_of(member);
      const std::string name = type == "property_signature" || type == "method_signature"
                                   ? member_name(field(member, "name"))
                                   : std::string();
      if (!name.empty() && !bindings(body).contains(name))
        define(body, name, symbol_kind::VARIABLE, member);
      if (type != "method_signature") {
        push(member, frame.scope, id, true);
        continue;
      }
      // A method's parameters are names of its own: only their types are uses.
      const TSNode parameters = field(member, "parameters");
      for (TSNode parameter :
           ts_node_is_null(parameters) ? std::vector<TSNode>{} : named_children(parameters))
        push(field(parameter, "type"), frame.scope, id, true);
      push(field(member, "return_type"), frame.scope, id, true);
    }
  }

  // A use of the type that `node` names (a name, a dotted name or a generic type's name).
  void type_use(int in_scope, int source, TSNode node, UseKind kind) {
    if (ts_node_is_null(node)) return;
    if (type_of(node) == "generic_type") {
      push(field(node, "type_arguments"), in_scope, source, true);
      node = field(node, "name");
    }
    if (ts_node_is_null(node)) return;
    const std::string_view type = type_of(node);
    if (auto chain = chain_of(node)) {
      use(kind, in_scope, source, std::move(*chain), line_of(node));
    } else if (type != "type_identifier" && type != "nested_type_identifier" &&
               type != "identifier") {
      // Some other type expression, whose names are read one by one (a name that names
      // nothing, made up by the parser, is left: visiting it would come back here).
      push(node, in_scope, source, kind != UseKind::reference);
    }
  }

  // The text of a declaration up to where `body` starts, on one line, decorators first.
  std::string header_of(TSNode declaration, TSNode body) const {
    const std::uint32_t start = ts_node_start_byte(declaration);
    std::uint32_t end =
        ts_node_is_null(body) ? ts_node_end_byte(declaration) : ts_node_start_byte(body);
    end = std::min<std::uint32_t>(end, static_cast<std::uint32_t>(src_.size()));
    if (end <= start) return {};
    std::string header = collapse_whitespace(valid_utf8(src_.substr(start, end - start)));
    while (!header.empty() &&
           (header.back() == '=' || header.back() == ' ' || header.back() == '{'))
      header.pop_back();
    // A long expression (a class's member, say) is no signature: cut it short.
    if (header.size() > 400) header.resize(400);
    return header;
  }

  // A name's text as a member: "m", "#m", "'quoted'" as its value; nothing for a computed
  // name.
  std::string member_name(TSNode name) {
    if (ts_node_is_null(name)) return {};
    const std::string_view type = type_of(name);
    if (type == "string") return string_value(name);
    if (type == "computed_property_name") return {};
    return text(name);
  }

  int open_lambda(const Frame& frame) {
    const Scope& outer = scope(frame.scope);
    return add_scope(
        {Scope::Kind::lambda, frame.scope, frame.owner, outer.method_of, outer.fqn, {}, {}});
  }

  // Defines the function `name` that `node` (a declaration, or a function value bound to a
  // name) is, `whole` spanning its lines; in a class body it is a method.
  // `decorators` are those written before `whole` in a class body, which the grammar keeps
  // apart from it.
  int define_function(const Frame& frame, const std::string& name, TSNode node, TSNode whole,
                      std::vector<TSNode> decorators = {}) {
    if (name.empty()) {
      open_function(frame, node, -1, frame.owner, open_lambda(frame));
      return -1;
    }
    const Scope& outer = scope(frame.scope);
    const bool is_method = outer.kind == Scope::Kind::class_body;
    const int method_of = is_method ? outer.owner : -1;
    const int id =
        define(frame.scope, name, is_method ? symbol_kind::METHOD : symbol_kind::FUNCTION, whole);
    std::string signature;
    for (TSNode decorator : decorators_of(whole))
      decorators.push_back(decorator);
    for (TSNode decorator : decorators) {
      signature += collapse_whitespace(text(decorator)) + " ";
      decorate(frame, id, decorator);
    }
    signature += header_of(whole, field(node, "body"));
    definition(id).signature = store_.copy(signature);
    const int body = add_scope(
        {Scope::Kind::function, frame.scope, id, method_of, member_fqn(frame.scope, name), {}, {}});
    if (method_of >= 0 && !has_token(whole, "static")) {
      bind(body, "this", {Binding::Kind::instance, false, method_of});
    }
    open_function(frame, node, id, id, body);
    return id;
  }

  // Binds the parameters of function `node` in `body` and pushes its body; `id` is the
  // function's definition (or -1 for an anonymous one), `owner` what its uses count for.
  void open_function(const Frame& frame, TSNode node, int id, int owner, int body) {
    const TSNode parameter = field(node, "parameter");  // `x => ...`
    if (!ts_node_is_null(parameter)) bind_pattern(parameter, body, owner, {});
    const TSNode parameters = field(node, "parameters");
    if (!ts_node_is_null(parameters)) {
      std::vector<std::string_view> positional;
      for (TSNode item : named_children(parameters))
        visit_parameter(frame, item, id, owner, body, positional);
      if (id >= 0) definition(id).parameters = store_.copy(positional);
    }
    const TSNode returns = field(node, "return_type");
    if (id >= 0) {
      Definition& function = definition(id);
      function.hints = store_.copy(annotation_hints(returns, frame.scope));
      function.returns_annotated = !function.hints.empty();
    }
    push(returns, frame.scope, owner, true);
    push(field(node, "type_parameters"), frame.scope, owner, true);
    const TSNode code = field(node, "body");
    if (id >= 0 && !ts_node_is_null(code) && type_of(code) != "statement_block" &&
        !definition(id).returns_annotated) {
      add_hints(store_, definition(id).hints, value_hints(code, body));  // `() => new C()`
    }
    push(code, body, owner);
  }

  // Binds the parameter `item` in `body`; a named one of `function` joins `positional`.
  void visit_parameter(const Frame& frame, TSNode item, int function, int owner, int body,
                       std::vector<std::string_view>& positional) {
    const std::string_view type = type_of(item);
    TSNode pattern = item;
    TSNode annotation{};
    if (type == "required_parameter" || type == "optional_parameter") {
      pattern = field(item, "pattern");
      annotation = field(item, "type");
      push(field(item, "value"), frame.scope, frame.owner);
      for (TSNode child : named_children(item)) {
        if (type_of(child) == "decorator") decorate(frame, owner, child);
      }
    } else if (type == "assignment_pattern") {
      pattern = field(item, "left");
      push(field(item, "right"), frame.scope, frame.owner);
    } else if (type == "comment") {
      return;
    }
    if (ts_node_is_null(pattern)) return;
    std::vector<TypeHint> hints = annotation_hints(annotation, frame.scope);
    push(annotation, frame.scope, owner, true);
    if (type_of(pattern) == "this") return;  // `this: T` names no parameter
    if (type_of(pattern) != "identifier") {
      bind_pattern(pattern, body, owner, {});
      return;
    }
    const std::string name = text(pattern);
    if (function >= 0) {
      positional.push_back(store_.name(name));
      // `constructor(private repo: Repo)` declares the attribute repo of its class.
      const int method_of = scope(body).method_of;
      if (method_of >= 0 && definition(function).name == "constructor" && has_accessibility(item)) {
        add_hints(store_, attribute_hints(store_, definition(method_of), name), hints);
      }
    }
    Binding value;
    value.hints = store_.copy(hints);
    value.definition = function >= 0 ? function : owner;
    value.details = store_.copy_one(Binding::Details{.name = store_.name(name)});
    value.parameter = function >= 0;
    bind(body, name, value);
  }

  bool has_accessibility(TSNode parameter) {
    for (TSNode child : named_children(parameter)) {
      const std::string_view type = type_of(child);
      if (type == "accessibility_modifier" || type == "override_modifier") return true;
    }
    return has_token(parameter, "readonly");
  }

  // The decorators written on a declaration: those on the export statement that declares it
  // (`@dec export class A`), then its `decorator` children. The export statement is known
  // while it is visited: asking tree-sitter for a node's parent walks down from the root.
  std::vector<TSNode> decorators_of(TSNode node) {
    std::vector<TSNode> out;
    if (!ts_node_is_null(export_statement_) &&
        ts_node_eq(field(export_statement_, "declaration"), node)) {
      for (TSNode child : named_children(export_statement_)) {
        if (type_of(child) == "decorator") out.push_back(child);
      }
    }
    for (TSNode child : named_children(node)) {
      if (type_of(child) == "decorator") out.push_back(child);
    }
    return out;
  }

  void decorate(const Frame& frame, int id, TSNode decorator) {
    const TSNode expression = ts_node_named_child(decorator, 0);
    if (ts_node_is_null(expression)) return;
    const bool is_call = type_of(expression) == "call_expression";
    const TSNode named = is_call ? field(expression, "function") : expression;
    if (auto chain = chain_of(named)) {
      use(UseKind::decorates, frame.scope, id, std::move(*chain), line_of(decorator));
      if (is_call) push(field(expression, "arguments"), frame.scope, frame.owner);
    } else {
      push(expression, frame.scope, frame.owner);
    }
  }

  int define_class(const Frame& frame, std::string name, TSNode node, TSNode whole) {
    if (name.empty()) {
      push_children(frame);
      return -1;
    }
    const int id = define(frame.scope, name, symbol_kind::CLASS, whole);
    std::string signature;
    for (TSNode decorator : decorators_of(node)) {
      signature += collapse_whitespace(text(decorator)) + " ";
      decorate(frame, id, decorator);
    }
    signature += header_of(node, field(node, "body"));
    definition(id).signature = store_.copy(signature);
    for (TSNode child : named_children(node)) {
      if (type_of(child) != "class_heritage") continue;
      for (TSNode clause : named_children(child)) {
        if (type_of(clause) == "extends_clause") {
          // JavaScript's grammar lists the base expression as a plain child.
          TSNode base = field(clause, "value");
          if (ts_node_is_null(base)) base = ts_node_named_child(clause, 0);
          if (auto chain = chain_of(base)) {
            use(UseKind::inherits, frame.scope, id, std::move(*chain), line_of(base));
          } else {
            push(base, frame.scope, frame.owner);
          }
          push(field(clause, "type_arguments"), frame.scope, id, true);
        } else if (type_of(clause) == "implements_clause") {
          for (TSNode implemented : named_children(clause))
            type_use(frame.scope, id, implemented, UseKind::implements);
        } else {
          // `class A extends B` in JavaScript: the heritage holds the expression itself.
          if (auto chain = chain_of(clause)) {
            use(UseKind::inherits, frame.scope, id, std::move(*chain), line_of(clause));
          } else {
            push(clause, frame.scope, frame.owner);
          }
        }
      }
    }
    push(field(node, "type_parameters"), frame.scope, id, true);
    const int body =
        add_scope({Scope::Kind::class_body, frame.scope, id, -1, definition(id).fqn, {}, {}});
    definition(id).body_scope = body;
    const TSNode members = field(node, "body");
    if (!ts_node_is_null(members)) {
      std::vector<TSNode> decorators;  // those written before the next member
      for (TSNode member : named_children(members)) {
        if (type_of(member) == "decorator") {
          decorators.push_back(member);
        } else {
          visit_member({member, body, id, false}, id, std::move(decorators));
          decorators.clear();
        }
      }
    }
    // `new C()` runs C's constructor: it is used wherever its class is.
    if (bindings(body).contains("constructor")) {
      use(UseKind::reference, body, id, {"constructor"}, line_of(node));
    }
    return id;
  }

  void visit_member(const Frame& frame, int cls, std::vector<TSNode> decorators) {
    const std::string_view type = type_of(frame.node);
    if (type == "method_definition" || type == "abstract_method_signature" ||
        type == "method_signature") {
      const std::string name = member_name(field(frame.node, "name"));
      if (name.empty()) {
        push(field(frame.node, "name"), frame.scope, cls);
        open_function(frame, frame.node, -1, cls, open_lambda(frame));
        return;
      }
      define_function(frame, name, frame.node, frame.node, std::move(decorators));
    } else if (type == "public_field_definition" || type == "field_definition") {
      TSNode name_node = field(frame.node, "name");
      if (ts_node_is_null(name_node)) name_node = field(frame.node, "property");
      const std::string name = member_name(name_node);
      const TSNode value = field(frame.node, "value");
      const TSNode annotation = field(frame.node, "type");
      push(annotation, frame.scope, cls, true);
      if (!name.empty() && !ts_node_is_null(value) && is_function_value(type_of(value))) {
        // `handle = () => ...`: a method bound to each instance.
        define_function(frame, name, value, frame.node, std::move(decorators));
        return;
      }
      int id = cls;
      if (!name.empty()) {
        id = define(frame.scope, name, symbol_kind::VARIABLE, frame.node);
        std::vector<TypeHint> hints = annotation_hints(annotation, frame.scope);
        add_hints(hints, value_hints(value, frame.scope));
        add_hints(store_, attribute_hints(store_, definition(cls), name), hints);
        definition(id).hints = store_.copy(hints);
      }
      for (TSNode decorator : decorators_of(frame.node))
        decorators.push_back(decorator);
      for (TSNode decorator : decorators)
        decorate(frame, id, decorator);
      // A field's value is computed for each instance, as the constructor's code is.
      push(value, frame.scope, cls);
    } else {
      push(frame.node, frame.scope, cls, type == "index_signature");
    }
  }

  void visit_declarator(const Frame& frame, TSNode declarator, bool constant) {
    const TSNode name = field(declarator, "name");
    const TSNode value = field(declarator, "value");
    const TSNode annotation = field(declarator, "type");
    if (ts_node_is_null(name)) return;
    if (const auto module = required(value)) {
      bind_required(frame, name, *module);
      return;
    }
    const std::string_view value_type = ts_node_is_null(value) ? "" : type_of(value);
    if (type_of(name) == "identifier" && is_function_value(value_type)) {
      define_function(frame, text(name), value, declarator);
      return;
    }
    if (type_of(name) == "identifier" && is_class_value(value_type)) {
      define_class(frame, text(name), value, declarator);
      return;
    }
    if (frame.scope == MODULE_SCOPE && type_of(name) == "identifier" && value_type == "object" &&
        !raw_text(name).empty() && !bindings(frame.scope).contains(text(name))) {
      define_object(frame, text(name), value, declarator, constant);
      push(annotation, frame.scope, frame.owner, true);
      return;
    }
    std::vector<TypeHint> hints;
    if (!ts_node_is_null(annotation)) hints = annotation_hints(annotation, frame.scope);
    add_hints(hints, value_hints(value, frame.scope));
    bind_pattern(name, frame.scope, frame.owner, std::move(hints), constant, declarator);
    push(annotation, frame.scope, frame.owner, true);
    push(value, frame.scope, frame.owner);
  }

  // An object literal bound to `name` in the module scope: a constant (or variable) whose
  // methods, and properties holding functions, are its members (`api.get()` reaches them),
  // as a class's methods are. The members of an object the module does not export (by its
  // declaration, an export list, `module.exports` or a default export) are never reported
  // (finish): code often calls them by computed names (`handlers[type]()`).
  void define_object(const Frame& frame, const std::string& name, TSNode object, TSNode whole,
                     bool constant) {
    const int id =
        define(frame.scope, name, constant ? symbol_kind::CONSTANT : symbol_kind::VARIABLE, whole);
    const int body =
        add_scope({Scope::Kind::class_body, frame.scope, id, -1, definition(id).fqn, {}, {}});
    definition(id).body_scope = body;
    objects_.push_back(id);
    const Frame members{object, body, id, false};
    for (TSNode property : named_children(object)) {
      const std::string_view type = type_of(property);
      if (type == "method_definition") {
        const std::string member = member_name(field(property, "name"));
        if (!member.empty()) {
          define_function(members, member, property, property);
          continue;
        }
      } else if (type == "pair") {
        const std::string member = member_name(field(property, "key"));
        const TSNode value = field(property, "value");
        if (!member.empty() && !ts_node_is_null(value) && is_function_value(type_of(value))) {
          define_function(members, member, value, property);
          continue;
        }
      }
      push(property, frame.scope, frame.owner);
    }
  }

  // Binds the names of a binding pattern. In the module scope each is a symbol (a constant
  // or variable); elsewhere a value, with `hints` for a plain name.
  void bind_pattern(TSNode pattern, int in_scope, int owner, std::vector<TypeHint> hints,
                    bool constant = false, TSNode whole = {}) {
    if (ts_node_is_null(pattern)) return;
    if (type_of(pattern) == "identifier") {
      bind_value(text(pattern), in_scope, owner, std::move(hints), constant,
                 ts_node_is_null(whole) ? pattern : whole);
      return;
    }
    std::vector<TSNode> pending{pattern};
    while (!pending.empty()) {
      const TSNode node = pending.back();
      pending.pop_back();
      const std::string_view type = type_of(node);
      if (type == "identifier" || type == "shorthand_property_identifier_pattern") {
        bind_value(text(node), in_scope, owner, {}, constant, node);
      } else if (type == "assignment_pattern" || type == "object_assignment_pattern") {
        pending.push_back(field(node, "left"));
        push(field(node, "right"), in_scope, owner);
      } else if (type == "pair_pattern") {
        pending.push_back(field(node, "value"));
      } else if (type == "member_expression" || type == "subscript_expression") {
        push(node, in_scope, owner);
      } else if (type == "object_pattern" || type == "array_pattern" || type == "rest_pattern" ||
                 type == "lexical_declaration" || type == "variable_declaration" ||
                 type == "variable_declarator") {
        for (TSNode child : named_children(node))
          pending.push_back(child);
      }
    }
  }

  void bind_value(const std::string& name, int in_scope, int owner, std::vector<TypeHint> hints,
                  bool constant, TSNode node) {
    if (name.empty()) return;
    if (in_scope != MODULE_SCOPE || bindings(in_scope).contains(name)) {
      Binding value;
      value.hints = store_.copy(hints);
      value.definition = owner;
      bind(in_scope, name, value);
      return;
    }
    const int id =
        define(in_scope, name, constant ? symbol_kind::CONSTANT : symbol_kind::VARIABLE, node);
    definition(id).hints = store_.copy(hints);
  }

  // What `require("./m")` (the module's value) or `require("./m").name` (its export name)
  // reads, when `value` is one with a constant string.
  // What `require("./m")` (the module's value), `require("./m").name` (its export name) or
  // `await import("./m")` (the module's namespace) reads, when `value` is one with a
  // constant string.
  struct Required {
    std::string specifier;
    std::string member;       // empty for the module's value
    bool namespace_ = false;  // `await import(...)`
  };
  std::optional<Required> required(TSNode value) {
    if (ts_node_is_null(value)) return std::nullopt;
    std::string member;
    bool awaited = false;
    if (type_of(value) == "member_expression") {
      member = text(field(value, "property"));
      value = field(value, "object");
    } else if (type_of(value) == "await_expression") {
      value = ts_node_named_child(value, 0);
      awaited = true;
    }
    if (ts_node_is_null(value) || type_of(value) != "call_expression") return std::nullopt;
    const TSNode callee = field(value, "function");
    if (ts_node_is_null(callee)) return std::nullopt;
    const bool dynamic = awaited && type_of(callee) == "import";
    if (!dynamic && (awaited || type_of(callee) != "identifier" || raw_text(callee) != "require"))
      return std::nullopt;
    const TSNode arguments = field(value, "arguments");
    const TSNode first = ts_node_is_null(arguments) ? TSNode{} : ts_node_named_child(arguments, 0);
    if (ts_node_is_null(first) || type_of(first) != "string") return std::nullopt;
    return Required{string_value(first), std::move(member), dynamic};
  }

  // What a `require` gives: the module's export `member`, or its `module.exports` value
  // (its "default") and otherwise the module itself; what `await import` gives: the module.
  Binding required_binding(const Required& what) {
    const std::string module = modules_.module_for(m_.path, what.specifier);
    if (what.namespace_) return imported(Binding::Kind::module, module);
    if (!what.member.empty()) return imported(Binding::Kind::imported_name, module, what.member);
    return imported(Binding::Kind::module, module, DEFAULT_EXPORT);
  }

  // The name that stands in a chain for the value of a require (`require("./m").f()`):
  // bound in the module scope to what the require gives, with no symbol, once per file and
  // specifier. No identifier holds a ":".
  std::string required_name(const Required& what, std::int64_t line) {
    std::string name = "require:" + what.specifier;
    if (!bindings(MODULE_SCOPE).contains(name)) {
      Binding binding = required_binding({what.specifier, {}, false});
      m_.uses.push_back({.kind = UseKind::import,
                         .scope = MODULE_SCOPE,
                         .source = TOPLEVEL_DEFINITION,
                         .line = static_cast<std::uint32_t>(line),
                         .imported = store_.copy_one(binding)});
      bindings(MODULE_SCOPE).emplace(store_.name(name), binding);
    }
    return name;
  }

  // `const x = require("./m")` binds x to m's value, `const x = require("./m").a` to m's
  // export a; `const {a, b: c} = require("./m")` binds a and c to m's exports a and b.
  void bind_required(const Frame& frame, TSNode name, const Required& what) {
    const Binding binding = required_binding(what);
    const std::string_view module = binding.module();
    import_use(frame, binding, line_of(name));
    if (type_of(name) == "identifier") {
      bind_import(frame, text(name), binding, name);
      return;
    }
    if (type_of(name) != "object_pattern" || !what.member.empty()) return;
    for (TSNode item : named_children(name)) {
      if (type_of(item) == "shorthand_property_identifier_pattern") {
        bind_import(frame, text(item), imported(Binding::Kind::imported_name, module, text(item)),
                    item);
      } else if (type_of(item) == "pair_pattern" && type_of(field(item, "value")) == "identifier") {
        bind_import(frame, text(field(item, "value")),
                    imported(Binding::Kind::imported_name, module, member_name(field(item, "key"))),
                    item);
      }
    }
  }

  void visit_call(const Frame& frame) {
    const TSNode callee = field(frame.node, "function");
    const std::string_view callee_type = ts_node_is_null(callee) ? "" : type_of(callee);
    if (callee_type == "import" || (callee_type == "identifier" && raw_text(callee) == "require")) {
      // `import("./m")` and a `require("./m")` whose value is not bound to a name.
      const TSNode arguments = field(frame.node, "arguments");
      const TSNode first =
          ts_node_is_null(arguments) ? TSNode{} : ts_node_named_child(arguments, 0);
      if (!ts_node_is_null(first) && type_of(first) == "string") {
        const Binding module =
            imported(Binding::Kind::module, modules_.module_for(m_.path, string_value(first)));
        import_use(frame, module, line_of(frame.node));
        // What `import("./m")` loads is used where the index cannot follow the promise
        // (`.then((m) => m.f())`, `lazy(() => import("./Page"))`): any of its exports. So is
        // what a `require("./m")` gives that is returned or handed on (`memo(() =>
        // require("./m"))`), unless the require is a statement of its own.
        if (callee_type == "import" || !ts_node_eq(frame.node, statement_expression_))
          import_use(frame, module, line_of(frame.node), UseKind::reference);
        return;
      }
      if (callee_type == "import") {
        // `import(name)`: nothing known is loaded (and a chain would start from this call).
        push(arguments, frame.scope, frame.owner);
        return;
      }
    }
    use_chain(frame, frame.node, UseKind::call);
  }

  void visit_import(const Frame& frame) {
    const TSNode source = field(frame.node, "source");
    const bool type_only = has_token(frame.node, "type");
    const UseKind kind = type_only ? UseKind::type : UseKind::import;
    std::string module;
    if (!ts_node_is_null(source)) module = modules_.module_for(m_.path, string_value(source));
    bool bound = false;
    for (TSNode child : named_children(frame.node)) {
      const std::string_view type = type_of(child);
      if (type == "import_require_clause") {
        // `import x = require("./m")`
        const std::string required =
            modules_.module_for(m_.path, string_value(field(child, "source")));
        const Binding binding = imported(Binding::Kind::module, required, DEFAULT_EXPORT);
        import_use(frame, imported(Binding::Kind::module, required), line_of(child));
        bind_import(frame, text(ts_node_named_child(child, 0)), binding, child);
        bound = true;
      }
      if (type != "import_clause") continue;
      for (TSNode part : named_children(child)) {
        const std::string_view part_type = type_of(part);
        if (part_type == "identifier") {
          // A default import: the module's "default", or for a CommonJS module its value.
          const Binding binding = imported(Binding::Kind::module, module, DEFAULT_EXPORT);
          import_use(frame, binding, line_of(part), kind);
          bind_import(frame, text(part), binding, part);
        } else if (part_type == "namespace_import") {
          const Binding binding = imported(Binding::Kind::module, module);
          import_use(frame, binding, line_of(part), kind);
          bind_import(frame, text(ts_node_named_child(part, 0)), binding, part);
        } else if (part_type == "named_imports") {
          for (TSNode specifier : named_children(part)) {
            if (type_of(specifier) != "import_specifier") continue;
            const TSNode name = field(specifier, "name");
            const TSNode alias = field(specifier, "alias");
            const std::string name_imported = member_name(name);
            const Binding binding = imported(Binding::Kind::imported_name, module, name_imported);
            import_use(frame, binding, line_of(specifier),
                       type_only || has_token(specifier, "type") ? UseKind::type : UseKind::import);
            bind_import(frame, ts_node_is_null(alias) ? name_imported : text(alias), binding,
                        specifier);
          }
        }
        bound = true;
      }
    }
    if (!bound && !module.empty()) {
      import_use(frame, imported(Binding::Kind::module, module), line_of(frame.node));
    }
  }

  void visit_export(const Frame& frame) {
    const TSNode declaration = field(frame.node, "declaration");
    const TSNode value = field(frame.node, "value");
    const TSNode source = field(frame.node, "source");
    const bool is_default = has_token(frame.node, "default");
    if (!ts_node_is_null(declaration)) {
      const std::size_t before = m_.definitions.size();
      export_statement_ = frame.node;
      visit({declaration, frame.scope, frame.owner, frame.type_mode});
      export_statement_ = TSNode{};
      std::vector<std::string> names;
      for (std::size_t d = before; d < m_.definitions.size(); ++d) {
        // The declaration's own names, not those of what it encloses (bound elsewhere).
        const std::string_view name = m_.definitions[d].name;
        auto it = bindings(frame.scope).find(name);
        if (it != bindings(frame.scope).end() && it->second.definition == static_cast<int>(d))
          names.emplace_back(name);
      }
      for (const std::string& name : names) {
        if (is_default && name != DEFAULT_EXPORT) {
          alias_export(std::string(DEFAULT_EXPORT), m_.module, name, frame.node);
        } else {
          exports_.push_back(name);
        }
      }
      return;
    }
    if (!ts_node_is_null(value)) {
      export_value(frame, value, std::string(DEFAULT_EXPORT));
      return;
    }
    const std::string module =
        ts_node_is_null(source) ? m_.module : modules_.module_for(m_.path, string_value(source));
    bool listed = false;
    for (TSNode child : named_children(frame.node)) {
      const std::string_view type = type_of(child);
      if (type == "export_clause") {
        listed = true;
        for (TSNode specifier : named_children(child)) {
          if (type_of(specifier) != "export_specifier") continue;
          const std::string name = member_name(field(specifier, "name"));
          const TSNode alias = field(specifier, "alias");
          const std::string exported = ts_node_is_null(alias) ? name : member_name(alias);
          if (!ts_node_is_null(source)) {
            import_use(frame, imported(Binding::Kind::imported_name, module, name),
                       line_of(specifier));
          }
          alias_export(exported, module, name, specifier);
        }
      } else if (type == "namespace_export") {
        // `export * as ns from "./m"`
        listed = true;
        const std::string name = member_name(ts_node_named_child(child, 0));
        import_use(frame, imported(Binding::Kind::module, module), line_of(child));
        if (!name.empty()) alias_import(name, imported(Binding::Kind::module, module), child);
      } else if (type == "identifier" && ts_node_is_null(source)) {
        // TypeScript's `export = value`.
        listed = true;
        alias_export(std::string(DEFAULT_EXPORT), m_.module, text(child), frame.node);
      }
    }
    if (!listed && !ts_node_is_null(source)) {
      // `export * from "./m"`: m's exports are this module's.
      m_.star_imports.push_back(module);
      import_use(frame, imported(Binding::Kind::module, module), line_of(frame.node));
    }
  }

  // The module exports `value` as `name` (a default export, `module.exports = value`,
  // `exports.name = value`): a function or class is defined under its own name (or `name`
  // when it has none), a name of the module is aliased, anything else is a variable.
  void export_value(const Frame& frame, TSNode value, const std::string& name) {
    const std::string_view type = type_of(value);
    if (const auto what = required(value)) {
      // `exports.run = require("./run")`: the export is what that require gives.
      const Binding binding = required_binding(*what);
      import_use(frame, binding, line_of(value));
      alias_import(name, binding, value);
      return;
    }
    if (type == "identifier") {
      alias_export(name, m_.module, text(value), value);
      return;
    }
    if (is_function_value(type) || is_class_value(type)) {
      std::string own = text(field(value, "name"));
      if (own.empty()) own = name;
      if (is_class_value(type)) {
        define_class(frame, own, value, value);
      } else {
        define_function(frame, own, value, value);
      }
      alias_export(name, m_.module, own, value);
      return;
    }
    if (name.empty()) {
      push(value, frame.scope, frame.owner);
      return;
    }
    if (!bindings(frame.scope).contains(name)) {
      const int id = define(frame.scope, name, symbol_kind::VARIABLE, value);
      definition(id).hints = store_.copy(value_hints(value, frame.scope));
    }
    exports_.push_back(name);
    push(value, frame.scope, frame.owner);
  }

  void visit_assignment(const Frame& frame) {
    const TSNode left = field(frame.node, "left");
    const TSNode right = field(frame.node, "right");
    const auto chain = chain_of(left);
    const bool module_level = frame.scope == MODULE_SCOPE;
    if (chain && module_level && exports_object(*chain)) {
      if (chain->size() == 2 && chain->front() == MODULE_OBJECT) {
        export_module_object(frame, right);
      } else {
        export_value(frame, right, chain->back());
      }
      return;
    }
    if (chain && module_level && attach_member(frame, *chain, right)) return;
    std::vector<TypeHint> hints = value_hints(right, frame.scope);
    if (chain && chain->size() == 1) {
      hint_name(frame.scope, chain->front(), std::move(hints));
    } else if (chain && chain->size() == 2 && chain->front() == "this") {
      const int cls = scope(frame.scope).method_of >= 0 ? scope(frame.scope).method_of
                                                        : enclosing_class(frame.scope);
      if (cls >= 0)
        add_hints(store_, attribute_hints(store_, definition(cls), chain->back()),
                  std::move(hints));
    }
    if (!chain || chain->size() > 1) push(left, frame.scope, frame.owner);
    push(right, frame.scope, frame.owner);
  }

  // `X.name = function () {...}` and `X.prototype.name = ...` at module level, X a function,
  // class or variable of the module: a method `name` of X, as a class's own (the methods of
  // constructor functions before classes, properties set on a module's exported object).
  // Whether the assignment was such.
  bool attach_member(const Frame& frame, const std::vector<std::string>& chain, TSNode value) {
    if (ts_node_is_null(value) || !is_function_value(type_of(value))) return false;
    if (!(chain.size() == 2 || (chain.size() == 3 && chain[1] == "prototype"))) return false;
    const BindingMap& module_bindings = bindings(MODULE_SCOPE);
    auto it = module_bindings.find(chain.front());
    if (it == module_bindings.end() || it->second.kind != Binding::Kind::definition) return false;
    const int owner = it->second.definition;
    const std::string_view kind = definition(owner).kind;
    if (kind != symbol_kind::FUNCTION && kind != symbol_kind::CLASS &&
        kind != symbol_kind::VARIABLE && kind != symbol_kind::CONSTANT) {
      return false;
    }
    if (definition(owner).body_scope < 0) {
      definition(owner).body_scope = add_scope(
          {Scope::Kind::class_body, MODULE_SCOPE, owner, -1, definition(owner).fqn, {}, {}});
    }
    define_function({frame.node, definition(owner).body_scope, owner, false}, chain.back(), value,
                    frame.node);
    return true;
  }

  // Whether `name` is bound in `in_scope` or a scope around it (a parameter named exports).
  bool bound_anywhere(int in_scope, std::string_view name) {
    for (int s = in_scope; s >= 0; s = scope(s).parent) {
      if (bindings(s).contains(name)) return true;
    }
    return false;
  }

  // The class whose method `in_scope` is, or is nested in (an arrow function in a method).
  int enclosing_class(int in_scope) {
    for (int s = in_scope; s >= 0; s = scope(s).parent) {
      if (scope(s).kind == Scope::Kind::function) return scope(s).method_of;
    }
    return -1;
  }

  // Whether `chain` assigns to the module's exports: `module.exports`, `module.exports.x`,
  // `exports.x` (unless the file binds those names itself).
  bool exports_object(const std::vector<std::string>& chain) {
    const BindingMap& module_bindings = bindings(MODULE_SCOPE);
    if (chain.front() == MODULE_OBJECT && chain.size() >= 2 && chain[1] == EXPORTS_OBJECT &&
        chain.size() <= 3) {
      return !module_bindings.contains(MODULE_OBJECT);
    }
    return chain.front() == EXPORTS_OBJECT && chain.size() == 2 &&
           !module_bindings.contains(EXPORTS_OBJECT);
  }

  // `module.exports = value`: an object literal exports each of its properties, anything
  // else is the module's value (its "default").
  void export_module_object(const Frame& frame, TSNode value) {
    if (type_of(value) != "object") {
      export_value(frame, value, std::string(DEFAULT_EXPORT));
      return;
    }
    for (TSNode property : named_children(value)) {
      const std::string_view type = type_of(property);
      if (type == "shorthand_property_identifier") {
        alias_export(text(property), m_.module, text(property), property);
      } else if (type == "pair") {
        const std::string name = member_name(field(property, "key"));
        if (name.empty()) {
          push(property, frame.scope, frame.owner);
        } else {
          export_value(frame, field(property, "value"), name);
        }
      } else if (type == "method_definition") {
        const std::string name = member_name(field(property, "name"));
        if (name.empty()) {
          push(property, frame.scope, frame.owner);
          continue;
        }
        define_function(frame, name, property, property);
        exports_.push_back(name);
      } else {
        push(property, frame.scope, frame.owner);
      }
    }
  }

  // Adds `hints` to the value a name bound in `in_scope` (or a scope around it) has.
  void hint_name(int in_scope, const std::string& name, std::vector<TypeHint> hints) {
    if (hints.empty()) return;
    for (int s = in_scope; s >= 0; s = scope(s).parent) {
      auto it = bindings(s).find(name);
      if (it == bindings(s).end()) continue;
      Binding& binding = it->second;
      if (binding.kind == Binding::Kind::value) {
        add_hints(store_, binding.hints, std::move(hints));
      } else if (binding.kind == Binding::Kind::definition) {
        Definition& variable = definition(binding.definition);
        if (variable.kind == symbol_kind::VARIABLE || variable.kind == symbol_kind::CONSTANT)
          add_hints(store_, variable.hints, std::move(hints));
      }
      return;
    }
  }

  // The type hints an expression's value gives: a call or `new`, a name or member chain,
  // either side of `a || b`, `a ?? b` and `c ? a : b`, the awaited value, `x as C`.
  std::vector<TypeHint> value_hints(TSNode expression, int in_scope) {
    std::vector<TypeHint> hints;
    std::vector<TSNode> pending{expression};
    while (!pending.empty() && hints.size() < MAX_TYPE_HINTS) {
      const TSNode node = pending.back();
      pending.pop_back();
      if (ts_node_is_null(node)) continue;
      const std::string_view type = type_of(node);
      if (is_builtin_literal(type)) {
        hints.push_back({TypeHint::Kind::name, in_scope, builtin_chain(store_)});
      } else if (type == "call_expression" || type == "new_expression" || type == "identifier" ||
                 type == "member_expression" || type == "this") {
        ChainWalk walk = walk_chain(node);
        if (walk.names.front() == UNKNOWN_VALUE || walk.names.front().empty() ||
            walk.names.size() > MAX_CHAIN_LENGTH) {
          continue;
        }
        if (walk.names.back() == CALL_RESULT) {
          walk.names.pop_back();
          hints.push_back({TypeHint::Kind::call, in_scope, store_.chain(walk.names)});
        } else {
          hints.push_back({TypeHint::Kind::name, in_scope, store_.chain(walk.names)});
        }
      } else if (type == "as_expression" || type == "satisfies_expression") {
        const std::vector<TSNode> children = named_children(node);
        if (children.size() == 2) {
          for (TypeHint& hint : annotation_hints(children[1], in_scope))
            hints.push_back(std::move(hint));
        }
      } else if (type == "binary_expression" || type == "ternary_expression" ||
                 type == "parenthesized_expression" || type == "await_expression" ||
                 type == "non_null_expression") {
        if (type == "binary_expression") {
          const std::string_view op = raw_text(field(node, "operator"));
          if (op != "||" && op != "??" && op != "&&") continue;
        }
        const std::vector<TSNode> children = named_children(node);
        for (std::size_t i = children.size(); i-- > 0;) {
          if (type == "ternary_expression" && i == 0) continue;  // the condition
          pending.push_back(children[i]);
        }
      }
    }
    return hints;
  }

  std::vector<Argument> argument_hints(TSNode arguments, int in_scope) {
    std::vector<Argument> hints;
    if (ts_node_is_null(arguments) || type_of(arguments) != "arguments") return hints;
    int position = 0;
    for (TSNode argument : named_children(arguments)) {
      if (hints.size() >= MAX_ARGUMENT_HINTS || type_of(argument) == "spread_element") break;
      const int at = position++;
      const std::string_view type = type_of(argument);
      if (type != "identifier" && type != "member_expression" && type != "call_expression" &&
          type != "new_expression" && type != "this" && !is_builtin_literal(type)) {
        continue;
      }
      for (TypeHint& hint : value_hints(argument, in_scope))
        hints.push_back({at, {}, hint});
    }
    return hints;
  }

  // The classes a type annotation names: `C`, `ns.C`, `C | null`, `C<T>`, `(C)`.
  std::vector<TypeHint> annotation_hints(TSNode annotation, int in_scope) {
    std::vector<TypeHint> hints;
    std::vector<TSNode> pending{annotation};
    while (!pending.empty() && hints.size() < MAX_TYPE_HINTS) {
      const TSNode node = pending.back();
      pending.pop_back();
      if (ts_node_is_null(node)) continue;
      const std::string_view type = type_of(node);
      if (type == "type_identifier" || type == "nested_type_identifier") {
        if (auto chain = chain_of(node))
          hints.push_back({TypeHint::Kind::annotation, in_scope, store_.chain(*chain)});
      } else if (type == "generic_type") {
        pending.push_back(field(node, "name"));
      } else if (type == "type_annotation" || type == "union_type" ||
                 type == "parenthesized_type") {
        const std::vector<TSNode> children = named_children(node);
        for (auto it = children.rbegin(); it != children.rend(); ++it)
          pending.push_back(*it);
      }
    }
    return hints;
  }

  // Whether `name` is bound in `in_scope` or a scope around it that code there sees (a
  // class body's names are members, seen only from the body itself).
  bool is_bound(int in_scope, std::string_view name) const {
    for (int s = in_scope; s >= 0; s = m_.scopes[static_cast<std::size_t>(s)].parent) {
      const Scope& here = m_.scopes[static_cast<std::size_t>(s)];
      if (s != in_scope && here.kind == Scope::Kind::class_body) continue;
      if (bindings_[static_cast<std::size_t>(s)].contains(name)) return true;
    }
    return false;
  }

  void finish() {
    // Names no scope binds are the runtime's globals: nothing of the repository.
    std::erase_if(m_.uses, [&](const Use& u) {
      if (u.imported || u.chain.empty()) return false;
      const std::string_view head = u.chain.front();
      if (head.empty() || head == UNKNOWN_VALUE || head == BUILTIN_VALUE) return false;
      return !is_bound(u.scope, head);
    });
    for (Use& use : m_.uses) {
      // A call's argument that names a global tells nothing either.
      std::vector<Argument> arguments(use.arguments().begin(), use.arguments().end());
      const std::size_t erased = std::erase_if(arguments, [&](const Argument& a) {
        const Chain chain = a.hint.chain;
        return !chain.empty() && chain.front() != BUILTIN_VALUE &&
               !is_bound(a.hint.scope, chain.front());
      });
      if (erased == 0) continue;
      const auto kept = store_.copy(arguments);
      use.argument_data = kept.data();
      use.argument_count = static_cast<std::uint8_t>(kept.size());
    }
    for (Definition& made : m_.definitions) {
      for (const auto& [first, last] : ambient_) {
        if (made.start_line >= first && made.start_line <= last) made.is_export = true;
      }
    }
    std::sort(exports_.begin(), exports_.end());
    exports_.erase(std::unique(exports_.begin(), exports_.end()), exports_.end());
    for (int object : objects_) {
      const std::string name(definition(object).name);
      if (std::binary_search(exports_.begin(), exports_.end(), name)) continue;
      const int body = definition(object).body_scope;
      for (const auto& [member, binding] : bindings_[static_cast<std::size_t>(body)]) {
        if (binding.kind != Binding::Kind::definition) continue;
        definition(binding.definition).is_export = true;
        for (int other : binding.also())
          definition(other).is_export = true;
      }
    }
    m_.exports.reserve(exports_.size());
    for (const std::string& name : exports_)
      m_.exports.push_back(store_.name(name));
    for (std::size_t s = 0; s < m_.scopes.size(); ++s)
      keep_bindings(m_.scopes[s], bindings_[s], store_);
  }

  FileModel& m_;
  ModelStore& store_;
  const ScriptModules& modules_;
  std::vector<std::string> exports_;
  // The expression of the expression statement visited last, which is visited next.
  TSNode statement_expression_{};
  TSNode export_statement_{};  // the export statement whose declaration is being visited
  std::vector<std::pair<std::int64_t, std::int64_t>> ambient_;  // lines of `declare` blocks
  std::vector<int> objects_;  // the module's object literals with members (define_object)
  // The names each scope binds, by scope, until finish() keeps them in the scopes.
  std::vector<BindingMap> bindings_;
};

const TSLanguage* language_of(ScriptDialect dialect) {
  switch (dialect) {
    case ScriptDialect::javascript:
      return tree_sitter_javascript();
    case ScriptDialect::typescript:
      return tree_sitter_typescript();
    case ScriptDialect::tsx:
      return tree_sitter_tsx();
  }
  return tree_sitter_javascript();
}

}  // namespace

ScriptParser::ScriptParser(const ScriptModules& modules)
    : modules_(modules), parser_(ts_parser_new()) {
  for (ScriptDialect dialect :
       {ScriptDialect::javascript, ScriptDialect::typescript, ScriptDialect::tsx}) {
    if (!ts_parser_set_language(parser_, language_of(dialect))) {
      ts_parser_delete(parser_);
      throw std::runtime_error(
          "the JavaScript and TypeScript grammars do not fit this tree-sitter library");
    }
  }
}

ScriptParser::~ScriptParser() {
  ts_parser_delete(parser_);
  store_->seal();  // the models it made still view what it stored
}

FileModel ScriptParser::parse(const std::string& path, std::string_view source) {
  FileModel model;
  model.store = store_;
  model.path = path;
  model.module = modules_.module_of(path);
  if (!is_valid_utf8(source)) {
    model.warnings.push_back(path + ": not valid UTF-8; indexed what could be read");
  }
  add_module_definitions(model, *store_, model.module.substr(model.module.rfind('/') + 1));

  ts_parser_set_language(parser_,
                         language_of(script_dialect_of(path).value_or(ScriptDialect::javascript)));
  // The TSX grammar, with this tree-sitter, can lose itself in error recovery on damaged
  // input: a parse gets a second plus a microsecond a byte (some hundred times what a file
  // needs), then the file is given up with a warning.
  ts_parser_set_timeout_micros(parser_, PARSE_TIMEOUT_MICROS + source.size());
  TSTree* tree = ts_parser_parse_string(parser_, nullptr, source.data(),
                                        static_cast<std::uint32_t>(source.size()));
  if (tree == nullptr) {
    ts_parser_reset(parser_);  // a parse given up would otherwise go on with the next file
    model.warnings.push_back(path + ": could not be parsed in time; not indexed");
    return model;
  }
  const TSNode root = ts_tree_root_node(tree);
  const std::int64_t lines = end_line_of(root);
  model.definitions[MODULE_DEFINITION].end_line = lines;
  model.definitions[TOPLEVEL_DEFINITION].end_line = lines;
  if (ts_node_has_error(root)) {
    model.warnings.push_back(path + ":" + std::to_string(first_error_line(root)) +
                             ": syntax errors; indexed what could be read");
  }
  ScriptBuilder(model, *store_, source, root, modules_).build();
  ts_tree_delete(tree);
  shrink_model(model);
  if (is_declaration_file(path)) {
    // A declaration file describes code built elsewhere: never reported.
    for (Definition& made : model.definitions)
      made.is_export = true;
  }
  return model;
}

}  // namespace quarry::indexer
