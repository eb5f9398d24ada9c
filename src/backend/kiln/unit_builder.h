#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "backend/kiln/function_generation_option.h"
#include "backend/kiln/signal.h"
#include "backend/kiln/values.h"

namespace kiln {

// A unit of the library that puts itself into a model as one block, of type A_UNIT_BLOCK.
class UnitBuilder {
 public:
  // `name` names the block, `unit` the row of the library, and `variant` holds the row's numbers.
  // The outputs have these formats unless an option gives another for the first.
  UnitBuilder(std::string name, std::string unit, std::vector<std::int64_t> variant,
              std::vector<PortSpec> outputs)
      : name(std::move(name)),
        unit(std::move(unit)),
        variant(std::move(variant)),
        outputPorts(std::move(outputs)) {}
  virtual ~UnitBuilder() = default;

  // Makes the block in the model of the inputs, of which there is at least one, and connects them
  // in their order, and `enable` unless it is empty. Appends one signal for each output.
  virtual void build(std::vector<Signal>& outputs, const std::vector<Signal>& inputs,
                     const Signal& enable, const std::vector<FunctionGenerationOption*>& options);

 private:
  std::string name, unit;
  std::vector<std::int64_t> variant;
  std::vector<PortSpec> outputPorts;
};

// The keys of a block's `count` outputs: the primary one, the primary and the auxiliary one, or
// numbers from 0 on when there are more.
std::vector<PureValueRef> outputKeys(int count, Context* context);

}  // namespace kiln
