#include "driver/classic_flow.h"

#include <fmt/format.h>

#include <cstdio>

#include "accuracy/evaluate_accuracy.h"
#include "backend/kiln/attributes.h"
#include "driver/report.h"
#include "driver/run_state.h"
#include "driver/test_checks.h"
#include "driver/usage_text.h"
#include "driver/walk.h"
#include "util/failure.h"
#include "util/features.h"
#include "vectors/population.h"

namespace driver {

namespace {

constexpr double kStartUpMHz = 400.0;

void startUp(RunState& run, util::Words line) {
  std::printf("starting execution ... \n");
  CModelOptions& options = run.modelOptions;
  options.setBridgeDesign(std::make_shared<kiln::Design>(kiln::ContextMgr::get()));
  std::printf("build model options ... \n");
  options.setOptionValue(floatOption::faithfulRes, 1);
  run.testing.faithfulRounding = true;
  // Options may ask for a device before the operator has chosen one.
  run.device = run.startUpDevice =
      device::deviceFactory.GetDevice("Merrow 10", "", "fast", "Auto", "");
  run.device->SetSystemSettings(kStartUpMHz, -1, -1, -1);
  options.device = run.device;
  options.language = run.device->toSupportedLanguage(run.language);
  std::printf("argc=%d\n", static_cast<int>(line.size()));
  if (line.size() == 1) printHelp();
  options.base2Stimuli = true;
  options.setOptionValue(synthOption::rigorousTesting, 1);
  options.clockFrequency = kStartUpMHz;
  options.synthesisOnly = true;
  options.commandLine = util::joined(line.subspan(line.empty() ? 0 : 1));
  util::SetFeatureBoolean("allInputsAreScheduleOrigin", true);
  std::printf("Generation context:\n");
}

// One bound for each output: the default of the rounding asked for, or the first one given.
void completeErrorBounds(RunState& run) {
  std::vector<float>& bounds = run.testing.errorBounds;
  const float first = !bounds.empty() ? bounds.front() : run.testing.faithfulRounding ? 1.0F : 0.5F;
  if (bounds.size() < run.outputs.size()) bounds.resize(run.outputs.size(), first);
  std::vector<float>& ofOptions = run.modelOptions.outputErrors;
  if (ofOptions.size() != bounds.size() && !bounds.empty())
    ofOptions.insert(ofOptions.end(), bounds.begin(), bounds.end());
  run.modelOptions.unitSettings.errorBounds = bounds;  // the bench counts columns by them
}

// Ends the run with one line, before anything is written, when it asks for what this version lacks.
void refuseUnavailable(const RunState& run) {
  const bool split = run.built.model->getOptionValue(CSynthSingleEntity::optionSplitOutputPorts);
  if (run.evaluateAccuracy && split)
    util::exitWith(
        {"-evaluateAccuracy: reads one result file; -splitOutputPorts makes one for each output"});
  if (run.evaluateAccuracy && (run.operatorType == FPMULTACC || run.operatorType == FPFOLDEDALU))
    util::exitWith({fmt::format("-evaluateAccuracy: the results of {} depend on more than one row",
                                run.operatorWord)});
}

void constrainLatency(RunState& run) {
  if (run.latencyConstraint < 0) return;
  if (run.built.model->getOptionValue(CSynthSingleEntity::optionSplitOutputPorts))
    std::printf(
        "Warning: Both -constrainLatency and -splitOutputPorts are specified.\n"
        "         These two options contradict, all outputs will be constrained to the same "
        "latency.\n");
  kiln::Node* bridgeModelPtr = run.built.model->getBridgeModel();
  LOAM_ASSERT(bridgeModelPtr != nullptr, "the model has no bridge model");
  kiln::Node& node = *bridgeModelPtr;
  node[kiln::A_SYNTH_LATENCY_CONSTRAINT_PAIR] = kiln::A_SYNTH_LATENCY_CONSTRAINT_EVERY_IO;
  node[kiln::A_SYNTH_LATENCY_CONSTRAINT_VALUE] =
      kiln::NumberValue::get(run.latencyConstraint, kiln::ContextMgr::get());
  node[kiln::A_SYNTH_LATENCY_CONSTRAINT_MODE] = kiln::A_SYNTH_LATENCY_CONSTRAINT_EQ;
}

void relaxReset(RunState& run) {
  if (!run.device->SupportsHyperRegisters() && !run.dontCareOnReset) return;
  run.built.unit->associateMetadata(
      kiln::PureTupleValue::get({kiln::A_CONTROLFLOW_TAG, kiln::A_FALSE}, kiln::ContextMgr::get()));
  if (run.testing.noChanValid)
    run.modelOptions.setOptionValue(synthOption::globalDontCareOnReset, 1);
}

void prepareUnit(RunState& run) {
  CArithmeticUnit& unit = *run.built.unit;
  CSynthSingleEntity& model = *run.built.model;
  unit.setSTMFileBaseName(model.name());
  unit.setIsSTMEnabled(true);
  if (run.testing.enable) unit.enableMode = 0;
  model.setTopUnit(&unit);
  model.setPropertyValue(synthProp::deviceLevel, 1);
  if (run.testing.generateCSimulationModel) {
    util::SetFeature(Features::SOFTWARE_MODEL_FORCE_ENABLED, true);
    model.softwareModel = true;
  }
}

void setBenchSeverity(RunState& run) {
  kiln::Node* bridgeModel = run.built.model->getBridgeModel();
  LOAM_ASSERT(bridgeModel != nullptr, "the model has no bridge model");
  const auto severity = [](bool isError) -> const kiln::StaticString& {
    return isError ? kiln::A_SYNTH_ATB_MODE_ERROR : kiln::A_SYNTH_ATB_MODE_WARNING;
  };
  (*bridgeModel)[kiln::A_SYNTH_ATB_GPIO_MISMATCH] = severity(run.gpioMismatchIsError);
  (*bridgeModel)[kiln::A_SYNTH_ATB_CHANNEL_MISMATCH] = severity(run.channelMismatchIsError);
}

void generate(RunState& run) {
  CSynthSingleEntity& model = *run.built.model;
  model.elaborate("");
  run.testing.unprovenRounding = model.hasUnprovenRounding();
  model.generationStage = 4;
  if (run.generateFiles) model.Generate();
  if (run.testing.generateCSimulationModel) model.WriteSoftwareModel();
  if (run.generateProject && run.generateFiles) {
    model.GenerateVirtualPinAssignments();
    model.GenerateFathomProject();
  }
}

void evaluateSimulation(RunState& run, int latency) {
  if (!run.evaluateAccuracy) return;
  const device::ScopedModelAdjustment adjustment(*run.device,
                                                 run.modelOptions.modelSpecificAdjustment());
  evaluateAccuracy(run.built.testUnit, run.inputs, run.outputs, latency, run.testing,
                   run.stimuliFile, run.responseFile);
}

void writeTestBench(RunState& run, int latency) {
  if (run.testCaseCount <= 0) return;
  run.modelOptions.oneResponseFile = hasOneResponseFile(run.operatorType);
  run.built.model->WriteAutomaticModelIPTestBench();
  const device::ScopedModelAdjustment adjustment(*run.device,
                                                 run.modelOptions.modelSpecificAdjustment());
  run.testing.componentType = run.operatorType;
  const int count = populateStmFilesFP(run.built.testUnit, run.built.model->name(), run.inputs,
                                       run.outputs, latency, run.testing);
  std::printf("\n Finished generating testbench having %d test cases \n", count);
}

}  // namespace

int runClassicFlow(util::Words line) {
  RunState run;
  startUp(run, line);
  walk(run, line.subspan(line.empty() ? 0 : 1));

  completeErrorBounds(run);
  if (!run.built.model) {
    std::printf("Error: did not generate unit\n");
    return util::kFailureStatus;
  }
  refuseUnavailable(run);
  checkTests(run.operatorWord, run.inputs, run.testing, /*writesVectors=*/run.testCaseCount > 0);
  run.modelOptions.setLanguage(run.language);
  run.built.model->setIsFloatingPoint(true);
  run.built.model->hasChannelValid = !run.testing.noChanValid;
  constrainLatency(run);
  relaxReset(run);
  prepareUnit(run);
  setBenchSeverity(run);
  generate(run);
  const int latency = reportResults(run);
  evaluateSimulation(run, latency);
  writeTestBench(run, latency);
  return 0;
}

}  // namespace driver
