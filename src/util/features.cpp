#include "util/features.h"

#include <map>

namespace util {

namespace {

template <typename T>
std::map<std::string, T>& settings() {
  static std::map<std::string, T> values;
  return values;
}

template <typename T>
std::optional<T> setting(const std::string& name) {
  const auto found = settings<T>().find(name);
  if (found == settings<T>().end()) return std::nullopt;
  return found->second;
}

}  // namespace

void SetFeature(const TESSELFeature<bool>& feature, bool value) {
  SetFeatureBoolean(feature.name, value);
}
void SetFeatureBoolean(const std::string& name, bool value) { settings<bool>()[name] = value; }
void SetFeatureInteger(const std::string& name, int value) { settings<int>()[name] = value; }
void SetFeatureString(const std::string& name, const std::string& value) {
  settings<std::string>()[name] = value;
}

bool GetFeature(const TESSELFeature<bool>& feature) {
  return GetFeatureBoolean(feature.name).value_or(feature.defaultValue);
}
std::optional<bool> GetFeatureBoolean(const std::string& name) { return setting<bool>(name); }
std::optional<int> GetFeatureInteger(const std::string& name) { return setting<int>(name); }
std::optional<std::string> GetFeatureString(const std::string& name) {
  return setting<std::string>(name);
}

}  // namespace util
