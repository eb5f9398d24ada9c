#pragma once

#include <string>

// Writes a file whole, beside its place and then renamed, so that no half-written one ever stands
// there; makes the folder if there is none. Ends the run with one line where that is impossible.
void writeWholeFile(const std::string& folder, const std::string& fileName, const std::string& text,
                    bool executable);
