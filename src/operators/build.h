#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "backend/model/model.h"
#include "operators/operator_row.h"

namespace operators {

// Twin models of one operator: the first is generated, the second answers for the vectors. Each
// owns its unit.
struct BuiltOperator {
  std::unique_ptr<CSynthSingleEntity> model, testModel;
  CArithmeticUnit* unit = nullptr;
  CArithmeticUnit* testUnit = nullptr;
  std::string_view method;  // reported as @method; empty when neither row nor unit names one
};

// What the models are called and wrapped in.
struct ModelNames {
  std::string model, testModel;
  WrapperTypeEnum wrapper = kNoWrapper;
};

// Makes the models with the run's ports `inputs` and `outputs`, and in each the unit of `row` for
// these parameters. The options count as they are now, for each model keeps a copy. Fails when no
// unit computes the operator.
util::Result<BuiltOperator> build(const OperatorRow& row, const Parameters& parameters,
                                  CModelOptions& options, const ModelNames& names,
                                  const PortSpecList& inputs, const PortSpecList& outputs);

}  // namespace operators
