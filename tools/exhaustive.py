#!/usr/bin/env python3
"""All 2^32 inputs of single-precision functions, through the C++ models of their units.

  exhaustive.py prepare PROGRAM FOLDER
      generates and compiles each unit under FOLDER and writes FOLDER/shards.txt: commands that
      check a part of a function's inputs each (proofs/function_shard.cpp) and leave one file with
      what they found; one that finds its file does nothing. A unit that the generator builds
      otherwise than before loses its results, and so do all when the check has changed.
  exhaustive.py table FOLDER
      prints what the files say, as docs/accuracy.md has it. Status 0 only when every part is there
      and no answer was wrong.
"""
import filecmp
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PARTS = 64
WORDS = ["FPExp", "FPLn", "FPSqrt", "FPSinPiX", "FPExp2", "FPLog2", "FPLog10", "FPSinX",
         "FPSqrtLogic", "FPRecipSqrt", "FPInverse"]
OPTIONS = ["", "-correctRounding ", "-subnormals 1 ", "-subnormals 1 -correctRounding "]
LINES = [f"{options}{word} 8 23" for options in OPTIONS for word in WORDS]
PROOFS = pathlib.Path(__file__).resolve().parent.parent / "proofs"


def folder_of(folder, line):
    return folder / re.sub(r"[^A-Za-z0-9]+", "_", line).strip("_")


def claim_of(record):
    """Ulps above and below the exact result, and of a subnormal one, that the generator stated."""
    bound = record["error_bound_ulp"][0]
    sides = {"above": bound, "below": bound, "subnormal": bound}
    for budget in record["error_budget"] if bound >= 1 else []:
        named = [side for side in sides if side in budget["name"]]
        for side in named or ["above", "below"]:
            sides[side] = min(sides[side], budget["sum_ulp"])
    if not any("subnormal" in budget["name"] for budget in record["error_budget"]):
        sides["subnormal"] = max(sides["above"], sides["below"])
    return bound, sides["above"], sides["below"], sides["subnormal"]


def prepare_unit(program, place, line):
    with tempfile.TemporaryDirectory(dir=place.parent) as fresh:
        subprocess.run([program, "-generateCSimulationModel", *line.split()], cwd=fresh, check=True,
                       stdout=subprocess.DEVNULL)
        unit = pathlib.Path(fresh) / "topModel"
        model = "topModel_model.cpp"
        shard = place / "shard"
        checked = shard.exists() and all(source.stat().st_mtime < shard.stat().st_mtime
                                         for source in PROOFS.glob("function_*"))
        if not checked or not filecmp.cmp(unit / model, place / model, False):
            shutil.rmtree(place, ignore_errors=True)
            shutil.copytree(unit, place)
            subprocess.run(["g++", "-std=c++20", "-O2", f"-I{place}", "-include",
                            "topModel_model.h", PROOFS / "function_shard.cpp", place / model,
                            "-lmpfr", "-lgmp", "-o", shard], check=True)
    (place / "parts").mkdir(exist_ok=True)


def prepare(program, folder):
    program, folder = pathlib.Path(program).resolve(), pathlib.Path(folder).resolve()
    folder.mkdir(parents=True, exist_ok=True)
    commands = []
    for line in LINES:
        place = folder_of(folder, line)
        prepare_unit(program, place, line)
        record = json.loads((place / "topModel.json").read_text())
        ulps, *claims = claim_of(record)
        commands += [f"{place}/shard {line.split()[-3]} {int(record['subnormals'])} {ulps} "
                     f"{' '.join(map(repr, claims))} {part} {PARTS} {place}/parts/{part}.json" for part in range(PARTS)]
    (folder / "shards.txt").write_text("\n".join(commands) + "\n")


def merged(files):
    total = {}
    for file in files:
        for key, value in json.loads(file.read_text()).items():
            if key in ("above", "below"):
                total[key] = max(total.get(key, [0, "-"]), value, key=lambda side: side[0])
            elif key == "screen_ulp":
                total[key] = max(total.get(key, 0), value)
            elif key not in ("part", "parts", "first"):
                total[key] = total.get(key, value[:0] if key == "examples" else 0) + value
    return total


INTRODUCTION = """# Accuracy of functions in single precision

What `make certify` found when it ran **all 2^32 inputs** of format 8 23 through the C++ model of each
unit (`tools/exhaustive.py` writes this page). The exact results come from MPFR, or from a bound in
doubles that MPFR decides wherever it leaves a question open, and confirms at every 1024th input; for
square roots from integers (`proofs/function_truth.h`, with the proofs).

An answer is *wrong* when it is not one of the two numbers beside the exact result (with
`-correctRounding`: not the nearest one), when it is further from it than the error budget in the
unit's record allows, or when a special value (NaN, infinity, zero, subnormal, overflow, underflow) is
not what `docs/semantics-fp.md` says. Errors are in ulps of the exact result, with the input at which
they are largest; "claimed" is the budget that the generator stated before.
"""


def table(folder):
    folder = pathlib.Path(folder)
    complete, rows, missing, wrong, totals = True, [], [], [], []
    for line in LINES:
        place = folder_of(folder, line)
        files = sorted((place / "parts").glob("*.json"))
        if len(files) < PARTS:
            missing.append(f"`{line}`" + (f" ({len(files)} of {PARTS} parts)" if files else ""))
        if len(files) < PARTS:
            continue
        total = merged(files)
        _, above, below, _ = claim_of(json.loads((place / "topModel.json").read_text()))
        side = lambda name, claim: (f"{total[name][0]:.7f} | {total[name][1]} | {claim:.4f}"
                                    if total[name][0] else f"0 | | {claim:.4f}")
        share = f"{100 * total['nearest'] / total['compared']:.3f}"
        rows.append(f"| `{line}` | {total['inputs']} | {side('above', above)} | "
                    f"{side('below', below)} | {share} % | {total['wrong']} |")
        totals.append(total)
        if total["inputs"] != 1 << 32 or total["wrong"]:
            wrong.append(f"`{line}`: {total['wrong']} wrong, as {'; '.join(total['examples'][:5])}")
    print(INTRODUCTION)
    print("| line | inputs | error above | at | claimed | error below | at | claimed | rounded to "
          "nearest | wrong |\n|---|---|---|---|---|---|---|---|---|---|")
    print("\n".join(rows))
    if totals:
        print(f"\n{sum(t['inputs'] for t in totals)} inputs in all: "
              f"{sum(t['compared'] for t in totals)} answers are numbers, "
              f"{sum(t['out_of_range'] for t in totals)} lie beyond the format's range, "
              f"{sum(t['special'] for t in totals)} follow from a special value. MPFR decided "
              f"{sum(t['by_mpfr'] for t in totals)} and confirmed "
              f"{sum(t['confirmed'] for t in totals)} more, where it found doubles off by at most "
              f"{max(t['screen_ulp'] for t in totals):.1e} ulps; the proofs allow 6.0e-08 and the "
              f"check 1.5e-05.")
    if wrong:
        print("\nWrong answers:\n")
        print("\n".join(f"- {text}" for text in wrong))
    print("\n" + ("Not completed: " + ", ".join(missing) + "." if missing else
                  "Every line above was completed."))
    return not missing and not wrong


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "prepare":
        prepare(*sys.argv[2:])
    elif len(sys.argv) == 3 and sys.argv[1] == "table":
        sys.exit(0 if table(sys.argv[2]) else 1)
    else:
        sys.exit(__doc__)
