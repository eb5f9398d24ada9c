#pragma once

namespace util {

// A source of integers with a fixed seed, so that a run repeats byte for byte; the second source
// beside the GMP state of a population.

// A uniform integer in [0, n); n >= 1.
int GetRandom(int n);
// A uniform integer in [a, b]; a <= b.
int GetRandomInRangeIncInc(int a, int b);
// Starts the sequence again, so that the vectors of a unit do not depend on what was made before.
void restartRandom();

}  // namespace util
