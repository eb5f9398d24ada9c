#pragma once

#include <string>
#include <vector>

#include "backend/approximation/function.h"

namespace approximation {

// The nodes of an expression, operands first.
util::Result<std::vector<Function::Node>> parseExpression(const std::string& text);

}  // namespace approximation
