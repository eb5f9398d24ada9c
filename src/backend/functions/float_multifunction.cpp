#include "backend/functions/float_multifunction.h"

#include <fmt/format.h>

#include <array>

#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

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

// x before y in the order of numbers with -0 before +0; neither is a NaN.
bool precedes(mpfr_srcptr x, mpfr_srcptr y) {
  if (mpfr_zero_p(x) && mpfr_zero_p(y)) return mpfr_signbit(x) && !mpfr_signbit(y);
  return mpfr_less_p(x, y) != 0;
}
bool precedesInMagnitude(mpfr_srcptr x, mpfr_srcptr y) {
  const int order = mpfr_cmpabs(x, y);
  return order != 0 ? order < 0 : precedes(x, y);
}

using Precedes = bool (*)(mpfr_srcptr, mpfr_srcptr);
// The operand that comes first, or last; one that is not a NaN where there is one.
mpfr_srcptr least(Precedes before, mpfr_srcptr x, mpfr_srcptr y) {
  if (mpfr_nan_p(x)) return y;
  return mpfr_nan_p(y) || before(x, y) ? x : y;
}
mpfr_srcptr greatest(Precedes before, mpfr_srcptr x, mpfr_srcptr y) {
  if (mpfr_nan_p(x)) return y;
  return mpfr_nan_p(y) || before(y, x) ? x : y;
}

bool truthOf(unsigned code, mpfr_srcptr x, mpfr_srcptr y) {
  switch (code) {
    case kLessEqual:
      return mpfr_lessequal_p(x, y) != 0;
    case kLess:
      return mpfr_less_p(x, y) != 0;
    case kEqual:
      return mpfr_equal_p(x, y) != 0;
    case kGreaterEqual:
      return mpfr_greaterequal_p(x, y) != 0;
    case kGreater:
      return mpfr_greater_p(x, y) != 0;
    default:
      return mpfr_equal_p(x, y) == 0;
  }
}

mpfr_srcptr selected(unsigned code, unsigned select, mpfr_srcptr x, mpfr_srcptr y, mpfr_srcptr z) {
  switch (code) {
    case kMin:
      return least(precedes, x, y);
    case kMax:
      return greatest(precedes, x, y);
    case kMinMagnitude:
      return least(precedesInMagnitude, x, y);
    case kMaxMagnitude:
      return greatest(precedesInMagnitude, x, y);
    case kSaturate:
      return least(precedes, greatest(precedes, x, y), z);
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
    const bool truth = isTruthCode(code) && truthOf(code, x.get(), y.get());
    mpfr_ptr r = results[0].real.prepare(precisions[0]);
    if (isTruthCode(code) || isZeroCode(code))
      mpfr_set_ui(r, truth ? 1 : 0, MPFR_RNDN);
    else
      mpfr_set(r, selected(code, select, x.get(), y.get(), z.get()), roundings[0]);
    mpfr_set_ui(results[1].real.prepare(precisions[1]), truth ? 1 : 0, MPFR_RNDN);
  }
  fitToCallersRange(results, roundings);
}

// An operand as it is delivered, and what the comparisons need of it.
struct Operand {
  Signal pattern;
  Signal sign, magnitude, isNan;
};
Operand canonical(Builder& b, Signal port, const Request& request, std::size_t index) {
  const auto format = inputFormat(request, index);
  const int wF = format.fractionBits, low = format.exponentBits + wF;
  const auto x = arithmetic::unpack(b, port, format);
  const Signal keep = b.bitNot(b.bitOr(x.isZero, x.isNan));
  const MPZ fraction = request.quietNaN ? MPZ::powerOfTwo(wF - 1) : MPZ(1);
  const Signal nan = b.literal((MPZ::allOnes(format.exponentBits) << wF) + fraction, low);
  const Signal magnitude = b.bitOr(b.bitAnd(b.slice(port, 0, low), b.replicate(keep, low)),
                                   b.bitAnd(nan, b.replicate(x.isNan, low)));
  const Signal sign = b.bitAnd(x.sign, b.bitNot(x.isNan));
  return {b.concat({sign, magnitude}), sign, magnitude, x.isNan};
}

Operand choose(Builder& b, Signal condition, const Operand& ifOne, const Operand& ifZero) {
  return {b.select(condition, ifOne.pattern, ifZero.pattern),
          b.select(condition, ifOne.sign, ifZero.sign),
          b.select(condition, ifOne.magnitude, ifZero.magnitude),
          b.select(condition, ifOne.isNan, ifZero.isNan)};
}

// x against y, from one comparison of their magnitudes; undefined for a NaN.
struct Order {
  Signal magnitudeLess, magnitudeGreater, magnitudeEqual;
  Signal less, greater;  // -0 before +0
};
Order compare(Builder& b, const Operand& x, const Operand& y) {
  Order order;
  order.magnitudeLess = b.less(x.magnitude, y.magnitude);
  order.magnitudeEqual = b.equal(x.magnitude, y.magnitude);
  order.magnitudeGreater = b.bitNot(b.bitOr(order.magnitudeLess, order.magnitudeEqual));
  const Signal differ = b.bitXor(x.sign, y.sign);
  const auto before = [&](Signal less, Signal greater, Signal sign) {
    return b.select(differ, sign, b.select(x.sign, greater, less));
  };
  order.less = before(order.magnitudeLess, order.magnitudeGreater, x.sign);
  order.greater = before(order.magnitudeGreater, order.magnitudeLess, y.sign);
  return order;
}

// 1 where the second operand is taken: `precedes` says that it goes before the first.
Signal takesSecond(Builder& b, const Operand& first, const Operand& second, Signal precedes) {
  return b.bitAnd(b.bitNot(second.isNan), b.bitOr(first.isNan, precedes));
}

// The truth of the comparison with code 4 to 9.
Signal truthOf(Builder& b, const Operand& x, const Operand& y, const Order& order, Signal code) {
  const Signal isOrdered = b.bitNot(b.bitOr(x.isNan, y.isNan));
  const Signal bothZero = b.isZero(b.concat({x.magnitude, y.magnitude}));
  const Signal sameSign = b.bitNot(b.bitXor(x.sign, y.sign));
  const Signal equal =
      b.bitAnd(isOrdered, b.bitAnd(order.magnitudeEqual, b.bitOr(sameSign, bothZero)));
  const Signal strict = b.bitAnd(isOrdered, b.bitNot(bothZero));
  const Signal less = b.bitAnd(strict, order.less), greater = b.bitAnd(strict, order.greater);
  const Signal notEqual = b.bitNot(equal);
  // By the low three bits; 2 and 3 are no comparisons.
  return b.pick(b.slice(code, 0, 3),
                std::array{greater, notEqual, greater, notEqual, b.bitOr(less, equal), less, equal,
                           b.bitOr(greater, equal)});
}

std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const auto scope = b.scope("multifunction");
  const Signal select = inputs[3], code = inputs[4];
  const Operand x = canonical(b, inputs[0], request, 0), y = canonical(b, inputs[1], request, 1),
                z = canonical(b, inputs[2], request, 2);
  const auto codeIn = [&](auto accepts) {
    MPZ contents;
    for (unsigned i = 0; i < 1u << kCodeBits; ++i)
      if (accepts(i)) contents += MPZ::powerOfTwo(i);
    return b.lut(code, contents, 1);
  };
  const Signal isTruth = codeIn(isTruthCode), isZero = codeIn(isZeroCode);
  const Signal saturates = codeIn([](unsigned i) { return i == kSaturate; });
  const Signal multiplexes = codeIn([](unsigned i) { return i == kMultiplex; });

  const Order order = compare(b, x, y);
  const Signal yLessInMagnitude =
      b.bitOr(order.magnitudeGreater, b.bitAnd(order.magnitudeEqual, order.greater));
  const Signal yGreaterInMagnitude =
      b.bitOr(order.magnitudeLess, b.bitAnd(order.magnitudeEqual, order.less));
  const Signal which = b.select(saturates, b.literal(kMax, 2), b.slice(code, 0, 2));
  const Signal precedes =
      b.pick(which, std::array{order.greater, order.less, yLessInMagnitude, yGreaterInMagnitude});
  const Signal takesY = b.select(multiplexes, b.bitOf(select, 0), takesSecond(b, x, y, precedes));
  const Operand either = choose(b, takesY, y, x);

  const Signal limits = takesSecond(b, either, z, compare(b, either, z).greater);
  const Signal takesZ =
      b.bitOr(b.bitAnd(saturates, limits), b.bitAnd(multiplexes, b.bitOf(select, 1)));
  const Operand value = choose(b, takesZ, z, either);

  const auto format = outputFormat(request, 0);
  const int width = format.width();
  const Signal truth = b.bitAnd(isTruth, truthOf(b, x, y, order, code));
  const Signal one = b.literal(MPZ(format.bias()) << format.fractionBits, width);
  const Signal isValue = b.bitNot(b.bitOr(isTruth, isZero));
  return {b.bitOr(b.bitAnd(value.pattern, b.replicate(isValue, width)),
                  b.bitAnd(one, b.replicate(truth, width))),
          truth};
}

bool isUnsignedOf(const kiln::Type& type, int width) {
  const kiln::FixedPoint* format = type.as_fixed_point();
  return format && format->width() == width && format->fraction() == 0 && !format->sign();
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
