#!/usr/bin/env python3
"""Writes docs/cost.md: what the units cost by our own estimate and in synthesis.

  cost_table.py PROGRAM >docs/cost.md

Each row is generated for 300 MHz on TarnV without valid, channel and data resets, so that only the
operator counts, and synthesised by tools/synth_flow.sh in flow x.  Progress goes to standard error.
"""
import json
import os
import subprocess
import sys
import tempfile

COMMON = "-lang Verilog -target TarnV -frequency 300 -noChanValid -dontCareOnReset"
FORMATS = ["5 10", "8 23", "11 52"]

# Figures to beat: look-up tables, DSP blocks, cycles, ns (flow x of an open generator's circuits).
BEAT = {
    "-correctRounding FPAddInFPLibOutFPLib 8 23": (346, 0, 6, 4.9),
    "-correctRounding FPAddDualPathInFPLibOutFPLib 8 23": (477, 0, 3, 6.9),
    "-correctRounding FPAddInFPLibOutFPLib 5 10": (157, 0, 5, 3.5),
    "-correctRounding FPAddInFPLibOutFPLib 11 52": (790, 0, 7, 4.1),
    "-correctRounding -subnormals 1 FPAdd 8 23": (474, 0, 7, 4.2),
    "-correctRounding FPMul 5 10": (266, 0, 2, 3.0),
    "-correctRounding FPMul 8 23": (77, 2, 2, 3.4),
    "-correctRounding FPMul 11 52": (1519, 6, 3, 4.8),
    "-correctRounding -subnormals 1 FPMultAdd 8 23": (1038, 2, 4, 6.5),
    "MultSchoolbook 32": (722, 2, 1, 4.1),
    "MultSchoolbook 64": (2932, 8, 2, 4.9),
    "LongAdd 64": (64, 0, 0, 2.7),
    "LongAdd 128": (128, 0, 0, 4.5),
    "LongAdd 256": (256, 0, 1, 9.2),
}


def lines():
    """The rows, each word of the operator table among them."""
    for operation in ("FPAdd", "FPSub"):
        for wE_wF in FORMATS:
            yield f"-correctRounding {operation} {wE_wF}"
            yield f"-correctRounding {operation}InFPLibOutFPLib {wE_wF}"
            yield f"-correctRounding {operation}DualPathInFPLibOutFPLib {wE_wF}"
        for path in ("", "DualPath"):
            for form in ("InFPLib", "InFPLibX", "InFPLibY", "InFPLibXOutFPLib", "InFPLibYOutFPLib"):
                yield f"-correctRounding {operation}{path}{form} 8 23"
        yield f"-correctRounding {operation}Expert 8 23 1 1 0"
    yield "FPAdd 8 23"
    yield "-error 2 FPAdd 8 23"
    yield "-correctRounding -subnormals 1 FPAdd 8 23"
    for word in ("FPAddSub", "FPFusedAddSub", "FPMul", "FPMulOutFPLib", "FPAbs", "FPMultAdd",
                 "FPMultSub", "FPMultAcc", "FPAccHard"):
        for wE_wF in FORMATS if word in ("FPAddSub", "FPMul", "FPMultAdd") else ["8 23"]:
            yield f"-correctRounding {word} {wE_wF}"
    yield "-correctRounding FPAddSubExpert 8 23 1 1 0"
    yield "-correctRounding FPMulExpert 8 23 8 23 8 23 1"
    yield "FPMul 8 23"
    yield "-correctRounding -subnormals 1 FPMul 8 23"
    yield "-correctRounding -subnormals 1 FPMultAdd 8 23"
    yield "-correctRounding FPAcc 8 23 -20 20 15"
    for words in ("FPToFXP 8 23 32 16 1", "FPToFXPExpert 8 23 32 16 1 0",
                  "FPToFXPExpertFlags 8 23 32 16 1 1", "FPToFXPFlagsDynRnd 8 23 32 16 1",
                  "FPToFXPFused 8 23 32 16 1", "FPToBool 8 23", "FPToFP 8 23 5 10",
                  "FPToFP 5 10 8 23", "-subnormals 1 FPToFP 8 23 5 10", "FPToFPExpert 11 52 8 23 1",
                  "FXPToFP 32 16 1 8 23", "FXPToFPExpert 32 16 1 8 23 0",
                  "FXPToFPExpertFlags 32 16 1 8 23 1", "FXPToFPFlagsDynRnd 32 8 23",
                  "FPToFPCIEEE 8 23", "FPCIEEEToFP 10 23"):
        yield f"-correctRounding {words}"
    for width in (64, 128, 256):
        yield f"LongAdd {width}"
    for sign in ("", "S"):
        for multi in ("", "Multi"):
            for growth in ("", "BitGrowth"):
                for expert in ("", "Expert"):
                    parameters = " ".join(["32"] + ["6"] * bool(multi) + ["0"] * bool(expert))
                    yield f"LongAdd{sign}{multi}{growth}{expert} {parameters}"
    for width in (32, 64):
        for word in ("MultSchoolbook", "MultSchoolbookS", "Squarer"):
            yield f"{word} {width}"
    yield "MultSchoolbookExpert 32 1 24 0"
    yield "IntCtPop 64 0"
    yield "RightShiftNoSticky 32 31 0"
    for width in (64, 256):
        yield f"ModularMultBarrett {width}"


def measured(program, flow, words):
    """Our record and the columns of flow x: LUT, CARRY4, FF, SRL, DSP, RAM18, ns."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([program, *COMMON.split(), *words.split()], cwd=folder, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        with open(os.path.join(folder, "topModel/topModel.json"), encoding="utf-8") as record:
            ours = json.load(record)
        row = subprocess.run([flow, "-top", "topModel", "-flows", "x", "-limit", "900",
                              os.path.join(folder, "topModel/topModel.v")],
                             check=True, capture_output=True, text=True).stdout
        return ours, [cell.strip() for cell in row.strip().strip("|").split("|")][7:14]


def through(cycles, ns):
    return f"{(cycles + 1) * float(ns):.0f}"


def main():
    program = os.path.realpath(sys.argv[1])
    flow = os.path.join(os.path.dirname(os.path.realpath(__file__)), "synth_flow.sh")
    rows = list(lines())
    print("# What the units cost\n")
    print("Made by `make cost` (`tools/cost_table.py`), not by hand. Each line ran with")
    print(f"`{COMMON}`; synthesis is flow x of `tools/synth_flow.sh`, whose ns are cell delays alone.")
    print("Our own figures are the estimate of the report; their stage time holds routing, too. The last")
    print("columns are the figures to beat: an open generator's circuits in the same flow. Through = (cycles")
    print("+ 1) · ns. No circuit has been tuned for cost yet.\n")
    print("| line | cycles | our LUT | DSP | stage ns | LUT | CARRY4 | FF | SRL | DSP | RAM18 | ns | through "
          "| to beat: LUT | DSP | cycles | ns | through |")
    print("|---|" + "--:|" * 17)
    for number, words in enumerate(rows, 1):
        print(f"{number}/{len(rows)} {words}", file=sys.stderr, flush=True)
        ours, cells = measured(program, flow, words)
        cycles = max(ours["latency"])
        columns = [f"`{words}`", cycles, ours["resources"]["lut"], ours["resources"]["dsp"],
                   f"{ours['longest_stage']['delay_ps'] / 1000:.1f}", *cells,
                   through(cycles, cells[-1]) if cells[-1] not in ("-", "fail") else ""]
        beat = BEAT.get(words)
        columns += [*beat, through(beat[2], beat[3])] if beat else [""] * 5
        print("| " + " | ".join(str(column) for column in columns) + " |", flush=True)


if __name__ == "__main__":
    main()
