#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backend/functions/unit.h"
#include "backend/kiln/values.h"
#include "backend/model/function_interface.h"

class CModel;

// A part of a model, which owns it from the moment it is made.
class CFuncUnit {
 public:
  // The side of a channel that the unit stands for, or an ordinary unit.
  enum FUType : int { kChannelIn = 0, kArithmetic = 2, kChannelOut = 6 };

  // One port of a unit, with the format that it was given.
  class Port {
   public:
    void setIEEE(int exponent, int fraction) { format = kiln::ieee(exponent, fraction); }
    void setFPLib(int exponent, int fraction) { format = kiln::fpLib(exponent, fraction); }
    void setFixedPoint(bool sign, int width, int fraction) {
      format = kiln::FixedPoint(width, fraction, sign);
    }
    void setFxPWidth(int width) { format = kiln::FixedPoint(width, 0, false); }
    void setType(const kiln::Type& type) { format = type; }
    const std::optional<kiln::Type>& type() const { return format; }

   private:
    std::optional<kiln::Type> format;
  };
  using InPort = Port;
  using OutPort = Port;

  CFuncUnit(CModel* model, std::string name);
  virtual ~CFuncUnit() = default;
  CFuncUnit(const CFuncUnit&) = delete;

  virtual int getFUType() const { return kArithmetic; }
  // The cycle of the schedule in which the unit stands.
  int get_tStep() const { return step; }
  void setStep(int cycle) { step = cycle; }
  const std::string& name() const { return unitName; }
  InPort& getInPort(int k);
  OutPort& getOutPort(int k);
  // Ports of these formats in place of those that the model gave.
  void setPorts(const PortSpecList& in, const PortSpecList& out);
  void setSTMFileBaseName(const std::string& name) { stmFileBaseName = name; }
  void setIsSTMEnabled(bool enabled) { isSTMEnabled = enabled; }
  void associateMetadata(const kiln::PureValueRef& pair) { metadata.push_back(pair); }
  bool hasMetadata(const kiln::PureValueRef& pair) const;

  int enableMode = 1;

 protected:
  std::vector<InPort> inPorts;
  std::vector<OutPort> outPorts;

 private:
  std::string unitName;
  std::string stmFileBaseName;
  bool isSTMEnabled = false;
  int step = 0;
  std::vector<kiln::PureValueRef> metadata;
};

// The input or the output side of a model: where the next Execute() finds, and leaves, its values.
class CChannelUnit : public CFuncUnit {
 public:
  CChannelUnit(CModel* model, std::string name, FUType side)
      : CFuncUnit(model, std::move(name)), side(side) {}
  int getFUType() const override { return side; }
  // One pattern for each port, a valid flag and a channel; they belong to the caller and must live
  // through the calls of Execute().
  void connect(std::uint64_t* patterns, std::uint8_t* valid, std::int32_t* channel) {
    portPatterns = patterns;
    validFlag = valid;
    channelNumber = channel;
  }

  std::uint64_t* portPatterns = nullptr;
  std::uint8_t* validFlag = nullptr;
  std::int32_t* channelNumber = nullptr;

 private:
  FUType side;
};

// A unit that computes: the reference function and the request for the circuit of one row of the
// unit table.
class CArithmeticUnit : public CFuncUnit, public CFuncUnitFunctionInterface {
 public:
  CArithmeticUnit(CModel* model, std::string name, const functions::UnitRow& row,
                  functions::Variant variant);
  void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>& roundings,
                bool subnormals) override;
  void evaluateUndecided(std::vector<NumValue>& low, std::vector<NumValue>& high,
                         const std::vector<NumValue>& inputs,
                         const std::vector<unsigned>& precisions,
                         const std::vector<mpfr_rnd_t>& roundings, bool subnormals) override;
  const functions::UnitRow& row() const { return unitRow; }
  // The formats that the ports were given; a port without one takes the model's. Fixed from the
  // first call on.
  const functions::Signature& signature();

  std::string word;  // what the user called the unit; begins the line of a refusal

 private:
  const functions::UnitRow& unitRow;
  functions::Variant variant;
  CModel& model;
  std::optional<functions::Signature> formats;
};

// A function to be decomposed into a circuit: a row of the unit table and what its words mean.
struct DecomposeMathFunc {
  const functions::UnitRow& row;
  functions::Variant variant;
};

// A unit over a decomposed function, which it owns.
class CMathFunc : public CArithmeticUnit {
 public:
  CMathFunc(CModel* model, std::string name, DecomposeMathFunc* function, bool)
      : CArithmeticUnit(model, std::move(name), function->row, function->variant),
        function(function) {}

 private:
  std::unique_ptr<DecomposeMathFunc> function;
};
