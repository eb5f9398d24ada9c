#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "util/failure.h"

namespace util {

// The words of a command line that are still to be read.
using Words = std::span<const char* const>;

// The integer that a word of the command line spells, by its leading decimal digits (0 without
// any), in 32 bits.
int integerOf(const char* word);

// The failure of a line on which fewer words than `names` follow the option or operator `word`;
// nothing when there are enough. The names stand in one text with blanks in between.
std::optional<Failure> missingWords(const std::string& word, std::string_view names, Words behind);

// The number of names in such a text.
int countNames(std::string_view names);

// The words as one line of text, fit for a comment of a generated file: a control character in them
// shows as a question mark.
std::string joined(Words words);

// The integers below 2^bits that `value` is among with the fewest bits; 1 for 0.
int bitsForValue(long value);

}  // namespace util
