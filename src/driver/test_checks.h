#pragma once

#include <string_view>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

namespace driver {

// Ends the run with one line when what the tests ask for fits no vector of the operator `word`.
// Vectors are counted only where they are to be written.
void checkTests(std::string_view word, const PortSpecList& inputs, const TestingOptions& testing,
                bool writesVectors);

}  // namespace driver
