#include "driver/walk.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "driver/option_table.h"
#include "driver/usage_text.h"
#include "operators/operator_row.h"
#include "util/failure.h"
#include "util/strings.h"

namespace driver {

namespace {

// Options that reach the unit wherever they stand, although they are read while it is built.
bool countsAnywhere(const OptionRow& row) {
  return row.reach == Reach::kLine || util::caseInsensitiveEquals(std::string(row.name), "-enable");
}

void noteIfLate(RunState& run, const OptionRow& row) {
  if (run.built.model && !countsAnywhere(row)) run.lateOptions.push_back(&row);
}

void warnOfLateOptions(const RunState& run) {
  std::fflush(stdout);
  for (const OptionRow* row : run.lateOptions)
    std::fprintf(stderr, "Warning: %s stands behind the operator and does not change the unit\n",
                 row->name.data());
}

// The device of the settings so far. Asked for again only when a word that means nothing repeats:
// then the answer is the one from before.
void deploy(RunState& run) {
  if (run.modelOptions.device == run.startUpDevice) {
    run.device =
        device::deviceFactory.GetDevice(run.targetFamily, "", run.speedGrade, run.partName, "");
    run.modelOptions.device = run.device;
    run.modelOptions.language = run.device->toSupportedLanguage(run.language);
    run.device->SetSystemSettings(run.frequencyMHz, -1, -1, -1);
    run.modelOptions.clockFrequency = run.frequencyMHz;
  }
  std::printf("    Deployment FPGA %s \n", run.targetFamily.c_str());
}

// What the unit owes by the options in front of it.
UnitSettings unitSettings(const TestingOptions& testing) {
  UnitSettings settings{.errorBounds = testing.errorBounds, .roundType = testing.roundType};
  if (settings.errorBounds.empty())
    settings.errorBounds.push_back(testing.faithfulRounding ? 1.0F : 0.5F);
  return settings;
}

// Builds the unit of an operator and returns how many words belong to it.
std::size_t buildOperator(RunState& run, const operators::OperatorRow& row, util::Words behind) {
  const auto parameters = operators::readParameters(row, behind);
  if (!parameters) util::exitWith(parameters.failure());
  if (row.announce) row.announce(*parameters);
  if (row.refuses)
    if (const auto reason = row.refuses(*parameters))
      util::exitWith({fmt::format("{}: {}", row.word, *reason)});
  // The ports of an operator before this one went with its models.
  operators::Ports ports = row.ports(*parameters);
  run.inputs = std::move(ports.in);
  run.outputs = std::move(ports.out);
  run.operatorWord = row.word;
  run.component = row.component;
  if (row.precision > 0) run.testing.precision = row.precision;
  run.modelOptions.unitSettings = unitSettings(run.testing);
  auto built =
      operators::build(row, *parameters, run.modelOptions,
                       {run.topName, run.testName, run.wrapperType}, run.inputs, run.outputs);
  if (!built) util::exitWith(built.failure());
  run.built = std::move(*built);
  if (!run.built.method.empty()) run.method = run.built.method;
  run.operatorType = row.type;
  std::erase_if(run.lateOptions, [](const OptionRow* row) { return row->reach == Reach::kUnit; });
  return parameters->size();
}

}  // namespace

void walk(RunState& run, util::Words words) {
  while (!words.empty()) {
    const std::string word = words[0];
    const util::Words behind = words.subspan(1);
    if (const OptionRow* option = findOption(word)) {
      noteIfLate(run, *option);
      words = behind.subspan(applyOption(*option, run, behind));
      continue;
    }
    if (word.starts_with('-')) {
      std::printf("    Unknown option '%s'\n", word.c_str());
      printHelp();
      std::exit(util::kFailureStatus);
    }
    if (!run.built.model) deploy(run);
    const device::ScopedModelAdjustment adjustment(*run.device,
                                                   run.modelOptions.modelSpecificAdjustment());
    if (const operators::OperatorRow* row = operators::findOperator(word))
      words = behind.subspan(buildOperator(run, *row, behind));
    else
      std::fflush(stdout);  // the walk stays at this word: let its lines be seen
  }
  warnOfLateOptions(run);
}

}  // namespace driver
