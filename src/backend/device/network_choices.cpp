#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "backend/device/gate_network.h"

namespace device {

namespace {

constexpr std::size_t kWords = 32;  // of samples at a time
constexpr int kRounds = 16;

class Sampler {
 public:
  explicit Sampler(const GateNetwork& network) : gates(network.gates()), samples(gates.size()) {
    for (std::uint32_t i = 1; i < gates.size(); ++i)
      if (gates[i].isInput) inputs.push_back(i);
  }

  // Samples of a gate are those of its word. Neighbouring inputs, mostly bits of one word, are
  // often almost all alike, so that wide conjunctions are seen to be true at times; and in half of
  // the samples inputs some distance apart are, so that words are seen to be equal.
  using Word = std::array<std::uint64_t, kWords>;
  const std::vector<Word>& next() {
    constexpr std::uint64_t kNeighbours = 12;
    enum Kind { kRare, kMostly, kEven, kKinds = 4 };
    std::array<std::uint64_t, kWords> kinds{}, distances{};
    for (std::uint64_t& kind : kinds) kind = random() % kKinds;
    for (std::size_t w = 0; w < kWords; w += 2) distances[w] = 1 + random() % (inputs.size() + 1);
    const auto rare = [&] {
      return random() & random() & random() & random() & random() & random();
    };
    for (std::size_t i = 0; i < inputs.size(); ++i)
      for (std::size_t w = 0; w < kWords; ++w) {
        if (random() % kNeighbours == 0) kinds[w] = random() % kKinds;
        std::uint64_t& own = samples[inputs[i]][w];
        if (distances[w] > 0 && distances[w] <= i)
          own = samples[inputs[i - distances[w]]][w] ^ rare();
        else
          own = kinds[w] == kRare ? rare() : kinds[w] == kMostly ? ~rare() : random();
      }
    for (std::size_t i = 1; i < gates.size(); ++i) {
      if (gates[i].isInput) continue;
      const Word &a = samples[gateOf(gates[i].a)], &b = samples[gateOf(gates[i].b)];
      const std::uint64_t invertA = maskOf(gates[i].a), invertB = maskOf(gates[i].b);
      for (std::size_t w = 0; w < kWords; ++w) samples[i][w] = (a[w] ^ invertA) & (b[w] ^ invertB);
    }
    return samples;
  }

 private:
  static std::uint64_t maskOf(Literal x) { return x % 2 == 0 ? 0 : ~std::uint64_t{0}; }

  const std::vector<GateNetwork::Gate>& gates;
  std::vector<std::uint32_t> inputs;
  std::vector<Word> samples;
  // The same ones each time (Steele et al., "Fast splittable pseudorandom number generators",
  // OOPSLA 2014).
  std::uint64_t random() {
    std::uint64_t x = seed += 0x9e3779b97f4a7c15;
    x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9;
    x = (x ^ x >> 27) * 0x94d049bb133111eb;
    return x ^ x >> 31;
  }
  std::uint64_t seed = 0;
};

// For each gate the first one that has the same value, or the inverse of it, in all samples. One
// that is hardly ever 0, or 1, stands for itself.
std::vector<Literal> firstAlike(const GateNetwork& network) {
  constexpr int kFewest = 8;  // words of samples that are not all alike
  const std::size_t count = network.gates().size();
  Sampler sampler(network);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> digests(count);
  std::vector<int> withOnes(count), withZeros(count);
  std::vector<bool> isInverted(count);
  for (int round = 0; round < kRounds; ++round) {
    const auto& samples = sampler.next();
    for (std::size_t i = 0; i < count; ++i) {
      if (round == 0) isInverted[i] = samples[i][0] % 2 != 0;
      for (const std::uint64_t word : samples[i]) {
        withOnes[i] += word != 0;
        withZeros[i] += ~word != 0;
        const std::uint64_t x = isInverted[i] ? ~word : word;
        auto& [a, b] = digests[i];
        a = (a ^ x) * 0x9e3779b97f4a7c15;
        a ^= a >> 29;
        b = (b ^ x) * 0xd6e8feb86659fd93;
        b ^= b >> 32;
      }
    }
  }
  std::vector<Literal> same(count);
  std::map<std::pair<std::uint64_t, std::uint64_t>, Literal> first;
  for (std::uint32_t i = 0; i < count; ++i) {
    same[i] = 2 * i;
    if (std::min(withOnes[i], withZeros[i]) < kFewest) continue;
    const Literal own = 2 * i + (isInverted[i] ? 1 : 0);
    const auto [found, isNew] = first.try_emplace(digests[i], own);
    if (!isNew && !network.gates()[i].isInput) same[i] = found->second ^ (own & 1);
  }
  return same;
}

// Adds a network to one with the same inputs, or to none; the literals of its gates there.
std::vector<Literal> copied(const GateNetwork& from, GateNetwork& to) {
  const bool isFirst = to.gates().size() == 1;
  std::vector<Literal> literals{kFalse};
  std::uint32_t input = 0;
  for (std::size_t i = 1; i < from.gates().size(); ++i) {
    const GateNetwork::Gate& gate = from.gates()[i];
    const auto seen = [&](Literal x) { return literals[gateOf(x)] ^ (x & 1); };
    if (!gate.isInput) {
      literals.push_back(to.both(seen(gate.a), seen(gate.b)));
    } else if (isFirst) {
      literals.push_back(to.input());
    } else {
      do ++input;
      while (!to.gates()[input].isInput);
      literals.push_back(2 * input);
    }
  }
  return literals;
}

}  // namespace

GateNetwork withChoices(const GateNetwork& network, std::span<const GateNetwork> others) {
  GateNetwork all;
  const std::vector<Literal> own = copied(network, all);
  const auto ownGates = static_cast<std::uint32_t>(all.gates().size());
  for (const GateNetwork& other : others) copied(other, all);
  const auto& gates = all.gates();
  const std::vector<Literal> same = firstAlike(all);
  const auto seen = [&](Literal x) { return same[gateOf(x)] ^ (x & 1); };

  // By levels of the network; a gate of the others has that of the latest one that it reads there,
  // and is a choice where that is an earlier one.
  std::vector<std::size_t> level(gates.size());
  std::vector<std::vector<std::uint32_t>> byLevel(1);
  std::vector<std::vector<Literal>> choices(ownGates);
  for (std::uint32_t i = 1; i < gates.size(); ++i) {
    const std::uint32_t first = gateOf(same[i]);
    if (gates[i].isInput || (i < ownGates && first != i)) continue;
    level[i] = std::max(level[gateOf(seen(gates[i].a))], level[gateOf(seen(gates[i].b))]);
    if (i < ownGates) {
      if (++level[i] == byLevel.size()) byLevel.emplace_back();
      byLevel[level[i]].push_back(i);
    } else if (first < ownGates && !gates[first].isInput && level[i] < level[first]) {
      choices[first].push_back(2 * i + (same[i] & 1));
    }
  }

  GateNetwork to;
  std::vector<std::optional<Literal>> built(gates.size());
  built[0] = kFalse;
  for (std::uint32_t i = 1; i < gates.size(); ++i)
    if (gates[i].isInput) built[i] = to.input();
  const auto build = [&](const auto& self, Literal x) -> Literal {
    std::optional<Literal>& result = built[gateOf(x)];
    if (!result) {
      const GateNetwork::Gate& gate = gates[gateOf(x)];
      const Literal a = self(self, seen(gate.a)), b = self(self, seen(gate.b));
      result = to.append(a, b);
    }
    return *result ^ (x & 1);
  };
  for (const auto& row : byLevel)
    for (const std::uint32_t gate : row) {
      std::vector<Literal> equals;
      for (const Literal choice : choices[gate]) equals.push_back(build(build, choice));
      to.setChoices(gateOf(build(build, 2 * gate)), std::move(equals));
    }
  for (const Literal root : network.roots())
    to.addRoot(build(build, seen(own[gateOf(root)] ^ (root & 1))));
  return to;
}

}  // namespace device
