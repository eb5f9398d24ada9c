#include "backend/device/families.h"

namespace device {

namespace {

// TarnV, the yardstick: read off synthesised netlists and the delays of an open cell library for a
// part with six-input look-up tables, carry chains and 25x18 multipliers (tools/calibrate measures,
// measurements/ holds what it found and how far each figure is from it). Wires count as nothing
// there, so these are ranks that open tools can check, not promises about silicon. The route of
// 10 ps for each doubling of the readers is an allowance of our own, kept small: it adds less than
// a carry chain's bit to most clusters.
//   look-up tables  slowest pin by inputs used; trees and picks by the doubling of their inputs
//   additions       32, 64 and 128 bits 1784, 2696 and 4520; a third addend 404 more
//   comparisons     8, 32 and 64 bits 1190, 1555 and 1897
//   registers       clock to output 303, setup with an enable 109, of a clear 404
//   DSP             input setup 254 with a register at the wide operand and 324 at the narrow one,
//                   1416 with a product register and 2739 with an output register;
//                   output 1671 from the product register, 329 from the output register; product
//                   registers through the next block's adder to its pins 2900
//   memory          index setup 566; output 2454 from the read, 882 from an output register
constexpr Family kTarnV{
    .name = "TarnV",
    .calibrated = true,
    .lut = {0, 127, 238, 407, 472, 631, 642},
    .treePerDoubling = 375,
    .wideTable = 963,
    .wideParity = 1611,
    .threeLevels = 2138,
    .pickPerDoubling = 433,
    .tableOfEight = 1049,
    .tableOfNine = 1730,
    .tablePerInput = 515,
    .sumEntry = 872,
    .sumPerBit = 28.5,
    .thirdAddend = 404,
    .lessEntry = 1260,
    .lessPerBit = 10.5,
    .routePerDoubling = 10,
    .clockToOutput = 303,
    .setup = 109,
    .clearSetup = 404,
    .dsp = {25, 18},
    .dspProduct = 2739 - 109,
    .dspToRegister = 1416 - 109,
    .dspFromInnerRegister = 1671,
    .dspFromRegister = 329,
    .dspWideSetup = 254,
    .dspNarrowSetup = 324,
    .dspSum = 1230,
    .lutPerDsp = 120,
    .lutPerFurtherDsp = 280,
    .memoryBits = 18 * 1024,
    .memoryWidth = 36,
    .memoryToRegister = 566 - 109,
    .memoryFromRegister = 2454,
    .memoryFromOutput = 882,
    .lutPerMemory = 100,
    .registersPerLut = 2,
};

// A model of a family that was not measured: the yardstick's figures times `speed`, and the time
// `route` for the wires behind every look-up table and sum, which the yardstick does not count.
// Assumptions, stated as such in README and record: block shapes as usual in parts of the class and
// age, factors that spread the families from older and smaller to newer and larger ones.
struct Model {
  std::string_view name;
  double speed;
  double route;
  DspShape dsp;
  int memoryBits;
  int memoryWidth;
  bool hardFloat;
  bool hyperRegisters;
};

constexpr Family modelled(const Model& model) {
  Family family = kTarnV;
  family.name = model.name;
  family.calibrated = false;
  for (std::size_t inputs = 1; inputs < family.lut.size(); ++inputs)
    family.lut[inputs] = family.lut[inputs] * model.speed + model.route;
  for (double Family::*figure :
       {&Family::sumEntry, &Family::lessEntry, &Family::wideTable, &Family::wideParity,
        &Family::threeLevels, &Family::tableOfEight, &Family::tableOfNine})
    family.*figure = family.*figure * model.speed + model.route;
  for (double Family::*figure :
       {&Family::treePerDoubling, &Family::pickPerDoubling, &Family::tablePerInput})
    family.*figure = family.*figure * model.speed + model.route / 2;
  for (double Family::*figure :
       {&Family::sumPerBit, &Family::thirdAddend, &Family::lessPerBit, &Family::routePerDoubling,
        &Family::clockToOutput, &Family::setup, &Family::clearSetup, &Family::dspProduct,
        &Family::dspToRegister, &Family::dspFromInnerRegister, &Family::dspFromRegister,
        &Family::dspWideSetup, &Family::dspNarrowSetup, &Family::dspSum, &Family::memoryToRegister,
        &Family::memoryFromRegister, &Family::memoryFromOutput})
    family.*figure *= model.speed;
  family.dsp = model.dsp;
  family.memoryBits = model.memoryBits;
  family.memoryWidth = model.memoryWidth;
  family.hardFloat = model.hardFloat;
  family.hyperRegisters = model.hyperRegisters;
  return family;
}

constexpr Family kFamilies[] = {
    //         name        speed route DSP       memory block   hard float, hyper registers
    modelled({"Merrow10", 0.60, 130, {27, 27}, 20 * 1024, 40, true, false}),
    modelled({"Halvard10", 0.50, 100, {27, 27}, 20 * 1024, 40, true, true}),
    modelled({"MerrowV", 0.85, 180, {27, 27}, 10 * 1024, 40, false, false}),
    kTarnV,
    modelled({"TarnIVGX", 1.15, 250, {18, 18}, 9 * 1024, 36, false, false}),
    modelled({"HalvardIV", 0.90, 180, {18, 18}, 9 * 1024, 36, false, false}),
};

// The measured figures stand for the fastest grade; the others are a stated model.
constexpr SpeedGrade kSpeedGrades[] = {
    {1.00, {"fast", "1", "-1", "-6"}},
    {1.12, {"mid", "2", "-2", "-7"}},
    {1.25, {"slow", "3", "-3", "-8"}},
};

}  // namespace

std::span<const Family> families() { return kFamilies; }

std::span<const SpeedGrade> speedGrades() { return kSpeedGrades; }

}  // namespace device
