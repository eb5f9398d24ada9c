#include "numbers/ports.h"

#include "util/failure.h"

namespace kiln {

template <>
struct Type::TypeModel<FixedPoint> final : TypeConcept {
  explicit TypeModel(const FixedPoint& format) : value(format) {}
  int width() const override { return value.width(); }
  std::unique_ptr<TypeConcept> clone() const override { return std::make_unique<TypeModel>(value); }
  const FixedPoint* as_fixed_point() const override { return &value; }
  const FloatingPoint* as_floating_point() const override { return nullptr; }
  const FloatingPoint* as_fp_lib() const override { return nullptr; }
  FixedPoint value;
};

template <>
struct Type::TypeModel<FloatingPoint> final : TypeConcept {
  explicit TypeModel(const FloatingPoint& format) : value(format) {}
  int width() const override { return value.width; }
  std::unique_ptr<TypeConcept> clone() const override { return std::make_unique<TypeModel>(value); }
  const FixedPoint* as_fixed_point() const override { return nullptr; }
  const FloatingPoint* as_floating_point() const override { return &value; }
  const FloatingPoint* as_fp_lib() const override { return value.is_fp_lib ? &value : nullptr; }
  FloatingPoint value;
};

Type::Type(const FixedPoint& format) : held(std::make_unique<TypeModel<FixedPoint>>(format)) {}
Type::Type(const FloatingPoint& format)
    : held(std::make_unique<TypeModel<FloatingPoint>>(format)) {}

}  // namespace kiln

bool isFixedPoint(const PortSpec& port) {
  if (port.type.as_floating_point()) return false;
  if (port.type.as_fixed_point()) return true;
  LOAM_ASSERT(port.type.as_fp_lib(), "problem in isFixedPoint()");
  return false;
}

bool isFloatingPoint(const PortSpec& port) {
  if (port.type.as_fixed_point()) return false;
  if (port.type.as_floating_point()) return true;
  LOAM_ASSERT(port.type.as_fp_lib(), "problem in isFloatingPoint()");
  return false;
}

bool isFPLib(const PortSpec& port) {
  if (port.type.as_floating_point() || port.type.as_fixed_point()) return false;
  LOAM_ASSERT(port.type.as_fp_lib(), "problem in isFloatingPoint()");
  return true;
}
