#include "backend/model/kiln_generation.h"

#include <deque>
#include <map>

#include "backend/kiln/attributes.h"
#include "backend/model/kiln_graph.h"
#include "util/failure.h"

struct kiln::CModelDatabaseHandle::Database {
  struct Entry {
    CModelOptions options{true};
    std::unique_ptr<CSynthSingleEntity> model;
  };
  std::map<const Node*, Entry> entries;
};

CModel* kiln::CModelDatabaseHandle::getCModel(const Node& model) const {
  const auto found = database->entries.find(&model);
  return found == database->entries.end() ? nullptr : found->second.model.get();
}

namespace {

const functions::UnitRow* (*findInLibrary)(std::string_view) = nullptr;

bool isTrue(kiln::Node& node, const kiln::StaticString& key) {
  return node[key].get_ptr() == &kiln::A_TRUE;
}

std::string textOf(kiln::Node& node, const kiln::StaticString& key, const std::string& missing) {
  const kiln::PureValue* value = node[key].get_ptr();
  return value ? value->text() : missing;
}

double numberOf(kiln::Node& node, const kiln::StaticString& key, double missing) {
  const auto* value = dynamic_cast<const kiln::NumberValue*>(node[key].get_ptr());
  return value ? value->value() : missing;
}

// One for each output, in ulps.
std::vector<float> errorBounds(kiln::Node& model) {
  std::vector<float> bounds;
  const auto* tuple =
      dynamic_cast<const kiln::PureTupleValue*>(model[kiln::A_SYNTH_ATB_UNIT_ULP_VALUES].get_ptr());
  if (!tuple) return bounds;
  for (const kiln::PureValueRef& bound : tuple->elements())
    bounds.push_back(
        static_cast<float>(dynamic_cast<const kiln::NumberValue&>(*bound.get_ptr()).value()));
  return bounds;
}

device::Device* deviceFor(kiln::Node& model) {
  device::Device* device =
      device::deviceFactory.GetDevice(textOf(model, kiln::A_SYNTH_DEVICE_FAMILY, "Merrow 10"), "",
                                      textOf(model, kiln::A_SYNTH_DEVICE_SPEED_GRADE, "1"),
                                      textOf(model, kiln::A_SYNTH_DEVICE_PART, "AUTO"), "");
  device->SetSystemSettings(numberOf(model, kiln::A_SYNTH_CLOCK_FREQ, 50), -1, -1, -1);
  return device;
}

void readSettings(CModelOptions& options, kiln::Design& design, kiln::Node& model,
                  const KilnUnit& unit) {
  options.device = deviceFor(model);
  options.clockFrequency = options.device->megahertz();
  options.language = options.device->toSupportedLanguage(
      GetLanguageFromName(textOf(design, kiln::A_GENERATE_LANGUAGE, "VHDL")));
  options.commandLine = textOf(design, kiln::A_GENERATE_COMMAND_LINE, "");
  options.seed = static_cast<int>(numberOf(design, kiln::A_GENERATE_SEED, 0));
  options.base2Stimuli = true;
  options.outputErrors = options.unitSettings.errorBounds = errorBounds(model);
  const bool hasSubnormals = unit.hasSubnormals || isTrue(model, kiln::A_SYNTH_ATB_SUBNORMALS);
  options.setOptionValue(floatOption::faithfulRes, !unit.isCorrectlyRounded);
  options.setOptionValue(floatOption::subnormals, hasSubnormals);
  options.setOptionValue(floatOption::enableHardFP,
                         isTrue(model, kiln::A_SYNTH_DEVICE_ENABLE_HARDFP));
  options.setOptionValue(synthOption::forceCombinational,
                         isTrue(model, kiln::A_SYNTH_COMBINATORIAL));
  options.setOptionValue(synthOption::genGlobalEnableInput, unit.hasEnable);
  options.setOptionValue(synthOption::rigorousTesting,
                         isTrue(model, kiln::A_SYNTH_ATB_UNIT_RIGUROUS_TESTING));
}

// Clock and reset have one form only.
void checkClock(kiln::Node& model) {
  LOAM_ASSERT(textOf(model, kiln::A_SYNTH_CLOCK_NAME, "clk") == "clk", "the clock is called clk");
  LOAM_ASSERT(textOf(model, kiln::A_SYNTH_RESET_NAME, "reset") == "reset",
              "the reset is called reset");
  const kiln::PureValue* mode = model[kiln::A_SYNTH_RESET_ACTIVE_MODE].get_ptr();
  LOAM_ASSERT(!mode || mode == &kiln::A_SYNTH_RESET_ACTIVE_HIGH, "the reset is active high");
}

CArithmeticUnit* addUnit(CSynthSingleEntity& model, const KilnUnit& unit) {
  LOAM_ASSERT(findInLibrary, "the unit library is required before a design is generated");
  const functions::UnitRow* row = findInLibrary(unit.unitName);
  if (!row) util::exitWith({unit.name + ": no unit yet"});
  auto* made = new CArithmeticUnit(&model, unit.name, *row, unit.variant);
  made->word = unit.name;
  if (unit.hasEnable) made->enableMode = 0;
  return made;
}

void generate(kiln::Design& design, kiln::Model& node,
              kiln::CModelDatabaseHandle::Database::Entry& entry) {
  checkClock(node);
  const KilnUnit unit = kilnUnitOf(node);
  readSettings(entry.options, design, node, unit);
  if (entry.options.device->SupportsHyperRegisters() && !unit.hasChannelValid)
    entry.options.setOptionValue(synthOption::globalDontCareOnReset, 1);
  entry.model = std::make_unique<CSynthSingleEntity>(&entry.options, node.name(), unit.inputs,
                                                     unit.outputs, kNoWrapper);
  CSynthSingleEntity& model = *entry.model;
  CArithmeticUnit* made = addUnit(model, unit);
  if (entry.options.device->SupportsHyperRegisters())
    made->associateMetadata(
        kiln::PureTupleValue::get({kiln::A_CONTROLFLOW_TAG, kiln::A_FALSE}, design.context()));
  model.setOutputFolder(textOf(design, kiln::A_GENERATE_OUTPUT_PATH, "./" + node.name()));
  model.setSynthesisStyle(kDefaultStyle);
  model.setIsFloatingPoint(true);
  model.hasChannelValid = unit.hasChannelValid;
  model.setTopUnit(made);
  model.setPropertyValue(synthProp::deviceLevel, 1);
  model.elaborate("");
  if (node[kiln::A_SYNTH_OUTPUT_MODE].get_ptr() == &kiln::A_SYNTH_OUTPUT_HDL_ROOT) model.Generate();
}

}  // namespace

void requireMathematicalFunctions() { findInLibrary = functions::findUnit; }

kiln::CModelDatabaseHandle runKilnGeneration(kiln::Design& design, bool) {
  auto database = std::make_shared<kiln::CModelDatabaseHandle::Database>();
  for (const auto& model : design.models())
    generate(design, *model, database->entries[model.get()]);
  return kiln::CModelDatabaseHandle(std::move(database));
}
