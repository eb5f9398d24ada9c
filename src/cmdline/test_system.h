#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "backend/kiln/attributes.h"
#include "backend/kiln/block.h"
#include "backend/kiln/node.h"
#include "backend/kiln/signal.h"
#include "backend/kiln/unit_builder.h"
#include "backend/model/model.h"
#include "cmdline/system_generator.h"

namespace cmdline {

// A generator with its records, a design and a model to try its stages on.
struct TestSystem {
  explicit TestSystem(componentType component = 15, std::vector<std::string> parameters = {})
      : spec{.component = component,
             .name = "topModel",
             .inputs = {},
             .outputs = {},
             .enableStyle = 0,
             .target = &target,
             .parameters = std::move(parameters)} {
    tests.faithfulRounding = true;
  }
  // Ports of single precision with these names.
  static PortSpecList ports(std::initializer_list<const char*> names,
                            const kiln::Type& type = kiln::ieee(8, 23)) {
    PortSpecList list;
    for (const char* name : names) list.push_back(name, type);
    return list;
  }
  kiln::Block& block(const std::string& name) const {
    for (const auto& one : model.blocks())
      if (one->name() == name) return *one;
    throw std::runtime_error("no block " + name);
  }
  void setUp() { generator.setupSingleUnitModelDesign(model, tests); }

  kiln::ContextMgr context;
  DeviceSpec device{.family = "Merrow 10", .speedGrade = "1", .part = "AUTO"};
  TargetSpec target{.device = &device, .frequency = 300};
  SystemSpec spec;
  SystemOptions options{.language = 0,
                        .target = &target,
                        .interfaceStyle = 0,
                        .designStyle = 1,
                        .combinatorial = false,
                        .hardFP = false};
  TestingOptions tests;
  SystemGeneratorKILN generator{&spec, &options};
  kiln::Design design{kiln::ContextMgr::get()};
  kiln::Model& model = kiln::Model::create(design, "topModel");
};

// "key=value" of every parameter in order; a wire is told as its block and output.
inline std::string parametersOf(const kiln::Node& node) {
  std::string text;
  for (const kiln::Node::Parameter& parameter : node.parameters()) {
    text += (text.empty() ? "" : ", ") + parameter.key->text() + "=";
    if (const auto* value = std::get_if<kiln::PureValueRef>(&parameter.held)) {
      text += *value ? (*value)->text() : "null";
    } else {
      const auto* wire = dynamic_cast<const kiln::Wire*>(std::get<kiln::Node*>(parameter.held));
      text += wire->block().name() + "." + wire->key()->text();
    }
  }
  return text;
}

// The keys of the wires that leave a block.
inline std::string wiresOf(const kiln::Block& block) {
  std::string text;
  for (const auto& wire : block.wires()) text += (text.empty() ? "" : ", ") + wire->key()->text();
  return text;
}

// A working folder of the test's own, which vanishes with it.
class WorkingFolder {
 public:
  WorkingFolder() : before(std::filesystem::current_path()) {
    folder = std::filesystem::temp_directory_path() / fmt::format("cmdline_test.{}", getpid());
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);
  }
  ~WorkingFolder() {
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
  }
  WorkingFolder(const WorkingFolder&) = delete;

 private:
  std::filesystem::path before, folder;
};

}  // namespace cmdline
