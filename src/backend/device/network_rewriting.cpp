#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <span>
#include <unordered_map>

#include "backend/device/gate_network.h"
#include "backend/device/small_functions.h"

namespace device {

namespace {

constexpr int kMostLeaves = 4;
constexpr std::size_t kMostCuts = 8;

struct Cut {
  std::array<std::uint32_t, kMostLeaves> leaves{};
  int count = 0;
  Function function = 0;
  std::span<const std::uint32_t> all() const {
    return std::span(leaves).first(static_cast<std::size_t>(count));
  }
};

// The function of a cut over the leaves of a larger one.
Function stretched(const Cut& cut, const Cut& over) {
  std::array<int, kMostLeaves> place{};
  bool isSame = true;
  for (int i = 0, k = 0; i < cut.count; ++i) {
    while (over.leaves[static_cast<std::size_t>(k)] != cut.leaves[static_cast<std::size_t>(i)]) ++k;
    place[static_cast<std::size_t>(i)] = k;
    isSame = isSame && k == i;
  }
  if (isSame) return cut.function;
  Function f = 0;
  for (unsigned row = 0; row < 16; ++row) {
    unsigned from = 0;
    for (int i = 0; i < cut.count; ++i)
      from |= (row >> place[static_cast<std::size_t>(i)] & 1) << i;
    f |= static_cast<Function>((cut.function >> from & 1) << row);
  }
  return f;
}

// One walk over a network in which gates are replaced by others, a gate's readers seeing what it
// became. Gates that nothing reads any more are dead.
class Rewriter {
 public:
  Rewriter(const GateNetwork& from, SmallFunctions& functions, bool takesEqual)
      : functions(functions), takesEqual(takesEqual), from(from) {
    for (const GateNetwork::Gate& gate : from.gates()) append(gate);
    for (const Literal root : from.roots()) ++readers[gateOf(root)];
    for (std::size_t i = gates.size(); i-- > 0;) {
      if (gates[i].isInput) continue;
      isDead[i] = readers[i] == 0;
      if (isDead[i]) continue;
      made.emplace(key(gates[i].a, gates[i].b), i);
      for (const Literal x : {gates[i].a, gates[i].b}) ++readers[gateOf(x)];
    }
    latest.assign(gates.size(), *std::ranges::max_element(level));
    for (std::size_t i = gates.size(); i-- > 0;) {
      if (gates[i].isInput || isDead[i]) continue;
      for (const Literal x : {gates[i].a, gates[i].b})
        latest[gateOf(x)] = std::min(latest[gateOf(x)], latest[i] - 1);
    }
  }

  GateNetwork run() && {
    const auto count = static_cast<std::uint32_t>(gates.size());
    for (std::uint32_t i = 1; i < count; ++i)
      if (gates[i].isInput)
        addItself(i);
      else if (!isDead[i])
        visit(i);
    return rebuilt();
  }

 private:
  static std::uint64_t key(Literal a, Literal b) {
    return std::uint64_t{std::min(a, b)} << 32 | std::max(a, b);
  }
  void append(const GateNetwork::Gate& gate) {
    became.push_back(static_cast<Literal>(2 * gates.size()));
    gates.push_back(gate);
    level.push_back(gate.isInput ? 0 : levelOf(gate.a, gate.b));
    readers.push_back(0);
    isDead.push_back(false);
    cuts.emplace_back();
  }
  int levelOf(Literal a, Literal b) const {
    return std::max(level[gateOf(a)], level[gateOf(b)]) + 1;
  }
  void addItself(std::uint32_t gate) {
    Cut own;
    own.leaves[0] = gate;
    own.count = 1;
    own.function = kInputFunctions[0];
    cuts[gate].push_back(own);
  }

  Literal seen(Literal x) {
    while (became[gateOf(x)] != (x & ~Literal{1})) x = became[gateOf(x)] ^ (x & 1);
    return x;
  }

  // What two operands come to without a new gate.
  std::optional<Literal> known(Literal a, Literal b) const {
    if (a == kFalse || b == kFalse || a == inverse(b)) return kFalse;
    if (a == kTrue || a == b) return b;
    if (b == kTrue) return a;
    const auto found = made.find(key(a, b));
    if (found == made.end()) return std::nullopt;
    return static_cast<Literal>(2 * found->second);
  }

  void visit(std::uint32_t gate) {
    GateNetwork::Gate& own = gates[gate];
    const Literal a = seen(own.a), b = seen(own.b);
    if (a != own.a || b != own.b) {
      forget(gate);
      if (const auto same = known(a, b)) return replace(gate, *same);
      own.a = a, own.b = b;
      made.emplace(key(a, b), gate);
    }
    level[gate] = levelOf(a, b);
    findCuts(gate);
    improve(gate);
  }

  void forget(std::uint32_t gate) {
    const auto found = made.find(key(gates[gate].a, gates[gate].b));
    if (found != made.end() && found->second == gate) made.erase(found);
  }
  void replace(std::uint32_t gate, Literal by) {
    readers[gateOf(by)] += readers[gate];
    became[gate] = by;
    die(gate);
  }
  void die(std::uint32_t gate) {
    isDead[gate] = true;
    forget(gate);
    for (const Literal x : {gates[gate].a, gates[gate].b}) {
      const std::uint32_t operand = gateOf(seen(x));
      if (--readers[operand] == 0 && !gates[operand].isInput) die(operand);
    }
  }

  // Small cuts first, then those of leaves that others read.
  void findCuts(std::uint32_t gate) {
    std::vector<Cut> found;
    const Literal a = gates[gate].a, b = gates[gate].b;
    const auto isAlive = [&](const Cut& cut) {
      return std::ranges::none_of(cut.all(), [&](std::uint32_t leaf) { return isDead[leaf]; });
    };
    for (const Cut& x : cuts[gateOf(a)]) {
      if (!isAlive(x)) continue;
      for (const Cut& y : cuts[gateOf(b)]) {
        if (!isAlive(y)) continue;
        std::array<std::uint32_t, 2 * kMostLeaves> both{};
        const auto end = std::ranges::set_union(x.all(), y.all(), both.begin()).out;
        Cut cut;
        cut.count = static_cast<int>(end - both.begin());
        if (cut.count > kMostLeaves) continue;
        std::copy(both.begin(), end, cut.leaves.begin());
        const auto holds = [&](const Cut& larger, const Cut& smaller) {
          return std::ranges::includes(larger.all(), smaller.all());
        };
        if (std::ranges::any_of(found, [&](const Cut& other) { return holds(cut, other); }))
          continue;
        std::erase_if(found, [&](const Cut& other) { return holds(other, cut); });
        const Function ofA = stretched(x, cut), ofB = stretched(y, cut);
        cut.function = static_cast<Function>((a % 2 == 0 ? ofA : ~ofA) & (b % 2 == 0 ? ofB : ~ofB));
        found.push_back(cut);
      }
    }
    const auto shared = [&](const Cut& cut) {
      return std::ranges::count_if(cut.all(),
                                   [&](std::uint32_t leaf) { return readers[leaf] > 1; });
    };
    std::ranges::stable_sort(found, [&](const Cut& x, const Cut& y) {
      return x.count != y.count ? x.count < y.count : shared(x) > shared(y);
    });
    if (found.size() > kMostCuts) found.resize(kMostCuts);
    cuts[gate] = std::move(found);
    addItself(gate);
  }

  // Replaces the gate by the formula of one of its cuts that saves most gates, those counted that
  // no one else reads.
  void improve(std::uint32_t gate) {
    int most = takesEqual ? -1 : 0;
    const Cut* best = nullptr;
    const Formula* chosen = nullptr;
    for (const Cut& cut : cuts[gate]) {
      if (cut.count == 1 && cut.leaves[0] == gate) continue;
      if (cut.function == 0 || cut.function == 0xffff)
        return replace(gate, cut.function == 0 ? kFalse : kTrue);
      for (const std::uint32_t leaf : cut.all()) ++readers[leaf];
      const int saved = giveBack(gate);
      for (const Formula& formula : functions.formulasOf(cut.function)) {
        const int added = newGates(cut, formula, saved - most - 1);
        if (saved - added <= most || levelOf(cut, formula) > latest[gate]) continue;
        if (const auto same = present(cut, formula); same && gateOf(*same) == gate) continue;
        most = saved - added;
        best = &cut;
        chosen = &formula;
      }
      take(gate);
      for (const std::uint32_t leaf : cut.all()) --readers[leaf];
    }
    if (chosen) {
      const Cut cut = *best;
      const Literal result = build(cut, *chosen);
      if (gateOf(result) != gate) replace(gate, result);
    }
  }

  int giveBack(std::uint32_t gate) {
    int count = 1;
    for (const Literal x : {gates[gate].a, gates[gate].b}) {
      const std::uint32_t operand = gateOf(seen(x));
      if (--readers[operand] == 0 && !gates[operand].isInput) count += giveBack(operand);
    }
    return count;
  }
  void take(std::uint32_t gate) {
    for (const Literal x : {gates[gate].a, gates[gate].b}) {
      const std::uint32_t operand = gateOf(seen(x));
      if (readers[operand]++ == 0 && !gates[operand].isInput) take(operand);
    }
  }

  // The literals of a formula's inputs and gates, as far as they are there; calls `absent` with the
  // operands of each that is not, for its literal.
  template <typename Absent>
  std::optional<Literal> evaluated(const Cut& cut, const Formula& formula, const Absent& absent) {
    values.clear();
    for (const std::uint32_t leaf : cut.leaves) values.push_back(static_cast<Literal>(2 * leaf));
    const auto value = [&](std::uint8_t x) -> std::optional<Literal> {
      const auto& own = values[x / 2];
      if (!own) return own;
      return *own ^ (x & 1);
    };
    for (const auto& [x, y] : formula.gates) {
      const auto a = value(x), b = value(y);
      std::optional<Literal> result;
      if (a && b) result = known(*a, *b);
      if (!absent(a, b, result)) return std::nullopt;
      values.push_back(result);
    }
    return value(formula.result);
  }
  // How many gates a formula adds; more than `most` when it is more.
  int newGates(const Cut& cut, const Formula& formula, int most) {
    int added = 0;
    evaluated(cut, formula, [&](const auto&, const auto&, std::optional<Literal>& result) {
      const bool isThere =
          result && (gates[gateOf(*result)].isInput || readers[gateOf(*result)] > 0);
      added += isThere ? 0 : 1;
      return added <= most;
    });
    return added;
  }
  // The level that a formula's result would have.
  int levelOf(const Cut& cut, const Formula& formula) {
    levels.clear();
    for (const std::uint32_t leaf : cut.leaves) levels.push_back(level[leaf]);
    evaluated(cut, formula, [&](const auto&, const auto&, const std::optional<Literal>& result) {
      const auto& [x, y] = formula.gates[levels.size() - kMostLeaves];
      levels.push_back(result ? level[gateOf(*result)]
                              : std::max(levels[x / 2], levels[y / 2]) + 1);
      return true;
    });
    return levels[formula.result / 2];
  }
  std::optional<Literal> present(const Cut& cut, const Formula& formula) {
    return evaluated(cut, formula, [](const auto&, const auto&, const auto&) { return true; });
  }
  Literal build(const Cut& cut, const Formula& formula) {
    return *evaluated(cut, formula,
                      [&](const auto& a, const auto& b, std::optional<Literal>& result) {
                        if (result) return true;
                        const auto index = static_cast<std::uint32_t>(gates.size());
                        append({*a, *b, false});
                        made.emplace(key(*a, *b), index);
                        for (const Literal x : {*a, *b}) ++readers[gateOf(x)];
                        findCuts(index);
                        result = static_cast<Literal>(2 * index);
                        return true;
                      });
  }

  GateNetwork rebuilt() {
    GateNetwork to;
    std::vector<std::optional<Literal>> built(gates.size());
    built[0] = kFalse;
    for (std::uint32_t i = 1; i < gates.size(); ++i)
      if (gates[i].isInput) built[i] = to.input();
    std::vector<std::uint32_t> todo;
    for (const Literal root : from.roots()) {
      const Literal top = seen(root);
      todo.push_back(gateOf(top));
      while (!todo.empty()) {
        const std::uint32_t gate = todo.back();
        if (built[gate]) {
          todo.pop_back();
          continue;
        }
        const Literal a = seen(gates[gate].a), b = seen(gates[gate].b);
        const auto &x = built[gateOf(a)], &y = built[gateOf(b)];
        if (x && y) {
          built[gate] = to.both(*x ^ (a & 1), *y ^ (b & 1));
          todo.pop_back();
        }
        if (!x) todo.push_back(gateOf(a));
        if (!y) todo.push_back(gateOf(b));
      }
      to.addRoot(*built[gateOf(top)] ^ (top & 1));
    }
    return to;
  }

  SmallFunctions& functions;
  const bool takesEqual;
  const GateNetwork& from;
  std::vector<GateNetwork::Gate> gates;
  std::vector<Literal> became;  // itself where it stands
  std::vector<int> readers;
  std::vector<int> level;   // gates on the longest way from an input
  std::vector<int> latest;  // the level at which the longest way of all gets no longer
  std::vector<int> levels;  // in the formula that levelOf() looks at
  std::vector<bool> isDead;
  std::vector<std::vector<Cut>> cuts;
  std::unordered_map<std::uint64_t, std::uint32_t> made;
  std::vector<std::optional<Literal>> values;
};

// Conjunctions, as far as nothing else reads their parts, joined from what is there first.
GateNetwork balanced(const GateNetwork& from) {
  const auto& gates = from.gates();
  std::vector<int> readers(gates.size());
  std::vector<bool> isWhole(gates.size());  // more than a part of one conjunction
  for (std::size_t i = 0; i < gates.size(); ++i) {
    if (gates[i].isInput) continue;
    for (const Literal x : {gates[i].a, gates[i].b}) {
      ++readers[gateOf(x)];
      if (x % 2 != 0) isWhole[gateOf(x)] = true;
    }
  }
  for (const Literal root : from.roots()) isWhole[gateOf(root)] = true;

  GateNetwork to;
  std::vector<Literal> built(gates.size(), kFalse);
  std::vector<int> depth(1);
  const auto depthOf = [&](Literal x) { return depth[gateOf(x)]; };
  const auto both = [&](Literal a, Literal b) {
    const Literal result = to.both(a, b);
    while (depth.size() < to.gates().size()) {
      const GateNetwork::Gate& gate = to.gates()[depth.size()];
      depth.push_back(std::max(depthOf(gate.a), depthOf(gate.b)) + 1);
    }
    return result;
  };
  std::vector<Literal> parts, todo;
  for (std::uint32_t i = 1; i < gates.size(); ++i) {
    if (gates[i].isInput) {
      built[i] = to.input();
      depth.push_back(0);
      continue;
    }
    if (!isWhole[i] && readers[i] == 1) continue;
    parts.clear();
    todo = {gates[i].a, gates[i].b};
    while (!todo.empty()) {
      const Literal x = todo.back();
      todo.pop_back();
      const std::uint32_t gate = gateOf(x);
      if (!gates[gate].isInput && !isWhole[gate] && readers[gate] == 1) {
        todo.push_back(gates[gate].a);
        todo.push_back(gates[gate].b);
      } else {
        parts.push_back(built[gate] ^ (x & 1));
      }
    }
    // Those that come last stand first, and what is joined finds its place among them.
    const auto isLater = [&](Literal x, Literal y) { return depthOf(x) > depthOf(y); };
    std::ranges::stable_sort(parts, isLater);
    while (parts.size() > 1) {
      const Literal a = parts.back(), b = parts[parts.size() - 2];
      parts.resize(parts.size() - 2);
      const Literal joined = both(a, b);
      parts.insert(std::ranges::upper_bound(parts, joined, isLater), joined);
    }
    built[i] = parts[0];
  }
  for (const Literal root : from.roots()) to.addRoot(built[gateOf(root)] ^ (root & 1));
  return to;
}

// Equal forms of a network, which share what is known of functions.
class Simplifier {
 public:
  explicit Simplifier(const GateNetwork& network)
      : merged(withChoices(network, {})), once(rewritten(merged, /*takesEqual=*/false)) {}

  GateNetwork simple() { return another(another(rewritten(once, /*takesEqual=*/false))); }
  // Rewritten where that takes no more gates, and joined again.
  GateNetwork another(const GateNetwork& from) {
    return balanced(rewritten(from, /*takesEqual=*/true));
  }
  // With gates of two forms rewritten less as choices.
  GateNetwork withOtherForms(const GateNetwork& simple) const {
    return withChoices(simple, std::array{balanced(merged), balanced(once)});
  }

 private:
  GateNetwork rewritten(const GateNetwork& from, bool takesEqual) {
    return Rewriter(from, functions, takesEqual).run();
  }

  SmallFunctions functions;
  const GateNetwork merged, once;
};

}  // namespace

GateNetwork simplified(const GateNetwork& network) { return Simplifier(network).simple(); }

GateNetwork simplifiedWithChoices(const GateNetwork& network) {
  Simplifier simplifier(network);
  return simplifier.withOtherForms(simplifier.simple());
}

double expectedTables(const GateNetwork& network) {
  constexpr int kMany = 1500;
  Simplifier simplifier(network);
  const GateNetwork simple = simplifier.simple();
  const double asItStands = countTables(network), ofSimple = countTables(simple);
  if (asItStands > kMany) return std::sqrt(asItStands * ofSimple);
  const GateNetwork more = simplifier.another(simple);
  double product = ofSimple;
  product *= countTables(network, Mapping::kThorough);
  product *= countTables(more);
  product *= countTables(more, Mapping::kThorough);
  product *= countTables(simplifier.withOtherForms(simple));
  // The root of a fifth power is not exact; of five equal counts it is to be that one.
  constexpr double kParts = 1024;
  return std::round(std::pow(product, 1.0 / 5) * kParts) / kParts;
}

}  // namespace device
