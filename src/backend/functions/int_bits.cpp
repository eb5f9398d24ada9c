#include "backend/functions/int_bits.h"

#include <algorithm>

#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::HeapTerm;
using graph::Signal;
using util::MPZ;

namespace {

void evaluateCount(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  const kiln::FixedPoint& in = fixedPoint(signature.in[0]);
  thread_local MPZ pattern, count;
  readInteger(pattern, inputs[0], in);
  mpz_fdiv_r_2exp(pattern.get(), pattern.get(), static_cast<unsigned long>(in.width()));
  mpz_set_ui(count.get(), mpz_popcount(pattern.get()));
  results.resize(1);
  writeInteger(results[0], count, fixedPoint(signature.out[0]), precisions[0], roundings[0]);
}

// The number of ones in x (at most six bits): one look-up table for each bit of the count.
Signal countOfSix(Builder& b, Signal x) {
  const int width = static_cast<int>(MPZ(x.width).bitLength());
  MPZ contents;
  for (unsigned long row = 0; row < 1ul << x.width; ++row)
    contents += MPZ(static_cast<unsigned long>(__builtin_popcountl(row)))
                << (row * static_cast<unsigned long>(width));
  return b.lut(x, contents, width);
}

std::vector<Signal> buildCount(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const Signal x = inputs[0];
  std::vector<HeapTerm> counts;
  for (int low = 0; low < x.width; low += 6)
    counts.push_back({countOfSix(b, b.slice(x, low, std::min(6, x.width - low))), 0});
  const int width = static_cast<int>(MPZ(x.width).bitLength());
  return {b.zeroExtend(b.heap(counts, width), request.signature.out[0].width())};
}

std::optional<std::string> refuseCount(const Request& request) {
  return inputWidthOutOfRange(request.signature, 4096);
}

// Numbers of the shifter's variant.
enum Number { kMaxShift };

void evaluateShift(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  thread_local MPZ value, shift, limit;
  readInteger(value, inputs[0], fixedPoint(signature.in[0]));
  readInteger(shift, inputs[1], fixedPoint(signature.in[1]));
  mpz_set_si(limit.get(), signature.variant[kMaxShift]);
  value >>= std::min(shift, limit).toUint64();
  results.resize(1);
  writeInteger(results[0], value, fixedPoint(signature.out[0]), precisions[0], roundings[0]);
}

// min(s, most) in no more bits than `most` needs.
Signal limited(Builder& b, Signal s, const MPZ& most) {
  if (most >= MPZ::allOnes(s.width)) return s;
  const int width = static_cast<int>(most.bitLength());
  const Signal low = b.slice(s, 0, width);
  if (most == MPZ::allOnes(width)) {
    const Signal above = b.reduceOr(b.slice(s, width, s.width - width));
    return b.bitOr(low, b.replicate(above, width));
  }
  return b.select(b.less(b.literal(most, s.width), s), b.literal(most, width), low);
}

// x shifted down by a fixed count, `fill` coming in on top.
Signal shiftedDown(Builder& b, Signal x, std::int64_t count, Signal fill) {
  const int lost = static_cast<int>(std::min<std::int64_t>(count, x.width));
  return b.concat({b.replicate(fill, lost), b.slice(x, lost, x.width - lost)});
}

std::vector<Signal> buildShift(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const Signature& signature = request.signature;
  Signal x = inputs[0];
  const Signal fill = fixedPoint(signature.in[0]).sign() ? b.topBit(x) : b.bit(false);
  const MPZ most(static_cast<long>(signature.variant[kMaxShift]));
  if (most.isZero()) return {x};
  const Signal shift = limited(b, inputs[1], most);
  // Two bits of the shift a level: a four-way pick is one look-up table a bit. The level of one bit
  // comes last, where the count is odd.
  for (int low = 0; low < shift.width; low += 2) {
    const int bits = std::min(2, shift.width - low);
    std::vector<Signal> choices;
    for (std::int64_t digit = 0; digit < 1 << bits; ++digit)
      choices.push_back(shiftedDown(b, x, digit << std::min(low, 40), fill));
    x = b.pick(b.slice(shift, low, bits), choices);
  }
  return {x};
}

std::optional<std::string> refuseShift(const Request& request) {
  const Signature& signature = request.signature;
  if (auto reason = outOfRange("width", signature.in[0].width(), 1, 200)) return reason;
  const auto most = signature.variant[kMaxShift];
  if (most < 0) return outOfRange("maxShift", most, 0, INT64_MAX);
  return std::nullopt;
}

constexpr UnitRow kRows[] = {{"CCtpop", evaluateCount, buildCount, refuseCount},
                             {"CBarrelShift", evaluateShift, buildShift, refuseShift}};

}  // namespace

std::span<const UnitRow> bitUnits() { return kRows; }

}  // namespace functions
