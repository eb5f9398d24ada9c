#include "driver/model_flow.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <memory>

#include "backend/device/device.h"
#include "backend/kiln/values.h"
#include "catalogue/fetch_unit_operator.h"
#include "catalogue/supported_operator.h"
#include "cmdline/system_generator.h"
#include "driver/format_check.h"
#include "driver/model_flow_options.h"
#include "driver/test_checks.h"

namespace driver {

namespace {

// The vectors of this flow are those of a plain floating-point operator, whatever the unit is.
constexpr componentType kVectorsOf = FPFLOOR;

// The operator's word on the line.
std::string wordOf(componentType component) {
  const auto rows = initializeSupportedOperators();
  return std::ranges::find(rows, component, &SupportedOperator::component)->name;
}

// Ends the run with one line where no unit or no vectors can be made of what was read.
void check(const cmdline::SystemSpec& spec, const TestingOptions& testing) {
  const std::string word = wordOf(spec.component);
  if (const auto failure = formatFailure(word, spec.inputs, spec.outputs, testing.precision))
    util::exitWith(*failure);
  checkTests(word, spec.inputs, testing, /*writesVectors=*/true);
  const cmdline::DeviceSpec& device = *spec.target->device;
  device::deviceFactory.GetDevice(device.family, "", device.speedGrade, device.part, "");
}

void generate(const Options& options) {
  ModelFlowSettings settings = readModelFlowOptions(options);
  TestingOptions& testing = settings.testing;
  PortSpecList inputs, outputs;
  const std::vector<std::string> parameters = fetchUnitOperator(options, inputs, outputs, testing);
  if (testing.errorBounds.size() < outputs.size())
    testing.errorBounds.resize(outputs.size(), testing.errorBounds.front());

  const kiln::ContextMgr context;
  const cmdline::TargetSpec target{.device = &settings.device,
                                   .frequency = static_cast<float>(settings.frequencyMHz)};
  const cmdline::SystemOptions systemOptions{
      .language = 0,
      .target = &target,
      .interfaceStyle = 0,
      .designStyle = 1,
      .combinatorial = settings.combinatorial,
      .hardFP = settings.hardFP,
      .commandLine = util::joined({options.begin, options.end})};
  const cmdline::SystemSpec spec{.component = testing.componentType,
                                 .name = "topModel",
                                 .inputs = inputs,
                                 .outputs = outputs,
                                 .enableStyle = 0,
                                 .target = &target,
                                 .parameters = parameters};
  check(spec, testing);
  auto kiln = std::make_unique<cmdline::SystemGeneratorKILN>(&spec, &systemOptions);
  kiln->setupKILNBlockDic();
  testing.componentType = kVectorsOf;
  const std::unique_ptr<cmdline::SystemGenerator> generator = std::move(kiln);
  generator->generate(testing);
}

}  // namespace

int runModelFlow(util::Words line) {
  const util::Words words = line.subspan(line.empty() ? 0 : 1);
  try {
    generate({words.data(), words.data() + words.size()});
  } catch (const std::exception& error) {
    util::exitWith({fmt::format("-kiln: {}", error.what())});
  }
  return 0;
}

}  // namespace driver
