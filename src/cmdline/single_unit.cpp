// The whole graph of one unit.

#include <algorithm>

#include "backend/functions/unit.h"
#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/unit_builder.h"
#include "backend/model/model.h"
#include "cmdline/assertion.h"
#include "cmdline/construction_table.h"
#include "cmdline/system_generator.h"

namespace cmdline {

namespace {

// The generator of a design, by name.
int generatorOf(kiln::Design& design) {
  const kiln::StaticString* const kGenerators[] = {&kiln::A_DESIGN_GENERATOR_IS_KILNTEST,
                                                   &kiln::A_DESIGN_GENERATOR_IS_TESSEL,
                                                   &kiln::A_DESIGN_GENERATOR_IS_OSPREY};
  const auto found = std::ranges::find(kGenerators, design[kiln::A_DESIGN_GENERATOR].get_ptr());
  return found == std::end(kGenerators) ? 0 : static_cast<int>(found - kGenerators) + 1;
}

}  // namespace

SystemGeneratorKILN::SystemGeneratorKILN(const SystemSpec* spec, const SystemOptions* options)
    : m_spec(spec), m_options(options) {}
SystemGeneratorKILN::~SystemGeneratorKILN() = default;

void SystemGeneratorKILN::setupSingleUnitModelDesign(kiln::Model& model,
                                                     TestingOptions& testOptions) {
  kiln::Block& inBlock = createInputBlock(model);
  const auto inWires = createInputToSystemInputWires(model, inBlock);
  setupInputTypePins(model, *inWires);
  const auto fuWires = createSystemInputToFUWires(model, createSignalInBlock(model, *inWires));
  require(m_options->designStyle == 0 || m_options->designStyle == 1,
          "designStyle == 0 || designStyle == 1", "Code should be unreachable");
  const auto fuOutWires =
      m_options->designStyle == 0
          ? createBlockOutWires(model, createFUBlock(model, *fuWires, testOptions))
          : buildUnit(model, *fuWires, testOptions);
  kiln::Block& outBlock = createSignalOutBlock(model, *fuWires, *fuOutWires);
  const auto outWires = createSystemOutputToOutputWires(model, outBlock);
  createOutputBlock(model, *outWires);
}

// Makes both views of the unit: one that computes, one that builds.
void SystemGeneratorKILN::makeUnit(kiln::Model& model) {
  m_hostOptions = std::make_unique<CModelOptions>(true);
  m_hostOptions->generator = generatorOf(model.getDesign());
  m_host = std::make_unique<CSynth>(m_hostOptions.get(), "dummyModel");
  const ConstructionRow* row = findConstruction(m_spec->component);
  if (!row) return;
  const functions::UnitRow* unitRow = functions::findUnit(row->unit);
  if (!unitRow) util::exitWith({std::string(row->word) + ": no unit yet"});
  const std::vector<std::int64_t> numbers = variantOf(*row, *m_spec);
  auto* computing =
      new CArithmeticUnit(m_host.get(), "dummy", *unitRow, functions::Variant{numbers});
  computing->setPorts(m_spec->inputs, m_spec->outputs);
  m_testModel = computing;
  dUnit = std::make_unique<kiln::UnitBuilder>(
      std::string(row->word), std::string(row->unit), numbers,
      std::vector<PortSpec>(m_spec->outputs.begin(), m_spec->outputs.end()));
}

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::buildUnit(kiln::Model& model,
                                                               InterfaceWires& wires,
                                                               const TestingOptions& testOptions) {
  Options options;
  pushFormatOptions(options, *m_spec);
  makeUnit(model);
  require(m_testModel && dUnit, "m_testModel!=nullptr && dUnit!=nullptr",
          "no unit for the operator");
  pushRowOptions(options, *findConstruction(m_spec->component), *m_spec);
  using Option = kiln::FunctionGenerationOption;
  if (!testOptions.faithfulRounding)
    options.push_back(std::make_unique<Option>(Option::kCorrectRounding));
  if (testOptions.subnormals) options.push_back(std::make_unique<Option>(Option::kSubnormals));

  const std::vector<kiln::Signal> inputs = setupInputSignalVector(model, wires);
  kiln::Signal enable = kiln::Signal::empty;
  if (m_spec->enableStyle != 0) {
    const auto* eiw = dynamic_cast<EnableInterfaceWires*>(&wires);
    require(eiw, "eiw!=nullptr", "the unit's wires have no enable");
    enable = {{&model}, {eiw->enable}, kiln::FixedPoint(1, 0, false), "en", m_spec->name};
  }
  std::vector<kiln::FunctionGenerationOption*> told;
  for (const auto& option : options) told.push_back(option.get());
  std::vector<kiln::Signal> outputs;
  dUnit->build(outputs, inputs, enable, told);

  std::vector<kiln::Wire*> data;
  for (std::size_t k = 0; k < m_spec->outputs.size(); ++k) {
    const kiln::GenericConnection& connection = outputs.at(k).connection;
    require(connection.selector == 0 && connection.wire, "ow!=nullptr",
            "no wire of output " + m_spec->outputs[k].name);
    data.push_back(connection.wire);
  }
  return std::make_unique<InterfaceWires>(data);
}

}  // namespace cmdline
