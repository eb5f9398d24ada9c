#!/usr/bin/env python3
"""Writes docs/cost.md: what the units cost by our own estimate and in synthesis.

  cost_table.py PROGRAM [--jobs N] [--figures] >docs/cost.md

With --figures only the units that have a figure to beat, and the further functions.

Each row is generated for 300 MHz on TarnV without valid, channel and data resets, so that only the
operator counts, and synthesised by tools/synth_flow.sh in flow x; the units of the first table in
flow n, too, and once more as they are built when a DSP block is worth more than any logic. Progress
goes to standard error.
"""
import argparse
import concurrent.futures
import math
import os
import sys

import synthesis

CLOCK = 300

# Figures to beat, of an open generator's circuits in flow x: look-up tables, DSP and memory blocks,
# cycles, ns. Its product of 8 23 comes with two blocks and with one; its adder of 128 bits does not
# hold the clock; its exponential is right at 150 MHz and below.
BEAT = {
    "-correctRounding FPAddInFPLibOutFPLib 5 10": (157, 0, 0, 5, 3.5),
    "-correctRounding FPAddInFPLibOutFPLib 8 23": (346, 0, 0, 6, 4.9),
    "-correctRounding FPAddInFPLibOutFPLib 11 52": (790, 0, 0, 7, 4.1),
    "-correctRounding -subnormals 1 FPAdd 8 23": (474, 0, 0, 7, 4.2),
    "-correctRounding FPMul 5 10": (266, 0, 0, 2, 3.0),
    "-correctRounding FPMul 8 23": (77, 2, 0, 2, 3.4),
    "-setLUTMULTRatio 200 -correctRounding FPMul 8 23": (587, 1, 0, 2, 4.0),
    "-correctRounding FPMul 11 52": (1519, 6, 0, 3, 4.8),
    "LongAdd 64": (64, 0, 0, 0, 2.7),
    "LongAdd 128": (128, 0, 0, 0, 4.5),
    "LongAdd 256": (256, 0, 0, 1, 9.2),
    "MultSchoolbook 32": (722, 2, 0, 1, 4.1),
    "MultSchoolbook 64": (2932, 8, 0, 2, 4.9),
    "-correctRounding FPAddDualPathInFPLibOutFPLib 8 23": (477, 0, 0, 3, 6.9),
    "-correctRounding -subnormals 1 FPMultAdd 8 23": (1038, 2, 0, 4, 6.5),
}
# Where blocks stand against tables, all are weighed together.
BEAT_TOGETHER = {
    "-correctRounding FPDiv 8 23 0": (1594, 0, 0, 9, 7.7),
    "-correctRounding FPSqrt 8 23": (873, 0, 0, 9, 7.3),
    "-correctRounding FPSqrtLogic 8 23": (873, 0, 0, 9, 7.3),
    "FPExp 8 23": (1337, 0, 0, 3, 8.5),
    "FPLn 8 23": (788, 5, 2, 6, 7.0),
}
# The same functions without a figure.
FURTHER = [f"{rounding}{word}" for word in
           ("FPDiv 8 23 0", "FPDiv 11 52 0", "FPDiv 11 52 1", "FPSqrt 8 23", "FPSqrt 11 52",
            "FPSqrtLogic 11 52", "FPExp 8 23", "FPExp 11 52", "FPLn 8 23", "FPLn 11 52")
           for rounding in ("", "-correctRounding ")]

# A price at which no DSP block is worth its place.
NO_DSPS = "-setLUTMULTRatio 1000000 "

HEAD = """# What the units cost

Made by `make cost` (`tools/cost_table.py`), not by hand. Each line ran with `{common} -frequency
{clock}`; synthesis is flow x of `tools/synth_flow.sh`, whose ns are cell delays alone. Our own
figures are the estimate of the report; our stage time holds an allowance for routing, too.
"""

FIGURES = """
## Beside the figures to beat

The figures are those of an open generator's circuits in the same flow. Through = (cycles + 1) · ns,
the time through the unit; weighed = LUT + 100 · (DSP + RAM18). Bold is what is above the figure:
more tables or blocks (of functions, more weighed), longer through, or ns above the {period:.2f} of
the clock.

| line | our LUT | stage ns | LUT | DSP | RAM18 | weighed | cycles | ns | through | figure: LUT | DSP | RAM18 | weighed | cycles | ns | through |
|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|"""

# What was tried where a figure stands above ours, and why it does.
NOTES = """
- `FPMul 8 23`: its ports are IEEE's, the figure's carry two bits that tell zero, infinity and NaN.
  What reads those off takes 18 tables; the patterns of zeros and infinities are put in by the tables
  that round, as both outcomes are known before the product's top bit chooses.
- `FPMul 11 52`: 663 tables fewer than the figure for two cycles more, with a shorter way through.
- `MultSchoolbook 32`: 474 tables fewer; the way from one block through the adder of the next takes
  2.84 ns and sets all three stages. It holds the clock, so nothing asks for shorter ones: adding in
  logic takes 100 tables more and, at 335 MHz, a cycle. One cycle less needs blocks whose only
  register is at the pins, which tools make of no plain product.
- `FPAddDualPath...`: the figure's three cycles hold 145 MHz only; ours hold the clock in five, and
  are through in three fifths of the time.
- `FPMultAdd`: likewise 150 MHz in the figure; ten stages that hold 300 MHz are through as soon, with
  6 % fewer tables.
"""


WITHOUT = """
## Without DSP blocks

The same units in flow n of `tools/synth_flow.sh`, which makes every product of look-up tables: first
the unit as above, which was built for a device with blocks, then one built with
`{option}`, which has none, in flow x ("-": no result in 900 s). Above the {period:.2f} ns of the clock:
of `-correctRounding FPExp 11 52` tools end a long chain of registers with a shift register, whose
output is slow; of `-correctRounding FPLn 8 23` they join two additions into one of three addends.

| line | DSP in flow x | flow n: LUT | ns | built without: our LUT | LUT | RAM18 | cycles | ns | through |
|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|"""


def through(cycles, ns):
    return (cycles + 1) * ns


def bold(text, is_above):
    return f"**{text}**" if is_above else str(text)


def weighed(lut, dsp, ram):
    return lut + 100 * (dsp + ram)


def figure_row(words, unit):
    together = words in BEAT_TOGETHER
    lut, dsp, ram, cycles, ns = BEAT_TOGETHER[words] if together else BEAT[words]
    own = through(unit.cycles, unit.ns)
    price, figure = weighed(unit.lut, unit.dsp, unit.ram), weighed(lut, dsp, ram)
    # LUTs alone count for the adder of 128 bits, whose figure does not hold the clock.
    is_late = own > through(cycles, ns) + 0.05 and words != "LongAdd 128"
    return [f"`{words}`", unit.record["resources"]["lut"], f"{unit.stage:.2f}",
            bold(unit.lut, unit.lut > lut and not together),
            bold(unit.dsp, unit.dsp > dsp and not together), unit.ram,
            bold(price, price > figure and together), unit.cycles,
            bold(unit.ns, unit.ns > 1000 / CLOCK + 0.05), bold(f"{own:.1f}", is_late),
            lut, dsp, ram, figure, cycles, ns, f"{through(cycles, ns):.1f}"]


def unit_row(words, unit):
    mine = unit.record["resources"]
    return [f"`{words}`", unit.cycles, mine["lut"], mine["dsp"], mine["ram_blocks"],
            f"{unit.stage:.2f}", unit.lut, unit.carry, unit.ff, unit.srl, unit.dsp, unit.ram,
            unit.ns, f"{through(unit.cycles, unit.ns):.1f}"]


def row_without(words, unit, built_without):
    first = [f"`{words}`", unit.dsp, unit.soft_lut, unit.soft_ns]
    if isinstance(built_without, str):
        return [*first, *["-"] * 6]
    if built_without.dsp:
        sys.exit(f"{words}: {built_without.dsp} DSP blocks in a unit built without any")
    return [*first, built_without.record["resources"]["lut"], built_without.lut, built_without.ram,
            built_without.cycles, built_without.ns,
            f"{through(built_without.cycles, built_without.ns):.1f}"]


def table_row(columns):
    return "| " + " | ".join(str(column) for column in columns) + " |"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--figures", action="store_true")
    arguments = parser.parse_args()
    program = os.path.realpath(arguments.program)
    every = [] if arguments.figures else synthesis.unit_lines(1)
    lines = list(dict.fromkeys([*BEAT, *BEAT_TOGETHER, *FURTHER, *every]))
    soft = list(dict.fromkeys(words for words in (*BEAT, *BEAT_TOGETHER, *FURTHER)
                              if "-setLUTMULTRatio" not in words))
    asked = [*lines, *(NO_DSPS + words for words in soft)]
    units = {}
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        made = pool.map(lambda words: synthesis.synthesised(program, words, CLOCK, words in soft),
                        asked)
        for number, (words, unit) in enumerate(zip(asked, made), 1):
            print(f"{number}/{len(asked)} {words}", file=sys.stderr, flush=True)
            if isinstance(unit, str) and not words.startswith(NO_DSPS):
                sys.exit(f"{words}: {unit}")
            units[words] = unit

    print(HEAD.format(common=synthesis.COMMON, clock=CLOCK).strip())
    print(FIGURES.format(period=1000 / CLOCK))
    figures = BEAT | BEAT_TOGETHER
    for words in figures:
        print(table_row(figure_row(words, units[words])))
    ratios = [weighed(units[words].lut, units[words].dsp, units[words].ram) / weighed(*figure[:3])
              for words, figure in figures.items()]
    mean = math.exp(sum(map(math.log, ratios)) / len(ratios))
    print(f"\nGeometric mean of what is weighed beside the figures: {mean:.2f}.")
    print(NOTES + WITHOUT.format(option=NO_DSPS.strip(), period=1000 / CLOCK))
    for words in soft:
        print(table_row(row_without(words, units[words], units[NO_DSPS + words])))
    print()
    print("## The functions\n" if arguments.figures else "## Every operator\n")
    print("| line | cycles | our LUT | DSP | RAM18 | stage ns | LUT | CARRY4 | FF | SRL | DSP | RAM18 "
          "| ns | through |")
    print("|---|" + "--:|" * 13)
    for words in lines:
        print(table_row(unit_row(words, units[words])))


if __name__ == "__main__":
    main()
