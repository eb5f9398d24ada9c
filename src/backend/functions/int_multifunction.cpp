#include "backend/functions/int_multifunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "backend/arithmetic/shifter.h"
#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

constexpr int kCodeBits = 5;
enum Code {
  kAnd,
  kOr,
  kXor,
  kNand,
  kNor,
  kXnor,
  kNot,
  kReverse,
  kEqual,
  kNotEqual,
  kGreaterEqual,
  kLess,
  kMin,
  kMax,
  kNegate,
  kAbsolute,
  kAllSet,
  kAnySet,
  kMultiplex,
  kExtract
};

// What makes the result of a code.
enum Source { kLogic, kTruth, kSelection, kMagnitude, kField, kNothing };
Source sourceOf(unsigned code) {
  if (code <= kReverse) return kLogic;
  if (code <= kLess || code == kAllSet || code == kAnySet) return kTruth;
  if (code == kMin || code == kMax || code == kMultiplex) return kSelection;
  if (code == kNegate || code == kAbsolute) return kMagnitude;
  return code == kExtract ? kField : kNothing;
}

int positionBits(int width) { return static_cast<int>(MPZ(width - 1).bitLength()); }

MPZ reversed(const MPZ& x, int width) {
  MPZ result;
  for (int i = 0; i < width; ++i)
    if (mpz_tstbit(x.get(), static_cast<mp_bitcnt_t>(i)))
      mpz_setbit(result.get(), static_cast<mp_bitcnt_t>(width - 1 - i));
  return result;
}

MPZ extracted(const MPZ& x, const MPZ& position, const MPZ& count, int width) {
  const auto bits = static_cast<unsigned long>(positionBits(width));
  return (x.lowBits(static_cast<unsigned long>(width)) >> position.lowBits(bits).toUint64())
      .lowBits(count.lowBits(bits).toUint64() + 1);
}

// The truth of a code that is one.
bool truthOf(unsigned code, const MPZ& x, const MPZ& y) {
  switch (code) {
    case kEqual:
      return x == y;
    case kNotEqual:
      return x != y;
    case kGreaterEqual:
      return x >= y;
    case kLess:
      return x < y;
    case kAllSet:
      return x == MPZ(-1);
    default:
      return !x.isZero();
  }
}

// An integer whose low bits are the result of a code that is no truth.
MPZ valueOf(unsigned code, unsigned select, const MPZ& x, const MPZ& y, const MPZ& z, int width) {
  MPZ r;
  switch (code) {
    case kAnd:
    case kNand:
      mpz_and(r.get(), x.get(), y.get());
      break;
    case kOr:
    case kNor:
      mpz_ior(r.get(), x.get(), y.get());
      break;
    case kXor:
    case kXnor:
      mpz_xor(r.get(), x.get(), y.get());
      break;
    case kNot:
      r = x;
      break;
    case kReverse:
      return reversed(x, width);
    case kMin:
      return std::min(x, y);
    case kMax:
      return std::max(x, y);
    case kNegate:
      return MPZ(0) - x;
    case kAbsolute:
      return x < MPZ(0) ? MPZ(0) - x : x;
    case kMultiplex:
      return select == 0 ? x : select == 1 ? y : z;
    case kExtract:
      return extracted(x, y, z, width);
    default:
      return r;
  }
  if (kNand <= code) mpz_com(r.get(), r.get());
  return r;
}

void evaluate(const Signature& signature, std::vector<NumValue>& results,
              const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
              const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  std::array<MPZ, 5> values;
  for (std::size_t i = 0; i < values.size(); ++i)
    readInteger(values[i], inputs[i], fixedPoint(signature.in[i]));
  const auto& [x, y, z, select, code] = values;
  const auto number = static_cast<unsigned>(code.toUint64());
  const bool isTruth = sourceOf(number) == kTruth, truth = isTruth && truthOf(number, x, y);
  const kiln::FixedPoint& out = fixedPoint(signature.out[0]);
  MPZ r = isTruth ? MPZ(truth ? 1 : 0)
                  : valueOf(number, static_cast<unsigned>(select.toUint64()), x, y, z, out.width());
  wrapInto(r, out);
  results.resize(2);
  writeInteger(results[0], r, out, precisions[0], roundings[0]);
  writeInteger(results[1], MPZ(truth ? 1 : 0), fixedPoint(signature.out[1]), precisions[1],
               roundings[1]);
}

Signal buildLogic(Builder& b, Signal x, Signal y, Signal code) {
  std::vector<Signal> bits;
  for (int i = 0; i < x.width; ++i) bits.push_back(b.bitOf(x, i));
  const Signal both = b.bitAnd(x, y), any = b.bitOr(x, y), odd = b.bitXor(x, y);
  return b.pick(b.slice(code, 0, 3), std::array{both, any, odd, b.bitNot(both), b.bitNot(any),
                                                b.bitNot(odd), b.bitNot(x), b.concat(bits)});
}

Signal buildExtract(Builder& b, Signal x, Signal y, Signal z) {
  const int bits = positionBits(x.width);
  if (bits == 0) return x;
  const Signal moved = arithmetic::shiftRight(b, x, b.slice(y, 0, bits));
  // Bit i of the mask is 1 when i <= z.
  const Signal ones = b.ones(1 << bits);
  const Signal mask = arithmetic::shiftRight(b, ones, b.bitNot(b.slice(z, 0, bits)));
  return b.bitAnd(moved, b.slice(mask, 0, x.width));
}

std::vector<Signal> decompose(Builder& b, const Request&, std::span<const Signal> inputs) {
  const auto scope = b.scope("multifunction");
  const Signal x = inputs[0], y = inputs[1], z = inputs[2], select = inputs[3], code = inputs[4];
  const auto table = [&](auto value, int width) {
    MPZ contents;
    for (unsigned i = 0; i < 1u << kCodeBits; ++i)
      contents += MPZ(static_cast<unsigned long>(value(i))) << (i * static_cast<unsigned>(width));
    return b.lut(code, contents, width);
  };
  const Signal low = b.bitOf(code, 0);
  const Signal less = b.lessSigned(x, y), equal = b.equal(x, y);
  const Signal truth = b.bitAnd(table([](unsigned i) { return sourceOf(i) == kTruth; }, 1),
                                b.pick(b.concat({b.bitOf(code, 4), b.slice(code, 0, 2)}),
                                       std::array{equal, b.bitNot(equal), b.bitNot(less), less,
                                                  b.reduceAnd(x), b.reduceOr(x)}));

  const Signal multiplexes = table([](unsigned i) { return i == kMultiplex; }, 1);
  const Signal extreme = b.concat({b.bit(false), b.bitXor(less, b.bitNot(low))});
  const Signal selection = b.pick(b.select(multiplexes, select, extreme), std::array{x, y, z});

  const Signal negates = b.bitOr(b.bitNot(low), b.topBit(x));
  const Signal magnitude =
      b.addCarry(b.bitXor(x, b.replicate(negates, x.width)), b.zeros(x.width), negates);

  const Signal result =
      b.pick(table(sourceOf, 3),
             std::array{buildLogic(b, x, y, code), b.zeroExtend(truth, x.width), selection,
                        magnitude, buildExtract(b, x, y, z), b.zeros(x.width)});
  return {result, truth};
}

std::optional<std::string> refuse(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != 5 || out.size() != 2)
    return fmt::format("{} inputs and {} outputs are not the 5 and 2 of this unit", in.size(),
                       out.size());
  const int width = in[0].width();
  const auto fits = [](const kiln::Type& type, const kiln::FixedPoint& format) {
    const kiln::FixedPoint* port = type.as_fixed_point();
    return port && port->width() == format.width() && port->fraction() == format.fraction() &&
           port->sign() == format.sign();
  };
  for (const kiln::Type& type : {in[0], in[1], in[2], out[0]})
    if (!fits(type, kiln::FixedPoint(width, 0, true)))
      return "its operands and its result are not signed integers of one width";
  if (!fits(in[3], kiln::FixedPoint(2, 0, false)) ||
      !fits(in[4], kiln::FixedPoint(kCodeBits, 0, false)) ||
      !fits(out[1], kiln::FixedPoint(1, 0, false)))
    return "its select, code and truth are not ports of 2, 5 and 1 bits";
  // The reference's numbers have 200 bits.
  return outOfRange("width", width, 1, 200);
}

constexpr UnitRow kRows[] = {{"DMFxPFusedMultiFunction", evaluate, decompose, refuse}};

}  // namespace

std::span<const UnitRow> intMultiFunctionUnits() { return kRows; }

}  // namespace functions
