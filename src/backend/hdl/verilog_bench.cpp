#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "backend/hdl/bench.h"
#include "backend/hdl/text.h"

namespace hdl {

namespace {

constexpr std::string_view kHead =
    R"(// Replays @name@_xIn.stm, one row a clock cycle, and compares what the unit shows just before
// each clock edge with the same row of @responses@.@enableComment@
// Reads all from the current folder.
module @bench@;

  localparam warn_only = @warnOnly@;
  localparam told_mismatches = @told@;
  localparam stimulus_columns = @stimulusColumns@;
  localparam control_columns = @controlColumns@;

  reg unit_clk;
  reg unit_reset;
)";

constexpr std::string_view kDeclarations = R"(
  @entity@ unit (
@map@
  );

  // Texts stand right-aligned behind zero bytes.
  reg [8*@stimulusLength@-1:0] stimulus, stimulus_copy;
  reg [8*@responseLength@-1:0] @responseLines@response_copy;
  reg [8*@tokenLength@-1:0] token [0:@lastToken@];
  reg [8*@tokenLength@-1:0] shown;
  reg [@widest@-1:0] bits;
@history@  integer stimuli, stimulus_length, stimulus_count, response_count;
@handles@  integer row, @advanced@compared, mismatches, column, i, alternatives, row_alternatives;
  reg is_valid, is_same, is_well_formed, is_readable;

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

  // How many columns of this row belong to each port: as many as usual (-1), or the same number for
  // each. `most` is what a row of one port may have.
  task choose_alternatives;
    input [8*@fileLength@-1:0] file_name;
    input integer ports;
    input integer usual;
    input integer most;
    begin
      row_alternatives = -1;
      if (response_count != control_columns + usual) begin
        if (ports == 1 && response_count > control_columns &&
            response_count <= control_columns + most)
          row_alternatives = response_count - control_columns;
        else if (response_count == control_columns + 2 * ports)
          row_alternatives = 2;
        else begin
          is_readable = 1'b0;
          if (count_mismatch(1'b0))
            $display("%0s has %0d columns, expected %0d", file_name, response_count,
                     control_columns + usual);
        end
      end
    end
  endtask

  task cannot_open;
    input [8*@fileLength@-1:0] file_name;
    begin
      $display("cannot open %0s", file_name);
      is_readable = 1'b0;
    end
  endtask

  initial begin
    unit_clk = 1'b0;
    unit_reset = 1'b1;
@startHistory@    row = 0;
    compared = 0;
    mismatches = 0;
    is_readable = 1'b1;
    // Later than the start, so that combinational logic sees the inputs change.
    #1;
@starts@    stimuli = $fopen("@name@_xIn.stm", "r");
    if (stimuli == 0) cannot_open("@name@_xIn.stm");
@opens@)";

constexpr std::string_view kOpen = R"(    @handle@ = $fopen("@file@", "@mode@");
    if (@handle@ == 0) cannot_open("@file@");
)";

constexpr std::string_view kRowStart =
    R"(    if (!is_readable) begin
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
@reads@@while@      row = row + 1;
      is_well_formed = 1'b1;
      stimulus_count = $sscanf(stimulus, "@bitsFormat@"@inputs@);
      $sformat(stimulus_copy, "@rowFormat@\n"@inputs@);
      if (stimulus_copy !== stimulus || ^{@inputBits@} === 1'bx) begin
        // Not the plain form: column by column.
        stimulus_count = $sscanf(stimulus, "@textFormat@"@tokens@);
        if (stimulus_count != stimulus_columns@andNoEnable@) begin
          is_readable = 1'b0;
          if (count_mismatch(1'b0))
            $display("@name@_xIn.stm has not the %0d columns expected",
                     stimulus_columns@orEnable@);
        end else begin
@drives@          if (!is_well_formed) begin
            is_readable = 1'b0;
            if (count_mismatch(1'b0))
              $display("@name@_xIn.stm has a column that is no bit string of its port's width");
          end
        end
      end
      #5;
@newValid@)";

// A row without the column advances the unit.
constexpr std::string_view kDriveEnable = R"(          @enable@ = 1'b1;
          if (stimulus_count > stimulus_columns) begin
            if (token[stimulus_columns] === "0") @enable@ = 1'b0;
            else if (token[stimulus_columns] !== "1") is_well_formed = 1'b0;
          end
)";

// One response file.
constexpr std::string_view kFile = R"(
      is_valid = 1'b0;
      is_same = 1'b0;
@sameCheck@@historyCheck@      if (is_readable && !is_same) begin
        response_count = $sscanf(response@mark@, "@textFormat@"@tokens@);
        if (response_count < 0) response_count = 0;
@isValid@        if (is_valid)
          choose_alternatives("@file@", @dataPorts@, @dataColumns@, @mostColumns@);
        if (is_valid && is_readable) begin
@count@          column = control_columns;
@checks@        end
      end
)";

// The usual row, in which every column is the one accepted value.
constexpr std::string_view kSameCheck =
    R"(      $sformat(response_copy, "@shownFormat@\n"@outputs@);
      if (is_readable && response_copy === response@mark@) begin
        is_same = 1'b1;
@countSame@      end
)";

// Valid travels with the data: it must come out exactly `latency` rows later.
constexpr std::string_view kHistoryCheck =
    R"(      if (is_readable && @valid@ !== valid_history[@latency@])
        if (count_mismatch(1'b0))
          $display("@validPort@ is not the valid bit that went in @latency@ rows before");
)";

constexpr std::string_view kValidCheck = R"(        if (response_count < control_columns) begin
          is_readable = 1'b0;
          if (count_mismatch(1'b0)) $display("@file@ has no valid and channel column");
        end else begin
          $sformat(shown, "%b", @valid@);
          check("@validPort@", ^@valid@ === 1'bx, "-", 0, 1);
          is_valid = token[0] === "1";
          $sformat(shown, "%b", @channel@);
          if (is_valid) check("@channelPort@", ^@channel@ === 1'bx, "--------", 1, 1);
        end
)";

constexpr std::string_view kRowEnd = R"(
      unit_clk = 1'b1;
      #5 unit_clk = 1'b0;
@rowEnd@      if (is_readable) begin
        stimulus_length = $fgets(stimulus, stimuli);
@readsInside@      end
    end

    row = row + 1;
@lengthChecks@    finish_run(compared);
  end

endmodule
)";

// All files must have as many rows.
constexpr std::string_view kLengthCheck =
    R"(    if (is_readable && (stimulus_length == 0) != (response_length@mark@ == 0))
      if (count_mismatch(1'b0)) begin
        if (stimulus_length == 0) $display("@name@_xIn.stm has ended, @file@ has not");
        else $display("@file@ has ended, @name@_xIn.stm has not");
      end
)";

std::string repeated(std::string_view text, std::size_t count, std::string_view between) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) result += between;
    result += text;
  }
  return result;
}

// What is printed once for each response file.
struct FileTexts {
  std::string handles, lines, opens, reads, readsInside, notEnded, rows, lengthChecks;
  int longestLine = 0;  // characters

  // `words`: of the whole bench.
  void add(const BenchPlan& plan, const ResponseFile& file,
           std::map<std::string, std::string> words) {
    const bool hasControls = plan.controls > 0, isFirst = &file == &plan.files.front();
    const auto port = [&](std::size_t index) -> const BenchPort& { return plan.outputs[index]; };
    std::string checks, shown;
    int length = 16;
    bool usualIsOne = true;
    const auto show = [&](std::size_t index) {
      shown += fmt::format(", unit_{}", port(index).name);
      length += (port(index).width + 2) * std::max(port(index).alternatives, 2);
    };
    if (hasControls) show(file.valid), show(file.channel);
    for (std::size_t i = file.firstData; i < file.firstData + file.dataPorts; ++i) {
      show(i);
      usualIsOne &= port(i).alternatives == 1;
      checks += fmt::format(
          "          alternatives = row_alternatives < 0 ? {1} : row_alternatives;\n"
          "          $sformat(shown, \"%b\", unit_{0});\n"
          "          check(\"{0}\", ^unit_{0} === 1'bx, {{{2}{{\"-\"}}}}, column, alternatives);\n"
          "          column = column + alternatives;\n",
          port(i).name, port(i).alternatives, port(i).width);
    }
    longestLine = std::max(longestLine, length);
    const std::string isFilled =
        fmt::format("{} {}", plan.hasEnable() ? "advanced >=" : "row >", file.latency);
    const auto control = [&](std::size_t index) { return hasControls ? port(index).name : ""; };
    words.insert({{"file", file.name},
                  {"mark", file.mark},
                  {"latency", std::to_string(file.latency)},
                  {"dataPorts", std::to_string(file.dataPorts)},
                  {"dataColumns", std::to_string(file.dataColumns)},
                  {"mostColumns", std::to_string(file.mostColumns)},
                  {"validPort", control(file.valid)},
                  {"valid", "unit_" + control(file.valid)},
                  {"channelPort", control(file.channel)},
                  {"channel", "unit_" + control(file.channel)},
                  {"checks", checks},
                  {"outputs", shown},
                  {"shownFormat", repeated(" %b ", plan.controls + file.dataPorts, "")}});
    words["count"] = isFirst ? "          compared = compared + 1;\n" : "";
    if (isFirst)
      words["countSame"] = fmt::format("        if ({}) compared = compared + 1;\n",
                                       hasControls ? words["valid"] : isFilled);
    else
      words["countSame"] = "";
    words["sameCheck"] = usualIsOne ? filled(kSameCheck, words) : "";
    words["historyCheck"] = hasControls ? filled(kHistoryCheck, words) : "";
    words["isValid"] = hasControls ? filled(kValidCheck, words)
                                   : fmt::format("        is_valid = {};\n", isFilled);
    const std::string read =
        fmt::format("response_length{0} = $fgets(response{0}, responses{0});\n", file.mark);
    const auto open = [&](const std::string& handle, const std::string& name, const char* mode) {
      opens += filled(kOpen, {{"handle", handle}, {"file", name}, {"mode", mode}});
    };
    lines += fmt::format("response{}, ", file.mark);
    handles += fmt::format("  integer response_length{0}, responses{0}", file.mark);
    open("responses" + file.mark, file.name, "r");
    reads += "    " + read;
    readsInside += "        " + read;
    notEnded += fmt::format(" && response_length{} != 0", file.mark);
    rows += filled(kFile, words);
    lengthChecks += filled(kLengthCheck, words);
    handles += plan.settings.resultsToFile ? fmt::format(", results{};\n", file.mark) : ";\n";
    if (!plan.settings.resultsToFile) return;
    open("results" + file.mark, file.name + ".sim", "w");
    rows += statement(
        6, fmt::format("$fdisplay(results{}, \"{}\"{});", file.mark, words["shownFormat"], shown));
  }
};

}  // namespace

std::string verilogBench(const BenchPlan& plan) {
  const bool hasControls = plan.controls > 0, hasEnable = plan.hasEnable();
  const std::size_t inputs = plan.inputs.size(), columns = inputs + (hasEnable ? 1 : 0);
  // One more column than a row may have, so that too long a row is seen.
  const std::size_t tokens =
      std::max(columns, plan.controls + static_cast<std::size_t>(plan.mostColumns)) + 1;
  std::string signals, map, starts, drives, driven, unchecked, tokenList;
  map = fmt::format("    .{}(unit_clk),\n    .{}(unit_reset)", plan.clock, plan.reset);
  const std::string enable = "unit_" + plan.enable;
  if (hasEnable) {
    signals += fmt::format("  reg {};\n", enable);
    map += fmt::format(",\n    .{}({})", plan.enable, enable);
    starts += fmt::format("    {} = 1'b1;\n", enable);
  }
  int widest = 1, stimulusLength = 20;
  std::size_t nameLength = 1;
  for (std::size_t i = 0; i < inputs; ++i) {
    const BenchPort& port = plan.inputs[i];
    signals += fmt::format("  reg [{}:0] unit_{};\n", port.width - 1, port.name);
    map += fmt::format(",\n    .{0}(unit_{0})", port.name);
    starts += fmt::format("    unit_{} = {}'b0;\n", port.name, port.width);
    drives += fmt::format("          read_bits({}, {});\n          unit_{} = bits[{}:0];\n", i,
                          port.width, port.name, port.width - 1);
    driven += fmt::format(", unit_{}", port.name);
    stimulusLength += port.width + 2;
    widest = std::max(widest, port.width);
  }
  if (hasEnable) {
    drives += filled(kDriveEnable, {{"enable", enable}});
    driven += ", " + enable;
  }
  for (const BenchPort& port : plan.outputs) {
    signals += fmt::format("  wire [{}:0] unit_{};\n", port.width - 1, port.name);
    map += fmt::format(",\n    .{0}(unit_{0})", port.name);
    widest = std::max(widest, port.width);
    nameLength = std::max(nameLength, port.name.size());
  }
  for (std::size_t i = 0; i < tokens; ++i) tokenList += fmt::format(", token[{}]", i);
  std::map<std::string, std::string> words{
      {"name", plan.design.name},
      {"bench", plan.bench},
      {"entity", plan.entity},
      {"map", map},
      {"responses", plan.responseNames()},
      {"enableComment", hasEnable ? "\n// The last column of a stimulus row is the enable." : ""},
      {"warnOnly", plan.settings.mismatchIsError ? "0" : "1"},
      {"told", std::to_string(kToldMismatches)},
      {"resetCycles", std::to_string(kResetCycles)},
      {"stimulusColumns", std::to_string(inputs)},
      {"orEnable", hasEnable ? " + 1" : ""},
      {"andNoEnable", hasEnable ? " && stimulus_count != stimulus_columns + 1" : ""},
      {"controlColumns", std::to_string(plan.controls)},
      {"advanced", !hasControls && hasEnable ? "advanced, " : ""},
      {"stimulusLength", std::to_string(stimulusLength)},
      {"tokenLength", std::to_string(widest + 1)},
      {"lastToken", std::to_string(tokens - 1)},
      {"widest", std::to_string(widest)},
      {"nameLength", std::to_string(nameLength)},
      {"fileLength", std::to_string(plan.files.back().name.size() + 4)},
      {"starts", starts},
      {"bitsFormat", repeated("%b", columns, " ")},
      {"rowFormat", repeated(" %b ", columns, "")},
      {"textFormat", repeated("%s", tokens, " ")},
      {"inputs", driven},
      {"inputBits", driven.substr(2)},
      {"tokens", tokenList},
      {"drives", drives},
      {"history", ""},
      {"startHistory", ""},
      {"newValid", ""},
  };
  std::string advance;
  if (hasControls) {
    words["history"] = fmt::format("  reg [{}:0] valid_history;\n", plan.longestLatency);
    words["startHistory"] = "    valid_history = 0;\n";
    words["newValid"] = fmt::format("      valid_history[0] = unit_{};\n", plan.inputs[0].name);
    advance = "valid_history = valid_history << 1;\n";
  } else if (hasEnable) {
    words["startHistory"] = "    advanced = 0;\n";
    advance = "advanced = advanced + 1;\n";
  }
  if (!advance.empty())
    words["rowEnd"] =
        fmt::format("      {}{}", hasEnable ? fmt::format("if ({}) ", enable) : "", advance);
  else
    words["rowEnd"] = "";
  FileTexts texts;
  for (const ResponseFile& file : plan.files) {
    texts.add(plan, file, words);
    for (std::size_t i = file.firstData; i < file.firstData + file.dataPorts; ++i)
      if (plan.outputs[i].alternatives == 0)
        unchecked +=
            fmt::format("    $display(\"{} is not checked: it has no accepted values\");\n",
                        plan.outputs[i].name);
  }
  words.insert(
      {{"responseLength", std::to_string(texts.longestLine)},
       {"responseLines", texts.lines},
       {"handles", texts.handles},
       {"opens", texts.opens},
       {"while", statement(4, fmt::format("while (is_readable && stimulus_length != 0{}) begin",
                                          texts.notEnded))},
       {"unchecked", unchecked},
       {"reads", texts.reads},
       {"readsInside", texts.readsInside},
       {"lengthChecks", texts.lengthChecks}});
  return headerLines(plan.design.header, "//") + filled(kHead, words) + signals +
         filled(kDeclarations, words) + filled(kRowStart, words) + texts.rows +
         filled(kRowEnd, words);
}

}  // namespace hdl
