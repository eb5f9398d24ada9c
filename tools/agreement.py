#!/usr/bin/env python3
"""Says how far our own figures agree with synthesis, for every operator, format and clock.

  agreement.py PROGRAM [--quick] [--clocks 100,200,300,400] [--words TEXT] [--jobs N] [--keep]
               >TABLE

Each row is a unit for TarnV, without valid, channel and data resets, synthesised by flow x of
tools/synth_flow.sh. A row is a miss when
  ns     the cells on the longest path, or our own longest stage, take longer than the period (asked
         for or, with a warning, of the one that it names)
  LUT    our estimate is more than 20 % and more than 8 look-up tables away
  DSP    or blocks are counted otherwise than flow x does, by more than 20 %
--quick takes the middle format only, --words lines that contain TEXT. --keep writes what synthesis
found into measurements/synthesis.csv: beside what stands there, or, from a run over all rows, in its
place. The last line counts misses; the status is 1 when there are any.
"""
import argparse
import concurrent.futures
import os
import sys

import synthesis


def misses(unit):
    mine = unit.record["resources"]
    # The flow gives tenths.
    if unit.ns > unit.period + 0.05 or unit.stage > unit.period + 0.001:
        yield "ns"
    if abs(mine["lut"] - unit.lut) > max(8, 0.2 * unit.lut):
        yield "LUT"
    if (abs(mine["dsp"] - unit.dsp) > 0.2 * unit.dsp
            or abs(mine["ram_blocks"] - unit.ram) > 0.2 * unit.ram):
        yield "DSP"


def row(program, words, clock):
    unit = synthesis.synthesised(program, words, clock)
    if isinstance(unit, str):
        return [f"`{words}`", clock, unit], ["none"]
    found = list(misses(unit))
    mine = unit.record["resources"]
    return [f"`{words}`", clock, f"{unit.period:.2f}", unit.cycles, f"{unit.stage:.2f}",
            f"{unit.ns:.1f}", mine["lut"], unit.lut, mine["dsp"], unit.dsp, mine["ram_blocks"],
            unit.ram, mine["register_bits"], " ".join(found)], found


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--clocks", default="100,200,300,400")
    parser.add_argument("--words", default="")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", action="store_true")
    arguments = parser.parse_args()
    program = os.path.realpath(arguments.program)
    asked = [(line, int(clock)) for line in synthesis.unit_lines(1 if arguments.quick else 3)
             if arguments.words in line for clock in arguments.clocks.split(",")]
    print("| line | MHz | period | cycles | our ns | ns | our LUT | LUT | our DSP | DSP | our RAM18 "
          "| RAM18 | register bits | misses |")
    print("|---|" + "--:|" * 12 + "---|")
    count = {}
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for columns, found in pool.map(lambda a: row(program, *a), asked):
            print("| " + " | ".join(str(column) for column in columns) + " |", flush=True)
            for miss in found:
                count[miss] = count.get(miss, 0) + 1
    if arguments.keep:
        synthesis.keep_measured(not arguments.quick and not arguments.words
                                and arguments.clocks == parser.get_default("clocks"))
    print(f"\n{len(asked)} rows; misses: {count or 'none'}.")
    sys.exit(1 if count else 0)


if __name__ == "__main__":
    main()
