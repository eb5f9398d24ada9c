#include "backend/device/small_functions.h"

#include <algorithm>

namespace device {

namespace {

constexpr Function kNever = 0, kAlways = 0xffff;

Function inverted(Function f) { return static_cast<Function>(~f); }

// The function where an input has a value.
Function cofactor(Function f, std::size_t input, bool value) {
  const int shift = 1 << input;
  const Function ones = kInputFunctions[input];
  if (value) {
    f &= ones;
    return static_cast<Function>(f | f >> shift);
  }
  f &= inverted(ones);
  return static_cast<Function>(f | f << shift);
}

std::uint8_t gate(std::uint8_t a, std::uint8_t b, Formula& formula) {
  const std::pair operands = std::minmax(a, b);
  const auto found =
      std::ranges::find(formula.gates, std::pair<std::uint8_t, std::uint8_t>(operands));
  const auto index = found - formula.gates.begin();
  if (found == formula.gates.end()) formula.gates.emplace_back(operands);
  return static_cast<std::uint8_t>(2 * (4 + index));
}

std::uint8_t inverse(std::uint8_t literal) { return literal ^ 1; }

}  // namespace

std::vector<SmallFunctions::Step> SmallFunctions::stepsOf(Function f) {
  using Kind = Step::Kind;
  std::vector<Step> steps;
  for (std::uint8_t i = 0; i < 4; ++i) {
    const auto positive = static_cast<std::uint8_t>(2 * i), negative = inverse(positive);
    const Function zero = cofactor(f, i, false), one = cofactor(f, i, true);
    if (zero == one) continue;
    const int both = gatesOf(zero) + gatesOf(one);
    if (zero == kNever && one == kAlways) return {{Kind::kLiteral, positive}};
    if (zero == kAlways && one == kNever) return {{Kind::kLiteral, negative}};
    if (zero == kNever) steps.push_back({Kind::kAnd, positive, one, 0, both + 1});
    if (one == kNever) steps.push_back({Kind::kAnd, negative, zero, 0, both + 1});
    if (zero == kAlways) steps.push_back({Kind::kOr, negative, one, 0, both + 1});
    if (one == kAlways) steps.push_back({Kind::kOr, positive, zero, 0, both + 1});
    if (zero == kNever || zero == kAlways || one == kNever || one == kAlways) continue;
    if (zero == inverted(one)) {
      steps.push_back({Kind::kXor, positive, zero, 0, gatesOf(zero) + 3});
      continue;
    }
    steps.push_back({Kind::kChoice, positive, one, zero, both + 3});
    if ((zero & inverted(one)) == 0) steps.push_back({Kind::kOrAnd, positive, one, zero, both + 2});
    if ((one & inverted(zero)) == 0) steps.push_back({Kind::kOrAnd, negative, zero, one, both + 2});
  }
  // Inputs i and k that the rest sees as one bit only: input i stands for it there.
  for (std::uint8_t i = 0; i < 4; ++i)
    for (std::uint8_t k = i + 1; k < 4; ++k) {
      std::array<Function, 4> rest{};
      for (unsigned values = 0; values < 4; ++values)
        rest[values] = cofactor(cofactor(f, i, (values & 1) != 0), k, (values & 2) != 0);
      const Function first = rest[0];
      const auto other = std::ranges::find_if(rest, [&](Function x) { return x != first; });
      if (other == rest.end() ||
          std::ranges::any_of(rest, [&](Function x) { return x != first && x != *other; }))
        continue;
      Function inner = 0;
      for (unsigned values = 0; values < 4; ++values) {
        if (rest[values] == first) continue;
        const Function atI = (values & 1) != 0 ? kInputFunctions[i] : inverted(kInputFunctions[i]);
        const Function atK = (values & 2) != 0 ? kInputFunctions[k] : inverted(kInputFunctions[k]);
        inner |= atI & atK;
      }
      const auto outer = static_cast<Function>((first & inverted(kInputFunctions[i])) |
                                               (*other & kInputFunctions[i]));
      // One that needs but one of the two is no step.
      if (outer == f || inner == kInputFunctions[i] || inner == inverted(kInputFunctions[i]) ||
          inner == kInputFunctions[k] || inner == inverted(kInputFunctions[k]))
        continue;
      if (cofactor(outer, i, false) == kNever && cofactor(outer, i, true) == kAlways) continue;
      if (cofactor(outer, i, false) == kAlways && cofactor(outer, i, true) == kNever) continue;
      steps.push_back({Kind::kInner, static_cast<std::uint8_t>(2 * i), inner, outer,
                       gatesOf(inner) + gatesOf(outer)});
    }
  std::ranges::stable_sort(steps, {}, &Step::gates);
  return steps;
}

const SmallFunctions::Step& SmallFunctions::bestOf(Function f) {
  if (const auto found = best.find(f); found != best.end()) return found->second;
  const Step step = stepsOf(f).front();
  return best.emplace(f, step).first->second;
}

int SmallFunctions::gatesOf(Function f) {
  return f == kNever || f == kAlways ? 0 : bestOf(f).gates;
}

std::uint8_t SmallFunctions::add(Function f, const std::array<std::uint8_t, 4>& inputs,
                                 Formula& formula) {
  return add(Step{bestOf(f)}, inputs, formula);
}

std::uint8_t SmallFunctions::add(const Step& step, const std::array<std::uint8_t, 4>& inputs,
                                 Formula& formula) {
  using Kind = Step::Kind;
  const auto both = [&](std::uint8_t a, std::uint8_t b) { return gate(a, b, formula); };
  const auto either = [&](std::uint8_t a, std::uint8_t b) {
    return inverse(both(inverse(a), inverse(b)));
  };
  const std::uint8_t top = inputs[step.input / 2] ^ (step.input & 1);
  if (step.kind == Kind::kLiteral) return top;
  const std::uint8_t x = add(step.x, inputs, formula);
  if (step.kind == Kind::kAnd) return both(top, x);
  if (step.kind == Kind::kOr) return either(top, x);
  if (step.kind == Kind::kXor)
    return inverse(both(inverse(both(top, inverse(x))), inverse(both(inverse(top), x))));
  if (step.kind == Kind::kInner) {
    std::array<std::uint8_t, 4> inner = inputs;
    inner[step.input / 2] = x;
    return add(step.y, inner, formula);
  }
  const std::uint8_t y = add(step.y, inputs, formula);
  if (step.kind == Kind::kOrAnd) return either(y, both(top, x));
  return either(both(top, x), both(inverse(top), y));
}

const std::vector<Formula>& SmallFunctions::formulasOf(Function f) {
  const auto [found, isNew] = formulas.try_emplace(f);
  if (!isNew) return found->second;
  std::vector<Formula> made;
  constexpr std::array<std::uint8_t, 4> kInputs = {0, 2, 4, 6};
  const std::vector<Step> steps = stepsOf(f);
  for (const Step& step : steps) {
    if (made.size() == kMost || step.gates > steps.front().gates + 1) break;
    Formula formula;
    formula.result = add(step, kInputs, formula);
    made.push_back(std::move(formula));
  }
  return found->second = std::move(made);
}

}  // namespace device
