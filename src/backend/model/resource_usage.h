#pragma once

namespace tessel_api {

// Whole blocks of each kind that a unit is estimated to need.
class ResourceUsage {
 public:
  enum Kind : int { kLut = 0, kDsp = 1, kRamBlock = 2, kRamBit = 3 };
  int get(Kind kind) const { return counts[kind]; }
  void set(Kind kind, int count) { counts[kind] = count; }

 private:
  int counts[4] = {};
};

}  // namespace tessel_api
