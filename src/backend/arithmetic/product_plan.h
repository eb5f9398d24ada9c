#pragma once

#include <vector>

namespace arithmetic {

// What a product costs on a device: its DSP blocks in look-up tables, and how long a row of logic
// takes beside the time that a chain of them may.
struct ProductPrices {
  double lutPerDsp = 120;            // each of the first two blocks of a product
  double lutPerFurtherDsp = 280;     // each further one
  int dspWide = 24, dspNarrow = 17;  // unsigned factors of one block; signed ones have a bit more
  // Rows that a chain adds in one stage: as many as take stageTime, where the first one of w bits
  // takes rowEntry + w rowPerBit, with the tables before it, and each further one rowNext.
  double stageTime = 2900, rowEntry = 1280, rowPerBit = 28.2, rowNext = 1033;
  // Stages that a chain of rows may take beside blocks, which take as many; alone, where no
  // addition follows, one more.
  int chainStages = 2;
  int cascade = 2;  // blocks in a column that add up without logic

  bool isRowOfStage(int bits) const { return rowEntry + bits * rowPerBit <= stageTime; }
  int rowsOfStage(int bits) const {
    const double left = stageTime - rowEntry - bits * rowPerBit;
    return 1 + (left > 0 ? static_cast<int>(left / rowNext) : 0);
  }

  double priceOf(int blocks) const {
    return blocks <= 2 ? blocks * lutPerDsp : 2 * lutPerDsp + (blocks - 2) * lutPerFurtherDsp;
  }
};

// The factors of a product.
struct ProductShape {
  int x = 0, y = 0;  // bits
  bool xSigned = false, ySigned = false;
};

// How a product is made: in logic, or as a grid of blocks with strips beside it.
struct ProductPlan {
  // Logic: rows of one factor times digits of the other, `chainBits` of it in one chain of rows.
  bool digitsOfY = false;
  int chainBits = 0;
  // Blocks: `columns` times sizeX bits of x from below times `rows` times sizeY bits of y. What is
  // left of x on top times all of y is strips[0], what is left of y times the grid's x strips[1].
  int columns = 0, rows = 0, sizeX = 0, sizeY = 0;
  std::vector<ProductPlan> strips;

  double luts = 0;      // estimated, the additions that join the parts included
  double termBits = 0;  // bits of all parts' results
  int blocks = 0;

  bool isLogic() const { return blocks == 0 && chainBits > 0; }
  // Bits of a factor of `width` bits that `count` tiles of `size` bits take.
  static int covered(int count, int size, int width, bool isSigned);
};

// The cheapest plan for a product, where `taken` blocks are counted already.
//
// Candidates: all in logic; grids of any number of rows and columns of blocks set either way, each
// with strips that are planned by themselves. A row of digits costs a table a bit, and so does
// every bit by which the parts have more than the product. The estimate was held against
// synthesised products of 4 to 64 bits.
ProductPlan planProduct(const ProductShape& shape, const ProductPrices& prices, int taken = 0);

// The cheapest plan in logic alone.
ProductPlan planRows(const ProductShape& shape, const ProductPrices& prices);

// The plan's look-up tables and blocks in one number.
double priceOf(const ProductPlan& plan, const ProductPrices& prices);

}  // namespace arithmetic
