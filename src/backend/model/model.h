#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backend/graph/graph.h"
#include "backend/hdl/emission.h"
#include "backend/kiln/node.h"
#include "backend/mapping/mapping.h"
#include "backend/model/hard_float.h"
#include "backend/model/options.h"
#include "backend/model/resource_usage.h"
#include "backend/model/units.h"
#include "backend/schedule/schedule.h"
#include "backend/software/execution.h"
#include "numbers/ports.h"

// A model of one generated design: its units, and the software that runs it cycle by cycle.
class CModel {
 public:
  CModel(CModelOptions* options, std::string name);
  virtual ~CModel() = default;
  CModel(const CModel&) = delete;

  // Schedules and builds the unit. The text is for callers that pass one and means nothing.
  virtual void elaborate(const std::string&) {}
  // Cycles from input to output. The arguments are for callers that pass them.
  virtual int inputToOutputLatency(bool, const char*) const { return 0; }
  virtual void WriteAutomaticModelIPTestBench() {}
  // Of an elaborated model: a correct rounding was asked for and is not proven in this format.
  virtual bool hasUnprovenRounding() const { return false; }
  // Runs the software model: all registers to zero; one cycle on what the channel units hold.
  virtual void Reset() {}
  virtual void Execute() {}

  const std::string& name() const { return modelName; }
  const std::vector<std::unique_ptr<CFuncUnit>>& units() const { return owned; }
  const PortSpecList& inputs() const { return inputPorts; }
  const PortSpecList& outputs() const { return outputPorts; }
  int getOptionValue(const OptionLabel& label) const { return settings.getOptionValue(label); }

 protected:
  CModelOptions* shared;   // the run's options, read at elaboration
  CModelOptions settings;  // the options as they were when the model was made
  PortSpecList inputPorts, outputPorts;

 private:
  friend class CFuncUnit;
  std::string modelName;
  std::vector<std::unique_ptr<CFuncUnit>> owned;
};

class CSynth : public CModel {
 public:
  using CModel::CModel;
};

// The model of one unit with channel and valid signals around it, from the request to the files.
class CSynthSingleEntity : public CSynth {
 public:
  static inline OptionLabel optionSplitOutputPorts{"optionSplitOutputPorts"};

  CSynthSingleEntity(CModelOptions* options, const std::string& name, const PortSpecList& inputs,
                     const PortSpecList& outputs, WrapperTypeEnum wrapper);

  void setSynthesisStyle(SYNTH_STYLE value) { style = value; }
  void setIsFloatingPoint(bool value) { isFloatingPoint = value; }
  void setPropertyValue(const PropertyLabel& label, int value) { properties[&label] = value; }
  void setTopUnit(CArithmeticUnit* unit) { topUnit = unit; }
  void setOutputFolder(const std::string& path) { folder = path; }
  kiln::Node* getBridgeModel() const { return bridgeModel; }

  // Ends the run with one line, before any file is touched, when no circuit exists for the request.
  void elaborate(const std::string&) override;

  // Each writes its files whole or not at all; a folder or file that cannot be written ends the run
  // with one line. They stand in the output folder, "./<name>" from the working directory if no
  // other was set.
  void Generate();                       // the design and its record
  void WriteSoftwareModel();             // the C++ model
  void GenerateVirtualPinAssignments();  // for the compile project: ports without a pin
  void GenerateFathomProject();          // constraints, settings, an open synthesis script
  void WriteAutomaticModelIPTestBench() override;  // the bench and the script that runs it

  tessel_api::ResourceUsage GetResourceUsage() const;
  int inputToOutputLatency(bool, const char*) const override;
  bool hasUnprovenRounding() const override { return unprovenPromise() > 0; }
  void Reset() override;
  void Execute() override;

  CChannelUnit& inputSide() const { return *channelIn; }
  const std::vector<CChannelUnit*>& outputSides() const { return channelOuts; }
  const graph::Graph& circuit() const { return mapped; }
  const schedule::Scheduled& timing() const { return *scheduled; }

  bool hasChannelValid = true;
  bool softwareModel = false;
  int generationStage = 0;

 private:
  functions::Request requestFor(CArithmeticUnit& unit) const;
  mapping::MappingOptions mappingOptions(bool combinational) const;
  void buildCircuit(functions::Request request, std::optional<int> latency);
  void buildUnit(functions::Request asked);
  struct Circuit {
    graph::Graph mapped;
    std::optional<schedule::Scheduled> scheduled;
    arithmetic::ErrorBudgets budgets;
  };
  Circuit takeCircuit();
  void putBack(Circuit circuit);
  void scheduleHardFloat();
  void log(const std::string& text);
  void writeLog() const;
  void buildHardFloat(functions::Request request);
  void writeFile(const std::string& ending, const std::string& text, bool executable = false);
  void writeRecord() const;
  bool splitsOutputs() const;
  bool keepsState() const;
  std::optional<std::string> sequenceRefused() const;
  std::optional<int> constrainedLatency(int shortest) const;
  std::vector<int> outputLatencies() const;
  long registerBits() const;  // outside DSP and hard blocks
  hdl::Design design() const;
  std::string designText(LANGUAGE language) const;
  std::string entityName() const;
  std::vector<std::string> headerLines() const;
  std::vector<std::string> budgetLines() const;
  void buildCheapest(functions::Request asked);
  void moveMasks(const schedule::ScheduleOptions& asked);
  void countAsToolsMapIt();
  double unprovenPromise() const;
  void warnOfUnproven() const;

  WrapperTypeEnum wrapper;
  SYNTH_STYLE style = kDefaultStyle;
  bool isFloatingPoint = false;
  std::map<const PropertyLabel*, int> properties;
  int schedulerMethod;
  bool preserveEntityName;
  std::string folder;
  kiln::Model* bridgeModel = nullptr;
  CArithmeticUnit* topUnit = nullptr;
  CChannelUnit* channelIn;
  std::vector<CChannelUnit*> channelOuts;

  // Inside the entity of a hard block: the block, and valid and channel beside it.
  struct InnerPart {
    graph::Graph graph;
    schedule::Schedule schedule;
  };

  functions::Request request;
  arithmetic::ErrorBudgets budgets;  // that the circuit stated
  graph::Graph mapped;
  std::optional<HardFloat> hardFloat;
  InnerPart blockPart, flowPart;
  std::optional<schedule::Scheduled> scheduled;
  std::unique_ptr<software::Execution> execution;
  std::string debugLog;
  std::vector<hdl::TopPort> virtualPins;
  std::vector<std::string> filesWritten;
  bool recordStands = false;
};
