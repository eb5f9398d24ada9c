#include "backend/mapping/early_masks.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "backend/mapping/rebuild.h"
#include "util/failure.h"

namespace mapping {

using graph::Builder;
using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;
using graph::Signal;

namespace {

// What is looked at for one mask, at the most.
constexpr std::size_t kMostMasked = 64;
constexpr std::size_t kMostInCondition = 16;
constexpr std::size_t kMostFollowed = 256;

// A word whose bits are masked as long as `keep` is 0.
struct Mask {
  NodeId node;                      // the mask
  NodeId data;                      // what it masks
  NodeId keep;                      // one bit
  bool keepsOne;                    // the value of `keep` that lets the data through
  NodeId copies{};                  // of `keep`, as a word that only the mask reads; none elsewhere
  std::vector<NodeId> sources{};    // words behind registers of which the data is made
  std::vector<NodeId> condition{};  // nodes of the mask's cycle that compute `keep`
};

struct Known {
  NodeId node;
  bool value;
};

// The bits of a node where a word before it may be masked or not.
enum class Bits { kSame, kZeros, kOnes, kDiffer };

class Finder {
 public:
  Finder(const Graph& graph, std::span<const int> cycles)
      : graph(graph), cycles(cycles), first(graph.size() + 1), isKept(graph.size()) {
    for (const Node& node : graph.nodes())
      for (const NodeId operand : graph.operands(node)) ++first[operand.index];
    std::size_t end = 0;
    for (std::size_t& place : first) end = place += end;
    readers.resize(end);
    for (std::uint32_t i = static_cast<std::uint32_t>(graph.size()); i-- > 0;)
      for (const NodeId operand : graph.operands(NodeId{i})) readers[--first[operand.index]] = {i};
    for (const graph::Port& port : graph.outputs()) isKept[port.signal.node.index] = true;
    for (const graph::State& state : graph.states()) isKept[state.next.index] = true;
  }

  std::vector<Mask> masks() const {
    std::vector<Mask> found;
    std::vector<bool> isTaken(graph.size());  // by a mask that moves
    for (std::uint32_t i = 0; i < graph.size(); ++i) {
      auto mask = maskAt({i});
      if (!mask || !canMove(*mask)) continue;
      std::vector<NodeId> takes = mask->sources;
      takes.push_back(mask->node);
      takes.insert(takes.end(), mask->condition.begin(), mask->condition.end());
      if (std::ranges::any_of(takes, [&](NodeId id) { return isTaken[id.index]; })) continue;
      for (const NodeId id : takes) isTaken[id.index] = true;
      found.push_back(std::move(*mask));
    }
    return found;
  }

 private:
  std::span<const NodeId> readersOf(NodeId id) const {
    return std::span(readers).subspan(first[id.index], first[id.index + 1] - first[id.index]);
  }
  int cycleOf(NodeId id) const { return cycles[id.index]; }
  bool isLiteral(NodeId id) const { return graph.node(id).op == Op::kLiteral; }
  bool isZero(NodeId id) const { return isLiteral(id) && graph.literal(graph.node(id)).isZero(); }

  std::optional<Mask> maskAt(NodeId id) const {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    if (node.width < 2 || cycleOf(id) == 0) return {};
    if (node.op == Op::kSelect) {
      if (isZero(operands[1])) return Mask{id, operands[2], operands[0], false};
      if (isZero(operands[2])) return Mask{id, operands[1], operands[0], true};
    }
    if (node.op == Op::kAnd)
      for (const std::size_t side : {0u, 1u})
        if (const auto bit = repeatedBit(operands[side]))
          return Mask{id, operands[1 - side], *bit, true};
    return {};
  }
  std::optional<NodeId> repeatedBit(NodeId id) const {
    if (graph.node(id).op != Op::kReplicate) return {};
    const NodeId bit = graph.operands(id)[0];
    return graph.node(bit).width == 1 ? std::optional(bit) : std::nullopt;
  }

  bool canMove(Mask& mask) const {
    const int cycle = cycleOf(mask.node);
    std::set<NodeId> seen;
    if (!findSources(mask.data, cycle, mask, seen) || mask.sources.empty()) return false;
    seen.clear();
    for (const NodeId operand : graph.operands(mask.node))
      if (operand != mask.data && cycleOf(operand) == cycle && repeatedBit(operand) == mask.keep &&
          readersOf(operand).size() == 1 && !isKept[operand.index])
        seen.insert(mask.copies = operand);
    if (!findCondition(mask.keep, cycle, mask, seen)) return false;
    std::vector<Known> reasons;
    findReasons(mask.keep, !mask.keepsOne, reasons);
    return std::ranges::all_of(reasons, [&](const Known& reason) { return hides(mask, reason); });
  }

  // The words of earlier cycles of which `id` is made; false where it may not be 0 when they are.
  bool findSources(NodeId id, int cycle, Mask& mask, std::set<NodeId>& seen) const {
    if (!seen.insert(id).second) return true;
    if (isLiteral(id)) return isZero(id);
    if (seen.size() > kMostMasked) return false;
    const Node& node = graph.node(id);
    if (cycleOf(id) < cycle) {
      if (node.op == Op::kState || node.width < 2) return false;
      mask.sources.push_back(id);
      return true;
    }
    const auto operands = graph.operands(node);
    const auto all = [&](std::span<const NodeId> from) {
      return std::ranges::all_of(
          from, [&](NodeId operand) { return findSources(operand, cycle, mask, seen); });
    };
    switch (node.op) {
      case Op::kSlice:
      case Op::kConcat:
      case Op::kReplicate:
      case Op::kOr:
      case Op::kXor:
        return all(operands);
      case Op::kSelect:
      case Op::kPick:
        return all(operands.subspan(1));
      case Op::kAnd:
        return all(operands.subspan(repeatedBit(operands[0]) ? 1 : 0, 1));
      default:
        return false;
    }
  }

  // The nodes between registers and the mask's condition; false where anything else reads one.
  bool findCondition(NodeId id, int cycle, Mask& mask, std::set<NodeId>& seen) const {
    if (cycleOf(id) < cycle || isLiteral(id) || !seen.insert(id).second) return true;
    if (seen.size() > kMostInCondition || isKept[id.index]) return false;
    const Op op = graph.node(id).op;
    if (op == Op::kState || op == Op::kInput || op == Op::kAdd || op == Op::kMultiply) return false;
    for (const NodeId reader : readersOf(id))
      if (!seen.contains(reader) && (reader != mask.node || id != mask.keep)) return false;
    mask.condition.push_back(id);
    return std::ranges::all_of(graph.operands(id), [&](NodeId operand) {
      return findCondition(operand, cycle, mask, seen);
    });
  }

  // Bits of which one at least has its value when `id` has the given one.
  void findReasons(NodeId id, bool value, std::vector<Known>& reasons) const {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    if (node.op == Op::kNot) return findReasons(operands[0], !value, reasons);
    if (node.op == (value ? Op::kOr : Op::kAnd)) {
      for (const NodeId operand : operands) findReasons(operand, value, reasons);
      return;
    }
    reasons.push_back({id, value});
  }

  // True where nothing that is kept tells, for this reason to mask, whether the sources are masked.
  bool hides(const Mask& mask, const Known& reason) const {
    const int cycle = cycleOf(mask.node);
    std::map<NodeId, Bits> bits{{reason.node, reason.value ? Bits::kOnes : Bits::kZeros}};
    std::set<NodeId> open;
    std::size_t followed = 0;
    const auto reach = [&](NodeId from, int firstCycle) {
      followed += readersOf(from).size();
      if (followed > kMostFollowed) return;
      for (const NodeId reader : readersOf(from))
        if (cycleOf(reader) >= firstCycle && !bits.contains(reader)) open.insert(reader);
    };
    reach(reason.node, 0);
    for (const NodeId source : mask.sources) {
      if (isKept[source.index]) return false;
      reach(source, cycle);
    }
    const auto bitsOf = [&](NodeId id, int readIn) {
      if (readIn >= cycle && std::ranges::find(mask.sources, id) != mask.sources.end())
        return Bits::kDiffer;
      if (const auto found = bits.find(id); found != bits.end()) return found->second;
      if (!isLiteral(id)) return Bits::kSame;
      if (isZero(id)) return Bits::kZeros;
      return graph.node(id).width == 1 ? Bits::kOnes : Bits::kSame;
    };
    while (!open.empty() && followed <= kMostFollowed) {
      const NodeId id = *open.begin();
      open.erase(open.begin());
      const Bits own = bitsBehind(id, [&](NodeId operand) { return bitsOf(operand, cycleOf(id)); });
      if (own == Bits::kSame) continue;
      if (own == Bits::kDiffer && isKept[id.index]) return false;
      bits.emplace(id, own);
      reach(id, 0);
    }
    return followed <= kMostFollowed;
  }

  template <typename BitsOf>
  Bits bitsBehind(NodeId id, const BitsOf& bitsOf) const {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    const auto any = [&](std::span<const NodeId> of, Bits which) {
      return std::ranges::any_of(of, [&](NodeId x) { return bitsOf(x) == which; });
    };
    const auto all = [&](std::span<const NodeId> of, Bits which) {
      return std::ranges::all_of(of, [&](NodeId x) { return bitsOf(x) == which; });
    };
    const auto joined = [&](std::span<const NodeId> of) {
      return any(of, Bits::kDiffer)  ? Bits::kDiffer
             : all(of, Bits::kZeros) ? Bits::kZeros
             : all(of, Bits::kOnes)  ? Bits::kOnes
                                     : Bits::kSame;
    };
    // `decisive` in any operand decides, the other one in all.
    const auto decided = [&](std::span<const NodeId> of, Bits decisive) {
      return any(of, decisive) ? decisive : joined(of);
    };
    switch (node.op) {
      case Op::kSlice:
      case Op::kConcat:
      case Op::kReplicate:
        return joined(operands);
      case Op::kNot: {
        const Bits x = bitsOf(operands[0]);
        return x == Bits::kZeros ? Bits::kOnes : x == Bits::kOnes ? Bits::kZeros : x;
      }
      case Op::kAnd:
        return decided(operands, Bits::kZeros);
      case Op::kOr:
        return decided(operands, Bits::kOnes);
      case Op::kReduceAnd:
      case Op::kReduceOr: {
        const Node& word = graph.node(operands[0]);
        const bool isJoined = word.op == Op::kConcat && cycleOf(operands[0]) == cycleOf(id);
        return decided(isJoined ? graph.operands(word) : operands,
                       node.op == Op::kReduceAnd ? Bits::kZeros : Bits::kOnes);
      }
      case Op::kSelect: {
        const Bits condition = bitsOf(operands[0]);
        return condition == Bits::kOnes     ? bitsOf(operands[1])
               : condition == Bits::kZeros  ? bitsOf(operands[2])
               : condition == Bits::kDiffer ? Bits::kDiffer
                                            : joined(operands.subspan(1));
      }
      case Op::kPick:
        return bitsOf(operands[0]) == Bits::kDiffer ? Bits::kDiffer : joined(operands.subspan(1));
      default:
        return any(operands, Bits::kDiffer) ? Bits::kDiffer : Bits::kSame;
    }
  }

  const Graph& graph;
  const std::span<const int> cycles;
  std::vector<std::size_t> first;  // readers of node i stand in [first[i], first[i + 1])
  std::vector<NodeId> readers;
  std::vector<bool> isKept;  // by node: an output or a state takes it
};

// Rebuilds a graph, cycle by cycle, with masks moved.
class Mover {
 public:
  Mover(const Graph& graph, std::span<const int> cycles, std::vector<Mask> found)
      : graph(graph), cycles(cycles), masks(std::move(found)), made(graph.size()) {
    for (const Mask& mask : masks) dataOf.emplace(mask.node, mask.data);
    std::ranges::stable_sort(masks, {}, [&](const Mask& mask) { return cycleOf(mask.node); });
  }

  ScheduledGraph run() {
    std::vector<NodeId> order(graph.size());
    for (std::uint32_t i = 0; i < graph.size(); ++i) order[i] = {i};
    std::ranges::stable_sort(order, {}, [&](NodeId id) { return cycleOf(id); });
    ScheduledGraph result;
    result.graph = rebuilt(
        graph,
        [&](Builder& b, const Graph& from, NodeId id, std::span<const Signal> x) {
          return made[id.index] = remade(b, from, id, x);
        },
        order);
    result.cycleByNode = std::move(newCycles);
    return result;
  }

 private:
  int cycleOf(NodeId id) const { return cycles[id.index]; }
  // Inputs are there already.
  void begin(const Builder& b) {
    for (std::size_t i = 0; i < graph.inputs().size(); ++i)
      made[graph.inputs()[i].signal.node.index] = b.built().inputs()[i].signal;
    standsIn(b, 0);
  }
  void standsIn(const Builder& b, int cycle) { newCycles.resize(b.built().size(), cycle); }

  Signal remade(Builder& b, const Graph& from, NodeId id, std::span<const Signal> x) {
    const int cycle = cycleOf(id);
    if (newCycles.empty()) begin(b);
    for (; next < masks.size() && cycleOf(masks[next].node) <= cycle; ++next) add(b, masks[next]);
    if (const auto copy = moved.find(id); copy != moved.end()) return copy->second;
    Signal result;
    std::vector<Signal> operands(x.begin(), x.end());
    for (std::size_t i = 0; i < operands.size(); ++i)
      operands[i] = seen(graph.operands(id)[i], cycle, operands[i]);
    if (const auto data = dataOf.find(id); data != dataOf.end())
      result = seen(data->second, cycle, made[data->second.index]);
    else
      result = copyOf(b, from, id, operands);
    standsIn(b, cycle);
    return result;
  }

  // A node of the old graph as one of that cycle reads it.
  Signal seen(NodeId id, int cycle, Signal whole) const {
    const auto found = masked.upper_bound({id, cycle});
    if (found == masked.begin() || std::prev(found)->first.first != id) return whole;
    return std::prev(found)->second;
  }

  void add(Builder& b, const Mask& mask) {
    const int cycle = cycleOf(mask.node);
    const auto early = [&](NodeId id) {
      const Node& node = graph.node(id);
      if (node.op == Op::kLiteral) return b.literal(graph.literal(node), node.width);
      const auto copy = moved.find(id);
      return copy != moved.end() ? copy->second : seen(id, cycle - 1, made[id.index]);
    };
    for (auto id = mask.condition.rbegin(); id != mask.condition.rend(); ++id) {
      std::vector<Signal> operands;
      for (const NodeId operand : graph.operands(*id)) operands.push_back(early(operand));
      moved.emplace(*id, copyOf(b, graph, *id, operands));
    }
    const Signal keep = early(mask.keep);
    if (mask.copies != NodeId{}) moved.emplace(mask.copies, keep);
    const std::optional<Signal> noneOf = mask.keepsOne ? clears(b, keep, cycle - 1) : std::nullopt;
    for (const NodeId source : mask.sources) {
      const Signal word = seen(source, cycle - 1, made[source.index]), zeros = b.zeros(word.width);
      masked[{source, cycle}] = noneOf          ? b.select(*noneOf, zeros, word)
                                : mask.keepsOne ? b.select(keep, word, zeros)
                                                : b.select(keep, zeros, word);
    }
    standsIn(b, cycle - 1);
  }

  // The inverse of an or of bits as an and of inverses. Tools clear a register that an inverted or
  // clears through an inverter for each bit, and then make the or once for each of those.
  std::optional<Signal> clears(Builder& b, Signal keep, int cycle) const {
    const Node& node = b.built().node(keep.node);
    const bool isMadeThere =
        keep.node.index >= newCycles.size() || newCycles[keep.node.index] == cycle;
    if (node.op != Op::kReduceOr || !isMadeThere) return std::nullopt;
    return b.reduceAnd(b.bitNot(b.built().signal(b.built().operands(node)[0])));
  }

  const Graph& graph;
  const std::span<const int> cycles;
  std::vector<Mask> masks;  // by cycle
  std::size_t next = 0;     // of them
  std::map<NodeId, NodeId> dataOf;
  std::map<NodeId, Signal> moved;  // conditions, which nothing but their masks reads
  std::vector<Signal> made;        // by node of the old graph
  std::map<std::pair<NodeId, int>, Signal> masked;  // a word from that cycle on
  std::vector<int> newCycles;
};

}  // namespace

std::optional<ScheduledGraph> withEarlyMasks(const Graph& graph, std::span<const int> cycles) {
  std::vector<Mask> masks = Finder(graph, cycles).masks();
  if (masks.empty()) return std::nullopt;
  return Mover(graph, cycles, std::move(masks)).run();
}

}  // namespace mapping
