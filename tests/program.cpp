#include "program.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace program {

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

[[noreturn]] void become(const fs::path& folder, const Folder& logs,
                         const std::vector<std::string>& words) {
  const auto redirect = [&](const char* name, int stream) {
    const int file = open((logs.path() / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || dup2(file, stream) < 0) _exit(126);
  };
  redirect("out", STDOUT_FILENO);
  redirect("err", STDERR_FILENO);
  std::vector<char*> arguments;
  std::string name = CMDGAUGE_PROGRAM;
  arguments.push_back(name.data());
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  if (chdir(folder.c_str()) != 0) _exit(126);
  execv(CMDGAUGE_PROGRAM, arguments.data());
  _exit(127);
}

}  // namespace

Folder::Folder() {
  std::string pattern = (fs::temp_directory_path() / "cmdgaugeXXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder for the test");
  place = pattern;
}

Folder::~Folder() {
  std::error_code ignored;
  fs::remove_all(place, ignored);
}

std::map<std::string, std::string> Folder::files() const {
  std::map<std::string, std::string> contents;
  for (const auto& entry : fs::recursive_directory_iterator(place))
    if (entry.is_regular_file())
      contents[fs::relative(entry.path(), place).string()] = contentOf(entry.path());
  return contents;
}

Outcome runWords(const Folder& folder, const std::vector<std::string>& words, double limitSeconds) {
  using Clock = std::chrono::steady_clock;
  const Folder logs;
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process for the test");
  if (child == 0) become(folder.path(), logs, words);
  const auto end = Clock::now() + std::chrono::duration<double>(limitSeconds);
  int status = 0;
  bool stopped = false;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (Clock::now() > end && !stopped) {
      kill(child, SIGKILL);
      stopped = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
          .out = contentOf(logs.path() / "out"),
          .err = contentOf(logs.path() / "err")};
}

Outcome run(const Folder& folder, const std::string& line, double limitSeconds) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return runWords(folder, words, limitSeconds);
}

bool simulates(const Folder& folder) {
  const std::string script = (folder.path() / "topModel/simulate.sh").string();
  return std::system(("'" + script + "' >/dev/null 2>&1").c_str()) == 0;
}

void expectRefusal(const std::string& line, const testing::Matcher<const std::string&>& message) {
  const Folder folder;
  const Outcome outcome = run(folder, line);
  EXPECT_EQ(outcome.status, 255) << line;
  EXPECT_THAT(outcome.err, message) << line;
  EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
  EXPECT_THAT(folder.files(), testing::IsEmpty()) << line;
}

}  // namespace program
