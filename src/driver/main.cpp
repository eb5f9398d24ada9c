#include <malloc.h>

#include "driver/run.h"

namespace {

// Graphs, networks and series come and go by megabytes. Memory that goes back to the system between
// them comes again as pages to be cleared, a tenth of the time that functions take.
void keepFreedMemory() {
  constexpr int kMegabyte = 1 << 20;
  mallopt(M_MMAP_THRESHOLD, 32 * kMegabyte);
  mallopt(M_TRIM_THRESHOLD, 1024 * kMegabyte);
  mallopt(M_TOP_PAD, 16 * kMegabyte);
}

}  // namespace

int main(int argc, char** argv) {
  keepFreedMemory();
  return driver::run(argc, argv);
}
