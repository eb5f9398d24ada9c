"""What the tools that compare our figures with synthesis share: lines of operators, and one unit
generated and put through flow x of synth_flow.sh, and through its flow n, which has no DSP blocks.

What synthesis found is kept in the folder that SYNTHESIS_CACHE names, or build/synthesis: a file
for each different circuit, flow, flow script and yosys. measurements/synthesis.csv holds what took
hours to find, so that it need not be found again on the next machine."""
import csv
import dataclasses
import functools
import hashlib
import json
import os
import re
import subprocess
import tempfile

import replay_cases

COMMON = "-lang Verilog -target TarnV -noChanValid -dontCareOnReset"
FORMATS = ["5 10", "8 23", "11 52"]
WIDTHS = ["8", "33", "64"]
GENERATION_SECONDS = 300
TOOLS = os.path.dirname(os.path.realpath(__file__))
FLOW = os.path.join(TOOLS, "synth_flow.sh")
CACHE = os.environ.get("SYNTHESIS_CACHE") or os.path.join(os.path.dirname(TOOLS), "build/synthesis")
MEASURED = os.path.join(os.path.dirname(TOOLS), "measurements/synthesis.csv")


def unit_lines(formats=3):
    """A line for each operator word in up to three formats, or in the middle one alone, as it is
    rounded best; three further lines where that changes the circuit most."""
    for word, settings in replay_cases.words().items():
        chosen = {str(replay_cases.FORMATS): FORMATS, str(replay_cases.WIDTHS): WIDTHS}.get(
            str(settings["parameters"]), settings["parameters"][:3])
        rounding = "-correctRounding" if "-correctRounding" in settings["rounding"] else ""
        for parameters in chosen if formats > 1 else chosen[:2][-1:]:
            yield " ".join(part for part in (rounding, word, parameters, settings["further"][0])
                           if part)
    for word in ("FPAdd", "FPMul", "FPMultAdd"):
        for parameters in FORMATS if formats > 1 else FORMATS[1:2]:
            yield f"{word} {parameters}"
            yield f"-error 2 {word} {parameters}"
            yield f"-correctRounding -subnormals 1 {word} {parameters}"


@dataclasses.dataclass
class Unit:
    """Our record of a unit and what flow x makes of it, and flow n where that was asked for."""
    record: dict
    period: float  # ns: asked for, or named by a warning
    lut: int
    carry: int
    ff: int
    srl: int
    dsp: int
    ram: int
    ns: float
    soft_lut: int = 0
    soft_ns: float = 0

    @property
    def cycles(self):
        return max(self.record["latency"])

    @property
    def stage(self):
        return self.record["longest_stage"]["delay_ps"] / 1000


@functools.cache
def flow_identity():
    """The bytes that tell one flow from another: its script and the version of yosys."""
    with open(FLOW, "rb") as file:
        version = subprocess.run(["yosys", "-V"], capture_output=True, check=True).stdout
        return file.read() + version


# So much of a digest tells circuits apart in the file of measurements.
DIGITS = 20

# The columns of a flow's figures in the row of synth_flow.sh, ns last.
FIGURES_OF_FLOW = {"x": slice(7, 14), "n": slice(14, 17)}


@functools.cache
def measured():
    """The rows of measurements/synthesis.csv by circuit, as texts."""
    try:
        with open(MEASURED, newline="", encoding="utf-8") as file:
            return {key: figures for key, *figures in list(csv.reader(file))[1:]}
    except OSError:
        return {}


# What this run has looked up in flow x.
seen = {}


def keep_measured(replace):
    """Writes what this run has looked up beside what stands in measurements/synthesis.csv, or in its
    place."""
    rows = {**({} if replace else measured()), **seen}
    with tempfile.NamedTemporaryFile("w", dir=os.path.dirname(MEASURED), delete=False, newline="",
                                     encoding="utf-8") as file:
        table = csv.writer(file, lineterminator="\n")
        table.writerow("circuit LUT CARRY4 FF SRL DSP RAM18 ns".split())
        table.writerows([key, *rows[key]] for key in sorted(rows))
    os.chmod(file.name, 0o644)
    os.replace(file.name, MEASURED)


def numbers_of(cells):
    return [*(int(cell) for cell in cells[:-1]), float(cells[-1])]


def figures_of(verilog, flow="x"):
    """The figures of a flow of a file whose top is topModel: LUT, CARRY4, then of flow x FF, SRL,
    DSP and RAM18, then ns; or a text that says why there are none."""
    with open(verilog, "rb") as file:
        # Comments name the line that made the circuit, and others may make the same one.
        code = b"".join(line for line in file if not line.lstrip().startswith(b"//"))
    key = hashlib.sha256(flow_identity() + code + (b"" if flow == "x" else flow.encode())).hexdigest()
    figures = numbers_of(measured()[key[:DIGITS]]) if key[:DIGITS] in measured() else synthesis_of(
        verilog, flow, os.path.join(CACHE, key + ".json"))
    if flow == "x" and not isinstance(figures, str):
        seen[key[:DIGITS]] = figures
    return figures


def synthesis_of(verilog, flow, kept):
    """The figures that the file `kept` holds, or those of a run of the flow, which then stand there."""
    try:
        with open(kept, encoding="utf-8") as file:
            return json.load(file)
    except (OSError, ValueError):
        pass
    text = subprocess.run([FLOW, "-top", "topModel", "-flows", flow, "-limit", "900", verilog],
                          capture_output=True, text=True, check=False).stdout
    cells = [cell.strip() for cell in text.strip().strip("|").split("|")][FIGURES_OF_FLOW[flow]]
    try:
        figures = numbers_of(cells)
    except (ValueError, IndexError):
        return "not synthesised: " + text.strip()[:100]
    os.makedirs(CACHE, exist_ok=True)
    with tempfile.NamedTemporaryFile("w", dir=CACHE, delete=False, encoding="utf-8") as file:
        json.dump(figures, file)
    os.replace(file.name, kept)
    return figures


def synthesised(program, words, clock, without_dsps=False):
    """The unit, or a text that says why there is none; with flow n, too, where that is asked for."""
    run = None
    with tempfile.TemporaryDirectory() as folder:
        try:
            run = subprocess.run([program, *COMMON.split(), "-frequency", str(clock), *words.split()],
                                 cwd=folder, capture_output=True, text=True, check=False,
                                 timeout=GENERATION_SECONDS)
            with open(os.path.join(folder, "topModel/topModel.json"), encoding="utf-8") as file:
                record = json.load(file)
        except subprocess.TimeoutExpired:
            return f"not generated in {GENERATION_SECONDS} s"
        except OSError as error:
            return "not generated: " + (run.stderr.strip() if run else str(error))[:100]
        verilog = os.path.join(folder, "topModel/topModel.v")
        figures = figures_of(verilog)
        soft = figures_of(verilog, "n") if without_dsps else (0, 0, 0)
    for found in (figures, soft):
        if isinstance(found, str):
            return found
    named = re.search(r"built for ([0-9.]+) MHz", run.stdout + run.stderr)
    period = max(1000 / clock, record["period_ps"] / 1000 if named else 0)
    return Unit(record, period, *figures, soft_lut=soft[0], soft_ns=soft[-1])
