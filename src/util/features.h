#pragma once

#include <optional>
#include <string>

// A switch of the back end that the program sets by object rather than by name.
template <typename T>
struct TESSELFeature {
  const char* name;
  T defaultValue;
};

namespace Features {
inline const TESSELFeature<bool> REPORT_DEBUG_MESSAGES{"ReportDebugMessages", false};
inline const TESSELFeature<bool> PRESERVE_TOP_LEVEL_ENTITY_NAME{"PreserveTopLevelEntityName",
                                                                false};
inline const TESSELFeature<bool> SOFTWARE_MODEL_FORCE_ENABLED{"SoftwareModelForceEnabled", false};
}  // namespace Features

namespace util {

// Settings of the back end by name. Any name may be set; one that no part of the back end reads has
// no effect. They hold for the whole run.
void SetFeature(const TESSELFeature<bool>& feature, bool value);
void SetFeatureBoolean(const std::string& name, bool value);
void SetFeatureInteger(const std::string& name, int value);
void SetFeatureString(const std::string& name, const std::string& value);

bool GetFeature(const TESSELFeature<bool>& feature);
// What was set under `name` in that kind, or nothing.
std::optional<bool> GetFeatureBoolean(const std::string& name);
std::optional<int> GetFeatureInteger(const std::string& name);
std::optional<std::string> GetFeatureString(const std::string& name);

}  // namespace util
