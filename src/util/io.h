#pragma once

#include <filesystem>

namespace util::io {

using Path = std::filesystem::path;

// Creates the directory and returns true if it did so; false if it stands already or cannot be
// made. With `parents` the directories above it are made as well.
bool MakeDirectory(const char* path, bool parents);

}  // namespace util::io
