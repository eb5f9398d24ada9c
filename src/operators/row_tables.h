#pragma once

#include "operators/operator_row.h"

// The tables of rows, by subject. Together, in this order, they are the chain of comparison.
namespace operators {

// Conversions from floating point, roots, quotients, trigonometry, activation, parts of a number.
std::span<const OperatorRow> floatFunctionRows();
// Sums, differences, fused sums of products, trees, dot products.
std::span<const OperatorRow> floatSumRows();
// Products, order, polynomials, logarithms, exponentials, powers.
std::span<const OperatorRow> floatProductRows();
// Fixed-point functions, products and quotients, conversions to floating point.
std::span<const OperatorRow> fixedRows();
// Products and sums of long integers, whole or modulo a number.
std::span<const OperatorRow> longIntegerRows();

}  // namespace operators
