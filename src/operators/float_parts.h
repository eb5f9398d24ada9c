#pragma once

#include "operators/row_parts.h"

// Parameters and port shapes that several tables of floating-point operators share.
namespace operators {

inline constexpr Parameter kFormat[] = {exponentWidth("wE"), fractionWidth("wF")};
inline constexpr Parameter kInOutFormats[] = {exponentWidth("wEIn"), fractionWidth("wFIn"),
                                              exponentWidth("wEOut"), fractionWidth("wFOut")};

// The two ways of writing a number of the operator's own format on a port.
enum Form { kIeee, kLib };

inline kiln::FloatingPoint format(const Parameters& p, Form form = kIeee) {
  return form == kLib ? kiln::fpLib(p[1], p[2]) : kiln::ieee(p[1], p[2]);
}

template <Form Q = kIeee>
Ports unary(const Parameters& p) {
  return makePorts({{"a", format(p)}}, {{"q", format(p, Q)}});
}

template <Form A = kIeee, Form B = kIeee, Form Q = kIeee>
Ports binary(const Parameters& p) {
  return makePorts({{"a", format(p, A)}, {"b", format(p, B)}}, {{"q", format(p, Q)}});
}

inline Ports ternary(const Parameters& p) {
  return makePorts({{"a", format(p)}, {"b", format(p)}, {"c", format(p)}}, {{"q", format(p)}});
}

}  // namespace operators
