#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace hdl {

// `text` as an identifier of both languages: letters, digits and single underscores, a letter
// first; never empty. Keywords are not looked at.
std::string legalName(std::string_view text);

// True for a word that VHDL, Verilog or SystemVerilog keeps for itself, and for the names of the
// standard packages that a printed design uses. Without regard to case.
bool isReserved(std::string_view name);

// The names of one design: unique without regard to case, legal in both languages, so that the two
// prints of a design call everything alike.
class Names {
 public:
  // `wanted` itself when it is legal and free, else the nearest name that is.
  std::string claim(std::string_view wanted);

 private:
  std::unordered_map<std::string, int> taken;  // lower case; the next number to try behind it
};

}  // namespace hdl
