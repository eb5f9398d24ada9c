#pragma once

#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/graph/graph.h"

namespace graph {

// One addend of a heap: `bits`, read as an unsigned number, times 2^shift.
struct HeapTerm {
  Signal bits;
  int shift = 0;
};

// Makes the nodes of one graph: checks widths, folds constants, shares equal nodes. What it returns
// may be any earlier signal with the same bits. Widths that do not fit are our own mistake and end
// the run. Signals of width 0 are allowed in concat() and as heap terms, where they vanish.
class Builder {
 public:
  explicit Builder(Graph& graph) : graph(graph) {}
  Builder(const Builder&) = delete;

  // A control port (valid, channel) keeps its reset where data registers lose it.
  Signal input(const std::string& name, int width, bool isControl = false);
  void output(const std::string& name, Signal signal);

  // A register that is `initial` at first. What it takes next is told once the loop through it is
  // built, by one call of setNext() with a signal of the same width.
  Signal state(int width, const util::MPZ& initial = 0);
  void setNext(Signal state, Signal next);

  // Wiring.
  Signal literal(const util::MPZ& value, int width);  // the low `width` bits of `value`
  Signal zeros(int width) { return literal(0, width); }
  Signal ones(int width) { return literal(-1, width); }
  Signal bit(bool value) { return literal(value ? 1 : 0, 1); }
  Signal slice(Signal x, int low, int width);  // 0 <= low, low + width <= x.width
  Signal bitOf(Signal x, int position) { return slice(x, position, 1); }
  Signal topBit(Signal x) { return bitOf(x, x.width - 1); }
  Signal concat(std::span<const Signal> topFirst);
  Signal concat(std::initializer_list<Signal> topFirst) {
    return concat(std::span(topFirst.begin(), topFirst.size()));
  }
  Signal replicate(Signal x, int count);
  // Extends (or, for a smaller width, cuts) at the top.
  Signal zeroExtend(Signal x, int width);
  Signal signExtend(Signal x, int width);
  // Appends `count` zeros below.
  Signal shiftedUp(Signal x, int count) { return concat({x, zeros(count)}); }

  // Logic, bit by bit on equal widths.
  Signal bitNot(Signal x);
  Signal bitAnd(Signal a, Signal b);
  Signal bitOr(Signal a, Signal b);
  Signal bitXor(Signal a, Signal b);
  Signal select(Signal condition, Signal ifOne, Signal ifZero);
  // Choice number `index`; an index past the end picks the last choice.
  Signal pick(Signal index, std::span<const Signal> choices);
  Signal reduceAnd(Signal x);
  Signal reduceOr(Signal x);
  Signal reduceXor(Signal x);
  // The function of at most 6 bits whose value for x stands in bits [x * width, (x + 1) * width).
  Signal lut(Signal x, const util::MPZ& contents, int width);
  // Row `index` of a table, 2^index.width rows of `width` bits, index.width at most kWidestIndex.
  // Bits of the result that are constants, bits of the index, each other or functions of at most
  // six of its bits become that; the rest is a table of the bits that it depends on.
  Signal table(Signal index, std::span<const util::MPZ> rows, int width);
  // For passes: the same out of a memory block. Only an index that is a literal folds.
  Signal memory(Signal index, std::span<const util::MPZ> rows, int width);
  static constexpr int kWidestIndex = 20;

  // Arithmetic. Addends have the width of the sum; a carry out is had by extending them first.
  Signal add(Signal a, Signal b) { return addCarry(a, b, bit(false)); }
  Signal addCarry(Signal a, Signal b, Signal carryIn);
  Signal addThree(Signal a, Signal b, Signal c, Signal carryIn);
  Signal subtract(Signal a, Signal b) { return addCarry(a, bitNot(b), bit(true)); }
  // subtractIf ? a - b : a + b, one carry chain.
  Signal addOrSubtract(Signal a, Signal b, Signal subtractIf);
  Signal equal(Signal a, Signal b);
  Signal less(Signal a, Signal b);
  Signal lessSigned(Signal a, Signal b);
  Signal isZero(Signal x) { return bitNot(reduceOr(x)); }
  Signal multiply(Signal a, Signal b);
  Signal multiplySigned(Signal a, Signal b);
  // The sum of `terms` modulo 2^width.
  Signal heap(std::span<const HeapTerm> terms, int width);

  // Node `id` of another graph with operands of this one, as it is: nothing folds. A state is open
  // like every new one; ports have a function of their own.
  Signal copy(const Graph& other, NodeId id, std::span<const Signal> operands);

  // Gives a signal a name that becomes a variable's name in the HDL; the first name stays.
  Signal name(Signal x, const std::string& text);

  // Opens a scope for as long as the returned object lives.
  class [[nodiscard]] ScopeGuard {
   public:
    ScopeGuard(Builder& builder, const std::string& name);
    ~ScopeGuard();
    ScopeGuard(const ScopeGuard&) = delete;

   private:
    Builder& builder;
    std::uint32_t outer;
  };
  ScopeGuard scope(const std::string& name) { return ScopeGuard(*this, name); }
  // For passes: nodes made from now on belong to `scope` of a graph with the same scopes.
  void enterScope(std::uint32_t scope) { currentScope = scope; }
  void copyScopes(const Graph& other) { graph.scopeRows = other.scopes(); }

  const Graph& built() const { return graph; }
  // The value of a literal; the signal must be one.
  bool isLiteral(Signal x) const { return graph.node(x.node).op == Op::kLiteral; }
  const util::MPZ& valueOf(Signal x) const { return graph.literal(graph.node(x.node)); }

 private:
  struct Key {
    Op op;
    int width;
    std::uint32_t aux;
    std::vector<std::uint32_t> words;  // operands, then the shifts of a heap
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    std::size_t operator()(const Key& key) const;
  };

  Signal make(Op op, int width, std::span<const Signal> operands, std::uint32_t aux = 0,
              std::span<const std::uint32_t> shifts = {});
  Signal make(Op op, int width, std::initializer_list<Signal> operands, std::uint32_t aux = 0) {
    return make(op, width, std::span(operands.begin(), operands.size()), aux);
  }
  std::uint32_t literalIndex(const util::MPZ& value);
  std::uint32_t tableIndex(std::span<const util::MPZ> rows);
  Signal bitsAt(Signal x, std::uint32_t positions);
  bool isZeroLiteral(Signal x) const { return isLiteral(x) && valueOf(x).isZero(); }
  bool isOnesLiteral(Signal x) const;
  int zerosBelow(Signal x) const;  // bits below the lowest part of a join that is no constant
  Signal withoutLiterals(Signal x, bool neutral);
  Signal outerLiteral(Signal x, bool isTop) const;
  Signal lessAboveLiteral(Signal a, Signal b, Signal (Builder::*order)(Signal, Signal));
  bool areComplements(Signal a, Signal b) const;
  Op opOf(Signal x) const;
  Signal operandOf(Signal x, std::size_t index) const;
  Signal maskBit(Signal x) const;
  bool isPartOf(Signal x, Signal whole) const;
  bool bitsImply(Signal x, Signal bit, int depth) const;
  bool absenceImplies(Signal x, Signal bit, int depth) const;
  bool bitImpliesAll(Signal bit, Signal x, int depth) const;
  bool isImpliedMask(Signal mask, Signal x) const;

  Graph& graph;
  std::uint32_t currentScope = 0;
  std::unordered_map<Key, NodeId, KeyHash> made;
  std::unordered_map<std::string, std::uint32_t> literalByText;
  std::unordered_map<std::size_t, std::vector<std::uint32_t>> tablesByHash;
};

}  // namespace graph
