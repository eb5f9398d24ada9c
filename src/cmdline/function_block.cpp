// A block of the dictionary in the unit's place.

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/unit_builder.h"
#include "cmdline/system_generator.h"

namespace cmdline {

// The operator is taken from the tests' settings, whatever the system is for.
kiln::Block& SystemGeneratorKILN::createFUBlock(kiln::Model& model, InterfaceWires& wires,
                                                TestingOptions& testOptions) {
  kiln::Block& block = kiln::Block::create(model, model.name());
  block[kiln::A_BLOCK_TYPE] = m_blockDic[testOptions.componentType];
  connectEnableAndData(block, wires);
  return block;
}

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::createBlockOutWires(kiln::Model&,
                                                                         kiln::Block& block) {
  const int count = static_cast<int>(m_spec->outputs.size());
  std::vector<kiln::Wire*> data;
  for (const kiln::PureValueRef& key : kiln::outputKeys(count, kiln::ContextMgr::get()))
    data.push_back(kiln::Wire::create(block, key));
  return std::make_unique<InterfaceWires>(data);
}

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::createFUToSystemOutputWires(
    kiln::Model& model, kiln::Block& block) {
  return createBlockOutWires(model, block);
}

}  // namespace cmdline
