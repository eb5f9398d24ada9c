#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <deque>

#include "backend/device/device.h"
#include "backend/device/families.h"
#include "util/failure.h"

namespace {

// Names are compared without case and blanks.
std::string folded(std::string_view name) {
  std::string text;
  for (const char letter : name)
    if (!std::isspace(static_cast<unsigned char>(letter)))
      text += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return text;
}

}  // namespace

LANGUAGE GetLanguageFromName(const std::string& name) {
  const std::string text = folded(name);
  if (text == "vhdl") return LANGUAGE_VHDL;
  if (text == "verilog") return LANGUAGE_VERILOG;
  return LANGUAGE_UNKNOWN;
}

namespace device {

DeviceFactory deviceFactory;

namespace {

const Family& familyCalled(const std::string& name) {
  std::string known;
  for (const Family& family : families()) {
    if (folded(family.name) == folded(name)) return family;
    known += fmt::format("{}{}", known.empty() ? "" : ", ", family.name);
  }
  util::exitWith({fmt::format("Unknown device family '{}'; known families: {}", name, known)});
}

const SpeedGrade& gradeCalled(const std::string& name) {
  std::string known;
  for (const SpeedGrade& grade : speedGrades()) {
    if (std::ranges::find(grade.names, folded(name)) != grade.names.end()) return grade;
    for (const std::string_view one : grade.names)
      known += fmt::format("{}{}", known.empty() ? "" : ", ", one);
  }
  util::exitWith({fmt::format("Unknown speed grade '{}'; known speed grades: {}", name, known)});
}

}  // namespace

Device* DeviceFactory::GetDevice(const std::string& family, const std::string&,
                                 const std::string& speedGrade, const std::string& part,
                                 const std::string&) {
  static std::deque<Device> devices;  // a deque: the pointers stay good
  const SpeedGrade& grade = gradeCalled(speedGrade);
  return &devices.emplace_back(familyCalled(family), std::string(grade.names[0]), grade.factor,
                               part);
}

}  // namespace device
