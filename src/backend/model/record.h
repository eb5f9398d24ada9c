#pragma once

#include <string>
#include <vector>

#include "backend/device/device.h"
#include "backend/functions/unit.h"
#include "backend/model/resource_usage.h"
#include "backend/schedule/schedule.h"
#include "numbers/ports.h"

// What a tool wants to know of a generated unit.
struct UnitRecord {
  std::string commandLine;
  int seed = 0;
  std::string entity;
  std::string unit;  // the unit table's name
  const PortSpecList* inputs = nullptr;
  const PortSpecList* outputs = nullptr;
  bool hasChannelValid = true;
  const device::Device* device = nullptr;
  const schedule::Scheduled* timing = nullptr;
  std::vector<int> latencies;  // one for each output
  tessel_api::ResourceUsage resources;
  long registerBits = 0;
  const functions::Request* request = nullptr;
  const arithmetic::ErrorBudgets* budgets = nullptr;
  std::vector<std::string> files;
};

// The record as strict JSON (docs/report.schema.json), the same bytes on every run.
std::string recordText(const UnitRecord& record);
