#pragma once

#include <fmt/format.h>
#include <gmp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"
#include "vectors/population.h"

namespace fs = std::filesystem;

// A reference that makes each output of the inputs' numbers.
struct TestUnit final : CFuncUnitFunctionInterface {
  using Operation = std::function<void(mpfr_ptr q, const std::vector<NumValue>& inputs,
                                       mpfr_rnd_t rounding, std::size_t output)>;
  explicit TestUnit(Operation operation) : operation(std::move(operation)) {}
  void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>& roundings,
                bool /*subnormals*/) override {
    results.resize(precisions.size());
    for (std::size_t j = 0; j < results.size(); ++j) {
      results[j].type = std::max(inputs[0].type, inputs[1].type);
      mpfr_ptr q = results[j].real.prepare(precisions[j]);
      operation(q, inputs, roundings[j], j);
      if (results[j].type == NumType::kDontCare) mpfr_set_zero(q, 1);
    }
  }
  Operation operation;
};

inline std::string bitsOf(float x) {
  return fmt::format("{:032b}", std::isnan(x) ? 0x7f800001u : std::bit_cast<std::uint32_t>(x));
}
inline float floatOf(const std::string& bits) {
  return std::bit_cast<float>(static_cast<std::uint32_t>(std::stoul(bits, nullptr, 2)));
}

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

  int populate(CFuncUnitFunctionInterface& unit, int latency) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int count = populateStmFilesFP(&unit, "unit", in, out, latency, t);
    console = testing::internal::GetCapturedStdout();
    errors = testing::internal::GetCapturedStderr();
    return count;
  }
  // What a population that ends the run says last.
  void expectExit(CFuncUnitFunctionInterface& unit, const std::string& message) {
    EXPECT_EXIT(populateStmFilesFP(&unit, "unit", in, out, 3, t), testing::ExitedWithCode(255),
                message);
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
  std::string console, errors;
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
