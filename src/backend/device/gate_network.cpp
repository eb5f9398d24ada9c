#include "backend/device/gate_network.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "backend/device/cuts.h"
#include "backend/device/read_bits.h"
#include "util/failure.h"

namespace device {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;

Literal GateNetwork::input() {
  gateRows.push_back({});
  return static_cast<Literal>(2 * (gateRows.size() - 1));
}

Literal GateNetwork::both(Literal a, Literal b) {
  if (a > b) std::swap(a, b);
  if (a == kFalse || a == inverse(b)) return kFalse;
  if (a == kTrue || a == b) return b;
  // One level deep: what an operand of the other says of this one.
  for (const auto& [x, y] : {std::pair{a, b}, {b, a}}) {
    const Gate& gate = gateRows[gateOf(y)];
    if (gate.isInput) continue;
    for (const auto& [mine, rest] : {std::pair{gate.a, gate.b}, {gate.b, gate.a}}) {
      if (y % 2 == 0) {
        if (mine == x) return y;
        if (mine == inverse(x)) return kFalse;
      } else {
        if (mine == x) return both(x, inverse(rest));
        if (mine == inverse(x)) return x;
      }
    }
  }
  const auto [found, isNew] = made.try_emplace(std::uint64_t{a} << 32 | b, kFalse);
  if (isNew) found->second = append(a, b);
  return found->second;
}

Literal GateNetwork::append(Literal a, Literal b) {
  gateRows.push_back({a, b, false});
  return static_cast<Literal>(2 * (gateRows.size() - 1));
}

void GateNetwork::setChoices(std::uint32_t gate, std::vector<Literal> choices) {
  if (choices.empty()) return;
  if (gate >= choiceRows.size()) choiceRows.resize(gate + 1);
  choiceRows[gate] = std::move(choices);
}

Literal GateNetwork::differ(Literal a, Literal b) {
  const Literal isInverse = (a ^ b) & 1;
  a &= ~Literal{1}, b &= ~Literal{1};
  return inverse(both(inverse(both(a, inverse(b))), inverse(both(inverse(a), b)))) ^ isInverse;
}

Literal GateNetwork::choice(Literal condition, Literal ifOne, Literal ifZero) {
  if (ifOne == ifZero) return ifOne;
  return either(both(condition, ifOne), both(inverse(condition), ifZero));
}

namespace {

using Word = std::vector<Literal>;  // bit 0 first

// Larger tables are counted by their contents.
constexpr long kMostTableBits = 1 << 14;

class Builder {
 public:
  Builder(const Graph& graph, const Device& device, std::span<const int> cycles,
          std::span<const NodeId> lateClears)
      : graph(graph),
        device(device),
        cycles(cycles),
        lateClears(lateClears),
        readers(soleReaders(graph)),
        fans(fanOuts(graph)),
        isRead(readBits(graph)),
        words(graph.size()) {}

  LogicBetweenRegisters build() && {
    for (std::uint32_t i = 0; i < graph.size(); ++i) {
      if (readWidth({i}) == 0) {
        words[i] = Word(static_cast<std::size_t>(graph.node({i}).width), kFalse);
        continue;
      }
      LOAM_ASSERT(static_cast<int>((words[i] = wordOf({i})).size()) == graph.node({i}).width,
                  "a bit for each of the word's");
    }
    for (const graph::Port& port : graph.outputs()) addRoots(words[port.signal.node.index]);
    for (const graph::State& state : graph.states()) addNext(state);
    return std::move(result);
  }

 private:
  // A choice between a state and its next value is that register's enable, unless others read it.
  void addNext(const graph::State& state) {
    const Node& next = graph.node(state.next);
    const auto operands = graph.operands(next);
    if (next.op != Op::kSelect || fans[state.next.index] != 1 ||
        (operands[1] != state.node && operands[2] != state.node))
      return addRegister(words[state.next.index]);
    addRoots(operand(state.next, 0));
    addRoots(operand(state.next, operands[1] == state.node ? 2 : 1));
  }
  void addRoots(const Word& word) {
    for (const Literal x : word) net().addRoot(x);
  }
  // What a register takes, and what clears or sets it.
  void addRegister(const Word& word) {
    for (const Literal x : word) addRegister(x);
  }
  void addRegister(Literal x) {
    Literal clear = kFalse;
    for (auto found = clears.find(x); found != clears.end(); found = clears.find(x)) {
      clear = net().either(clear, found->second.when);
      x = found->second.data;
    }
    if (clear != kFalse) net().addRoot(clear);
    net().addRoot(x);
  }
  GateNetwork& net() { return result.network; }
  Word inputs(int width) {
    Word word(static_cast<std::size_t>(width));
    for (Literal& x : word) x = net().input();
    return word;
  }

  // Operand number `index` as `reader` sees it, through registers where its cycle is later.
  Word operand(NodeId reader, std::size_t index) {
    return seenBy(reader, graph.operands(reader)[index]);
  }
  Word seenBy(NodeId reader, NodeId id) {
    Word word = words[id.index];
    if (cycles[id.index] >= cycles[reader.index]) return word;
    for (std::size_t i = 0; i < word.size(); ++i)
      word[i] = isRead[id.index][i] ? behindRegister(word[i]) : kFalse;
    return word;
  }
  // Without the bits at the top that nothing reads.
  std::size_t readWidth(NodeId id) const {
    const std::vector<bool>& bits = isRead[id.index];
    return static_cast<std::size_t>(bits.rend() -
                                    std::ranges::find(bits.rbegin(), bits.rend(), true));
  }
  Literal behindRegister(Literal x) {
    if (gateOf(x) == 0) return x;
    const auto [found, isNew] = registers.try_emplace(x, kFalse);
    if (isNew) {
      addRegister(x);
      found->second = net().input();
    }
    return found->second;
  }

  Word wordOf(NodeId id) {
    const Node& node = graph.node(id);
    const auto width = static_cast<std::size_t>(node.width);
    const std::size_t operands = node.operandCount;
    switch (node.op) {
      case Op::kInput:
      case Op::kState:
        return inputs(node.width);
      case Op::kLiteral: {
        Word word;
        for (std::size_t i = 0; i < width; ++i)
          word.push_back(graph.literal(node).bit(i) ? kTrue : kFalse);
        return word;
      }
      case Op::kSlice: {
        const Word x = operand(id, 0);
        return Word(x.begin() + node.aux, x.begin() + node.aux + node.width);
      }
      case Op::kConcat: {
        Word word;
        for (std::size_t i = operands; i-- > 0;) {
          const Word part = operand(id, i);
          word.insert(word.end(), part.begin(), part.end());
        }
        return word;
      }
      case Op::kReplicate: {
        const Word x = operand(id, 0);
        Word word;
        while (word.size() < width) word.insert(word.end(), x.begin(), x.end());
        return word;
      }
      case Op::kNot: {
        Word word = operand(id, 0);
        for (Literal& x : word) x = inverse(x);
        return word;
      }
      case Op::kAnd:
      case Op::kOr:
      case Op::kXor: {
        const Word a = operand(id, 0), b = operand(id, 1);
        Word word;
        for (std::size_t i = 0; i < width; ++i) word.push_back(combined(node.op, a[i], b[i]));
        return word;
      }
      case Op::kSelect:
        return cleared(id, selected(id, graph.operands(node)[1], graph.operands(node)[2], id, id));
      case Op::kPick:
        return cases(id);
      case Op::kReduceAnd:
        return {reduced(Op::kAnd, operand(id, 0))};
      case Op::kReduceOr:
        return {reduced(Op::kOr, operand(id, 0))};
      case Op::kReduceXor:
        return {reduced(Op::kXor, operand(id, 0))};
      case Op::kLut: {
        const Word index = operand(id, 0);
        std::vector<Word> rows;
        for (std::size_t row = 0; row < std::size_t{1} << index.size(); ++row) {
          Word word;
          for (std::size_t i = 0; i < width; ++i)
            word.push_back(graph.literal(node).bit(row * width + i) ? kTrue : kFalse);
          rows.push_back(std::move(word));
        }
        return picked(index, static_cast<int>(index.size()), rows);
      }
      case Op::kEqual: {
        const Word a = operand(id, 0), b = operand(id, 1);
        Word same;
        for (std::size_t i = 0; i < a.size(); ++i)
          same.push_back(inverse(net().differ(a[i], b[i])));
        return {reduced(Op::kAnd, same)};
      }
      case Op::kLess:
      case Op::kLessSigned:
        return {less(operand(id, 0), operand(id, 1), node.op == Op::kLessSigned)};
      case Op::kAdd:
        return device.isDspSum(graph, node) || isBehindProduct(id) ? block(id) : sum(id);
      case Op::kTable: {
        const auto entries = graph.rows(node);
        if (static_cast<long>(entries.size()) * node.width > kMostTableBits) return block(id);
        std::vector<Word> rows;
        for (const util::MPZ& entry : entries) {
          Word word;
          for (std::size_t i = 0; i < width; ++i) word.push_back(entry.bit(i) ? kTrue : kFalse);
          rows.push_back(std::move(word));
        }
        const Word index = operand(id, 0);
        return picked(index, static_cast<int>(index.size()), rows);
      }
      case Op::kMemory:
      case Op::kMultiply:
      case Op::kMultiplySigned:
      case Op::kHeap:
        return block(id);
      case Op::kCount:
        break;
    }
    LOAM_ASSERT(false, "an operation of the graph");
  }

  // A choice between operands of `reader`. Of two functions with an operand in common, which
  // nothing else reads, tools choose between the further operands.
  Word selected(NodeId reader, NodeId ifOne, NodeId ifZero, NodeId readsOne, NodeId readsZero) {
    const Node &one = graph.node(ifOne), &zero = graph.node(ifZero);
    const bool isAlike = one.op == zero.op && (one.op == Op::kAnd || one.op == Op::kOr) &&
                         readers[ifOne.index] == readsOne && readers[ifZero.index] == readsZero &&
                         cycles[ifOne.index] == cycles[reader.index] &&
                         cycles[ifZero.index] == cycles[reader.index];
    if (isAlike)
      for (std::size_t i = 0; i < 2; ++i)
        for (std::size_t k = 0; k < 2; ++k) {
          const NodeId common = graph.operands(one)[i];
          if (common != graph.operands(zero)[k]) continue;
          const Word x = seenBy(reader, common),
                     rest = selected(reader, graph.operands(one)[1 - i],
                                     graph.operands(zero)[1 - k], ifOne, ifZero);
          Word word;
          for (std::size_t bit = 0; bit < x.size(); ++bit)
            word.push_back(combined(one.op, x[bit], rest[bit]));
          return word;
        }
    return chosen(operand(reader, 0)[0], seenBy(reader, ifOne), seenBy(reader, ifZero));
  }

  // Notes the bits for which one choice is constant, should a register take them.
  const Word& cleared(NodeId id, const Word& word) {
    if (std::ranges::binary_search(lateClears, id)) return word;
    const Literal condition = operand(id, 0)[0];
    const Word one = operand(id, 1), zero = operand(id, 2);
    for (std::size_t i = 0; i < word.size(); ++i) {
      const bool isOneConstant = gateOf(one[i]) == 0;
      if (isOneConstant == (gateOf(zero[i]) == 0)) continue;
      const Literal data = isOneConstant ? zero[i] : one[i];
      // What the condition implies anyway is no choice.
      if (gateOf(data) < gateOf(word[i]))
        clears.try_emplace(word[i], Clear{data, isOneConstant ? condition : inverse(condition)});
    }
    return word;
  }

  // What is counted by itself.
  Word block(NodeId id) {
    for (std::size_t i = 0; i < graph.operands(id).size(); ++i) addRoots(operand(id, i));
    const bool isSum = graph.node(id).op == Op::kAdd;
    const Cost own = isSum ? Cost{} : device.costOf(graph, id);
    result.others.luts += own.luts;
    result.others.dsps += own.dsps;
    result.others.ramBits += own.ramBits;
    result.others.ramBlocks += own.ramBlocks;
    return inputs(graph.node(id).width);
  }

  // True for a sum that tools move into the block of a product: nothing else reads the product, and
  // no more than the block's own register stands between them.
  bool isBehindProduct(NodeId id) const {
    constexpr int kWidestBlockSum = 48;
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    const auto isLiteral = [&](NodeId x) { return graph.node(x).op == Op::kLiteral; };
    if (operands.size() != 3 || node.width > kWidestBlockSum || !isLiteral(operands[2]) ||
        !graph.literal(graph.node(operands[2])).isZero())
      return false;
    return std::ranges::any_of(operands.first(2), [&](NodeId x) {
      if (const auto parts = graph.operands(x);
          graph.node(x).op == Op::kConcat && parts.size() == 2 &&
          (isLiteral(parts[0]) || graph.node(parts[0]).op == Op::kReplicate))
        x = parts[1];
      if (graph.node(x).op == Op::kSlice && graph.node(x).aux == 0) x = graph.operands(x)[0];
      return device.isDspProduct(graph, graph.node(x)) && readers[x.index] == id &&
             cycles[id.index] - cycles[x.index] <= 1;
    });
  }

  // Addends, of which two stand on a chain: three are first brought down to two.
  std::pair<Word, Word> addends(NodeId id) {
    Word a = operand(id, 0), b = operand(id, 1);
    if (graph.node(id).operandCount == 3) return {a, b};
    const Word c = operand(id, 2);
    Word sums, carries = operand(id, 3);
    for (std::size_t i = 0; i < a.size(); ++i) {
      const Literal differ = net().differ(a[i], b[i]);
      sums.push_back(net().differ(differ, c[i]));
      carries.push_back(net().either(net().both(a[i], b[i]), net().both(differ, c[i])));
    }
    carries.pop_back();
    return {sums, carries};
  }

  // Neighbouring bits of one node, as part of a word.
  struct Piece {
    NodeId node;
    int low, width;
  };
  std::vector<Piece> piecesOf(NodeId id, std::size_t width) const {
    std::vector<Piece> pieces;
    addPieces(id, 0, static_cast<int>(width), pieces);
    return pieces;
  }
  void addPieces(NodeId id, int low, int width, std::vector<Piece>& pieces) const {
    const Node& node = graph.node(id);
    const auto operands = graph.operands(node);
    if (node.op == Op::kSlice)
      return addPieces(operands[0], low + static_cast<int>(node.aux), width, pieces);
    if (node.op == Op::kConcat || node.op == Op::kReplicate) {
      int first = 0;
      for (std::size_t i = 0; first < node.width; ++i) {
        const NodeId part =
            node.op == Op::kConcat ? operands[operands.size() - 1 - i] : operands[0];
        const int own = graph.node(part).width;
        const int from = std::max(low, first), to = std::min(low + width, first + own);
        if (from < to) addPieces(part, from - first, to - from, pieces);
        first += own;
      }
      return;
    }
    const bool isLiteral = node.op == Op::kLiteral;
    if (!pieces.empty()) {
      Piece& last = pieces.back();
      if (isLiteral ? graph.node(last.node).op == Op::kLiteral
                    : last.node == id && last.low + last.width == low) {
        last.width += width;
        return;
      }
    }
    pieces.push_back({id, low, width});
  }

  Word sum(NodeId id) {
    const Node& node = graph.node(id);
    auto [a, b] = addends(id);
    const std::size_t width = readWidth(id);
    a.resize(width), b.resize(width);
    const Literal carry = node.operandCount == 3 ? operand(id, 2)[0] : kFalse;
    const bool hasCarry = carry != kFalse;
    // An addend of logic goes to the chain as well as to the exclusive or: tools take the first one
    // of a difference, else the shorter one, or that of fewer pieces; of two alike about as often
    // either, here that which is not free.
    const auto operands = graph.operands(node);
    const auto isInverted = [&](std::size_t index) {
      return graph.node(operands[index]).op == Op::kNot &&
             cycles[operands[index].index] == cycles[id.index];
    };
    const auto isLiteral = [&](std::size_t index) {
      return graph.node(operands[index]).op == Op::kLiteral;
    };
    const auto rank = [&](std::size_t index, const Word& word) {
      const auto zeros =
          std::ranges::find_if(word.rbegin(), word.rend(), [](Literal x) { return x != kFalse; }) -
          word.rbegin();
      const auto pieces = static_cast<long>(piecesOf(operands[index], width).size());
      const auto logicBits =
          std::ranges::count_if(word, [&](Literal x) { return !net().gates()[gateOf(x)].isInput; });
      return std::tuple(-zeros, zeros > 0 ? pieces - 1 : pieces, -logicBits);
    };
    const bool isPlain = node.operandCount == 3;
    const bool subtracts = isPlain && carry == kTrue && !isLiteral(0) && !isLiteral(1);
    const bool swaps = subtracts ? isInverted(0) : isPlain && rank(1, b) < rank(0, a);
    if (swaps) std::swap(a, b);
    net().addRoot(carry);
    Word word;
    bool hasBegun = hasCarry;
    for (std::size_t i = 0; i < a.size(); ++i) {
      const Literal passes = net().differ(a[i], b[i]);
      // Below the first bit that both addends have there are no carries.
      if (!hasBegun && (gateOf(a[i]) == 0 || gateOf(b[i]) == 0) &&
          (a[i] == kFalse || b[i] == kFalse)) {
        word.push_back(passes);
        continue;
      }
      hasBegun = true;
      net().addRoot(passes);
      if (gateOf(b[i]) != 0 || gateOf(a[i]) == 0) net().addRoot(a[i]);
      word.push_back(net().input());
    }
    word.resize(static_cast<std::size_t>(node.width), kFalse);
    return word;
  }

  Literal combined(Op op, Literal a, Literal b) {
    return op == Op::kAnd  ? net().both(a, b)
           : op == Op::kOr ? net().either(a, b)
                           : net().differ(a, b);
  }
  // In groups of what a table takes, in pairs inside them.
  Literal reduced(Op op, const Word& word) {
    constexpr std::size_t kGroup = 6;
    Word groups;
    for (std::size_t i = 0; i < word.size(); i += kGroup)
      groups.push_back(paired(
          op, Word(word.begin() + static_cast<std::ptrdiff_t>(i),
                   word.begin() + static_cast<std::ptrdiff_t>(std::min(i + kGroup, word.size())))));
    return groups.size() == 1 ? groups[0] : reduced(op, groups);
  }
  Literal paired(Op op, Word word) {
    while (word.size() > 1) {
      Word next;
      for (std::size_t i = 0; i + 1 < word.size(); i += 2)
        next.push_back(combined(op, word[i], word[i + 1]));
      if (word.size() % 2 != 0) next.push_back(word.back());
      word = std::move(next);
    }
    return word[0];
  }
  Word chosen(Literal condition, const Word& ifOne, const Word& ifZero) {
    Word word;
    for (std::size_t i = 0; i < ifOne.size(); ++i)
      word.push_back(net().choice(condition, ifOne[i], ifZero[i]));
    return word;
  }
  // The choice that the low `bits` of an index name; past the end the last one.
  Word picked(const Word& index, int bits, std::span<const Word> choices) {
    if (choices.size() == 1 || bits == 0) return choices[0];
    const std::size_t half = std::size_t{1} << (bits - 1);
    if (choices.size() <= half) {
      const Word low = picked(index, bits - 1, choices);
      return chosen(index[static_cast<std::size_t>(bits - 1)], choices.back(), low);
    }
    return chosen(index[static_cast<std::size_t>(bits - 1)],
                  picked(index, bits - 1, choices.subspan(half)),
                  picked(index, bits - 1, choices.first(half)));
  }
  // Cases of an index, the last one for all others. Tools make a shifter of three and more that
  // differ; else each has a line that says that it is the one, equal ones together.
  Word cases(NodeId id) {
    constexpr std::size_t kFewestOfShifter = 3;
    const auto operands = graph.operands(id);
    const Word index = operand(id, 0);
    struct Case {
      Word word;
      std::vector<std::size_t> values;
    };
    std::vector<Case> distinct;
    std::vector<Word> choices;
    for (std::size_t i = 1; i < operands.size(); ++i) {
      choices.push_back(operand(id, i));
      if (operands[i] == operands.back()) continue;
      const auto same = std::ranges::find(distinct, choices.back(), &Case::word);
      if (same == distinct.end())
        distinct.push_back({choices.back(), {i - 1}});
      else
        same->values.push_back(i - 1);
    }
    const auto alone =
        std::ranges::count_if(distinct, [](const Case& each) { return each.values.size() == 1; });
    if (static_cast<std::size_t>(alone) >= kFewestOfShifter)
      return picked(index, static_cast<int>(index.size()), choices);
    Word word(choices.back().size(), kFalse), lines;
    for (const Case& each : distinct) {
      Word ways;
      for (const std::size_t value : each.values) {
        Word same;
        for (std::size_t bit = 0; bit < index.size(); ++bit)
          same.push_back((value >> bit & 1) != 0 ? index[bit] : inverse(index[bit]));
        ways.push_back(reduced(Op::kAnd, same));
      }
      lines.push_back(reduced(Op::kOr, ways));
      for (std::size_t bit = 0; bit < word.size(); ++bit)
        word[bit] = net().either(word[bit], net().both(lines.back(), each.word[bit]));
    }
    return lines.empty() ? choices.back() : chosen(reduced(Op::kOr, lines), word, choices.back());
  }

  // a < b: groups of bits from the top, of which each says whether it decides and how.
  Literal less(const Word& a, const Word& b, bool isSigned) {
    constexpr int kInputs = 6;
    constexpr std::size_t kFewestGroups = 3;
    struct Group {
      Literal isEqual, isLess;
    };
    std::vector<Group> groups;
    for (std::size_t done = 0; done < a.size();) {
      Group group{kTrue, kFalse};
      for (int left = kInputs; done < a.size(); ++done) {
        const std::size_t at = a.size() - 1 - done;
        // Tools take a whole side for constant when a bit of it is.
        const auto isConstant = [](Literal x) { return gateOf(x) == 0; };
        const auto end = static_cast<std::ptrdiff_t>(at) + 1;
        left -= (std::none_of(a.begin(), a.begin() + end, isConstant) ? 1 : 0) +
                (std::none_of(b.begin(), b.begin() + end, isConstant) ? 1 : 0);
        if (left < 0) break;
        const bool isSign = isSigned && done == 0;
        const Literal x = isSign ? b[at] : a[at], y = isSign ? a[at] : b[at];
        group.isLess =
            net().either(group.isLess, net().both(group.isEqual, net().both(inverse(x), y)));
        group.isEqual = net().both(group.isEqual, inverse(net().differ(x, y)));
      }
      groups.push_back(group);
    }
    if (groups.size() >= kFewestGroups) {
      for (const Group& group : groups) {
        net().addRoot(group.isEqual);
        net().addRoot(group.isLess);
      }
      return net().input();
    }
    Literal isLess = kFalse;
    for (std::size_t i = groups.size(); i-- > 0;)
      isLess = net().either(groups[i].isLess, net().both(groups[i].isEqual, isLess));
    return isLess;
  }

  const Graph& graph;
  const Device& device;
  struct Clear {
    Literal data, when;
  };

  const std::span<const int> cycles;
  const std::span<const NodeId> lateClears;
  const std::vector<NodeId> readers;  // the only one, seen through wiring; none where several read
  const std::vector<int> fans;
  const std::vector<std::vector<bool>> isRead;
  std::vector<Word> words;
  std::unordered_map<Literal, Clear> clears;  // by what a table would compute
  std::map<Literal, Literal> registers;
  LogicBetweenRegisters result;
};

}  // namespace

std::optional<LogicBetweenRegisters> logicBetweenRegisters(const Graph& graph, const Device& device,
                                                           std::span<const int> cycles,
                                                           std::span<const NodeId> lateClears,
                                                           long mostBits) {
  long bits = 0;
  for (std::uint32_t i = 0; i < graph.size(); ++i) bits += graph.node({i}).width;
  if (bits > mostBits) return std::nullopt;
  return Builder(graph, device, cycles, lateClears).build();
}

}  // namespace device
