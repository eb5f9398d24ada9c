#pragma once

#include <mpfr.h>

#include <vector>

#include "numbers/ports.h"

// A unit's reference function as the populations drive it.
class CFuncUnitFunctionInterface {
 public:
  virtual ~CFuncUnitFunctionInterface() = default;
  // Writes one value for each output port into `results` (resized to fit, storage reused): the
  // function of `inputs`, rounded once to precisions[k] bits in direction roundings[k].
  virtual void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                        const std::vector<unsigned>& precisions,
                        const std::vector<mpfr_rnd_t>& roundings, bool subnormals) = 0;
  // The least and the greatest value that a unit may give whose correct rounding is not proven
  // (TestingOptions::unprovenRounding); of any other function both are its result.
  virtual void evaluateUndecided(std::vector<NumValue>& low, std::vector<NumValue>& high,
                                 const std::vector<NumValue>& inputs,
                                 const std::vector<unsigned>& precisions,
                                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
    evaluate(low, inputs, precisions, roundings, subnormals);
    evaluate(high, inputs, precisions, roundings, subnormals);
  }

  bool keepsSubnormals = false;  // as if every call said so
};

// The same function as the accuracy evaluation takes it.
using CFuncUnitCleanInterface = CFuncUnitFunctionInterface;
