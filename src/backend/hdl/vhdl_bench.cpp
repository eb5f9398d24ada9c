#include <fmt/format.h>

#include <map>

#include "backend/hdl/bench.h"
#include "backend/hdl/text.h"

namespace hdl {

namespace {

constexpr const char* kValidHistory =
    "    variable valid_history : std_logic_vector(0 to latency) := (others => '0');\n";

constexpr std::string_view kHead = R"(library ieee;
use ieee.std_logic_1164.all;
use std.textio.all;

-- Replays @name@_xIn.stm, one row a clock cycle, and compares what the unit shows just before each
-- clock edge with the same row of @name@_xOut.stm. `folder` stands in front of the file names.
entity @bench@ is
  generic (folder : string := "");
end entity;

architecture replay of @bench@ is

)";

constexpr std::string_view kDeclarations = R"(
begin

  unit : entity work.@entity@ port map (
@map@
  );

  replay : process
    constant warn_only : boolean := @warnOnly@;
    constant latency : natural := @latency@;
    constant told_mismatches : natural := @told@;
    constant data_ports : positive := @dataPorts@;
    constant stimulus_columns : positive := @stimulusColumns@;
    constant control_columns : natural := @controlColumns@;
    constant data_columns : natural := @dataColumns@;
    constant most_columns : positive := @mostColumns@;

    -- Where a column of the current row stands in its line.
    type span is record
      first, last : natural;
    end record;
    type span_list is array (natural range <>) of span;
    type count_list is array (0 to data_ports - 1) of natural;

    constant usual_alternatives : count_list := (@alternatives@);

    file stimuli, responses@resultsFile@ : text;
    variable status : file_open_status;
    variable stimulus, response, report_line@resultsLine@ : line;
    variable stimulus_span : span_list(0 to stimulus_columns - 1);
    variable response_span : span_list(0 to most_columns - 1);
    variable stimulus_count, response_count, column : natural;
    variable alternatives : count_list;
    variable row, compared, mismatches : natural := 0;
    variable is_valid, is_well_formed : boolean;
    variable is_readable : boolean := true;
@validHistory@
    procedure tell(text : string) is
      variable l : line;
    begin
      if warn_only then
        write(l, string'("warning: "));
      end if;
      write(l, text);
      writeline(output, l);
    end procedure;

    procedure mismatch(text : string) is
    begin
      mismatches := mismatches + 1;
      if mismatches <= told_mismatches then
        tell("row " & integer'image(row) & ": " & text);
      elsif mismatches = told_mismatches + 1 then
        tell("further mismatches are only counted");
      end if;
    end procedure;

    procedure finish_run is
    begin
      if compared = 0 then
        tell("no valid row was compared");
      end if;
      if warn_only and mismatches > 0 then
        tell("mismatches only warn, as this bench was generated");
      end if;
      write(report_line, integer'image(compared) & " rows compared, "
            & integer'image(mismatches) & " mismatches");
      writeline(output, report_line);
      if mismatches > 0 and not warn_only then
        std.env.finish(1);
      end if;
      wait;
    end procedure;

    procedure open_file(file f : text; name : string; kind : file_open_kind) is
    begin
      file_open(status, f, folder & name, kind);
      if status /= open_ok then
        write(output, "cannot open " & folder & name & LF);
        write(output, "0 rows compared, 1 mismatches" & LF);
        std.env.finish(1);
        wait;
      end if;
    end procedure;

    -- The columns of a line; `count` tells of all, `spans` holds those that it has room for.
    procedure split(l : inout line; spans : out span_list; count : out natural) is
      variable found : natural := 0;
      variable inside : boolean := false;
    begin
      for i in l'range loop
        if l(i) = ' ' or l(i) = HT or l(i) = CR then
          inside := false;
        else
          if not inside then
            found := found + 1;
            if found <= spans'length then
              spans(found - 1).first := i;
            end if;
          end if;
          inside := true;
          if found <= spans'length then
            spans(found - 1).last := i;
          end if;
        end if;
      end loop;
      count := found;
    end procedure;

    -- A do-not-care bit is driven with 0.
    procedure drive(signal target : out std_logic_vector; place : natural) is
      constant at : span := stimulus_span(place);
      constant width : positive := target'length;
      variable bits : std_logic_vector(0 to width - 1) := (others => '0');
    begin
      if at.last - at.first + 1 /= width then
        is_well_formed := false;
        return;
      end if;
      for i in bits'range loop
        case stimulus(at.first + i) is
          when '1' => bits(i) := '1';
          when '0' | '-' => null;
          when others => is_well_formed := false;
        end case;
      end loop;
      target <= bits;
    end procedure;

    function accepts(token, shown : string) return boolean is
    begin
      if token = shown then
        return true;
      end if;
      for i in token'range loop
        if token(i) /= '-' then
          return false;
        end if;
      end loop;
      return token'length = shown'length;
    end function;

    -- One port against `count` columns of the row, from `first` on. Unknown bits never pass.
    procedure check(port_name : string; value : std_logic_vector; first, count : natural) is
      constant shown : string := to_string(value);
      variable accepted : boolean := count = 0;
      variable expected : line;
    begin
      for i in first to first + count - 1 loop
        accepted := accepted or accepts(
            response(response_span(i).first to response_span(i).last), shown);
      end loop;
      if accepted and not is_x(value) then
        return;
      end if;
      for i in first to first + count - 1 loop
        if i > first then
          write(expected, string'(" or "));
        end if;
        write(expected, response(response_span(i).first to response_span(i).last));
      end loop;
      if count = 0 then
        write(expected, string'("known bits"));
      end if;
      mismatch(port_name & " is " & shown & ", expected " & expected.all);
      deallocate(expected);
    end procedure;

  begin
    open_file(stimuli, "@name@_xIn.stm", read_mode);
    open_file(responses, "@name@_xOut.stm", read_mode);
)";

constexpr std::string_view kRowStart = R"(
    for i in 1 to @resetCycles@ loop
      wait for 5 ns;
      unit_clk <= '1';
      wait for 5 ns;
      unit_clk <= '0';
    end loop;
    unit_reset <= '0';

    while not (endfile(stimuli) or endfile(responses)) loop
      row := row + 1;
      readline(stimuli, stimulus);
      readline(responses, response);
      split(stimulus, stimulus_span, stimulus_count);
      split(response, response_span, response_count);

      if stimulus_count /= stimulus_columns then
        mismatch("@name@_xIn.stm has " & integer'image(stimulus_count) & " columns, expected "
                 & integer'image(stimulus_columns));
        is_readable := false;
        exit;
      end if;
      is_well_formed := true;
@drives@      if not is_well_formed then
        mismatch("@name@_xIn.stm has a column that is no bit string of its port's width");
        is_readable := false;
        exit;
      end if;
      wait for 5 ns;

)";

// Valid travels with the data: it must come out exactly `latency` rows later.
constexpr std::string_view kValidCheck = R"(      if response_count < control_columns then
        mismatch("@name@_xOut.stm has no valid and channel column");
        is_readable := false;
        exit;
      end if;
      valid_history := @stimulusValid@(0) & valid_history(0 to latency - 1);
      check("@validPort@", @valid@, 0, 1);
      if @valid@(0) /= valid_history(latency) then
        mismatch("@validPort@ is not the valid bit that went in " & integer'image(latency)
                 & " rows before");
      end if;
      is_valid := response(response_span(0).first) = '1';
      if is_valid then
        check("@channelPort@", @channel@, 1, 1);
      end if;
)";

constexpr std::string_view kNoValidCheck = R"(      is_valid := row > latency;
)";

constexpr std::string_view kColumns = R"(
      if is_valid then
        alternatives := usual_alternatives;
        if response_count /= control_columns + data_columns then
          if data_ports = 1 and response_count > control_columns
              and response_count <= most_columns then
            alternatives := (others => response_count - control_columns);
          elsif response_count = control_columns + 2 * data_ports then
            alternatives := (others => 2);
          else
            mismatch("@name@_xOut.stm has " & integer'image(response_count)
                     & " columns, expected " & integer'image(control_columns + data_columns));
            is_readable := false;
        exit;
          end if;
        end if;
        compared := compared + 1;
        column := control_columns;
)";

constexpr std::string_view kRowEnd = R"(
      unit_clk <= '1';
      wait for 5 ns;
      unit_clk <= '0';
    end loop;

    if is_readable and endfile(stimuli) /= endfile(responses) then
      row := row + 1;
      if endfile(stimuli) then
        mismatch("@name@_xIn.stm has ended, @name@_xOut.stm has not");
      else
        mismatch("@name@_xOut.stm has ended, @name@_xIn.stm has not");
      end if;
    end if;
    finish_run;
  end process;

end architecture;
)";

}  // namespace

std::string vhdlBench(const BenchPlan& plan) {
  const BenchSettings& settings = plan.settings;
  const int controls = static_cast<int>(plan.firstData);
  std::string signals =
      "  signal unit_clk : std_logic := '0';\n"
      "  signal unit_reset : std_logic := '1';\n";
  std::string map =
      fmt::format("    {} => unit_clk,\n    {} => unit_reset", plan.clock, plan.reset);
  std::string drives, checks, shown, alternatives;
  const auto connect = [&](const BenchPort& port, std::string_view start) {
    signals += fmt::format("  signal unit_{} : std_logic_vector({} downto 0){};\n", port.name,
                           port.width - 1, start);
    map += fmt::format(",\n    {0} => unit_{0}", port.name);
  };
  for (std::size_t i = 0; i < plan.inputs.size(); ++i) {
    connect(plan.inputs[i], " := (others => '0')");
    drives += fmt::format("      drive(unit_{}, {});\n", plan.inputs[i].name, i);
  }
  for (std::size_t i = 0; i < plan.outputs.size(); ++i) {
    const BenchPort& port = plan.outputs[i];
    connect(port, "");
    shown += fmt::format("      write(result, \" \" & to_string(unit_{}) & \" \");\n", port.name);
    if (i < plan.firstData) continue;
    const std::size_t data = i - plan.firstData;
    checks += fmt::format(
        "        check(\"{0}\", unit_{0}, column, alternatives({1}));\n"
        "        column := column + alternatives({1});\n",
        port.name, data);
    alternatives += fmt::format("{}{} => {}", data > 0 ? ", " : "", data, port.alternatives);
  }
  const bool toFile = settings.resultsToFile;
  const std::map<std::string, std::string> words{
      {"name", plan.design.name},
      {"bench", plan.bench},
      {"entity", plan.entity},
      {"map", map},
      {"warnOnly", settings.mismatchIsError ? "false" : "true"},
      {"latency", std::to_string(settings.latency)},
      {"told", std::to_string(kToldMismatches)},
      {"resetCycles", std::to_string(kResetCycles)},
      {"dataPorts", std::to_string(plan.dataPorts())},
      {"stimulusColumns", std::to_string(plan.inputs.size())},
      {"controlColumns", std::to_string(controls)},
      {"dataColumns", std::to_string(plan.dataColumns)},
      {"mostColumns", std::to_string(controls + plan.mostColumns)},
      {"alternatives", alternatives},
      {"resultsFile", toFile ? ", results" : ""},
      {"resultsLine", toFile ? ", result" : ""},
      {"drives", drives},
      {"validHistory", controls > 0 ? kValidHistory : ""},
      {"stimulusValid", controls > 0 ? "unit_" + plan.inputs[0].name : ""},
      {"validPort", controls > 0 ? plan.outputs[0].name : ""},
      {"valid", controls > 0 ? "unit_" + plan.outputs[0].name : ""},
      {"channelPort", controls > 0 ? plan.outputs[1].name : ""},
      {"channel", controls > 0 ? "unit_" + plan.outputs[1].name : ""},
  };
  std::string text = headerLines(plan.design.header, "--") + filled(kHead, words) + signals +
                     filled(kDeclarations, words);
  if (toFile)
    text +=
        fmt::format("    open_file(results, \"{}_xOut.stm.sim\", write_mode);\n", plan.design.name);
  for (const BenchPort& port : plan.outputs)
    if (&port >= &plan.outputs[plan.firstData] && port.alternatives == 0)
      text += fmt::format(
          "    write(output, \"{} is not checked: it has no accepted values\" & LF);\n", port.name);
  text += filled(kRowStart, words) + filled(controls > 0 ? kValidCheck : kNoValidCheck, words) +
          filled(kColumns, words) + checks + "      end if;\n";
  if (toFile) text += shown + "      writeline(results, result);\n";
  return text + filled(kRowEnd, words);
}

}  // namespace hdl
