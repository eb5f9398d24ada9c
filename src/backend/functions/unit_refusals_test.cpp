#include <gtest/gtest.h>

#include <sstream>

#include "backend/functions/unit.h"

namespace functions {
namespace {

// "8,23" is IEEE's format, "L8,23" FPLib's, "s32.16" a signed and "u5.0" an unsigned fixed-point
// one; "3*u1.0" are three of them.
std::vector<kiln::Type> typesOf(const std::string& text) {
  std::vector<kiln::Type> types;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t star = word.find('*');
    const int count = star == std::string::npos ? 1 : std::stoi(word);
    if (star != std::string::npos) word.erase(0, star + 1);
    const int second = std::stoi(word.substr(word.find_first_of(",.") + 1));
    const bool isNamed = std::isalpha(word[0]) != 0;
    const int first = std::stoi(word.substr(isNamed ? 1 : 0));
    const kiln::Type type = word[0] == 'L' ? kiln::Type(kiln::fpLib(first, second))
                            : isNamed      ? kiln::FixedPoint(first, second, word[0] == 's')
                                           : kiln::Type(kiln::ieee(first, second));
    types.insert(types.end(), static_cast<std::size_t>(count), type);
  }
  return types;
}

// What a unit says of ports and words that it does not have: the end of a line, nothing where it
// accepts them, or kAnything.
struct Refusal {
  const char* unit;
  std::string ports;  // "inputs -> outputs"
  Variant variant;
  std::string reason;
};
constexpr char kAnything[] = "*";
std::string range(const std::string& what, const std::string& bounds) {
  return what + " is out of range " + bounds;
}
const std::string kExponent = "wE 1 is out of range 2 to 15",
                  kFraction = "wF 113 is out of range 1 to 112",
                  k201 = range("width 201", "1 to 200"),
                  kOneSeed = "3 to 52: one iteration from a seed must do";
std::string counts(const std::string& asked, const std::string& own) {
  return asked + " outputs are not the " + own + " of this unit";
}

const Refusal kRefusals[] = {
    {"CFloatAdd", "2*8,23 -> 8,23", {}, ""},
    {"CFloatAdd", "2*1,5 -> 1,5", {}, kExponent},
    {"CFloatAdd", "2*8,113 -> 8,113", {}, kFraction},
    {"CFloatAdd", "8,23 8,22 -> 8,23", {}, kAnything},
    {"CFloatAdd", "8,23 -> 8,23", {}, kAnything},
    {"CFPConstMult", "8,23 -> 8,23", {{8, 23, 0}}, "the constant is missing"},
    {"CFPConstMult", "8,23 -> 8,23", {{8, 23, 0}, {"3"}}, ""},
    {"CFPConstMult", "1,23 -> 8,23", {{8, 23, 0}, {"3"}}, kExponent},
    {"DMFPMult", "2*8,23 -> 8,23 u5.0", {{8, 23, 1, 0, 0}}, ""},
    {"DMFPMult", "2*8,23 -> 8,23 u5.0", {{8, 23, 1, 1, 0}}, counts("2 inputs and 2", "3 and 2")},
    {"DMFPMult", "8,23 8,23 u1.0 -> 8,23 u5.0", {{8, 23, 1, 1, 0}}, kAnything},
    {"DMFPMult", "8,23 L8,23 -> 8,23 u5.0", {{8, 23, 1, 0, 0}}, kAnything},
    {"DMFPMult", "8,23 8,22 -> 8,23 u5.0", {{8, 23, 1, 0, 0}}, kAnything},
    {"DMFPMult", "2*1,5 -> 1,5 u5.0", {{8, 23, 1, 0, 0}}, kExponent},
    {"DMFloatLdExp", "1,5 s8.0 -> 1,5", {}, kExponent},
    {"DMFloatLdExp", "8,23 s5000.0 -> 8,23", {}, range("wI 5000", "1 to 4096")},
    {"DMFloatLdExp", "8,23 s8.2 -> 8,23", {}, kAnything},
    {"DMFloatLdExp", "8,23 s8.0 -> 8,22", {}, kAnything},
    {"DMFloatLdExp", "8,23 -> 8,23", {}, kAnything},
    {"DMFloatILogB", "8,23 -> s8.0", {}, kAnything},
    {"DMFloatILogB", "s8.0 -> s32.0", {}, kAnything},
    {"DMFloatFloor", "8,113 -> 8,113", {}, kFraction},
    {"DMFloatFloor", "8,23 -> 8,22", {}, kAnything},
    {"DMFloatFloor", "8,23 -> L8,23", {}, kAnything},
    {"DMFloatFloor", "2*8,23 -> 8,23", {}, kAnything},
    {"DMFloatSinX", "8,23 -> 8,23", {}, ""},
    {"DMFloatSinX", "8,23 -> 8,23", {{8, 23, 0, 1}}, "a sine without range reduction is not built"},
    {"DMFloatSinX", "16,23 -> 16,23", {}, range("wE 16", "2 to 15")},
    {"DMFloatCompare", "2*8,23 -> u1.0", {{8, 23, 4, 0, 1}}, range("comparison 4", "-2 to 3")},
    {"DMFPToFxP", "8,23 -> s32.16", {}, ""},
    {"DMFPToFxP", "8,23 -> s4097.0", {}, range("width 4097", "1 to 4096")},
    {"DMFPToFxP", "8,23 -> s32.16", {{0, 0, 0, 0, 0, 0, 7}}, range("rounding mode 7", "0 to 6")},
    {"DMFPToFxP", "8,23 u2.0 -> s32.16", {}, kAnything},
    {"DMFPToFxP", "s32.16 -> s32.16", {}, kAnything},
    {"DMFPToFXPExpert", "8,23 -> s32.16 u5.0", {}, kAnything},
    {"DMFPToFXPExpert", "8,113 u2.0 -> s32.16 u5.0", {}, kFraction},
    {"DMFxPToFP", "s32.16 -> 8,23", {{8, 23, 1}}, ""},
    {"DMFxPToFP", "s32.16 -> 8,23", {{8, 23, 5}}, range("rounding 5", "0 to 4")},
    {"DMFxPToFP", "s0.0 -> 8,23", {{8, 23, 1}}, range("width 0", "1 to 4096")},
    {"DMFxPToFP", "s32.16 -> 8,23 u5.0", {{8, 23, 1}}, counts("1 inputs and 2", "1 and 1")},
    {"DMFxPToFP", "s32.16 u5.0 -> 8,23 u5.0", {{8, 23, 1, 1, 1}}, kAnything},
    {"DMFxPToFP", "s32.16 -> 16,5", {{8, 23, 1}}, range("wE 16", "2 to 15")},
    {"DMFPIEEEToFPIEEE", "5,10 -> 8,23", {}, ""},
    {"DMFPIEEEToFPIEEE", "5,10 -> 1,23", {}, kExponent},
    {"DMFPIEEEToFPIEEE", "5,10 -> L8,23", {}, kAnything},
    {"DMFloatCastIEEEtoFPC", "14,5 -> 16,5 u3.0", {}, range("wE 16", "2 to 15")},
    {"DMFloatCastIEEEtoFPC",
     "5,10 -> 8,23 u3.0",
     {},
     "formats 5 10 and 8 23 are not two exponent bits apart"},
    {"DMFloatCastFPCToIEEE", "2*5,10 -> 3,10", {}, kAnything},
    {"CFxPConstMult", "u8.0 -> u8.0", {{0, -1, 0, 0}, {"3"}}, ""},
    {"CFxPConstMult", "u8.0 -> u8.0", {{0, -1, 0, 0}}, "the constant is missing"},
    {"CFxPConstMult", "u8.0 -> u8.0", {{0, -1, 0, 0}, {"inf"}}, "constant inf is not finite"},
    {"CFxPConstMult", "u8.2 -> u8.2", {{0, -1, 2, 1}, {"3"}}, "f 2 is not 0"},
    {"CFxPConstMult", "u150.0 -> u8.0", {{0, -1, 0, 0}, {"0.1"}}, range("width 150", "1 to 148")},
    {"CFxPTruncMult", "2*u8.8 -> u8.8", {}, ""},
    {"CFxPTruncMult", "2*u1025.8 -> u8.0", {}, range("width 1025", "1 to 1024")},
    {"CFxPTruncMult", "2*u8.8 -> u8.9999", {}, range("output fraction 9999", "-4080 to 4112")},
    {"DMFxPSinCosPiX", "s8.7 -> s9.7", {{7, 1}}, ""},
    {"DMFxPSinCosPiX", "s1025.7 -> s9.7", {{7, 1}}, range("width 1025", "1 to 1024")},
    {"DMFxPSinCosPiX", "s8.7 -> s129.127", {{7, 1}}, range("fOut 127", "0 to 96")},
    {"DMFxPSinCosPiX",
     "s8.7 -> u9.7",
     {{7, 1}},
     "a result is not a signed fixed-point port of range -2 to 2"},
    {"CLongAdd", "2*u0.0 -> u0.0", {{0, 0, 2}}, range("width 0", "1 to 4096")},
    {"CLongAdd", "2*u4097.0 -> u4097.0", {{0, 0, 2}}, range("width 4097", "1 to 4096")},
    {"CLongAdd", "u8.0 -> u8.0", {{0, 0, 1}}, range("number of operands 1", "2 to 256")},
    {"CLongAdd", "257*u8.0 -> u8.0", {{0, 0, 257}}, range("number of operands 257", "2 to 256")},
    {"CCtpop", "u0.0 -> u0.0", {}, range("width 0", "1 to 4096")},
    {"CCtpop", "u4097.0 -> u4097.0", {}, range("width 4097", "1 to 4096")},
    {"CBarrelShift", "u4097.0 u13.0 -> u4097.0", {{4}}, range("width 4097", "1 to 4096")},
    {"CBarrelShift", "u8.0 u4.0 -> u8.0", {{-1}}, range("maxShift -1", "0 to 9223372036854775807")},
    {"DMFxPModularMult", "u1025.0 u8.0 -> u1033.0", {{2}}, range("width 1025", "1 to 1024")},
    {"DMFxPModularMult", "u8.0 u0.0 -> u8.0", {{2}}, range("width 0", "1 to 1024")},
    {"DMFxPModularMult", "u-1.0 -> u-2.0", {{19}}, range("width -1", "1 to 1024")},
    {"DMFxPModularMult", "3*u1025.0 u1026.0 -> u1025.0", {{14}}, range("width 1025", "1 to 1024")},
    {"DMFxPFusedMultiFunction", "3*s201.0 u2.0 u5.0 -> s201.0 u1.0", {}, k201},
    {"DMFxPFusedMultiFunction", "3*u8.0 u2.0 u5.0 -> u8.0 u1.0", {}, kAnything},
    {"DMFxPFusedMultiFunction", "3*s8.0 u2.0 u4.0 -> s8.0 u1.0", {}, kAnything},
    {"DMFloatFusedMultiFunction", "3*1,5 u2.0 u4.0 -> 1,5 u1.0", {}, kExponent},
    {"DMFloatFusedMultiFunction", "3*L8,23 u2.0 u4.0 -> L8,23 u1.0", {}, kAnything},
    {"DMFloatFusedMultiFunction", "3*8,23 u2.0 u5.0 -> 8,23 u1.0", {}, kAnything},
    {"CFloatAcc", "8,23 u1.0 -> 8,23 3*u1.0", {{-20, 10, 8}}, ""},
    {"CFloatAcc", "8,23 u1.0 -> 8,23 3*u1.0", {{10, -20, 8}}, kAnything},
    {"CFloatAcc", "8,23 u1.0 -> 8,23 3*u1.0", {{-20, -20, -20}}, kAnything},
    {"CFloatAcc", "8,23 u1.0 -> 8,23 3*u1.0", {{-20, 10, 11}}, kAnything},
    {"CFloatAcc", "8,23 u1.0 -> 8,23 3*u1.0", {{-20, 10, -21}}, kAnything},
    {"CFloatAcc", "8,23 u1.0 -> 8,23 3*u1.0", {{-4000, 1000, 0}}, kAnything},
    {"CFPFoldedALUNR", "2*11,53 u3.0 u1.0 -> 11,53", {}, range("wF 53", kOneSeed)},
    {"CFPFoldedALUNR", "2*4,2 u3.0 u1.0 -> 4,2", {}, range("wF 2", kOneSeed)},
    {"CFPFoldedALUNR", "2*1,10 u3.0 u1.0 -> 1,10", {}, kExponent},
};

TEST(Units, RefusePortsAndWordsThatTheyDoNotHave) {
  for (const Refusal& row : kRefusals) {
    Request request;
    const std::size_t arrow = row.ports.find("->");
    request.signature = {typesOf(row.ports.substr(0, arrow)), typesOf(row.ports.substr(arrow + 2)),
                         row.variant};
    request.accuracy.resize(request.signature.out.size());
    const std::string said = findUnit(row.unit)->refuses(request).value_or("");
    EXPECT_TRUE(row.reason == kAnything ? !said.empty() : said == row.reason)
        << row.unit << ": " << said << " / " << row.reason;
  }
}

}  // namespace
}  // namespace functions
