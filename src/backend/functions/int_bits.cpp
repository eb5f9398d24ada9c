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

// s > limit
Signal exceeds(Builder& b, Signal s, int limit) {
  if ((limit & (limit + 1)) != 0) return b.less(b.literal(limit, s.width), s);
  const int width = static_cast<int>(MPZ(limit).bitLength());
  return b.reduceOr(b.slice(s, width, s.width - width));
}

// x shifted down by a fixed count, `fill` coming in on top.
Signal shiftedDown(Builder& b, Signal x, int count, Signal fill) {
  const int lost = std::min(count, x.width);
  return b.concat({b.replicate(fill, lost), b.slice(x, lost, x.width - lost)});
}

std::vector<Signal> buildShift(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const Signature& signature = request.signature;
  Signal x = inputs[0];
  const Signal shift = inputs[1];
  const Signal fill = fixedPoint(signature.in[0]).sign() ? b.topBit(x) : b.bit(false);
  const int most = static_cast<int>(std::min<std::int64_t>(signature.variant[kMaxShift], x.width));
  // Shifts up to `limit` are made in levels; all beyond give one and the same result.
  const int limit = std::min(most, x.width - 1);
  const bool canExceed = MPZ(limit) < MPZ::allOnes(shift.width);
  const Signal beyond = shiftedDown(b, x, most, fill);
  const int bits = canExceed ? static_cast<int>(MPZ(limit).bitLength()) : shift.width;

  // Two bits of the shift a level: a four-way pick is one look-up table a bit.
  int low = 0;
  for (; low + 1 < bits; low += 2) {
    std::vector<Signal> choices;
    for (int digit = 0; digit < 4; ++digit)
      choices.push_back(shiftedDown(b, x, digit << low, fill));
    x = b.pick(b.slice(shift, low, 2), choices);
  }
  // The last bit, if it stands alone, shares its level with the shifts beyond the limit.
  const Signal isBeyond = canExceed ? exceeds(b, shift, limit) : b.bit(false);
  if (low == bits) return {b.select(isBeyond, beyond, x)};
  const Signal last = b.bitOf(shift, low), lastShifted = shiftedDown(b, x, 1 << low, fill);
  if (!canExceed) return {b.select(last, lastShifted, x)};
  const Signal choices[] = {x, lastShifted, beyond};
  return {b.pick(b.concat({isBeyond, last}), choices)};
}

std::optional<std::string> refuseShift(const Request& request) {
  const Signature& signature = request.signature;
  if (auto reason = outOfRange("width", signature.in[0].width(), 1, 4096)) return reason;
  const auto most = signature.variant[kMaxShift];
  if (most < 0) return outOfRange("maxShift", most, 0, INT64_MAX);
  return std::nullopt;
}

constexpr UnitRow kRows[] = {{"CCtpop", evaluateCount, buildCount, refuseCount},
                             {"CBarrelShift", evaluateShift, buildShift, refuseShift}};

}  // namespace

std::span<const UnitRow> bitUnits() { return kRows; }

}  // namespace functions
