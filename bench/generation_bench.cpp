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

void onTheClock(benchmark::internal::Benchmark* bench) {
  bench->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK_CAPTURE(generate, FPAdd_8_23, "-frequency 300 FPAdd 8 23")->Apply(onTheClock);
BENCHMARK_CAPTURE(generate, FPAdd_11_52, "-frequency 300 FPAdd 11 52")->Apply(onTheClock);
BENCHMARK_CAPTURE(generate, FPMul_11_52, "-frequency 300 FPMul 11 52")->Apply(onTheClock);
BENCHMARK_CAPTURE(generate, LongAdd_4096, "-frequency 300 LongAdd 4096")->Apply(onTheClock);
BENCHMARK_CAPTURE(generate, MultSchoolbook_256, "-frequency 300 MultSchoolbook 256")
    ->Apply(onTheClock);
BENCHMARK_CAPTURE(generate, MultSchoolbook_512, "-frequency 300 MultSchoolbook 512")
    ->Apply(onTheClock);

}  // namespace

BENCHMARK_MAIN();
