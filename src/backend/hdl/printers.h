#pragma once

#include <string>

#include "backend/hdl/plan.h"

namespace hdl {

// The planned design in VHDL-2008: one entity, numeric_std and the standard packages only.
std::string vhdlText(const Plan& plan);

// The same in Verilog-2005: one module.
std::string verilogText(const Plan& plan);

}  // namespace hdl
