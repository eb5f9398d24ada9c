#include "driver/usage_text.h"

#include <cstdio>
#include <sstream>

#include "util/strings.h"

namespace driver {

// clang-format off
const std::string_view kUsageOptions =
    " Supported options: \n"
    "    -kiln\n"
    "        /-> NYA enables the KILN flow for generating components; options needs to go first\n"
    "    -subcomponents\n"
    "    Arithmetic: \n"
    "        -correctRounding\n"
    "        -faithfulRounding\n"
    "        -error u\n"
    "            u the number of ulps of error acceptable\n"
    "        -errors c u0 u1 u2 ...\n"
    "            c the number of outputs \n"
    "            uN the number of ulps of error acceptable for out N\n"
    "        -roundType r\n"
    "            r r=0 RN, r=1 RD, r=2 RU, r=4 RZ\n"
    "        -enableHardFP e\n"
    "            /-> e is either 0 (disable use of FP macros on M10/H10) or 1/ use if available; \n"
    "                default setting in true (1) \n"
    "    Deployment: \n"
    "        -splitOutputPorts\n"
    "            /-> each output port of the unit will have its own latency \n"
    "        -fuseCoefTables\n"
    "            /-> enables width stitching of polynomial approx. coefficient tables\n"
    "        -target <Device Family>\n"
    "                   e.g. MerrowV, TarnIVGX, HalvardIV\n"
    "        -speedgrade S\n"
    "        -frequency MHz\n"
    "        -pipelining type\n"
    "            type = 0 -> combinatorial \n"
    "                 | 1 -> subcycle DAG-based \n"
    "                 | 2 -> subcycle DAG-based gen2 \n"
    "                 | 3 -> large granularity (no subcycle - old way) \n"
    "                 | 4 -> combined scheduler \n"
    "        -forceRegisters k\n"
    "            k = binary encoding of enabled register stage (MSB input, LSB output)\n"
    "                for FPMul 1 1 1 = 7 (enable all registers)\n"
    "                for FPMul 0 0 1 = 1 (enable only the output register)\n"
    "        -constrainLatency cycles\n"
    "            /-> specify the input to output latency\n"
    "            /-> the latency constraint will be applied to all input to output pairs\n"
    "        -name N\n"
    "        -enable (generates global enable signal)\n"
    "        -dontcareonreset\n"
    "        -wrapper\n"
    "        -wrapperIn\n"
    "        -wrapperOut\n"
    "        -qnan\n"
    "        -noTruncMult\n"
    "        -useDSPForAlignment\n"
    "            the alignment stage in floating-point addition requiring a right shift (with sticky) will use DSPs \n"
    "        -preserveEntityName\n"
    "            do not shorten the top-level entity name no matter how long it is \n"
    "    Testing: \n"
    "        -testOutputType N\n"
    "            0 - BINARY; 1 - HEX; 2 - SIGNED; (BINARY ONLY SUPPORTED) \n"
    "        -testbench N\n"
    "            /-> a testbench of N test cases is generated \n"
    "        -allTests\n"
    "        -expRange eMin eMax\n"
    "            /-> the stimuli are generated in the eMin eMax range \n"
    "        -valRange valMin valMax\n"
    "            /-> the stimuli are generated in the valMin valMax range \n"
    "        -valRangeB valMin valMax\n"
    "            /-> same as valRange but inputs in binary \n"
    "        -injectTestVector n v(0) ... v(n-1)\n"
    "            /-> n number of elements \n"
    "        -genNaN v\n"
    "        -submormals\n"
    "            /-> v=0 => don't, v=1 do \n"
    "        -genInf v\n"
    "            /-> v=0 => don't, v=1 do \n"
    "        -positiveStimuli\n"
    "            /-> the stimuli are positive\n"
    "        -negativeStimuli\n"
    "            /-> the stimuli are negative\n"
    "        -specialCaseTests\n"
    "            /-> the floating-point special values are automatically generated \n"
    "        -cancellationTests\n"
    "            /-> test addition for cancellations \n"
    "        -nearInfinityTests\n"
    "            /-> tests close to the max FP number \n"
    "        -nearZeroTests\n"
    "            /-> tests close to the min FP number \n"
    "        -handTesting\n"
    "            /-> runs the associated hand built test vectors \n"
    "        -randomTests\n"
    "            /-> runs the test bench with N test vectors (N is an input to -testbench)\n"
    "        -exhaustiveTests\n"
    "            /-> runs the full combination of inputs (warning: can take quite long) \n"
    "            /-> for fixed-point, can be used in combination with valRange \n"
    "            /-> for floating-point, can be used in combination with expRange \n"
    "        -piTesting n w\n"
    "            /-> runs tests around the k*(pi/2) regions, where k=[0,n-1]. 1024 values are tested around each value\n"
    "            /-> the number of values around each multiple is 2*w\n"
    "        -simulateHardFP\n"
    "            /-> temporary solution for enabling the simulation of cores built using hard fp primitives\n"
    "        -noChanValid\n"
    "            no channel and valid data are generated in the stimuli and response files\n"
    "        -noFileGenerate\n"
    "            Do not write out any files\n"
    "        -printMachineReadable\n"
    "            Print information such as latency in the following machine readable format:\n"
    "            @@start\n"
    "            @filed1_name field1_value@\n"
    "            @filed2_name field2_value@\n"
    "            @@end\n"
    "        -useExecuteModel\n"
    "            /-> Test the Tessel Execute() model\n"
    "        -generateCSimulationModel\n"
    "            /-> Generate a C++ simulation model\n"
    "        -generateFathomProject\n"
    "            /-> Creates a Fathom project for this unit \n"
    "        -vsimToFile\n"
    "            /-> will generate the code to write out to a file the output of modelsim \n"
    "        -evaluateAccuracy f_in.stm f_out.stm.sim\n"
    "            /-> all other arguments must be identical to ones used to generate the initial core (except -testbench) \n";
// clang-format on

bool isInUsage(const std::string& word) {
  std::istringstream lines{std::string(kUsageComponents)};
  for (std::string line; std::getline(lines, line);) {
    const std::size_t indent = line.find_first_not_of(' ');
    if (indent != 8 && indent != 12) continue;  // deeper lines explain the entry above them
    if (util::caseInsensitiveEquals(line.substr(indent, line.find(' ', indent) - indent), word))
      return true;
  }
  return false;
}

void printHelp() {
  for (std::string_view text : {kUsageComponents, kUsageOptions})
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace driver
