#include "accuracy/vector_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "numbers/packing.h"
#include "util/failure.h"

namespace {

constexpr std::size_t kMostBlanks = 1 << 16;  // of one row

// Sets `value` to (-1)^sign * significand * 2^exponent.
void setRegular(mpfr_ptr value, bool sign, const util::MPZ& significand, mpfr_exp_t exponent) {
  mpfr_set_z_2exp(value, significand.get(), exponent, MPFR_RNDN);
  mpfr_setsign(value, value, sign, MPFR_RNDN);
}

void decodeFPLib(NumValue& value, const util::MPZ& pattern, const kiln::FloatingPoint& fp) {
  const auto wF = static_cast<unsigned long>(fp.frac), wE = static_cast<unsigned long>(fp.exp);
  const bool sign = pattern.bit(wF + wE);
  mpfr_ptr x = value.real.prepare(fp.frac + 1);
  switch ((pattern >> (wF + wE + 1)).toUint64() & 3) {
    case 0:
      return mpfr_set_zero(x, sign ? -1 : 1);
    case 1: {
      const auto field = static_cast<mpfr_exp_t>((pattern >> wF).lowBits(wE).toUint64());
      const mpfr_exp_t bias = (mpfr_exp_t{1} << (fp.exp - 1)) - 1;
      return setRegular(x, sign, pattern.lowBits(wF) + util::MPZ::powerOfTwo(wF),
                        field - bias - fp.frac);
    }
    case 2:
      return mpfr_set_inf(x, sign ? -1 : 1);
    default:
      return mpfr_set_nan(x);
  }
}

// The number of a subnormal pattern; false for any other pattern.
bool decodeSubnormal(NumValue& value, const util::MPZ& pattern, const kiln::FloatingPoint& fp) {
  const auto wF = static_cast<unsigned long>(fp.frac), wE = static_cast<unsigned long>(fp.exp);
  const util::MPZ fraction = pattern.lowBits(wF);
  if (!(pattern >> wF).lowBits(wE).isZero() || fraction.isZero()) return false;
  setRegular(value.real.prepare(fp.frac + 1), pattern.bit(wF + wE), fraction,
             2 - (mpfr_exp_t{1} << (fp.exp - 1)) - fp.frac);
  return true;
}

}  // namespace

VectorRows::VectorRows(std::string path, const PortSpecList& ports, bool hasFlow, bool enable)
    : filePath(std::move(path)), ports(ports), hasFlow(hasFlow), hasEnable(enable), file(filePath) {
  if (!file) return;
  file.peek();  // a folder opens, and then cannot be read
  if (file.bad()) return;
  file.clear();
  readable = true;
  std::size_t width = kMostBlanks;
  for (const PortSpec& port : ports) width += static_cast<std::size_t>(port.type.width());
  buffer.resize(width);
}

bool VectorRows::next() {
  columns.clear();
  while (columns.empty()) {
    ++lineNumber;
    file.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    if (file.bad()) fail("cannot be read");
    if (file.eof() && file.gcount() == 0) return false;
    if (file.fail()) fail(fmt::format("longer than {} characters", buffer.size() - 2));
    const auto length = static_cast<std::size_t>(file.gcount() - (file.eof() ? 0 : 1));
    const std::string_view text(buffer.data(), length);
    constexpr const char* kBlanks = " \t\r\v\f";
    for (std::size_t from = text.find_first_not_of(kBlanks); from != std::string_view::npos;) {
      const std::size_t to = std::min(text.find_first_of(kBlanks, from), text.size());
      columns.push_back(text.substr(from, to - from));
      from = text.find_first_not_of(kBlanks, to);
    }
  }
  ++rowCount;
  const std::size_t expected = firstData() + ports.size();
  if (columns.size() != expected && !(hasEnable && columns.size() == expected + 1)) {
    fail(fmt::format("{} columns, expected {}", columns.size(), expected + hasEnable));
  }
  return true;
}

int VectorRows::enable() const {
  const std::size_t column = firstData() + ports.size();
  return column < columns.size() ? static_cast<int>(bits(column, 1)) : 1;
}

void VectorRows::decode(NumValue& value, std::size_t port, bool subnormals) const {
  const std::size_t column = firstData() + port;
  const kiln::Type& type = ports[port].type;
  if (columns[column].front() == '-') {
    mpfr_set_zero(value.real.prepare(2), 1);
    value.type = NumType::kDontCare;
    return;
  }
  value.pattern =
      patternOf(column, static_cast<std::size_t>(type.width()), "of port " + ports[port].name);
  value.type = NumType::kValue;
  const auto* fp = type.as_floating_point();
  if (fp && fp->is_fp_lib) {
    decodeFPLib(value, value.pattern, *fp);
  } else if (!fp || !subnormals || !decodeSubnormal(value, value.pattern, *fp)) {
    value.real = decodeMPZToMPFR(value, type).real;
  }
}

void VectorRows::fail(const std::string& message) const {
  util::exitWith({fmt::format("{}: row {}: {}", filePath, lineNumber, message)});
}

unsigned long VectorRows::bits(std::size_t column, std::size_t width) const {
  return patternOf(column, width, "of column " + std::to_string(column + 1)).toUint64();
}

const util::MPZ& VectorRows::patternOf(std::size_t column, std::size_t width,
                                       const std::string& what) const {
  digits = columns[column];
  if (digits.size() != width || digits.find_first_not_of("01") != std::string::npos) {
    constexpr std::size_t kShown = 80;
    if (digits.size() > kShown) digits = digits.substr(0, kShown) + "...";
    std::ranges::replace_if(
        digits, [](unsigned char letter) { return letter < ' ' || letter > '~'; }, '?');
    fail(fmt::format("'{}' {} is not a number of {} binary digits", digits, what, width));
  }
  mpz_set_str(pattern.get(), digits.c_str(), 2);
  return pattern;
}
