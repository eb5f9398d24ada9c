// The whole of a design with fixed names: what a generator does, in one piece.

#include <cstdio>

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/num_type_spec.h"
#include "backend/model/kiln_generation.h"
#include "cmdline/assertion.h"
#include "cmdline/kit_values.h"
#include "cmdline/record_file.h"
#include "cmdline/system_generator.h"

namespace cmdline {

namespace {

using kiln::Block;
using kiln::NumTypeSpec;
using kiln::Wire;

void setupModel(kiln::Model& model) {
  model[kiln::A_SYNTH_OUTPUT_MODE] = kiln::A_SYNTH_OUTPUT_HDL_ROOT;
  model[kiln::A_SYNTH_CLOCK_NAME] = textValue("clk");
  model[kiln::A_SYNTH_CLOCK_FREQ] = numberValue(200);
  model[kiln::A_SYNTH_RESET_NAME] = textValue("reset");
  model[kiln::A_SYNTH_DEVICE_FAMILY] = textValue("Tarn V");
  model[kiln::A_SYNTH_DEVICE_SPEED_GRADE] = textValue("-6");
  model[kiln::A_SYNTH_DEVICE_PART] = textValue("7TVQXH3D6G31N8");
}

void addTypePin(kiln::Model& model, const char* name, const NumTypeSpec& format, Wire& wire) {
  Block& pin = Block::create(model, name);
  pin[kiln::A_BLOCK_TYPE] = kiln::A_TYPE_PIN_BLOCK;
  pin[kiln::A_TYPE_PIN_TYPE] = format.toValue(kiln::ContextMgr::get());
  pin[numberValue(0)] = wire;
}

void addGraph(kiln::Model& model) {
  Block& inBlock = Block::create(model, "inBlock");
  inBlock[kiln::A_BLOCK_TYPE] = kiln::A_INPUT_BLOCK;
  Wire* valid = Wire::create(inBlock, numberValue(0));
  Wire* channel = Wire::create(inBlock, numberValue(1));
  Wire* data = Wire::create(inBlock, numberValue(2));
  addTypePin(model, "validTypePin", NumTypeSpec::ufixed(1, 0), *valid);
  addTypePin(model, "channelTypePin", NumTypeSpec::ufixed(8, 0), *channel);
  addTypePin(model, "dataTypePin0", NumTypeSpec::sfloatIEEE(23, 8), *data);

  Block& channelIn = Block::create(model, "ChannelInBlock");
  channelIn[kiln::A_BLOCK_TYPE] = kiln::A_CHANNEL_IN_BLOCK;
  channelIn[kiln::A_PORT_VALID] = *valid;
  channelIn[kiln::A_PORT_CHANNEL] = *channel;
  channelIn[numberValue(0)] = *data;
  valid = Wire::create(channelIn, kiln::A_WIRE_VALID);
  channel = Wire::create(channelIn, kiln::A_WIRE_CHANNEL);
  data = Wire::create(channelIn, numberValue(0));

  Block& addBlock = Block::create(model, "addBlock");
  addBlock[kiln::A_BLOCK_TYPE] = kiln::A_FLOOR_BLOCK;
  addBlock[numberValue(0)] = *data;
  data = Wire::create(addBlock, kiln::A_PRIM_WIRE_OUT);

  Block& channelOut = Block::create(model, "ChannelOutBlock");
  channelOut[kiln::A_BLOCK_TYPE] = kiln::A_CHANNEL_OUT_BLOCK;
  channelOut[kiln::A_PORT_VALID] = *valid;
  channelOut[kiln::A_PORT_CHANNEL] = *channel;
  channelOut[numberValue(0)] = *data;
  valid = Wire::create(channelOut, kiln::A_WIRE_VALID);
  channel = Wire::create(channelOut, kiln::A_WIRE_CHANNEL);
  data = Wire::create(channelOut, numberValue(0));

  Block& outBlock = Block::create(model, "outBlock");
  outBlock[kiln::A_BLOCK_TYPE] = kiln::A_OUTPUT_BLOCK;
  outBlock[numberValue(0)] = *valid;
  outBlock[numberValue(1)] = *channel;
  outBlock[numberValue(2)] = *data;
}

}  // namespace

void setupKILNSingleEntity() {
  kiln::Design design(kiln::ContextMgr::get());
  design[kiln::A_GENERATE_OUTPUT_PATH] = textValue("./someModel");
  design[kiln::A_GENERATE_LANGUAGE] = kiln::A_GENERATE_LANGUAGE_VHDL;
  requireMathematicalFunctions();
  kiln::Model& model = kiln::Model::create(design, "SomeDesign");
  setupModel(model);
  addGraph(model);
  writeRecordFile(design);
  const kiln::CModelDatabaseHandle database = runKilnGeneration(design, false);
  CModel* cmodel = database.getCModel(model);
  require(cmodel, "cmodel != nullptr", "no model was generated");
  std::printf("The pipeline depth of the block is %d cycle(s)\n",
              cmodel->inputToOutputLatency(true, nullptr));
  cmodel->WriteAutomaticModelIPTestBench();
}

}  // namespace cmdline
