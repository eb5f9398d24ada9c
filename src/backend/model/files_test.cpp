#include "backend/model/files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(Files, StandWholeOrNotAtAll) {
  const fs::path folder = fs::temp_directory_path() / ("files_test_" + std::to_string(getpid()));
  const fs::path inside = folder / "deep" / "unit";
  writeWholeFile(inside, "run.sh", "#!/bin/sh\n", true);
  writeWholeFile(inside, "run.sh", "#!/bin/sh\nexit 3\n", true);
  EXPECT_EQ(contentOf(inside / "run.sh"), "#!/bin/sh\nexit 3\n");
  EXPECT_EQ(access((inside / "run.sh").c_str(), X_OK), 0);

  // A folder stands where the file should go; a file stands where the folder should go.
  fs::create_directory(inside / "taken");
  EXPECT_EXIT(writeWholeFile(inside, "taken", "text", false), testing::ExitedWithCode(255),
              "cannot write .*/taken: ");
  EXPECT_EXIT(writeWholeFile(inside / "run.sh", "x", "text", false), testing::ExitedWithCode(255),
              "cannot make the folder .*/run.sh: ");
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(inside)) ++entries;
  EXPECT_EQ(entries, 2u);
  fs::remove_all(folder);
}

}  // namespace
