#include "backend/model/files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "util/failure.h"

void writeWholeFile(const std::string& folder, const std::string& fileName, const std::string& text,
                    bool executable) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) util::exitWith({"cannot make the folder " + folder + ": " + error.message()});

  const std::string path = folder + "/" + fileName;
  const std::string beside = path + ".part";
  std::FILE* file = std::fopen(beside.c_str(), "wb");
  if (!file) util::exitWith({"cannot write " + path + ": " + std::strerror(errno)});
  const bool complete = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (std::fclose(file) != 0 || !complete) {
    const std::string reason = std::strerror(errno);
    fs::remove(beside, error);
    util::exitWith({"cannot write " + path + ": " + reason});
  }
  using enum fs::perms;
  if (executable)
    fs::permissions(beside, owner_exec | group_exec | others_exec, fs::perm_options::add, error);
  if (!error) fs::rename(beside, path, error);
  if (error) {
    const std::string reason = error.message();
    fs::remove(beside, error);
    util::exitWith({"cannot write " + path + ": " + reason});
  }
}
