#include "backend/model/kiln_graph.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/function_generation_option.h"
#include "backend/kiln/num_type_spec.h"
#include "backend/model/function_blocks.h"
#include "util/failure.h"

namespace {

using kiln::Block;
using kiln::PureValue;
using kiln::Wire;

class Walk {
 public:
  explicit Walk(kiln::Model& model)
      : model(model),
        source(only({&kiln::A_INPUT_BLOCK})),
        entry(only({&kiln::A_CHANNEL_IN_BLOCK, &kiln::A_SIGNAL_IN_BLOCK})),
        exit(only({&kiln::A_CHANNEL_OUT_BLOCK, &kiln::A_SIGNAL_OUT_BLOCK})),
        sink(only({&kiln::A_OUTPUT_BLOCK})),
        unit(unitBefore(exit)) {}

  KilnUnit unitOf() {
    KilnUnit found;
    found.name = unit.name();
    found.hasChannelValid = typeOf(entry) == &kiln::A_CHANNEL_IN_BLOCK;
    std::vector<Wire*> operands = numbered(unit);
    if (typeOf(unit) == &kiln::A_UNIT_BLOCK) {
      found.hasEnable = unit[kiln::A_PORT_ENABLE].node_ptr() != nullptr;
    } else if (!operands.empty() && isEnable(origin(*operands[0]))) {
      found.hasEnable = true;
      operands.erase(operands.begin());
    }
    for (const Wire* operand : operands) {
      const Wire& wire = origin(*operand);
      found.inputs.push_back(nameOf(wire.key(), "xIn_", found.inputs.size()), formatOf(wire));
    }
    if (typeOf(unit) == &kiln::A_UNIT_BLOCK) {
      readUnitBlock(found);
    } else {
      readFunctionBlock(found);
    }
    return found;
  }

 private:
  // The block that has one of these types, of which there is one.
  Block& only(std::initializer_list<const PureValue*> types) {
    Block* found = nullptr;
    for (const auto& block : model.blocks()) {
      if (std::ranges::find(types, typeOf(*block)) == types.end()) continue;
      LOAM_ASSERT(!found, "a model has one block of a kind at each of its ends");
      found = block.get();
    }
    LOAM_ASSERT(found, "a model has a block of a kind at each of its ends");
    return *found;
  }

  static const PureValue* typeOf(Block& block) { return block[kiln::A_BLOCK_TYPE].get_ptr(); }

  Wire* entering(Block& block, const kiln::PureValueRef& key) const {
    return dynamic_cast<Wire*>(block[key].node_ptr());
  }

  kiln::PureValueRef number(std::size_t value) const {
    return kiln::NumberValue::get(static_cast<int>(value), model.getDesign().context());
  }

  // The wires that enter a block at 0, 1 and so on.
  std::vector<Wire*> numbered(Block& block) const {
    std::vector<Wire*> wires;
    while (Wire* wire = entering(block, number(wires.size()))) wires.push_back(wire);
    return wires;
  }

  Block& unitBefore(Block& last) const {
    const std::vector<Wire*> wires = numbered(last);
    LOAM_ASSERT(!wires.empty(), "a unit has an output");
    for (const Wire* wire : wires)
      LOAM_ASSERT(&wire->block() == &wires[0]->block(), "a model holds one unit");
    return wires[0]->block();
  }

  // The wire of the input block that an operand comes from.
  const Wire& origin(const Wire& operand) const {
    LOAM_ASSERT(&operand.block() == &entry, "operands come out of the block at the model's inputs");
    const Wire* wire = entering(entry, operand.key());
    LOAM_ASSERT(wire && &wire->block() == &source, "inputs come out of the input block");
    return *wire;
  }

  static bool isEnable(const Wire& wire) {
    return dynamic_cast<const kiln::StringValue*>(wire.key().get_ptr()) &&
           wire.key()->text() == "en";
  }

  static std::string nameOf(const kiln::PureValueRef& key, const char* prefix, std::size_t place) {
    const bool isText = dynamic_cast<const kiln::StringValue*>(key.get_ptr()) != nullptr;
    return isText ? key->text() : fmt::format("{}{}", prefix, place);
  }

  kiln::Type formatOf(const Wire& wire) const {
    for (const auto& block : model.blocks())
      if (typeOf(*block) == &kiln::A_TYPE_PIN_BLOCK && entering(*block, number(0)) == &wire)
        return kiln::NumTypeSpec::typeOf((*block)[kiln::A_TYPE_PIN_TYPE].get_ptr());
    loam_assert_handler("pin != nullptr", "cmdGauge", __LINE__, __func__,
                        "no type pin on the wire " + wire.name());
  }

  // The name under which output `k` of the unit leaves the model.
  std::string outputName(std::size_t k) const {
    const std::vector<Wire*> leaving = numbered(exit);
    const auto place = std::ranges::find(leaving, unit.wires().at(k).get());
    LOAM_ASSERT(place != leaving.end(), "every output of a unit leaves the model");
    const kiln::PureValueRef key = number(place - leaving.begin());
    const auto wire = std::ranges::find(exit.wires(), key, [](const auto& w) { return w->key(); });
    LOAM_ASSERT(wire != exit.wires().end(), "every output of a unit reaches the output block");
    for (const auto& parameter : sink.parameters()) {
      kiln::Node* const* node = std::get_if<kiln::Node*>(&parameter.held);
      if (node && *node == wire->get()) return nameOf(parameter.key, "xOut_", k);
    }
    loam_assert_handler("output != nullptr", "cmdGauge", __LINE__, __func__,
                        "an output of the unit enters the output block nowhere");
  }

  const std::vector<kiln::PureValueRef>& tuple(const kiln::PureValueRef& key) const {
    const auto* value = dynamic_cast<const kiln::PureTupleValue*>(unit[key].get_ptr());
    LOAM_ASSERT(value, "a unit's block holds " + key->text());
    return value->elements();
  }

  static std::int64_t integer(const kiln::PureValueRef& value) {
    const auto* held = dynamic_cast<const kiln::NumberValue*>(value.get_ptr());
    LOAM_ASSERT(held, "a number of a unit's block");
    return static_cast<std::int64_t>(held->value());
  }

  void readUnitBlock(KilnUnit& found) const {
    found.unitName = unit[kiln::A_UNIT_NAME].get_ptr()->text();
    for (const kiln::PureValueRef& one : tuple(kiln::A_UNIT_VARIANT))
      found.variant.numbers.push_back(integer(one));
    for (const kiln::PureValueRef& option : tuple(kiln::A_UNIT_OPTIONS)) {
      const auto& fields = dynamic_cast<const kiln::PureTupleValue&>(*option.get_ptr()).elements();
      const std::int64_t kind = integer(fields.at(0));
      found.isCorrectlyRounded |= kind == kiln::FunctionGenerationOption::kCorrectRounding;
      found.hasSubnormals |= kind == kiln::FunctionGenerationOption::kSubnormals;
    }
    const auto& types = tuple(kiln::A_UNIT_OUTPUT_TYPES);
    for (std::size_t k = 0; k < types.size(); ++k)
      found.outputs.push_back(outputName(k), kiln::NumTypeSpec::typeOf(types[k].get_ptr()));
  }

  void readFunctionBlock(KilnUnit& found) const {
    const PureValue* type = typeOf(unit);
    if (!type) util::exitWith({fmt::format("{}: its block has no type", found.name)});
    const FunctionBlock* row = findFunctionBlock(type);
    if (!row) util::exitWith({fmt::format("{}: {} stands for no unit", found.name, type->text())});
    const std::size_t inputs = row->inputs + (row->select > 0 ? 1 : 0);
    const std::size_t outputs = unit.wires().size();
    if (found.inputs.size() != inputs || outputs != static_cast<std::size_t>(row->outputs))
      util::exitWith(
          {fmt::format("{}: {} has {} inputs and {} outputs, {} and {} are connected", found.name,
                       type->text(), inputs, row->outputs, found.inputs.size(), outputs)});
    found.unitName = row->unit;
    found.variant.numbers = row->variant;
    const kiln::Type ofOperands = found.inputs[0].type;
    for (std::size_t k = 0; k < outputs; ++k)
      found.outputs.push_back(outputName(k),
                              row->isTruth ? kiln::FixedPoint(1, 0, false) : ofOperands);
  }

  kiln::Model& model;
  Block &source, &entry, &exit, &sink, &unit;
};

}  // namespace

KilnUnit kilnUnitOf(kiln::Model& model) { return Walk(model).unitOf(); }
