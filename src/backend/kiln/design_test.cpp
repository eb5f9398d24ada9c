#include <fmt/format.h>
#include <gtest/gtest.h>

#include <pugixml.hpp>
#include <sstream>

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/num_type_spec.h"
#include "backend/kiln/unit_builder.h"
#include "backend/kiln/xml.h"

namespace kiln {
namespace {

PureValueRef number(double value) { return NumberValue::get(value, ContextMgr::get()); }
PureValueRef text(const char* value) { return StringValue::get(value, ContextMgr::get()); }

TEST(NumTypeSpec, DescribesAFormatAndReadsItBack) {
  ContextMgr manager;
  const auto textOf = [](const NumTypeSpec& spec) {
    return spec.toValue(ContextMgr::get())->text();
  };
  EXPECT_EQ(textOf(NumTypeSpec::ufixed(8, 0)), "(NUMTYPE_UFIXED, 8, 0)");
  EXPECT_EQ(textOf(NumTypeSpec::of(FixedPoint(20, 12, true))), "(NUMTYPE_FIXED, 1, 8, 12)");
  EXPECT_EQ(textOf(NumTypeSpec::of(ieee(8, 23))), "(NUMTYPE_SFLOAT_IEEE, 23, 8)");
  EXPECT_EQ(textOf(NumTypeSpec::of(fpLib(11, 52))), "(NUMTYPE_SFLOAT_FPLIB, 52, 11)");

  const auto readBack = [&](const NumTypeSpec& spec) {
    return textOf(NumTypeSpec::of(NumTypeSpec::typeOf(spec.toValue(ContextMgr::get()).get_ptr())));
  };
  for (const Type& type : {Type(FixedPoint(20, 12, true)), Type(FixedPoint(4, -3, false)),
                           Type(ieee(5, 10)), Type(fpLib(5, 10))})
    EXPECT_EQ(readBack(NumTypeSpec::of(type)), textOf(NumTypeSpec::of(type)));
  EXPECT_EQ(readBack(NumTypeSpec::ufixed(5, 3)), "(NUMTYPE_FIXED, 0, 5, 3)");
}

// A model with the two operands of a unit.
struct Operands {
  Operands() : model(Model::create(design, "model")), source(Block::create(model, "source")) {
    for (const char* name : {"a", "b"})
      signals.push_back({{&model}, {Wire::create(source, text(name))}, ieee(5, 10), name, "model"});
  }
  ContextMgr manager;
  Design design{ContextMgr::get()};
  Model& model;
  Block& source;
  std::vector<Signal> signals;
};

std::vector<PortSpec> ports(std::initializer_list<Type> types) {
  std::vector<PortSpec> made;
  for (const Type& type : types) made.push_back({fmt::format("q{}", made.size()), type});
  return made;
}

TEST(UnitBuilder, PutsABlockIntoTheModelOfItsInputs) {
  Operands operands;
  Block& enabling = Block::create(operands.model, "enabling");
  const Signal enable{
      {&operands.model}, {Wire::create(enabling, number(0))}, FixedPoint(1, 0, false), "en", ""};
  FunctionGenerationOption subnormals(1);
  FunctionGenerationOptionValue<functionGenerationOptionOutFPType> format(9, {8, 23});
  UnitBuilder builder("FPMul", "CFloatMult", {0, -2, 1}, ports({ieee(5, 10)}));
  std::vector<Signal> outputs;
  builder.build(outputs, operands.signals, enable, {&format, &subnormals});

  ASSERT_EQ(operands.model.blocks().size(), 3U);
  Block& block = *operands.model.blocks().back();
  EXPECT_EQ(block.name(), "FPMul");
  EXPECT_EQ(block[A_BLOCK_TYPE].get_ptr(), &A_UNIT_BLOCK);
  EXPECT_EQ(block[A_UNIT_NAME].get_ptr()->text(), "CFloatMult");
  EXPECT_EQ(block[A_UNIT_VARIANT].get_ptr()->text(), "(0, -2, 1)");
  EXPECT_EQ(block[A_UNIT_OPTIONS].get_ptr()->text(), "((9, 8, 23), (1))");
  EXPECT_EQ(block[A_UNIT_OUTPUT_TYPES].get_ptr()->text(), "((NUMTYPE_SFLOAT_IEEE, 23, 8))");
  EXPECT_EQ(block[number(0)].node_ptr(), operands.source.wires()[0].get());
  EXPECT_EQ(block[number(1)].node_ptr(), operands.source.wires()[1].get());
  EXPECT_EQ(block[A_PORT_ENABLE].node_ptr(), enable.connection.wire);
  ASSERT_EQ(outputs.size(), 1U);
  EXPECT_EQ(outputs[0].connection.wire, block.wires()[0].get());
  EXPECT_EQ(outputs[0].type.width(), 32);
}

TEST(UnitBuilder, NamesItsOutputsByTheirCount) {
  Operands operands;
  std::vector<Signal> outputs;
  const auto keysOf = [&](std::initializer_list<Type> types) {
    UnitBuilder("unit", "unit", {}, ports(types))
        .build(outputs, operands.signals, Signal::empty, {});
    std::string keys;
    for (const auto& wire : operands.model.blocks().back()->wires())
      keys += fmt::format("{} ", wire->key()->text());
    EXPECT_EQ((*operands.model.blocks().back())[A_PORT_ENABLE].node_ptr(), nullptr);
    return keys;
  };
  const Type bit = FixedPoint(1, 0, false);
  EXPECT_EQ(keysOf({bit}), "PRIM_WIRE_OUT ");
  EXPECT_EQ(keysOf({bit, bit}), "PRIM_WIRE_OUT PRIM_WIRE_AUX ");
  EXPECT_EQ(keysOf({bit, bit, bit}), "0 1 2 ");
  EXPECT_EQ(outputs.size(), 6U);
}

std::string xmlOf(const Design& design) {
  std::ostringstream out;
  XMLServices().toXML(out, design);
  return out.str();
}

TEST(Xml, HoldsEveryNodeWithItsParametersInOrder) {
  ContextMgr manager;
  Design design(ContextMgr::get());
  design[A_GENERATE_LANGUAGE] = text("VHDL");
  Model& model = Model::create(design, "<model> & \"co\"");
  model[A_SYNTH_CLOCK_FREQ] = number(1.5);
  model[text("key")] = PureTupleValue::get(
      {A_TRUE, PureTupleValue::get({}, ContextMgr::get()), PureValueRef()}, ContextMgr::get());
  // Two blocks of one name, and a wire that goes back: only the number tells them apart.
  Block& first = Block::create(model, "block");
  Block& second = Block::create(model, "block");
  Wire* forth = Wire::create(first, text("out"));
  Wire* back = Wire::create(second, A_PRIM_WIRE_OUT);
  second[number(0)] = *forth;
  second[A_BLOCK_TYPE] = PureValueRef();
  first[A_PORT_VALID] = *back;

  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(xmlOf(design).c_str()));
  const pugi::xml_node root = document.child("design");
  const auto value = [](const pugi::xml_node& node, const char* name) {
    return std::string(node.attribute(name).value());
  };
  EXPECT_EQ(value(root.child("parameter"), "key"), "GENERATE_LANGUAGE");
  EXPECT_EQ(value(root.child("parameter"), "kind"), "string");
  EXPECT_EQ(value(root.child("parameter"), "value"), "VHDL");
  const pugi::xml_node one = root.child("model");
  EXPECT_EQ(value(one, "name"), "<model> & \"co\"");
  const pugi::xml_node clock = one.child("parameter");
  EXPECT_EQ(value(clock, "value"), "1.5");
  const pugi::xml_node tuple = clock.next_sibling("parameter");
  EXPECT_EQ(value(tuple, "keyKind"), "string");
  EXPECT_EQ(value(tuple, "kind"), "tuple");
  std::string kinds;
  for (const pugi::xml_node& element : tuple.children("element"))
    kinds += fmt::format("{} ", value(element, "kind"));
  EXPECT_EQ(kinds, "attribute tuple null ");

  const pugi::xml_node block = one.child("block"), next = block.next_sibling("block");
  EXPECT_FALSE(next.next_sibling());
  EXPECT_EQ(value(block.child("wire"), "id"), "0");
  EXPECT_EQ(value(block.child("wire"), "key"), "out");
  EXPECT_EQ(value(block.child("parameter"), "value"), value(next.child("wire"), "id"));
  EXPECT_EQ(value(next.child("parameter"), "kind"), "wire");
  EXPECT_EQ(value(next.child("parameter"), "value"), "0");
  EXPECT_EQ(value(next.child("parameter"), "from"), "block");
  EXPECT_EQ(value(next.child("parameter"), "output"), "out");
  EXPECT_EQ(value(next.child("parameter").next_sibling("parameter"), "kind"), "null");
}

TEST(Xml, IsWellFormedWhateverANameHoldsAndTheSameEveryTime) {
  ContextMgr manager;
  Design design(ContextMgr::get());
  Model::create(design, "a\x01\xff]]>");
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(xmlOf(design).c_str()));
  EXPECT_STREQ(document.child("design").child("model").attribute("name").value(), "a??]]>");
  EXPECT_EQ(xmlOf(design), xmlOf(design));
}

}  // namespace
}  // namespace kiln
