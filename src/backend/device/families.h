#pragma once

#include <span>
#include <string_view>

namespace device {

// The operands of the signed product that one DSP block multiplies; an unsigned product loses a bit
// of each.
struct DspShape {
  int wide = 0;
  int narrow = 0;
};

// One family's data. Delays in ps, at the middle speed grade unless the row says otherwise.
struct Family {
  std::string_view name;
  bool calibrated;  // figures measured, not modelled
  int lutInputs;
  double lut;          // through one look-up table, without its route
  double route;        // from a result to its readers, on average
  double carryEntry;   // onto a carry chain, first look-up table included
  double carryPerBit;  // along it
  double carryExit;    // off it, to the sum bit
  double clockToOutput;
  double setup;
  DspShape dsp;
  double dspProduct;  // operands to full product, no inner register
  int memoryBits;     // one memory block
  int memoryWidth;    // its widest word
  int registersPerLut;
  bool hardFloat;       // floating-point blocks
  bool hyperRegisters;  // registers in the routing
};

// All families, in the order in which messages list them.
std::span<const Family> families();

}  // namespace device
