#pragma once

namespace driver {

// The whole program: builds what the words of one command line ask for and returns the exit status.
int run(int argc, const char* const* argv);

}  // namespace driver
