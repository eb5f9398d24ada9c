#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backend/device/device.h"
#include "backend/device/families.h"
#include "backend/graph/builder.h"
#include "backend/schedule/checker.h"
#include "backend/schedule/schedule.h"

namespace schedule {

using device::Device;
using graph::Builder;
using graph::Graph;
using graph::NodeId;
using graph::Op;
using graph::Signal;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// A device of round numbers: gates take 100, sums 300, registers 50 before and 50 after a stage;
// a product 500, or 300 to the register inside its block and 200 from there; a memory block 100 to
// its register and 250 from there.
inline const device::Family& roundFamily() {
  static const device::Family family = [] {
    device::Family round;
    round.name = "Round";
    round.lut = {0, 100, 100, 100, 100, 100, 100};
    round.sumEntry = round.lessEntry = 300;
    round.clockToOutput = 50;
    round.setup = 50;
    round.dsp = {25, 18};
    round.dspProduct = 500;
    round.dspToRegister = 300;
    round.dspFromInnerRegister = 200;
    round.dspFromRegister = 60;
    round.tableOfEight = 200;
    round.memoryBits = 18 * 1024;
    round.memoryWidth = 36;
    round.memoryToRegister = 100;
    round.memoryFromRegister = 250;
    round.memoryFromOutput = 60;
    return round;
  }();
  return family;
}
inline const device::Device& roundDevice() {
  static const device::Device device(roundFamily(), "fast", 1);
  return device;
}
inline const Device& tarn() {
  return *device::deviceFactory.GetDevice("TarnV", "", "fast", "", "");
}

// The same with carries that take most of the time of a sum.
inline const device::Device& carryDevice() {
  static const device::Family family = [] {
    device::Family slow = roundFamily();
    slow.sumEntry = slow.lessEntry = 50;
    slow.sumPerBit = 60;
    slow.lessPerBit = 30;
    return slow;
  }();
  static const device::Device device(family, "fast", 1);
  return device;
}

// x of 8 bits moved up by the parity of all of them: takes 100 and is a cluster of its own.
inline graph::Signal shiftedParity(graph::Builder& b, graph::Signal x) {
  return b.concat({b.slice(x, 0, x.width - 1), b.reduceXor(x)});
}

inline Scheduled scheduled(const graph::Graph& graph, const ScheduleOptions& options,
                           const device::Device& device = roundDevice()) {
  const auto result = scheduleGraph(graph, device, options);
  EXPECT_TRUE(result) << (result ? "" : result.failure().message);
  return *result;
}

// What the checker says of a schedule.
inline std::string faultOf(const Graph& graph, const Schedule& schedule,
                           const ScheduleOptions& rules) {
  return analyseStages(graph, roundDevice(), schedule, rules).fault.value_or("");
}

}  // namespace schedule
