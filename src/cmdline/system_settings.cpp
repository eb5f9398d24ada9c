// Settings of the design and of its model.

#include <fmt/format.h>

#include "backend/kiln/attributes.h"
#include "backend/kiln/node.h"
#include "cmdline/assertion.h"
#include "cmdline/kit_values.h"
#include "cmdline/system_generator.h"

namespace cmdline {

namespace {

const kiln::StaticString& truth(bool value) { return value ? kiln::A_TRUE : kiln::A_FALSE; }

}  // namespace

std::string SystemGeneratorKILN::setupModelName() const { return m_spec->name; }

void SystemGeneratorKILN::setFlowOutputType(kiln::Model& model) {
  model[kiln::A_SYNTH_OUTPUT_MODE] = kiln::A_SYNTH_OUTPUT_HDL_ROOT;
  model[kiln::A_SYNTH_ATB_STM_FILE_MODE] = kiln::A_SYNTH_ATB_STM_FILE_MODE_BINARY;
}

void SystemGeneratorKILN::setupClockAndReset(kiln::Model& model) {
  model[kiln::A_SYNTH_CLOCK_NAME] = textValue("clk");
  model[kiln::A_SYNTH_CLOCK_FREQ] = kiln::NumberValue::get(
      static_cast<double>(m_options->target->frequency), kiln::ContextMgr::get());
  model[kiln::A_SYNTH_RESET_NAME] = textValue("reset");
  if (m_options->combinatorial) model[kiln::A_SYNTH_COMBINATORIAL] = kiln::A_TRUE;
  model[kiln::A_SYNTH_RESET_ACTIVE_MODE] = kiln::A_SYNTH_RESET_ACTIVE_HIGH;
}

void SystemGeneratorKILN::setupDevice(kiln::Model& model) {
  const DeviceSpec& device = *m_options->target->device;
  model[kiln::A_SYNTH_DEVICE_FAMILY] = textValue(device.family);
  model[kiln::A_SYNTH_DEVICE_SPEED_GRADE] = textValue(device.speedGrade);
  model[kiln::A_SYNTH_DEVICE_PART] = textValue(device.part);
}

void SystemGeneratorKILN::setupModelOptions(kiln::Model& model) {
  setFlowOutputType(model);
  setupClockAndReset(model);
  setupDevice(model);
  model[kiln::A_SYNTH_DEVICE_ENABLE_HARDFP] = truth(m_options->hardFP);
}

void SystemGeneratorKILN::setupLanguageOptions(kiln::Design& design) {
  const int language = m_options->language;
  require(language == 0 || language == 1, "language == 0 || language == 1",
          "Unsupported generation language selected");
  design[kiln::A_GENERATE_LANGUAGE] = textValue(language == 0 ? "VHDL" : "VERILOG");
}

void SystemGeneratorKILN::setupOutputPath(kiln::Design& design) {
  design[kiln::A_GENERATE_OUTPUT_PATH] = textValue(fmt::format("./{}", m_spec->name));
}

void SystemGeneratorKILN::setupDesignOptions(kiln::Design& design) { setupLanguageOptions(design); }

}  // namespace cmdline
