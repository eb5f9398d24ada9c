#!/usr/bin/env python3
"""Writes command lines whose vector files a simulator is to replay, one a line.

For each operator word a pairwise cover of its settings: any two values of any two settings that go
together meet in at least one line, which is asserted; the number of lines and of pairs goes to the
error output. Settings of a floating-point word: format, further words, subnormals, rounding,
pipelining, frequency, device family, speed grade, language and the options that select the vectors;
of an integer word: the same without subnormals, with widths in place of formats. Kind `vectors` has
enable and the other options for ports besides. Not every format, rounding or port goes with each
selection of vectors: functions below say which and why. The same lines on every run.

  replay_cases.py [--kind KIND] [--spread N] [--list] [WORD ...]

--kind KIND  vectors: the following five in one cover
             random (the default)
             exhaustive: all patterns of small formats, whole and of a value range
             special: special cases, of integers all patterns at small widths
             sweeps: sums and products near cancellation, infinity and zero
             further: all tests at once, hand-built and injected vectors, value ranges
             kiln: units that the model flow builds, with its options
             halves: all patterns of 16-bit formats for functions of one number
--spread N   only N lines a word, far apart in the cover, both languages among them
WORD ...     only these words (default: all)
--list       print the words of the kind and stop
"""
import argparse
import itertools
import sys
import zlib

import pairwise

FORMATS = ["8 23", "5 10", "11 52", "4 3", "6 9", "2 1"]
WIDTHS = ["1", "2", "8", "33", "64", "256"]
ROUNDINGS = ["", "-correctRounding", "-correctRounding -roundType 1",
             "-correctRounding -roundType 2", "-correctRounding -roundType 3", "-error 2"]
COMMON = {"pipelining": ["", "-pipelining 0", "-pipelining 1", "-pipelining 2", "-pipelining 3"],
          "frequency": ["-frequency 50", "-frequency 300", "-frequency 500"],
          "family": [f"-target {family}" for family in (
              "TarnV", "Merrow10", "Halvard10", "MerrowV", "HalvardIV", "TarnIVGX")],
          "grade": ["", "-speedgrade mid", "-speedgrade slow"],
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
NO_VECTORS_BY_HAND = {
    "FPAbs", "FPMultAdd", "FPMultSub", "FPAccHard", "FPAcc", "FPFusedMultiFunction", "FPAddN",
    "FPMulExpert", "FPConstMult", "FPLdExp", "FPCompareFused", "FPInverse", "FPInverseOutFPLib",
    "FPExp2", "FPLog2", "FPLog10", *DRAWN_ONLY, *CONVERSIONS, *UNARY[:7], *ORDERING} - {
        "FPRint", "FPDim"}


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
                "IntCtPop": ["1", "5", "8"], "FXPFusedMultiFunction": ["1", "2"],
                "RightShiftNoSticky": ["1 1 0", "6 4 1", "5 5 0"], "": ["1", "2", "4", "6"]}
CORRECT = ["", "-correctRounding"]
SELECTED = ("FPMultFlagsDynRnd", "FPALUFlags", "FPALUFlagsDynRnd", "FPFusedMultiFunction")


def small(word):
    """Parameters with which all patterns are few."""
    if word in CONVERSIONS:
        return CONVERSIONS[word][0][1]
    if word in FIXED_SINE_WORDS:
        return FIXED_SINES[1]
    if word in PRODUCTS or word in FIXED_ROOTS:
        return (PRODUCTS if word in PRODUCTS else FIXED_ROOTS)[word][1]
    if word in CONSTANT_PRODUCTS:
        return [p for p in CONSTANT_PRODUCTS[word] if int(p.split()[0]) <= 12]
    if word == "FPAcc":
        return ["4 3 -9 9 7", "2 1 -1 4 1", "3 2 -3 2 1"]
    if not word.startswith("FP"):
        return SMALL_WIDTHS[next(k for k in SMALL_WIDTHS if k in word)]
    return SMALL_EXPERT if word == "FPMulExpert" else SMALL


# A kind of vectors: what of a word's settings goes with each selection of vectors, one dict each.

def drawn(_, settings):
    return [dict(settings, tests=["-testbench 200 -randomTests"])]


def exhaustive(word, settings):
    whole = "-testbench 10 -exhaustiveTests"
    if word in DRAWN_ONLY:
        return []
    formats, ranges = small(word), []
    if word.startswith("FP") and word not in CONVERSIONS and word != "FPAcc":
        ranges = ["20 51", "700 2400"]
    if word == "FPLdExp":  # both numbers and the scale are run through
        settings, ranges = dict(settings, further=["3", "6"]), ["0 60"]
    elif word in ("FPAddN", "FPFusedMultiFunction"):  # patterns of all numbers together
        settings = dict(settings, further=settings["further"][:2])
        formats, ranges = formats[:1], []
    elif word.startswith("FPAddSub") or word in (*SELECTED, *SELECTING):  # a select: twice as many
        formats, ranges = formats[:2], ["0 30"]  # and it takes the range, too
    elif word in ("FPMultAdd", "FPMultSub"):  # three numbers
        formats, ranges = formats[:1], ["3 14"]
    return [dict(settings, parameters=formats, tests=[whole] + [
        f"{whole} -valRange {bounds}" for bounds in ranges])]


def special(word, settings):
    if word in (*DRAWN_ONLY, *CONSTANT_PRODUCTS, "ModularMultBarrett"):  # it has none
        return []
    if not word.startswith("FP"):  # all patterns of integers, which wide ones have too many of
        settings = dict(settings, parameters=small(word))
    if word == "FPAddN":  # every special value meets every other
        settings = dict(settings, further=settings["further"][:2])
    return [dict(settings, tests=["-testbench 10 -specialCaseTests"])]


def sweeps(word, settings):
    """Of sums and products with two floating inputs and one output. Their rows have the number
    rounded to nearest, or both faithful ones whatever the bound."""
    if word in ("FPMul", "FPMulOutFPLib"):
        tests = ["-testbench 40 -nearZeroTests"]
    elif word.startswith(("FPAdd", "FPSub")) and not word.startswith(("FPAddSub", "FPAddN")):
        tests = ["-testbench 10 -cancellationTests", "-testbench 40 -nearInfinityTests",
                 "-testbench 20 -nearZeroTests"]
    else:
        return []
    return [dict(settings, rounding=CORRECT, tests=tests)]


def further(word, settings):
    every = dict(settings, tests=["-testbench 20 -allTests"])
    if sweeps(word, settings):  # which are among all tests
        every["rounding"] = CORRECT
    if word.startswith("FP") or word in CONVERSIONS:
        tests = ["-testbench 20 -randomTests -expRange 0 1 -genInf 0 -negativeStimuli"]
        if word not in NO_VECTORS_BY_HAND:
            tests.append("-testbench 20 -handTesting")
        if word in ("FPMultAdd", "FPMultSub"):
            tests.append("-testbench 20 -injectTestVector 3 1.5 -1 2")
        elif word in (*UNARY, *FUNCTIONS, "FPConstMult"):
            tests.append("-testbench 20 -injectTestVector 1 -2.5")
        elif word in SELECTING:
            tests.append("-testbench 20 -injectTestVector 3 1.5 -1.5 1")
        elif not word.startswith("FPAddSub") and word not in (
                "FPAbs", "FPAcc", "FPAccHard", "FPAddN", *DRAWN_ONLY, *SELECTED, *CONVERSIONS):
            tests.append("-testbench 20 -injectTestVector 2 1.5 -1")
        return [every, dict(settings, tests=tests)]
    found = [every, dict(settings, tests=["-testbench 200 -randomTests -valRange 0 1"])]
    if settings["parameters"] == WIDTHS:  # widths that have these values
        found.append(dict(settings, parameters=[width for width in WIDTHS if int(width) >= 8],
                          tests=["-testbench 200 -randomTests -valRange 3 200"]))
    return found


def kiln(word, settings):
    """The words that the model flow knows, as it spells and asks for them."""
    if word in ("FXPToFP", "FPToFXP"):
        narrow = [p for p in settings["parameters"] if "256" not in p]  # vectors of 200 bits at most
        further = [str(r) for r in range(-2, 5)] if word == "FPToFXP" else [""]
        settings = dict(settings, parameters=narrow, further=further)
    elif word not in ("FPAbs", "FPAdd", "FPAddExpert", "FPFusedAddSub", "FPMul", "FPMulExpert",
                      "FPFusedMultiFunction", "FPLdExp", "FPFloor", "FPCeil", "FPRound", "FPRint",
                      "FPFrac", *ORDERING, *SELECTING) or word == "FPCompareU":
        return []
    spelling = "FPFusedMultifunction" if word == "FPFusedMultiFunction" else word
    [settings] = drawn(word, settings)
    return [dict(settings, word=[spelling], language=["-kiln", "-kiln -enableHardFP 1"],
                 rounding=["", "-correctRounding", "-error 2"], pipelining=["", "-pipelining 0"])]


def halves(word, _):
    """All patterns of 16-bit formats for functions of one number."""
    if word not in ELEMENTARY and word not in FUNCTIONS or word.endswith("OutFPLib"):
        return []
    ways = [subnormals + rounding for subnormals in ("", "-subnormals 1 ") for rounding in CORRECT]
    return [dict(parameters=["5 10", "8 7"], rounding=[way.strip() for way in ways],
                 frequency=["-frequency 300"], language=["-lang VHDL"],
                 tests=["-testbench 10 -exhaustiveTests"])]


KINDS = {"random": drawn, "exhaustive": exhaustive, "special": special, "sweeps": sweeps,
         "further": further, "kiln": kiln, "halves": halves}
VECTORS = ["random", "exhaustive", "special", "sweeps", "further"]


def interfaces(word, tests):
    found = ["", "-subcomponents", "-noChanValid -dontCareOnReset"]
    if word != "FPFoldedALUNR":  # whose cycles are fixed
        found.append("-wrapper")
    # Rows that stall, or have outputs of different latencies, are made of random and exhaustive
    # vectors only.
    if any(kind in tests for kind in ("-randomTests", "-exhaustiveTests", "-allTests")):
        # A sum's vectors go on adding in rows that stall, as no circuit does.
        found += ["-splitOutputPorts"] + (["-enable"] if word != "FPMultAcc" else [])
    return found


def alternatives(kind, word, settings):
    """What the cases of a word are drawn from, as pairwise.py has it: settings for each selection
    of vectors; with all of them those for the ports, too."""
    ports = interfaces if kind == "vectors" else lambda *_: [""]
    return [dict(selected, tests=[tests], interface=ports(word, tests))
            for one in (VECTORS if kind == "vectors" else [kind])
            for selected in KINDS[one](word, settings) for tests in selected["tests"]]


def line(word, case):
    parts = [case.get("language"), case.get("family"), case.get("grade"), case.get("frequency"),
             case.get("interface"), case.get("pipelining"), case.get("subnormals"), case["rounding"], case["tests"],
             case.get("word", word), case["parameters"], case.get("further")]
    return " ".join(part for part in parts if part)


def spread(word, cases, count):
    """`count` cases, evenly taken from a place that differs by word, languages in turn."""
    chosen = []
    offset = zlib.crc32(word.encode())
    groups = [[c for c in cases if c.get("language") == language]
              for language in sorted({c.get("language", "") for c in cases}, reverse=True)]
    for k in range(count):
        group = groups[k % len(groups)]
        chosen.append(group[(offset + k * len(group) // count) % len(group)])
    return chosen


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--kind", choices=["vectors", *KINDS], default="random")
    parser.add_argument("--spread", type=int, default=0)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    products = {word: alternatives(options.kind, word, settings)
                for word, settings in words().items()}
    products = {word: product for word, product in products.items() if product}
    if options.list:
        print("\n".join(products))
        return
    lines = pairs = 0
    for word in options.words or products:
        cases = pairwise.cover(products[word], word)
        pairs += pairwise.check_cover(products[word], cases)
        lines += len(cases)
        for case in spread(word, cases, options.spread) if options.spread else cases:
            print(line(word, case))
    print(f"{options.kind}: {lines} cases in which all {pairs} pairs of values meet"
          + (f", {options.spread} of each word taken" if options.spread else ""), file=sys.stderr)


if __name__ == "__main__":
    main()
