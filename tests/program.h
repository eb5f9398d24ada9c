#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace program {

struct Outcome {
  int status = -1;       // of the exit; -1 when the run was stopped at its time limit
  std::string out, err;  // standard output and standard error
};

// An empty folder of its own that vanishes with the object.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  const std::filesystem::path& path() const { return place; }
  // The content of every file below, by its relative path.
  std::map<std::string, std::string> files() const;

 private:
  std::filesystem::path place;
};

// Runs the generator with the words of `line` (parted by blanks) in `folder`.
Outcome run(const Folder& folder, const std::string& line, double limitSeconds = 60);
// The same with words that may hold blanks.
Outcome runWords(const Folder& folder, const std::vector<std::string>& words,
                 double limitSeconds = 60);

// Whether the bench of the unit in `folder` passes.
bool simulates(const Folder& folder);

// Expects that `line` is refused: status 255, no file, and one line on standard error that has
// `message`.
void expectRefusal(const std::string& line, const testing::Matcher<const std::string&>& message);

}  // namespace program
