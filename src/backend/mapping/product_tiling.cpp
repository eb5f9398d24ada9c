#include "backend/mapping/product_tiling.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "backend/device/families.h"
#include "backend/mapping/heap_lowering.h"

namespace mapping {

using graph::Builder;
using graph::HeapTerm;
using graph::Signal;

namespace {

struct Piece {
  Signal bits;
  int shift = 0;
  bool isSigned = false;
};

// Cuts x into unsigned pieces of `size` bits from below; the top piece carries the sign, if any,
// and may then be a bit wider.
std::vector<Piece> piecesOf(Builder& b, Signal x, int size, bool isSigned) {
  std::vector<Piece> pieces;
  int low = 0;
  for (; x.width - low > size + (isSigned ? 1 : 0); low += size)
    pieces.push_back({b.slice(x, low, size), low, false});
  pieces.push_back({b.slice(x, low, x.width - low), low, isSigned});
  return pieces;
}

int tileCount(int width, int size, bool isSigned) {
  const int sign = isSigned ? 1 : 0;
  return std::max(1, (width - sign + size - 1) / size);
}

Signal tileProduct(Builder& b, const Piece& x, const Piece& y) {
  if (!x.isSigned && !y.isSigned) return b.multiply(x.bits, y.bits);
  const auto asSigned = [&](const Piece& piece) {
    return piece.isSigned ? piece.bits : b.zeroExtend(piece.bits, piece.bits.width + 1);
  };
  return b.multiplySigned(asSigned(x), asSigned(y));
}

}  // namespace

Signal lowerProduct(Builder& builder, const device::Device& device, const MappingOptions& options,
                    Signal a, Signal b, bool isSigned) {
  const device::DspShape shape = device.data().dsp;
  int sizeA = shape.wide - 1, sizeB = shape.narrow - 1;
  const auto tiles = [&](int first, int second) {
    return tileCount(a.width, first, isSigned) * tileCount(b.width, second, isSigned);
  };
  if (tiles(sizeB, sizeA) < tiles(sizeA, sizeB)) std::swap(sizeA, sizeB);
  if (tiles(sizeA, sizeB) <= 1)
    return isSigned ? builder.multiplySigned(a, b) : builder.multiply(a, b);

  const int width = a.width + b.width;
  std::vector<HeapTerm> terms;
  util::MPZ correction;
  for (const Piece& x : piecesOf(builder, a, sizeA, isSigned)) {
    for (const Piece& y : piecesOf(builder, b, sizeB, isSigned)) {
      Signal product = tileProduct(builder, x, y);
      const int shift = x.shift + y.shift;
      if (x.isSigned || y.isSigned) {
        // A sign bit weighs -2^k: its complement weighs 2^k beside a constant -2^k.
        const int sign = product.width - 1;
        product = builder.concat(
            {builder.bitNot(builder.topBit(product)), builder.slice(product, 0, sign)});
        correction -= util::MPZ::powerOfTwo(shift + sign);
      }
      terms.push_back({product, shift});
    }
  }
  terms.push_back({builder.literal(correction, width), 0});
  return lowerHeap(builder, device, options, terms, width);
}

}  // namespace mapping
