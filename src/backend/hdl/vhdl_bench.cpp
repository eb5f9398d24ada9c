#include <fmt/format.h>

#include <map>

#include "backend/hdl/bench.h"
#include "backend/hdl/text.h"

namespace hdl {

namespace {

constexpr std::string_view kHead = R"(library ieee;
use ieee.std_logic_1164.all;
use std.textio.all;

-- Replays @name@_xIn.stm, one row a clock cycle, and compares what the unit shows just before
-- each clock edge with the same row of @responses@.@enableComment@
-- `folder` stands in front of the file names.
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
    constant told_mismatches : natural := @told@;
    constant stimulus_columns : positive := @stimulusColumns@;
    constant control_columns : natural := @controlColumns@;
    constant most_columns : positive := @mostColumns@;

    -- Where a column of the current row stands in its line.
    type span is record
      first, last : natural;
    end record;
    type span_list is array (natural range <>) of span;

    file stimuli : text;
@files@    variable status : file_open_status;
    variable stimulus, response, report_line@resultsLine@ : line;
    variable stimulus_span : span_list(0 to stimulus_columns@orEnable@ - 1);
    variable response_span : span_list(0 to most_columns - 1);
    variable stimulus_count, response_count, column : natural;
    variable row_alternatives : integer;
    variable row, @advanced@compared, mismatches : natural := 0;
    variable is_valid, is_well_formed : boolean;
    variable is_readable : boolean := true;
@history@
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
@checkControls@
    -- How many columns of this row belong to each port: as many as usual, or the same number for
    -- each. `most` is what a row of one port may have.
    procedure choose_alternatives(file_name : string; ports, usual, most : natural) is
      constant data_columns : integer := response_count - control_columns;
    begin
      row_alternatives := -1;
      if data_columns = usual then
        null;
      elsif ports = 1 and data_columns > 0 and data_columns <= most then
        row_alternatives := data_columns;
      elsif data_columns = 2 * ports then
        row_alternatives := 2;
      else
        mismatch(file_name & " has " & integer'image(response_count) & " columns, expected "
                 & integer'image(control_columns + usual));
        is_readable := false;
      end if;
    end procedure;

    -- A data port against the next columns of the row.
    procedure check_next(port_name : string; value : std_logic_vector; usual : natural) is
      variable count : natural := usual;
    begin
      if row_alternatives >= 0 then
        count := row_alternatives;
      end if;
      check(port_name, value, column, count);
      column := column + count;
    end procedure;

  begin
    open_file(stimuli, "@name@_xIn.stm", read_mode);
)";

constexpr std::string_view kRowStart = R"(
    for i in 1 to @resetCycles@ loop
      wait for 5 ns;
      unit_clk <= '1';
      wait for 5 ns;
      unit_clk <= '0';
    end loop;
    unit_reset <= '0';

@while@      row := row + 1;
      readline(stimuli, stimulus);
      split(stimulus, stimulus_span, stimulus_count);

      if stimulus_count /= stimulus_columns@andNoEnable@ then
        mismatch("@name@_xIn.stm has " & integer'image(stimulus_count) & " columns, expected "
                 & integer'image(stimulus_columns@orEnable@));
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
@newValid@)";

// A row without the column advances the unit.
constexpr std::string_view kDriveEnable = R"(      @enable@ <= '1';
      if stimulus_count > stimulus_columns then
        if stimulus(stimulus_span(stimulus_columns).first
                    to stimulus_span(stimulus_columns).last) = "0" then
          @enable@ <= '0';
        elsif stimulus(stimulus_span(stimulus_columns).first
                       to stimulus_span(stimulus_columns).last) /= "1" then
          is_well_formed := false;
        end if;
      end if;
)";

constexpr std::string_view kCheckControls = R"(
    -- Valid travels with the data: it must come out exactly `latency` rows@advancing@ later.
    procedure check_controls(file_name, valid_name : string; valid : std_logic_vector;
                             channel_name : string; channel : std_logic_vector;
                             latency : natural) is
    begin
      if response_count < control_columns then
        mismatch(file_name & " has no valid and channel column");
        is_readable := false;
        return;
      end if;
      check(valid_name, valid, 0, 1);
      if valid(0) /= valid_history(latency) then
        mismatch(valid_name & " is not the valid bit that went in " & integer'image(latency)
                 & " rows before");
      end if;
      is_valid := response(response_span(0).first) = '1';
      if is_valid then
        check(channel_name, channel, 1, 1);
      end if;
    end procedure;
)";

// One response file.
constexpr std::string_view kFile = R"(
      readline(responses@mark@, response);
      split(response, response_span, response_count);
@isValid@      if is_valid then
        choose_alternatives("@file@", @dataPorts@, @dataColumns@, @mostColumns@);
        exit when not is_readable;
@count@        column := control_columns;
@checks@      end if;
)";

constexpr std::string_view kRowEnd = R"(
      unit_clk <= '1';
      wait for 5 ns;
      unit_clk <= '0';
@rowEnd@    end loop;

    row := row + 1;
@lengths@@closeResults@    finish_run;
  end process;

end architecture;
)";

// All files must have as many rows.
constexpr std::string_view kLength =
    R"(    if is_readable and endfile(stimuli) /= endfile(responses@mark@) then
      if endfile(stimuli) then
        mismatch("@name@_xIn.stm has ended, @file@ has not");
      else
        mismatch("@file@ has ended, @name@_xIn.stm has not");
      end if;
    end if;
)";

// What is printed once for each response file.
struct FileTexts {
  std::string files, ended, opens, rows, lengths, closes;

  void add(const BenchPlan& plan, const ResponseFile& file) {
    const bool toFile = plan.settings.resultsToFile, hasControls = plan.controls > 0;
    const auto port = [&](std::size_t index) -> const BenchPort& { return plan.outputs[index]; };
    std::string checks, shown;
    const auto show = [&](std::size_t index) {
      shown += fmt::format("      write(result, \" \" & to_string(unit_{}) & \" \");\n",
                           port(index).name);
    };
    if (hasControls) show(file.valid), show(file.channel);
    for (std::size_t i = file.firstData; i < file.firstData + file.dataPorts; ++i) {
      checks += statement(8, fmt::format("check_next(\"{0}\", unit_{0}, {1});", port(i).name,
                                         port(i).alternatives));
      show(i);
    }
    std::string isValid = fmt::format("      is_valid := {} {};\n",
                                      plan.hasEnable() ? "advanced >=" : "row >", file.latency);
    if (hasControls)
      isValid = statement(6, fmt::format("check_controls(\"{0}\", \"{1}\", unit_{1}, \"{2}\", "
                                         "unit_{2}, {3});",
                                         file.name, port(file.valid).name, port(file.channel).name,
                                         file.latency)) +
                "      exit when not is_readable;\n";
    const bool isFirst = &file == &plan.files.front();
    const std::map<std::string, std::string> words{
        {"name", plan.design.name},
        {"file", file.name},
        {"mark", file.mark},
        {"dataPorts", std::to_string(file.dataPorts)},
        {"dataColumns", std::to_string(file.dataColumns)},
        {"mostColumns", std::to_string(file.mostColumns)},
        {"isValid", isValid},
        {"count", isFirst ? "        compared := compared + 1;\n" : ""},
        {"checks", checks},
    };
    files += fmt::format("    file responses{} : text;\n", file.mark);
    ended += fmt::format(" or endfile(responses{})", file.mark);
    opens += fmt::format("    open_file(responses{}, \"{}\", read_mode);\n", file.mark, file.name);
    rows += filled(kFile, words);
    lengths += filled(kLength, words);
    if (!toFile) return;
    files += fmt::format("    file results{} : text;\n", file.mark);
    opens +=
        fmt::format("    open_file(results{}, \"{}.sim\", write_mode);\n", file.mark, file.name);
    rows += shown + fmt::format("      writeline(results{}, result);\n", file.mark);
    closes += fmt::format("    file_close(results{});\n", file.mark);
  }
};

}  // namespace

std::string vhdlBench(const BenchPlan& plan) {
  const bool hasControls = plan.controls > 0, hasEnable = plan.hasEnable();
  std::string signals =
      "  signal unit_clk : std_logic := '0';\n"
      "  signal unit_reset : std_logic := '1';\n";
  std::string map =
      fmt::format("    {} => unit_clk,\n    {} => unit_reset", plan.clock, plan.reset);
  std::string drives, unchecked;
  const std::string enable = "unit_" + plan.enable;
  if (hasEnable) {
    signals += fmt::format("  signal {} : std_logic := '1';\n", enable);
    map += fmt::format(",\n    {} => {}", plan.enable, enable);
  }
  const auto connect = [&](const BenchPort& port, std::string_view start) {
    signals += fmt::format("  signal unit_{} : std_logic_vector({} downto 0){};\n", port.name,
                           port.width - 1, start);
    map += fmt::format(",\n    {0} => unit_{0}", port.name);
  };
  for (std::size_t i = 0; i < plan.inputs.size(); ++i) {
    connect(plan.inputs[i], " := (others => '0')");
    drives += fmt::format("      drive(unit_{}, {});\n", plan.inputs[i].name, i);
  }
  if (hasEnable) drives += filled(kDriveEnable, {{"enable", enable}});
  for (const BenchPort& port : plan.outputs) connect(port, "");
  FileTexts texts;
  for (const ResponseFile& file : plan.files) {
    texts.add(plan, file);
    for (std::size_t i = file.firstData; i < file.firstData + file.dataPorts; ++i)
      if (plan.outputs[i].alternatives == 0)
        unchecked += fmt::format(
            "    write(output, \"{} is not checked: it has no accepted values\" & LF);\n",
            plan.outputs[i].name);
  }
  std::string advance;
  if (hasControls)
    advance = "valid_history := '0' & valid_history(0 to longest_latency - 1);\n";
  else if (hasEnable)
    advance = "advanced := advanced + 1;\n";
  if (hasEnable)
    advance = fmt::format("      if {} = '1' then\n        {}      end if;\n", enable, advance);
  else if (!advance.empty())
    advance = "      " + advance;
  const std::string advancing = hasEnable ? " with enable" : "";
  std::map<std::string, std::string> words{
      {"name", plan.design.name},
      {"bench", plan.bench},
      {"entity", plan.entity},
      {"map", map},
      {"responses", plan.responseNames()},
      {"enableComment", hasEnable ? "\n-- The last column of a stimulus row is the enable." : ""},
      {"warnOnly", plan.settings.mismatchIsError ? "false" : "true"},
      {"told", std::to_string(kToldMismatches)},
      {"resetCycles", std::to_string(kResetCycles)},
      {"stimulusColumns", std::to_string(plan.inputs.size())},
      {"orEnable", hasEnable ? " + 1" : ""},
      {"andNoEnable", hasEnable ? " and stimulus_count /= stimulus_columns + 1" : ""},
      {"controlColumns", std::to_string(plan.controls)},
      {"mostColumns", std::to_string(plan.controls + static_cast<std::size_t>(plan.mostColumns))},
      {"advanced", !hasControls && hasEnable ? "advanced, " : ""},
      {"files", texts.files},
      {"while", statement(4, fmt::format("while not (endfile(stimuli){}) loop", texts.ended))},
      {"resultsLine", plan.settings.resultsToFile ? ", result" : ""},
      {"drives", drives},
      {"history", ""},
      {"checkControls", ""},
      {"newValid", ""},
      {"rowEnd", advance},
      {"lengths", texts.lengths},
      {"closeResults", texts.closes},
  };
  if (hasControls) {
    words["history"] = fmt::format(
        "    constant longest_latency : natural := {};\n"
        "    variable valid_history : std_logic_vector(0 to longest_latency) := (others => '0');\n",
        plan.longestLatency);
    words["checkControls"] = filled(kCheckControls, {{"advancing", advancing}});
    words["newValid"] = fmt::format("      valid_history(0) := unit_{}(0);\n", plan.inputs[0].name);
  }
  return headerLines(plan.design.header, "--") + filled(kHead, words) + signals +
         filled(kDeclarations, words) + texts.opens + unchecked + filled(kRowStart, words) +
         texts.rows + filled(kRowEnd, words);
}

}  // namespace hdl
