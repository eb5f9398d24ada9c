#include "backend/functions/float_multifunction.h"

#include <fmt/format.h>

#include <array>

#include "backend/arithmetic/carry_logic.h"
#include "backend/arithmetic/float_order.h"
#include "backend/functions/float_order.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using arithmetic::Comparison;
using arithmetic::Unpacked;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

constexpr int kSelectBits = 2, kCodeBits = 4;
enum Code {
  kMin,
  kMax,
  kMinMagnitude,
  kMaxMagnitude,
  kLessEqual,
  kLess,
  kEqual,
  kGreaterEqual,
  kGreater,
  kNotEqual,
  kSaturate,
  kMultiplex
};
bool isTruthCode(unsigned code) { return kLessEqual <= code && code <= kNotEqual; }
bool isZeroCode(unsigned code) { return code > kMultiplex; }

Comparison comparisonOf(unsigned code) {
  constexpr Comparison kComparisons[] = {Comparison::kLessEqual, Comparison::kLess,
                                         Comparison::kEqual,     Comparison::kGreaterEqual,
                                         Comparison::kGreater,   Comparison::kNotEqual};
  return kComparisons[code - kLessEqual];
}

mpfr_srcptr selected(unsigned code, unsigned select, mpfr_srcptr x, mpfr_srcptr y, mpfr_srcptr z) {
  switch (code) {
    case kMin:
      return extreme(Extreme::kLeast, x, y);
    case kMax:
      return extreme(Extreme::kGreatest, x, y);
    case kMinMagnitude:
      return extreme(Extreme::kLeastMagnitude, x, y);
    case kMaxMagnitude:
      return extreme(Extreme::kGreatestMagnitude, x, y);
    case kSaturate:
      return extreme(Extreme::kLeast, extreme(Extreme::kGreatest, x, y), z);
    default:
      return select == 0 ? x : select == 1 ? y : z;
  }
}

void evaluate(const Signature& signature, std::vector<NumValue>& results,
              const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
              const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(2);
  for (NumValue& result : results) {
    result.type = NumType::kValue;
    result.raw = false;
  }
  const unsigned select = readSelect(inputs[3], kSelectBits);
  const unsigned code = readSelect(inputs[4], kCodeBits);
  {
    const FullExponentRange range;
    thread_local std::array<Real, 3> operands;
    for (std::size_t i = 0; i < operands.size(); ++i)
      readFloat(operands[i], inputs[i], inputFloat(signature, i), subnormals);
    const auto& [x, y, z] = operands;
    const bool truth = isTruthCode(code) && holds(comparisonOf(code), x.get(), y.get());
    mpfr_ptr r = results[0].real.prepare(precisions[0]);
    if (isTruthCode(code) || isZeroCode(code))
      mpfr_set_ui(r, truth ? 1 : 0, MPFR_RNDN);
    else
      mpfr_set(r, selected(code, select, x.get(), y.get(), z.get()), roundings[0]);
    mpfr_set_ui(results[1].real.prepare(precisions[1]), truth ? 1 : 0, MPFR_RNDN);
  }
  fitToCallersRange(results, roundings);
}

// The truth of the comparison with code 4 to 9.
Signal truthOf(Builder& b, const Unpacked& x, const Unpacked& y, Signal code) {
  // By the low three bits; 2 and 3 are no comparisons.
  std::array<Signal, 8> truths;
  for (unsigned i = kLessEqual; i <= kNotEqual; ++i)
    truths[i % 8] = holds(b, comparisonOf(i), x, y);
  truths[2] = truths[0], truths[3] = truths[1];
  return b.pick(b.slice(code, 0, 3), truths);
}

std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const auto scope = b.scope("multifunction");
  const Signal select = inputs[3], code = inputs[4];
  const auto operand = [&](std::size_t port, arithmetic::ZeroFields zeros) {
    const auto format = inputFormat(request, port);
    Unpacked number = arithmetic::unpack(b, inputs[port], format, zeros);
    // All bits of the result wait for it.
    if (!format.fpLib) number.isNan = arithmetic::isNanByCarry(b, inputs[port], format);
    return number;
  };
  constexpr auto kCleared = arithmetic::ZeroFields::kCleared;
  const Unpacked x = operand(0, kCleared), y = operand(1, kCleared),
                 z = operand(2, arithmetic::zeroFieldsForOrder(inputFormat(request, 2)));
  const auto codeIn = [&](auto accepts) {
    MPZ contents;
    for (unsigned i = 0; i < 1u << kCodeBits; ++i)
      if (accepts(i)) contents += MPZ::powerOfTwo(i);
    return b.lut(code, contents, 1);
  };
  const Signal isTruth = codeIn(isTruthCode), isZero = codeIn(isZeroCode);
  const Signal saturates = codeIn([](unsigned i) { return i == kSaturate; });
  const Signal multiplexes = codeIn([](unsigned i) { return i == kMultiplex; });

  const Signal xFirst = precedes(b, x, y), xSmaller = precedesInMagnitude(b, x, y);
  // Each of one table of the code, so that little stands before what chooses all bits.
  const Signal isByMagnitude = codeIn([](unsigned i) { return i != kSaturate && (i & 2) != 0; });
  const Signal isGreatest = codeIn([](unsigned i) { return i == kSaturate || (i & 1) != 0; });
  const Signal extremeIsY =
      extremeIsSecond(b, x, y, b.select(isByMagnitude, xSmaller, xFirst), isGreatest);
  const Signal takesY = b.select(multiplexes, b.bitOf(select, 0), extremeIsY);
  const Unpacked either = choose(b, takesY, y, x);

  const Signal limits = extremeIsSecond(b, either, z, precedes(b, either, z), b.bit(false));
  const Signal takesZ =
      b.bitOr(b.bitAnd(saturates, limits), b.bitAnd(multiplexes, b.bitOf(select, 1)));
  const auto format = outputFormat(request, 0);
  const Signal value =
      arithmetic::packExact(b, choose(b, takesZ, z, either), format, request.quietNaN);

  const int width = format.width();
  const Signal truth = b.bitAnd(isTruth, truthOf(b, x, y, code));
  const Signal one = b.literal(MPZ(format.bias()) << format.fractionBits, width);
  const Signal isValue = b.bitNot(b.bitOr(isTruth, isZero));
  return {b.bitOr(b.bitAnd(value, b.replicate(isValue, width)),
                  b.bitAnd(one, b.replicate(truth, width))),
          truth};
}

std::optional<std::string> refuse(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != 5 || out.size() != 2)
    return fmt::format("{} inputs and {} outputs are not the 5 and 2 of this unit", in.size(),
                       out.size());
  for (const kiln::Type& type : {in[0], in[1], in[2], out[0]})
    if (!type.as_floating_point() || type.as_floating_point()->is_fp_lib)
      return "its operands and its result are IEEE-style";
  if (!isUnsignedOf(in[3], kSelectBits) || !isUnsignedOf(in[4], kCodeBits) ||
      !isUnsignedOf(out[1], 1))
    return "its select, code and truth are not ports of 2, 4 and 1 bits";
  if (auto reason = refuseFormats(request)) return reason;
  return refuseMixedWidths(request);
}

constexpr UnitRow kRows[] = {{"DMFloatFusedMultiFunction", evaluate, decompose, refuse}};

}  // namespace

std::span<const UnitRow> floatMultiFunctionUnits() { return kRows; }

}  // namespace functions
