#include "operators/build.h"

#include "backend/functions/unit.h"
#include "util/failure.h"

namespace operators {

namespace {

void setFormat(CFuncUnit::Port& port, const kiln::Type& type) {
  if (const kiln::FixedPoint* fixed = type.as_fixed_point()) {
    port.setFixedPoint(fixed->sign(), fixed->width(), fixed->fraction());
  } else if (const kiln::FloatingPoint* lib = type.as_fp_lib()) {
    port.setFPLib(lib->exp, lib->frac);
  } else {
    const kiln::FloatingPoint* ieee = type.as_floating_point();
    port.setIEEE(ieee->exp, ieee->frac);
  }
}

// A unit whose name begins with DM is a function to be decomposed, any other stands by itself.
CArithmeticUnit* makeUnit(const OperatorRow& row, const functions::UnitRow& unitRow,
                          const Parameters& parameters, CModel& model, const std::string& name) {
  functions::Variant variant = row.variant(parameters);
  CArithmeticUnit* unit =
      row.unit.starts_with("DM")
          ? new CMathFunc(&model, name, new DecomposeMathFunc{unitRow, std::move(variant)},
                          /*decompose=*/true)
          : new CArithmeticUnit(&model, name, unitRow, std::move(variant));
  unit->word = row.word;
  const Ports ports = row.ports(parameters);
  for (std::size_t k = 0; k < ports.in.size(); ++k) setFormat(unit->getInPort(k), ports.in[k].type);
  for (std::size_t k = 0; k < ports.out.size(); ++k)
    setFormat(unit->getOutPort(k), ports.out[k].type);
  return unit;
}

std::string_view methodOf(const OperatorRow& row, const Parameters& parameters,
                          CArithmeticUnit& unit) {
  if (row.methodOf) return row.methodOf(parameters);
  if (!row.method.empty() || !unit.row().description) return row.method;
  return unit.row().description(unit.signature());
}

}  // namespace

util::Result<BuiltOperator> build(const OperatorRow& row, const Parameters& parameters,
                                  CModelOptions& options, const ModelNames& names,
                                  const PortSpecList& inputs, const PortSpecList& outputs) {
  const functions::UnitRow* unitRow = functions::findUnit(row.unit);
  if (!unitRow) return util::Failure{std::string(row.word) + ": no unit yet"};
  const auto makeModel = [&](const std::string& name) {
    auto model =
        std::make_unique<CSynthSingleEntity>(&options, name, inputs, outputs, names.wrapper);
    model->setSynthesisStyle(kDefaultStyle);
    return model;
  };
  BuiltOperator built;
  built.model = makeModel(names.model);
  built.testModel = makeModel(names.testModel);
  built.unit = makeUnit(row, *unitRow, parameters, *built.model, std::string(row.unitName));
  built.testUnit = makeUnit(row, *unitRow, parameters, *built.testModel, testNameOf(row));
  built.method = methodOf(row, parameters, *built.unit);
  return built;
}

}  // namespace operators
