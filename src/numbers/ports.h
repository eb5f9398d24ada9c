#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "numbers/real.h"
#include "util/mpz.h"

namespace kiln {

// A two's-complement or unsigned number: the integer pattern n stands for n * 2^-fraction.
class FixedPoint {
 public:
  FixedPoint() = default;
  FixedPoint(int width, int fraction, bool sign)
      : m_width(width), m_fraction(fraction), m_sign(sign) {}
  int width() const { return m_width; }
  int fraction() const { return m_fraction; }
  bool sign() const { return m_sign; }

 private:
  int m_width = 0;
  int m_fraction = 0;
  bool m_sign = false;
};

// An IEEE-style number (sign, exponent, fraction; width exp + frac + 1), or one in FPLib form with
// two exception bits on top (0 zero, 1 regular, 2 infinity, 3 NaN; width exp + frac + 3).
struct FloatingPoint {
  int exp = 0;
  int frac = 0;
  int width = 0;
  bool is_fp_lib = false;
};

inline FloatingPoint ieee(int exp, int frac) { return {exp, frac, exp + frac + 1, false}; }
inline FloatingPoint fpLib(int exp, int frac) { return {exp, frac, exp + frac + 3, true}; }

// The number format of one port; a value type.
class Type {
 public:
  struct TypeConcept {
    virtual ~TypeConcept() = default;
    virtual int width() const = 0;
    virtual std::unique_ptr<TypeConcept> clone() const = 0;
    virtual const FixedPoint* as_fixed_point() const = 0;
    virtual const FloatingPoint* as_floating_point() const = 0;
    virtual const FloatingPoint* as_fp_lib() const = 0;
  };
  template <typename T>
  struct TypeModel;

  Type(const FixedPoint& format);
  Type(const FloatingPoint& format);
  Type(const Type& other) : held(other.held->clone()) {}
  Type(Type&&) noexcept = default;
  Type& operator=(const Type& other) {
    held = other.held->clone();
    return *this;
  }
  Type& operator=(Type&&) noexcept = default;

  int width() const { return held->width(); }
  // The held format, or null when the port is of another kind. An FPLib port answers both
  // as_floating_point and as_fp_lib.
  const FixedPoint* as_fixed_point() const { return held->as_fixed_point(); }
  const FloatingPoint* as_floating_point() const { return held->as_floating_point(); }
  const FloatingPoint* as_fp_lib() const { return held->as_fp_lib(); }

 private:
  std::unique_ptr<TypeConcept> held;
};

}  // namespace kiln

struct PortSpec {
  std::string name;
  kiln::Type type;
};

// The ordered ports of one side of a unit; the order is that of the columns in every vector file.
class PortSpecList {
 public:
  void push_back(const std::string& name, const kiln::Type& type) { ports.push_back({name, type}); }
  std::size_t size() const { return ports.size(); }
  bool empty() const { return ports.empty(); }
  PortSpec& operator[](std::size_t index) { return ports[index]; }
  const PortSpec& operator[](std::size_t index) const { return ports[index]; }
  auto begin() const { return ports.begin(); }
  auto end() const { return ports.end(); }

 private:
  std::vector<PortSpec> ports;
};

bool isFixedPoint(const PortSpec& port);
bool isFloatingPoint(const PortSpec& port);
// False for every port that the two format classes can make: an FPLib port is a floating one.
bool isFPLib(const PortSpec& port);

enum class NumType : int { kValue = 0, kDontCare = 1 };

enum class OutputNumberType { BINARY = 0, HEX = 1, SIGNED = 2 };

// One value on one port: a real number, or a raw bit pattern, or a do-not-care.
struct NumValue {
  Real real;
  util::MPZ pattern;  // meaningful only when `raw`
  NumType type = NumType::kValue;
  bool raw = false;
};
