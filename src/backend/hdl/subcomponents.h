#pragma once

#include <string>

#include "backend/hdl/emission.h"

namespace hdl {

// The design in one entity for each outermost scope of its graph, one for what belongs to none, and
// a top that wires them together: the same bits in the same cycles out of the same registers, each
// in the entity that drives it. Entities are called by the top and their scope. One entity by
// itself when the graph has fewer than two such parts.
std::string subcomponentsText(const Design& design, LANGUAGE language);

}  // namespace hdl
