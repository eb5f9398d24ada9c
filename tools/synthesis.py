"""What the tools that compare our figures with synthesis share: lines of operators, and one unit
generated and put through flow x of synth_flow.sh."""
import dataclasses
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
    """Our record of a unit and what flow x makes of it."""
    record: dict
    period: float  # ns: asked for, or named by a warning
    lut: int
    carry: int
    ff: int
    srl: int
    dsp: int
    ram: int
    ns: float

    @property
    def cycles(self):
        return max(self.record["latency"])

    @property
    def stage(self):
        return self.record["longest_stage"]["delay_ps"] / 1000


def synthesised(program, words, clock):
    """The unit, or a text that says why there is none."""
    flow = os.path.join(os.path.dirname(os.path.realpath(__file__)), "synth_flow.sh")
    with tempfile.TemporaryDirectory() as folder:
        try:
            run = subprocess.run([program, *COMMON.split(), "-frequency", str(clock), *words.split()],
                                 cwd=folder, capture_output=True, text=True, check=False,
                                 timeout=GENERATION_SECONDS)
            with open(os.path.join(folder, "topModel/topModel.json"), encoding="utf-8") as file:
                record = json.load(file)
        except subprocess.TimeoutExpired:
            return f"not generated in {GENERATION_SECONDS} s"
        except OSError:
            return "not generated: " + run.stderr.strip()[:100]
        text = subprocess.run([flow, "-top", "topModel", "-flows", "x", "-limit", "900",
                               os.path.join(folder, "topModel/topModel.v")],
                              capture_output=True, text=True, check=False).stdout
    cells = [cell.strip() for cell in text.strip().strip("|").split("|")][7:14]
    named = re.search(r"built for ([0-9.]+) MHz", run.stdout + run.stderr)
    period = max(1000 / clock, record["period_ps"] / 1000 if named else 0)
    try:
        return Unit(record, period, *(int(cell) for cell in cells[:6]), float(cells[6]))
    except (ValueError, IndexError):
        return "not synthesised: " + text.strip()[:100]
