#include "vectors/reference.h"

#include <algorithm>

#include "numbers/packing.h"
#include "util/failure.h"
#include "util/random.h"

void executeFunction(const std::vector<NumValue>& in, const PortSpecList& inPorts,
                     std::vector<NumValue>& out, const PortSpecList& outPorts,
                     ExecuteInterface& model, int channel) {
  std::vector<std::uint64_t> inputs, outputs(outPorts.size(), 0);
  for (std::size_t i = 0; i < in.size(); ++i) {
    mpfr_srcptr x = in[i].real.get();
    if (isFloatingPoint(inPorts[i])) {
      const kiln::FloatingPoint& fp = *inPorts[i].type.as_floating_point();
      inputs.push_back(packFloatingPointToUINT(x, fp.exp, fp.frac, /*fpLib=*/false,
                                               /*qnan=*/false));
    } else {
      inputs.push_back(packFixedPointToUINT(x, *inPorts[i].type.as_fixed_point()));
    }
  }
  model.Reset();
  for (int i = 0; i <= model.inputToOutputLatency(); ++i) {
    model.Execute(inputs, /*valid=*/true, channel, outputs);
  }
  for (std::size_t i = 0; i < outPorts.size(); ++i) {
    LOAM_ASSERT(isFloatingPoint(outPorts[i]), "Code should be unreachable");
    const kiln::FloatingPoint& fp = *outPorts[i].type.as_floating_point();
    NumValue value;
    value.real = packSINTtoIEEE(static_cast<std::int64_t>(outputs[i]), fp.exp, fp.frac);
    out.push_back(std::move(value));
  }
}

void filterFloatingPointOutput(const PortSpecList& ports, std::vector<NumValue>& values) {
  for (std::size_t i = 0; i < ports.size(); ++i) {
    const auto* fp = ports[i].type.as_floating_point();
    if (!fp) continue;
    NumValue& value = values[i];
    const mpfr_prec_t precision = fp->frac + 1;
    if (value.type != NumType::kValue) {
      mpfr_set_zero(value.real.prepare(precision), 1);
    } else if (mpfr_get_prec(value.real.get()) != precision) {
      mpfr_prec_round(value.real.get(), precision, MPFR_RNDN);
    }
    mpz_set_ui(value.pattern.get(), 0);
    value.raw = false;
  }
}

void filterFloatingPointOutputs(const PortSpecList& ports, std::vector<NumValue>& a,
                                std::vector<NumValue>& b, std::vector<NumValue>& c,
                                const TestingOptions& /*t*/) {
  filterFloatingPointOutput(ports, a);
  filterFloatingPointOutput(ports, b);
  filterFloatingPointOutput(ports, c);
}

void filterFixedPointOutputs(const PortSpecList& ports, std::vector<NumValue>& /*a*/,
                             std::vector<NumValue>& /*b*/, std::vector<NumValue>& c,
                             const TestingOptions& t) {
  for (std::size_t i = 0; i < ports.size(); ++i) {
    if (!isFixedPoint(ports[i])) continue;
    const kiln::FixedPoint& fx = *ports[i].type.as_fixed_point();
    mpfr_ptr x = c[i].real.get();
    mpfr_prec_round(x, std::max(t.precision, fx.width() + 1), MPFR_RNDN);
    mpfr_mul_2si(x, x, fx.fraction(), MPFR_RNDN);
    mpfr_round(x, x);
    mpfr_mul_2si(x, x, -fx.fraction(), MPFR_RNDN);
  }
}

void copyNumValueVector(std::vector<NumValue>& destination, const std::vector<NumValue>& source,
                        const PortSpecList& ports, const std::vector<unsigned>& precisions) {
  for (std::size_t i = 0; i < source.size(); ++i) {
    mpfr_srcptr x = source[i].real.get();
    NumValue copy;
    copy.type = source[i].type;
    mpfr_set(copy.real.prepare(ports[i].type.as_floating_point() ? mpfr_prec_t{precisions[i]}
                                                                 : mpfr_get_prec(x)),
             x, MPFR_RNDN);
    destination.push_back(std::move(copy));
  }
}

bool generateEnable(int percent) { return util::GetRandomInRangeIncInc(0, 100) <= percent; }
