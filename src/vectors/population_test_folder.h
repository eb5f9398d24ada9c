#pragma once

#include <fmt/format.h>
#include <gmp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

namespace fs = std::filesystem;

// A test of a population in a working folder of its own, which vanishes with it.
class PopulationFolder : public testing::Test {
 protected:
  PopulationFolder() : before(fs::current_path()) {
    folder = fs::temp_directory_path() / fmt::format("population_test.{}", getpid());
    fs::create_directories(folder);
    fs::current_path(folder);
  }
  ~PopulationFolder() override {
    fs::current_path(before);
    fs::remove_all(folder);
  }

  static std::vector<std::string> rowsOf(const char* path) {
    std::vector<std::string> rows;
    std::ifstream file(path);
    for (std::string row; std::getline(file, row);) rows.push_back(row);
    return rows;
  }
  static std::vector<std::string> columnsIn(const std::string& row) {
    std::vector<std::string> columns;
    std::istringstream stream(row);
    for (std::string column; stream >> column;) columns.push_back(column);
    return columns;
  }

  PortSpecList in, out;
  TestingOptions t;
  fs::path before, folder;
};

// Counts the calls of MPFR's and GMP's allocator while it lives.
class AllocationCount {
 public:
  AllocationCount() {
    calls = 0;
    mp_set_memory_functions(
        [](std::size_t size) {
          ++calls;
          return std::malloc(size);
        },
        [](void* block, std::size_t, std::size_t size) {
          ++calls;
          return std::realloc(block, size);
        },
        [](void* block, std::size_t) { std::free(block); });
  }
  ~AllocationCount() { mp_set_memory_functions(nullptr, nullptr, nullptr); }
  AllocationCount(const AllocationCount&) = delete;
  long soFar() const { return calls; }

 private:
  static inline long calls = 0;
};
