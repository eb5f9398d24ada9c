#pragma once

#include <string>

#include "driver/run_state.h"
#include "util/words.h"

// What the options do: each sets its settings from the words behind its name.
namespace driver {

template <std::string RunState::*Text>
void setText(RunState& run, util::Words words) {
  run.*Text = words[0];
}
template <int RunState::*Number>
void setNumber(RunState& run, util::Words words) {
  run.*Number = util::integerOf(words[0]);
}
template <bool RunState::*Flag>
void raise(RunState& run, util::Words) {
  run.*Flag = true;
}
template <bool RunState::*Flag>
void clear(RunState& run, util::Words) {
  run.*Flag = false;
}
template <bool TestingOptions::*Flag>
void raiseTest(RunState& run, util::Words) {
  run.testing.*Flag = true;
}
template <const OptionLabel& Label>
void setLabel(RunState& run, util::Words words) {
  run.modelOptions.setOptionValue(Label, util::integerOf(words[0]));
}
template <const OptionLabel& Label>
void raiseLabel(RunState& run, util::Words) {
  run.modelOptions.setOptionValue(Label, 1);
}
template <WrapperTypeEnum Wrapper>
void setWrapper(RunState& run, util::Words) {
  run.wrapperType = Wrapper;
}
template <bool Base2>
void setBase2Stimuli(RunState& run, util::Words) {
  run.modelOptions.base2Stimuli = Base2;
}
inline void ignore(RunState&, util::Words) {}

void setFrequency(RunState& run, util::Words words);
void setPipelining(RunState& run, util::Words words);
void setAccuracyFiles(RunState& run, util::Words words);
void setName(RunState& run, util::Words words);
void setEnable(RunState& run, util::Words words);
void setIntegerFeature(RunState& run, util::Words words);
void setStringFeature(RunState& run, util::Words words);
void setDebug(RunState& run, util::Words words);
void setCorrectRounding(RunState& run, util::Words words);
void setFaithfulRounding(RunState& run, util::Words words);
void addErrorBound(RunState& run, util::Words words);   // an integer
void addErrorBounds(RunState& run, util::Words words);  // real numbers, behind their count
void setRoundType(RunState& run, util::Words words);
void setKiln(RunState& run, util::Words words);
void setHardFPAddLatency(RunState& run, util::Words words);
void setHardFPMultLatency(RunState& run, util::Words words);
void setHardFPMultAddLatency(RunState& run, util::Words words);
void setTestbench(RunState& run, util::Words words);
void setVsimToFile(RunState& run, util::Words words);
void setEnableHardFP(RunState& run, util::Words words);
void setExponentRange(RunState& run, util::Words words);
void setDecimalRange(RunState& run, util::Words words);
void setBinaryRange(RunState& run, util::Words words);
void setInjectedVector(RunState& run, util::Words words);
void setGenNaN(RunState& run, util::Words words);
void setGenInf(RunState& run, util::Words words);
void setSubnormals(RunState& run, util::Words words);
void setPiTesting(RunState& run, util::Words words);
void setQuietNaN(RunState& run, util::Words words);
void setAllTests(RunState& run, util::Words words);
void setTestOutputType(RunState& run, util::Words words);
void setLanguage(RunState& run, util::Words words);
void setVerbosity(RunState& run, util::Words words);
void setPreserveEntityName(RunState& run, util::Words words);
void setLutMultRatio(RunState& run, util::Words words);

}  // namespace driver
