// The road of one run: graph, record, circuit, bench, vectors.

#include <cstdio>

#include "backend/kiln/attributes.h"
#include "backend/model/kiln_generation.h"
#include "cmdline/assertion.h"
#include "cmdline/record_file.h"
#include "cmdline/system_generator.h"
#include "vectors/population.h"

namespace cmdline {

namespace {

void setupTestBench(kiln::Model& model, const TestingOptions& testOptions) {
  model[kiln::A_SYNTH_ATB_UNIT_RIGUROUS_TESTING] = kiln::A_TRUE;
  if (testOptions.subnormals) model[kiln::A_SYNTH_ATB_SUBNORMALS] = kiln::A_TRUE;
  std::vector<kiln::PureValueRef> bounds;
  for (const float bound : testOptions.errorBounds)
    bounds.push_back(kiln::NumberValue::get(static_cast<double>(bound), kiln::ContextMgr::get()));
  model[kiln::A_SYNTH_ATB_UNIT_ULP_VALUES] =
      kiln::PureTupleValue::get(bounds, kiln::ContextMgr::get());
}

}  // namespace

void SystemGeneratorKILN::generate(TestingOptions& testOptions) {
  kiln::Context* context = kiln::ContextMgr::get();
  m_design = std::make_unique<kiln::Design>(context);
  requireMathematicalFunctions();
  setupDesignOptions(*m_design);
  setupOutputPath(*m_design);
  m_model = &kiln::Model::create(*m_design, m_spec->name);
  setupModelOptions(*m_model);
  setupSingleUnitModelDesign(*m_model, testOptions);
  writeRecordFile(*m_design);
  setupTestBench(*m_model, testOptions);
  // For the headers of the files; no part of the recorded design.
  (*m_design)[kiln::A_GENERATE_COMMAND_LINE] =
      kiln::StringValue::get(m_options->commandLine, context);
  (*m_design)[kiln::A_GENERATE_SEED] = kiln::NumberValue::get(testOptions.testCount, context);

  const kiln::CModelDatabaseHandle database = runKilnGeneration(*m_design, false);
  CModel* cmodel = database.getCModel(*m_model);
  require(cmodel, "cmodel != nullptr", "no model was generated");
  const int latency = cmodel->inputToOutputLatency(true, nullptr);
  if (cmodel->getOptionValue(CSynthSingleEntity::optionSplitOutputPorts) == 0)
    std::printf("The pipeline depth of the block is %d cycle(s)\n", latency);
  cmodel->WriteAutomaticModelIPTestBench();
  testOptions.unprovenRounding = cmodel->hasUnprovenRounding();
  const int count = generateTestBench(*m_model, latency, testOptions);
  std::printf("Should have generated %d tests \n", count);
}

int SystemGeneratorKILN::generateTestBench(kiln::Model&, int latency, TestingOptions& testOptions) {
  if (!m_testModel) {
    std::printf("Run the system generation first\n");
    return 0;
  }
  const PortSpecList inputs = m_spec->inputs, outputs = m_spec->outputs;
  if (testOptions.subnormals) m_testModel->keepsSubnormals = true;
  // The files have the columns of the ports that are there.
  TestingOptions tests = testOptions;
  tests.noChanValid |= !hasChannelValid();
  tests.enable |= hasEnable();
  return populateStmFilesFP(m_testModel, m_spec->name, inputs, outputs, latency, tests);
}

}  // namespace cmdline
