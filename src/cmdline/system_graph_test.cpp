// The graph around a unit: every block, wire and parameter in order.

#include <gmock/gmock.h>

#include <typeinfo>

#include "cmdline/test_system.h"

namespace cmdline {
namespace {

using ::testing::ExitedWithCode;
using ::testing::HasSubstr;

TEST(BlockDictionary, HoldsAKeyForEachOperatorThatHasABlock) {
  TestSystem system;
  EXPECT_TRUE(system.generator.blockDictionary().empty());
  system.generator.setupKILNBlockDic();
  const auto& dictionary = system.generator.blockDictionary();
  EXPECT_EQ(dictionary.size(), 50U);
  EXPECT_EQ(dictionary.at(51), dictionary.at(53));
  EXPECT_EQ(dictionary.at(51).get_ptr(), &kiln::A_CMP_GE_BLOCK);
  EXPECT_EQ(dictionary.at(50), dictionary.at(54));
  EXPECT_EQ(dictionary.at(10).get_ptr(), &kiln::A_CAST_BLOCK);
  EXPECT_EQ(dictionary.at(34).get_ptr(), &kiln::A_FLOOR_BLOCK);
  EXPECT_EQ(dictionary.at(101).get_ptr(), &kiln::A_POW_BLOCK);
  for (const int none : {11, 12, 15, 16, 17, 18, 22, 25, 43, 48, 62, 73, 74, 82, 89})
    EXPECT_FALSE(dictionary.contains(none)) << none;
}

TEST(Settings, StandOnTheModelInOrder) {
  TestSystem system;
  system.generator.setupModelOptions(system.model);
  EXPECT_EQ(parametersOf(system.model),
            "SYNTH_OUTPUT_MODE=SYNTH_OUTPUT_HDL_ROOT, "
            "SYNTH_ATB_STM_FILE_MODE=SYNTH_ATB_STM_FILE_MODE_BINARY, SYNTH_CLOCK_NAME=clk, "
            "SYNTH_CLOCK_FREQ=300, SYNTH_RESET_NAME=reset, "
            "SYNTH_RESET_ACTIVE_MODE=SYNTH_RESET_ACTIVE_HIGH, SYNTH_DEVICE_FAMILY=Merrow 10, "
            "SYNTH_DEVICE_SPEED_GRADE=1, SYNTH_DEVICE_PART=AUTO, SYNTH_DEVICE_ENABLE_HARDFP=FALSE");

  TestSystem combinational;
  combinational.options.combinatorial = combinational.options.hardFP = true;
  combinational.generator.setupModelOptions(combinational.model);
  EXPECT_THAT(parametersOf(combinational.model),
              HasSubstr("SYNTH_RESET_NAME=reset, SYNTH_COMBINATORIAL=TRUE, SYNTH_RESET_ACTIVE"));
  EXPECT_THAT(parametersOf(combinational.model), HasSubstr("ENABLE_HARDFP=TRUE"));
}

TEST(Settings, OfTheDesignNameLanguageAndFolder) {
  for (const int language : {0, 1}) {
    TestSystem system;
    system.options.language = language;
    system.generator.setupDesignOptions(system.design);
    system.generator.setupOutputPath(system.design);
    EXPECT_EQ(parametersOf(system.design), std::string("GENERATE_LANGUAGE=") +
                                               (language ? "VERILOG" : "VHDL") +
                                               ", GENERATE_OUTPUT_PATH=./topModel");
  }
  TestSystem system;
  system.options.language = 2;
  EXPECT_EXIT(system.generator.setupLanguageOptions(system.design), ExitedWithCode(255),
              "cmdGauge.*Unsupported generation language selected");
}

TEST(Bundles, HaveTheClassOfTheStylesOnBothSidesOfTheInputs) {
  struct Case {
    int interfaceStyle, enableStyle;
    const std::type_info& type;
  };
  for (const auto& [interfaceStyle, enableStyle, type] :
       {Case{0, 0, typeid(ChanValidInterfaceWires)}, Case{0, 3, typeid(ChanValidInterfaceWires)},
        Case{0, 1, typeid(ChanValidEnableInterfaceWires)},
        Case{0, 2, typeid(ChanValidEnableInterfaceWires)}, Case{1, 0, typeid(InterfaceWires)},
        Case{7, 1, typeid(EnableInterfaceWires)}, Case{1, 2, typeid(EnableInterfaceWires)}}) {
    TestSystem system;
    system.options.interfaceStyle = interfaceStyle;
    system.spec.enableStyle = enableStyle;
    system.spec.inputs = TestSystem::ports({"a", "b"});
    kiln::Block& block = kiln::Block::create(system.model, "block");
    for (const auto& wires : {system.generator.createInputToSystemInputWires(system.model, block),
                              system.generator.createSystemInputToFUWires(system.model, block)}) {
      const InterfaceWires& made = *wires;
      EXPECT_EQ(typeid(made), type) << interfaceStyle << " " << enableStyle;
      EXPECT_EQ(made.dataWires().size(), 2U);
      const bool flows = interfaceStyle == 0;
      if (flows) {
        EXPECT_NO_THROW(checked_dynamic_cast<ChanValidInterfaceWires*>(wires.get()));
      } else {
        EXPECT_THROW(checked_dynamic_cast<ChanValidInterfaceWires*>(wires.get()), std::logic_error);
      }
    }
  }
  EXPECT_THROW(
      checked_dynamic_cast<ChanValidInterfaceWires*>(static_cast<InterfaceWires*>(nullptr)),
      std::logic_error);
}

TEST(Graph, OfASumStandsInOrder) {
  TestSystem system;
  system.spec.inputs = TestSystem::ports({"a", "b"});
  system.spec.outputs = TestSystem::ports({"q"});
  system.setUp();
  std::string text;
  for (const auto& block : system.model.blocks())
    text += block->name() + " [" + parametersOf(*block) + "] [" + wiresOf(*block) + "]\n";
  EXPECT_EQ(text, R"(inBlock [BLOCK_TYPE=INPUT_BLOCK] [xIn_v, xIn_c, a, b]
validTypePin [BLOCK_TYPE=TYPE_PIN_BLOCK, TYPE_PIN_TYPE=(NUMTYPE_UFIXED, 1, 0), 0=inBlock.xIn_v] []
channelTypePin [BLOCK_TYPE=TYPE_PIN_BLOCK, TYPE_PIN_TYPE=(NUMTYPE_UFIXED, 8, 0), 0=inBlock.xIn_c] []
dataTypePin0 [BLOCK_TYPE=TYPE_PIN_BLOCK, TYPE_PIN_TYPE=(NUMTYPE_SFLOAT_IEEE, 23, 8), 0=inBlock.a] []
dataTypePin1 [BLOCK_TYPE=TYPE_PIN_BLOCK, TYPE_PIN_TYPE=(NUMTYPE_SFLOAT_IEEE, 23, 8), 0=inBlock.b] []
xIn [BLOCK_TYPE=CHANNEL_IN_BLOCK, PORT_VALID=inBlock.xIn_v, PORT_CHANNEL=inBlock.xIn_c, 0=inBlock.a, 1=inBlock.b] [WIRE_VALID, WIRE_CHANNEL, 0, 1]
FPAdd [BLOCK_TYPE=UNIT_BLOCK, UNIT_NAME=CFloatAdd, UNIT_VARIANT=(0, 0, 0, 0), UNIT_INPUT_TYPES=((NUMTYPE_SFLOAT_IEEE, 23, 8), (NUMTYPE_SFLOAT_IEEE, 23, 8)), UNIT_OUTPUT_TYPES=((NUMTYPE_SFLOAT_IEEE, 23, 8)), UNIT_OPTIONS=((20, 0)), 0=xIn.0, 1=xIn.1] [PRIM_WIRE_OUT]
xOut [BLOCK_TYPE=CHANNEL_OUT_BLOCK, PORT_VALID=xIn.WIRE_VALID, PORT_CHANNEL=xIn.WIRE_CHANNEL, 0=FPAdd.PRIM_WIRE_OUT] [WIRE_VALID, WIRE_CHANNEL, 0]
outputBlock [BLOCK_TYPE=OUTPUT_BLOCK, xOut_v=xOut.WIRE_VALID, xOut_c=xOut.WIRE_CHANNEL, q=xOut.0] []
)");
}

TEST(Graph, HasPlainSignalsAndAnEnableWhereTheStylesSaySo) {
  TestSystem system(25);
  system.options.interfaceStyle = 1;
  system.spec.enableStyle = 2;
  system.spec.inputs = TestSystem::ports({"a", "b"});
  system.spec.outputs = TestSystem::ports({"s", "d"});
  system.setUp();
  EXPECT_EQ(wiresOf(system.block("inBlock")), "en, a, b");
  EXPECT_THAT(parametersOf(system.block("enableTypePin")),
              HasSubstr("(NUMTYPE_UFIXED, 1, 0), 0=inBlock.en"));
  EXPECT_EQ(parametersOf(system.block("xIn")),
            "BLOCK_TYPE=SIGNAL_IN_BLOCK, 0=inBlock.en, 1=inBlock.a, 2=inBlock.b");
  EXPECT_EQ(wiresOf(system.block("xIn")), "0, 1, 2");
  EXPECT_THAT(parametersOf(system.block("FPFusedAddSub")),
              HasSubstr("PORT_ENABLE=xIn.0, 0=xIn.1, 1=xIn.2"));
  EXPECT_EQ(parametersOf(system.block("xOut")),
            "BLOCK_TYPE=SIGNAL_OUT_BLOCK, 0=FPFusedAddSub.PRIM_WIRE_OUT, "
            "1=FPFusedAddSub.PRIM_WIRE_AUX");
  EXPECT_EQ(wiresOf(system.block("xOut")), "0, 1");
  EXPECT_EQ(parametersOf(system.block("outputBlock")),
            "BLOCK_TYPE=OUTPUT_BLOCK, s=xOut.0, d=xOut.1");

  TestSystem flow(25);
  flow.spec.inputs = TestSystem::ports({"a", "b"});
  flow.spec.outputs = TestSystem::ports({"s", "d"});
  flow.setUp();
  EXPECT_EQ(parametersOf(flow.block("outputBlock")),
            "BLOCK_TYPE=OUTPUT_BLOCK, xOut_v=xOut.WIRE_VALID, xOut_c=xOut.WIRE_CHANNEL, s=xOut.0, "
            "d=xOut.1");
}

TEST(Graph, PinsTellEveryFormat) {
  TestSystem system;
  system.spec.inputs.push_back("x", kiln::fpLib(8, 23));
  system.spec.inputs.push_back("y", kiln::ieee(5, 10));
  system.spec.inputs.push_back("z", kiln::FixedPoint(20, 12, true));
  kiln::Block& block = system.generator.createInputBlock(system.model);
  const auto wires = system.generator.createInputToSystemInputWires(system.model, block);
  system.generator.setupInputTypePins(system.model, *wires);
  for (const auto& [pin, format] : {std::pair{"dataTypePin0", "(NUMTYPE_SFLOAT_FPLIB, 23, 8)"},
                                    std::pair{"dataTypePin1", "(NUMTYPE_SFLOAT_IEEE, 10, 5)"},
                                    std::pair{"dataTypePin2", "(NUMTYPE_FIXED, 1, 8, 12)"}})
    EXPECT_EQ(system.block(pin)[kiln::A_TYPE_PIN_TYPE].get_ptr()->text(), format);

  const std::vector<kiln::Signal> signals =
      system.generator.setupInputSignalVector(system.model, *wires);
  ASSERT_EQ(signals.size(), 3U);
  for (std::size_t k = 0; k < signals.size(); ++k) {
    EXPECT_EQ(signals[k].portName, system.spec.inputs[k].name);
    EXPECT_EQ(signals[k].modelName, "topModel");
    EXPECT_EQ(signals[k].type.width(), system.spec.inputs[k].type.width());
    EXPECT_EQ(signals[k].model.model, &system.model);
    EXPECT_EQ(signals[k].connection.wire, wires->dataWires()[k]);
  }
  EXPECT_TRUE(signals[0].type.as_fp_lib());
  EXPECT_FALSE(signals[1].type.as_fp_lib());
}

TEST(Graph, DistrustsMissingWires) {
  TestSystem system;
  ChanValidInterfaceWires none({nullptr}, nullptr, nullptr);
  EXPECT_EXIT(system.generator.setupInputTypePins(system.model, none), ExitedWithCode(255),
              "iwv != nullptr");
  EXPECT_EXIT(system.generator.createSignalOutBlock(system.model, none, none), ExitedWithCode(255),
              "iwSignalInV != nullptr");
  EXPECT_EXIT(system.generator.createOutputBlock(system.model, none), ExitedWithCode(255),
              "iwv != nullptr");
  system.options.interfaceStyle = 1;
  system.spec.inputs = TestSystem::ports({"a"});
  InterfaceWires plain({nullptr});
  EXPECT_EXIT(system.generator.setupInputTypePins(system.model, plain), ExitedWithCode(255),
              "iwi != nullptr");
  system.spec.enableStyle = 1;
  EXPECT_THROW(system.generator.setupInputTypePins(system.model, plain), std::logic_error);
  EnableInterfaceWires still({}, nullptr);
  EXPECT_EXIT(system.generator.createSignalInBlock(system.model, still), ExitedWithCode(255),
              "iwe != nullptr");
}

TEST(FunctionBlock, HasTheTypeOfTheTestsOperatorAndTheModelsName) {
  TestSystem system(15);
  system.generator.setupKILNBlockDic();
  system.options.designStyle = 0;
  system.spec.enableStyle = 1;
  system.tests.componentType = 34;
  system.spec.inputs = TestSystem::ports({"a"});
  system.spec.outputs = TestSystem::ports({"q", "r", "s"});
  system.setUp();
  EXPECT_EQ(parametersOf(system.block("topModel")), "BLOCK_TYPE=FLOOR_BLOCK, 0=xIn.0, 1=xIn.1");
  EXPECT_EQ(wiresOf(system.block("topModel")), "0, 1, 2");
  EXPECT_EQ(system.generator.generateTestBench(system.model, 0, system.tests), 0);

  TestSystem none;
  none.generator.setupKILNBlockDic();
  none.options.designStyle = 0;
  none.tests.componentType = 15;
  none.spec.inputs = TestSystem::ports({"a"});
  none.spec.outputs = TestSystem::ports({"q", "r"});
  none.setUp();
  EXPECT_EQ(parametersOf(none.block("topModel")), "BLOCK_TYPE=null, 0=xIn.0");
  EXPECT_EQ(wiresOf(none.block("topModel")), "PRIM_WIRE_OUT, PRIM_WIRE_AUX");
  EXPECT_EQ(none.generator.blockDictionary().size(), 51U);
}

}  // namespace
}  // namespace cmdline
