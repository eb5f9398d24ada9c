#include "backend/approximation/sollya.h"

#include <fmt/format.h>
#include <sollya.h>

#include <cstdarg>
#include <initializer_list>

namespace approximation::sollya {

using util::MPZ;

namespace {

int silence(sollya_msg_t, void*) { return 0; }

// Starts the library once.
void start() {
  static const bool started = [] {
    sollya_lib_init();
    sollya_lib_install_msg_callback(silence, nullptr);
    return true;
  }();
  static_cast<void>(started);
}

// An object of the library that is freed.
class Object {
 public:
  explicit Object(sollya_obj_t object) : object(object) {}
  Object(const Object&) = delete;
  Object(Object&& other) noexcept : object(other.object) { other.object = nullptr; }
  ~Object() {
    if (object) sollya_lib_clear_obj(object);
  }
  sollya_obj_t get() const { return object; }
  bool isError() const { return sollya_lib_obj_is_error(object) != 0; }

 private:
  sollya_obj_t object;
};

Object parsed(const std::string& text) { return Object(sollya_lib_parse_string(text.c_str())); }

// value * 2^exponent, exactly.
std::string dyadicText(const MPZ& value, int exponent) {
  return fmt::format("({}) * 2^({})", value.toText(10), exponent);
}

Object rangeOf(const Domain& domain) {
  return parsed(fmt::format("[{}; {}]", dyadicText(domain.low, domain.lsb),
                            dyadicText(domain.high, domain.lsb)));
}

util::Failure failure(const char* command, const std::string& function) {
  return {fmt::format("{} of Sollya fails for \"{}\"", command, function)};
}

}  // namespace

util::Result<std::vector<MPZ>> fpminimax(const std::string& function, const Domain& domain,
                                         std::span<const int> lsb) {
  start();
  const Object f = parsed(function), range = rangeOf(domain);
  const Object degree(sollya_lib_constant_from_int(static_cast<int>(lsb.size()) - 1));
  std::vector<Object> formats;
  std::vector<sollya_obj_t> formatPointers;
  for (const int unit : lsb) {
    formats.emplace_back(sollya_lib_constant_from_int(-unit));
    formatPointers.push_back(formats.back().get());
  }
  const Object list(sollya_lib_list(formatPointers.data(), static_cast<int>(lsb.size())));
  const Object fixed(sollya_lib_fixed()), absolute(sollya_lib_absolute());
  if (f.isError() || range.isError()) return failure("fpminimax", function);
  const Object p(sollya_lib_fpminimax(f.get(), degree.get(), list.get(), range.get(), fixed.get(),
                                      absolute.get(), nullptr));
  if (p.isError()) return failure("fpminimax", function);
  std::vector<MPZ> coefficients;
  for (std::size_t j = 0; j < lsb.size(); ++j) {
    const Object power(sollya_lib_constant_from_int(static_cast<int>(j)));
    const Object coefficient(sollya_lib_coeff(p.get(), power.get()));
    mpq_t value;
    mpq_init(value);
    bool isWhole = sollya_lib_get_constant_as_mpq(value, coefficient.get()) != 0;
    if (lsb[j] <= 0)
      mpq_mul_2exp(value, value, static_cast<mp_bitcnt_t>(-lsb[j]));
    else
      mpq_div_2exp(value, value, static_cast<mp_bitcnt_t>(lsb[j]));
    isWhole = isWhole && mpz_cmp_ui(mpq_denref(value), 1) == 0;
    if (isWhole) coefficients.emplace_back(mpz_srcptr(mpq_numref(value)));
    mpq_clear(value);
    if (!isWhole) return failure("fpminimax", function);
  }
  return coefficients;
}

util::Result<Interval> supnorm(const std::string& function, const Domain& domain,
                               std::span<const MPZ> c, std::span<const int> lsb) {
  start();
  std::string text = "0";
  for (std::size_t j = 0; j < c.size(); ++j)
    text += fmt::format(" + {} * x^{}", dyadicText(c[j], lsb[j]), j);
  const Object f = parsed(function), range = rangeOf(domain), p = parsed(text);
  const Object absolute(sollya_lib_absolute()), accuracy = parsed("2^(-6)");
  if (f.isError() || range.isError() || p.isError()) return failure("supnorm", function);
  const Object norm(
      sollya_lib_supnorm(p.get(), f.get(), range.get(), absolute.get(), accuracy.get()));
  Interval bounds(200);
  if (norm.isError() ||
      !sollya_lib_get_bounds_from_range(bounds.low(), bounds.high(), norm.get()) ||
      !bounds.isBounded())
    return failure("supnorm", function);
  return bounds;
}

}  // namespace approximation::sollya
