#include "driver/report.h"

#include <cstdio>

namespace driver {

namespace {

using tessel_api::ResourceUsage;

// Cycles from the input side to each output side, which is told line by line.
std::vector<int> reportOutputLatencies(const CSynthSingleEntity& model) {
  const int start = model.inputSide().get_tStep();
  std::vector<int> latencies;
  for (const CChannelUnit* side : model.outputSides()) {
    const int latency = side->get_tStep() - start;
    std::printf(" latency port %d is %d \n", static_cast<int>(latencies.size()), latency);
    latencies.push_back(latency);
  }
  return latencies;
}

const char* roundingName(const TestingOptions& testing) {
  constexpr const char* kNames[] = {"RNE", "RD", "RU", "RZ"};
  const bool isCorrect = !testing.faithfulRounding && testing.errorBounds.front() == 0.5F;
  return isCorrect ? kNames[testing.roundType] : "NA";
}

void printPort(const char* side, int k, const kiln::Type& type) {
  if (const kiln::FixedPoint* fixed = type.as_fixed_point()) {
    std::printf("@%s %d fxp %d %d %d@\n", side, k, fixed->width(), fixed->fraction(),
                fixed->sign());
  } else if (const kiln::FloatingPoint* lib = type.as_fp_lib()) {
    std::printf("@%s %d fplib %d %d@\n", side, k, lib->exp, lib->frac);
  } else if (const kiln::FloatingPoint* ieee = type.as_floating_point()) {
    std::printf("@%s %d fpieee %d %d@\n", side, k, ieee->exp, ieee->frac);
  }
}

void printPorts(const char* side, const PortSpecList& ports) {
  int k = 0;
  for (const PortSpec& port : ports) printPort(side, k++, port.type);
}

void printTests(const RunState& run) {
  const TestingOptions& testing = run.testing;
  if (testing.testCount <= 0) return;
  if (testing.randomTests) std::printf("@test random %d@\n", testing.testCount);
  if (testing.exhaustiveTests) std::printf("@test exhaustive@\n");
  if (testing.valRangeMin <= testing.valRangeMax)
    std::printf("@valrange %s %s@\n", run.valLowText.c_str(), run.valHighText.c_str());
  if (testing.expRangeMin <= testing.expRangeMax)
    std::printf("@exprange %d %d@\n", testing.expRangeMin, testing.expRangeMax);
}

void printMachineReadable(const RunState& run, const ResourceUsage& usage, int latency) {
  std::printf("@@start\n");
  std::printf("@name %s@\n", run.component.c_str());
  std::printf("@latency %d@\n", latency);
  std::printf("@LUT %d@\n", usage.get(ResourceUsage::kLut));
  std::printf("@DSP %d@\n", usage.get(ResourceUsage::kDsp));
  std::printf("@RAMBits %d@\n", usage.get(ResourceUsage::kRamBit));
  std::printf("@RAMBlockUsage %d@\n", usage.get(ResourceUsage::kRamBlock));
  std::printf("@enable %d@\n", run.testing.enable);
  std::printf("@subnormals %d@\n", run.testing.subnormals);
  std::printf("@error %1.2f@\n", run.testing.errorBounds.front());
  std::printf("@rounding %s@\n", roundingName(run.testing));
  std::printf("@method %s@\n", run.method.c_str());
  printPorts("inPort", run.inputs);
  printPorts("outPort", run.outputs);
  printTests(run);
  std::printf("@nochanvalid %d@\n", run.testing.noChanValid);
  std::printf("@@end\n");
}

}  // namespace

int reportResults(RunState& run) {
  const CSynthSingleEntity& model = *run.built.model;
  const ResourceUsage usage = model.GetResourceUsage();
  std::printf("Estimated resources LUTs %d, DSPs %d, RAMBits %d, RAMBlocks %d \n",
              usage.get(ResourceUsage::kLut), usage.get(ResourceUsage::kDsp),
              usage.get(ResourceUsage::kRamBit), usage.get(ResourceUsage::kRamBlock));
  const int latency = model.inputToOutputLatency(true, nullptr);
  if (model.getOptionValue(CSynthSingleEntity::optionSplitOutputPorts)) {
    std::printf("Enhanced latency reporting mechanism: %d\n", latency);
    run.testing.outLatency = reportOutputLatencies(model);
  } else {
    std::printf("The pipeline depth of the block is %d cycle(s)\n", latency);
  }
  if (run.printMachineReadable) printMachineReadable(run, usage, latency);
  return latency;
}

}  // namespace driver
