#include "vectors/stm_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "accuracy/accepted_values.h"
#include "numbers/filters.h"
#include "numbers/packing.h"
#include "util/failure.h"
#include "util/io.h"

namespace {

// The eight characters of each byte.
constexpr auto kByteText = [] {
  std::array<std::array<char, 8>, 256> table{};
  for (int byte = 0; byte < 256; ++byte) {
    for (int bit = 0; bit < 8; ++bit) table[byte][bit] = (byte >> (7 - bit) & 1) ? '1' : '0';
  }
  return table;
}();

// The text of one row, put together in storage that is kept and handed to the file in one call. One
// is made at a time.
class Row {
 public:
  explicit Row(OutputNumberType type) : type(type) {
    if (text.size() < kInitialSize) text.resize(kInitialSize);
  }

  void add(unsigned long value, unsigned width) {
    if (type != OutputNumberType::BINARY) {
      addText(type == OutputNumberType::HEX ? fmt::format("{:x}", value)
                                            : fmt::format("{}", value));
      return;
    }
    if (width < 64 && value >> width != 0) value = (1UL << width) - 1;
    char* to = open(width);
    for (unsigned b = 0; b < width; ++b) to[width - 1 - b] = value >> b & 1 ? '1' : '0';
  }

  void add(const util::MPZ& value, unsigned width, NumType numType) {
    if (type != OutputNumberType::BINARY) {
      addText(value.toText(type == OutputNumberType::HEX ? 8 : 10));
    } else if (numType == NumType::kDontCare) {
      std::memset(open(width), '-', width);
    } else if (value.sign() < 0) {
      addBits(value.lowBits(width), width);
    } else {
      addBits(value, width);
    }
  }

  void addZero(unsigned width) {
    if (type != OutputNumberType::BINARY) {
      addText("0");
    } else {
      std::memset(open(width), '0', width);
    }
  }

  void addFlow(int valid, int channel, const TestingOptions& t) {
    if (t.noChanValid) return;
    add(static_cast<unsigned long>(valid), 1);
    add(static_cast<unsigned long>(channel), 8);
  }

  void writeTo(FILE* f) {
    reserve(1);
    text[used++] = '\n';
    writeColumnsTo(f);
  }
  void writeColumnsTo(FILE* f) { std::fwrite(text.data(), 1, used, f); }

 private:
  static constexpr std::size_t kInitialSize = 1 << 12;

  void reserve(std::size_t more) {
    if (used + more > text.size()) text.resize(2 * (used + more));
  }
  // A column of `width` characters between blanks; the characters are the caller's to set.
  char* open(std::size_t width) {
    reserve(width + 2);
    char* to = text.data() + used;
    used += width + 2;
    to[0] = ' ';
    to[width + 1] = ' ';
    return to + 1;
  }
  void addText(const std::string& number) {
    std::memcpy(open(number.size()), number.data(), number.size());
  }
  // The low `width` bits of a non-negative number, byte by byte from the lowest.
  void addBits(const util::MPZ& value, unsigned width) {
    char* to = open(width) + width;
    const mp_limb_t* limbs = mpz_limbs_read(value.get());
    const std::size_t count = mpz_size(value.get());
    unsigned left = width;
    for (std::size_t i = 0; left > 0; ++i) {
      mp_limb_t limb = i < count ? limbs[i] : 0;
      for (int byte = 0; byte < 8 && left > 0; ++byte, limb >>= 8) {
        const unsigned bits = left < 8 ? left : 8;
        to -= bits;
        std::memcpy(to, kByteText[limb & 255].data() + 8 - bits, bits);
        left -= bits;
      }
    }
  }

  static thread_local std::string text;  // its size is the capacity in use
  std::size_t used = 0;
  OutputNumberType type;
};

thread_local std::string Row::text;

// The pattern of a value on its port.
const util::MPZ& patternOf(const NumValue& value, const kiln::Type& type, const TestingOptions& t) {
  thread_local util::MPZ pattern;  // storage only
  const auto* fp = type.as_floating_point();
  const auto* fx = type.as_fixed_point();
  if (fp && value.raw) return value.pattern;
  LOAM_ASSERT(value.real, "a value without a number reached a vector file");
  if (fp) {
    packFloatingPointToMPZ(pattern, value.real.get(), *fp, t);
  } else if (fx) {
    packFixedPointToMPZ(pattern, value.real.get(), *fx, t.precision);
  } else {
    loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Problem in test-bench");
  }
  return pattern;
}

// The legal values of one port, each brought into the port's range first.
void addAlternatives(Row& row, const std::vector<NumValue>& values, const kiln::Type& type,
                     const TestingOptions& t) {
  thread_local NumValue filtered;  // storage only
  for (const NumValue& value : values) {
    if (const auto* fp = type.as_floating_point()) {
      fpRangeFilter(filtered, value, *fp, t.subnormals);
    } else if (const auto* fx = type.as_fixed_point()) {
      fxpRangeFilter(filtered, value, *fx, t.precision);
    }
    row.add(patternOf(filtered, type, t), static_cast<unsigned>(type.width()), value.type);
  }
}

constexpr std::size_t kBufferSize = 1 << 20;

FILE* opened(const std::string& path, const char* mode) {
  FILE* f = std::fopen(path.c_str(), mode);
  if (f) std::setvbuf(f, nullptr, _IOFBF, kBufferSize);
  return f;
}

[[noreturn]] void couldNotOpen(const std::string& path) {
  util::exitWith(
      {fmt::format("{}: {}: Could not open stimuli or output files", path, std::strerror(errno))});
}

}  // namespace

std::string stimulusPath(const std::string& name) { return fmt::format("./{0}/{0}_xIn.stm", name); }

std::string responsePath(const std::string& name) {
  return fmt::format("./{0}/{0}_xOut.stm", name);
}

std::string responsePath(const std::string& name, std::size_t port) {
  return fmt::format("./{0}/{0}_xOut{1}.stm", name, port);
}

void openStimultiFiles(FILE*& in, FILE*& out, const std::string& name) {
  const std::string inPath = stimulusPath(name), outPath = responsePath(name);
  if (util::io::MakeDirectory(("./" + name).c_str(), false)) {
    std::fprintf(stderr, "Directory Created: %s\n", inPath.c_str());
  }
  std::printf("input  file = %s\n", inPath.c_str());
  std::printf("output file = %s\n", outPath.c_str());
  in = opened(inPath, "w");
  if (!in) couldNotOpen(inPath);
  out = opened(outPath, "w");
  if (!out) {
    const int reason = errno;
    std::remove(inPath.c_str());  // no half of a pair stays
    errno = reason;
    couldNotOpen(outPath);
  }
}

void openStimultiFiles(FILE*& in, std::vector<FILE*>& outs, const std::string& name,
                       const TestingOptions& t) {
  std::vector<std::string> paths{stimulusPath(name)};
  for (std::size_t i = 0; i < t.outLatency.size(); ++i) paths.push_back(responsePath(name, i));
  outs.clear();
  for (const std::string& path : paths) {
    FILE* f = opened(path, "w");
    if (!f) {
      const int reason = errno;
      for (std::size_t i = 0; paths[i] != path; ++i) std::remove(paths[i].c_str());
      errno = reason;
      couldNotOpen(path);
    }
    outs.push_back(f);
  }
  in = outs.front();
  outs.erase(outs.begin());
}

void openStimultiFilesForEvaluateAccuracy(FILE*& in, FILE*& out, const std::string& inPath,
                                          const std::string& outPath) {
  in = opened(inPath, "r");
  if (!in) couldNotOpen(inPath);
  out = opened(outPath, "r");
  if (!out) couldNotOpen(outPath);
}

void printNumber(FILE* f, unsigned long value, unsigned width, OutputNumberType type) {
  Row row(type);
  row.add(value, width);
  row.writeColumnsTo(f);
}

void printNumber(FILE* f, const util::MPZ& value, unsigned width, OutputNumberType type,
                 NumType numType) {
  Row row(type);
  row.add(value, width, numType);
  row.writeColumnsTo(f);
}

void printToStimuliFile(FILE* f, const std::vector<NumValue>& values, const PortSpecList& ports,
                        int valid, int channel, const TestingOptions& t, long enable) {
  Row row(t.testOutputType);
  row.addFlow(valid, channel, t);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const kiln::Type& type = ports[i % ports.size()].type;
    row.add(patternOf(values[i], type, t), static_cast<unsigned>(type.width()), values[i].type);
  }
  if (t.enable) row.add(static_cast<unsigned long>(enable), 1);
  row.writeTo(f);
}

void printToFile(FILE* f, const PortSpecList& ports, const std::vector<NumValue>& values, int valid,
                 int channel, int enable, const TestingOptions& t) {
  printToStimuliFile(f, values, ports, valid, channel, t, enable);
}

void printToStimuliFile(FILE* f, const std::vector<NumValue>& low,
                        const std::vector<NumValue>& high,
                        const std::vector<const kiln::FloatingPoint*>& formats, int channel,
                        const TestingOptions& t) {
  Row row(t.testOutputType);
  row.addFlow(1, channel, t);
  util::MPZ pattern;
  for (std::size_t i = 0; i < low.size(); ++i) {
    const kiln::FloatingPoint& fp = *formats[i];
    for (const NumValue* value : {&low[i], &high[i]}) {
      packFloatingPointToMPZ(pattern, value->real.get(), fp, t);
      row.add(pattern, static_cast<unsigned>(fp.width), value->type);
    }
  }
  row.writeTo(f);
}

void printToStimuliFileVV(FILE* f, const std::vector<std::vector<NumValue>>& perPort,
                          const PortSpecList& ports, int channel, int valid,
                          const TestingOptions& t) {
  Row row(t.testOutputType);
  row.addFlow(valid, channel, t);
  for (std::size_t p = 0; p < ports.size(); ++p) addAlternatives(row, perPort[p], ports[p].type, t);
  row.writeTo(f);
}

void printToStimuliFileVVOS(const std::vector<FILE*>& files,
                            const std::vector<std::vector<NumValue>>& perPort,
                            const PortSpecList& ports,
                            const std::vector<const PipelineStage*>& stages,
                            const TestingOptions& t) {
  for (std::size_t p = 0; p < ports.size(); ++p) {
    Row row(t.testOutputType);
    row.addFlow(stages[p]->valid, stages[p]->channel, t);
    addAlternatives(row, perPort[p], ports[p].type, t);
    row.writeTo(files[p]);
  }
}

void initialOutputPipelineFill(FILE* f, const PortSpecList& ports, int latency,
                               const TestingOptions& t) {
  for (int i = 0; i < latency; ++i) {
    Row row(t.testOutputType);
    row.addFlow(0, 0, t);
    for (std::size_t p = 0; p < ports.size(); ++p) {
      const int columns = std::max(1, alternativesOf(t, p));
      for (int k = 0; k < columns; ++k) row.addZero(static_cast<unsigned>(ports[p].type.width()));
    }
    row.writeTo(f);
  }
}

void drainRows(FILE* f, const PortSpecList& ports, int latency, const TestingOptions& t) {
  for (int i = 0; i < latency; ++i) {
    Row row(t.testOutputType);
    row.addFlow(0, 1, t);
    for (const PortSpec& port : ports) row.addZero(static_cast<unsigned>(port.type.width()));
    row.writeTo(f);
  }
}
