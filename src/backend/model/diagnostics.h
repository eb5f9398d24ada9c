#pragma once

#include <string>

#include "backend/functions/unit.h"
#include "backend/graph/graph.h"
#include "backend/model/resource_usage.h"
#include "backend/schedule/schedule.h"

// Lines for the people who look into a run, each ended by a newline.

// The stage that sets the clock: its time and what ends it.
std::string longestStageText(const schedule::Scheduled& scheduled);

// What was asked of the unit on which device.
std::string requestText(const functions::UnitRow& row, const functions::Request& request,
                        const device::Device& device);

// Nodes, scopes and states of a graph, and how often each operation stands in it.
std::string graphText(const std::string& title, const graph::Graph& graph);

// Latency, period, longest stage and register bits, then the operations of each cycle and the bits
// that cross to the next one.
std::string scheduleText(const graph::Graph& graph, const schedule::Scheduled& scheduled,
                         const std::string& strategy);

std::string resourcesText(const tessel_api::ResourceUsage& usage);
