#!/usr/bin/env python3
"""Writes command lines whose vector files a simulator is to replay, one a line.

For each operator word a pairwise cover of its settings: any two values of any two settings meet in
at least one line.  Settings of a floating-point word: format, further words, subnormals, rounding,
pipelining, frequency, language; of an integer word: width, further words, rounding, pipelining,
frequency, language; and, where a kind has several, the options that select the vectors.  The same
lines on every run.

  replay_cases.py [--kind KIND] [--rows N] [--spread N] [WORD ...]

--kind KIND  random (the default)
             exhaustive: all patterns of small floating formats, whole and of a value range
             special: special cases, of integers at small widths
             sweeps: sums and products near cancellation, infinity and zero
             further: all tests at once, hand-built and injected vectors, value ranges
--rows N     random rows a case (default 200)
--spread N   only N lines a word, far apart in the cover, both languages among them
WORD ...     only these words (default: all)
--list       print the words of the kind and stop
"""
import argparse
import itertools
import random
import zlib

FORMATS = ["8 23", "5 10", "11 52", "4 3", "6 9", "2 1"]
WIDTHS = ["1", "2", "8", "33", "64", "256"]
ROUNDINGS = ["", "-correctRounding", "-correctRounding -roundType 1",
             "-correctRounding -roundType 2", "-correctRounding -roundType 3", "-error 2"]
COMMON = {"pipelining": ["", "-pipelining 0", "-pipelining 1", "-pipelining 2", "-pipelining 3"],
          "frequency": ["-frequency 50", "-frequency 300", "-frequency 500"],
          "language": ["-lang VHDL", "-lang Verilog"]}


def floating(further=("",)):
    return dict(parameters=FORMATS, further=list(further), subnormals=["", "-subnormals 1"],
                rounding=ROUNDINGS, **COMMON)


def integer(further=("",), widths=tuple(WIDTHS)):
    return dict(parameters=list(widths), further=list(further),
                rounding=["", "-correctRounding"], **COMMON)


EXPERT = ["1 0 0", "0 0 0", "1 1 0", "0 1 1", "1 0 1"]
MULTI = ["2", "3", "7"]
CHUNK = ["0", "7"]


def words():
    rows = {}
    for operation in ("FPAdd", "FPSub"):
        rows[operation] = floating()
        for path in ("", "DualPath"):
            for side in ("InFPLib", "InFPLibX", "InFPLibY"):
                for out in ("", "OutFPLib"):
                    rows[operation + path + side + out] = floating()
    for word in ("FPAddExpert", "FPSubExpert", "FPAddSubExpert"):
        rows[word] = floating(EXPERT)
    for word in ("FPAddSub", "FPFusedAddSub", "FPMul", "FPMulOutFPLib", "FPAbs", "FPMultAdd",
                 "FPMultSub", "FPAccHard", "FPMultFlags", "FPMultFlagsDynRnd", "FPALUFlags",
                 "FPALUFlagsDynRnd", "FPFusedMultiFunction"):
        rows[word] = floating()
    rows["FPAddN"] = floating(["2", "3", "7"])
    rows["FXPFusedMultiFunction"] = integer(widths=["1", "2", "8", "16", "33"])
    rows["FPMultAcc"] = dict(floating(), parameters=["8 23", "5 10", "4 3", "6 9", "2 1"])
    rows["FPAcc"] = dict(floating(), parameters=[
        "8 23 -20 20 15", "8 23 -149 130 127", "5 10 -24 20 15", "11 52 -60 60 20",
        "4 3 -9 9 7", "2 1 -1 4 1", "8 23 -180 -100 -120"])
    rows["FPMulExpert"] = dict(floating(["0", "1"]), parameters=[
        "8 23 8 23 8 23", "5 10 8 23 8 23", "11 52 8 23 5 10", "4 3 4 3 6 9", "6 9 5 10 4 3",
        "2 1 2 1 2 1", "8 7 8 7 11 52"])
    for sign, multi, growth, expert in itertools.product(("", "S"), ("", "Multi"),
                                                         ("", "BitGrowth"), ("", "Expert")):
        further = [" ".join(w for w in pair if w) for pair in
                   itertools.product(MULTI if multi else [""], CHUNK if expert else [""])]
        rows["LongAdd" + sign + multi + growth + expert] = integer(further)
    for word in ("MultSchoolbook", "MultSchoolbookS", "Squarer"):
        rows[word] = integer()
    rows["ModularMultBarrett"] = integer(widths=["1", "2", "4", "33", "64", "256"])
    rows["MultSchoolbookExpert"] = integer(widths=[
        "1 0 1 0", "2 1 2 0", "8 0 33 1", "33 1 8 1", "64 1 64 0", "256 0 64 1", "1 1 17 0"])
    rows["IntCtPop"] = integer(["0", "1"])
    rows["RightShiftNoSticky"] = integer(widths=[
        "1 1 0", "2 1 1", "8 4 1", "8 8 0", "33 31 1", "64 64 0", "64 20 1", "200 200 1"])
    return rows


SMALL = ["2 1", "3 2", "4 3"]
SMALL_EXPERT = ["2 1 2 1 2 1", "3 2 3 2 3 2", "4 3 4 3 4 3", "4 3 2 1 3 2", "3 2 4 3 2 5"]
SMALL_WIDTHS = {"Multi": ["1", "2"], "MultSchoolbookExpert": ["1 0 1 0", "3 1 4 0", "5 1 2 1"],
                "IntCtPop": ["1", "5", "8"], "FXPFusedMultiFunction": ["1", "2"], "RightShiftNoSticky": ["1 1 0", "6 4 1", "5 5 0"],
                "": ["1", "2", "4", "6"]}
CORRECT = ["", "-correctRounding"]
SELECTED = ("FPMultFlagsDynRnd", "FPALUFlags", "FPALUFlagsDynRnd", "FPFusedMultiFunction")


def exhaustive(word, settings):
    if not word.startswith("FP") or word == "FPMultAcc":
        return None
    if word == "FPAcc":
        return dict(settings, parameters=["4 3 -9 9 7", "2 1 -1 4 1", "3 2 -3 2 1"],
                    tests=["-testbench 10 -exhaustiveTests"])
    formats = SMALL_EXPERT if word == "FPMulExpert" else SMALL
    ranges = ["20 51", "700 2400"]
    if word in ("FPAddN", "FPFusedMultiFunction"):
        few = settings["further"][:2]
        return dict(settings, parameters=formats[:1], further=few,
                    tests=["-testbench 10 -exhaustiveTests"])
    if word.startswith("FPAddSub") or word in SELECTED:  # a select takes the range too
        formats, ranges = formats[:2], ["0 60"]
    if word in ("FPMultAdd", "FPMultSub"):
        formats, ranges = formats[:1], ["3 14"]
    return dict(settings, parameters=formats, tests=["-testbench 10 -exhaustiveTests"] + [
        f"-testbench 10 -exhaustiveTests -valRange {bounds}" for bounds in ranges])


def special(word, settings):
    if not word.startswith("FP"):
        key = next(k for k in SMALL_WIDTHS if k in word)
        settings = dict(settings, parameters=SMALL_WIDTHS[key])
    if word == "FPMultAcc":  # has random rows only
        return None
    if word == "FPAddN":  # every special value meets every other
        settings = dict(settings, further=settings["further"][:2])
    return dict(settings, tests=["-testbench 10 -specialCaseTests"])


def sweeps(word, settings):
    if word in ("FPAbs", "FPFusedAddSub", "FPMulExpert", "FPMultAdd", "FPMultSub", "FPMultAcc",
                "FPAccHard", "FPAcc", "FPAddN", "FPMultFlags") or word in SELECTED \
            or not word.startswith("FP") or word.startswith("FPAddSub"):
        return None
    tests = ["-testbench 10 -cancellationTests", "-testbench 40 -nearInfinityTests",
             "-testbench 20 -nearZeroTests"]
    if word.startswith("FPMul"):
        tests = ["-testbench 40 -nearZeroTests"]
    return dict(settings, rounding=CORRECT, tests=tests)


def further(word, settings):
    if word.startswith("FP"):
        tests = ["-testbench 20 -allTests", "-testbench 20 -handTesting",
                 "-testbench 20 -randomTests -expRange 0 1 -genInf 0 -negativeStimuli"]
        if word in ("FPMultAdd", "FPMultSub"):
            tests.append("-testbench 20 -injectTestVector 3 1.5 -1 2")
        elif word == "FPMultAcc":
            tests.pop(1)  # its population has no vectors by hand
        elif not word.startswith("FPAddSub") and word not in SELECTED + (
                "FPAbs", "FPAcc", "FPAccHard", "FPAddN"):
            tests.append("-testbench 20 -injectTestVector 2 1.5 -1")
        return dict(settings, rounding=CORRECT, tests=tests)
    settings = dict(settings, tests=["-testbench 200 -randomTests -valRange 0 1",
                                     "-testbench 20 -allTests"])
    if settings["parameters"] == WIDTHS:
        settings["parameters"] = [width for width in WIDTHS if int(width) >= 8]
        settings["tests"].append("-testbench 200 -randomTests -valRange 3 200")
    return settings


KINDS = {"random": lambda word, settings: settings, "exhaustive": exhaustive, "special": special,
         "sweeps": sweeps, "further": further}


def cover(settings, seed):
    """Cases that hold every pair of values of two settings, found greedily."""
    draw = random.Random(seed)
    names = list(settings)
    wanted = {((a, x), (b, y)) for a, b in itertools.combinations(names, 2)
              for x in range(len(settings[a])) for y in range(len(settings[b]))}
    cases = []
    while wanted:
        first = min(wanted)
        best, most = None, -1
        for _ in range(30):
            case = {name: draw.randrange(len(settings[name])) for name in names}
            case.update(dict(first))
            free = [n for n in names if n not in dict(first)]
            draw.shuffle(free)
            for name in free:
                def gain(value):
                    return sum(tuple(sorted(((name, value), (n, case[n])), key=lambda p: names.index(p[0])))
                               in wanted for n in names if n != name)
                case[name] = max(range(len(settings[name])), key=gain)
            found = sum(((a, case[a]), (b, case[b])) in wanted
                        for a, b in itertools.combinations(names, 2))
            if found > most:
                best, most = case, found
        wanted -= {((a, best[a]), (b, best[b])) for a, b in itertools.combinations(names, 2)}
        cases.append(best)
    return cases


def line(word, settings, case, rows):
    value = {name: settings[name][index] for name, index in case.items()}
    parts = [value["language"], value["frequency"], value["pipelining"],
             value.get("subnormals", ""), value["rounding"],
             value.get("tests", f"-testbench {rows} -randomTests"), word, value["parameters"], value["further"]]
    return " ".join(part for part in parts if part)


def spread(word, cases, count, settings):
    """`count` cases, evenly taken from a place that differs by word, languages in turn."""
    chosen = []
    offset = zlib.crc32(word.encode())
    languages = [[c for c in cases if c["language"] == k] for k in range(len(settings["language"]))]
    for k in range(count):
        group = languages[k % len(languages)]
        chosen.append(group[(offset + k * len(group) // count) % len(group)])
    return chosen


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--kind", choices=KINDS, default="random")
    parser.add_argument("--rows", type=int, default=200)
    parser.add_argument("--spread", type=int, default=0)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    rows = {word: KINDS[options.kind](word, settings) for word, settings in words().items()}
    rows = {word: settings for word, settings in rows.items() if settings}
    if options.list:
        print("\n".join(rows))
        return
    for word in options.words or rows:
        cases = cover(rows[word], word)
        if options.spread:
            cases = spread(word, cases, options.spread, rows[word])
        for case in cases:
            print(line(word, rows[word], case, options.rows))


if __name__ == "__main__":
    main()
