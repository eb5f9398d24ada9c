#!/usr/bin/env python3
"""Makes one page of pipeline drawings with what each unit costs.

  gallery.py [-synthesis] [-lines FILE] PROGRAM FOLDER

Writes FOLDER/index.html, which needs no network: for each line of options and operator words (of
FILE, one a line, '#' for a heading; else those below) the scheduled graph drawn by graphviz and a
table of its cost by our estimate. With -synthesis each unit goes through yosys, too, and the
cells and the longest path stand beside the estimate. Progress goes to standard error.
"""
import argparse
import html
import json
import os
import re
import subprocess
import sys
import tempfile

COMMON = "-lang Verilog -target TarnV -noChanValid"
GENERATION_SECONDS = 300
DRAWING_SECONDS = 120
SYNTHESIS_SECONDS = 900

LINES = """
# Addition in floating point
-frequency 300 FPAdd 8 23
-frequency 300 -correctRounding FPAdd 8 23
-frequency 300 -correctRounding FPAddDualPathInFPLib 8 23
-frequency 300 -correctRounding -subnormals 1 FPAdd 5 10
# Multiplication in floating point
-frequency 200 FPMul 8 23
-frequency 400 FPMul 8 23
-frequency 300 -error 4 FPMul 11 52
# Sums and products of integers
-frequency 400 LongAdd 128
-frequency 300 LongAddMulti 32 6
-frequency 300 MultSchoolbook 32
-frequency 300 IntCtPop 64 0
# Running sums
-frequency 200 FPMultAcc 5 10
# One unit by each strategy
-frequency 400 -pipelining 1 FPMul 5 10
-frequency 400 -pipelining 2 FPMul 5 10
-frequency 400 -pipelining 3 FPMul 5 10
-frequency 400 -pipelining 4 FPMul 5 10
"""

STYLE = """
body { font-family: sans-serif; margin: 2em; color: #222; }
table { border-collapse: collapse; margin: 0.5em 0; }
th, td { border: 1px solid #bbb; padding: 0.2em 0.7em; text-align: right; }
th { background: #eee; }
.drawing { overflow: auto; max-height: 40em; border: 1px solid #ddd; }
code { background: #f2f2f2; padding: 0.1em 0.3em; }
"""


def figures(text):
    """Cells by kind and the longest path in ps, of a synthesis.txt."""
    cells = {kind: int(count) for kind, count in
             re.findall(r"^(\w+) .*yosys=(\d+) objects", text, re.M)}
    path = re.search(r"Latest arrival time in .* is (\d+)", text)
    return cells, int(path.group(1)) if path else None


def cost_table(record, synthesised):
    """The cost of a unit as a table, a row for each source of figures."""
    ours = record["resources"]
    rows = [["estimate", max(record["latency"]), ours["lut"], "", ours["dsp"],
             ours["register_bits"], "", ours["ram_blocks"],
             f"{record['longest_stage']['delay_ps'] / 1000:.1f}"]]
    if synthesised:
        cells, path = synthesised
        rows.append(["synthesised", "", *(cells[kind] for kind in
                                          ("LUT", "CARRY", "DSP", "FF", "SRL", "RAM")),
                     f"{path / 1000:.1f}" if path else ""])
    head = ["", "cycles", "LUT", "CARRY", "DSP", "registers", "SRL", "RAM", "longest stage, ns"]
    line = lambda tag, items: "".join(f"<{tag}>{item}</{tag}>" for item in items)
    return ("<table><tr>" + line("th", head) + "</tr>"
            + "".join(f"<tr>{line('td', row)}</tr>" for row in rows) + "</table>")


def drawing(folder):
    """The pipeline as SVG, to stand inside a page; a sentence where it is too large to draw."""
    try:
        svg = subprocess.run(["dot", "-Tsvg", "topModel/topModel.dot"], cwd=folder, check=True,
                             capture_output=True, text=True, timeout=DRAWING_SECONDS).stdout
    except subprocess.TimeoutExpired:
        return f"<p>Not drawn: more than {DRAWING_SECONDS} s.</p>"
    return f'<div class="drawing">{svg[svg.index("<svg"):]}</div>'


def section(program, words, synthesises):
    """One unit: its line, its cost, its drawing."""
    with tempfile.TemporaryDirectory() as folder:
        line = [*COMMON.split(), *words.split()]
        try:
            run = subprocess.run([program, "-debug", "-generateFathomProject", *line], cwd=folder,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                 check=False, timeout=GENERATION_SECONDS)
        except subprocess.TimeoutExpired:
            sys.exit(f"{words}: more than {GENERATION_SECONDS} s")
        if run.returncode != 0:
            sys.exit(f"{words}: status {run.returncode}: {run.stderr.strip()}")
        unit = os.path.join(folder, "topModel")
        with open(os.path.join(unit, "topModel.json"), encoding="utf-8") as file:
            record = json.load(file)
        synthesised = None
        if synthesises:
            subprocess.run(["yosys", "-q", "synthesize.ys"], cwd=unit, check=True,
                           stderr=subprocess.DEVNULL, timeout=SYNTHESIS_SECONDS)
            with open(os.path.join(unit, "synthesis.txt"), encoding="utf-8") as file:
                synthesised = figures(file.read())
        return (f"<h3><code>{html.escape(words)}</code></h3>\n{cost_table(record, synthesised)}\n"
                f"{drawing(folder)}\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-synthesis", action="store_true")
    parser.add_argument("-lines")
    parser.add_argument("program")
    parser.add_argument("folder")
    asked = parser.parse_args()
    text = LINES
    if asked.lines:
        with open(asked.lines, encoding="utf-8") as file:
            text = file.read()
    program = os.path.realpath(asked.program)
    lines = [line.strip() for line in text.splitlines() if line.strip()]
    count = sum(not line.startswith("#") for line in lines)
    page = ["<!DOCTYPE html>", '<html lang="en"><head><meta charset="utf-8">',
            f"<title>Pipelines</title><style>{STYLE}</style></head><body>", "<h1>Pipelines</h1>",
            f"<p>Each unit was generated with <code>{COMMON}</code> and the words above its "
            "drawing. Registers of the estimate are bits between stages outside of DSP blocks. "
            "A column is a clock cycle, a box a building block; grey edges cross registers."
            "</p>"]
    done = 0
    for line in lines:
        if line.startswith("#"):
            page.append(f"<h2>{html.escape(line[1:].strip())}</h2>")
            continue
        done += 1
        print(f"{done}/{count} {line}", file=sys.stderr, flush=True)
        page.append(section(program, line, asked.synthesis))
    page.append("</body></html>")
    os.makedirs(asked.folder, exist_ok=True)
    index = os.path.join(asked.folder, "index.html")
    with open(index + ".part", "w", encoding="utf-8") as file:
        file.write("\n".join(page) + "\n")
    os.replace(index + ".part", index)
    print(index)


if __name__ == "__main__":
    main()
