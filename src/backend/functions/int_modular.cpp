#include "backend/functions/int_modular.h"

#include <algorithm>

#include "backend/functions/int_product.h"
#include "backend/functions/integer_values.h"

namespace functions {

using graph::Builder;
using graph::HeapTerm;
using graph::Signal;
using util::MPZ;

namespace {

void evaluateBarrett(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool) {
  const FullExponentRange range;
  const kiln::FixedPoint& out = fixedPoint(signature.out[0]);
  thread_local MPZ residue, factor, modulus;
  readInteger(residue, inputs[0], fixedPoint(signature.in[0]));
  readInteger(factor, inputs[1], fixedPoint(signature.in[1]));
  readInteger(modulus, inputs[2], fixedPoint(signature.in[2]));
  if (modulus.isZero()) {
    residue = MPZ::allOnes(out.width());
  } else {
    residue *= factor;
    mpz_fdiv_r(residue.get(), residue.get(), modulus.get());
  }
  results.resize(1);
  writeInteger(results[0], residue, out, precisions[0], roundings[0]);
}

// x y in rectangles that one block computes each, so that single ones can be left out.
class Tiles {
 public:
  Tiles(Signal x, Signal y, Shape shape) : x(x), y(y) {
    for (int lowX = 0; lowX < x.width; lowX += shape.width)
      for (int lowY = 0; lowY < y.width; lowY += shape.depth)
        tiles.push_back({lowX, std::min(shape.width, x.width - lowX), lowY,
                         std::min(shape.depth, y.width - lowY)});
  }

  // Leaves out what says nothing modulo 2^width.
  void keepBelow(int width) {
    std::erase_if(tiles, [&](const Tile& tile) { return tile.shift() >= width; });
    for (Tile& tile : tiles) {
      tile.widthX = std::min(tile.widthX, width - tile.shift());
      tile.widthY = std::min(tile.widthY, width - tile.shift());
    }
  }

  // Leaves out the lowest tiles, as many as together are at most `bound`; says whether any were.
  bool dropUpTo(const MPZ& bound) {
    std::ranges::stable_sort(tiles, {}, &Tile::top);
    MPZ dropped;
    std::size_t count = 0;
    for (; count < tiles.size(); ++count) {
      dropped += tiles[count].largest();
      if (dropped > bound) break;
    }
    tiles.erase(tiles.begin(), tiles.begin() + static_cast<std::ptrdiff_t>(count));
    return count > 0;
  }

  void addTo(Builder& b, std::vector<HeapTerm>& terms) const {
    for (const Tile& tile : tiles)
      terms.push_back(
          {b.multiply(b.slice(x, tile.lowX, tile.widthX), b.slice(y, tile.lowY, tile.widthY)),
           tile.shift()});
  }

 private:
  struct Tile {
    int lowX, widthX, lowY, widthY;
    int shift() const { return lowX + lowY; }
    int top() const { return shift() + widthX + widthY; }
    MPZ largest() const {
      return MPZ::allOnes(widthX) * MPZ::allOnes(widthY) << static_cast<unsigned long>(shift());
    }
  };

  Signal x, y;
  std::vector<Tile> tiles;
};

// floor(p / z) less at most 3, never more, of w + 1 bits, for p < 4^w.
//
// With h = floor(p / 2^(w-g)) and g = 0 or 1, the quotient is q = floor((h v - e) / 2^(w+g)), where
// e is what the tiles left out hold: at most 2^(w+1) for g = 1, none for g = 0. Then p / z - q is
//   ((p / 2^(w-g) - h) 4^w / z  +  h (4^w / z - v)  +  e) / 2^(w+g)  +  what floor cuts off.
// The first term is below 2^(1-g), for z >= 2^(w-1); the second below 1, for h < 2^(w+g) and
// 0 <= 4^w / z - v <= 1, also where v stands one below its 2^(w+1); the third at most g; the last
// below 1. All are non-negative, and both sums end at 4: 0 <= p - q z < 4 z. Barrett, CRYPTO 1986
// (Handbook of Applied Cryptography, 14.42), whose constants allow for two corrections, too.
Signal quotient(Builder& b, Signal p, Signal v, Shape dsp) {
  const auto scope = b.scope("quotient");
  const int w = v.width - 1;
  // v is 2^w and its low bits; the second bit of h, for g = 1, makes one row beside the tiles.
  const Signal low = b.slice(v, 0, w), aboveHalf = b.slice(p, w - 1, w);
  Tiles shortened(aboveHalf, low, dsp);
  std::vector<HeapTerm> terms;
  int g = 0;
  if (shortened.dropUpTo(MPZ::powerOfTwo(w + 1))) {
    g = 1;
    const Signal top = b.topBit(p);
    terms = {{b.slice(p, w - 1, w + 1), w}, {b.bitAnd(low, b.replicate(top, w)), w}};
    shortened.addTo(b, terms);
  } else {
    const Signal h = b.slice(p, w, w);
    terms = {{h, w}, {b.multiply(h, low), 0}};
  }
  const int width = 2 * w + g + 1;
  return b.slice(b.heap(terms, width), w + g, w + 1);
}

// x - y when that is not negative, else x; of `width` bits, in which the result fits.
Signal subtractIfFits(Builder& b, Signal x, Signal y, int width) {
  const int wide = std::max(x.width, y.width) + 1;
  const Signal difference = b.subtract(b.zeroExtend(x, wide), b.zeroExtend(y, wide));
  return b.select(b.topBit(difference), b.slice(x, 0, width), b.slice(difference, 0, width));
}

std::vector<Signal> buildBarrett(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const Shape dsp = request.prices.dsp;
  const Signal z = inputs[2], v = inputs[3];
  const int w = z.width;
  Signal product;
  {
    const auto scope = b.scope("product");
    product = b.multiply(inputs[0], inputs[1]);
  }
  const Signal q = quotient(b, product, v, dsp);
  Signal rest;  // p - q z, below 4 z: its low w + 2 bits are all
  {
    const auto scope = b.scope("remainder");
    Tiles tiles(q, z, dsp);
    tiles.keepBelow(w + 2);
    // p - q z = ~(~p + q z), one sum.
    std::vector<HeapTerm> terms{{b.bitNot(b.zeroExtend(product, w + 2)), 0}};
    tiles.addTo(b, terms);
    rest = b.bitNot(b.heap(terms, w + 2));
  }
  const auto scope = b.scope("correction");
  return {subtractIfFits(b, subtractIfFits(b, rest, b.shiftedUp(z, 1), w + 1), z, w)};
}

std::optional<std::string> refuseBarrett(const Request& request) {
  return inputWidthOutOfRange(Signature{{request.signature.in[2]}, {}, {}}, 1024);
}

struct ArchitectureRow {
  std::int64_t architecture;
  UnitRow unit;
};

constexpr std::string_view kUnit = "DMFxPModularMult";

const ArchitectureRow kBarrett{14, {kUnit, evaluateBarrett, buildBarrett, refuseBarrett}};

// The unit behind the architecture; what is none of a modulus is a product.
const UnitRow& unitOf(const Signature& signature) {
  if (signature.variant[0] == kBarrett.architecture) return kBarrett.unit;
  return integerProductUnits()[0];
}

void evaluate(const Signature& signature, std::vector<NumValue>& results,
              const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
              const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  unitOf(signature).evaluate(signature, results, inputs, precisions, roundings, subnormals);
}

std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  return unitOf(request.signature).decompose(b, request, inputs);
}

std::optional<std::string> refuses(const Request& request) {
  return unitOf(request.signature).refuses(request);
}

constexpr UnitRow kRows[] = {{kUnit, evaluate, decompose, refuses}};

}  // namespace

std::span<const UnitRow> modularUnits() { return kRows; }

}  // namespace functions
