#pragma once

#include <optional>
#include <string_view>

#include "numbers/ports.h"
#include "util/failure.h"

namespace driver {

// The failure of the operator `word` with a port for whose format there is no circuit: exponents
// have 2 to 15 bits, fractions 1 to 112; fixed-point ports have 1 to `precision` bits, up to 2^15
// of them behind the point, or as many zeros in front of it.
std::optional<util::Failure> formatFailure(std::string_view word, const PortSpecList& inputs,
                                           const PortSpecList& outputs, int precision);

}  // namespace driver
