#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "backend/hdl/bench.h"
#include "backend/hdl/text.h"

namespace hdl {

namespace {

constexpr std::string_view kHead =
    R"(// Replays @name@_xIn.stm, one row a clock cycle, and compares what the unit shows just before each
// clock edge with the same row of @name@_xOut.stm. Reads both from the current folder.
module @bench@;

  localparam warn_only = @warnOnly@;
  localparam latency = @latency@;
  localparam told_mismatches = @told@;
  localparam data_ports = @dataPorts@;
  localparam stimulus_columns = @stimulusColumns@;
  localparam control_columns = @controlColumns@;
  localparam data_columns = @dataColumns@;
  localparam most_columns = @mostColumns@;

  reg unit_clk;
  reg unit_reset;
)";

constexpr std::string_view kDeclarations = R"(
  @entity@ unit (
@map@
  );

  // Texts stand right-aligned behind zero bytes.
  reg [8*@stimulusLength@-1:0] stimulus, stimulus_copy;
  reg [8*@responseLength@-1:0] response;
  reg [8*@tokenLength@-1:0] token [0:@lastToken@];
  reg [8*@tokenLength@-1:0] shown;
  reg [@widest@-1:0] bits;
  reg [latency:0] valid_history;
  integer stimuli, responses, results;
  integer stimulus_length, response_length, stimulus_count, response_count;
  integer row, compared, mismatches, column, i, alternatives, row_alternatives;
  reg is_valid, is_well_formed, is_readable;

  // Counts a mismatch; true when it is to be told.
  function count_mismatch;
    input unused;
    begin
      mismatches = mismatches + 1;
      count_mismatch = mismatches <= told_mismatches;
      if (mismatches == told_mismatches + 1) $display("further mismatches are only counted");
      if (count_mismatch) begin
        if (warn_only) $write("warning: ");
        $write("row %0d: ", row);
      end
    end
  endfunction

  task finish_run;
    input [31:0] rows;
    begin
      if (rows == 0) $display("no valid row was compared");
      if (warn_only && mismatches > 0)
        $display("mismatches only warn, as this bench was generated");
      $display("%0d rows compared, %0d mismatches", rows, mismatches);
      if (mismatches > 0 && !warn_only) fail;
      $finish;
    end
  endtask

  // Ends the run; with a status other than 0 where the simulator can give one.
  task fail;
    begin
`ifdef __ICARUS__
      $finish_and_return(1);
`elsif VERILATOR
      $stop;
`else
      $finish;
`endif
    end
  endtask

  // The bits of a stimulus column; a do-not-care bit is driven with 0.
  task read_bits;
    input integer index;
    input integer width;
    begin
      bits = 0;
      for (i = 0; i < width; i = i + 1)
        case (token[index][8*i +: 8])
          "0", "-": bits[i] = 1'b0;
          "1": bits[i] = 1'b1;
          default: is_well_formed = 1'b0;
        endcase
      if ((token[index] >> (8 * width)) != 0) is_well_formed = 1'b0;
    end
  endtask

  // One port against `count` columns of the row, from `first` on. Unknown bits never pass.
  task check;
    input [8*@nameLength@-1:0] port_name;
    input is_unknown;
    input [8*@tokenLength@-1:0] dont_care;
    input integer first;
    input integer count;
    reg accepted;
    begin
      accepted = count == 0;
      for (i = first; i < first + count; i = i + 1)
        if (token[i] === shown || token[i] === dont_care) accepted = 1'b1;
      if (!accepted || is_unknown)
        if (count_mismatch(1'b0)) begin
          $write("%0s is %0s, expected ", port_name, shown);
          if (count == 0) $write("known bits");
          for (i = first; i < first + count; i = i + 1) begin
            if (i > first) $write(" or ");
            $write("%0s", token[i]);
          end
          $display("");
        end
    end
  endtask

  initial begin
    unit_clk = 1'b0;
    unit_reset = 1'b1;
    valid_history = 0;
    row = 0;
    compared = 0;
    mismatches = 0;
    is_readable = 1'b1;
@starts@    stimuli = $fopen("@name@_xIn.stm", "r");
    responses = $fopen("@name@_xOut.stm", "r");
    results = 1;
)";

constexpr std::string_view kResults = R"(    results = $fopen("@name@_xOut.stm.sim", "w");
)";

constexpr std::string_view kRowStart =
    R"(    if (stimuli == 0 || responses == 0 || results == 0) begin
      if (stimuli == 0) $display("cannot open @name@_xIn.stm");
      if (responses == 0) $display("cannot open @name@_xOut.stm");
      if (results == 0) $display("cannot open @name@_xOut.stm.sim");
      $display("0 rows compared, 1 mismatches");
      fail;
    end
@unchecked@
    for (i = 0; i < @resetCycles@; i = i + 1) begin
      #5 unit_clk = 1'b1;
      #5 unit_clk = 1'b0;
    end
    unit_reset = 1'b0;

    stimulus_length = $fgets(stimulus, stimuli);
    response_length = $fgets(response, responses);
    while (is_readable && stimulus_length != 0 && response_length != 0) begin
      row = row + 1;
      is_well_formed = 1'b1;
      stimulus_count = $sscanf(stimulus, "@bitsFormat@"@inputs@);
      $sformat(stimulus_copy, "@rowFormat@\n"@inputs@);
      if (stimulus_copy !== stimulus) begin
        // Not the plain form: column by column.
        stimulus_count = $sscanf(stimulus, "@textFormat@"@tokens@);
        if (stimulus_count != stimulus_columns) begin
          is_readable = 1'b0;
          if (count_mismatch(1'b0))
            $display("@name@_xIn.stm has not the %0d columns expected", stimulus_columns);
        end else begin
@drives@          if (!is_well_formed) begin
            is_readable = 1'b0;
            if (count_mismatch(1'b0))
              $display("@name@_xIn.stm has a column that is no bit string of its port's width");
          end
        end
      end
      #5;
      response_count = $sscanf(response, "@textFormat@"@tokens@);
      if (response_count < 0) response_count = 0;

)";

// Valid travels with the data: it must come out exactly `latency` rows later.
constexpr std::string_view kValidCheck = R"(      is_valid = 1'b0;
      if (is_readable && response_count < control_columns) begin
        is_readable = 1'b0;
        if (count_mismatch(1'b0)) $display("@name@_xOut.stm has no valid and channel column");
      end else if (is_readable) begin
        valid_history = (valid_history << 1) | @stimulusValid@;
        $sformat(shown, "%b", @valid@);
        check("@validPort@", ^@valid@ === 1'bx, "-", 0, 1);
        if (@valid@ !== valid_history[latency])
          if (count_mismatch(1'b0))
            $display("@validPort@ is not the valid bit that went in %0d rows before", latency);
        is_valid = token[0] === "1";
        $sformat(shown, "%b", @channel@);
        if (is_valid) check("@channelPort@", ^@channel@ === 1'bx, "--------", 1, 1);
      end
)";

constexpr std::string_view kNoValidCheck = R"(      is_valid = is_readable && row > latency;
)";

constexpr std::string_view kColumns = R"(
      row_alternatives = -1;
      if (is_valid && response_count != control_columns + data_columns) begin
        if (data_ports == 1 && response_count > control_columns && response_count <= most_columns)
          row_alternatives = response_count - control_columns;
        else if (response_count == control_columns + 2 * data_ports)
          row_alternatives = 2;
        else begin
          is_readable = 1'b0;
          is_valid = 1'b0;
          if (count_mismatch(1'b0))
            $display("@name@_xOut.stm has %0d columns, expected %0d", response_count,
                     control_columns + data_columns);
        end
      end
      if (is_valid) begin
        compared = compared + 1;
        column = control_columns;
@checks@      end
)";

constexpr std::string_view kRowEnd = R"(
      unit_clk = 1'b1;
      #5 unit_clk = 1'b0;
      if (is_readable) begin
        stimulus_length = $fgets(stimulus, stimuli);
        response_length = $fgets(response, responses);
      end
    end

    if (is_readable && stimulus_length != response_length)
      if (stimulus_length == 0 || response_length == 0) begin
        row = row + 1;
        if (count_mismatch(1'b0)) begin
          if (stimulus_length == 0)
            $display("@name@_xIn.stm has ended, @name@_xOut.stm has not");
          else
            $display("@name@_xOut.stm has ended, @name@_xIn.stm has not");
        end
      end
    finish_run(compared);
  end

endmodule
)";

std::string repeated(std::string_view text, int count, std::string_view between) {
  std::string result;
  for (int i = 0; i < count; ++i) {
    if (i > 0) result += between;
    result += text;
  }
  return result;
}

}  // namespace

std::string verilogBench(const BenchPlan& plan) {
  const BenchSettings& settings = plan.settings;
  const int controls = static_cast<int>(plan.firstData);
  // One more column than a row may have, so that too long a row is seen.
  const int tokens =
      std::max(static_cast<int>(plan.inputs.size()), controls + plan.mostColumns) + 1;
  std::string signals, map, starts, drives, checks, inputs, outputs, unchecked, tokenList;
  map = fmt::format("    .{}(unit_clk),\n    .{}(unit_reset)", plan.clock, plan.reset);
  int widest = 1, stimulusLength = 16, responseLength = 16;
  std::size_t nameLength = 1;
  for (std::size_t i = 0; i < plan.inputs.size(); ++i) {
    const BenchPort& port = plan.inputs[i];
    signals += fmt::format("  reg [{}:0] unit_{};\n", port.width - 1, port.name);
    map += fmt::format(",\n    .{0}(unit_{0})", port.name);
    starts += fmt::format("    unit_{} = {}'b0;\n", port.name, port.width);
    drives += fmt::format("          read_bits({}, {});\n          unit_{} = bits[{}:0];\n", i,
                          port.width, port.name, port.width - 1);
    inputs += fmt::format(", unit_{}", port.name);
    stimulusLength += port.width + 2;
    widest = std::max(widest, port.width);
  }
  for (std::size_t i = 0; i < plan.outputs.size(); ++i) {
    const BenchPort& port = plan.outputs[i];
    signals += fmt::format("  wire [{}:0] unit_{};\n", port.width - 1, port.name);
    map += fmt::format(",\n    .{0}(unit_{0})", port.name);
    outputs += fmt::format(", unit_{}", port.name);
    widest = std::max(widest, port.width);
    nameLength = std::max(nameLength, port.name.size());
    responseLength += (port.width + 2) * std::max(port.alternatives, 2);
    if (i < plan.firstData) continue;
    checks += fmt::format(
        "        alternatives = row_alternatives < 0 ? {1} : row_alternatives;\n"
        "        $sformat(shown, \"%b\", unit_{0});\n"
        "        check(\"{0}\", ^unit_{0} === 1'bx, {{{2}{{\"-\"}}}}, column, alternatives);\n"
        "        column = column + alternatives;\n",
        port.name, port.alternatives, port.width);
    if (port.alternatives == 0)
      unchecked += fmt::format("    $display(\"{} is not checked: it has no accepted values\");\n",
                               port.name);
  }
  for (int i = 0; i < tokens; ++i) tokenList += fmt::format(", token[{}]", i);
  const int inputCount = static_cast<int>(plan.inputs.size());
  const int outputCount = static_cast<int>(plan.outputs.size());
  const auto control = [&](const std::vector<BenchPort>& ports, std::size_t index) {
    return controls > 0 ? ports[index].name : std::string();
  };
  const std::map<std::string, std::string> words{
      {"name", plan.design.name},
      {"bench", plan.bench},
      {"entity", plan.entity},
      {"map", map},
      {"warnOnly", settings.mismatchIsError ? "0" : "1"},
      {"latency", std::to_string(settings.latency)},
      {"told", std::to_string(kToldMismatches)},
      {"resetCycles", std::to_string(kResetCycles)},
      {"dataPorts", std::to_string(plan.dataPorts())},
      {"stimulusColumns", std::to_string(inputCount)},
      {"controlColumns", std::to_string(controls)},
      {"dataColumns", std::to_string(plan.dataColumns)},
      {"mostColumns", std::to_string(controls + plan.mostColumns)},
      {"stimulusLength", std::to_string(stimulusLength)},
      {"responseLength", std::to_string(responseLength)},
      {"tokenLength", std::to_string(widest + 1)},
      {"lastToken", std::to_string(tokens - 1)},
      {"widest", std::to_string(widest)},
      {"nameLength", std::to_string(nameLength)},
      {"starts", starts},
      {"unchecked", unchecked},
      {"bitsFormat", repeated("%b", inputCount, " ")},
      {"rowFormat", repeated(" %b ", inputCount, "")},
      {"textFormat", repeated("%s", tokens, " ")},
      {"inputs", inputs},
      {"tokens", tokenList},
      {"drives", drives},
      {"checks", checks},
      {"stimulusValid", "unit_" + control(plan.inputs, 0)},
      {"validPort", control(plan.outputs, 0)},
      {"valid", "unit_" + control(plan.outputs, 0)},
      {"channelPort", control(plan.outputs, 1)},
      {"channel", "unit_" + control(plan.outputs, 1)},
  };
  std::string text = headerLines(plan.design.header, "//") + filled(kHead, words) + signals +
                     filled(kDeclarations, words);
  if (settings.resultsToFile) text += filled(kResults, words);
  text += filled(kRowStart, words) + filled(controls > 0 ? kValidCheck : kNoValidCheck, words) +
          filled(kColumns, words);
  if (settings.resultsToFile)
    text += fmt::format("      $fdisplay(results, \"{}\"{});\n", repeated(" %b ", outputCount, ""),
                        outputs);
  return text + filled(kRowEnd, words);
}

}  // namespace hdl
