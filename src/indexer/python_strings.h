// Names that Python code gives as strings. A string whose whole text is a dotted path of the
// repository ("pkg.mod.f", "pkg.mod:Class.method", "pkg.handlers") is a reference to what it
// names; a name that code looks up (getattr(obj, "name"), globals()["name"], a name beside a
// module path in ("pkg.mod", "Name"), a prefix in getattr(self, "on_" + event), a long
// prefix handed to a call) is a reference to the definitions it may name. The parser notes such
// strings in the file's model (FileModel::string_uses); the resolver binds them once all files are
// read.
#pragma once

#include <tree_sitter/api.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "indexer/python_model.h"

namespace quarry::indexer {

class PythonResolver;
struct FileLinks;

// The shortest prefix that getattr(x, PREFIX + name) is taken as evidence for.
inline constexpr std::size_t MIN_DISPATCH_PREFIX = 2;
// The shortest prefix that is looked up across the repository: a name built from it and
// handed to a call ("_eval_rewrite_as_%s" % rule passed on to the method that looks it up),
// or looked up where nothing starts with it (getattr(cls, "_eval_is_" + fact) in a
// metaclass). A shorter one ("on_", "get_") is too common to say where it leads.
inline constexpr std::size_t MIN_REPOSITORY_PREFIX = 6;
// The longest argument list (in bytes) whose text is looked at for a quote before its
// arguments are read one by one.
inline constexpr std::size_t MAX_SCANNED_ARGUMENTS = 4096;

// Whether `text` is a dotted path that may name a definition: identifiers joined by ".",
// at most one ":" between a module and a path inside it ("pkg.mod:Class.method"), and at
// least one "." or ":".
bool is_dotted_path(std::string_view text);

// Whether `text` is an identifier (ASCII letters, digits and "_", not starting with a digit).
bool is_identifier(std::string_view text);

// Notes in a file's model the strings that name definitions, while the parser walks the
// file's syntax tree. Keeps, per scope, what plain names were last assigned (a module from
// importlib.import_module("m"), a name or a prefix string), so that getattr(m, name) two
// statements later is understood. Not thread-safe; one per file.
class StringEvidence {
 public:
  // `model` receives the notes; `bindings` are the names each of its scopes binds so far,
  // `source` is the file's text and `root` its tree's root. All four must outlive this
  // object.
  StringEvidence(FileModel& model, const std::vector<BindingMap>& bindings, std::string_view source,
                 TSNode root);
  ~StringEvidence();
  StringEvidence(const StringEvidence&) = delete;
  StringEvidence& operator=(const StringEvidence&) = delete;

  // Notes what `node` gives as names, as code of `scope` whose uses are attributed to
  // definition `owner`. Call it once for every node the walk visits, a node before those
  // inside it; it never changes the walk, and reads only `node` and the nodes inside it.
  void visit(TSNode node, int scope, int owner);

 private:
  // What a plain name was last assigned in a scope.
  struct Assigned {
    StringUse::Kind kind;  // path: a module; name or prefix: a string to look up
    std::string text;
  };
  // The object a name is looked up on: a chain, a module named by the code, or neither.
  struct Receiver {
    std::vector<std::string> chain;
    std::string module;
  };

  std::vector<TSNode> children(TSNode node, bool named_only);
  std::string_view raw(TSNode node) const;
  std::optional<std::string> literal(TSNode node);
  std::optional<std::vector<std::string>> chain_of(TSNode node) const;
  const Assigned* assigned(int scope, std::string_view name) const;
  std::optional<std::string> module_of_call(TSNode node);
  std::optional<Receiver> namespace_of(TSNode node, int scope);
  Receiver receiver_of(TSNode node, int scope);
  std::optional<Assigned> key_of(TSNode node, int scope);
  void note_literal(TSNode node, int scope, int owner);
  void note_call(TSNode node, int scope, int owner);
  void note_subscript(TSNode node, int scope, int owner);
  void note_assignment(TSNode node, int scope);
  void note_registry(TSNode node, int scope, int owner);
  void note_beside(const std::vector<TSNode>& elements, int scope, int owner);
  void note_handed(TSNode function, const std::vector<TSNode>& arguments, int scope, int owner,
                   TSNode at);
  void note_every(const Receiver& receiver, int scope, int owner, TSNode at);
  void note_lookup(const Receiver& receiver, TSNode key, int scope, int owner, TSNode at);

  FileModel& model_;
  const std::vector<BindingMap>& bindings_;  // of each scope of the model
  std::string_view source_;
  TSTreeCursor cursor_;  // lists children; reset for each node, never held across calls
  // The bytes of the last concatenation of strings noted: its pieces are not noted again.
  std::uint32_t pieces_start_ = 0;
  std::uint32_t pieces_end_ = 0;
  std::unordered_map<std::string, Assigned> assigned_;  // keyed by scope and name
};

// Appends to `links` the edges made by the strings noted in file `file` of `files` (the
// files `resolver` was built on): a path is an exact reference to what it names (a module,
// class, function or method; nothing when it names nothing of the repository); a name looked
// up on a known module or class (or an instance of one) is an exact reference to the member
// found there; a name found on no known object (a module lacking it excepted) is a guessed
// ("ambiguous") reference to at most MAX_GUESSES functions, classes and methods of that
// name, in fqn order, special names ("__len__") excepted; a prefix is a guessed
// reference to every method of the receiver's class and its bases (every function and
// class of a known module, every function and method of the file when the receiver is
// unknown) whose name starts with it; a name beside paths is looked up in the first of
// those paths that names a module or class of the repository, exactly when found there
// and as a guess otherwise, and makes no edge when no path names one.
void resolve_string_uses(const PythonResolver& resolver, const std::vector<FileModel>& files,
                         std::size_t file, FileLinks& links);

}  // namespace quarry::indexer
