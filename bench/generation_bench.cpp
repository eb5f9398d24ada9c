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

void generate(benchmark::State& state, const std::string& line) {
  const Scratch scratch;
  const std::string command =
      "cd " + scratch.path() + " && " CMDGAUGE_PROGRAM " " + line + " >/dev/null 2>&1";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
}

constexpr const char* kLines[] = {
    "FPAdd 8 23",   "FPAdd 11 52",        "FPMul 11 52",
    "LongAdd 4096", "MultSchoolbook 256", "MultSchoolbook 512",
};
// At 8 23 and 11 52, faithful and correct.
constexpr const char* kFunctions[] = {
    "FPInverse", "FPSqrt", "FPSqrtLogic", "FPRecipSqrt", "FPExp",  "FPExp2",
    "FPLn",      "FPLog2", "FPLog10",     "FPSinPiX",    "FPSinX",
};

void measure(const std::string& line) {
  benchmark::RegisterBenchmark(line.c_str(), generate, "-target TarnV -frequency 300 " + line)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
  for (const char* line : kLines) measure(line);
  for (const std::string options : {"", "-correctRounding "})
    for (const std::string format : {" 8 23", " 11 52"}) {
      for (const char* word : kFunctions) measure(options + word + format);
      for (const std::string version : {" 0", " 1"}) measure(options + "FPDiv" + format + version);
    }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
