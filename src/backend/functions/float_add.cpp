#include "backend/functions/float_add.h"

#include <algorithm>

#include "backend/arithmetic/float_adder.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

// Places of the numbers in a variant.
enum VariantPlace { kSubtract, kDualPath, kTiesAway, kDegradeAccuracy };

// x + y, or x - y, of exact numbers.
void deliverSum(NumValue& result, mpfr_srcptr x, mpfr_srcptr y, bool subtract,
                const Delivery& delivery) {
  thread_local Real sum;
  mpfr_ptr r = sum.prepare(oddPrecision(delivery.precision));
  const int ternary = subtract ? mpfr_sub(r, x, y, MPFR_RNDZ) : mpfr_add(r, x, y, MPFR_RNDZ);
  // An exact zero sum of numbers that are not zeros of one sign depends on the direction.
  if (mpfr_zero_p(r) && delivery.rounding == MPFR_RNDD) {
    const bool ySign = (mpfr_signbit(y) != 0) != subtract;
    if ((mpfr_signbit(x) != 0) != ySign) mpfr_set_zero(r, -1);
  }
  roundToOdd(r, ternary);
  deliverOdd(result, r, delivery);
}

// Output k becomes x + y, or x - y where `subtract` has bit k set.
void evaluateSums(const Signature& signature, std::vector<NumValue>& results,
                  const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                  const std::vector<mpfr_rnd_t>& roundings, bool subnormals, unsigned subtract) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(signature.out.size());
  {
    const FullExponentRange range;
    thread_local Real x, y;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    readFloat(y, inputs[1], inputFloat(signature, 1), subnormals);
    for (std::size_t k = 0; k < results.size(); ++k)
      deliverSum(results[k], x.get(), y.get(), ((subtract >> k) & 1) != 0,
                 {.port = outputFloat(signature, k),
                  .precision = precisions[k],
                  .rounding = roundings[k],
                  .tiesAway = signature.variant[kTiesAway] != 0,
                  .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

// x - y where that is positive, else +0.
void evaluateDim(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x, y, zero(MPFR_PREC_MIN);
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    readFloat(y, inputs[1], inputFloat(signature, 1), subnormals);
    mpfr_set_zero(zero.get(), 1);
    const Delivery delivery{.port = outputFloat(signature, 0),
                            .precision = precisions[0],
                            .rounding = roundings[0],
                            .subnormals = subnormals};
    if (mpfr_lessequal_p(x.get(), y.get()))
      deliverOdd(results[0], zero.get(), delivery);
    else
      deliverSum(results[0], x.get(), y.get(), /*subtract=*/true, delivery);
  }
  fitToCallersRange(results, roundings);
}

// The root of a balanced tree over `values`: neighbours are joined level by level, an odd last one
// moves up a level. `isRoot` is true for the last join.
template <typename T, typename Join>
T foldTree(std::vector<T> values, Join join) {
  while (values.size() > 1) {
    const bool isRoot = values.size() == 2;
    std::size_t joined = 0;
    for (std::size_t i = 0; i + 1 < values.size(); i += 2)
      values[joined++] = join(values[i], values[i + 1], isRoot);
    if (values.size() % 2 == 1) values[joined++] = values.back();
    values.resize(joined);
  }
  return values[0];
}

// Every inner node is a complete adder: rounded to nearest even and into the range of the port.
void evaluateTree(const Signature& signature, std::vector<NumValue>& results,
                  const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                  const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    // Values of the nodes, each written over its first operand.
    thread_local std::vector<Real> values;
    thread_local std::vector<std::size_t> nodes;
    thread_local NumValue rounded;
    if (values.size() < inputs.size()) values.resize(inputs.size());
    nodes.clear();
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      readFloat(values[i], inputs[i], inputFloat(signature, i), subnormals);
      nodes.push_back(i);
    }
    const kiln::FloatingPoint& port = outputFloat(signature, 0);
    foldTree(nodes, [&](std::size_t x, std::size_t y, bool isRoot) {
      if (isRoot) {
        deliverSum(results[0], values[x].get(), values[y].get(), false,
                   {.port = port,
                    .precision = precisions[0],
                    .rounding = roundings[0],
                    .tiesAway = signature.variant[kTiesAway] != 0,
                    .subnormals = subnormals});
      } else {
        deliverSum(rounded, values[x].get(), values[y].get(), false,
                   {.port = port,
                    .precision = static_cast<unsigned>(port.frac + 1),
                    .rounding = MPFR_RNDN,
                    .subnormals = subnormals});
        readFloat(values[x], rounded, port, subnormals);
      }
      return x;
    });
  }
  fitToCallersRange(results, roundings);
}

void evaluateAdd(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (inputs.size() > 2)
    return evaluateTree(signature, results, inputs, precisions, roundings, subnormals);
  evaluateSums(signature, results, inputs, precisions, roundings, subnormals,
               signature.variant[kSubtract] != 0 ? 1 : 0);
}

void evaluateAddSub(const Signature& signature, std::vector<NumValue>& results,
                    const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                    const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateSums(signature, results, inputs, precisions, roundings, subnormals,
               readBit(inputs[2]) ? 1 : 0);
}

void evaluateFused(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateSums(signature, results, inputs, precisions, roundings, subnormals, 2);
}

arithmetic::FloatAdderOptions optionsOf(const Request& request, double ulps,
                                        std::span<const Signal> inputs) {
  const Variant& variant = request.signature.variant;
  const Shape& block = request.prices.dsp;
  return {.out = outputFormat(request, 0),
          .rounding = roundingOf(request, variant[kTiesAway] != 0, inputs),
          .ulps = ulps,
          .onesComplement = variant[kDegradeAccuracy] != 0,
          .quietNaN = request.quietNaN,
          .budgets = request.budgets,
          .alignment = request.alignsInDsps ? arithmetic::BlockShape{block.width, block.depth}
                                            : arithmetic::BlockShape{}};
}

Signal buildSum(Builder& b, const Request& request, const arithmetic::Unpacked& x,
                const arithmetic::Unpacked& y, const arithmetic::FloatAdderOptions& options,
                arithmetic::ZeroFields zeros = arithmetic::ZeroFields::kCleared) {
  return request.signature.variant[kDualPath] != 0 ? addDualPath(b, x, y, options, zeros)
                                                   : addSinglePath(b, x, y, options, zeros);
}

std::vector<Signal> decomposeSum(Builder& b, const Request& request, std::span<const Signal> inputs,
                                 Signal subtract) {
  const auto options = optionsOf(request, ulpsOf(request, 0), inputs);
  using arithmetic::FloatFormat, arithmetic::ZeroFields;
  const FloatFormat first = inputFormat(request, 0), second = inputFormat(request, 1);
  const bool keepsFields = arithmetic::mayKeepZeroFields(first, second, options.out);
  const ZeroFields zeros = keepsFields ? ZeroFields::kAsTheyAre : ZeroFields::kCleared;
  const bool isDualPath = request.signature.variant[kDualPath] != 0;
  const auto unpacked = [&](Signal port, const FloatFormat& format, const FloatFormat& other) {
    const ZeroFields own =
        keepsFields && isDualPath ? arithmetic::zeroFieldsInDualPath(format, other) : zeros;
    return arithmetic::unpack(b, port, format, own);
  };
  const auto x = unpacked(inputs[0], first, second);
  auto y = unpacked(inputs[1], second, first);
  y.sign = b.bitXor(y.sign, subtract);
  return {buildSum(b, request, x, y, options, zeros)};
}

std::vector<Signal> decomposeTree(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  const auto root = optionsOf(request, ulpsOf(request, 0), inputs);
  auto inner = root;
  inner.rounding = {};
  inner.ulps = 0.5;
  inner.budgets = nullptr;  // the reference rounds there, too
  std::vector<arithmetic::Unpacked> operands;
  for (std::size_t i = 0; i < inputs.size(); ++i)
    operands.push_back(arithmetic::unpack(b, inputs[i], inputFormat(request, i)));
  Signal result;
  foldTree(operands, [&](const auto& x, const auto& y, bool isRoot) {
    result = buildSum(b, request, x, y, isRoot ? root : inner);
    return arithmetic::unpack(b, result, root.out);
  });
  return {result};
}

std::vector<Signal> decomposeAdd(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  if (inputs.size() > 2) return decomposeTree(b, request, inputs);
  return decomposeSum(b, request, inputs, b.bit(request.signature.variant[kSubtract] != 0));
}

std::vector<Signal> decomposeAddSub(Builder& b, const Request& request,
                                    std::span<const Signal> inputs) {
  return decomposeSum(b, request, inputs, inputs[2]);
}

std::vector<Signal> decomposeFused(Builder& b, const Request& request,
                                   std::span<const Signal> inputs) {
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const auto y = arithmetic::unpack(b, inputs[1], inputFormat(request, 1));
  // Either output may come from either addition, so both keep the narrower bound.
  const double ulps = std::min(ulpsOf(request, 0), ulpsOf(request, 1));
  const auto both = addAndSubtract(b, x, y, optionsOf(request, ulps, inputs));
  return {both.sum, both.difference};
}

std::vector<Signal> decomposeDim(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const auto y = arithmetic::unpack(b, inputs[1], inputFormat(request, 1));
  return {positiveDifference(b, x, y,
                             {.out = outputFormat(request, 0),
                              .rounding = roundingOf(request, /*tiesAway=*/false, inputs),
                              .ulps = ulpsOf(request, 0),
                              .quietNaN = request.quietNaN})};
}

// Refuses unless there are two floating inputs, `controls` of one bit and `outputs` floating
// outputs, all floating ports of one exponent and one fraction width.
std::optional<std::string> refuseSums(const Request& request, std::size_t controls,
                                      std::size_t outputs) {
  if (auto reason = refusePorts(request, 2, controls, outputs)) return reason;
  return refuseMixedWidths(request);
}

std::optional<std::string> refuseAdd(const Request& request) {
  const std::size_t inputs = request.signature.in.size();
  if (inputs <= 2) return refuseSums(request, 0, 1);
  if (request.signature.variant[kSubtract] != 0) return "a tree of more than two inputs only adds";
  if (auto reason = refusePorts(request, inputs, 0, 1)) return reason;
  return refuseMixedWidths(request);
}
std::optional<std::string> refuseAddSub(const Request& request) {
  return refuseSums(request, 1, 1);
}
std::optional<std::string> refuseDim(const Request& request) { return refuseSums(request, 0, 1); }
std::optional<std::string> refuseFused(const Request& request) {
  if (auto reason = refuseSums(request, 0, 2)) return reason;
  const auto &first = outputFloat(request.signature, 0),
             &second = outputFloat(request.signature, 1);
  if (first.is_fp_lib != second.is_fp_lib) return "its outputs are of different forms";
  return std::nullopt;
}

constexpr UnitRow kRows[] = {
    {"CFloatAdd", evaluateAdd, decomposeAdd, refuseAdd},
    {"CFloatAddSub", evaluateAddSub, decomposeAddSub, refuseAddSub},
    {"DMFloatFusedAddSub", evaluateFused, decomposeFused, refuseFused},
    {"DMFloatDim", evaluateDim, decomposeDim, refuseDim},
};

}  // namespace

std::span<const UnitRow> floatAddUnits() { return kRows; }

}  // namespace functions
