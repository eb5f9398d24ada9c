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
             kiln: units that the model flow builds, with its options
             model: all patterns of 16-bit formats for functions of one number, for the C++ model
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


# Conversions: the formats of both sides; those that are small for tests of all patterns; further
# words. The flags of numbers and fixed-point results are told apart at a bound of 0.5.
TO_FIXED = (["8 23 32 16 1", "5 10 16 8 1", "11 52 64 20 0", "4 3 8 0 0", "6 9 24 -8 1", "2 1 1 0 0",
             "8 23 256 128 1", "8 7 12 20 0", "5 10 1 0 1"],
            ["4 3 6 2 1", "3 2 4 -1 0", "2 1 5 6 1", "4 3 3 10 0"])
FROM_FIXED = (["32 16 1 8 23", "16 0 0 5 10", "64 20 1 11 52", "256 255 1 8 23", "8 -8 0 4 3",
               "1 0 0 2 1", "24 40 1 5 10", "1 0 1 6 9", "16 12 0 4 3"],
              ["6 2 1 4 3", "4 -1 0 3 2", "5 6 1 2 1", "8 9 0 4 3"])
FROM_INTEGER = ["32 8 23", "16 5 10", "64 11 52", "256 8 23", "8 4 3", "1 2 1"], ["6 4 3", "7 2 1"]
RESIZED = (["8 23 5 10", "5 10 8 23", "11 52 8 23", "4 3 6 9", "6 9 4 3", "2 1 2 1", "8 7 5 10",
            "5 10 8 7"], ["4 3 3 2", "3 2 4 3", "2 1 4 1", "3 4 3 2", "4 3 2 5"])
WIDENED = ["8 23", "5 10", "11 52", "2 1", "4 3"], ["2 1", "4 3"]
NARROWED = ["10 23", "7 10", "13 52", "4 1", "6 3"], ["4 1", "5 2"]
CONVERSIONS = {
    "FPToFXP": (TO_FIXED, [""]),
    "FPToFXPExpert": (TO_FIXED, ["-2", "-1", "0", "1", "2", "3", "4"]),
    "FPToFXPExpertFlags": (TO_FIXED, ["-2", "-1", "0", "1"]),
    "FPToFXPFlagsDynRnd": (TO_FIXED, [""]), "FPToFXPFused": (TO_FIXED, [""]),
    "FPToBool": (WIDENED, [""]),
    "FPToFP": (RESIZED, [""]), "FPToFPExpert": (RESIZED, ["0", "1", "2"]),
    "FXPToFP": (FROM_FIXED, [""]), "FXPToFPExpert": (FROM_FIXED, ["0", "1", "2", "3", "4"]),
    "FXPToFPExpertFlags": (FROM_FIXED, ["1"]), "FXPToFPFlagsDynRnd": (FROM_INTEGER, [""]),
    "FPToFPCIEEE": (WIDENED, [""]), "FPCIEEEToFP": (NARROWED, [""])}

SINES = ["FPSinX", "FPSinPiX"]
ELEMENTARY = ["FPExp", "FPExp2", "FPLn", "FPLog2", "FPLog10", *SINES]
UNARY = ["FPFloor", "FPCeil", "FPRound", "FPRint", "FPTrunc", "FPFrac", "FPILogB", *ELEMENTARY]
ORDERING = ["FPDim", "FPMin", "FPMax", "FPMinAbs", "FPMaxAbs", "FPCompare", "FPCompareU"]
SELECTING = ["FPMinMaxFused", "FPMinMaxAbsFused", "FPCompareFused"]
NO_VECTORS_BY_HAND = {"FPLdExp", "FPCompareFused", "FPInverse", "FPInverseOutFPLib"} | set(
    UNARY + ORDERING) - {"FPRint", "FPDim"}
DRAWN_ONLY = ["FPMultAcc", "FPFoldedALUNR"]  # whose populations have random rows only
COMPARISONS = ["-2", "-1", "0", "1", "2", "3"]
EXPERT = ["1 0 0", "0 0 0", "1 1 0", "0 1 1", "1 0 1"]
MULTI = ["2", "3", "7"]
CHUNK = ["0", "7"]
FLOAT_CONSTANTS = ["3.14159", "-0.1", "1", "2", "0", "1e-3", "1e30", "1e-40", "-0x1.8p-3", "inf",
                   "-1e-300", "nan", "0.99999999"]
CONSTANT_PRODUCTS = {
    "FXPConstMult": ["12 5 16", "12 -5 8", "1 3 1", "8 0.693147180559945 8", "33 3.14159 40",
                     "64 1e-3 64", "16 0 5", "64 -1e30 20", "5 0.25 9", "24 0.1 100"],
    "FXPConstMultSigned": ["4 -1 5", "12 5 16", "1 -3 2", "8 -0.693147180559945 8",
                           "33 3.14159 40", "64 -1e-3 64", "16 0 5", "9 128 12"],
    "FXPConstMultExpert": ["16 15 1 0.577215664901533 16", "8 -3 0 1e5 12", "40 20 1 -0.1 40",
                           "6 6 0 -0.75 6", "64 64 0 0.9999999 63"],
    "FXPConstMultExpert2": ["16 15 1 0.577215664901533 16 8", "12 4 0 -3.3 20 1", "24 0 1 1e9 24 53",
                            "10 3 0 0.1 10 -1", "32 31 1 -0.3 32 20"],
    "FXPConstMultExpert3": [f"{rest} {arch}" for rest in (
        "16 15 1 0.577215664901533 16 -1", "24 10 0 -3.3 30 12", "32 0 1 255 40 0",
        "8 8 0 0.3 8 -1", "48 47 0 0.7071067811865476 48 -1") for arch in (0, 1, 2)],
    "FXPConstMultExpertCropped": ["8 0 0 5 0", "8 0 1 -5.5 0", "16 0 1 0.3 0", "33 0 0 1e5 0",
                                  "64 0 1 -3.14159 0", "1 0 0 7 0", "12 0 0 -0.7 0", "20 0 1 1e-9 0"]}

# Sines of fixed-point half turns: formats; those that are small for tests of all patterns.
FIXED_SINES = (["16 15 1 14 7", "8 5 0 9 3", "24 20 1 24 8", "12 14 1 10 4", "5 0 1 6 2", "32 31 0 8 8",
                "6 -2 0 3 1"], ["6 4 1 5 3", "4 6 0 7 2", "5 3 0 1 2", "3 1 1 4 1"])
FIXED_SINE_WORDS = ["FXPSinPi", "FXPCosPi", "FXPSinCosPi"]

# Products of fixed-point numbers: formats; those that are small for tests of all patterns.
PRODUCTS = {
    "FXPTruncMult": (["8 8 8", "24 24 24", "32 32 16", "53 53 54", "17 30 20", "1 5 3", "33 4 60",
                      "64 64 64"], ["4 4 4", "5 3 6", "1 1 1", "4 5 12"]),
    "FXPTruncMultSigned": (["8 8 8", "24 24 24", "32 32 16", "53 53 54", "17 30 20", "2 5 3",
                            "33 4 60", "64 64 64"], ["4 4 4", "5 3 6", "1 1 1", "4 5 12"]),
    "FXPTruncMultExpert": (["8 8 0 8 7 1 8", "24 20 1 24 -3 0 24", "32 31 1 32 31 1 33",
                            "53 0 0 40 0 0 50", "16 16 1 16 8 1 40", "1 0 1 1 0 1 2"],
                           ["4 4 1 4 0 0 4", "5 -2 1 3 7 1 6", "1 1 1 1 0 1 1", "4 2 0 4 2 0 9"])}

# Roots and reciprocals of fixed-point numbers, likewise; and of floating-point numbers.
FIXED_ROOTS = {
    "FXPSqrt": (["32 30 31", "8 4 4", "16 8 12", "24 0 12", "64 62 63", "1 0 0", "33 40 20"],
                ["6 3 4", "9 5 2", "1 1 0"]),
    "FXPSqrtExpert": (["24 23 23 0 1", "16 8 12 0 0", "32 16 16 0 2"], ["6 3 4 0 0", "9 2 8 0 1"]),
    "FXPSqrtSigned": (["24 20 18 1 1", "16 8 12 1 0", "32 31 31 0 1"], ["6 3 4 1 0", "9 2 8 1 1"]),
    "FXPInvSqrt": (["32 16 16", "8 4 4", "16 15 8", "24 0 24"], ["6 3 4", "9 5 2"]),
    "FXPInvSqrtSigned": (["24 20 18 1 1", "16 8 12 1 0"], ["6 3 4 1 0", "9 2 8 1 1"]),
    "FXPReciprocal": (["32 16 1 16", "8 4 0 4", "16 8 1 7", "24 0 0 24", "1 0 1 0", "48 20 1 30"],
                      ["6 3 1 4", "9 5 0 2", "10 0 1 9"]),
    "FXPFuncExpert": (["24 12 0 12 0 0 0", "16 8 0 8 0 0 1", "20 10 0 10 0 0 2"],
                      ["6 3 1 4 0 0 0", "9 5 0 2 0 0 1", "9 5 0 2 0 0 2"])}
FUNCTIONS = ["FPSqrt", "FPSqrtLogic", "FPInverse", "FPInverseOutFPLib", "FPRecipSqrt"]


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
    rows["FPDiv"] = dict(floating(["0", "1"]), rounding=ROUNDINGS + [
        "-setLUTMULTRatio 1", "-setLUTMULTRatio 1 -correctRounding"])
    rows["FXPFusedMultiFunction"] = integer(widths=["1", "2", "8", "16", "33"])
    for word in UNARY + ORDERING + SELECTING:
        rows[word] = floating(COMPARISONS if word in ("FPCompare", "FPCompareU") else [""])
    rows["FPLdExp"] = floating(["8", "1", "16", "64"])
    for word in SINES:  # double precision is planned for seconds
        rows[word] = dict(floating(), parameters=["8 23", "5 10", "4 3", "6 9", "2 1"])
    for word in FIXED_SINE_WORDS:
        rows[word] = dict(integer(widths=FIXED_SINES[0]), rounding=["", "-correctRounding",
                                                                    "-error 2"])
    rows["FPMultAcc"] = dict(floating(), parameters=["8 23", "5 10", "4 3", "6 9", "2 1"])
    rows["FPFoldedALUNR"] = dict(floating(), parameters=["8 23", "5 10", "4 3", "6 9", "11 40"])
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
    rows["FPConstMult"] = floating(FLOAT_CONSTANTS)
    for word, parameters in CONSTANT_PRODUCTS.items():
        rows[word] = dict(integer(widths=parameters), rounding=["", "-correctRounding", "-error 2"])
    for word, (parameters, _) in PRODUCTS.items():
        rows[word] = dict(integer(widths=parameters), rounding=[
            "", "-correctRounding", "-error 2", "-error 6", "-noTruncMult", "-setLUTMULTRatio 20",
            "-setLUTMULTRatio 5000"])
    for word, (parameters, _) in FIXED_ROOTS.items():
        rows[word] = dict(integer(widths=parameters), rounding=["", "-correctRounding", "-error 3"])
    for word in FUNCTIONS:
        rows[word] = floating()
    rows["IntCtPop"] = integer(["0", "1"])
    rows["RightShiftNoSticky"] = integer(widths=[
        "1 1 0", "2 1 1", "8 4 1", "8 8 0", "33 31 1", "64 64 0", "64 20 1", "200 200 1"])
    for word, ((parameters, _), further) in CONVERSIONS.items():
        rows[word] = dict(floating(further), parameters=parameters,
                          rounding=ROUNDINGS + ["-error 0.5"])
    return rows


SMALL = ["2 1", "3 2", "4 3"]
SMALL_EXPERT = ["2 1 2 1 2 1", "3 2 3 2 3 2", "4 3 4 3 4 3", "4 3 2 1 3 2", "3 2 4 3 2 5"]
SMALL_WIDTHS = {"Multi": ["1", "2"], "MultSchoolbookExpert": ["1 0 1 0", "3 1 4 0", "5 1 2 1"],
                "IntCtPop": ["1", "5", "8"], "FXPFusedMultiFunction": ["1", "2"], "RightShiftNoSticky": ["1 1 0", "6 4 1", "5 5 0"],
                "": ["1", "2", "4", "6"]}
CORRECT = ["", "-correctRounding"]
SELECTED = ("FPMultFlagsDynRnd", "FPALUFlags", "FPALUFlagsDynRnd", "FPFusedMultiFunction")


def exhaustive(word, settings):
    if word in CONVERSIONS:
        (_, small), _ = CONVERSIONS[word]
        return dict(settings, parameters=small, tests=["-testbench 10 -exhaustiveTests"])
    if word in FIXED_SINE_WORDS:
        return dict(settings, parameters=FIXED_SINES[1], tests=["-testbench 10 -exhaustiveTests"])
    if word in PRODUCTS:
        return dict(settings, parameters=PRODUCTS[word][1],
                    tests=["-testbench 10 -exhaustiveTests"])
    if word in FIXED_ROOTS:
        return dict(settings, parameters=FIXED_ROOTS[word][1],
                    tests=["-testbench 10 -exhaustiveTests"])
    if not word.startswith("FP") or word in DRAWN_ONLY:
        return None
    if word == "FPAcc":
        return dict(settings, parameters=["4 3 -9 9 7", "2 1 -1 4 1", "3 2 -3 2 1"],
                    tests=["-testbench 10 -exhaustiveTests"])
    formats = SMALL_EXPERT if word == "FPMulExpert" else SMALL
    ranges = ["20 51", "700 2400"]
    if word == "FPLdExp":
        settings, ranges = dict(settings, further=["3", "6"]), ["0 60"]
    if word in ("FPAddN", "FPFusedMultiFunction"):
        few = settings["further"][:2]
        return dict(settings, parameters=formats[:1], further=few,
                    tests=["-testbench 10 -exhaustiveTests"])
    if word.startswith("FPAddSub") or word in (*SELECTED, *SELECTING):  # a select takes the range too
        formats, ranges = formats[:2], ["0 60"]
    if word in ("FPMultAdd", "FPMultSub"):
        formats, ranges = formats[:1], ["3 14"]
    return dict(settings, parameters=formats, tests=["-testbench 10 -exhaustiveTests"] + [
        f"-testbench 10 -exhaustiveTests -valRange {bounds}" for bounds in ranges])


def special(word, settings):
    if word.startswith("FXPToFP"):
        settings = dict(settings, parameters=CONVERSIONS[word][0][1])
        return dict(settings, tests=["-testbench 10 -specialCaseTests"])
    if word in CONSTANT_PRODUCTS:
        return None
    if word in FIXED_SINE_WORDS:
        return dict(settings, parameters=FIXED_SINES[1], tests=["-testbench 10 -specialCaseTests"])
    if word in PRODUCTS or word in FIXED_ROOTS:
        small = (PRODUCTS if word in PRODUCTS else FIXED_ROOTS)[word][1]
        return dict(settings, parameters=small, tests=["-testbench 10 -specialCaseTests"])
    if not word.startswith("FP"):
        key = next(k for k in SMALL_WIDTHS if k in word)
        settings = dict(settings, parameters=SMALL_WIDTHS[key])
    if word in DRAWN_ONLY:
        return None
    if word == "FPAddN":  # every special value meets every other
        settings = dict(settings, further=settings["further"][:2])
    return dict(settings, tests=["-testbench 10 -specialCaseTests"])


def sweeps(word, settings):
    if word in CONVERSIONS:
        return None
    if word in ("FPAbs", "FPFusedAddSub", "FPMulExpert", "FPMultAdd", "FPMultSub", *DRAWN_ONLY,
                "FPAccHard", "FPAcc", "FPLdExp", "FPAddN", "FPMultFlags", "FPDiv", *UNARY, *ORDERING,
                *SELECTING, *SELECTED, *FUNCTIONS) \
            or not word.startswith("FP") or word.startswith("FPAddSub"):
        return None
    tests = ["-testbench 10 -cancellationTests", "-testbench 40 -nearInfinityTests",
             "-testbench 20 -nearZeroTests"]
    if word.startswith("FPMul"):
        tests = ["-testbench 40 -nearZeroTests"]
    return dict(settings, rounding=CORRECT, tests=tests)


def further(word, settings):
    if word in CONVERSIONS:
        return dict(settings, tests=[
            "-testbench 20 -allTests", "-testbench 20 -handTesting",
            "-testbench 20 -randomTests -expRange 0 1 -genInf 0 -negativeStimuli"])
    if word.startswith("FP"):
        tests = ["-testbench 20 -allTests", "-testbench 20 -handTesting",
                 "-testbench 20 -randomTests -expRange 0 1 -genInf 0 -negativeStimuli"]
        if word in ("FPMultAdd", "FPMultSub"):
            tests.append("-testbench 20 -injectTestVector 3 1.5 -1 2")
        elif word in DRAWN_ONLY:
            tests.pop(1)  # their populations have no vectors by hand
        elif word in UNARY or word in FUNCTIONS:
            tests.append("-testbench 20 -injectTestVector 1 -2.5")
        elif word in SELECTING:
            tests.append("-testbench 20 -injectTestVector 3 1.5 -1.5 1")
        elif not word.startswith("FPAddSub") and word not in (
                "FPAbs", "FPAcc", "FPAccHard", "FPAddN", *SELECTED):
            tests.append("-testbench 20 -injectTestVector 2 1.5 -1")
        if word in NO_VECTORS_BY_HAND:
            tests.remove("-testbench 20 -handTesting")
        return dict(settings, rounding=CORRECT, tests=tests)
    settings = dict(settings, tests=["-testbench 200 -randomTests -valRange 0 1",
                                     "-testbench 20 -allTests"])
    if settings["parameters"] == WIDTHS:
        settings["parameters"] = [width for width in WIDTHS if int(width) >= 8]
        settings["tests"].append("-testbench 200 -randomTests -valRange 3 200")
    return settings


def kiln(word, settings):
    """The words that the model flow knows, as it spells and asks for them."""
    if word in ("FXPToFP", "FPToFXP"):
        narrow = [p for p in settings["parameters"] if "256" not in p]  # vectors of 200 bits at most
        further = [str(r) for r in range(-2, 5)] if word == "FPToFXP" else [""]
        settings = dict(settings, parameters=narrow, further=further)
    elif word not in ("FPAbs", "FPAdd", "FPAddExpert", "FPFusedAddSub", "FPMul", "FPMulExpert",
                      "FPFusedMultiFunction", "FPLdExp", "FPFloor", "FPCeil", "FPRound", "FPRint",
                      "FPFrac", *ORDERING, *SELECTING) or word == "FPCompareU":
        return None
    spelling = "FPFusedMultifunction" if word == "FPFusedMultiFunction" else word
    return dict(settings, word=[spelling], language=["-kiln", "-kiln -enableHardFP 1"],
                rounding=["", "-correctRounding", "-error 2"], pipelining=["", "-pipelining 0"])


def model(word, settings):
    if word not in ELEMENTARY and word not in FUNCTIONS or word.endswith("OutFPLib"):
        return None
    ways = [subnormals + rounding for subnormals in ("", "-subnormals 1 ") for rounding in CORRECT]
    return dict(parameters=["5 10", "8 7"], rounding=[way.strip() for way in ways],
                tests=["-testbench 10 -exhaustiveTests"])


KINDS = {"random": lambda word, settings: settings, "exhaustive": exhaustive, "special": special,
         "sweeps": sweeps, "further": further, "kiln": kiln,
         "model": model}


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
    parts = [value.get("language"), value.get("frequency"), value.get("pipelining"),
             value.get("subnormals"), value["rounding"],
             value.get("tests", f"-testbench {rows} -randomTests"), value.get("word", word),
             value["parameters"], value.get("further")]
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
