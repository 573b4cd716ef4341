// Dependency graphs, Tarjan's strongly connected components without recursion, and the
// condensation of a graph into its cycles.
#include "storage/repository_quality_cycles.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "storage/repository_quality.h"

namespace quarry {

using Node = DependencyGraph::Node;

namespace {

constexpr Node NO_NODE = std::numeric_limits<Node>::max();
// The longest name, and the most text of all names, that a slot can locate.
constexpr std::uint64_t MAX_NAME = std::uint64_t{1} << 24;
constexpr std::uint64_t MAX_TEXT = std::uint64_t{1} << 40;
// How many names the builder interns at once, and how far ahead of the name being
// interned the table slot, and then the text it points to, are fetched.
constexpr std::size_t BATCH = 1024;
constexpr std::size_t SLOT_AHEAD = 64;
constexpr std::size_t TEXT_AHEAD = 24;

}  // namespace

namespace detail {

std::uint64_t NameTable::hash(std::string_view name) {
  return std::hash<std::string_view>{}(name);
}

std::size_t NameTable::slot_of(std::string_view name, std::uint64_t hash) const {
  const std::size_t mask = table_.size() - 1;
  const auto tag = static_cast<std::uint32_t>(hash >> 32);
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    const Slot& probe = table_[slot];
    if (probe.node == NO_NODE) return slot;
    if (probe.tag == tag && probe.length == name.size() &&
        std::string_view(text_).substr(probe.start, probe.length) == name) {
      return slot;
    }
  }
}

std::optional<Node> NameTable::find(std::string_view name) const {
  if (table_.empty()) return std::nullopt;
  const Slot& slot = table_[slot_of(name, hash(name))];
  if (slot.node == NO_NODE) return std::nullopt;
  return slot.node;
}

void NameTable::reserve(std::size_t more) {
  const std::size_t needed = size() + more;
  if (needed >= NO_NODE) throw std::length_error("a dependency graph has too many nodes");
  std::size_t capacity = std::max<std::size_t>(table_.size(), 16);
  while (needed * 2 > capacity)
    capacity *= 2;
  if (capacity == table_.size()) return;
  std::vector<Slot> old = std::move(table_);
  table_.assign(capacity, Slot{NO_NODE, 0, 0, 0});
  const std::size_t mask = capacity - 1;
  for (const Slot& slot : old) {
    if (slot.node == NO_NODE) continue;
    std::size_t at = hash(name(slot.node)) & mask;
    while (table_[at].node != NO_NODE)
      at = (at + 1) & mask;
    table_[at] = slot;
  }
}

Node NameTable::intern_one(std::string_view name, std::uint64_t hash) {
  Slot& slot = table_[slot_of(name, hash)];
  if (slot.node != NO_NODE) return slot.node;
  if (name.size() >= MAX_NAME || text_.size() + name.size() >= MAX_TEXT) {
    throw std::length_error("a dependency graph's names are too long");
  }
  slot = {static_cast<Node>(size()), static_cast<std::uint32_t>(hash >> 32), text_.size(),
          name.size()};
  text_.append(name);
  starts_.push_back(text_.size());
  return slot.node;
}

void NameTable::intern(std::span<const std::string_view> names,
                       std::span<const std::uint64_t> hashes, std::span<Node> nodes) {
  reserve(names.size());
  const std::size_t mask = table_.size() - 1;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i + SLOT_AHEAD < names.size()) __builtin_prefetch(&table_[hashes[i + SLOT_AHEAD] & mask]);
    if (i + TEXT_AHEAD < names.size()) {
      const std::uint64_t ahead = hashes[i + TEXT_AHEAD];
      const Slot& slot = table_[ahead & mask];
      if (slot.node != NO_NODE && slot.tag == static_cast<std::uint32_t>(ahead >> 32)) {
        __builtin_prefetch(text_.data() + slot.start);
      }
    }
    // A name repeated right away (an edge's target, then that target as a key; the
    // edges of one source one after another) needs no lookup.
    nodes[i] = i > 0 && names[i] == names[i - 1] ? nodes[i - 1] : intern_one(names[i], hashes[i]);
  }
}

}  // namespace detail

DependencyGraph::DependencyGraph(
    std::initializer_list<std::pair<std::string_view, std::vector<std::string_view>>> entries) {
  Builder builder;
  for (const auto& [node, successors] : entries) {
    builder.add_node(node);
    for (std::string_view successor : successors)
      builder.add_edge(node, successor);
  }
  *this = builder.build();
}

void DependencyGraph::Builder::stage(std::string_view name, Role role) {
  staged_.push_back({staged_text_.size(), name.size(), role});
  staged_text_.append(name);
  if (staged_.size() >= BATCH) flush();
}

void DependencyGraph::Builder::add_node(std::string_view name) {
  stage(name, Role::key);
}

void DependencyGraph::Builder::add_edge(std::string_view source, std::string_view target) {
  stage(source, Role::source);
  stage(target, Role::target);
}

void DependencyGraph::Builder::flush() {
  std::vector<std::string_view> names;
  std::vector<std::uint64_t> hashes;
  names.reserve(staged_.size());
  hashes.reserve(staged_.size());
  for (const Staged& staged : staged_) {
    names.push_back(std::string_view(staged_text_).substr(staged.start, staged.length));
    hashes.push_back(detail::NameTable::hash(names.back()));
  }
  std::vector<Node> nodes(staged_.size());
  graph_.names_.intern(names, hashes, nodes);
  graph_.is_key_.resize(graph_.names_.size(), 0);

  for (std::size_t i = 0; i < staged_.size(); ++i) {
    const Node node = nodes[i];
    if (staged_[i].role == Role::target) {
      edges_.emplace_back(source_, node);
      continue;
    }
    if (!graph_.is_key_[node]) {
      graph_.is_key_[node] = 1;
      graph_.keys_.push_back(node);
    }
    source_ = node;
  }
  staged_.clear();
  staged_text_.clear();
}

DependencyGraph DependencyGraph::Builder::build() {
  flush();
  const std::size_t count = graph_.node_count();

  // A counting sort by source keeps each source's successors in the order added: after
  // filling from the back, starts[n + 1] is where n's row begins.
  std::vector<std::size_t> starts(count + 1, 0);
  for (const auto& [source, target] : edges_)
    ++starts[source + 1];
  for (std::size_t node = 0; node < count; ++node)
    starts[node + 1] += starts[node];
  std::vector<Node> targets(edges_.size());
  for (auto edge = edges_.rbegin(); edge != edges_.rend(); ++edge)
    targets[--starts[edge->first + 1]] = edge->second;
  edges_ = {};

  // Keep each successor's first occurrence, moving the rows down over the repeats.
  std::vector<Node> last_source(count, NO_NODE);
  std::size_t written = 0;
  for (std::size_t node = 0; node < count; ++node) {
    const std::size_t begin = starts[node + 1];
    const std::size_t end = node + 1 < count ? starts[node + 2] : targets.size();
    starts[node] = written;
    for (std::size_t i = begin; i < end; ++i) {
      const Node target = targets[i];
      if (last_source[target] == node) continue;
      last_source[target] = static_cast<Node>(node);
      targets[written++] = target;
    }
  }
  starts[count] = written;
  targets.resize(written);
  targets.shrink_to_fit();

  graph_.offsets_ = std::move(starts);
  graph_.targets_ = std::move(targets);
  DependencyGraph built = std::move(graph_);
  graph_ = DependencyGraph();
  source_ = 0;
  return built;
}

namespace detail {

StrongComponents strongly_connected(const DependencyGraph& graph) {
  const std::size_t count = graph.node_count();
  constexpr std::uint32_t UNVISITED = std::numeric_limits<std::uint32_t>::max();

  // A node's visit number, or UNVISITED; its low-link; whether it is on the node stack.
  std::vector<std::uint32_t> index(count, UNVISITED);
  std::vector<std::uint32_t> lowlink(count);
  std::vector<bool> on_stack(count);
  std::vector<Node> stack;
  // The search stack: a node and the successors it has yet to examine.
  struct Frame {
    Node node;
    const Node* next;
    const Node* end;
  };
  std::vector<Frame> frames;
  std::uint32_t counter = 0;
  StrongComponents found;
  found.members.reserve(count);

  auto visit = [&](Node node) {
    index[node] = lowlink[node] = counter++;
    stack.push_back(node);
    on_stack[node] = true;
    const auto successors = graph.successors(node);
    frames.push_back({node, successors.data(), successors.data() + successors.size()});
  };

  for (const Node root : graph.keys()) {
    if (index[root] != UNVISITED) continue;
    visit(root);
    while (!frames.empty()) {
      Frame& frame = frames.back();
      const Node node = frame.node;
      bool descended = false;
      while (frame.next != frame.end) {
        // Advanced before the successor is examined, so that a resumed frame goes on
        // with the next one.
        const Node successor = *frame.next++;
        if (index[successor] == UNVISITED) {
          visit(successor);  // invalidates `frame`
          descended = true;
          break;
        }
        if (on_stack[successor]) lowlink[node] = std::min(lowlink[node], index[successor]);
      }
      if (descended) continue;

      // Every successor is examined: the node is finished.
      frames.pop_back();
      if (lowlink[node] == index[node]) {
        Node member;
        do {
          member = stack.back();
          stack.pop_back();
          on_stack[member] = false;
          found.members.push_back(member);
        } while (member != node);
        found.starts.push_back(found.members.size());
      }
      if (!frames.empty()) {
        const Node parent = frames.back().node;
        lowlink[parent] = std::min(lowlink[parent], lowlink[node]);
      }
    }
  }
  return found;
}

namespace {

// Working arrays of the breadth-first cycle search, indexed by node and reused across
// the components of one graph: a node is inside the current search's members when
// `inside[node] == search`, and reached when `reached[node] == search`.
struct CycleSearch {
  explicit CycleSearch(std::size_t count)
      : inside(count, 0), reached(count, 0), rank(count), came_from(count) {}

  std::vector<std::uint32_t> inside;
  std::vector<std::uint32_t> reached;
  std::vector<std::uint32_t> rank;  // position in the members' string order
  std::vector<Node> came_from;
  std::uint32_t search = 0;
  std::vector<Node> queue;
  std::vector<Node> next;
};

// A shortest cycle through `start` inside `members` (sorted by name, each once), or
// nothing. The start is expanded first; an expanded node with an edge to `start` closes
// the cycle, else its unreached successors inside are queued in ascending string order.
std::optional<std::vector<Node>> cycle_through(const DependencyGraph& graph, Node start,
                                               std::span<const Node> members, CycleSearch& s) {
  ++s.search;
  for (std::size_t i = 0; i < members.size(); ++i) {
    s.inside[members[i]] = s.search;
    s.rank[members[i]] = static_cast<std::uint32_t>(i);
  }
  s.queue.assign(1, start);
  for (std::size_t head = 0; head < s.queue.size(); ++head) {
    const Node node = s.queue[head];
    s.next.clear();
    bool closes = false;
    for (const Node successor : graph.successors(node)) {
      if (successor == start) {
        closes = true;
        break;
      }
      if (s.inside[successor] == s.search && s.reached[successor] != s.search) {
        s.next.push_back(successor);
      }
    }
    if (closes) {
      std::vector<Node> path{node};
      while (path.back() != start)
        path.push_back(s.came_from[path.back()]);
      std::reverse(path.begin(), path.end());
      path.push_back(start);
      return path;
    }
    std::sort(s.next.begin(), s.next.end(), [&](Node a, Node b) { return s.rank[a] < s.rank[b]; });
    for (const Node successor : s.next) {
      s.reached[successor] = s.search;
      s.came_from[successor] = node;
      s.queue.push_back(successor);
    }
  }
  return std::nullopt;
}

// 'a' with quotes and backslashes escaped.
std::string quoted(std::string_view text) {
  std::string out = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  return out + "'";
}

[[noreturn]] void throw_no_cycle(const std::vector<std::string>& members) {
  std::string message = members.front() + " is on no cycle of [";
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (i > 0) message += ", ";
    message += quoted(members[i]);
  }
  throw std::invalid_argument(message + "]");
}

std::vector<std::string> names_of(const DependencyGraph& graph, std::span<const Node> nodes) {
  std::vector<std::string> names;
  names.reserve(nodes.size());
  for (const Node node : nodes)
    names.emplace_back(graph.name(node));
  return names;
}

void sort_by_name(const DependencyGraph& graph, std::vector<Node>& nodes) {
  std::sort(nodes.begin(), nodes.end(),
            [&](Node a, Node b) { return graph.name(a) < graph.name(b); });
}

}  // namespace

std::vector<std::string> shortest_cycle(const DependencyGraph& graph,
                                        const std::vector<std::string>& members) {
  if (members.empty()) throw std::invalid_argument("a cycle needs at least one member");
  // Members that are no node of the graph have no edges, so they lie on no cycle.
  const std::optional<Node> start = graph.find(members.front());
  if (!start) throw_no_cycle(members);
  std::vector<Node> inside;
  for (const std::string& member : members) {
    if (const auto node = graph.find(member)) inside.push_back(*node);
  }
  sort_by_name(graph, inside);
  inside.erase(std::unique(inside.begin(), inside.end()), inside.end());

  CycleSearch search(graph.node_count());
  const auto cycle = cycle_through(graph, *start, inside, search);
  if (!cycle) throw_no_cycle(members);
  return names_of(graph, *cycle);
}

}  // namespace detail

std::vector<CycleComponent> condense_cycles(const DependencyGraph& graph, std::string_view level) {
  const StrongComponents components = detail::strongly_connected(graph);
  std::vector<std::vector<Node>> kept;
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (components[i].size() < 2) continue;
    kept.emplace_back(components[i].begin(), components[i].end());
    detail::sort_by_name(graph, kept.back());
  }
  // Largest first, then by first member; components are disjoint, so no two tie.
  std::sort(kept.begin(), kept.end(), [&](const auto& a, const auto& b) {
    if (a.size() != b.size()) return a.size() > b.size();
    return graph.name(a.front()) < graph.name(b.front());
  });

  std::vector<CycleComponent> cycles;
  cycles.reserve(kept.size());
  detail::CycleSearch search(graph.node_count());
  for (const auto& members : kept) {
    std::vector<std::string> nodes = detail::names_of(graph, members);
    const auto cycle = detail::cycle_through(graph, members.front(), members, search);
    if (!cycle) detail::throw_no_cycle(nodes);
    cycles.push_back({{std::move(nodes), std::string(level)}, detail::names_of(graph, *cycle)});
  }
  return cycles;
}

}  // namespace quarry
