#!/usr/bin/env python3
"""Says how far our own figures agree with synthesis, for every operator, format and clock.

  agreement.py PROGRAM [--quick] [--spread] [--clocks 100,200,300,400] [--words TEXT] [--jobs N] >TABLE

Each row is a unit for TarnV, without valid, channel and data resets, synthesised by flow x of
tools/synth_flow.sh. A row is a miss when
  ns     the cells of flow x, or our own longest stage, take longer than the period (of the clock asked
         for or, with a warning, of the one that it names)
  LUT    our estimate is more than 20 % and more than 8 look-up tables away
  DSP    or blocks are counted otherwise than flow x does, by more than 20 %
--quick takes the middle format only, --spread one word of several that share a circuit, --words lines
that contain TEXT. The last line counts misses;
the status is 1 when there are any.
"""
import argparse
import concurrent.futures
import json
import os
import re
import subprocess
import sys
import tempfile

COMMON = "-lang Verilog -target TarnV -noChanValid -dontCareOnReset"


def floating():
    """Words of floating-point units, {} for wE wF."""
    for operation in ("FPAdd", "FPSub"):
        for path in ("", "DualPath"):
            for form in ("", "InFPLib", "InFPLibX", "InFPLibY", "InFPLibOutFPLib",
                         "InFPLibXOutFPLib", "InFPLibYOutFPLib"):
                if path and not form:
                    continue
                yield f"-correctRounding {operation}{path}{form} {{}}"
        yield f"-correctRounding {operation}Expert {{}} 1 1 0"
    for word in ("FPAddSub", "FPFusedAddSub", "FPMul", "FPMulOutFPLib", "FPAbs", "FPMultAdd",
                 "FPMultSub", "FPMultAcc", "FPAccHard"):
        yield f"-correctRounding {word} {{}}"
    yield "-correctRounding FPAddSubExpert {} 1 1 0"
    yield "-correctRounding FPMulExpert {} {} {} 1"
    yield "FPAdd {}"
    yield "-correctRounding -subnormals 1 FPAdd {}"
    yield "-correctRounding -subnormals 1 FPMul {}"
    yield "-correctRounding -subnormals 1 FPMultAdd {}"
    yield "-correctRounding FPAcc {} -20 20 15"


def integer():
    """Words of integer units, {} for the width."""
    for sign in ("", "S"):
        for multi in ("", "Multi"):
            for growth in ("", "BitGrowth"):
                for expert in ("", "Expert"):
                    further = " 6" * bool(multi) + " 0" * bool(expert)
                    yield f"LongAdd{sign}{multi}{growth}{expert} {{}}{further}"
    for word in ("MultSchoolbook", "MultSchoolbookS", "Squarer", "ModularMultBarrett"):
        yield f"{word} {{}}"
    yield "MultSchoolbookExpert {} 1 24 0"
    yield "IntCtPop {} 0"
    yield "RightShiftNoSticky {} {} 0"


SHARED = ("FPSub", "LongAddS", "InFPLibX", "InFPLibY", "Expert", "FPMultSub", "FPAddInFPLib {}",
          "DualPathInFPLib {}")


def lines(quick, spread):
    for words, formats in ((floating(), ["5 10", "8 23", "11 52"]), (integer(), ["16", "32", "64"])):
        for line in words:
            if spread and any(word in line for word in SHARED):
                continue
            for parameters in formats[1:2] if quick else formats:
                if "FPMultAcc" in line and parameters == "11 52":
                    continue
                yield line.replace("{}", parameters)


def row(program, flow, words, clock):
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run([program, *COMMON.split(), "-frequency", str(clock), *words.split()],
                             cwd=folder, capture_output=True, text=True, check=False)
        try:
            with open(os.path.join(folder, "topModel/topModel.json"), encoding="utf-8") as record:
                ours = json.load(record)
        except OSError:
            return [f"{words} @{clock}", "not generated: " + run.stderr.strip()[:100]], True
        text = subprocess.run([flow, "-top", "topModel", "-flows", "x", "-limit", "900",
                               os.path.join(folder, "topModel/topModel.v")],
                              capture_output=True, text=True, check=False).stdout
    cells = [cell.strip() for cell in text.strip().strip("|").split("|")][7:14]
    named = re.search(r"built for ([0-9.]+) MHz", run.stdout + run.stderr)
    period = max(1000 / clock, ours["period_ps"] / 1000 if named else 0)
    stage = ours["longest_stage"]["delay_ps"] / 1000
    mine = ours["resources"]
    try:
        lut, dsp, ram, ns = int(cells[0]), int(cells[4]), int(cells[5]), float(cells[6])
    except (ValueError, IndexError):
        return [f"{words} @{clock}", "not synthesised: " + text.strip()[:100]], True
    misses = []
    if ns > period + 0.05 or stage > period + 0.001:
        misses.append("ns")
    if abs(mine["lut"] - lut) > max(8, 0.2 * lut):
        misses.append("LUT")
    if abs(mine["dsp"] - dsp) > 0.2 * dsp or abs(mine["ram_blocks"] - ram) > 0.2 * ram:
        misses.append("DSP")
    return [f"`{words}`", clock, f"{period:.2f}", max(ours["latency"]), f"{stage:.2f}", f"{ns:.1f}",
            mine["lut"], lut, mine["dsp"], dsp, ram, mine["register_bits"],
            " ".join(misses)], bool(misses)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--spread", action="store_true")
    parser.add_argument("--clocks", default="100,200,300,400")
    parser.add_argument("--words", default="")
    parser.add_argument("--jobs", type=int, default=2)
    arguments = parser.parse_args()
    program = os.path.realpath(arguments.program)
    flow = os.path.join(os.path.dirname(os.path.realpath(__file__)), "synth_flow.sh")
    asked = [(line, int(clock)) for line in lines(arguments.quick, arguments.spread) if arguments.words in line
             for clock in arguments.clocks.split(",")]
    print("| line | MHz | period | cycles | our ns | ns | our LUT | LUT | our DSP | DSP | RAM18 | "
          "register bits | misses |")
    print("|---|" + "--:|" * 11 + "---|")
    missed = 0
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for columns, isMiss in pool.map(lambda a: row(program, flow, *a), asked):
            print("| " + " | ".join(str(column) for column in columns) + " |", flush=True)
            missed += isMiss
    print(f"\n{missed} of {len(asked)} rows miss.")
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
