#include "backend/functions/int_add.h"

#include <algorithm>

#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::HeapTerm;
using graph::Signal;
using util::MPZ;

namespace {

enum Number { kIsSigned, kChunkLength, kOperands };

void evaluateSum(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  const kiln::FixedPoint& out = fixedPoint(signature.out[0]);
  thread_local MPZ sum, addend;
  mpz_set_ui(sum.get(), 0);
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    readInteger(addend, inputs[i], fixedPoint(signature.in[i]));
    sum += addend;
  }
  wrapInto(sum, out);
  results.resize(1);
  writeInteger(results[0], sum, out, precisions[0], roundings[0]);
}

Signal extended(Builder& b, Signal x, int width, bool isSigned) {
  return isSigned ? b.signExtend(x, width) : b.zeroExtend(x, width);
}

// x + y modulo 2^width as a row of additions of `chunk` bits, each handing its carry to the next,
// so that a register may stand between any two.
Signal addInChunks(Builder& b, Signal x, Signal y, int chunk) {
  std::vector<Signal> topFirst;
  Signal carry = b.bit(false);
  for (int low = 0; low < x.width; low += chunk) {
    const int width = std::min(chunk, x.width - low);
    const bool isLast = low + width == x.width;
    const int reach = isLast ? width : width + 1;
    const Signal sum = b.addCarry(b.zeroExtend(b.slice(x, low, width), reach),
                                  b.zeroExtend(b.slice(y, low, width), reach), carry);
    topFirst.insert(topFirst.begin(), b.slice(sum, 0, width));
    if (!isLast) carry = b.topBit(sum);
  }
  return b.concat(topFirst);
}

// Operands as heap terms of the columns from `low` up. The sign bit of a signed operand is
// complemented, which adds its weight; `constant` takes the weight off again, so that no operand
// needs its sign in every column above.
std::vector<HeapTerm> unsignedTerms(Builder& b, std::span<const Signal> operands, int width,
                                    bool isSigned) {
  std::vector<HeapTerm> terms;
  MPZ constant;
  for (const Signal operand : operands) {
    if (!isSigned || operand.width >= width) {
      terms.push_back({operand, 0});
      continue;
    }
    const int top = operand.width - 1;
    terms.push_back({b.concat({b.bitNot(b.topBit(operand)), b.slice(operand, 0, top)}), 0});
    constant -= MPZ::powerOfTwo(static_cast<unsigned long>(top));
  }
  if (!constant.isZero()) terms.push_back({b.literal(constant, width), 0});
  return terms;
}

// The sum of many with each chunk of columns summed on its own; what the chunks carry out is then
// added in one chain cut at the same places.
Signal sumInChunks(Builder& b, std::span<const HeapTerm> terms, int width, int chunk) {
  const int carryBits = static_cast<int>(MPZ(terms.size()).bitLength());
  chunk = std::max(chunk, carryBits);
  std::vector<Signal> sums, carries;
  for (int low = 0; low < width; low += chunk) {
    const int columns = std::min(chunk, width - low);
    std::vector<HeapTerm> inside;
    for (const HeapTerm& term : terms) {
      const int top = std::min(term.bits.width, low + columns);
      if (low < top) inside.push_back({b.slice(term.bits, low, top - low), 0});
    }
    const Signal sum = b.heap(inside, columns + carryBits);
    sums.insert(sums.begin(), b.slice(sum, 0, columns));
    carries.insert(carries.begin(), b.zeroExtend(b.slice(sum, columns, carryBits), chunk));
  }
  carries.push_back(b.zeros(chunk));
  return addInChunks(b, b.concat(sums), b.zeroExtend(b.concat(carries), width), chunk);
}

std::vector<Signal> buildSum(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const Variant& variant = request.signature.variant;
  const bool isSigned = fixedPoint(request.signature.in[0]).sign();
  const int width = request.signature.out[0].width();
  const int chunk = static_cast<int>(std::clamp<std::int64_t>(variant[kChunkLength], 0, width));
  if (inputs.size() == 2) {
    const Signal x = extended(b, inputs[0], width, isSigned);
    const Signal y = extended(b, inputs[1], width, isSigned);
    return {chunk > 0 ? addInChunks(b, x, y, chunk) : b.add(x, y)};
  }
  const std::vector<HeapTerm> terms = unsignedTerms(b, inputs, width, isSigned);
  return {chunk > 0 ? sumInChunks(b, terms, width, chunk) : b.heap(terms, width)};
}

std::optional<std::string> refuseSum(const Request& request) {
  const Signature& signature = request.signature;
  const long asked = static_cast<long>(signature.variant[kOperands]);
  const long ports = static_cast<long>(signature.in.size());
  if (auto reason = outOfRange("number of operands", asked != 0 ? asked : ports, 2, 256))
    return reason;
  return inputWidthOutOfRange(signature, 4096);
}

constexpr UnitRow kRows[] = {{"CLongAdd", evaluateSum, buildSum, refuseSum}};

}  // namespace

std::span<const UnitRow> longAddUnits() { return kRows; }

}  // namespace functions
