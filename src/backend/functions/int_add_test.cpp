#include "backend/functions/int_add.h"

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

const UnitRow& row() { return longAddUnits()[0]; }

struct AddCase {
  int width, operands;
  bool isSigned;
  int growth;
  int chunk;
};

Signature signatureOf(const AddCase& c) {
  return {.in = std::vector<kiln::Type>(c.operands, integers(c.width, c.isSigned)),
          .out = {integers(c.width + c.growth, c.isSigned)},
          .variant = {{c.isSigned, c.chunk, c.operands}}};
}

IntegerUnit::Function sumModulo(const AddCase& c) {
  return [c](const std::vector<MPZ>& values) {
    MPZ sum;
    for (const MPZ& value : values) sum += value;
    const int width = c.width + c.growth;
    return c.isSigned ? sum.asSigned(width) : sum.lowBits(width);
  };
}

TEST(LongAdd, IsExactForAllInputsOfSmallWidths) {
  constexpr int kSmall[][3] = {{5, 2, 0}, {5, 2, 1}, {1, 2, 0}, {1, 2, 1}, {3, 3, 0},
                               {3, 3, 2}, {2, 5, 3}, {1, 9, 4}, {1, 10, 0}};
  for (const bool isSigned : {false, true})
    for (const int chunk : {0, 1, 2, 3})
      for (const auto& [width, operands, growth] : kSmall) {
        const AddCase c{width, operands, isSigned, growth, chunk};
        SCOPED_TRACE(testing::Message() << width << " bits, " << operands << " operands, signed "
                                        << isSigned << ", chunk " << chunk);
        IntegerUnit(row(), signatureOf(c)).checkAll(sumModulo(c));
      }
}

TEST(LongAdd, IsExactForCornersAndDrawsOfWideOperands) {
  for (const bool isSigned : {false, true})
    for (const int width : {33, 64, 65, 128, 256, 521})
      for (const AddCase& c : {AddCase{width, 2, isSigned, 0, 0},
                               {width, 2, isSigned, 1, 16},
                               {width, 7, isSigned, 3, 0},
                               {width, 7, isSigned, 0, 24},
                               {width, 37, isSigned, 6, 2}}) {
        SCOPED_TRACE(testing::Message() << width << " bits, " << c.operands << " operands, signed "
                                        << isSigned << ", chunk " << c.chunk);
        IntegerUnit(row(), signatureOf(c)).checkCornersAndDraws(sumModulo(c), 20);
      }
}

TEST(LongAdd, BuildsTheLimitsOfItsRange) {
  for (const AddCase& c : {AddCase{4096, 256, true, 8, 0}, AddCase{4096, 2, false, 0, 32}})
    IntegerUnit(row(), signatureOf(c)).checkCornersAndDraws(sumModulo(c), 2);
}

// Two operands of 64 bits in chunks of 16: four additions, none wider than a chunk and its carry.
TEST(LongAdd, CutsTheCarryChainWhereAsked) {
  const IntegerUnit unit(row(), signatureOf({64, 2, false, 0, 16}));
  int additions = 0;
  for (const graph::Node& node : unit.graph().nodes()) {
    if (node.op != graph::Op::kAdd) continue;
    ++additions;
    EXPECT_LE(node.width, 17);
  }
  EXPECT_EQ(additions, 4);
}

}  // namespace
}  // namespace functions
