#pragma once

#include <cstdint>
#include <vector>

// A unit's software model as the vectors drive it: cycle by cycle, on patterns of up to 64 bits.
class ExecuteInterface {
 public:
  virtual ~ExecuteInterface() = default;
  // All registers to zero.
  virtual void Reset() = 0;
  // Cycles from an input to its output.
  virtual int inputToOutputLatency() const = 0;
  // One clock cycle with these patterns on the input ports; sets one pattern for each output port,
  // as the ports show it in that cycle.
  virtual void Execute(const std::vector<std::uint64_t>& inputs, bool valid, int channel,
                       std::vector<std::uint64_t>& outputs) = 0;
};
