#pragma once

#include "operators/operator_row.h"

namespace operators {

// The operators on fixed-point numbers and integers, in the order of comparison.
std::span<const OperatorRow> integerRows();

}  // namespace operators
