#include "backend/functions/sequencers/float_mult_acc.h"

#include "backend/arithmetic/float_adder.h"
#include "backend/arithmetic/fused_multiply_add.h"
#include "backend/arithmetic/running_sum.h"
#include "backend/functions/float_mult_add.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using arithmetic::Unpacked;
using arithmetic::Unrounded;
using graph::Builder;
using graph::Signal;

namespace {

constexpr int kMinimumLatency = 1;
constexpr std::size_t kSum = 0;  // place in the variant
enum Input { kContinues, kFirst, kSecond, kLastResult };

void setDontCare(NumValue& result, unsigned precision) {
  result.type = NumType::kDontCare;
  result.raw = false;
  mpfr_set_zero(result.real.prepare(precision), 1);
}

void evaluateMultAcc(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  results.resize(1);
  const bool sums = signature.variant[kSum] != 0;
  const std::size_t ports = signature.in.size();
  for (std::size_t i = 0; i < ports; ++i)
    if (inputs[i].type == NumType::kDontCare) return setDontCare(results[0], precisions[0]);
  const bool continues = readBit(inputs[kContinues]);
  const bool knowsLast =
      !sums && inputs.size() > kLastResult && inputs[kLastResult].type != NumType::kDontCare;
  if (continues && !knowsLast) return setDontCare(results[0], precisions[0]);
  {
    const FullExponentRange range;
    thread_local Real x, y, last;
    const kiln::FloatingPoint& port = outputFloat(signature, 0);
    const Delivery delivery{.port = port,
                            .precision = precisions[0],
                            .rounding = roundings[0],
                            .subnormals = subnormals};
    readFloat(x, inputs[kFirst], inputFloat(signature, kFirst), subnormals);
    if (sums)
      mpfr_set_ui(y.prepare(2), 1, MPFR_RNDN);
    else
      readFloat(y, inputs[kSecond], inputFloat(signature, kSecond), subnormals);
    if (continues) {
      readFloat(last, inputs[kLastResult], port, subnormals);
    } else {
      // A zero of the product's sign changes no product.
      const bool negative = (mpfr_signbit(x.get()) != 0) != (mpfr_signbit(y.get()) != 0);
      mpfr_set_zero(last.prepare(2), negative ? -1 : 1);
    }
    deliverMultAdd(results[0], x.get(), y.get(), last.get(), /*subtract=*/false, delivery);
  }
  fitToCallersRange(results, roundings);
}

// `x` where `keep` is 1, else a zero with the sign `zeroSign`.
Unpacked keptOrZero(Builder& b, Unpacked x, Signal keep, Signal zeroSign) {
  const auto masked = [&](Signal bits) { return b.bitAnd(bits, b.replicate(keep, bits.width)); };
  x.sign = b.select(keep, x.sign, zeroSign);
  x.exponent = masked(x.exponent);
  x.significand = masked(x.significand);
  x.isZero = b.bitOr(x.isZero, b.bitNot(keep));
  x.isInf = masked(x.isInf);
  x.isNan = masked(x.isNan);
  return x;
}

// The loop of both accumulators: from the last result, round(last + term), where `addTerm` has the
// term of this step before rounding. Nothing but this stands in the loop. In a cycle that is not
// valid the term is a zero of the last result's sign, which leaves every number as it is.
template <typename AddTerm>
Signal accumulate(Builder& b, const Request& request, Signal continues, Signal termSign,
                  AddTerm addTerm) {
  const auto scope = b.scope("accumulator");
  const arithmetic::FloatFormat format = outputFormat(request, 0);
  const Signal valid = request.valid ? request.valid : b.bit(true);
  const Signal state = b.state(arithmetic::heldWidth(format));
  const Unpacked last = arithmetic::readHeld(b, state, format);
  const Unpacked start = keptOrZero(b, last, b.bitOr(continues, b.bitNot(valid)), termSign);
  const Unrounded sum = addTerm(start, b.select(valid, termSign, last.sign));
  const Signal next = arithmetic::roundHeld(b, sum, format, request.rounding.fixed);
  b.setNext(state, next);
  return arithmetic::pack(b, arithmetic::readHeld(b, next, format), request.quietNaN);
}

std::vector<Signal> decomposeMultAcc(Builder& b, const Request& request,
                                     std::span<const Signal> inputs) {
  const Signal valid = request.valid ? request.valid : b.bit(true);
  const auto operand = [&](std::size_t port, arithmetic::ZeroFields zeros) {
    return keptOrZero(b, arithmetic::unpack(b, inputs[port], inputFormat(request, port), zeros),
                      valid, b.bit(false));
  };
  const arithmetic::RoundingRule rounding{.mode = request.rounding.fixed};
  if (request.signature.variant[kSum] != 0) {
    const Unpacked x = operand(kFirst, arithmetic::ZeroFields::kCleared);
    return {
        accumulate(b, request, inputs[kContinues], x.sign, [&](const Unpacked& last, Signal sign) {
          Unpacked term = x;
          term.sign = sign;
          return arithmetic::addSinglePathUnrounded(
              b, last, term, {.out = x.format, .rounding = rounding, .budgets = request.budgets});
        })};
  }
  const Unpacked x = operand(kFirst, arithmetic::ZeroFields::kLikeRegular);
  const Unpacked y = operand(kSecond, arithmetic::ZeroFields::kLikeRegular);
  const arithmetic::ExactProduct product = arithmetic::multiplyExactly(b, x, y);
  return {accumulate(b, request, inputs[kContinues], product.sign,
                     [&](const Unpacked& last, Signal sign) {
                       arithmetic::ExactProduct term = product;
                       term.sign = sign;
                       return arithmetic::addToProductUnrounded(b, term, last,
                                                                {.rounding = rounding,
                                                                 .budgets = request.budgets,
                                                                 .firstOne = request.form.firstOne,
                                                                 .inLoop = true});
                     })};
}

std::optional<std::string> refuseMultAcc(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  const std::size_t terms = variant[kSum] != 0 ? 1 : 2;
  if (in.size() != 1 + terms || out.size() != 1 || !in[kContinues].as_fixed_point() ||
      in[kContinues].width() != 1)
    return "its inputs are a bit and the factors of a term, its output the sum";
  for (std::size_t i = kFirst; i < in.size(); ++i)
    if (!in[i].as_floating_point()) return "a term is not a floating-point port";
  if (!out[0].as_floating_point() || outputFloat(request.signature, 0).is_fp_lib)
    return "its ports are IEEE-style";
  if (request.rounding.port) return "its rounding is not chosen at run time";
  if (auto reason = refuseFormats(request)) return reason;
  return refuseMixedWidths(request);
}

constexpr UnitRow kRows[] = {{.name = "CFloatMultAcc",
                              .evaluate = evaluateMultAcc,
                              .decompose = decomposeMultAcc,
                              .refuses = refuseMultAcc,
                              .protocol = Protocol::kAccumulate,
                              .minimumLatency = kMinimumLatency,
                              .otherForm = Form{.firstOne = arithmetic::FirstOne::kTable}}};

}  // namespace

std::span<const UnitRow> floatMultAccUnits() { return kRows; }

}  // namespace functions
