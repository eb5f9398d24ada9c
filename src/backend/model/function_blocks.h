#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "backend/kiln/values.h"

// What a block of the kit's dictionary stands for.
struct FunctionBlock {
  const kiln::StaticString* type;
  std::string_view unit;              // name of its row in the unit table
  int inputs;                         // operands of one floating-point format ...
  int select = 0;                     // ... and behind them a selector of so many bits
  int outputs = 1;                    // of the operands' format
  bool isTruth = false;               // the output is one bit instead
  std::vector<std::int64_t> variant;  // numbers of the row
};

// The row of a block type, or null: the dictionary's casts have no format of their own.
const FunctionBlock* findFunctionBlock(const kiln::PureValue* type);
