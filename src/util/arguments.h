#pragma once

#include <string>
#include <vector>

// The search view over the words of a command line, without the program's name. Owns nothing.
struct Options {
  const char* const* begin;
  const char* const* end;

  bool has(const std::string& name) const;
  // How many words stand behind the first word equal to `name`; 0 when no word is.
  int wordsBehind(const std::string& name) const;
  // The word behind the first word equal to `name`; `defaultValue` when there is none.
  std::string getArg(const std::string& name, const std::string& defaultValue) const;
  // The `count` words behind the first word equal to `name`, or as many copies of `defaultValue`
  // when no word is. Empty for a count below 1. A line that ends too early raises the standard
  // logic error.
  std::vector<std::string> getArgs(const std::string& name, int count,
                                   const std::string& defaultValue) const;
};
