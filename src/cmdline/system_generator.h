#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend/kiln/values.h"
#include "cmdline/interface_wires.h"
#include "cmdline/system_spec.h"
#include "numbers/testing_options.h"

class CFuncUnitFunctionInterface;
class CModelOptions;
class CSynth;

namespace kiln {
class Block;
class Design;
class Model;
class Node;
class Signal;
class UnitBuilder;
}  // namespace kiln

namespace cmdline {

// Makes everything that a run of the model flow leaves behind.
class SystemGenerator {
 public:
  virtual void generate(TestingOptions& testOptions) = 0;
  virtual ~SystemGenerator() = default;
};

// Describes one unit to the design kit as a graph of blocks and wires, from its input block to its
// output block, has the kit generate it, and writes its vectors. The two records stay the
// caller's; they and a kiln::ContextMgr must outlive the generator. A generator is used once:
// setupKILNBlockDic, then generate.
//
// Preconditions that fail are assertions; a unit that this version lacks ends the run with one line
// that names the operator.
class SystemGeneratorKILN : public SystemGenerator {
 public:
  SystemGeneratorKILN(const SystemSpec* spec, const SystemOptions* options);
  // The description, its record "somefile.xml", the design and its bench under "./<name>/", and the
  // vectors; prints the latency and the count of vectors.
  void generate(TestingOptions& testOptions) override;
  ~SystemGeneratorKILN() override;

  // Fills the dictionary from operators to the kit's blocks, for designStyle 0.
  void setupKILNBlockDic();
  const std::map<componentType, kiln::PureValueRef>& blockDictionary() const { return m_blockDic; }

  // Settings of the design and the model (system_settings.cpp).
  std::string setupModelName() const;
  void setFlowOutputType(kiln::Model& model);
  void setupDevice(kiln::Model& model);
  void setupClockAndReset(kiln::Model& model);
  void setupModelOptions(kiln::Model& model);
  void setupLanguageOptions(kiln::Design& design);
  void setupOutputPath(kiln::Design& design);
  void setupDesignOptions(kiln::Design& design);

  // From the model's inputs to the unit (system_inputs.cpp).
  kiln::Block& createInputBlock(kiln::Model& model);
  std::unique_ptr<InterfaceWires> createInputToSystemInputWires(kiln::Model& model,
                                                                kiln::Block& block);
  void setupInputTypePins(kiln::Model& model, InterfaceWires& wires);
  kiln::Block& createSignalInBlock(kiln::Model& model, InterfaceWires& wires);
  std::unique_ptr<InterfaceWires> createSystemInputToFUWires(kiln::Model& model,
                                                             kiln::Block& block);
  std::vector<kiln::Signal> setupInputSignalVector(kiln::Model& model, InterfaceWires& wires);

  // From the unit to the model's outputs (system_outputs.cpp).
  kiln::Block& createSignalOutBlock(kiln::Model& model, InterfaceWires& inWires,
                                    InterfaceWires& outWires);
  std::unique_ptr<InterfaceWires> createSystemOutputToOutputWires(kiln::Model& model,
                                                                  kiln::Block& block);
  kiln::Block& createOutputBlock(kiln::Model& model, InterfaceWires& wires);

  // A block of the dictionary in the unit's place (function_block.cpp).
  kiln::Block& createFUBlock(kiln::Model& model, InterfaceWires& wires,
                             TestingOptions& testOptions);
  std::unique_ptr<InterfaceWires> createBlockOutWires(kiln::Model& model, kiln::Block& block);
  std::unique_ptr<InterfaceWires> createFUToSystemOutputWires(kiln::Model& model,
                                                              kiln::Block& block);

  // The whole graph of one unit (single_unit.cpp).
  void setupSingleUnitModelDesign(kiln::Model& model, TestingOptions& testOptions);

  // Writes the vectors of the unit, whose latency is in cycles; returns their count
  // (generation.cpp).
  int generateTestBench(kiln::Model& model, int latency, TestingOptions& testOptions);

 private:
  bool hasChannelValid() const { return m_options->interfaceStyle == 0; }
  bool hasEnable() const { return m_spec->enableStyle == 1 || m_spec->enableStyle == 2; }
  std::unique_ptr<InterfaceWires> bundle(const std::vector<kiln::Wire*>& data, kiln::Wire* valid,
                                         kiln::Wire* channel, kiln::Wire* enable) const;
  void connectEnableAndData(kiln::Block& block, InterfaceWires& wires);
  void makeUnit(kiln::Model& model);
  std::unique_ptr<InterfaceWires> buildUnit(kiln::Model& model, InterfaceWires& wires,
                                            const TestingOptions& testOptions);

  const SystemSpec* m_spec;
  const SystemOptions* m_options;
  // The unit as the vectors ask it, which belongs to the host, and as the object that builds itself
  // into a model.
  CFuncUnitFunctionInterface* m_testModel = nullptr;
  std::unique_ptr<kiln::UnitBuilder> dUnit;
  std::unique_ptr<CModelOptions> m_hostOptions;
  std::unique_ptr<CSynth> m_host;
  kiln::Model* m_model = nullptr;  // belongs to the design
  std::unique_ptr<kiln::Design> m_design;
  std::map<componentType, kiln::PureValueRef> m_blockDic;
};

// A worked example of the kit: a rounding unit of single precision under fixed names, described,
// recorded in "somefile.xml" and generated under "./someModel/".
void setupKILNSingleEntity();

}  // namespace cmdline
