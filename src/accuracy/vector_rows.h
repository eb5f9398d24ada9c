#pragma once

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "numbers/ports.h"

// Reads a vector file of bit patterns (vectors/stm_writer.h has its form), or what a simulation has
// recorded in that form, row by row. A row of another form ends the run with one line that names
// the file and the row.
class VectorRows {
 public:
  //   ports     whose columns stand in each row
  //   hasFlow   valid and channel stand in front of them
  //   enable    an enable may stand behind them
  VectorRows(std::string path, const PortSpecList& ports, bool hasFlow, bool enable);

  // Whether the file can be read at all; to be asked first. The reason stands in errno.
  bool canBeRead() const { return readable; }
  // Moves to the next row; false at the end of the file. Empty lines are no rows.
  bool next();

  // The number of the current row in the file, from 1.
  long line() const { return lineNumber; }
  const std::string& path() const { return filePath; }
  // Rows that have been read.
  long count() const { return rowCount; }

  // Of the current row: 1 and 0 without these columns.
  int valid() const { return hasFlow ? static_cast<int>(bits(0, 1)) : 1; }
  int channel() const { return hasFlow ? static_cast<int>(bits(1, 8)) : 0; }
  // 1 where the column is missing.
  int enable() const;
  // The value of port `port`. Dashes are a do-not-care with the number +0. Subnormal patterns are
  // their numbers with `subnormals` and signed zeros without; an FPLib port has none.
  void decode(NumValue& value, std::size_t port, bool subnormals) const;

 private:
  [[noreturn]] void fail(const std::string& message) const;
  std::size_t firstData() const { return hasFlow ? 2 : 0; }
  unsigned long bits(std::size_t column, std::size_t width) const;
  // The column as a number, which has to have `width` binary digits.
  const util::MPZ& patternOf(std::size_t column, std::size_t width, const std::string& what) const;

  std::string filePath;
  const PortSpecList& ports;
  bool hasFlow, hasEnable;
  bool readable = false;
  std::ifstream file;
  std::string buffer;  // the current line; its size is a limit that no row reaches
  std::vector<std::string_view> columns;
  long lineNumber = 0, rowCount = 0;
  mutable util::MPZ pattern;  // storage only
  mutable std::string digits;
};
