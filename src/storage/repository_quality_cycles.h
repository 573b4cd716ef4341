// Dependency graphs and the cycle algorithms over them: strongly connected components
// without recursion, and their condensation into one entry per cycle with a shortest
// representative cycle.
//
// Node names are interned to dense integers while the graph is built, and successors are
// kept in flat arrays, so that graphs of millions of nodes and edges are built and split
// in linear time without a heap allocation per node. Every order that the results depend
// on is the order in which the graph was built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quarry {

struct CycleComponent;  // storage/repository_quality.h

namespace detail {

// Interned names: node 0, 1, 2, ... in the order names are first interned. The names lie
// one after another in one text buffer and are found through an open-addressing hash
// table, so a name costs no allocation of its own.
class NameTable {
 public:
  using Node = std::uint32_t;

  static std::uint64_t hash(std::string_view name);

  std::size_t size() const { return starts_.size() - 1; }
  // The name of `node` (< size()).
  std::string_view name(Node node) const {
    return std::string_view(text_).substr(starts_[node], starts_[node + 1] - starts_[node]);
  }
  std::optional<Node> find(std::string_view name) const;

  // Interns names[i], whose hash is hashes[i], and stores its node in nodes[i], in order
  // of i. The table is looked up ahead of the name being interned, so that the memory
  // accesses of consecutive names overlap. Throws std::length_error past 2^32 - 1 names,
  // a name of 16 MiB or more, or 1 TiB of names in all.
  void intern(std::span<const std::string_view> names, std::span<const std::uint64_t> hashes,
              std::span<Node> nodes);

 private:
  // A slot of the table: a node, or none; 32 bits of its name's hash, so that most
  // probes that do not match compare no text; and where its name lies in text_, so that
  // a probe that does match reads the text without another lookup.
  struct Slot {
    Node node;
    std::uint32_t tag;
    std::uint64_t start : 40;
    std::uint64_t length : 24;
  };
  // The slot that holds `name`, or the empty slot where it would go.
  std::size_t slot_of(std::string_view name, std::uint64_t hash) const;
  // Makes room for `more` names, keeping the table at most half full.
  void reserve(std::size_t more);
  Node intern_one(std::string_view name, std::uint64_t hash);

  std::string text_;
  std::vector<std::uint64_t> starts_{0};  // node n's name is text_[starts_[n] .. starts_[n + 1])
  std::vector<Slot> table_;               // a power of two in size
};

}  // namespace detail

// An insertion-ordered mapping from a node (a file path or a component name) to the
// ordered set of nodes it depends on, built once by a Builder and then only read. Keys
// iterate in the order they were first added; each key's successors in the order they
// were first added, each once. A node that only occurs as a successor is a node (it has
// an id and a name) but not a key, and has no successors.
class DependencyGraph {
 public:
  using Node = detail::NameTable::Node;
  class Builder;

  DependencyGraph() = default;
  // A graph with these keys, in order, each with its successors in order.
  DependencyGraph(
      std::initializer_list<std::pair<std::string_view, std::vector<std::string_view>>> entries);

  // Every node, keys and successor-only nodes alike; nodes are 0 .. node_count() - 1.
  std::size_t node_count() const { return is_key_.size(); }
  // The keys, in the order they were first added.
  std::span<const Node> keys() const { return keys_; }
  bool is_key(Node node) const { return is_key_[node] != 0; }
  // The node of `name`, if it is a key or a successor.
  std::optional<Node> find(std::string_view name) const { return names_.find(name); }
  // The name of `node` (< node_count()).
  std::string_view name(Node node) const { return names_.name(node); }
  // The successors of `node` (< node_count()) in the order first added, each once;
  // empty for a node that is not a key.
  std::span<const Node> successors(Node node) const {
    return std::span(targets_).subspan(offsets_[node], offsets_[node + 1] - offsets_[node]);
  }
  // The number of distinct edges.
  std::size_t edge_count() const { return targets_.size(); }

 private:
  detail::NameTable names_;
  std::vector<Node> keys_;
  std::vector<std::uint8_t> is_key_;
  // The successors of node n are targets_[offsets_[n] .. offsets_[n + 1]).
  std::vector<std::size_t> offsets_{0};
  std::vector<Node> targets_;
};

// Builds a DependencyGraph. Names are copied and interned in batches, whose hash-table
// lookups overlap, and edges are gathered into the graph's flat arrays by build().
class DependencyGraph::Builder {
 public:
  // Makes `name` a key (with no successors yet) unless it is one.
  void add_node(std::string_view name);
  // Adds `target` to the successors of `source` unless it is there already. `source`
  // becomes a key if it is not one; `target` becomes a node, but not a key.
  void add_edge(std::string_view source, std::string_view target);
  // The graph built so far; the builder is left empty.
  DependencyGraph build();

 private:
  // What a staged name is: a key, the source of an edge (also a key), or the target of
  // the edge whose source is staged just before it.
  enum class Role : std::uint8_t { key, source, target };
  struct Staged {
    std::size_t start;
    std::size_t length;
    Role role;
  };
  void stage(std::string_view name, Role role);
  void flush();

  DependencyGraph graph_;
  std::vector<std::pair<Node, Node>> edges_;  // in the order added, repeats included
  std::string staged_text_;
  std::vector<Staged> staged_;
  Node source_ = 0;  // the source of the edge whose target comes next
};

// The strongly connected components of a graph, flat: component i has the members
// `members[starts[i] .. starts[i + 1])`.
struct StrongComponents {
  std::vector<DependencyGraph::Node> members;
  std::vector<std::size_t> starts{0};

  std::size_t size() const { return starts.size() - 1; }
  std::span<const DependencyGraph::Node> operator[](std::size_t i) const {
    return std::span(members).subspan(starts[i], starts[i + 1] - starts[i]);
  }
};

// The dependency cycles of `graph`: one entry per strongly connected component of two or
// more members, with `nodes` its members in ascending string order, `type` = `level`, and
// `cycle` a shortest cycle through nodes[0] (see detail::shortest_cycle). Sorted by
// member count, largest first, then by first member. A node whose only cycle is its edge
// to itself is never reported. Key and successor orders do not influence the result.
std::vector<CycleComponent> condense_cycles(const DependencyGraph& graph, std::string_view level);

namespace detail {

// Every strongly connected component of `graph`, single nodes included, by Tarjan's
// search with an explicit stack (no recursion; O(V + E) time, O(V) memory besides the
// search stack). Roots are tried in key order and successors explored in their order.
// Components are listed in the order the search completes them (reverse topological:
// a component comes after every component it reaches); within one, members are listed in
// the order they leave the node stack, the component's first-visited member last. Only
// keys and nodes reachable from keys appear.
StrongComponents strongly_connected(const DependencyGraph& graph);

// A shortest cycle through members[0] that stays inside `members`, found breadth first
// with each node's successors taken in ascending string order: members[0], the nodes of
// the search tree down to the first expanded node with an edge back to members[0], then
// members[0] again (members[0], members[0] for a self-edge). Requires at least one member.
// Throws std::invalid_argument when there is no such cycle, with the message
// "a is on no cycle of ['a', 'b']" for members a and b.
std::vector<std::string> shortest_cycle(const DependencyGraph& graph,
                                        const std::vector<std::string>& members);

}  // namespace detail

}  // namespace quarry
