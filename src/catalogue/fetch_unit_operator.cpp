#include "catalogue/fetch_unit_operator.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <source_location>

#include "catalogue/supported_operator.h"
#include "util/failure.h"
#include "util/words.h"

namespace {

// Fails the assertion with an expression that scripts know in this spelling.
void require(bool holds, const char* expression, const std::string& message,
             const std::source_location& place = std::source_location::current()) {
  if (!holds)
    loam_assert_handler(expression, "cmdGauge", static_cast<int>(place.line()),
                        place.function_name(), message);
}

// What a pass over the catalogue has found: the last row that matched, and how many did.
struct Match {
  const SupportedOperator* row = nullptr;
  int opCount = 0;
  bool exception = false;

  void take(const SupportedOperator& found) {
    row = &found;
    ++opCount;
    exception = found.exception;
  }
  void requireOne() const {
    require(opCount == 1 || exception, "opCount==1 || exception",
            opCount == 0 ? "no operator of the model flow on the line"
                         : "more than one operator on the line");
  }
};

void findByName(Match& match, const std::vector<SupportedOperator>& rows, const Options& options) {
  for (const SupportedOperator& row : rows) {
    if (!options.has(row.name)) continue;
    match.take(row);
    if (match.exception) return;
  }
  match.requireOne();
}

void findByType(Match& match, const std::vector<SupportedOperator>& rows, const Options& options,
                componentType type) {
  for (const SupportedOperator& row : rows) {
    if (row.component != type || !options.has(row.name)) continue;
    match.take(row);
    if (match.exception) return;
  }
  match.requireOne();
}

// The words behind `name`, filled up where the line ends before them.
std::vector<std::string> parametersOf(const Options& options, const std::string& name, int count) {
  const int present = std::min(count, options.wordsBehind(name));
  std::vector<std::string> words = options.getArgs(name, present, "0");
  words.resize(count, "0");
  return words;
}

// In wrapping arithmetic: widths that no circuit has arrive here unchecked.
kiln::FloatingPoint ieee(int exp, int frac) {
  return {exp, frac, static_cast<int>(1U + exp + frac), /*is_fp_lib=*/false};
}

// A rule that needs a parameter which `p` does not hold raises the standard out-of-range exception.
std::optional<kiln::Type> formatOf(const TypeParam& rule, const std::vector<Parameter>& p) {
  const auto literal = [&](std::size_t position) { return rule.indices.at(position); };
  const auto value = [&](std::size_t position) { return p.at(literal(position)).value; };
  if (dynamic_cast<const TypeParamFP*>(&rule)) return ieee(value(0), value(1));
  if (dynamic_cast<const TypeParamBool*>(&rule)) return kiln::FixedPoint(1, 0, false);
  if (dynamic_cast<const TypeParamFXP*>(&rule))
    return kiln::FixedPoint(value(0), value(1), value(2) == 1);
  if (dynamic_cast<const TypeParamUnsigned*>(&rule)) return kiln::FixedPoint(value(0), 0, false);
  if (dynamic_cast<const TypeParamSigned*>(&rule)) return kiln::FixedPoint(value(0), 0, true);
  if (dynamic_cast<const TypeParamUnsignedVal*>(&rule))
    return kiln::FixedPoint(literal(0), 0, false);
  if (dynamic_cast<const TypeParamSignedVal*>(&rule)) return kiln::FixedPoint(literal(0), 0, true);
  return std::nullopt;
}

void bindPorts(const PortParamSpecList& specs, const std::vector<Parameter>& p,
               PortSpecList& ports) {
  for (const auto& [name, rule] : specs) {
    if (!rule) continue;
    if (const auto format = formatOf(*rule, p)) ports.push_back(name, *format);
  }
}

}  // namespace

std::vector<std::string> fetchUnitOperator(const Options& options, PortSpecList& inputs,
                                           PortSpecList& outputs, TestingOptions& testOptions) {
  const std::vector<SupportedOperator> catalogue = initializeSupportedOperators();
  Match match;
  findByName(match, catalogue, options);

  const std::vector<std::string> args =
      parametersOf(options, match.row->name, match.row->paramCount);
  std::vector<Parameter> p;
  for (const std::string& word : args) p.push_back({util::integerOf(word.c_str())});

  if (match.exception) {
    const componentType type = exceptionHandler(match.row->name, args);
    require(type != 0, "exceptionHandled", "exception not handled");
    findByType(match, catalogue, options, type);
  }
  testOptions.componentType = match.row->component;

  std::printf("Detected component %s with param list: ", match.row->name.c_str());
  for (const Parameter& parameter : p) std::printf("%d ", parameter.value);
  std::printf("\n");

  bindPorts(match.row->inputs, p, inputs);
  bindPorts(match.row->outputs, p, outputs);
  return args;
}

componentType exceptionHandler(std::string name, std::vector<std::string> v) {
  const auto number = [&v](std::size_t index) { return util::integerOf(v[index].c_str()); };
  if (name == "FPCompare") {
    require(v.size() == 3, "v.size()==3", "FPCompare has three parameters");
    const int compareType = number(2);
    require(compareType >= -2 && compareType <= 3, "compareType>=-2 && compareType<=3",
            "Compare type unsupported. check help for details");
    return FPCOMPARE_EQ + compareType;
  }
  if (name == "FPDiv") {
    require(v.size() == 3, "v.size()==3", "FPDiv has three parameters");
    const int architectureType = number(2);
    require(architectureType >= 0 && architectureType <= 1,
            "architectureType>=0 && architectureType<=1",
            "Architecture type for div is one of 0 or 1. check help for details");
    return FPDIV + architectureType;
  }
  if (name == "FPToFXP") {
    require(v.size() == 6, "v.size()==6", "FPToFXP has six parameters");
    constexpr int kSelectedAtRunTime = -1;
    return number(5) == kSelectedAtRunTime ? FPTOFXP_RNDSEL : FPTOFXP;
  }
  return 0;
}
