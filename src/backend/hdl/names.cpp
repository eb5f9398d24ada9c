#include "backend/hdl/names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <unordered_set>

namespace hdl {

namespace {

// One word after the other, lower case.
constexpr std::string_view kVhdlWords =
    "abs access after alias all and architecture array assert assume assume_guarantee attribute "
    "begin block body buffer bus case component configuration constant context cover default "
    "disconnect downto else elsif end entity exit fairness file for force function generate "
    "generic group guarded if impure in inertial inout is label library linkage literal loop map "
    "mod nand new next nor not null of on open or others out package parameter port postponed "
    "procedure process property protected pure range record register reject release rem report "
    "restrict restrict_guarantee return rol ror select sequence severity shared signal sla sll sra "
    "srl strong subtype then to transport type unaffected units until use variable view vmode "
    "vprop vunit wait when while with xnor xor";
constexpr std::string_view kVerilogWords =
    "always always_comb always_ff always_latch assign automatic before bind bins binsof bit break "
    "buf bufif0 bufif1 byte casex casez cell chandle checker class clocking cmos config const "
    "constraint continue covergroup coverpoint cross deassign defparam design disable dist do edge "
    "endcase endchecker endclass endclocking endconfig endfunction endgenerate endgroup "
    "endinterface endmodule endpackage endprimitive endprogram endproperty endspecify endsequence "
    "endtable endtask enum event eventually expect export extends extern final first_match foreach "
    "forever fork forkjoin global genvar highz0 highz1 iff ifnone ignore_bins illegal_bins "
    "implements implies import incdir include initial input inside instance int integer "
    "interconnect interface intersect join join_any join_none large let liblist localparam logic "
    "longint macromodule matches medium modport module negedge nettype nexttime nmos "
    "noshowcancelled notif0 notif1 output packed pmos posedge primitive priority program pull0 "
    "pull1 pulldown pullup pulsestyle_ondetect pulsestyle_onevent rand randc randcase randsequence "
    "rcmos real realtime ref reg reject_on repeat rnmos rpmos rtran rtranif0 rtranif1 s_always "
    "s_eventually s_nexttime s_until s_until_with scalared shortint shortreal showcancelled signed "
    "small soft solve specify specparam static string strong0 strong1 struct super supply0 supply1 "
    "sync_accept_on sync_reject_on table tagged task this throughout time timeprecision timeunit "
    "tran tranif0 tranif1 tri tri0 tri1 triand trior trireg typedef union unique unique0 unsigned "
    "until_with untyped uwire var vectored virtual void wait_order wand weak weak0 weak1 wildcard "
    "wire within wor";
constexpr std::string_view kPackageNames =
    "boolean character false ieee natural numeric_std positive resize rising_edge std std_logic "
    "std_logic_1164 std_logic_vector std_ulogic to_integer to_string to_unsigned true work";

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower)
    letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return lower;
}

std::unordered_set<std::string> reservedWords() {
  std::unordered_set<std::string> words;
  for (std::string_view list : {kVhdlWords, kVerilogWords, kPackageNames}) {
    while (!list.empty()) {
      const std::size_t end = std::min(list.find(' '), list.size());
      words.emplace(list.substr(0, end));
      list.remove_prefix(std::min(end + 1, list.size()));
    }
  }
  return words;
}

}  // namespace

std::string legalName(std::string_view text) {
  std::string name;
  for (const char letter : text) {
    const bool plain = std::isalnum(static_cast<unsigned char>(letter)) != 0;
    if (plain) {
      if (name.empty() && std::isdigit(static_cast<unsigned char>(letter)) != 0) name += 'n';
      name += letter;
    } else if (!name.empty() && name.back() != '_') {
      name += '_';
    }
  }
  while (!name.empty() && name.back() == '_') name.pop_back();
  if (name.empty()) name += 'n';
  return name;
}

bool isReserved(std::string_view name) {
  static const std::unordered_set<std::string> words = reservedWords();
  return words.contains(lowerCase(name));
}

std::string Names::claim(std::string_view wanted) {
  const std::string base = legalName(wanted);
  if (!isReserved(base) && taken.try_emplace(lowerCase(base), 2).second) return base;
  int& number = taken.try_emplace(lowerCase(base), 2).first->second;
  for (;; ++number) {
    std::string name = fmt::format("{}_{}", base, number);
    if (!isReserved(name) && !taken.contains(lowerCase(name))) {
      ++number;
      taken.emplace(lowerCase(name), 2);
      return name;
    }
  }
}

}  // namespace hdl
