#include "backend/software/software_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "backend/software/identifiers.h"
#include "backend/software/wide_words.h"
#include "util/failure.h"

namespace software {

using graph::Graph;
using graph::Node;
using graph::NodeId;
using graph::Op;
using util::MPZ;

namespace {

constexpr int kWordBits = 64;

bool isWide(int width) { return width > kWordBits; }
std::size_t wordsOf(int width) { return (static_cast<std::size_t>(width) + 63) / 64; }

std::string typeOf(int width) {
  return isWide(width) ? fmt::format("std::array<std::uint64_t, {}>", wordsOf(width))
                       : "std::uint64_t";
}

// Of 64 bits, so that no arithmetic with it is narrower.
std::string wordText(const MPZ& value) {
  const std::uint64_t word = value.toUint64();
  return word < 10 ? fmt::format("{}ULL", word) : fmt::format("{:#x}ULL", word);
}

// The words of a value, the lowest first.
std::string wordList(const MPZ& value, int width) {
  std::string words;
  for (std::size_t i = 0; i < wordsOf(width); ++i)
    words += (i > 0 ? ", " : "") + wordText((value >> (i * kWordBits)).lowBits(kWordBits));
  return words;
}

std::string literalText(const MPZ& value, int width) {
  if (!isWide(width)) return wordText(value);
  return fmt::format("Wide<{}>{{{}}}", wordsOf(width), wordList(value, width));
}

// `expression`, of any bits above `width` rid.
std::string masked(const std::string& expression, int width) {
  if (width == kWordBits) return expression;
  const bool isAtom = expression.find(' ') == std::string::npos;
  return fmt::format("{} & {}", isAtom ? expression : fmt::format("({})", expression),
                     wordText(MPZ::allOnes(width)));
}

// Prints the statements of one graph, a variable for each node.
class ModelText {
 public:
  ModelText(const Graph& graph, std::string function);
  std::string body() const;  // of the function
  std::string stateStruct() const;
  const std::string& tables() const { return tableText; }
  bool usesWide() const { return wide; }
  bool usesParity() const { return parity; }

 private:
  int widthOf(NodeId id) const { return graph.node(id).width; }
  std::string value(NodeId id) const;  // of an operand
  // The same as words, whatever its width.
  std::string words(NodeId id) const {
    return isWide(widthOf(id)) ? value(id) : fmt::format("wide({})", value(id));
  }
  std::string variable(NodeId id) const;
  std::string narrow(const Node& node) const;
  std::string wideExpression(const Node& node) const;
  std::string statement(NodeId id) const;
  std::string concat(NodeId id) const;
  std::string pick(NodeId id) const;
  std::string heap(const Node& node) const;
  std::string index(NodeId id, std::size_t choices) const;
  bool hasWideOperand(const Node& node) const {
    return std::ranges::any_of(graph.operands(node),
                               [&](NodeId operand) { return isWide(widthOf(operand)); });
  }
  bool isTable(const Node& pick) const {
    const auto choices = graph.operands(pick).subspan(1);
    return std::ranges::all_of(
        choices, [&](NodeId choice) { return graph.node(choice).op == Op::kLiteral; });
  }
  static bool isRead(const Node& node) { return node.op == Op::kTable || node.op == Op::kMemory; }
  std::string table(const std::vector<MPZ>& rows, int width);
  void makeTables();

  const Graph& graph;
  std::string function;
  std::vector<std::string> inputNames, outputNames, stateNames;
  std::vector<char> live;
  std::map<std::string, std::string> tableByRows;
  std::map<std::uint32_t, std::string> tableOfNode;
  std::string tableText;
  bool wide = false, parity = false;
};

ModelText::ModelText(const Graph& graph, std::string function)
    : graph(graph),
      function(std::move(function)),
      inputNames(fieldNames(graph.inputs())),
      outputNames(fieldNames(graph.outputs())) {
  live.assign(graph.size(), 0);
  for (const graph::Port& port : graph.outputs()) live[port.signal.node.index] = 1;
  std::vector<graph::Port> fields;
  for (const graph::State& state : graph.states()) {
    live[state.next.index] = 1;
    const std::string_view name = graph.nameOf(state.node);
    fields.push_back({name.empty() ? fmt::format("state_{}", state.node.index) : std::string(name),
                      graph.signal(state.node)});
  }
  stateNames = fieldNames(fields);
  for (std::size_t i = graph.size(); i-- > 0;) {
    if (!live[i]) continue;
    const Node& node = graph.nodes()[i];
    wide |= isWide(node.width);
    parity |= node.op == Op::kReduceXor;
    for (const NodeId operand : graph.operands(node)) live[operand.index] = 1;
  }
  makeTables();
}

std::string ModelText::table(const std::vector<MPZ>& rows, int width) {
  std::string text;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string row = literalText(rows[i], width);
    text += i == 0 ? "" : i % (isWide(width) ? 1 : 8) == 0 ? ",\n    " : ", ";
    text += row;
  }
  const auto [found, isNew] = tableByRows.try_emplace(text);
  if (isNew) {
    found->second = fmt::format("table_{}", tableByRows.size());
    tableText +=
        fmt::format("constexpr {} {}[] = {{\n    {}}};\n", typeOf(width), found->second, text);
  }
  return found->second;
}

void ModelText::makeTables() {
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    if (!live[i]) continue;
    std::vector<MPZ> rows;
    if (node.op == Op::kLut) {
      for (unsigned long x = 0; x < 1ul << widthOf(graph.operands(node)[0]); ++x)
        rows.push_back((graph.literal(node) >> (x * static_cast<unsigned long>(node.width)))
                           .lowBits(static_cast<unsigned long>(node.width)));
    } else if (isRead(node)) {
      rows.assign(graph.rows(node).begin(), graph.rows(node).end());
    } else if (node.op == Op::kPick && isTable(node)) {
      for (const NodeId choice : graph.operands(node).subspan(1))
        rows.push_back(graph.literal(graph.node(choice)));
    }
    if (!rows.empty()) tableOfNode[i] = table(rows, node.width);
  }
}

std::string ModelText::variable(NodeId id) const {
  const std::string_view name = graph.nameOf(id);
  std::string base = identifier(name.empty() ? graph::traitsOf(graph.node(id).op).name : name);
  if (name.empty() && graph.node(id).op == Op::kInput) base = inputNames[graph.node(id).aux];
  return fmt::format("{}_{}", base, id.index);
}

std::string ModelText::value(NodeId id) const {
  const Node& node = graph.node(id);
  if (node.op == Op::kLiteral) return literalText(graph.literal(node), node.width);
  return variable(id);
}

// An index that never leaves `choices` rows.
std::string ModelText::index(NodeId id, std::size_t choices) const {
  if (isWide(widthOf(id))) {
    const std::string low = fmt::format("{}[0]", value(id));
    return fmt::format("{0} == wide<{1}>({{{2}}}) && {2} < {3}u ? {2} : {3}u", value(id),
                       wordsOf(widthOf(id)), low, choices - 1);
  }
  const bool fits = widthOf(id) < 32 && choices >= std::size_t{1} << widthOf(id);
  return fits ? value(id) : fmt::format("{0} < {1}u ? {0} : {1}u", value(id), choices - 1);
}

std::string ModelText::pick(NodeId id) const {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  const auto choices = operands.subspan(1);
  const std::string chosen = index(operands[0], choices.size());
  if (isTable(node))
    return fmt::format("  const {} {} = {}[{}];\n", typeOf(node.width), variable(id),
                       tableOfNode.at(id.index), chosen);
  std::string text =
      fmt::format("  {} {};\n  switch ({}) {{\n", typeOf(node.width), variable(id), chosen);
  for (std::size_t i = 0; i + 1 < choices.size(); ++i)
    text += fmt::format("    case {}: {} = {}; break;\n", i, variable(id), value(choices[i]));
  return text +
         fmt::format("    default: {} = {}; break;\n  }}\n", variable(id), value(choices.back()));
}

std::string ModelText::concat(NodeId id) const {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  std::string text = fmt::format("  {} {}{{}};\n", typeOf(node.width), variable(id));
  const auto place = [&](NodeId part, int low) {
    if (graph.node(part).op == Op::kLiteral && graph.literal(graph.node(part)).isZero()) return;
    text += fmt::format("  place({}, {}, {});\n", variable(id), words(part), low);
  };
  if (node.op == Op::kReplicate) {
    for (int low = 0; low < node.width; low += widthOf(operands[0])) place(operands[0], low);
    return text;
  }
  int low = node.width;
  for (const NodeId part : operands) place(part, low -= widthOf(part));
  return text;
}

std::string ModelText::heap(const Node& node) const {
  const auto operands = graph.operands(node);
  const auto shifts = graph.shifts(node);
  std::string sum;
  for (std::size_t i = 0; i < operands.size(); ++i) {
    if (isWide(node.width)) {
      const std::string term =
          fmt::format("shifted<{}>({}, {})", wordsOf(node.width), words(operands[i]), shifts[i]);
      sum = i == 0 ? term : fmt::format("add({}, {}, 0, {})", sum, term, node.width);
    } else {
      sum += fmt::format("{}({} << {})", i > 0 ? " + " : "", value(operands[i]), shifts[i]);
    }
  }
  return isWide(node.width) ? sum : masked(sum, node.width);
}

// Operations on values that all fit into one word.
std::string ModelText::narrow(const Node& node) const {
  const auto operands = graph.operands(node);
  const auto joined = [&](const char* between) {
    std::string text = value(operands[0]);
    for (std::size_t i = 1; i < operands.size(); ++i)
      text += fmt::format(" {} {}", between, value(operands[i]));
    return text;
  };
  // The sign bit, which a signed comparison turns over.
  const auto signOf = [&](NodeId id) {
    return wordText(MPZ::powerOfTwo(static_cast<unsigned long>(widthOf(id) - 1)));
  };
  switch (node.op) {
    case Op::kInput:
      return masked(fmt::format("in.{}", inputNames[node.aux]), node.width);
    case Op::kState:
      return masked(fmt::format("state.{}", stateNames[node.aux]), node.width);
    case Op::kSlice:
      return masked(node.aux == 0 ? value(operands[0])
                                  : fmt::format("{} >> {}", value(operands[0]), node.aux),
                    node.width);
    case Op::kConcat: {
      std::string text;
      int low = node.width;
      for (const NodeId part : operands) {
        low -= widthOf(part);
        text += fmt::format("{}({} << {})", text.empty() ? "" : " | ", value(part), low);
      }
      return text;
    }
    case Op::kReplicate: {
      MPZ pattern;
      for (int low = 0; low < node.width; low += widthOf(operands[0]))
        pattern += MPZ::powerOfTwo(static_cast<unsigned long>(low));
      return fmt::format("{} * {}", value(operands[0]), wordText(pattern));
    }
    case Op::kNot:
      return masked(fmt::format("~{}", value(operands[0])), node.width);
    case Op::kAnd:
      return joined("&");
    case Op::kOr:
      return joined("|");
    case Op::kXor:
      return joined("^");
    case Op::kReduceAnd:
      return fmt::format("{} == {}", value(operands[0]),
                         wordText(MPZ::allOnes(static_cast<unsigned long>(widthOf(operands[0])))));
    case Op::kReduceOr:
      return fmt::format("{} != 0", value(operands[0]));
    case Op::kReduceXor:
      return fmt::format("parity({})", value(operands[0]));
    case Op::kAdd:
      return masked(joined("+"), node.width);
    case Op::kEqual:
      return joined("==");
    case Op::kLess:
      return joined("<");
    case Op::kLessSigned:
      return fmt::format("({} ^ {}) < ({} ^ {})", value(operands[0]), signOf(operands[0]),
                         value(operands[1]), signOf(operands[1]));
    case Op::kMultiply:
      return joined("*");
    case Op::kMultiplySigned: {
      // x - 2 * (x & sign) is the signed number modulo 2^64.
      const auto extended = [&](NodeId id) {
        return fmt::format("({0} - 2 * ({0} & {1}))", value(id), signOf(id));
      };
      return masked(fmt::format("{} * {}", extended(operands[0]), extended(operands[1])),
                    node.width);
    }
    case Op::kHeap:
      return heap(node);
    case Op::kLiteral:
    case Op::kSelect:
    case Op::kPick:
    case Op::kLut:
    case Op::kTable:
    case Op::kMemory:
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "an operation on single words");
}

// Operations with a wide operand or result; a narrow result is the lowest word.
std::string ModelText::wideExpression(const Node& node) const {
  const auto operands = graph.operands(node);
  const std::size_t count = wordsOf(node.width);
  const auto call = [&](const char* helper) {
    return fmt::format("{}({}, {})", helper, words(operands[0]), words(operands[1]));
  };
  switch (node.op) {
    case Op::kInput:
      return fmt::format("cut(in.{}, {})", inputNames[node.aux], node.width);
    case Op::kState:
      return fmt::format("cut(state.{}, {})", stateNames[node.aux], node.width);
    case Op::kSlice:
      return fmt::format("slice<{}>({}, {}, {})", count, words(operands[0]), node.aux, node.width);
    case Op::kNot:
      return fmt::format("bitNot({}, {})", value(operands[0]), node.width);
    case Op::kAnd:
      return call("bitAnd");
    case Op::kOr:
      return call("bitOr");
    case Op::kXor:
      return call("bitXor");
    case Op::kReduceAnd:
      return fmt::format("{} == {}", value(operands[0]),
                         literalText(MPZ::allOnes(static_cast<unsigned long>(widthOf(operands[0]))),
                                     widthOf(operands[0])));
    case Op::kReduceOr:
      return fmt::format("{} != Wide<{}>{{}}", value(operands[0]), wordsOf(widthOf(operands[0])));
    case Op::kReduceXor:
      return fmt::format("parity(foldedXor({}))", value(operands[0]));
    case Op::kAdd: {
      const std::string carry = value(operands[operands.size() - 1]);
      std::string sum = fmt::format("add({}, {}, {}, {})", value(operands[0]), value(operands[1]),
                                    carry, node.width);
      if (operands.size() == 4)
        sum = fmt::format("add({}, {}, 0, {})", sum, value(operands[2]), node.width);
      return sum;
    }
    case Op::kEqual:
      return fmt::format("{} == {}", value(operands[0]), value(operands[1]));
    case Op::kLess:
      return call("less");
    case Op::kLessSigned:
      return fmt::format("lessSigned({}, {}, {})", value(operands[0]), value(operands[1]),
                         widthOf(operands[0]));
    case Op::kMultiply:
      return fmt::format("multiply<{}>({}, {})", count, words(operands[0]), words(operands[1]));
    case Op::kMultiplySigned: {
      const auto extended = [&](NodeId id) {
        return fmt::format("signExtended<{}>({}, {})", count, words(id), widthOf(id));
      };
      return fmt::format("cut(multiply<{}>({}, {}), {})", count, extended(operands[0]),
                         extended(operands[1]), node.width);
    }
    case Op::kHeap:
      return heap(node);
    case Op::kLiteral:
    case Op::kConcat:
    case Op::kReplicate:
    case Op::kSelect:
    case Op::kPick:
    case Op::kLut:
    case Op::kTable:
    case Op::kMemory:
    case Op::kCount:
      break;
  }
  LOAM_ASSERT(false, "an operation on several words");
}

std::string ModelText::statement(NodeId id) const {
  const Node& node = graph.node(id);
  const auto operands = graph.operands(node);
  std::string text;
  if (node.op == Op::kPick) return pick(id);
  if (isWide(node.width) && (node.op == Op::kConcat || node.op == Op::kReplicate))
    return concat(id);
  if (node.op == Op::kSelect) {
    text = fmt::format("{} ? {} : {}", value(operands[0]), value(operands[1]), value(operands[2]));
  } else if (node.op == Op::kLut || isRead(node)) {
    text = fmt::format("{}[{}]", tableOfNode.at(id.index), value(operands[0]));
  } else if (isWide(node.width)) {
    text = wideExpression(node);
  } else if (hasWideOperand(node)) {
    text = wideExpression(node);
    if (node.op == Op::kSlice) text += "[0]";
  } else {
    text = narrow(node);
  }
  const std::string start = fmt::format("  const {} {} =", typeOf(node.width), variable(id));
  const bool fits = start.size() + text.size() + 2 <= 100;
  return fmt::format("{}{}{};\n", start, fits ? " " : "\n      ", text);
}

std::string ModelText::body() const {
  std::string text;
  std::uint32_t scope = 0;
  for (std::uint32_t i = 0; i < graph.size(); ++i) {
    const Node& node = graph.nodes()[i];
    if (!live[i] || node.op == Op::kLiteral) continue;
    if (node.scope != scope) {
      scope = node.scope;
      text += fmt::format("  // {}\n", graph.scopes()[scope].name);
    }
    text += statement({i});
  }
  // All states have been read by now.
  for (std::size_t i = 0; i < stateNames.size(); ++i)
    text += fmt::format("  state.{} = {};\n", stateNames[i], value(graph.states()[i].next));
  text += fmt::format("  {}_outputs out;\n", function);
  for (std::size_t i = 0; i < graph.outputs().size(); ++i)
    text += fmt::format("  out.{} = {};\n", outputNames[i], value(graph.outputs()[i].signal.node));
  return text + "  return out;\n";
}

std::string widthComment(int width) {
  return fmt::format("// {} bit{}\n", width, width == 1 ? "" : "s");
}

std::string ModelText::stateStruct() const {
  std::string text = fmt::format("struct {}_state {{\n", function);
  for (std::size_t i = 0; i < stateNames.size(); ++i) {
    const graph::State& state = graph.states()[i];
    const int width = widthOf(state.node);
    text += fmt::format("  {} {}{{{}}};  {}", typeOf(width), stateNames[i],
                        state.initial.isZero() ? "" : wordList(state.initial, width),
                        widthComment(width));
  }
  return text + "};\n\n";
}

std::string structText(const std::string& name, const std::vector<graph::Port>& ports) {
  const std::vector<std::string> names = fieldNames(ports);
  std::string text = fmt::format("struct {} {{\n", name);
  for (std::size_t i = 0; i < ports.size(); ++i)
    text += fmt::format("  {} {}{{}};  {}", typeOf(ports[i].signal.width), names[i],
                        widthComment(ports[i].signal.width));
  return text + "};\n\n";
}

std::string commentText(const std::vector<std::string>& lines) {
  std::string text;
  for (std::string line : lines) {
    std::ranges::replace_if(
        line, [](char letter) { return letter == '\n' || letter == '\r'; }, ' ');
    while (line.ends_with('\\')) line.pop_back();
    text += line.empty() ? "//\n" : fmt::format("// {}\n", line);
  }
  return text + "\n";
}

constexpr std::string_view kParity = R"(// The exclusive or of all bits.
constexpr std::uint64_t parity(std::uint64_t x) {
  for (int distance = 32; distance > 0; distance /= 2) x ^= x >> distance;
  return x & 1;
}

)";

}  // namespace

SoftwareModel softwareModel(const Graph& graph, const std::string& name, int latency,
                            const std::vector<std::string>& headerComment) {
  const std::string function = freeIdentifier(name);
  const ModelText model(graph, function);
  const bool hasStates = !graph.states().empty();
  const std::string comment = commentText(headerComment);
  SoftwareModel text;
  text.header =
      comment + "#pragma once\n\n#include <array>\n#include <cstdint>\n\n" +
      "// A port of up to 64 bits is one number, a wider one words of 64 bits, the "
      "lowest first. Bits "
      "above a\n// port's width are ignored on inputs and zero on outputs.\n" +
      structText(function + "_inputs", graph.inputs()) +
      structText(function + "_outputs", graph.outputs()) +
      (hasStates ? "// What the unit remembers, at first as after a reset.\n" + model.stateStruct()
                 : "") +
      fmt::format(
          "// Cycles from inputs to outputs in the unit.\n"
          "inline constexpr int {0}_latency = {1};\n\n"
          "// What the unit answers to these inputs, bit by bit{2}.\n"
          "{0}_outputs {0}(const {0}_inputs& in{3});\n",
          function, latency, hasStates ? "; advances the state by one iteration" : "",
          hasStates ? fmt::format(", {}_state& state", function) : "");
  text.source = comment + fmt::format("#include \"{}_model.h\"\n\n#include <cstddef>\n\n", name);
  text.source += "namespace {\n\n";
  if (model.usesWide()) text.source += kWideWords;
  if (model.usesParity()) text.source += kParity;
  if (!model.tables().empty()) text.source += model.tables() + "\n";
  text.source += "}  // namespace\n\n";
  const char* input = graph.inputs().empty() ? "" : " in";
  text.source +=
      fmt::format("{0}_outputs {0}(const {0}_inputs&{1}{2}) {{\n{3}}}\n", function, input,
                  hasStates ? fmt::format(", {}_state& state", function) : "", model.body());
  return text;
}

}  // namespace software
