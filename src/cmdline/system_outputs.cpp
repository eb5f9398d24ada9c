// From the unit to the model's outputs. Valid and channel come past the unit.

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "cmdline/assertion.h"
#include "cmdline/kit_values.h"
#include "cmdline/system_generator.h"

namespace cmdline {

kiln::Block& SystemGeneratorKILN::createSignalOutBlock(kiln::Model& model, InterfaceWires& inWires,
                                                       InterfaceWires& outWires) {
  kiln::Block& block = kiln::Block::create(model, "xOut");
  if (hasChannelValid()) {
    block[kiln::A_BLOCK_TYPE] = kiln::A_CHANNEL_OUT_BLOCK;
    const auto* flow = checked_dynamic_cast<ChanValidInterfaceWires*>(&inWires);
    require(flow->valid, "iwSignalInV != nullptr", "no valid wire");
    require(flow->channel, "iwSignalInC != nullptr", "no channel wire");
    block[kiln::A_PORT_VALID] = *flow->valid;
    block[kiln::A_PORT_CHANNEL] = *flow->channel;
  } else {
    block[kiln::A_BLOCK_TYPE] = kiln::A_SIGNAL_OUT_BLOCK;
  }
  for (std::size_t k = 0; k < m_spec->outputs.size(); ++k)
    block[numberValue(k)] = *outWires.dataWires().at(k);
  return block;
}

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::createSystemOutputToOutputWires(
    kiln::Model&, kiln::Block& block) {
  kiln::Wire *valid = nullptr, *channel = nullptr;
  if (hasChannelValid()) {
    valid = kiln::Wire::create(block, kiln::A_WIRE_VALID);
    channel = kiln::Wire::create(block, kiln::A_WIRE_CHANNEL);
  }
  std::vector<kiln::Wire*> data;
  for (std::size_t k = 0; k < m_spec->outputs.size(); ++k)
    data.push_back(kiln::Wire::create(block, numberValue(k)));
  // No enable on this side.
  if (hasChannelValid()) return std::make_unique<ChanValidInterfaceWires>(data, valid, channel);
  return std::make_unique<InterfaceWires>(data);
}

kiln::Block& SystemGeneratorKILN::createOutputBlock(kiln::Model& model, InterfaceWires& wires) {
  kiln::Block& block = kiln::Block::create(model, "outputBlock");
  block[kiln::A_BLOCK_TYPE] = kiln::A_OUTPUT_BLOCK;
  if (hasChannelValid()) {
    const auto* flow = checked_dynamic_cast<ChanValidInterfaceWires*>(&wires);
    require(flow->valid, "iwv != nullptr", "no valid wire");
    require(flow->channel, "iwc != nullptr", "no channel wire");
    block[textValue("xOut_v")] = *flow->valid;
    block[textValue("xOut_c")] = *flow->channel;
  }
  for (std::size_t k = 0; k < m_spec->outputs.size(); ++k)
    block[textValue(m_spec->outputs[k].name)] = *wires.dataWires().at(k);
  return block;
}

}  // namespace cmdline
