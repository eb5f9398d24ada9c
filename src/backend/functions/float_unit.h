#pragma once

#include <span>

#include "backend/arithmetic/floating_point.h"
#include "backend/functions/unit.h"

// What the floating-point units read from a request.
namespace functions {

const kiln::FloatingPoint& inputFloat(const Signature& signature, std::size_t port);
const kiln::FloatingPoint& outputFloat(const Signature& signature, std::size_t port);

arithmetic::FloatFormat inputFormat(const Request& request, std::size_t port);
arithmetic::FloatFormat outputFormat(const Request& request, std::size_t port);

// The error that output `port` may have, in ulps; 0.5 stands for exact and correct rounding.
double ulpsOf(const Request& request, std::size_t port);

// The request's rounding, its port looked up among the inputs, ties to nearest as the words say.
arithmetic::RoundingRule roundingOf(const Request& request, bool tiesAway,
                                    std::span<const graph::Signal> inputs);

// True for an unsigned integer port of `width` bits.
bool isUnsignedOf(const kiln::Type& type, int width);

// Limits of every floating port: exponents of 2 to 15 bits, fractions of 1 to 112.
std::optional<std::string> refuseFormats(const Request& request);

// Refuses unless there are `inputs` floating inputs, then `controls` inputs of one bit, and
// `outputs` floating outputs.
std::optional<std::string> refusePorts(const Request& request, std::size_t inputs,
                                       std::size_t controls, std::size_t outputs);

// Refuses floating ports of different exponent or fraction widths.
std::optional<std::string> refuseMixedWidths(const Request& request);

// The same, and refuses IEEE-style ports beside FPLib ports.
std::optional<std::string> refuseMixedForms(const Request& request);

}  // namespace functions
