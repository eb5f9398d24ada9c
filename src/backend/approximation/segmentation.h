#pragma once

#include <cstddef>
#include <vector>

#include "backend/approximation/local_model.h"

namespace approximation {

// The reals (first + X) * 2^lsb for the integers 0 <= X < 2^bits.
struct ArgumentFormat {
  int bits = 0, lsb = 0;
  util::MPZ first = 0;
};

// How the values of an argument are shared among the rows of a table: its `topBits` highest bits
// choose a block, and the next splits[block] bits one of the block's equal segments.
//
// Rows stand in the order of falling splits, and of blocks where those are equal, so that the first
// row of each block is a multiple of its number of segments: a row's number is the block's first
// row with the segment's bits below.
struct Segmentation {
  int argumentBits = 0, topBits = 0;
  std::vector<int> splits;  // of each block

  static Segmentation uniform(int argumentBits, int topBits);
  bool isUniform() const;  // one segment a block: the row is the block
  int deepest() const;     // the greatest split
  int shallowest() const;
  std::size_t rows() const;
  int rowBits() const;
  // The first row of each block.
  std::vector<std::size_t> firstRows() const;

  // The centre of a segment is an argument, and t = X - centre lies in [-2^(logSize - 1),
  // 2^(logSize - 1) - 1].
  struct Segment {
    util::MPZ first;  // the least X
    int logSize = 0;  // 2^logSize values of X
    Span span(const ArgumentFormat& argument) const;
  };
  std::vector<Segment> segments() const;                                       // by row
  int widestSegment() const { return argumentBits - topBits - shallowest(); }  // its logSize

  bool operator==(const Segmentation&) const = default;
};

}  // namespace approximation
