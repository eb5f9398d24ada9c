#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/kiln/node.h"

// Names one integer setting of the back end. Labels are compared by address.
struct OptionLabel {
  const char* name;
  int defaultValue = 0;
};
// Names one property of a model.
struct PropertyLabel {
  const char* name;
};

namespace floatOption {
inline OptionLabel faithfulRes{"faithfulRes", 1};
inline OptionLabel overrideHardFPRegisters{"overrideHardFPRegisters", -1};
inline OptionLabel subnormals{"subnormals"};
inline OptionLabel enableHardFP{"enableHardFP"};
inline OptionLabel simulateHardFP{"simulateHardFP"};
inline OptionLabel hardFPAddLatency{"hardFPAddLatency", -1};
inline OptionLabel hardFPMultLatency{"hardFPMultLatency", -1};
inline OptionLabel hardFPMultAddLatency{"hardFPMultAddLatency", -1};
}  // namespace floatOption

namespace synthOption {
inline OptionLabel rigorousTesting{"rigorousTesting"};
inline OptionLabel genGlobalEnableInput{"genGlobalEnableInput"};
inline OptionLabel useDSPForAlignment{"useDSPForAlignment"};
inline OptionLabel subcomponents{"subcomponents"};
inline OptionLabel forceCombinational{"forceCombinational"};
inline OptionLabel verbosity{"verbosity"};
inline OptionLabel globalDontCareOnReset{"globalDontCareOnReset"};
}  // namespace synthOption

namespace synthProp {
inline PropertyLabel deviceLevel{"deviceLevel"};
}  // namespace synthProp

struct DMFxPTableGenerator {
  static inline OptionLabel optionFuseCoefTables{"optionFuseCoefTables"};
};
struct CFxPTruncMult {
  static inline OptionLabel optionNoTruncMult{"optionNoTruncMult"};
};

// The register in front of the inputs (1), behind the outputs (2), or both (3).
enum WrapperTypeEnum : int { kNoWrapper = 0, kWrapperIn = 1, kWrapperOut = 2, kWrapperBoth = 3 };
enum SYNTH_STYLE : int { kDefaultStyle = 1 };

namespace device {

// The device that units consult while they are built, null outside every scope.
struct ModelSpecificAdjustment {
  const Device* device = nullptr;
};

// Puts an adjustment in force for its lifetime.
class ScopedModelAdjustment {
 public:
  ScopedModelAdjustment(const Device& device, ModelSpecificAdjustment& adjustment)
      : adjustment(adjustment), before(adjustment.device) {
    adjustment.device = &device;
  }
  ~ScopedModelAdjustment() { adjustment.device = before; }
  ScopedModelAdjustment(const ScopedModelAdjustment&) = delete;

 private:
  ModelSpecificAdjustment& adjustment;
  const Device* before;
};

}  // namespace device

// What a unit owes, as far as the words of the line before the operator say it.
struct UnitSettings {
  std::vector<float> errorBounds;  // ulps; the first stands for outputs without one of their own
  int roundType = 0;               // of correct rounding: 0 nearest even, 1 down, 2 up, 3 to zero
};

// Every setting that reaches the back end. A model takes a copy when it is made: what decides the
// circuit (labels, error bounds, rounding, prices) counts only up to then. The language, the quiet
// NaN and what concerns the files count until the model is elaborated.
class CModelOptions {
 public:
  explicit CModelOptions(bool) {}

  void setBridgeDesign(std::shared_ptr<kiln::Design> design) { bridge = std::move(design); }
  const std::shared_ptr<kiln::Design>& bridgeDesign() const { return bridge; }
  void setOptionValue(const OptionLabel& label, int value) { values[&label] = value; }
  int getOptionValue(const OptionLabel& label) const {
    const auto found = values.find(&label);
    return found == values.end() ? label.defaultValue : found->second;
  }
  void setLanguage(LANGUAGE value) { language = value; }
  device::ModelSpecificAdjustment& modelSpecificAdjustment() { return adjustment; }

  double clockFrequency = 0;     // MHz
  int generator = 0;             // of a design: 1 to 3 by name, 0 any other
  bool vsimToFile = false;       // the bench writes what it saw
  bool oneResponseFile = false;  // for all outputs, though they are split
  bool base2Stimuli = true;
  bool synthesisOnly = false;
  int lutMultRatio = 0;  // look-up tables that one DSP block is worth; 0: the device's own figure
  std::vector<float> outputErrors;
  device::Device* device = nullptr;
  LANGUAGE language = LANGUAGE_VHDL;

  UnitSettings unitSettings;
  bool quietNaN = false;
  int seed = 0;             // of the vectors, for the record
  std::string commandLine;  // words of the run, for headers and record

 private:
  std::map<const OptionLabel*, int> values;
  std::shared_ptr<kiln::Design> bridge;
  device::ModelSpecificAdjustment adjustment;
};
