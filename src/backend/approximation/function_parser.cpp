#include <cctype>

#include "backend/approximation/function.h"

namespace approximation {

namespace {

using Kind = Function::Kind;
using Node = Function::Node;

constexpr unsigned long kHighestPower = 64;

// Recursive descent: choices of sums of products of signed powers. The first mistake ends it.
class Parser {
 public:
  explicit Parser(const std::string& text) : text(text) {}

  util::Result<std::vector<Node>> parse() {
    choice();
    skipSpace();
    if (!failed && at < text.size()) fail("an operator");
    if (failed)
      return util::Failure{"\"" + text + "\": " + wanted + " expected at position " +
                           std::to_string(failedAt + 1)};
    return std::move(nodes);
  }

 private:
  int make(Node node) {
    nodes.push_back(std::move(node));
    return static_cast<int>(nodes.size()) - 1;
  }
  int make(Kind kind, int left, int right = -1) {
    return make(Node{.kind = kind, .left = left, .right = right});
  }
  int number(long value) { return make(Node{.kind = Kind::kNumber, .number = value}); }
  int fail(const std::string& what) {
    if (!failed) failed = true, wanted = what, failedAt = at;
    at = text.size();
    return make(Kind::kVariable, -1);
  }
  void skipSpace() {
    while (at < text.size() && text[at] == ' ') ++at;
  }
  bool accept(char c) {
    skipSpace();
    if (at >= text.size() || text[at] != c) return false;
    ++at;
    return true;
  }

  void choice() {
    const int first = sum();
    if (!accept('<')) return;
    if (nodes[static_cast<std::size_t>(first)].kind != Kind::kVariable) fail("x before \"<\"");
    skipSpace();
    const Node border = nodes[static_cast<std::size_t>(literal())];
    if (!accept('?')) fail("\"?\"");
    const int below = sum();
    if (!accept(':')) fail("\":\"");
    const int above = sum();
    make(Node{.kind = Kind::kChoice,
              .left = below,
              .right = above,
              .number = border.number,
              .digits = border.digits});
  }
  int sum() {
    int left = product();
    while (true) {
      if (accept('+'))
        left = binary(Kind::kAdd, left, product());
      else if (accept('-'))
        left = binary(Kind::kSubtract, left, product());
      else
        return left;
    }
  }
  int product() {
    int left = factor();
    while (true) {
      if (accept('*'))
        left = binary(Kind::kMultiply, left, factor());
      else if (accept('/'))
        left = binary(Kind::kDivide, left, factor());
      else
        return left;
    }
  }
  int binary(Kind kind, int left, int right) { return make(kind, left, right); }
  int factor() {
    if (accept('-')) return make(Kind::kNegate, factor());
    if (accept('+')) return factor();
    const int base = atom();
    if (!accept('^')) return base;
    const int exponent = factor();
    const Node& power = nodes[static_cast<std::size_t>(exponent)];
    if (power.kind == Kind::kNumber && power.digits == 0 && power.number <= kHighestPower)
      return make(Node{.kind = Kind::kPower, .left = base, .number = power.number});
    return make(Kind::kExp, make(Kind::kMultiply, exponent, make(Kind::kLog, base)));
  }
  int atom() {
    skipSpace();
    if (accept('(')) {
      const int inner = sum();
      return accept(')') ? inner : fail("\")\"");
    }
    if (at < text.size() && (std::isdigit(text[at]) || text[at] == '.')) return literal();
    std::string name;
    while (at < text.size() && std::isalnum(text[at])) name += text[at++];
    if (name == "x") return make(Kind::kVariable, -1);
    if (name == "pi") return make(Kind::kPi, -1);
    if (name.empty() || !accept('(')) return fail("a number, x, pi, a function or \"(\"");
    const int argument = sum();
    if (!accept(')')) return fail("\")\"");
    return call(name, argument);
  }
  int literal() {
    std::string digits;
    int behindPoint = 0;
    bool point = false;
    for (; at < text.size() && (std::isdigit(text[at]) || (text[at] == '.' && !point)); ++at) {
      if (text[at] == '.') {
        point = true;
        continue;
      }
      digits += text[at];
      if (point) ++behindPoint;
    }
    const auto value = util::MPZ::fromText(digits, 10);
    if (!value) return fail("a digit");
    return make(Node{.kind = Kind::kNumber, .number = *value, .digits = behindPoint});
  }

  int call(const std::string& name, int u) {
    constexpr struct {
      const char* name;
      Kind kind;
    } kPlain[] = {{"exp", Kind::kExp},   {"log", Kind::kLog},    {"sqrt", Kind::kSqrt},
                  {"sin", Kind::kSin},   {"cos", Kind::kCos},    {"asin", Kind::kAsin},
                  {"atan", Kind::kAtan}, {"floor", Kind::kFloor}};
    for (const auto& row : kPlain)
      if (name == row.name) return make(row.kind, u);
    if (name == "log2" || name == "log10")
      return make(Kind::kDivide, make(Kind::kLog, u),
                  make(Kind::kLog, number(name == "log2" ? 2 : 10)));
    if (name == "log1p") return make(Kind::kLog, make(Kind::kAdd, number(1), u));
    if (name == "expm1") return make(Kind::kSubtract, make(Kind::kExp, u), number(1));
    if (name == "tan") return make(Kind::kDivide, make(Kind::kSin, u), make(Kind::kCos, u));
    if (name == "acos")
      return make(Kind::kSubtract, make(Kind::kDivide, make(Kind::kPi, -1), number(2)),
                  make(Kind::kAsin, u));
    if (name == "sinh" || name == "cosh") return halfSum(u, name == "cosh");
    if (name == "tanh") {  // 1 - 2 / (e^2u + 1)
      const int square = make(Kind::kExp, make(Kind::kMultiply, number(2), u));
      const int divisor = make(Kind::kAdd, square, number(1));
      return make(Kind::kSubtract, number(1), make(Kind::kDivide, number(2), divisor));
    }
    return fail("a known function instead of \"" + name + "\"");
  }
  // (e^u + e^-u) / 2, or their difference.
  int halfSum(int u, bool plus) {
    const int grows = make(Kind::kExp, u), falls = make(Kind::kExp, make(Kind::kNegate, u));
    const int both = make(plus ? Kind::kAdd : Kind::kSubtract, grows, falls);
    return make(Kind::kDivide, both, number(2));
  }

  const std::string& text;
  std::size_t at = 0, failedAt = 0;
  bool failed = false;
  std::string wanted;
  std::vector<Node> nodes;
};

}  // namespace

util::Result<Function> Function::parse(const std::string& text) {
  util::Result<std::vector<Node>> parsed = Parser(text).parse();
  if (!parsed) return parsed.failure();
  Function function;
  function.source = text;
  function.nodes = std::move(*parsed);
  return function;
}

}  // namespace approximation
