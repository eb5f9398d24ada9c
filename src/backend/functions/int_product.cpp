#include "backend/functions/int_product.h"

#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

enum Number { kArchitecture };
enum Architecture { kSchoolbook = 2, kSquarer = 19 };

bool isSquare(const Signature& signature) { return signature.variant[kArchitecture] == kSquarer; }

void evaluateProduct(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  thread_local MPZ product, factor;
  readInteger(product, inputs[0], fixedPoint(signature.in[0]));
  if (isSquare(signature)) {
    mpz_mul(product.get(), product.get(), product.get());
  } else {
    readInteger(factor, inputs[1], fixedPoint(signature.in[1]));
    product *= factor;
  }
  results.resize(1);
  writeInteger(results[0], product, fixedPoint(signature.out[0]), precisions[0], roundings[0]);
}

Signal product(Builder& b, Signal x, bool xSigned, Signal y, bool ySigned) {
  if (!xSigned && !ySigned) return b.multiply(x, y);
  const int width = x.width + y.width;
  const Signal signedX = xSigned ? x : b.zeroExtend(x, x.width + 1);
  const Signal signedY = ySigned ? y : b.zeroExtend(y, y.width + 1);
  return b.slice(b.multiplySigned(signedX, signedY), 0, width);
}

std::vector<Signal> buildProduct(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const Signature& signature = request.signature;
  const Signal x = inputs[0];
  // A product of equal operands is what mapping folds into about half the tiles.
  if (isSquare(signature)) return {b.multiply(x, x)};
  return {product(b, x, fixedPoint(signature.in[0]).sign(), inputs[1],
                  fixedPoint(signature.in[1]).sign())};
}

std::optional<std::string> refuseProduct(const Request& request) {
  const auto architecture = request.signature.variant[kArchitecture];
  if (architecture != kSchoolbook && architecture != kSquarer) return "no unit yet";
  return inputWidthOutOfRange(request.signature, 1024);
}

constexpr UnitRow kRows[] = {{"DMFxPModularMult", evaluateProduct, buildProduct, refuseProduct}};

}  // namespace

std::span<const UnitRow> integerProductUnits() { return kRows; }

}  // namespace functions
