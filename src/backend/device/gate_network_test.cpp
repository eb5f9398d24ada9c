#include "backend/device/gate_network.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <functional>
#include <random>

#include "backend/device/cover.h"
#include "backend/graph/builder.h"

namespace device {
namespace {

using graph::Builder;
using graph::Graph;
using graph::NodeId;
using graph::Signal;

double tablesOf(const std::function<std::vector<Signal>(Builder&)>& build,
                const std::vector<std::string>& lateOutputs = {}) {
  Graph graph;
  Builder b(graph);
  int number = 0;
  for (const Signal& output : build(b)) b.output(fmt::format("q{}", number++), output);
  std::vector<int> cycles(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    for (const std::string& late : lateOutputs) cycles[i] += graph.nameOf({i}) == late;
  const Device* device = deviceFactory.GetDevice("TarnV", "", "fast", "AUTO", "");
  return Cover::costBetweenRegisters(graph, *device, cycles).luts;
}

// A choice of a constant is the clear of the register behind, unless it comes too late for that;
// what the condition implies anyway is no choice.
TEST(GateNetwork, ClearsOfRegistersTakeNoTables) {
  Graph graph;
  Builder b(graph);
  const Signal c = b.input("c", 1), x = b.input("x", 8), both = b.bitAnd(x, b.replicate(c, 8));
  const Signal masked = b.select(c, x, b.zeros(8)), again = b.select(c, both, b.zeros(8));
  b.output("r", b.name(b.reduceOr(masked), "r"));
  b.output("s", b.name(b.reduceOr(again), "s"));
  std::vector<int> cycles(graph.size());
  for (std::uint32_t i = 0; i < graph.size(); ++i)
    cycles[i] = graph.nameOf({i}) == "r" || graph.nameOf({i}) == "s";
  const Device* device = deviceFactory.GetDevice("TarnV", "", "fast", "AUTO", "");
  const auto tables = [&](std::span<const NodeId> late) {
    return Cover::costBetweenRegisters(graph, *device, cycles, late).luts;
  };
  const std::array late{masked.node, again.node};
  EXPECT_EQ(tables({}), 1);
  EXPECT_EQ(tables(late), 9);
}

TEST(GateNetwork, FindsEqualGatesAndConstants) {
  GateNetwork net;
  const Literal a = net.input(), b = net.input(), c = net.input();
  EXPECT_EQ(net.both(a, b), net.both(b, a));
  EXPECT_EQ(net.both(a, inverse(a)), kFalse);
  EXPECT_EQ(net.both(kTrue, a), a);
  EXPECT_EQ(net.either(a, net.both(a, b)), a);
  EXPECT_EQ(net.both(net.both(a, b), inverse(a)), kFalse);
  EXPECT_EQ(net.both(a, inverse(net.both(a, b))), net.both(a, inverse(b)));
  EXPECT_EQ(net.differ(a, b), net.differ(b, a));
  EXPECT_EQ(net.differ(a, inverse(b)), inverse(net.differ(a, b)));
  EXPECT_EQ(net.choice(c, a, a), a);
  EXPECT_EQ(net.choice(c, kTrue, kFalse), c);
}

// What each comes to was checked in synthesis.
TEST(GateNetwork, CountsTablesAsSynthesisDoes) {
  const auto word = [](Builder& b, const char* name, int width) { return b.input(name, width); };
  EXPECT_EQ(
      tablesOf([&](Builder& b) -> std::vector<Signal> { return {b.bitNot(word(b, "a", 8))}; }), 0);
  EXPECT_EQ(tablesOf([&](Builder& b) -> std::vector<Signal> {
              return {b.reduceXor(word(b, "a", 6)), b.reduceOr(word(b, "c", 36))};
            }),
            8);
  // Four words of eight bits, one out of four: a table a bit; the same bits twice count once.
  EXPECT_EQ(tablesOf([&](Builder& b) -> std::vector<Signal> {
              const std::vector<Signal> choices = {word(b, "a", 8), word(b, "c", 8),
                                                   word(b, "d", 8), word(b, "e", 8)};
              const Signal one = b.pick(word(b, "s", 2), choices);
              return {one, b.bitNot(b.bitNot(one)), b.replicate(b.slice(one, 0, 1), 9)};
            }),
            8);
  // A chain takes the logic before it in, but for an addend that it needs itself.
  const auto sum = [&](bool subtracts) {
    return [=](Builder& b) -> std::vector<Signal> {
      const Signal x = b.input("a", 16), y = b.input("c", 16), m = b.input("m", 1);
      const Signal masked = b.bitAnd(y, b.replicate(m, 16));
      return {subtracts ? b.addCarry(x, b.bitNot(masked), b.bit(true))
                        : b.addCarry(x, masked, b.bit(false))};
    };
  };
  EXPECT_EQ(tablesOf(sum(true)), 16);
  EXPECT_EQ(tablesOf(sum(false)), 32);
  // Of two addends the chain itself takes that of fewer pieces, with a carry as well, as far as
  // bits are read.
  const auto piecewise = [](int readBits) {
    return [=](Builder& b) -> std::vector<Signal> {
      const Signal x = b.input("a", 16), y = b.input("c", 8), m = b.input("m", 2);
      const auto part = [&](int i) { return b.bitAnd(y, b.replicate(b.bitOf(m, i), 8)); };
      const Signal all = b.addCarry(x, b.concat({part(1), part(0)}), b.input("carry", 1));
      return {b.slice(all, 0, readBits)};
    };
  };
  EXPECT_EQ(tablesOf(piecewise(16)), 16);
  EXPECT_EQ(tablesOf(piecewise(5)), 10);
  EXPECT_EQ(tablesOf(piecewise(9)), 9);
  // A wide conjunction fills one table of four; full adders stand before a chain of three addends;
  // a block takes the sum behind its product.
  EXPECT_EQ(
      tablesOf([&](Builder& b) -> std::vector<Signal> { return {b.reduceAnd(word(b, "a", 8))}; }),
      1);
  EXPECT_EQ(
      tablesOf([&](Builder& b) -> std::vector<Signal> {
        return {b.addThree(word(b, "a", 16), word(b, "c", 16), word(b, "d", 16), b.bit(false))};
      }),
      31);
  EXPECT_EQ(tablesOf([&](Builder& b) -> std::vector<Signal> {
              const Signal product = b.multiply(word(b, "a", 16), word(b, "c", 16));
              return {b.add(product, word(b, "d", 32))};
            }),
            0);
  // Three bits of either side a group, with two tables each.
  EXPECT_EQ(tablesOf([&](Builder& b) -> std::vector<Signal> {
              return {b.less(word(b, "a", 30), word(b, "c", 30))};
            }),
            20);
}

// All rows of eight inputs at once.
using Rows = std::bitset<256>;
std::vector<Rows> rowsOf(const GateNetwork& net) {
  std::vector<Rows> rows;
  int inputs = 0;
  for (const GateNetwork::Gate& gate : net.gates()) {
    const auto operand = [&](Literal x) { return x % 2 == 0 ? rows[gateOf(x)] : ~rows[gateOf(x)]; };
    Rows own;
    if (!gate.isInput)
      own = operand(gate.a) & operand(gate.b);
    else if (!rows.empty())
      for (std::size_t row = 0; row < own.size(); ++row) own[row] = row >> inputs & 1;
    if (gate.isInput && !rows.empty()) ++inputs;
    rows.push_back(own);
  }
  std::vector<Rows> roots;
  for (const Literal x : net.roots())
    roots.push_back(x % 2 == 0 ? rows[gateOf(x)] : ~rows[gateOf(x)]);
  return roots;
}

TEST(GateNetwork, IsEqualToItsSimplifiedForm) {
  std::mt19937 random(5);
  std::size_t before = 0, after = 0, choices = 0;
  for (int trial = 0; trial < 60; ++trial) {
    GateNetwork net;
    std::vector<Literal> made;
    for (int i = 0; i < 8; ++i) made.push_back(net.input());
    const auto any = [&] { return made[random() % made.size()] ^ (random() & 1); };
    for (int i = 0; i < 90; ++i)
      made.push_back(random() % 3 == 0 ? net.choice(any(), any(), any()) : net.both(any(), any()));
    for (int i = 0; i < 6; ++i) net.addRoot(made[made.size() - 1 - static_cast<std::size_t>(i)]);
    const GateNetwork simple = simplified(net);
    EXPECT_EQ(rowsOf(simple), rowsOf(net)) << trial;
    GateNetwork withChoices = simplifiedWithChoices(net);
    const auto count = static_cast<std::uint32_t>(withChoices.gates().size());
    for (std::uint32_t gate = 0; gate < count; ++gate)
      for (const Literal choice : withChoices.choicesOf(gate)) {
        withChoices.addRoot(2 * gate);
        withChoices.addRoot(choice);
        ++choices;
      }
    const std::vector<Rows> rows = rowsOf(withChoices);
    EXPECT_TRUE(std::ranges::equal(rowsOf(net), std::span(rows).first(net.roots().size())));
    for (std::size_t i = net.roots().size(); i < rows.size(); i += 2)
      EXPECT_EQ(rows[i], rows[i + 1]) << trial;
    before += net.gates().size();
    after += simple.gates().size();
  }
  EXPECT_LT(10 * after, 9 * before);
  EXPECT_GT(choices, 0U);

  // A majority takes four gates, and its two forms are the same; so are the cases of equal choices
  // and the selects that they come to.
  GateNetwork net;
  const Literal a = net.input(), b = net.input(), c = net.input();
  const Literal pairs = net.either(net.both(a, b), net.either(net.both(a, c), net.both(b, c)));
  net.addRoot(pairs);
  net.addRoot(net.choice(a, net.either(b, c), net.both(b, c)));
  const GateNetwork simple = simplified(net);
  EXPECT_EQ(simple.gates().size(), 1U + 3 + 4);
  EXPECT_EQ(simple.roots()[0], simple.roots()[1]);
  EXPECT_EQ(tablesOf([](Builder& builder) -> std::vector<Signal> {
              const Signal index = builder.input("s", 2), x = builder.input("x", 1),
                           y = builder.input("y", 1);
              const std::vector<Signal> choices = {x, y, y, x};
              return {builder.bitXor(builder.pick(index, choices),
                                     builder.select(builder.reduceXor(index), y, x))};
            }),
            0);
}

TEST(GateNetwork, KeepsWhatRegistersPartApart) {
  const auto parity = [](Builder& b) -> std::vector<Signal> {
    const Signal x = b.input("a", 4), y = b.input("c", 2);
    const Signal first = b.name(b.reduceXor(x), "first");
    return {b.name(b.bitXor(first, b.reduceXor(y)), "second")};
  };
  EXPECT_EQ(tablesOf(parity), 1);
  EXPECT_EQ(tablesOf(parity, {"second"}), 3);
}

}  // namespace
}  // namespace device
