#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "backend/functions/integer_values.h"
#include "backend/functions/unit_circuit.h"

namespace functions {

using kiln::FixedPoint;
using util::MPZ;

constexpr Accuracy kFaithful{Accuracy::kWithin, 1}, kNearest{Accuracy::kCorrect, 0.5},
    kTwo{Accuracy::kWithin, 2}, kFive{Accuracy::kWithin, 5};

// n / 2^places rounded down.
inline MPZ floorOf(const MPZ& n, long places) {
  return places >= 0 ? n >> static_cast<unsigned long>(places)
                     : n << static_cast<unsigned long>(-places);
}

// One unit on fixed-point ports, its circuit and its reference held against exact integers.
class IntegerUnit {
 public:
  // The value that r owes for the values of the inputs.
  using Function = std::function<util::MPZ(const std::vector<util::MPZ>&)>;

  IntegerUnit(const UnitRow& row, const Signature& signature)
      : request(requestOf(signature)), circuit(std::string(row.name), request) {}

  const graph::Graph& graph() const { return circuit.graph; }

  // True when circuit and reference both give what `function` owes for these patterns.
  ::testing::AssertionResult agrees(const std::vector<util::MPZ>& patterns,
                                    const Function& function) {
    const Signature& signature = request.signature;
    std::vector<util::MPZ> values;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
      const kiln::FixedPoint& format = fixedPoint(signature.in[i]);
      values.push_back(format.sign() ? patterns[i].asSigned(format.width()) : patterns[i]);
    }
    const util::MPZ owed = function(values);
    const util::MPZ built = circuit(patterns)[0];
    const util::MPZ referred = reference(values);
    if (built == owed.lowBits(signature.out[0].width()) && referred == owed)
      return ::testing::AssertionSuccess();
    auto failure = ::testing::AssertionFailure() << "inputs";
    for (const util::MPZ& value : values) failure << " " << value.toText(10);
    return failure << ": owed " << owed.toText(10) << ", circuit pattern " << built.toText(10)
                   << ", reference " << referred.toText(10);
  }

  // Every pattern on every port; the widths together small.
  void checkAll(const Function& function) {
    int bits = 0;
    for (const kiln::Type& type : request.signature.in) bits += type.width();
    for (unsigned long vector = 0; vector < 1ul << bits; ++vector) {
      std::vector<util::MPZ> patterns;
      unsigned long rest = vector;
      for (const kiln::Type& type : request.signature.in) {
        patterns.push_back(util::MPZ(rest).lowBits(type.width()));
        rest >>= type.width();
      }
      ASSERT_TRUE(agrees(patterns, function));
    }
  }

  // All pairs of corner patterns on neighbouring ports, then `draws` drawn ones.
  void checkCornersAndDraws(const Function& function, int draws) {
    constexpr int kCorners = 6;
    for (int corner = 0; corner < kCorners * kCorners; ++corner) {
      std::vector<util::MPZ> patterns;
      for (std::size_t i = 0; i < request.signature.in.size(); ++i)
        patterns.push_back(cornerPattern(i % 2 == 0 ? corner % kCorners : corner / kCorners,
                                         request.signature.in[i].width()));
      ASSERT_TRUE(agrees(patterns, function));
    }
    gmp_randstate_t state;
    gmp_randinit_default(state);
    for (int draw = 0; draw < draws; ++draw) {
      std::vector<util::MPZ> patterns;
      for (const kiln::Type& type : request.signature.in) {
        patterns.emplace_back();
        // Every other draw has long runs of equal bits, where carries run far.
        (draw % 2 == 0 ? mpz_urandomb : mpz_rrandomb)(patterns.back().get(), state, type.width());
      }
      EXPECT_TRUE(agrees(patterns, function));
    }
    gmp_randclear(state);
  }

 private:
  static Request requestOf(const Signature& signature) {
    Request request;
    request.signature = signature;
    return request;
  }
  static util::MPZ cornerPattern(int corner, int width) {
    const util::MPZ ones = util::MPZ::allOnes(width), top = util::MPZ::powerOfTwo(width - 1);
    const util::MPZ corners[] = {0, 1, ones, top, top - util::MPZ(1), ones - util::MPZ(1)};
    return corners[corner].lowBits(width);
  }

  // The reference's integer; the same is expected in every direction of rounding.
  util::MPZ reference(const std::vector<util::MPZ>& values) {
    arguments.resize(values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
      mpfr_set_z(arguments[i].real.prepare(5000), values[i].get(), MPFR_RNDN);
    util::MPZ first;
    for (const mpfr_rnd_t rounding : {MPFR_RNDN, MPFR_RNDU, MPFR_RNDD}) {
      circuit.row.evaluate(request.signature, results, arguments, {10000}, {rounding}, false);
      EXPECT_FALSE(mpfr_zero_p(results[0].real.get()) && mpfr_signbit(results[0].real.get()));
      util::MPZ value;
      mpfr_get_z(value.get(), results[0].real.get(), MPFR_RNDN);
      if (rounding == MPFR_RNDN) first = value;
      EXPECT_EQ(first, value);
    }
    return first;
  }

  Request request;
  UnitCircuit circuit;
  std::vector<NumValue> arguments, results;
};

inline kiln::Type integers(int width, bool isSigned) {
  return kiln::FixedPoint(width, 0, isSigned);
}

}  // namespace functions
