// Reads rows of a stimulus file (columns of bits, one a port), calls the C++ model of the unit and
// prints its answers, a row for each call whose valid output is high, as the widths of the output
// ports have it:
//   replay WIDTH... <topModel_xIn.stm
// Built with the header of the model put in front (-include topModel_model.h) and its source.

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// Ports are words of 64 bits, one after the other.
template <typename Outputs, typename Inputs>
Outputs answer(Outputs (*model)(const Inputs&), const Inputs& in) {
  return model(in);
}
template <typename Outputs, typename Inputs, typename State>
Outputs answer(Outputs (*model)(const Inputs&, State&), const Inputs& in) {
  static State state;
  return model(in, state);
}

template <typename Ports>
std::vector<std::uint64_t> wordsOf(const Ports& ports) {
  std::vector<std::uint64_t> words(sizeof ports / sizeof(std::uint64_t));
  std::memcpy(words.data(), &ports, sizeof ports);
  return words;
}

}  // namespace

int main(int count, char** widths) {
  for (std::string row; std::getline(std::cin, row);) {
    std::vector<std::uint64_t> words;
    std::istringstream columns(row);
    for (std::string bits; columns >> bits;) {
      const std::size_t first = words.size();
      words.resize(first + (bits.size() + 63) / 64);
      for (std::size_t i = 0; i < bits.size(); ++i)
        words[first + i / 64] |= std::uint64_t{bits[bits.size() - 1 - i] == '1'} << i % 64;
    }
    topModel_inputs in;
    if (words.size() * sizeof words[0] != sizeof in) return 1;
    static_assert(std::is_trivially_copyable_v<topModel_inputs>);
    std::memcpy(static_cast<void*>(&in), words.data(), sizeof in);
    const std::vector<std::uint64_t> out = wordsOf(answer(topModel, in));
    if (out[0] == 0) continue;
    std::size_t first = 0;
    for (int port = 1; port < count; ++port) {
      const int width = std::atoi(widths[port]);
      std::cout << ' ';
      for (int i = width - 1; i >= 0; --i)
        std::cout << (out[first + static_cast<std::size_t>(i) / 64] >> i % 64 & 1);
      first += static_cast<std::size_t>(width + 63) / 64;
    }
    std::cout << '\n';
  }
}
