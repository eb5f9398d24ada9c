#pragma once

#include <array>
#include <span>
#include <string_view>

namespace device {

// The operands of the signed product that one DSP block multiplies; an unsigned product loses a bit
// of each.
struct DspShape {
  int wide = 0;
  int narrow = 0;
};

// One family's data. Delays are in ps, at speed grade "fast"; those of logic and carry chains
// contain the route to a single reader.
struct Family {
  std::string_view name;
  bool calibrated = false;  // figures measured, not modelled

  std::array<double, 7> lut{};  // through one look-up table, by the number of inputs it uses
  // A tree of tables over n > 6 bits takes lut[6] + treePerDoubling * log2(n / 6), but wideTable at
  // least, of more than 8 for a parity wideParity, of more than 64 threeLevels; a pick of n > 4
  // ways lut[6] + pickPerDoubling * log2(n / 4).
  double treePerDoubling = 0;
  double wideTable = 0;
  double wideParity = 0;
  double threeLevels = 0;
  double pickPerDoubling = 0;
  // A table of constants over 7 or 8 bits takes tableOfEight, over n > 8 bits tableOfNine +
  // tablePerInput * (n - 9).
  double tableOfEight = 0;
  double tableOfNine = 0;
  double tablePerInput = 0;
  double sumEntry = 0;  // an addition of w bits takes sumEntry + w * sumPerBit
  double sumPerBit = 0;
  double thirdAddend = 0;  // and this much more with three addends
  double lessEntry = 0;    // a comparison of w bits takes lessEntry + w * lessPerBit
  double lessPerBit = 0;
  double routePerDoubling = 0;  // for each doubling of the readers of a bit, up to kMostReaders
  double clockToOutput = 0;     // what a stage pays at its start
  double setup = 0;             // and at its end
  double clearSetup = 0;        // the same before a register's clear

  DspShape dsp;
  double dspProduct = 0;            // operands to product, no inner register
  double dspToRegister = 0;         // operands to the register inside the block, its setup excluded
  double dspFromInnerRegister = 0;  // from there to the product's pins
  double dspFromRegister = 0;       // the same with a second register at the pins
  double dspWideSetup = 0;          // of a register inside at the wide operand, and at the narrow
  double dspNarrowSetup = 0;
  double dspSum = 0;            // from a product's pins through the adder of the next block
  double lutPerDsp = 0;         // look-up tables that each of a product's first two is worth
  double lutPerFurtherDsp = 0;  // and each further one

  int memoryBits = 0;             // of one memory block
  int memoryWidth = 0;            // its widest word
  double memoryToRegister = 0;    // index to the register inside, its setup excluded
  double memoryFromRegister = 0;  // from there to the word
  double memoryFromOutput = 0;    // the same with a second register at the pins
  double lutPerMemory = 0;        // look-up tables that a block is worth
  int registersPerLut = 1;
  bool hardFloat = false;       // floating-point blocks
  bool hyperRegisters = false;  // registers in the routing

  // Beyond that many readers a tool copies the driver.
  static constexpr int kMostReaders = 64;

  int lutInputs() const { return static_cast<int>(lut.size()) - 1; }
};

// All families, in the order in which messages list them.
std::span<const Family> families();

// One speed grade: the factor on all delays, and the names it goes by, the first one its own.
struct SpeedGrade {
  double factor;
  std::array<std::string_view, 4> names;
};
std::span<const SpeedGrade> speedGrades();

}  // namespace device
