#include "util/io.h"

#include <system_error>

namespace util::io {

bool MakeDirectory(const char* path, bool parents) {
  std::error_code ignored;
  return parents ? std::filesystem::create_directories(path, ignored)
                 : std::filesystem::create_directory(path, ignored);
}

}  // namespace util::io
