#include "backend/model/units.h"

#include <algorithm>

#include "backend/functions/undecided_results.h"
#include "backend/model/model.h"
#include "util/failure.h"

CFuncUnit::CFuncUnit(CModel* model, std::string name) : unitName(std::move(name)) {
  model->owned.emplace_back(this);
  inPorts.resize(model->inputs().size());
  outPorts.resize(model->outputs().size());
}

CFuncUnit::InPort& CFuncUnit::getInPort(int k) {
  LOAM_ASSERT(k >= 0 && static_cast<std::size_t>(k) < inPorts.size(), "the unit has no such input");
  return inPorts[k];
}

CFuncUnit::OutPort& CFuncUnit::getOutPort(int k) {
  LOAM_ASSERT(k >= 0 && static_cast<std::size_t>(k) < outPorts.size(),
              "the unit has no such output");
  return outPorts[k];
}

void CFuncUnit::setPorts(const PortSpecList& in, const PortSpecList& out) {
  for (const auto& [ports, formats] : {std::pair{&inPorts, &in}, std::pair{&outPorts, &out}}) {
    ports->assign(formats->size(), {});
    for (std::size_t k = 0; k < formats->size(); ++k) (*ports)[k].setType((*formats)[k].type);
  }
}

bool CFuncUnit::hasMetadata(const kiln::PureValueRef& pair) const {
  return std::find(metadata.begin(), metadata.end(), pair) != metadata.end();
}

CArithmeticUnit::CArithmeticUnit(CModel* model, std::string name, const functions::UnitRow& row,
                                 functions::Variant variant)
    : CFuncUnit(model, std::move(name)), unitRow(row), variant(std::move(variant)), model(*model) {}

const functions::Signature& CArithmeticUnit::signature() {
  if (!formats) {
    formats.emplace();
    formats->variant = variant;
    const auto formatOf = [](const Port& port, const PortSpecList& ofModel, std::size_t k) {
      return port.type() ? *port.type() : ofModel[k].type;
    };
    for (std::size_t k = 0; k < inPorts.size(); ++k)
      formats->in.push_back(formatOf(inPorts[k], model.inputs(), k));
    for (std::size_t k = 0; k < outPorts.size(); ++k)
      formats->out.push_back(formatOf(outPorts[k], model.outputs(), k));
  }
  return *formats;
}

void CArithmeticUnit::evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                               const std::vector<unsigned>& precisions,
                               const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  unitRow.evaluate(signature(), results, inputs, precisions, roundings,
                   subnormals || keepsSubnormals);
}

void CArithmeticUnit::evaluateUndecided(std::vector<NumValue>& low, std::vector<NumValue>& high,
                                        const std::vector<NumValue>& inputs,
                                        const std::vector<unsigned>& precisions,
                                        const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  functions::evaluateUndecided(unitRow, signature(), low, high, inputs, precisions, roundings,
                               subnormals || keepsSubnormals);
}
