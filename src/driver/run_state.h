#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "backend/kiln/values.h"
#include "backend/model/model.h"
#include "backend/model/options.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"
#include "operators/build.h"

namespace driver {

struct OptionRow;

// Everything that the words of one line set, and what is built from them. Members are destroyed in
// reverse order: the models before the context that their values live in.
struct RunState {
  kiln::ContextMgr context;
  TestingOptions testing;
  CModelOptions modelOptions{true};
  device::Device* startUpDevice = nullptr;  // stands in until the first operator
  device::Device* device = nullptr;

  // Of the device; fixed at the first operator.
  std::string targetFamily = "Merrow10";
  std::string partName = "Auto";
  std::string speedGrade = "fast";
  int frequencyMHz = 50;

  // Of the unit; fixed at each operator.
  std::string topName = "topModel";
  std::string testName = "topModelTest";
  WrapperTypeEnum wrapperType = kNoWrapper;

  // Of the run; read when all words are read.
  LANGUAGE language = LANGUAGE_VHDL;
  int latencyConstraint = -1;  // cycles; none when negative
  int testCaseCount = -1;      // a bench is written when positive
  bool printMachineReadable = false;
  bool generateFiles = true;
  bool gpioMismatchIsError = true;
  bool channelMismatchIsError = true;
  bool evaluateAccuracy = false;
  std::string stimuliFile, responseFile;
  bool generateProject = false;
  bool dontCareOnReset = false;
  std::string valLowText, valHighText;  // of the value range, as they were written

  // The operator built last.
  std::string_view operatorWord;
  PortSpecList inputs, outputs;
  std::string component;
  std::string method = "default";
  componentType operatorType = 0;
  operators::BuiltOperator built;

  // Options met behind the operator that they do not reach any more.
  std::vector<const OptionRow*> lateOptions;
};

}  // namespace driver
