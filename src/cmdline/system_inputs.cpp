// From the model's inputs to the unit.

#include <fmt/format.h>

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/num_type_spec.h"
#include "backend/kiln/signal.h"
#include "cmdline/assertion.h"
#include "cmdline/kit_values.h"
#include "cmdline/system_generator.h"

namespace cmdline {

namespace {

void addTypePin(kiln::Model& model, const std::string& name, const kiln::NumTypeSpec& format,
                kiln::Wire& wire) {
  kiln::Block& pin = kiln::Block::create(model, name);
  pin[kiln::A_BLOCK_TYPE] = kiln::A_TYPE_PIN_BLOCK;
  pin[kiln::A_TYPE_PIN_TYPE] = format.toValue(kiln::ContextMgr::get());
  pin[numberValue(0)] = wire;
}

// The same format, its width computed anew.
kiln::Type signalType(const kiln::Type& type) {
  if (const kiln::FloatingPoint* lib = type.as_fp_lib()) return kiln::fpLib(lib->exp, lib->frac);
  if (const kiln::FloatingPoint* ieee = type.as_floating_point())
    return kiln::ieee(ieee->exp, ieee->frac);
  const kiln::FixedPoint* fixed = type.as_fixed_point();
  require(fixed, "fixed != nullptr", "Error in signal type during input signal vector creation;");
  return kiln::FixedPoint(fixed->width(), fixed->fraction(), fixed->sign());
}

}  // namespace

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::bundle(const std::vector<kiln::Wire*>& data,
                                                            kiln::Wire* valid, kiln::Wire* channel,
                                                            kiln::Wire* enable) const {
  if (hasChannelValid() && hasEnable())
    return std::make_unique<ChanValidEnableInterfaceWires>(data, valid, channel, enable);
  if (hasChannelValid()) return std::make_unique<ChanValidInterfaceWires>(data, valid, channel);
  if (hasEnable()) return std::make_unique<EnableInterfaceWires>(data, enable);
  return std::make_unique<InterfaceWires>(data);
}

kiln::Block& SystemGeneratorKILN::createInputBlock(kiln::Model& model) {
  kiln::Block& block = kiln::Block::create(model, "inBlock");
  block[kiln::A_BLOCK_TYPE] = kiln::A_INPUT_BLOCK;
  return block;
}

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::createInputToSystemInputWires(
    kiln::Model&, kiln::Block& block) {
  kiln::Wire *valid = nullptr, *channel = nullptr, *enable = nullptr;
  if (hasChannelValid()) {
    valid = kiln::Wire::create(block, textValue("xIn_v"));
    channel = kiln::Wire::create(block, textValue("xIn_c"));
  }
  if (hasEnable()) enable = kiln::Wire::create(block, textValue("en"));
  std::vector<kiln::Wire*> data;
  for (const PortSpec& port : m_spec->inputs)
    data.push_back(kiln::Wire::create(block, textValue(port.name)));
  return bundle(data, valid, channel, enable);
}

void SystemGeneratorKILN::setupInputTypePins(kiln::Model& model, InterfaceWires& wires) {
  if (hasChannelValid()) {
    const auto* flow = checked_dynamic_cast<ChanValidInterfaceWires*>(&wires);
    require(flow->valid, "iwv != nullptr", "no valid wire");
    addTypePin(model, "validTypePin", kiln::NumTypeSpec::ufixed(1, 0), *flow->valid);
    require(flow->channel, "iwc != nullptr", "no channel wire");
    addTypePin(model, "channelTypePin", kiln::NumTypeSpec::ufixed(8, 0), *flow->channel);
  }
  if (hasEnable()) {
    kiln::Wire* enable = checked_dynamic_cast<EnableInterfaceWires*>(&wires)->enable;
    require(enable, "iwe != nullptr", "no enable wire");
    addTypePin(model, "enableTypePin", kiln::NumTypeSpec::ufixed(1, 0), *enable);
  }
  for (std::size_t k = 0; k < m_spec->inputs.size(); ++k) {
    kiln::Wire* wire = wires.dataWires().at(k);
    require(wire, "iwi != nullptr", "no wire of input " + m_spec->inputs[k].name);
    addTypePin(model, fmt::format("dataTypePin{}", k),
               kiln::NumTypeSpec::of(m_spec->inputs[k].type), *wire);
  }
}

kiln::Block& SystemGeneratorKILN::createSignalInBlock(kiln::Model& model, InterfaceWires& wires) {
  kiln::Block& block = kiln::Block::create(model, "xIn");
  if (hasChannelValid()) {
    block[kiln::A_BLOCK_TYPE] = kiln::A_CHANNEL_IN_BLOCK;
    const auto* flow = checked_dynamic_cast<ChanValidInterfaceWires*>(&wires);
    require(flow->valid, "iwv != nullptr", "no valid wire");
    require(flow->channel, "iwc != nullptr", "no channel wire");
    block[kiln::A_PORT_VALID] = *flow->valid;
    block[kiln::A_PORT_CHANNEL] = *flow->channel;
  } else {
    block[kiln::A_BLOCK_TYPE] = kiln::A_SIGNAL_IN_BLOCK;
  }
  connectEnableAndData(block, wires);
  return block;
}

void SystemGeneratorKILN::connectEnableAndData(kiln::Block& block, InterfaceWires& wires) {
  std::size_t input = 0;
  if (hasEnable()) {
    kiln::Wire* enable = checked_dynamic_cast<EnableInterfaceWires*>(&wires)->enable;
    require(enable, "iwe != nullptr", "no enable wire");
    block[numberValue(input++)] = *enable;
  }
  for (std::size_t k = 0; k < m_spec->inputs.size(); ++k)
    block[numberValue(input++)] = *wires.dataWires().at(k);
}

std::unique_ptr<InterfaceWires> SystemGeneratorKILN::createSystemInputToFUWires(
    kiln::Model&, kiln::Block& block) {
  kiln::Wire *valid = nullptr, *channel = nullptr, *enable = nullptr;
  if (hasChannelValid()) {
    valid = kiln::Wire::create(block, kiln::A_WIRE_VALID);
    channel = kiln::Wire::create(block, kiln::A_WIRE_CHANNEL);
  }
  std::size_t output = 0;
  if (hasEnable()) enable = kiln::Wire::create(block, numberValue(output++));
  std::vector<kiln::Wire*> data;
  for (std::size_t k = 0; k < m_spec->inputs.size(); ++k)
    data.push_back(kiln::Wire::create(block, numberValue(output++)));
  return bundle(data, valid, channel, enable);
}

std::vector<kiln::Signal> SystemGeneratorKILN::setupInputSignalVector(kiln::Model& model,
                                                                      InterfaceWires& wires) {
  std::vector<kiln::Signal> signals;
  for (std::size_t k = 0; k < m_spec->inputs.size(); ++k) {
    const PortSpec& port = m_spec->inputs[k];
    signals.push_back(
        {{&model}, {wires.dataWires().at(k)}, signalType(port.type), port.name, m_spec->name});
  }
  return signals;
}

}  // namespace cmdline
