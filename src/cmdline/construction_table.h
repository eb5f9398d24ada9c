#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/kiln/function_generation_option.h"
#include "cmdline/system_spec.h"

namespace cmdline {

// An option that a unit is told; the value, for kinds that bear one.
struct PushedOption {
  std::int32_t kind;
  std::optional<int> value = {};
};

// How the unit of one operator is made.
struct ConstructionRow {
  componentType component;
  std::string_view word;              // the operator, for messages and the unit's block
  std::string_view unit;              // name of its row in the unit table
  std::vector<std::int64_t> numbers;  // of the row's variant
  std::vector<PushedOption> options = {};
  // The same two for operators whose words choose the variant.
  std::vector<std::int64_t> (*numbersOf)(const std::vector<std::string>& parameters) = nullptr;
  std::vector<PushedOption> (*optionsOf)(const std::vector<std::string>& parameters) = nullptr;
};

// The row of an operator, or null. The unit of a row need not be there yet.
const ConstructionRow* findConstruction(componentType component);

using Options = std::vector<std::unique_ptr<kiln::FunctionGenerationOption>>;

// Appends the options that tell the unit its output format, and how a conversion to fixed point
// rounds; none for operators whose formats follow from their inputs.
void pushFormatOptions(Options& options, const SystemSpec& spec);
// Appends the options of the row.
void pushRowOptions(Options& options, const ConstructionRow& row, const SystemSpec& spec);

// The numbers of the variant.
std::vector<std::int64_t> variantOf(const ConstructionRow& row, const SystemSpec& spec);

}  // namespace cmdline
