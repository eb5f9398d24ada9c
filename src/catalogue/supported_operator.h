#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "catalogue/type_param.h"
#include "numbers/component_type.h"

// One port of a row: its name and the rule of its format. Copies share the rule.
using PortParamSpec = std::pair<std::string, std::shared_ptr<const TypeParam>>;

// The ports on one side of an operator, in the order of the unit's ports and of the columns in the
// vector files.
class PortParamSpecList {
 public:
  PortParamSpecList(const PortParamSpec& a) : specs{a} {}
  PortParamSpecList(const PortParamSpec& a, const PortParamSpec& b) : specs{a, b} {}
  PortParamSpecList(const PortParamSpec& a, const PortParamSpec& b, const PortParamSpec& c)
      : specs{a, b, c} {}

  void push_back(const PortParamSpec& spec) { specs.push_back(spec); }
  std::size_t size() const { return specs.size(); }
  const PortParamSpec& operator[](std::size_t index) const { return specs[index]; }
  auto begin() const { return specs.begin(); }
  auto end() const { return specs.end(); }

 private:
  std::vector<PortParamSpec> specs;
};

// One row of the catalogue: all that the model flow knows of an operator.
struct SupportedOperator {
  SupportedOperator(componentType component, const std::string& name, std::int32_t paramCount,
                    const PortParamSpecList& inputs, const PortParamSpecList& outputs,
                    bool exception)
      : component(component),
        name(name),
        paramCount(paramCount),
        inputs(inputs),
        outputs(outputs),
        exception(exception) {}

  componentType component;
  std::string name;         // the word on the command line, in this spelling
  std::int32_t paramCount;  // words behind it
  PortParamSpecList inputs, outputs;
  bool exception;  // one of several rows of this name, with as many parameters; those decide
};

// The catalogue. Its order matters among rows of one name only.
std::vector<SupportedOperator> initializeSupportedOperators();
