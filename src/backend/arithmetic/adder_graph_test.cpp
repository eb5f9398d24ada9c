#include "backend/arithmetic/adder_graph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>

namespace arithmetic {
namespace {

using util::MPZ;

void expectExact(const MPZ& constant) {
  const AdderGraph graph = shiftAndAdd(constant);
  EXPECT_EQ(graph.constant(), constant) << constant.toText(10);
  for (std::size_t k = 0; k < graph.nodes.size(); ++k)
    for (const auto& term : {graph.nodes[k].first, graph.nodes[k].second}) {
      EXPECT_LE(term.node, static_cast<int>(k)) << "earlier nodes only";
      EXPECT_GE(term.shift, 0);
    }
  for (const auto& multiple : graph.multiples()) EXPECT_GT(multiple.sign(), 0);
  const std::size_t digits = canonicalDigits(constant).size();
  EXPECT_LE(graph.adders() + 1, static_cast<int>(std::max<std::size_t>(digits, 1)));
}

TEST(AdderGraph, GivesTheConstantWithNoMoreAdditionsThanItsSignedDigits) {
  for (int constant = -1100; constant <= 5000; ++constant) expectExact(constant);
  for (const char* text : {"7fffffff", "deadbeef", "1921fb54442d18", "3243f6a8885a3",
                           "15bf0a8b145769", "fffffffffffff1", "123456789abcdef0123456789abcdef",
                           "ffffffff00000000ffffffffffffffffffffffffffffffff00000001"})
    expectExact(*MPZ::fromText(text, 16));
}

TEST(AdderGraph, CanonicalDigitsHaveNoNeighboursAndTheFewestDigits) {
  for (int constant = 1; constant < 3000; ++constant) {
    const auto digits = canonicalDigits(constant);
    int value = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) {
      value += (digits[i].negative ? -1 : 1) << digits[i].shift;
      if (i > 0) {
        EXPECT_GE(digits[i].shift, digits[i - 1].shift + 2);
      }
    }
    EXPECT_EQ(value, constant);
    // 3c xor c marks the digits of the form.
    EXPECT_EQ(static_cast<int>(digits.size()),
              std::popcount(static_cast<unsigned>((3 * constant) ^ constant)));
  }
}

// The fewest additions for every odd constant of 12 bits, by a search of its own over sets of
// multiples: one, two and three additions must be found wherever they suffice.
TEST(AdderGraph, FindsEveryGraphOfThreeAdditions) {
  constexpr int kBits = 12, kLimit = 1 << (kBits + 2);
  const auto next = [&](const std::vector<int>& ready) {
    std::vector<int> values;
    for (const int u : ready)
      for (const int v : ready)
        for (int shift = 0; u << shift < 2 * kLimit; ++shift)
          for (int value : {(u << shift) + v, (u << shift) - v, v - (u << shift)}) {
            if (value <= 0 || value >= kLimit) continue;
            values.push_back(value >> std::countr_zero(static_cast<unsigned>(value)));
          }
    std::ranges::sort(values);
    values.erase(std::unique(values.begin(), values.end()), values.end());
    return values;
  };
  std::map<int, int> fewest{{1, 0}};
  for (const int a : next({1})) fewest.try_emplace(a, 1);
  for (const int a : next({1}))
    for (const int c : next({1, a})) fewest.try_emplace(c, 2);
  for (int constant = 3; constant < 1 << kBits; constant += 2) {
    const int adders = shiftAndAdd(constant).adders();
    const auto known = fewest.find(constant);
    EXPECT_GE(adders, known == fewest.end() ? 3 : known->second) << constant;
    if (known != fewest.end()) {
      EXPECT_EQ(adders, known->second) << constant;
    }
    EXPECT_LE(adders, 4) << constant;  // four suffice for every constant of 12 bits
  }
}

TEST(AdderGraph, SharesDigitsOfLongConstants) {
  const auto adders = [](const char* text) {
    return shiftAndAdd(*MPZ::fromText(text, 16)).adders();
  };
  EXPECT_LE(adders("1921fb54442d18"), 11);  // pi in double precision
  EXPECT_LE(adders("15bf0a8b145769"), 11);  // e
  EXPECT_LE(adders("162e42fefa39ef"), 11);  // ln 2
}

}  // namespace
}  // namespace arithmetic
