#pragma once

#include <span>
#include <string>
#include <string_view>

#include "driver/run_state.h"
#include "util/words.h"

namespace driver {

// Up to where on the line an option counts.
enum class Reach {
  kLine,    // anywhere
  kUnit,    // in front of the operator that it is to change
  kDevice,  // in front of the first operator
};

// One option of the classic flow.
struct OptionRow {
  std::string_view name;
  std::string_view parameters;  // names of the words behind it
  Reach reach;
  // Sets what the option sets, and prints what depends on `words`, those behind its name.
  void (*action)(RunState& run, util::Words words);
  std::string_view printed = {};  // after the action
  // With such a name, the first word tells how many values follow it.
  std::string_view repeated = {};
};

// All options, in the order in which a word of the line is compared with them.
std::span<const OptionRow> optionRows();

// The first row called `word`, without regard to case, or null.
const OptionRow* findOption(const std::string& word);

// Applies the option to the words behind its name and returns how many of them belong to it. Ends
// the run with one line when there are too few.
std::size_t applyOption(const OptionRow& row, RunState& run, util::Words behind);

}  // namespace driver
