#include "backend/kiln/unit_builder.h"

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/num_type_spec.h"
#include "util/failure.h"

namespace kiln {

namespace {

template <typename Items, typename ToValue>
PureValueRef tupleOf(const Items& items, Context* context, ToValue toValue) {
  std::vector<PureValueRef> elements;
  for (const auto& item : items) elements.push_back(toValue(item));
  return PureTupleValue::get(elements, context);
}

// The format that the options ask of the first output, or its own.
Type firstOutputType(const Type& own, const std::vector<FunctionGenerationOption*>& options) {
  using FPType = FunctionGenerationOptionValue<functionGenerationOptionOutFPType>;
  using FXPType = FunctionGenerationOptionValue<functionGenerationOptionOutFXPType>;
  for (const FunctionGenerationOption* option : options) {
    if (const auto* fp = dynamic_cast<const FPType*>(option))
      return ieee(fp->value.exponent, fp->value.fraction);
    if (const auto* fxp = dynamic_cast<const FXPType*>(option))
      return FixedPoint(fxp->value.width, fxp->value.fraction, fxp->value.sign);
  }
  return own;
}

}  // namespace

std::vector<PureValueRef> outputKeys(int count, Context* context) {
  std::vector<PureValueRef> keys;
  for (int k = 0; k < count; ++k) {
    if (count > 2) {
      keys.push_back(NumberValue::get(k, context));
    } else {
      keys.push_back(k == 0 ? A_PRIM_WIRE_OUT : A_PRIM_WIRE_AUX);
    }
  }
  return keys;
}

void UnitBuilder::build(std::vector<Signal>& outputs, const std::vector<Signal>& inputs,
                        const Signal& enable,
                        const std::vector<FunctionGenerationOption*>& options) {
  LOAM_ASSERT(!inputs.empty() && inputs[0].model.model, "a unit is built behind its inputs");
  Model& model = *inputs[0].model.model;
  Context* context = model.getDesign().context();
  const auto number = [&](auto value) {
    return NumberValue::get(static_cast<double>(value), context);
  };

  std::vector<Type> types;
  for (const PortSpec& port : outputPorts) types.push_back(port.type);
  if (!types.empty()) types[0] = firstOutputType(types[0], options);

  Block& block = Block::create(model, name);
  block[A_BLOCK_TYPE] = A_UNIT_BLOCK;
  block[A_UNIT_NAME] = StringValue::get(unit, context);
  block[A_UNIT_VARIANT] = tupleOf(variant, context, number);
  block[A_UNIT_INPUT_TYPES] = tupleOf(inputs, context, [&](const Signal& signal) {
    return NumTypeSpec::of(signal.type).toValue(context);
  });
  block[A_UNIT_OUTPUT_TYPES] = tupleOf(
      types, context, [&](const Type& type) { return NumTypeSpec::of(type).toValue(context); });
  block[A_UNIT_OPTIONS] = tupleOf(options, context, [&](const FunctionGenerationOption* option) {
    std::vector<int> numbers = option->numbers();
    numbers.insert(numbers.begin(), option->kind);
    return tupleOf(numbers, context, number);
  });
  if (enable.connection.wire) block[A_PORT_ENABLE] = *enable.connection.wire;
  for (std::size_t k = 0; k < inputs.size(); ++k) block[number(k)] = *inputs[k].connection.wire;

  const std::vector<PureValueRef> keys = outputKeys(static_cast<int>(types.size()), context);
  for (std::size_t k = 0; k < types.size(); ++k)
    outputs.push_back({{&model},
                       {Wire::create(block, keys[k])},
                       types[k],
                       outputPorts[k].name,
                       inputs[0].modelName});
}

}  // namespace kiln
