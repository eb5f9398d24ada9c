#pragma once

#include <string_view>

namespace software {

// What a generated model computes values of more than 64 bits with; part of its text.
inline constexpr std::string_view kWideWords =
    R"(// A value of more than 64 bits: words of 64 bits, the lowest first, zero above its width.
template <std::size_t N>
using Wide = std::array<std::uint64_t, N>;

inline Wide<1> wide(std::uint64_t x) { return {x}; }
template <std::size_t N>
const Wide<N>& wide(const Wide<N>& x) { return x; }

// Zeros above `width` bits.
template <std::size_t N>
Wide<N> cut(Wide<N> x, int width) {
  if (width % 64 != 0) x[N - 1] &= (std::uint64_t{1} << (width % 64)) - 1;
  return x;
}

// Puts x, whose place is still zero and large enough, at bit `low`.
template <std::size_t N, std::size_t M>
void place(Wide<N>& result, const Wide<M>& x, int low) {
  const std::size_t words = static_cast<std::size_t>(low) / 64;
  const int bits = low % 64;
  for (std::size_t i = 0; i < M && i + words < N; ++i) {
    result[i + words] |= x[i] << bits;
    if (bits != 0 && i + words + 1 < N) result[i + words + 1] |= x[i] >> (64 - bits);
  }
}

template <std::size_t N, std::size_t M>
Wide<N> slice(const Wide<M>& x, int low, int width) {
  const std::size_t words = static_cast<std::size_t>(low) / 64;
  const int bits = low % 64;
  Wide<N> result{};
  for (std::size_t i = 0; i < N && i + words < M; ++i) {
    result[i] = x[i + words] >> bits;
    if (bits != 0 && i + words + 1 < M) result[i] |= x[i + words + 1] << (64 - bits);
  }
  return cut(result, width);
}

template <std::size_t N>
Wide<N> bitNot(Wide<N> x, int width) {
  for (std::uint64_t& word : x) word = ~word;
  return cut(x, width);
}

template <std::size_t N>
Wide<N> bitAnd(Wide<N> a, const Wide<N>& b) {
  for (std::size_t i = 0; i < N; ++i) a[i] &= b[i];
  return a;
}

template <std::size_t N>
Wide<N> bitOr(Wide<N> a, const Wide<N>& b) {
  for (std::size_t i = 0; i < N; ++i) a[i] |= b[i];
  return a;
}

template <std::size_t N>
Wide<N> bitXor(Wide<N> a, const Wide<N>& b) {
  for (std::size_t i = 0; i < N; ++i) a[i] ^= b[i];
  return a;
}

// a + b + carry, modulo 2^width.
template <std::size_t N>
Wide<N> add(const Wide<N>& a, const Wide<N>& b, std::uint64_t carry, int width) {
  Wide<N> sum{};
  for (std::size_t i = 0; i < N; ++i) {
    const std::uint64_t partial = a[i] + carry;
    sum[i] = partial + b[i];
    carry = (partial < carry) | (sum[i] < b[i]);
  }
  return cut(sum, width);
}

// x times 2^low, modulo 2^(64 N).
template <std::size_t N, std::size_t M>
Wide<N> shifted(const Wide<M>& x, int low) {
  Wide<N> result{};
  place(result, x, low);
  return result;
}

template <std::size_t N>
bool less(const Wide<N>& a, const Wide<N>& b) {
  for (std::size_t i = N; i-- > 0;)
    if (a[i] != b[i]) return a[i] < b[i];
  return false;
}

template <std::size_t N>
bool lessSigned(Wide<N> a, Wide<N> b, int width) {
  const std::uint64_t sign = std::uint64_t{1} << ((width - 1) % 64);
  a[N - 1] ^= sign;
  b[N - 1] ^= sign;
  return less(a, b);
}

template <std::size_t N>
std::uint64_t foldedXor(const Wide<N>& x) {
  std::uint64_t folded = 0;
  for (const std::uint64_t word : x) folded ^= word;
  return folded;
}

// a * b, modulo 2^(64 N): by halves of words.
template <std::size_t N, std::size_t A, std::size_t B>
Wide<N> multiply(const Wide<A>& a, const Wide<B>& b) {
  Wide<N> result{};
  const auto half = [](const auto& x, std::size_t i) {
    return i / 2 < x.size() ? (x[i / 2] >> (i % 2 * 32)) & 0xffffffffu : 0;
  };
  for (std::size_t i = 0; i < 2 * A && i < 2 * N; ++i) {
    std::uint64_t carry = 0;
    for (std::size_t j = 0; i + j < 2 * N; ++j) {
      const std::size_t k = i + j;
      carry += half(a, i) * half(b, j) + half(result, k);
      result[k / 2] &= ~(std::uint64_t{0xffffffffu} << (k % 2 * 32));
      result[k / 2] |= (carry & 0xffffffffu) << (k % 2 * 32);
      carry >>= 32;
    }
  }
  return result;
}

// The signed number of `width` bits, continued to 64 N bits.
template <std::size_t N, std::size_t M>
Wide<N> signExtended(const Wide<M>& x, int width) {
  Wide<N> result{};
  for (std::size_t i = 0; i < N && i < M; ++i) result[i] = x[i];
  const std::size_t top = static_cast<std::size_t>(width - 1) / 64;
  if ((x[top] >> ((width - 1) % 64) & 1) == 0) return result;
  if (width % 64 != 0 && top < N) result[top] |= ~std::uint64_t{0} << (width % 64);
  for (std::size_t i = top + 1; i < N; ++i) result[i] = ~std::uint64_t{0};
  return result;
}

)";

}  // namespace software
