#include "indexer/python_parser.h"

#include <tree_sitter/api.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "indexer/model_building.h"
#include "indexer/python_grammar.h"
#include "indexer/python_strings.h"
#include "indexer/syntax_nodes.h"
#include "indexer/syntax_walker.h"
#include "indexer/text.h"
#include "models/symbol.h"

extern "C" const TSLanguage* tree_sitter_python();

namespace quarry::indexer {

namespace {

// Names made of capitals, digits and underscores, with at least one capital, are constants.
bool is_constant_name(std::string_view name) {
  bool letter = false;
  for (char c : name) {
    if (c >= 'A' && c <= 'Z') {
      letter = true;
    } else if (!(c == '_' || (c >= '0' && c <= '9'))) {
      return false;
    }
  }
  return letter;
}

// The last name of a dotted name: "Optional" of "typing.Optional".
std::string_view last_name(std::string_view dotted) {
  const std::size_t dot = dotted.rfind('.');
  return dot == std::string_view::npos ? dotted : dotted.substr(dot + 1);
}

// Annotations whose arguments are the types a value may have.
bool is_type_wrapper(std::string_view name) {
  return name == "Optional" || name == "Union" || name == "Annotated" || name == "ClassVar" ||
         name == "Final" || name == "Required" || name == "NotRequired" || name == "ReadOnly";
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
    text.remove_suffix(1);
  return text;
}

// `text` split at the `separator`s outside brackets.
std::vector<std::string_view> split_outside_brackets(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  int depth = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '[') ++depth;
    if (text[i] == ']') --depth;
    if (depth == 0 && text[i] == separator) {
      parts.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  parts.push_back(text.substr(start));
  return parts;
}

// The dotted names of the classes that an annotation written as a string names:
// "Session", "Optional[db.Session]", "Session | None".
std::vector<std::string> annotation_text_names(std::string_view annotation) {
  std::vector<std::string> names;
  // A longer string is text, not an annotation; nested brackets are split level by level.
  if (annotation.size() > 256) return names;
  std::vector<std::string_view> pending{annotation};
  while (!pending.empty() && names.size() < MAX_TYPE_HINTS) {
    const std::string_view text = trimmed(pending.back());
    pending.pop_back();
    const auto alternatives = split_outside_brackets(text, '|');
    if (alternatives.size() > 1) {
      pending.insert(pending.end(), alternatives.rbegin(), alternatives.rend());
      continue;
    }
    const std::size_t open = text.find('[');
    if (open == std::string_view::npos) {
      names.emplace_back(text);
      continue;
    }
    if (!text.ends_with(']') || !is_type_wrapper(last_name(trimmed(text.substr(0, open)))))
      continue;
    auto arguments = split_outside_brackets(text.substr(open + 1, text.size() - open - 2), ',');
    if (last_name(trimmed(text.substr(0, open))) == "Annotated") arguments.resize(1);
    pending.insert(pending.end(), arguments.rbegin(), arguments.rend());
  }
  return names;
}

// Whether an expression of this node type is a literal of a builtin type.
bool is_builtin_literal(std::string_view type) {
  return type == "string" || type == "concatenated_string" || type == "integer" ||
         type == "float" || type == "dictionary" || type == "list" || type == "set" ||
         type == "tuple" || type == "list_comprehension" || type == "set_comprehension" ||
         type == "dictionary_comprehension" || type == "true" || type == "false";
}

// Builds the model of one file in a single pass over its syntax tree, with an explicit
// stack of nodes still to visit.
//
// Children are listed with one tree cursor, never by index (see SyntaxWalker).
class ModelBuilder : private SyntaxWalker {
 public:
  // Stores the model's names and lists in `store`.
  ModelBuilder(FileModel& model, ModelStore& store, std::string_view source, TSNode root)
      : SyntaxWalker(source, root), m_(model), store_(store), bindings_(model.scopes.size()) {}

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
  // Whether the text of `node` is `expected` (which is ASCII), without copying it: the
  // node may be a large expression.
  bool text_is(TSNode node, std::string_view expected) const { return raw_text(node) == expected; }

  // The children of `node` under the field `name` (a field may repeat, as in imports). The
  // cursor reads the field names; it is the reliable way with repeated fields.
  std::vector<TSNode> field_children(TSNode node, std::string_view name) {
    std::vector<TSNode> out;
    ts_tree_cursor_reset(&cursor_, node);
    if (ts_tree_cursor_goto_first_child(&cursor_)) {
      do {
        const char* field_name = ts_tree_cursor_current_field_name(&cursor_);
        if (field_name != nullptr && name == field_name) {
          out.push_back(ts_tree_cursor_current_node(&cursor_));
        }
      } while (ts_tree_cursor_goto_next_sibling(&cursor_));
    }
    return out;
  }

  int add_definition(Definition definition) {
    m_.definitions.push_back(std::move(definition));
    return static_cast<int>(m_.definitions.size()) - 1;
  }

  int add_scope(Scope scope) {
    m_.scopes.push_back(scope);
    bindings_.emplace_back();
    return static_cast<int>(m_.scopes.size()) - 1;
  }

  bool defines_symbols(int scope) const {
    const auto kind = m_.scopes[static_cast<std::size_t>(scope)].kind;
    return kind == Scope::Kind::module || kind == Scope::Kind::class_body;
  }

  // Binds `name` in `scope`. A definition joins the definitions already bound to the name
  // (a name defined twice, say in two branches, stands for both); otherwise the first
  // binding of a name in a scope is kept.
  void bind(int scope, const std::string& name, Binding binding) {
    auto& bindings = bindings_[static_cast<std::size_t>(scope)];
    auto [it, inserted] = bindings.try_emplace(store_.name(name), binding);
    if (inserted) return;
    Binding& existing = it->second;
    if (binding.kind == Binding::Kind::definition) {
      if (existing.kind == Binding::Kind::value) {
        existing = binding;
      } else if (existing.kind != Binding::Kind::instance) {
        // Defined twice, or imported and defined as a fallback (`try: from x import f`
        // `except ImportError: def f(): ...`): the name stands for each.
        bind_also(store_, existing, binding.definition);
      }
    }
  }

  void use(UseKind kind, int scope, int source, const std::vector<std::string>& chain,
           std::int64_t line) {
    use(kind, scope, source, store_.chain(chain), line);
  }
  void use(UseKind kind, int scope, int source, Chain chain, std::int64_t line) {
    m_.uses.push_back({.kind = kind,
                       .scope = scope,
                       .source = source,
                       .line = static_cast<std::uint32_t>(line),
                       .chain = chain});
  }

  // The dotted chain an expression names: "a.b.c" as {a, b, c}; super().m as {"", m}.
  std::optional<std::vector<std::string>> chain_of(TSNode node) const {
    std::vector<std::string> names;
    while (type_of(node) == "attribute") {
      names.push_back(text(field(node, "attribute")));
      node = field(node, "object");
      if (ts_node_is_null(node)) return std::nullopt;
    }
    if (type_of(node) == "identifier") {
      names.push_back(text(node));
    } else if (type_of(node) == "call" && type_of(field(node, "function")) == "identifier" &&
               text_is(field(node, "function"), "super")) {
      names.push_back("");
    } else {
      return std::nullopt;
    }
    std::reverse(names.begin(), names.end());
    return names;
  }

  // An expression of attributes and calls read down to where it starts: `a.b().c` is the
  // chain {a, b, "()", c}. A chain that does not start from a name starts from
  // UNKNOWN_VALUE, and `base` is the expression it starts from (`xs[0]` in `xs[0].m()`).
  ChainWalk walk_chain(TSNode node) const {
    ChainWalk walk;
    while (true) {
      const std::string_view type = ts_node_is_null(node) ? std::string_view() : type_of(node);
      if (type == "attribute") {
        walk.names.push_back(text(field(node, "attribute")));
        node = field(node, "object");
      } else if (type == "call") {
        const TSNode function = field(node, "function");
        if (!ts_node_is_null(function) && type_of(function) == "identifier" &&
            text_is(function, "super")) {
          walk.names.emplace_back();
          break;
        }
        walk.met_call(node);
        node = function;
      } else if (type == "identifier") {
        walk.names.push_back(text(node));
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

  // Whether a use of `chain` can be bound at all: it starts from a name, or it ends on an
  // attribute of an expression (`xs[0].m`, whose m can still be guessed).
  static bool worth_a_use(const std::vector<std::string>& chain) {
    return chain.front() != UNKNOWN_VALUE || (chain.size() > 1 && chain.back() != CALL_RESULT);
  }

  // Records the uses that an expression of attributes and calls makes: a call use for each
  // call in it, and for an expression that is no call, a use of `kind` for the whole chain
  // when it starts from a name. Pushes the calls' arguments and the expression the chain
  // starts from.
  void use_chain(const Frame& frame, TSNode node, UseKind kind) {
    ChainWalk walk = walk_chain(node);
    for (const auto& [length, call] : walk.calls) {
      // A call inside the chain is no frame of its own: strings in it are read here.
      if (!ts_node_eq(call, node)) strings_.visit(call, frame.scope, frame.owner);
      std::vector<std::string> called;
      if (length <= MAX_CHAIN_LENGTH) {
        called.assign(walk.names.begin(), walk.names.begin() + static_cast<std::ptrdiff_t>(length));
      } else {
        called = {std::string(UNKNOWN_VALUE), walk.names[length - 1]};
      }
      if (worth_a_use(called)) {
        use(UseKind::call, frame.scope, frame.owner, called, line_of(call));
        const auto arguments = store_.copy(argument_hints(field(call, "arguments"), frame.scope));
        m_.uses.back().argument_data = arguments.data();
        m_.uses.back().argument_count = static_cast<std::uint8_t>(arguments.size());
      }
      push(field(call, "arguments"), frame.scope, frame.owner);
    }
    if (walk.has_base) push(walk.base, frame.scope, frame.owner, frame.type_mode);
    if (walk.names.back() != CALL_RESULT && walk.names.front() != UNKNOWN_VALUE &&
        walk.names.size() <= MAX_CHAIN_LENGTH) {
      use(kind, frame.scope, frame.owner, walk.names, line_of(node));
    }
  }

  void visit(const Frame& frame) {
    strings_.visit(frame.node, frame.scope, frame.owner);
    const std::string_view type = type_of(frame.node);
    if (type == "decorated_definition") {
      std::vector<TSNode> decorators;
      for (TSNode child : named_children(frame.node)) {
        if (type_of(child) == "decorator") decorators.push_back(child);
      }
      visit_definition(frame, field(frame.node, "definition"), decorators);
    } else if (type == "function_definition" || type == "class_definition") {
      visit_definition(frame, frame.node, {});
    } else if (type == "import_statement") {
      visit_import(frame);
    } else if (type == "import_from_statement") {
      visit_import_from(frame);
    } else if (type == "assignment") {
      visit_assignment(frame);
    } else if (type == "augmented_assignment") {
      if (frame.scope == MODULE_SCOPE && text_is(field(frame.node, "left"), "__all__")) {
        collect_exports(field(frame.node, "right"));
      }
      push_children(frame);
    } else if (type == "return_statement") {
      // A function without a return annotation returns what its return statements give.
      Definition& function = m_.definitions[static_cast<std::size_t>(frame.owner)];
      const TSNode value = ts_node_named_child(frame.node, 0);
      if (!ts_node_is_null(value) && !function.returns_annotated &&
          (function.kind == symbol_kind::FUNCTION || function.kind == symbol_kind::METHOD)) {
        add_hints(store_, function.hints, value_hints(value, frame.scope));
      }
      push_children(frame);
    } else if (type == "global_statement" || type == "nonlocal_statement") {
      for (TSNode name : named_children(frame.node)) {
        globals_.emplace_back(frame.scope, text(name));
      }
    } else if (type == "call") {
      visit_call(frame);
    } else if (type == "attribute") {
      use_chain(frame, frame.node, frame.type_mode ? UseKind::type : UseKind::reference);
    } else if (type == "identifier") {
      use(frame.type_mode ? UseKind::type : UseKind::reference, frame.scope, frame.owner,
          {text(frame.node)}, line_of(frame.node));
    } else if (type == "keyword_argument") {
      push(field(frame.node, "value"), frame.scope, frame.owner, frame.type_mode);
    } else if (type == "lambda") {
      visit_lambda(frame);
    } else if (type == "list_comprehension" || type == "set_comprehension" ||
               type == "dictionary_comprehension" || type == "generator_expression") {
      const int inner = open_lambda_scope(frame);
      for (TSNode child : named_children(frame.node)) {
        if (type_of(child) == "for_in_clause")
          bind_targets(field(child, "left"), inner, frame.owner);
      }
      push_children({frame.node, inner, frame.owner, frame.type_mode});
    } else if (type == "for_statement" || type == "for_in_clause") {
      const TSNode left = field(frame.node, "left");
      bind_targets(left, frame.scope, frame.owner);
      for (TSNode child : named_children(frame.node)) {
        if (!ts_node_eq(child, left)) push(child, frame.scope, frame.owner);
      }
    } else if (type == "except_clause") {
      // `except E as e`: e is an instance of E.
      for (TSNode child : named_children(frame.node)) {
        if (type_of(child) == "as_pattern") {
          visit_as_pattern({child, frame.scope, frame.owner, frame.type_mode}, true);
        } else {
          push(child, frame.scope, frame.owner);
        }
      }
    } else if (type == "as_pattern") {
      visit_as_pattern(frame, false);
    } else if (type == "named_expression") {
      bind_targets(field(frame.node, "name"), frame.scope, frame.owner);
      push(field(frame.node, "value"), frame.scope, frame.owner);
    } else if (type == "type") {
      push_children({frame.node, frame.scope, frame.owner, true});
    } else if (type == "string" && frame.type_mode) {
      // An annotation written as a string names its classes all the same.
      for (TypeHint& hint : annotation_hints(frame.node, frame.scope))
        use(UseKind::type, frame.scope, frame.owner, hint.chain, line_of(frame.node));
    } else if (type == "case_pattern" || type == "dotted_name" || type == "comment" ||
               type == "string_content" || type == "future_import_statement" ||
               type == "string_start" || type == "string_end" || type == "escape_sequence") {
      // Patterns capture names rather than use them; the rest holds no name.
    } else {
      push_children(frame);
    }
  }

  // `with Cls() as x` makes x what the call returns; `except E as e` (`caught`) an
  // instance of E.
  void visit_as_pattern(const Frame& frame, bool caught) {
    TSNode value{};
    for (TSNode child : named_children(frame.node)) {
      if (type_of(child) == "as_pattern_target") {
        bind_targets(child, frame.scope, frame.owner);
        if (ts_node_is_null(value)) continue;
        const TSNode target = ts_node_named_child(child, 0);
        if (ts_node_named_child_count(child) != 1 || type_of(target) != "identifier") continue;
        hint_target(
            frame.scope, target,
            caught ? annotation_hints(value, frame.scope) : value_hints(value, frame.scope));
      } else {
        value = child;
        push(child, frame.scope, frame.owner);
      }
    }
  }

  void visit_definition(const Frame& frame, TSNode definition,
                        const std::vector<TSNode>& decorators) {
    if (ts_node_is_null(definition)) return;
    const bool is_class = type_of(definition) == "class_definition";
    const Scope& outer = m_.scopes[static_cast<std::size_t>(frame.scope)];
    const std::string name = text(field(definition, "name"));
    if (name.empty()) return;

    std::string signature;
    bool is_static = false;
    for (TSNode decorator : decorators) {
      signature += collapse_whitespace(text(decorator)) + " ";
      if (text_is(decorator, "@staticmethod")) is_static = true;
    }
    signature += header_of(definition);

    Definition made;
    made.name = store_.name(name);
    made.kind = is_class                                ? symbol_kind::CLASS
                : outer.kind == Scope::Kind::class_body ? symbol_kind::METHOD
                                                        : symbol_kind::FUNCTION;
    made.fqn = member_fqn(frame.scope, name);
    made.start_line = line_of(definition);
    made.end_line = end_line_of(definition);
    made.signature = store_.copy(signature);
    const int method_of = outer.kind == Scope::Kind::class_body ? outer.owner : -1;
    const std::string_view fqn = made.fqn;
    const int id = add_definition(std::move(made));
    bind(frame.scope, name, {Binding::Kind::definition, false, id});

    for (TSNode decorator : decorators) {
      const TSNode expression = ts_node_named_child(decorator, 0);
      if (ts_node_is_null(expression)) continue;
      const bool is_call = type_of(expression) == "call";
      const TSNode named = is_call ? field(expression, "function") : expression;
      if (auto chain = chain_of(named)) {
        use(UseKind::decorates, frame.scope, id, std::move(*chain), line_of(decorator));
        if (is_call) push(field(expression, "arguments"), frame.scope, frame.owner);
      } else {
        push(expression, frame.scope, frame.owner);
      }
    }

    if (is_class) {
      const TSNode bases = field(definition, "superclasses");
      if (!ts_node_is_null(bases)) {
        for (TSNode base : named_children(bases)) {
          auto chain = type_of(base) == "keyword_argument" ? std::nullopt : chain_of(base);
          if (chain) {
            use(UseKind::inherits, frame.scope, id, std::move(*chain), line_of(base));
          } else {
            push(base, frame.scope, frame.owner);
          }
        }
      }
      const int body = add_scope({Scope::Kind::class_body, frame.scope, id, -1, fqn, {}, {}});
      m_.definitions[static_cast<std::size_t>(id)].body_scope = body;
      push(field(definition, "body"), body, id);
      return;
    }

    const int body = add_scope({Scope::Kind::function, frame.scope, id, method_of, fqn, {}, {}});
    visit_parameters(field(definition, "parameters"), frame, id, body,
                     method_of >= 0 && !is_static ? method_of : -1);
    const TSNode returns = field(definition, "return_type");
    Definition& function = m_.definitions[static_cast<std::size_t>(id)];
    function.hints = store_.copy(annotation_hints(returns, frame.scope));
    function.returns_annotated = !function.hints.empty();
    push(returns, frame.scope, id, true);
    push(field(definition, "body"), body, id);
  }

  // The header of a definition as written, up to and including its colon, on one line.
  // Without a colon (a syntax error), the header ends where the body begins, so that
  // nested definitions do not each copy all of their bodies.
  std::string header_of(TSNode definition) {
    std::uint32_t end = ts_node_end_byte(definition);
    bool colon = false;
    ts_tree_cursor_reset(&cursor_, definition);
    if (ts_tree_cursor_goto_first_child(&cursor_)) {
      do {
        const TSNode child = ts_tree_cursor_current_node(&cursor_);
        if (!ts_node_is_named(child) && type_of(child) == ":") {
          end = ts_node_end_byte(child);
          colon = true;
        }
        if (type_of(child) == "block") {
          if (!colon) end = ts_node_start_byte(child);
          break;
        }
      } while (ts_tree_cursor_goto_next_sibling(&cursor_));
    }
    const std::uint32_t start = ts_node_start_byte(definition);
    if (end <= start || end > src_.size()) return {};
    return collapse_whitespace(valid_utf8(src_.substr(start, end - start)));
  }

  // Binds the parameters in the function's scope. Defaults are evaluated where the
  // function is defined; annotations are uses of the function itself. The first parameter
  // of a method (not a static one) stands for an instance of `instance_of`.
  void visit_parameters(TSNode parameters, const Frame& outer, int function, int body,
                        int instance_of) {
    if (ts_node_is_null(parameters)) return;
    bool first = true;
    bool past_star = false;  // parameters after * or *args are given by keyword only
    std::vector<std::string_view> positional;
    for (TSNode parameter : named_children(parameters)) {
      const std::string_view type = type_of(parameter);
      if (type == "keyword_separator") past_star = true;
      TSNode name = parameter;
      std::vector<TypeHint> hints;
      std::vector<TypeHint> defaults;
      if (type == "default_parameter" || type == "typed_default_parameter") {
        name = field(parameter, "name");
        push(field(parameter, "value"), outer.scope, outer.owner);
        if (type == "default_parameter")
          defaults = value_hints(field(parameter, "value"), outer.scope);
      }
      if (type == "typed_parameter" || type == "typed_default_parameter") {
        const TSNode annotation = field(parameter, "type");
        push(annotation, outer.scope, function, true);
        if (type == "typed_parameter") name = ts_node_named_child(parameter, 0);
        // *args: C and **kwargs: C hold many values of C, not one.
        if (type_of(name) == "identifier") hints = annotation_hints(annotation, outer.scope);
      }
      const bool splat =
          type_of(name) == "list_splat_pattern" || type_of(name) == "dictionary_splat_pattern";
      if (type_of(name) == "list_splat_pattern") past_star = true;
      if (splat) {
        name = ts_node_named_child(name, 0);
        // *args is a tuple and **kwargs a dict, whatever their annotation says of the items.
        hints.assign(1, {TypeHint::Kind::name, outer.scope, builtin_chain(store_)});
      }
      if (ts_node_is_null(name) || type_of(name) != "identifier") {
        if (!ts_node_is_null(name)) bind_targets(name, body, function);
        first = false;
        continue;
      }
      if (!splat && !past_star) {
        positional.push_back(store_.name(text(name)));
      }
      if (first && instance_of >= 0) {
        bind(body, text(name), {Binding::Kind::instance, false, instance_of});
      } else {
        Binding value;
        value.hints = store_.copy(hints);
        value.definition = function;
        value.details = store_.copy_one(
            Binding::Details{.name = store_.name(text(name)), .defaults = store_.copy(defaults)});
        value.parameter = true;
        bind(body, text(name), std::move(value));
      }
      first = false;
    }
    m_.definitions[static_cast<std::size_t>(function)].parameters = store_.copy(positional);
  }

  int open_lambda_scope(const Frame& frame) {
    const Scope& outer = m_.scopes[static_cast<std::size_t>(frame.scope)];
    return add_scope(
        {Scope::Kind::lambda, frame.scope, frame.owner, outer.method_of, outer.fqn, {}, {}});
  }

  void visit_lambda(const Frame& frame) {
    const int inner = open_lambda_scope(frame);
    const TSNode parameters = field(frame.node, "parameters");
    if (!ts_node_is_null(parameters)) {
      for (TSNode parameter : named_children(parameters)) {
        if (type_of(parameter) == "default_parameter") {
          push(field(parameter, "value"), frame.scope, frame.owner);
          bind_targets(field(parameter, "name"), inner, frame.owner);
        } else {
          bind_targets(parameter, inner, frame.owner);
        }
      }
    }
    push(field(frame.node, "body"), inner, frame.owner);
  }

  // Binds the names that an assignment target (a name, or a tuple or list of them) binds.
  // Module and class scopes make a symbol of each new name; attribute and subscript
  // targets are uses of their objects.
  void bind_targets(TSNode target, int scope, int owner, std::int64_t line = 0,
                    std::int64_t end_line = 0) {
    std::vector<TSNode> pending{target};
    while (!pending.empty()) {
      const TSNode node = pending.back();
      pending.pop_back();
      if (ts_node_is_null(node)) continue;
      const std::string_view type = type_of(node);
      if (type == "identifier") {
        bind_name(text(node), scope, line != 0 ? line : line_of(node),
                  end_line != 0 ? end_line : end_line_of(node));
      } else if (type == "attribute" || type == "subscript") {
        push(node, scope, owner);
      } else {
        for (TSNode child : named_children(node))
          pending.push_back(child);
      }
    }
  }

  void bind_name(const std::string& name, int scope, std::int64_t line, std::int64_t end_line) {
    if (name.empty()) return;  // a name the parser made up to recover from a syntax error
    auto& bindings = bindings_[static_cast<std::size_t>(scope)];
    if (!defines_symbols(scope) || bindings.contains(name)) {
      bind(scope, name, {});
      return;
    }
    Definition made;
    made.name = store_.name(name);
    made.kind = is_constant_name(name) ? symbol_kind::CONSTANT : symbol_kind::VARIABLE;
    made.fqn = member_fqn(scope, name);
    made.start_line = line;
    made.end_line = end_line;
    const int id = add_definition(std::move(made));
    bind(scope, name, {Binding::Kind::definition, false, id});
  }

  void visit_assignment(const Frame& frame) {
    const TSNode left = field(frame.node, "left");
    if (frame.scope == MODULE_SCOPE && text_is(left, "__all__")) {
      collect_exports(field(frame.node, "right"));
    }
    bind_targets(left, frame.scope, frame.owner, line_of(frame.node), end_line_of(frame.node));
    const TSNode annotation = field(frame.node, "type");
    const TSNode right = field(frame.node, "right");
    // Both the annotation and the value: `cache: Mapping = LRUCache()` is an LRUCache.
    std::vector<TypeHint> hints;
    if (!ts_node_is_null(annotation)) hints = annotation_hints(annotation, frame.scope);
    add_hints(hints, value_hints(right, frame.scope));
    hint_target(frame.scope, left, std::move(hints));
    push(annotation, frame.scope, frame.owner, true);
    push(field(frame.node, "right"), frame.scope, frame.owner);
  }

  // The type hints an assigned expression gives: a call, a name or attribute chain, either
  // side of `a or b` and of `a if c else b`, the awaited call.
  std::vector<TypeHint> value_hints(TSNode expression, int scope) {
    std::vector<TypeHint> hints;
    std::vector<TSNode> pending{expression};
    while (!pending.empty() && hints.size() < MAX_TYPE_HINTS) {
      const TSNode node = pending.back();
      pending.pop_back();
      if (ts_node_is_null(node)) continue;
      const std::string_view type = type_of(node);
      if (is_builtin_literal(type)) {
        hints.push_back({TypeHint::Kind::name, scope, builtin_chain(store_)});
      } else if (type == "call" || type == "identifier" || type == "attribute") {
        ChainWalk walk = walk_chain(node);
        if (walk.names.front() == UNKNOWN_VALUE || walk.names.front().empty() ||
            walk.names.size() > MAX_CHAIN_LENGTH) {
          continue;
        }
        if (type == "call") {
          walk.names.pop_back();  // the call's own result is what the hint stands for
          hints.push_back({TypeHint::Kind::call, scope, store_.chain(walk.names)});
        } else {
          hints.push_back({TypeHint::Kind::name, scope, store_.chain(walk.names)});
        }
      } else if (type == "boolean_operator" || type == "conditional_expression" ||
                 type == "parenthesized_expression" || type == "await") {
        const std::vector<TSNode> children = named_children(node);
        for (std::size_t i = children.size(); i-- > 0;) {
          // The condition of `a if c else b` gives no value.
          if (type == "conditional_expression" && i == 1) continue;
          pending.push_back(children[i]);
        }
      }
    }
    return hints;
  }

  // What the arguments of a call are, as far as hints tell: names, attributes, calls and
  // literals passed by position or keyword.
  std::vector<Argument> argument_hints(TSNode arguments, int scope) {
    std::vector<Argument> hints;
    if (ts_node_is_null(arguments) || type_of(arguments) != "argument_list") return hints;
    int position = 0;
    bool positional = true;  // until a * or ** argument, positions are known
    for (TSNode argument : named_children(arguments)) {
      if (hints.size() >= MAX_ARGUMENT_HINTS) break;
      std::string keyword;
      const std::string_view kind = type_of(argument);
      if (kind == "list_splat" || kind == "dictionary_splat") {
        positional = false;
        continue;
      }
      if (kind == "keyword_argument") {
        keyword = text(field(argument, "name"));
        argument = field(argument, "value");
      }
      const int at = keyword.empty() && positional ? position : -1;
      if (keyword.empty()) ++position;
      if (ts_node_is_null(argument)) continue;
      const std::string_view type = type_of(argument);
      if (type != "identifier" && type != "attribute" && type != "call" &&
          !is_builtin_literal(type)) {
        continue;
      }
      for (TypeHint& hint : value_hints(argument, scope))
        hints.push_back({at, store_.name(keyword), hint});
    }
    return hints;
  }

  // The classes an annotation names: `C`, `mod.C`, `Optional[C]`, `C | None`,
  // `Union[C, D]`, `Annotated[C, ...]`, `ClassVar[C]`, `Final[C]` and the same written as
  // a string; `type[C]` (`Type[C]`) names the class C itself rather than its instances.
  std::vector<TypeHint> annotation_hints(TSNode annotation, int scope) {
    std::vector<TypeHint> hints;
    // Each node with whether it stands for a class itself (inside `type[...]`).
    std::vector<std::pair<TSNode, bool>> pending{{annotation, false}};
    while (!pending.empty() && hints.size() < MAX_TYPE_HINTS) {
      const auto [node, itself] = pending.back();
      pending.pop_back();
      if (ts_node_is_null(node)) continue;
      const TypeHint::Kind kind = itself ? TypeHint::Kind::name : TypeHint::Kind::annotation;
      const std::string_view type = type_of(node);
      if (type == "identifier" || type == "attribute" || type == "member_type") {
        add_annotation(hints, raw_text(node), scope, kind);
      } else if (type == "string") {
        std::string content;
        for (TSNode part : named_children(node)) {
          if (type_of(part) == "string_content") content += raw_text(part);
        }
        for (const std::string& named : annotation_text_names(content))
          add_annotation(hints, named, scope, kind);
      } else if (type == "generic_type" || type == "subscript") {
        const std::vector<TSNode> children = named_children(node);
        if (children.empty()) continue;
        const std::string_view wrapper = last_name(raw_text(children.front()));
        const bool class_itself = !itself && (wrapper == "type" || wrapper == "Type");
        if (!class_itself && !is_type_wrapper(wrapper)) {
          // A generic class: `list[Item]` is a list, `Registry[Item]` a Registry.
          pending.emplace_back(children.front(), itself);
          continue;
        }
        std::vector<TSNode> arguments;
        for (std::size_t i = 1; i < children.size(); ++i) {
          if (type_of(children[i]) == "type_parameter") {
            for (TSNode argument : named_children(children[i]))
              arguments.push_back(argument);
          } else {
            arguments.push_back(children[i]);
          }
        }
        // Annotated[C, ...] and type[C] keep their first argument (erase, not resize: GCC 12
        // at -O3 warns falsely about resize's growing path).
        if ((wrapper == "Annotated" || class_itself) && arguments.size() > 1) {
          arguments.erase(arguments.begin() + 1, arguments.end());
        }
        for (auto it = arguments.rbegin(); it != arguments.rend(); ++it)
          pending.emplace_back(*it, itself || class_itself);
      } else if (type == "type" || type == "union_type" || type == "binary_operator" ||
                 type == "parenthesized_expression") {
        const std::vector<TSNode> children = named_children(node);
        for (auto it = children.rbegin(); it != children.rend(); ++it)
          pending.emplace_back(*it, itself);
      }
    }
    return hints;
  }

  // Adds the hint that the dotted name `dotted` (spaces around dots allowed) is a class:
  // of its instances as an `annotation`, of the class itself as a `name`.
  void add_annotation(std::vector<TypeHint>& hints, std::string_view dotted, int scope,
                      TypeHint::Kind kind) {
    std::vector<std::string> chain;
    std::string name;
    for (char c : dotted) {
      if (c == '.') {
        chain.push_back(std::move(name));
        name.clear();
      } else if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
        name += c;
      }
    }
    chain.push_back(std::move(name));
    for (const std::string& part : chain) {
      if (!is_python_identifier(part)) return;
    }
    if (chain.size() == 1 && chain.front() == "None") return;
    if (hints.size() < MAX_TYPE_HINTS) hints.push_back({kind, scope, store_.chain(chain)});
  }

  // Records `hints` for the value that `target` names in `scope`: a name bound there, or an
  // attribute of the instance of a method (`self.x`), which is recorded even without a hint:
  // the class then has such an attribute, of unknown type.
  void hint_target(int scope, TSNode target, std::vector<TypeHint> hints) {
    if (ts_node_is_null(target)) return;
    auto& bindings = bindings_[static_cast<std::size_t>(scope)];
    if (type_of(target) == "identifier") {
      if (hints.empty()) return;
      auto it = bindings.find(text(target));
      if (it == bindings.end()) return;
      Binding& binding = it->second;
      if (binding.kind == Binding::Kind::value) {
        add_hints(store_, binding.hints, std::move(hints));
      } else if (binding.kind == Binding::Kind::definition) {
        Definition& variable = m_.definitions[static_cast<std::size_t>(binding.definition)];
        if (variable.kind == symbol_kind::VARIABLE || variable.kind == symbol_kind::CONSTANT) {
          add_hints(store_, variable.hints, std::move(hints));
        }
      }
    } else if (type_of(target) == "attribute") {
      const TSNode object = field(target, "object");
      if (ts_node_is_null(object) || type_of(object) != "identifier") return;
      auto it = bindings.find(text(object));
      if (it == bindings.end() || it->second.kind != Binding::Kind::instance) return;
      const std::string name = text(field(target, "attribute"));
      if (name.empty()) return;
      Definition& owner = m_.definitions[static_cast<std::size_t>(it->second.definition)];
      add_hints(store_, attribute_hints(store_, owner, name), std::move(hints));
    }
  }

  void visit_call(const Frame& frame) { use_chain(frame, frame.node, UseKind::call); }

  // An import edge from the importing definition to what `binding` names.
  void import_use(const Frame& frame, const Binding& binding, std::int64_t line) {
    m_.uses.push_back({.kind = UseKind::import,
                       .scope = frame.scope,
                       .source = frame.owner,
                       .line = static_cast<std::uint32_t>(line),
                       .imported = store_.copy_one(binding)});
  }

  // Binds an imported name in the scope and, in a module or class, makes it a symbol.
  void bind_import(const Frame& frame, const std::string& name, const Binding& binding,
                   std::int64_t line) {
    auto& bindings = bindings_[static_cast<std::size_t>(frame.scope)];
    if (name.empty() || bindings.contains(name)) return;
    int id = -1;
    if (defines_symbols(frame.scope)) {
      Definition made;
      made.name = store_.name(name);
      made.kind = symbol_kind::IMPORT;
      made.fqn = member_fqn(frame.scope, name);
      made.start_line = line;
      made.end_line = end_line_of(frame.node);
      made.import = store_.copy_one(binding);
      id = add_definition(std::move(made));
    }
    Binding bound = binding;
    bound.definition = id;
    bindings.emplace(store_.name(name), bound);
  }

  void visit_import(const Frame& frame) {
    for (TSNode item : field_children(frame.node, "name")) {
      if (type_of(item) == "aliased_import") {
        const Binding module = imported(Binding::Kind::module, text(field(item, "name")));
        import_use(frame, module, line_of(item));
        bind_import(frame, text(field(item, "alias")), module, line_of(item));
      } else {
        // "import a.b.c" imports a.b.c and binds "a".
        const std::string module = text(item);
        import_use(frame, imported(Binding::Kind::module, module), line_of(item));
        const std::string head = module.substr(0, module.find('.'));
        bind_import(frame, head, imported(Binding::Kind::module, head), line_of(item));
      }
    }
  }

  std::string absolute_module(TSNode module_name) {
    if (type_of(module_name) != "relative_import") return text(module_name);
    std::size_t dots = 0;
    std::string rest;
    for (TSNode child : named_children(module_name)) {
      if (type_of(child) == "import_prefix") {
        const std::string prefix = text(child);
        dots = static_cast<std::size_t>(std::count(prefix.begin(), prefix.end(), '.'));
      } else {
        rest = text(child);
      }
    }
    // The package of this module, then one level up for each dot after the first.
    std::string package = m_.is_package ? m_.module : parent_of(m_.module);
    for (std::size_t i = 1; i < dots; ++i)
      package = parent_of(package);
    if (package.empty()) return rest;
    return rest.empty() ? package : package + "." + rest;
  }

  static std::string parent_of(const std::string& module) {
    const std::size_t dot = module.rfind('.');
    return dot == std::string::npos ? std::string() : module.substr(0, dot);
  }

  void visit_import_from(const Frame& frame) {
    const TSNode module_name = field(frame.node, "module_name");
    if (ts_node_is_null(module_name)) return;
    const std::string module = absolute_module(module_name);
    for (TSNode child : named_children(frame.node)) {
      if (type_of(child) == "wildcard_import") {
        if (frame.scope == MODULE_SCOPE) m_.star_imports.push_back(module);
        import_use(frame, imported(Binding::Kind::module, module), line_of(child));
      }
    }
    for (TSNode item : field_children(frame.node, "name")) {
      const bool aliased = type_of(item) == "aliased_import";
      const std::string name = text(aliased ? field(item, "name") : item);
      const std::string bound = aliased ? text(field(item, "alias")) : name;
      const Binding binding = imported(Binding::Kind::imported_name, module, name);
      import_use(frame, binding, line_of(item));
      bind_import(frame, bound, binding, line_of(item));
    }
  }

  // Names listed in __all__ (a list or tuple of strings) are exported.
  void collect_exports(TSNode value) {
    if (ts_node_is_null(value)) return;
    for (TSNode item : named_children(value)) {
      if (type_of(item) != "string") continue;
      std::string name;
      for (TSNode part : named_children(item)) {
        if (type_of(part) == "string_content") name += text(part);
      }
      exports_.emplace_back(std::move(name), line_of(item));
    }
  }

  void finish() {
    for (const auto& [scope, name] : globals_)
      bindings_[static_cast<std::size_t>(scope)].erase(name);
    const auto& module_bindings = bindings_[MODULE_SCOPE];
    for (const auto& [name, line] : exports_) {
      auto it = module_bindings.find(name);
      if (it == module_bindings.end()) {
        // Exported from what a star import brings in (`from .core import *`): a use of it
        // there, as `from .core import name` would be.
        if (!m_.star_imports.empty() && is_identifier(name))
          use(UseKind::reference, MODULE_SCOPE, TOPLEVEL_DEFINITION, {name}, line);
        continue;
      }
      if (it->second.definition >= 0) {
        m_.definitions[static_cast<std::size_t>(it->second.definition)].is_export = true;
      }
      for (int other : it->second.also()) {
        m_.definitions[static_cast<std::size_t>(other)].is_export = true;
      }
    }
    for (std::size_t s = 0; s < m_.scopes.size(); ++s)
      keep_bindings(m_.scopes[s], bindings_[s], store_);
  }

  // A binding of an import: of `module`, or of `name` imported from it.
  Binding imported(Binding::Kind kind, std::string_view module, std::string_view name = {}) {
    return imported_binding(store_, kind, module, name);
  }

  // The qualified name of `name` bound in `scope`, stored.
  std::string_view member_fqn(int scope, std::string_view name) {
    return indexer::member_fqn(store_, m_.scopes[static_cast<std::size_t>(scope)].fqn, name);
  }

  FileModel& m_;
  ModelStore& store_;
  std::vector<std::pair<std::string, std::int64_t>> exports_;  // with the line of each
  // The names each scope binds, by scope, until finish() keeps them in the scopes.
  std::vector<BindingMap> bindings_;
  // The names declared global or nonlocal, with their scopes.
  std::vector<std::pair<int, std::string>> globals_;
  StringEvidence strings_{m_, bindings_, src_, root_};
};

}  // namespace

std::string module_name_of(std::string_view path) {
  std::string module(path);
  for (std::string_view ext : {".pyi", ".py"}) {
    if (module.ends_with(ext)) {
      module.resize(module.size() - ext.size());
      break;
    }
  }
  if (module.starts_with("src/")) module.erase(0, 4);
  std::replace(module.begin(), module.end(), '/', '.');
  if (module == "__init__") return module;
  if (module.ends_with(".__init__")) module.resize(module.size() - 9);
  return module;
}

std::string component_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  std::string component(path.substr(0, slash));
  std::replace(component.begin(), component.end(), '/', '.');
  return component;
}

PythonParser::PythonParser() : parser_(ts_parser_new()) {
  if (!ts_parser_set_language(parser_, tree_sitter_python())) {
    ts_parser_delete(parser_);
    throw std::runtime_error("the Python grammar does not fit this tree-sitter library");
  }
}

PythonParser::~PythonParser() {
  ts_parser_delete(parser_);
  store_->seal();  // the models it made still view what it stored
}

FileModel PythonParser::parse(const std::string& path, std::string_view source) {
  FileModel model;
  model.store = store_;
  model.path = path;
  model.module = module_name_of(path);
  model.is_package = path.ends_with("__init__.py") || path.ends_with("__init__.pyi");
  if (!is_valid_utf8(source)) {
    model.warnings.push_back(path + ": not valid UTF-8; indexed what could be read");
  }

  add_module_definitions(model, *store_, model.module.substr(model.module.rfind('.') + 1));

  TSTree* tree = parse_python(parser_, source);
  if (tree == nullptr) {
    model.warnings.push_back(path + ": could not be parsed");
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
  ModelBuilder(model, *store_, source, root).build();
  ts_tree_delete(tree);
  shrink_model(model);
  if (path.ends_with(".pyi")) {
    // A stub declares the types of a module whose code is elsewhere (compiled, or a .py
    // beside it): never reported.
    for (Definition& made : model.definitions)
      made.is_export = true;
  }
  return model;
}

}  // namespace quarry::indexer
