#include "backend/mapping/heap_lowering.h"

#include <algorithm>
#include <deque>
#include <vector>

namespace mapping {

using graph::Builder;
using graph::HeapTerm;
using graph::Signal;

namespace {

int topOf(const HeapTerm& term) { return term.shift + term.bits.width; }

// The bits of `term` from weight `low` up, as `width` bits.
Signal alignedTo(Builder& b, const HeapTerm& term, int low, int width) {
  return b.zeroExtend(b.shiftedUp(term.bits, term.shift - low), width);
}

// Two or three terms as one, as wide as their sum can get below weight 2^width.
HeapTerm sumOf(Builder& b, std::span<const HeapTerm> terms, int width) {
  const int low = std::ranges::min(terms, {}, &HeapTerm::shift).shift;
  const int growth = static_cast<int>(terms.size()) - 1;
  const int top = std::min(width, topOf(std::ranges::max(terms, {}, topOf)) + growth);
  const auto addend = [&](std::size_t i) { return alignedTo(b, terms[i], low, top - low); };
  const Signal sum = terms.size() == 2 ? b.add(addend(0), addend(1))
                                       : b.addThree(addend(0), addend(1), addend(2), b.bit(false));
  return {sum, low};
}

}  // namespace

Signal lowerHeap(Builder& builder, const device::Device&, const MappingOptions&,
                 std::span<const HeapTerm> terms, int width) {
  std::deque<HeapTerm> queue;
  for (const HeapTerm& term : terms) {
    if (term.bits.width == 0 || term.shift >= width) continue;
    const int kept = std::min(term.bits.width, width - term.shift);
    queue.push_back({builder.slice(term.bits, 0, kept), term.shift});
  }
  if (queue.empty()) return builder.zeros(width);
  // Sums go to the end of the queue, so that the additions form a balanced tree.
  while (queue.size() > 1) {
    const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(3, queue.size()));
    const std::vector<HeapTerm> addends(queue.begin(), queue.begin() + count);
    queue.erase(queue.begin(), queue.begin() + count);
    queue.push_back(sumOf(builder, addends, width));
  }
  return alignedTo(builder, queue.front(), 0, width);
}

}  // namespace mapping
