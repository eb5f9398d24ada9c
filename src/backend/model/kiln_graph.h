#pragma once

#include <string>

#include "backend/functions/unit.h"
#include "backend/kiln/node.h"
#include "numbers/ports.h"

// The one unit that a model of the design kit describes, and what stands around it.
struct KilnUnit {
  std::string name;      // of its block; begins the line of a refusal
  std::string unitName;  // name of its row in the unit table
  functions::Variant variant;
  PortSpecList inputs, outputs;
  bool hasChannelValid = false;
  bool hasEnable = false;
  bool isCorrectlyRounded = false;  // an option of the unit asks for it
  bool hasSubnormals = false;
};

// Follows the wires from the input block over the channel-in or signal-in block, the unit and the
// channel-out or signal-out block to the output block. Ports are called by the keys of their wires,
// where these are texts, and have the formats of the type pins and of the unit's block; the
// output formats of a block that stands for a function follow from its type. The wire "en" of the
// input block is the enable signal.
//
// A graph of another shape is a failed assertion. A block without a type, or of one that stands for
// no function of the ports that it has, ends the run with one line.
KilnUnit kilnUnitOf(kiln::Model& model);
