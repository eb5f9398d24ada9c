#include "backend/model/model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "backend/device/cover.h"
#include "backend/device/families.h"
#include "backend/kiln/attributes.h"
#include "backend/mapping/early_masks.h"
#include "backend/mapping/mapping.h"
#include "backend/model/diagnostics.h"
#include "backend/model/files.h"
#include "backend/model/version.h"
#include "util/failure.h"
#include "util/features.h"

namespace {

// The strategy of a "SchedulerMethod"; without one the exact one.
schedule::Strategy strategyOf(int schedulerMethod, bool combinational) {
  using enum schedule::Strategy;
  constexpr schedule::Strategy kByMethod[] = {kScopes, kGreedy, kTimed, kFewestRegisters};
  if (combinational) return kCombinational;
  return schedulerMethod >= 0 && schedulerMethod < 4 ? kByMethod[schedulerMethod]
                                                     : kFewestRegisters;
}

bool readsMemory(const graph::Graph& graph) {
  return std::ranges::any_of(graph.nodes(),
                             [](const graph::Node& node) { return node.op == graph::Op::kMemory; });
}

const char* nameOf(schedule::Strategy strategy) {
  constexpr const char* kNames[] = {"combinational", "as soon as possible",
                                    "as soon as possible at the smallest period, then swept",
                                    "a register behind every outermost scope",
                                    "fewest register bits"};
  return kNames[static_cast<int>(strategy)];
}

functions::Accuracy accuracyOf(float bound, bool faithful) {
  if (!faithful || bound < 1) return {functions::Accuracy::kCorrect, 0.5};
  return {functions::Accuracy::kWithin, bound};
}

arithmetic::RoundMode roundModeOf(int roundType) {
  using enum arithmetic::RoundMode;
  constexpr arithmetic::RoundMode kByType[] = {kNearestEven, kDown, kUp, kTowardZero};
  LOAM_ASSERT(0 <= roundType && roundType < 4, "Code should be unreachable");
  return kByType[roundType];
}

}  // namespace

CModel::CModel(CModelOptions* options, std::string name)
    : shared(options), settings(*options), modelName(std::move(name)) {}

CSynthSingleEntity::CSynthSingleEntity(CModelOptions* options, const std::string& name,
                                       const PortSpecList& inputs, const PortSpecList& outputs,
                                       WrapperTypeEnum wrapper)
    : CSynth(options, name),
      wrapper(wrapper),
      schedulerMethod(util::GetFeatureInteger("SchedulerMethod").value_or(-1)),
      preserveEntityName(util::GetFeature(Features::PRESERVE_TOP_LEVEL_ENTITY_NAME)),
      folder("./" + name) {
  if (options->bridgeDesign()) bridgeModel = &kiln::Model::create(*options->bridgeDesign(), name);
  channelIn = new CChannelUnit(this, "xIn", CFuncUnit::kChannelIn);
  inputPorts = inputs;
  outputPorts = outputs;
  if (splitsOutputs()) {
    for (std::size_t k = 0; k < outputs.size(); ++k)
      channelOuts.push_back(
          new CChannelUnit(this, "xOut" + std::to_string(k), CFuncUnit::kChannelOut));
  } else {
    channelOuts.push_back(new CChannelUnit(this, "xOut", CFuncUnit::kChannelOut));
  }
}

// What is asked of the circuit of `unit`, in one record.
functions::Request CSynthSingleEntity::requestFor(CArithmeticUnit& unit) const {
  functions::Request asked;
  asked.signature = unit.signature();
  const bool faithful = settings.getOptionValue(floatOption::faithfulRes) != 0;
  const std::vector<float>& bounds = settings.unitSettings.errorBounds;
  for (std::size_t k = 0; k < asked.signature.out.size(); ++k) {
    const float bound = bounds.empty()      ? (faithful ? 1.0f : 0.5f)
                        : k < bounds.size() ? bounds[k]
                                            : bounds[0];
    asked.accuracy.push_back(accuracyOf(bound, faithful));
  }
  asked.rounding.fixed = roundModeOf(settings.unitSettings.roundType);
  asked.subnormals = settings.getOptionValue(floatOption::subnormals) != 0;
  asked.quietNaN = shared->quietNaN;
  asked.wholeProducts = settings.getOptionValue(CFxPTruncMult::optionNoTruncMult) != 0;
  asked.alignsInDsps = settings.getOptionValue(synthOption::useDSPForAlignment) != 0;
  if (settings.device) {
    const device::Family& family = settings.device->data();
    asked.prices.lutPerDsp = family.lutPerDsp;
    asked.prices.lutPerFurtherDsp = family.lutPerFurtherDsp;
    asked.prices.dsp = {family.dsp.wide - 1, family.dsp.narrow - 1};
    asked.prices.lutInputs = family.lutInputs();
    asked.prices.lutPerMemory = family.lutPerMemory;
    asked.prices.memory = {family.memoryWidth, family.memoryBits / family.memoryWidth};
  }
  if (settings.getOptionValue(synthOption::forceCombinational) != 0)
    asked.prices.lutPerMemory = std::numeric_limits<double>::infinity();
  if (settings.lutMultRatio > 0)
    asked.prices.lutPerDsp = asked.prices.lutPerFurtherDsp = settings.lutMultRatio;
  return asked;
}

mapping::MappingOptions CSynthSingleEntity::mappingOptions(bool combinational) const {
  mapping::MappingOptions options{.period = settings.device->period(),
                                  .combinational = combinational};
  if (settings.lutMultRatio > 0) options.lutPerDsp = settings.lutMultRatio;
  return options;
}

// The exact latency that was asked for, if any; ends the run when it is below `shortest`.
std::optional<int> CSynthSingleEntity::constrainedLatency(int shortest) const {
  if (!bridgeModel) return std::nullopt;
  const auto* latency = dynamic_cast<const kiln::NumberValue*>(
      (*bridgeModel)[kiln::A_SYNTH_LATENCY_CONSTRAINT_VALUE].get_ptr());
  if (!latency) return std::nullopt;
  const int asked = static_cast<int>(latency->value());
  if (asked < shortest)
    util::exitWith({fmt::format(
        "{}: latency {} asked, but {} is the shortest at {:.1f} MHz; ask for more cycles",
        topUnit->word, asked, shortest, double{settings.device->megahertz()})});
  return asked;
}

// The graph of the whole entity: control ports, then the unit's own.
void CSynthSingleEntity::buildCircuit(functions::Request asked, std::optional<int> latency) {
  graph::Graph built;
  graph::Builder builder(built);
  schedule::ScheduleOptions wanted;
  graph::Signal valid, channel;
  if (hasChannelValid) {
    valid = builder.input("xIn_v", 1, true);
    channel = builder.input("xIn_c", 8, true);
  }
  asked.valid = valid;
  std::vector<graph::Signal> operands;
  for (const PortSpec& port : inputPorts)
    operands.push_back(builder.input(port.name, port.type.width()));
  const std::vector<graph::Signal> results = topUnit->row().decompose(builder, asked, operands);
  const bool split = splitsOutputs();
  wanted.outputGroups.clear();
  if (hasChannelValid) {
    for (std::size_t side = 0; side < channelOuts.size(); ++side) {
      builder.output(channelOuts[side]->name() + "_v", valid);
      builder.output(channelOuts[side]->name() + "_c", channel);
      wanted.outputGroups.insert(wanted.outputGroups.end(), 2, static_cast<int>(side));
    }
  }
  LOAM_ASSERT(results.size() == outputPorts.size(), "a unit gives one signal for each output");
  for (std::size_t k = 0; k < results.size(); ++k) {
    LOAM_ASSERT(results[k].width == outputPorts[k].type.width(),
                "a unit's signal has its port's width");
    builder.output(outputPorts[k].name, results[k]);
    wanted.outputGroups.push_back(split ? static_cast<int>(k) : 0);
  }

  const device::Device& device = *settings.device;
  log(graphText("circuit", built));
  if (hardFloat) {
    mapped = mapping::mapGraph(built, device, mappingOptions(true));
    scheduleHardFloat();
    log(scheduleText(mapped, *scheduled, "the registers of a hard block"));
    buildHardFloat(asked);
    return;
  }
  const bool isSequence = topUnit->row().protocol == functions::Protocol::kSequence;
  const bool combinational =
      isSequence || settings.getOptionValue(synthOption::forceCombinational) != 0;
  mapped = mapping::mapGraph(built, device, mappingOptions(combinational));
  log(graphText("mapped", mapped));

  wanted.period = device.period();
  wanted.megahertz = device.megahertz();
  wanted.strategy = strategyOf(schedulerMethod, combinational);
  wanted.statesOnly = isSequence;
  wanted.registerInputs = (wrapper & kWrapperIn) != 0;
  wanted.registerOutputs = (wrapper & kWrapperOut) != 0;
  wanted.latency = latency;
  const auto schedule = [&] {
    util::Result<schedule::Scheduled> result = schedule::scheduleGraph(mapped, device, wanted);
    if (!result && readsMemory(mapped)) {
      // The registers of memory blocks may be cycles too many.
      mapping::MappingOptions inLogic = mappingOptions(combinational);
      inLogic.lutPerMemory = std::numeric_limits<double>::infinity();
      mapped = mapping::mapGraph(built, device, inLogic);
      log(graphText("mapped without memory", mapped));
      result = schedule::scheduleGraph(mapped, device, wanted);
    }
    if (!result) util::exitWith(result.failure());
    scheduled = std::move(*result);
    log(scheduleText(mapped, *scheduled, nameOf(wanted.strategy)));
  };
  schedule();
  if (const int minimum = topUnit->row().minimumLatency; scheduled->schedule.latency() < minimum) {
    wanted.latency = minimum;
    schedule();
  }
  moveMasks(wanted);
}

// Where registers can do for nothing what tables do behind them. As that may save registers, other
// strategies leave it, so that none has fewer than the one with the fewest.
void CSynthSingleEntity::moveMasks(const schedule::ScheduleOptions& asked) {
  if (asked.strategy != schedule::Strategy::kFewestRegisters) return;
  const device::Device& device = *settings.device;
  auto moved = mapping::withEarlyMasks(mapped, scheduled->schedule.cycleByNode);
  if (!moved) return;
  auto better = schedule::cheaperThan(
      *scheduled, schedule::registerBitsOutsideBlocks(mapped, device, scheduled->schedule),
      moved->graph, device, {std::move(moved->cycleByNode), scheduled->schedule.cycleByOutput},
      asked);
  if (!better) return;
  mapped = std::move(moved->graph);
  scheduled = std::move(*better);
  log("masks moved before registers, which do them as clears\n");
  log(scheduleText(mapped, *scheduled, nameOf(asked.strategy)));
}

// Circuits are compared by their logic as it stands, which is quick and knows no chance; what is
// reported is what tools make of it.
void CSynthSingleEntity::countAsToolsMapIt() {
  scheduled->cost = device::Cover::costBetweenRegisters(
      mapped, *settings.device, scheduled->schedule.cycleByNode, scheduled->schedule.lateClears,
      device::Cover::Logic::kAsToolsMapIt);
}

// What has been built, of which nothing is left.
CSynthSingleEntity::Circuit CSynthSingleEntity::takeCircuit() {
  return {std::exchange(mapped, {}), std::exchange(scheduled, std::nullopt),
          std::exchange(budgets, {})};
}
void CSynthSingleEntity::putBack(Circuit circuit) {
  mapped = std::move(circuit.mapped);
  scheduled = std::move(circuit.scheduled);
  budgets = std::move(circuit.budgets);
}

// In the better form, where the unit has two. Which one that is shows without a latency that was
// asked for, which only one of them may reach.
void CSynthSingleEntity::buildUnit(functions::Request asked) {
  const functions::UnitRow& row = topUnit->row();
  const std::optional<int> latency = constrainedLatency(row.minimumLatency);
  if (!row.otherForm || hardFloat) return buildCircuit(asked, latency);
  buildCircuit(asked, std::nullopt);
  const long bits = registerBits();
  Circuit first = takeCircuit();
  const functions::Form form = std::exchange(asked.form, *row.otherForm);
  buildCircuit(asked, std::nullopt);
  if (schedule::isBetter(*scheduled, registerBits(), *first.scheduled, bits)) {
    log("the other form is the better one\n");
  } else {
    log("the first form is the better one\n");
    asked.form = form;
    putBack(std::move(first));
  }
  if (!latency) return;
  takeCircuit();
  buildCircuit(asked, latency);
}

// Units plan by estimates; where more than an ulp is allowed, a faithful circuit may still be the
// cheaper one, beyond what estimates miss.
void CSynthSingleEntity::buildCheapest(functions::Request asked) {
  constexpr double kClearlyLess = 0.95;
  buildUnit(asked);
  bool isLoose = false;
  for (functions::Accuracy& accuracy : asked.accuracy) {
    if (accuracy.kind != functions::Accuracy::kWithin || accuracy.ulps <= 1) continue;
    accuracy.ulps = 1;
    isLoose = true;
  }
  if (!isLoose || hardFloat || constrainedLatency(0) || topUnit->row().refuses(asked)) return;
  const auto price = [&] {
    const device::Cost& cost = scheduled->cost;
    return cost.luts + cost.dsps * asked.prices.lutPerDsp +
           (cost.ramBlocks > 0 ? cost.ramBlocks * asked.prices.lutPerMemory : 0);
  };
  const double priceOfLoose = price();
  Circuit loose = takeCircuit();
  buildUnit(asked);
  if (price() < kClearlyLess * priceOfLoose)
    return log("the faithful circuit is the cheaper one\n");
  log("the first circuit is the cheaper one\n");
  putBack(std::move(loose));
}

// The registers are the block's own; a longer latency that was asked for adds some behind them.
void CSynthSingleEntity::scheduleHardFloat() {
  const int wrappers = (wrapper & kWrapperIn ? 1 : 0) + (wrapper & kWrapperOut ? 1 : 0);
  if (const auto asked = constrainedLatency(hardFloat->latency + wrappers))
    hardFloat->latency = *asked - wrappers;
  scheduled.emplace();
  scheduled->period = settings.device->period();
  scheduled->longestStep = hardFloat->name;
  scheduled->schedule = hardFloatSchedule(mapped, hardFloat->latency, wrapper & kWrapperIn ? 1 : 0,
                                          wrapper & kWrapperOut ? 1 : 0);
}

// The block by itself, and the control signals that travel beside it.
void CSynthSingleEntity::buildHardFloat(functions::Request asked) {
  graph::Graph block, flow;
  graph::Builder inBlock(block), inFlow(flow);
  if (keepsState() && hasChannelValid) asked.valid = inBlock.input("valid", 1, true);
  if (hasChannelValid) {
    const graph::Signal valid = inFlow.input("xIn_v", 1, true);
    const graph::Signal channel = inFlow.input("xIn_c", 8, true);
    for (const CChannelUnit* side : channelOuts) {
      inFlow.output(side->name() + "_v", valid);
      inFlow.output(side->name() + "_c", channel);
    }
  }
  std::vector<graph::Signal> operands;
  for (const PortSpec& port : inputPorts)
    operands.push_back(inBlock.input(port.name, port.type.width()));
  const std::vector<graph::Signal> results = topUnit->row().decompose(inBlock, asked, operands);
  for (std::size_t k = 0; k < results.size(); ++k) inBlock.output(outputPorts[k].name, results[k]);
  const int in = wrapper & kWrapperIn ? 1 : 0, out = wrapper & kWrapperOut ? 1 : 0;
  const device::Device& device = *settings.device;
  for (const auto& [graph, part] : {std::pair{&block, &blockPart}, std::pair{&flow, &flowPart}}) {
    part->graph = mapping::mapGraph(*graph, device, mappingOptions(true));
    part->schedule = hardFloatSchedule(part->graph, hardFloat->latency, in, out);
  }
}

void CSynthSingleEntity::elaborate(const std::string&) {
  LOAM_ASSERT(topUnit != nullptr, "a model is elaborated after its top unit is known");
  request = requestFor(*topUnit);
  if (const auto reason = topUnit->row().refuses(request))
    util::exitWith({topUnit->word + ": " + *reason});
  if (const auto reason = sequenceRefused()) util::exitWith({topUnit->word + ": " + *reason});
  hardFloat = hardFloatFor(topUnit->row(), request, settings, *settings.device);
  if (hardFloat)
    for (functions::Accuracy& accuracy : request.accuracy)
      accuracy = {functions::Accuracy::kCorrect, 0.5};
  log("cmdGauge " + std::string(kVersion) + " " + shared->commandLine + "\n");
  log(requestText(topUnit->row(), request, *settings.device));
  functions::Request asked = request;
  asked.budgets = &budgets;
  buildCheapest(asked);
  if (!hardFloat) countAsToolsMapIt();
  if (scheduled->warning) loam_error_printf(*scheduled->warning);
  warnOfUnproven();
  if (shared->getOptionValue(synthOption::verbosity) > 0)
    std::printf("%s", longestStageText(*scheduled).c_str());
  const std::vector<int> latencies = outputLatencies();
  for (std::size_t side = 0; side < channelOuts.size(); ++side)
    channelOuts[side]->setStep(latencies[side]);
  for (const std::string& line : budgetLines()) log(line + "\n");
  log(resourcesText(GetResourceUsage()));
  writeLog();
}

// A correct rounding that is not proven says so: its budget is a little above a rounding's. 0 for
// any other result.
double CSynthSingleEntity::unprovenPromise() const {
  const bool asksCorrect = std::ranges::any_of(request.accuracy, [](const auto& accuracy) {
    return accuracy.kind == functions::Accuracy::kCorrect;
  });
  double promise = 0;
  for (const arithmetic::ErrorBudget& budget : budgets)
    if (const double halves = 2 * budget.promise(), above = halves - std::floor(halves);
        halves > 1 && above > 0 && above < 0x1p-10)
      promise = std::max(promise, budget.promise());
  return asksCorrect ? promise : 0;
}

void CSynthSingleEntity::warnOfUnproven() const {
  if (const double promise = unprovenPromise(); promise > 0)
    loam_error_printf(
        fmt::format("Warning: {}: correct rounding is not proven in this format; results are "
                    "within {:.7f} ulp",
                    topUnit->word, promise));
}

// One line for each budget that the circuit stated.
std::vector<std::string> CSynthSingleEntity::budgetLines() const {
  std::vector<std::string> lines;
  for (const arithmetic::ErrorBudget& budget : budgets) {
    std::string terms;
    for (const auto& term : budget.terms())
      terms += fmt::format("{}{} {}", terms.empty() ? "" : " + ", term.name, term.ulps());
    lines.push_back(fmt::format("Budget in ulp, {}: {} = {} of {}.", budget.name(), terms,
                                budget.sum(), budget.promise()));
  }
  return lines;
}

void CSynthSingleEntity::log(const std::string& text) {
  if (util::GetFeature(Features::REPORT_DEBUG_MESSAGES)) debugLog += text;
}

void CSynthSingleEntity::writeLog() const {
  const auto file = util::GetFeatureString("DebugMessagesFile");
  if (!debugLog.empty() && file) writeWholeFile(".", *file, debugLog, false);
}

bool CSynthSingleEntity::keepsState() const {
  return topUnit->row().protocol == functions::Protocol::kAccumulate;
}

// A reason why a unit with cycles of its own cannot stand in this entity.
std::optional<std::string> CSynthSingleEntity::sequenceRefused() const {
  if (topUnit->row().protocol != functions::Protocol::kSequence) return std::nullopt;
  if (wrapper != 0) return "its cycles are fixed, so that no wrapper can add any";
  if (constrainedLatency(0).value_or(0) != 0) return "its cycles are fixed by the opcode";
  return std::nullopt;
}

bool CSynthSingleEntity::splitsOutputs() const {
  return settings.getOptionValue(optionSplitOutputPorts) != 0;
}

// One for each output port.
std::vector<int> CSynthSingleEntity::outputLatencies() const {
  const std::vector<int>& cycles = scheduled->schedule.cycleByOutput;
  return {cycles.end() - static_cast<std::ptrdiff_t>(outputPorts.size()), cycles.end()};
}

int CSynthSingleEntity::inputToOutputLatency(bool, const char*) const {
  return scheduled ? scheduled->schedule.latency() : 0;
}

void CSynthSingleEntity::Reset() {
  if (!execution) execution = std::make_unique<software::Execution>(mapped, scheduled->schedule);
  execution->reset();
}

void CSynthSingleEntity::Execute() {
  if (!execution) Reset();
  std::vector<util::MPZ> patterns;
  if (hasChannelValid) {
    patterns.emplace_back(*channelIn->validFlag ? 1 : 0);
    patterns.push_back(util::MPZ(*channelIn->channelNumber).lowBits(8));
  }
  for (std::size_t k = 0; k < inputPorts.size(); ++k)
    patterns.push_back(util::MPZ(channelIn->portPatterns[k]).lowBits(inputPorts[k].type.width()));
  const std::vector<util::MPZ> answers = execution->step(patterns);
  const std::size_t control = hasChannelValid ? 2 * channelOuts.size() : 0;
  for (std::size_t place = 0; place < channelOuts.size(); ++place) {
    CChannelUnit* side = channelOuts[place];
    if (!side->portPatterns) continue;
    if (hasChannelValid) {
      *side->validFlag = static_cast<std::uint8_t>(answers[2 * place].toUint64());
      *side->channelNumber = static_cast<std::int32_t>(answers[2 * place + 1].toUint64());
    }
    for (std::size_t k = 0; k < outputPorts.size(); ++k)
      side->portPatterns[k] = answers[control + k].toUint64();
  }
}
