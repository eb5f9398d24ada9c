// From a command line to the files of a unit, without vectors: whole runs of the program.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

// A folder for the files, gone at the end.
class Scratch {
 public:
  Scratch() {
    std::string pattern = (std::filesystem::temp_directory_path() / "generationXXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    folder = pattern;
  }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
  const std::string& path() const { return folder; }

 private:
  std::string folder;
};

void generate(benchmark::State& state, const char* line) {
  const Scratch scratch;
  const std::string command =
      "cd " + scratch.path() + " && " CMDGAUGE_PROGRAM " " + line + " >/dev/null";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
}

BENCHMARK_CAPTURE(generate, FPAdd_8_23, "-frequency 300 FPAdd 8 23")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(generate, FPMul_11_52, "-frequency 300 FPMul 11 52")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(generate, MultSchoolbook_256, "-frequency 300 MultSchoolbook 256")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
