#include "backend/software/identifiers.h"

#include <fmt/format.h>

#include <cctype>
#include <set>

namespace software {

namespace {

// Words that C++ keeps for itself, and names that a model's own text uses.
constexpr std::string_view kReserved =
    " alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t "
    "char32_t char8_t class compl concept const const_cast consteval constexpr constinit continue "
    "co_await co_return co_yield decltype default delete do double dynamic_cast else enum explicit "
    "export extern false float for friend goto if inline int long main mutable namespace new "
    "noexcept not not_eq nullptr operator or or_eq private protected public register "
    "reinterpret_cast requires return short signed sizeof static static_assert static_cast std "
    "struct switch template this thread_local throw true try typedef typeid typename union "
    "unsigned using virtual void volatile wchar_t while xor xor_eq ";

}  // namespace

std::string identifier(std::string_view text) {
  std::string name;
  for (const char letter : text) {
    const auto code = static_cast<unsigned char>(letter);
    if (name.empty() && std::isdigit(code) != 0) name += 'n';
    if (std::isalnum(code) != 0)
      name += letter;
    else if (!name.empty() && name.back() != '_')
      name += '_';
  }
  while (!name.empty() && name.back() == '_') name.pop_back();
  if (name.empty()) name += 'n';
  return name;
}

std::string freeIdentifier(std::string_view text) {
  std::string name = identifier(text);
  if (kReserved.find(fmt::format(" {} ", name)) != std::string_view::npos) name += "_2";
  return name;
}

std::vector<std::string> fieldNames(const std::vector<graph::Port>& ports) {
  std::vector<std::string> names;
  std::set<std::string> taken;
  for (const graph::Port& port : ports) {
    const std::string base = freeIdentifier(port.name);
    std::string name = base;
    for (int number = 2; !taken.insert(name).second; ++number)
      name = fmt::format("{}_{}", base, number);
    names.push_back(name);
  }
  return names;
}

}  // namespace software
