#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "util/mpz.h"

namespace hdl {

// One statement as lines of at most 100 columns, as far as its blanks allow; continued lines are
// indented by four more.
std::string statement(int indent, const std::string& text);

// The header of a file: each line behind `mark`, then a blank line.
std::string headerLines(const std::vector<std::string>& header, const std::string& mark);

// `text` with each @word@ replaced by what stands for it.
std::string filled(std::string_view text, const std::map<std::string, std::string>& words);

// The pattern as digits of a power of two: enough for `width` bits, zeros in front.
std::string binaryDigits(const util::MPZ& value, int width);
std::string hexDigits(const util::MPZ& value, int width);

}  // namespace hdl
