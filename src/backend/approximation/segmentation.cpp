#include "backend/approximation/segmentation.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace approximation {

namespace {

// Blocks in the order of their rows.
std::vector<std::size_t> orderOf(const std::vector<int>& splits) {
  std::vector<std::size_t> order(splits.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::stable_sort(order, std::greater<>(),
                           [&](std::size_t block) { return splits[block]; });
  return order;
}

}  // namespace

Segmentation Segmentation::uniform(int argumentBits, int topBits) {
  return {argumentBits, topBits, std::vector<int>(std::size_t{1} << topBits, 0)};
}
bool Segmentation::isUniform() const { return deepest() == 0; }
int Segmentation::deepest() const { return *std::ranges::max_element(splits); }
int Segmentation::shallowest() const { return *std::ranges::min_element(splits); }

std::size_t Segmentation::rows() const {
  std::size_t count = 0;
  for (const int split : splits) count += std::size_t{1} << split;
  return count;
}
int Segmentation::rowBits() const { return std::bit_width(rows() - 1); }

std::vector<std::size_t> Segmentation::firstRows() const {
  std::vector<std::size_t> first(splits.size());
  std::size_t row = 0;
  for (const std::size_t block : orderOf(splits)) {
    first[block] = row;
    row += std::size_t{1} << splits[block];
  }
  return first;
}

Span Segmentation::Segment::span(const ArgumentFormat& argument) const {
  const util::MPZ low = argument.first + first;
  // A segment of one value has its neighbourhood of half a unit.
  if (logSize == 0) return {low, argument.lsb, argument.lsb - 1};
  return {low + util::MPZ::powerOfTwo(static_cast<unsigned long>(logSize - 1)), argument.lsb,
          logSize - 1 + argument.lsb};
}

std::vector<Segmentation::Segment> Segmentation::segments() const {
  std::vector<Segment> result;
  for (const std::size_t block : orderOf(splits)) {
    const int logSize = argumentBits - topBits - splits[block];
    for (std::size_t i = 0; i < std::size_t{1} << splits[block]; ++i) {
      const util::MPZ number = (util::MPZ(static_cast<unsigned long>(block))
                                << static_cast<unsigned long>(splits[block])) +
                               util::MPZ(static_cast<unsigned long>(i));
      result.push_back({number << static_cast<unsigned long>(logSize), logSize});
    }
  }
  return result;
}

}  // namespace approximation
