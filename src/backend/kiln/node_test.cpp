#include "backend/kiln/node.h"

#include <gtest/gtest.h>

#include "backend/kiln/attributes.h"

namespace kiln {
namespace {

TEST(Values, EqualOnesAreOneObjectAndDieWithTheirLastReference) {
  ContextMgr manager;
  Context* context = ContextMgr::get();
  {
    const PureValueRef two = NumberValue::get(2, context);
    const PureValueRef pair = PureTupleValue::get({A_TRUE, two}, context);
    EXPECT_EQ(NumberValue::get(2.0, context), two);
    EXPECT_NE(StringValue::get("2", context), two);
    EXPECT_EQ(PureTupleValue::get({A_TRUE, NumberValue::get(2, context)}, context), pair);
    EXPECT_NE(PureTupleValue::get({two, A_TRUE}, context), pair);
    EXPECT_EQ(pair->text(), "(TRUE, 2)");
    EXPECT_EQ(context->size(), 2u);
  }
  EXPECT_EQ(context->size(), 0u);
}

TEST(Values, ATupleKeepsItsElementsAlive) {
  ContextMgr manager;
  Context* context = ContextMgr::get();
  PureValueRef pair = PureTupleValue::get(
      {StringValue::get("left", context), StringValue::get("right", context)}, context);
  EXPECT_EQ(context->size(), 3u);
  EXPECT_EQ(pair->text(), "(left, right)");
  pair = PureValueRef();
  EXPECT_EQ(context->size(), 0u);
}

TEST(Node, ParametersKeepTheOrderOfTheirFirstSetting) {
  ContextMgr manager;
  Context* context = ContextMgr::get();
  Design design(context);
  Model& model = Model::create(design, "unit");
  EXPECT_EQ(&model.getDesign(), &design);
  EXPECT_EQ(model[A_TRUE].get_ptr(), nullptr);
  model[A_SYNTH_LATENCY_CONSTRAINT_VALUE] = NumberValue::get(7, context);
  model[A_SYNTH_LATENCY_CONSTRAINT_MODE] = A_SYNTH_LATENCY_CONSTRAINT_EQ;
  model[A_SYNTH_LATENCY_CONSTRAINT_VALUE] = NumberValue::get(9, context);
  ASSERT_EQ(model.parameters().size(), 2u);
  EXPECT_EQ(model[A_SYNTH_LATENCY_CONSTRAINT_VALUE].get_ptr()->text(), "9");
  EXPECT_EQ(model.parameters()[1].key.get_ptr(), &A_SYNTH_LATENCY_CONSTRAINT_MODE);
  EXPECT_EQ(context->size(), 1u);

  model[A_TRUE] = static_cast<Node&>(design);
  EXPECT_EQ(model[A_TRUE].get_ptr(), nullptr);
  EXPECT_EQ(model[A_TRUE].node_ptr(), &design);
}

}  // namespace
}  // namespace kiln
