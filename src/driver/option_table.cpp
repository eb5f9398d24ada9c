#include "driver/option_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "driver/option_actions.h"
#include "util/strings.h"

namespace driver {

namespace {

using enum Reach;
constexpr std::string_view kFaithful = "    Faithful rounding constraint detected \n";

constexpr OptionRow kRows[] = {
    {"-target", "family", kDevice, setText<&RunState::targetFamily>},
    {"-speedgrade", "grade", kDevice, setText<&RunState::speedGrade>},
    {"-part", "part", kDevice, setText<&RunState::partName>},
    {"-frequency", "MHz", kDevice, setFrequency},
    {"-pipelining", "type", kUnit, setPipelining},
    {"-constrainLatency", "cycles", kLine, setNumber<&RunState::latencyConstraint>},
    {"-forceRegisters", "k", kUnit, setLabel<floatOption::overrideHardFPRegisters>},
    {"-evaluateAccuracy", "stimuli responses", kLine, setAccuracyFiles},
    {"-name", "name", kUnit, setName},
    {"-enable", "", kUnit, setEnable},
    {"-dontCareOnReset", "", kLine, raise<&RunState::dontCareOnReset>},
    {"-splitOutputPorts", "", kUnit, raiseLabel<CSynthSingleEntity::optionSplitOutputPorts>},
    {"-useDSPForAlignment", "", kUnit, raiseLabel<synthOption::useDSPForAlignment>},
    {"-noFileGenerate", "", kLine, clear<&RunState::generateFiles>},
    {"-printMachineReadable", "", kLine, raise<&RunState::printMachineReadable>},
    {"-wrapper", "", kUnit, setWrapper<kWrapperBoth>},
    {"-wrapperIn", "", kUnit, setWrapper<kWrapperIn>},
    {"-wrapperOut", "", kUnit, setWrapper<kWrapperOut>},
    {"-setIntegerTESSELFeature", "feature value", kUnit, setIntegerFeature},
    {"-setStringTESSELFeature", "feature value", kUnit, setStringFeature},
    {"-debug", "", kUnit, setDebug, "    Debug pipelining enabled! \n"},
    {"-label", "label", kLine, ignore},
    {"-base2stimuli", "", kLine, setBase2Stimuli<true>},
    {"-intStimuli", "", kLine, setBase2Stimuli<false>},
    {"-correctRounding", "", kUnit, setCorrectRounding,
     "    Correct rounding constraint detected \n"},
    {"-subcomponents", "", kUnit, raiseLabel<synthOption::subcomponents>,
     "    Subcomponents will be used for basic operations.\n"},
    {"-faithfulRounding", "", kUnit, setFaithfulRounding, kFaithful},
    {"-error", "u", kUnit, addErrorBound, kFaithful},
    {"-errors", "c", kUnit, addErrorBounds, kFaithful, "u"},
    {"-roundType", "r", kUnit, setRoundType},
    {"-kiln", "", kLine, setKiln, "    Enabling the KILN flow from cmdGauge (Prototype) \n"},
    {"-hardFPAddLatency", "cycles", kUnit, setHardFPAddLatency},
    {"-hardFPMultLatency", "cycles", kUnit, setHardFPMultLatency},
    {"-hardFPMultAddLatency", "cycles", kUnit, setHardFPMultAddLatency},
    {"-testbench", "N", kLine, setTestbench},
    {"-vsimToFile", "", kUnit, setVsimToFile,
     "    Will generate the code for vsim to output the results to file\n"},
    {"-simulateHardFP", "", kUnit, raiseLabel<floatOption::simulateHardFP>,
     "    HardFP Simulation (not good for performance) is enabled \n"},
    {"-enableHardFP", "e", kUnit, setEnableHardFP},
    {"-fuseCoefTables", "", kUnit, raiseLabel<DMFxPTableGenerator::optionFuseCoefTables>,
     "    Enables width stitching of polyonmial approx. coeff tables; \n"},
    {"-expRange", "eMin eMax", kLine, setExponentRange},
    {"-valRangeB", "valMin valMax", kLine, setBinaryRange},
    {"-valRange", "valMin valMax", kLine, setDecimalRange},
    {"-injectTestVector", "n", kLine, setInjectedVector, "", "v"},
    {"-genNaN", "v", kLine, setGenNaN},
    {"-genInf", "v", kLine, setGenInf},
    {"-subnormals", "v", kUnit, setSubnormals},
    {"-positiveStimuli", "", kLine, raiseTest<&TestingOptions::positiveStimuli>,
     "        Positive stimuli detected\n"},
    {"-negativeStimuli", "", kLine, raiseTest<&TestingOptions::negativeStimuli>,
     "        Negative stimuli detected\n"},
    {"-specialCaseTests", "", kLine, raiseTest<&TestingOptions::specialCaseTests>,
     "        Will generate test vectors which have floating-point special values\n"},
    {"-cancellationTests", "", kLine, raiseTest<&TestingOptions::cancellationTests>,
     "        Will generate test vectors produce cancellations \n"},
    {"-nearInfinityTests", "", kLine, raiseTest<&TestingOptions::nearInfinityTests>,
     "        Will generate test vectors which test the regions around largest FP, +infinity \n"},
    {"-nearZeroTests", "", kLine, raiseTest<&TestingOptions::nearZeroTests>,
     "        Will generate test vectors which test the regions around smallest FP, -infinity \n"},
    {"-handTesting", "", kLine, raiseTest<&TestingOptions::handTesting>,
     "        Will generate test vectors hand selected \n"},
    {"-randomTests", "", kLine, raiseTest<&TestingOptions::randomTests>,
     "        Will generate random test vectors \n"},
    {"-exhaustiveTests", "", kLine, raiseTest<&TestingOptions::exhaustiveTests>,
     "        Will generate exhaustive test vectors \n"},
    {"-piTesting", "n w", kLine, setPiTesting},
    {"-noChanValid", "", kLine, raiseTest<&TestingOptions::noChanValid>,
     "        Will not generate valid and channel signals \n"},
    {"-qnan", "", kLine, setQuietNaN, "        Will generate quiet NaN signals \n"},
    {"-noTruncMult", "", kUnit, raiseLabel<CFxPTruncMult::optionNoTruncMult>,
     "        Will disable truncated multipliers\n"},
    {"-allTests", "", kLine, setAllTests, "        Will generate all possible test vectors \n"},
    {"-testOutputType", "N", kLine, setTestOutputType,
     "        Will generate the corresponding output test type\n"},
    {"-useExecuteModel", "", kLine, raiseTest<&TestingOptions::useExecuteModel>},
    {"-generateCSimulationModel", "", kLine, raiseTest<&TestingOptions::generateCSimulationModel>},
    {"-lang", "language", kLine, setLanguage},
    {"-generateFathomProject", "", kLine, raise<&RunState::generateProject>,
     "        Will generate a Fathom project\n"},
    {"-verbose", "level", kUnit, setVerbosity},
    {"-preserveEntityName", "", kUnit, setPreserveEntityName,
     "        Will not shorten top-level entity name\n"},
    {"-setLUTMULTRatio", "n", kUnit, setLutMultRatio},
};

}  // namespace

std::span<const OptionRow> optionRows() { return kRows; }

const OptionRow* findOption(const std::string& word) {
  const auto found = std::ranges::find_if(kRows, [&](const OptionRow& row) {
    return util::caseInsensitiveEquals(word, std::string(row.name));
  });
  return found == std::end(kRows) ? nullptr : &*found;
}

std::size_t applyOption(const OptionRow& row, RunState& run, util::Words behind) {
  const std::string name(row.name);
  if (auto failure = util::missingWords(name, row.parameters, behind)) util::exitWith(*failure);
  std::size_t count = util::countNames(row.parameters);
  if (!row.repeated.empty()) {
    const int values = std::max(0, util::integerOf(behind[0]));
    if (behind.size() - count < static_cast<std::size_t>(values))
      util::exitWith({fmt::format("{}: the line ends before {}{} ({} values were announced)", name,
                                  row.repeated, behind.size() - count + 1, values)});
    count += values;
  }
  row.action(run, behind.first(count));
  if (!row.printed.empty()) std::fwrite(row.printed.data(), 1, row.printed.size(), stdout);
  return count;
}

}  // namespace driver
