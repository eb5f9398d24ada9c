#pragma once

#include "backend/kiln/node.h"

namespace cmdline {

// Writes a design as XML into "somefile.xml" of the working directory. A file that cannot be
// written is no error.
void writeRecordFile(const kiln::Design& design);

}  // namespace cmdline
