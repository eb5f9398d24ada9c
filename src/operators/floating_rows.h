#pragma once

#include "operators/operator_row.h"

namespace operators {

// The operators on floating-point numbers, in the order of comparison.
std::span<const OperatorRow> floatingRows();

}  // namespace operators
