#pragma once

#include <string>
#include <vector>

#include "numbers/component_type.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"
#include "util/arguments.h"

// Finds the operator of the line in the catalogue: the one word that is a name of it, wherever it
// stands. Appends the unit's ports, with the formats that its parameters give, sets
// testOptions.componentType, prints what it found and returns the words behind the name. A line
// that ends before them is filled up with "0"; formats that no circuit has are not looked for.
//
// A line with no such name or with two of them, or with a parameter that chooses no row, fails an
// assertion. Of a name that stands for several rows the first on the line's way through the
// catalogue wins, and any name behind it is ignored.
std::vector<std::string> fetchUnitOperator(const Options& options, PortSpecList& inputs,
                                           PortSpecList& outputs, TestingOptions& testOptions);

// The row that the parameters `v` choose among those called `name`; 0 for a name with one row. A
// choice that does not exist fails an assertion.
componentType exceptionHandler(std::string name, std::vector<std::string> v);
