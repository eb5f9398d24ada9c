#pragma once

#include <cstddef>
#include <string>

#include "backend/kiln/values.h"

namespace cmdline {

// Values of the kit in the current context.
inline kiln::PureValueRef textValue(const std::string& text) {
  return kiln::StringValue::get(text, kiln::ContextMgr::get());
}
inline kiln::PureValueRef numberValue(std::size_t number) {
  return kiln::NumberValue::get(static_cast<double>(number), kiln::ContextMgr::get());
}

}  // namespace cmdline
