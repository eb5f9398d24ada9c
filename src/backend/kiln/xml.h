#pragma once

#include <ostream>

#include "backend/kiln/node.h"

namespace kiln {

// Records of designs for people and tools.
class XMLServices {
 public:
  // The whole graph, in the order in which it was made: every model, block, wire and parameter. The
  // same design gives the same bytes. Schema: README.md of this folder.
  void toXML(std::ostream& out, const Design& design) const;
};

}  // namespace kiln
