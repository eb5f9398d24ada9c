#include "backend/hdl/text.h"

#include "util/failure.h"

namespace hdl {

namespace {

constexpr std::size_t kColumns = 100;

std::string padded(std::string digits, std::size_t count) {
  if (digits.size() < count) digits.insert(0, count - digits.size(), '0');
  return digits;
}

}  // namespace

std::string statement(int indent, const std::string& text) {
  std::string result;
  std::size_t room = kColumns - static_cast<std::size_t>(indent);
  std::string lead(static_cast<std::size_t>(indent), ' ');
  std::size_t from = 0;
  while (text.size() - from > room) {
    std::size_t blank = text.rfind(' ', from + room);
    if (blank == std::string::npos || blank <= from) blank = text.find(' ', from);
    if (blank == std::string::npos) break;
    result += lead + text.substr(from, blank - from) + "\n";
    from = blank + 1;
    lead.assign(static_cast<std::size_t>(indent) + 4, ' ');
    room = kColumns - lead.size();
  }
  return result + lead + text.substr(from) + "\n";
}

std::string headerLines(const std::vector<std::string>& header, const std::string& mark) {
  std::string result;
  for (const std::string& text : header) {
    // A line break inside an entry must not end the comment.
    std::string line = text.empty() ? mark : mark + " " + text;
    for (char& letter : line)
      if (letter == '\n' || letter == '\r') letter = ' ';
    result += line + "\n";
  }
  return result + "\n";
}

std::string filled(std::string_view text, const std::map<std::string, std::string>& words) {
  std::string result;
  for (;;) {
    const std::size_t start = text.find('@');
    result += text.substr(0, start);
    if (start == std::string_view::npos) return result;
    const std::size_t end = text.find('@', start + 1);
    LOAM_ASSERT(end != std::string_view::npos, "a word between two marks");
    result += words.at(std::string(text.substr(start + 1, end - start - 1)));
    text.remove_prefix(end + 1);
  }
}

std::string binaryDigits(const util::MPZ& value, int width) {
  return padded(value.toText(2), static_cast<std::size_t>(width));
}

std::string hexDigits(const util::MPZ& value, int width) {
  return padded(value.toText(16), (static_cast<std::size_t>(width) + 3) / 4);
}

}  // namespace hdl
