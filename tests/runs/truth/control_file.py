#!/usr/bin/env python3
"""Control files of a simulated case, written from the same case.json as its pattern.

    control_file.py CASE_DIRECTORY...   writes <case>.pcr (disturbed start, codes), <case>_exact.pcr
                                        (true values, nothing refined), truth.json and truth.txt;
                                        with "filter" in the case, <case>_filter.pcr with a filtered background

Parameters are numbered in the order in which the file names them; slots that share a tag share
a number, with the multiplier "m" of the slot (1 when absent).
"""
import json
import math
import sys
from pathlib import Path

import simulate

NBCKGD = {"filter": -2, "polynomial": 0, "polynomial12": -3, "debye": -1, "fourier": -4, "chebychev": -5, "file": 1}
JOB = {"x": 0, "n": 1, "e": 4}
GEOMETRY = {"bragg-brentano": 0, "synchrotron": 3}
PROFILE_LINES = (
    ("!  Scale          Shape1      Bov      Str1      Str2      Str3   Strain-Model",
     ("Scale", "Shape1", "Bov", None, None, None)),
    ("!       U            V            W             X            Y         GauSiz      LorSiz    Size-Model",
     ("U", "V", "W", "X", "Y", "GauSiz", None)),
)


def number_text(value):
    text = f"{value:.8g}"
    return text if "." in text or "e" in text else text + ".0"


class Numbers:
    """Parameter numbers by tag, and what truth.json tells of each."""

    def __init__(self):
        self.number, self.entries = {}, []

    def code(self, leaf, name):
        if not simulate.is_parameter(leaf):
            return 0.0
        tag = leaf["tag"]
        multiplier = leaf.get("m", 1.0)
        if tag not in self.number:
            self.number[tag] = len(self.number) + 1
            self.entries.append({"number": self.number[tag], "tag": tag, "name": name, "value": leaf["v"],
                                 "start": leaf["s"], "slots": []})
        code = 10.0 * self.number[tag] + multiplier
        if multiplier < 0:
            code = -10.0 * self.number[tag] + multiplier
        entry = self.entries[self.number[tag] - 1]
        entry.setdefault("code", code)
        entry["slots"].append({"name": name, "value": leaf["v"], "start": leaf["s"], "code": code})
        return code


class Writer:
    def __init__(self, case, key, name):
        self.case, self.key, self.name = case, key, name
        self.exact = key == "v"
        self.numbers, self.lines = Numbers(), []

    def value(self, leaf):
        return number_text(simulate.resolve(leaf, self.key))

    def code(self, leaf, name):
        code = self.numbers.code(leaf, name)
        return "0.00" if self.exact else f"{code:.2f}"

    def put(self, *words):
        self.lines.append(" ".join(str(w) for w in words))

    def comment(self, text):
        self.lines.append("!" + text)

    def values_and_codes(self, leaves, names, last=None):
        width = 13
        values = " ".join(self.value(leaf).rjust(width) for leaf in leaves)
        self.put(values if last is None else f"{values} {last:5d}")
        self.put(" ".join(self.code(leaf, name).rjust(width) for leaf, name in zip(leaves, names)))

    # ------------------------------------------------------------ global section

    def nbckgd(self, pattern):
        model = pattern["background"]
        if model["kind"] in ("points", "spline"):
            return len(model["values"]) * (1 if model["kind"] == "points" else -1)
        return NBCKGD[model["kind"]]

    def nori(self, ip):
        return 1 if any(phase["profiles"][ip] and "Pref1" in phase["profiles"][ip]
                        for phase in self.case["phases"]) else 0

    def pattern_flags(self, ip):
        """jobtyp nprof nbckgd nexcrg nscat nori, iwgt, ilor."""
        p = self.case["patterns"][ip]
        first = [JOB[p["radiation"]], p["npr"], self.nbckgd(p), len(p.get("excluded", [])),
                 len(p.get("scatterers", [])), self.nori(ip)]
        return first, p.get("iwgt", 0), GEOMETRY[p.get("geometry", "bragg-brentano")]

    def assign(self):
        """1: peaks are assigned to points in every cycle, as the tails of a start with narrower peaks need."""
        return int(self.case.get("assign", True))

    def flags(self):
        case = self.case
        if case["form"] == "short":
            first, iwgt, ilor = self.pattern_flags(0)
            job, npr, nba, nex, nsc, nor = first
            self.comment("Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut")
            flags = [job, npr, len(case["phases"]), nba, nex, nsc, nor, 0, iwgt, ilor, self.assign()] + [0] * 8
            self.put(*(f"{i:3d}" for i in flags))
            self.comment("Iot Ipl Ipc Mat Nxt Ls1 Ls2 Ls3 Nli Prf Ins Jci Jsy Jlk Jfo Sho Ana")
            instr = case["patterns"][0]["instr"]
            self.put(*(f"{i:3d}" for i in [0, 0, 1, 0, int(not self.exact), 0, 0, 0, 0, 1, instr, 0, 0, 0, 0, 0, 1]))
            return
        self.comment("Nph Dum Ias Nre Cry Opt Aut")
        self.put(*(f"{i:3d}" for i in [len(case["phases"]), 0, self.assign(), 0, 0, 0, 0]))
        self.comment("Job Npr Nba Nex Nsc Nor Iwg Ilo Res Ste Uni Cor Anm Int")
        for ip in range(len(case["patterns"])):
            first, iwgt, ilor = self.pattern_flags(ip)
            self.put(*(f"{i:3d}" for i in first + [iwgt, ilor] + [0] * 6))
        self.comment(" Data files, one line per pattern")
        for p in case["patterns"]:
            self.put(p["file"] + ".dat")
        self.comment("Mat Nxt Nli Jci Jsy Sho")
        self.put(*(f"{i:3d}" for i in [0, int(not self.exact), 0, 0, 0, 0]))
        self.comment("Iot Ipl Ipc Ls1 Ls2 Ls3 Prf Ins Jlk Jfo Ana")
        for p in case["patterns"]:
            self.put(*(f"{i:3d}" for i in [0, 0, 1, 0, 0, 0, 1, p["instr"], 0, 0, 1]))

    def radiation(self):
        self.comment("  Lambda1   Lambda2     Ratio     Bkpos       Wdt      Cthm    tmv(1)      Rlim       Rkk    tmv(2)")
        for p in self.case["patterns"]:
            waves = p["lambda"] if len(p["lambda"]) > 1 else p["lambda"] * 2
            ratio = p["ratio"] if len(p["lambda"]) > 1 else 1.0
            self.put(*(number_text(v).rjust(9) for v in waves + [ratio, p["bkpos"], p["wdt"], p.get("cthm", 0.0), 0.0,
                                                                 p["rlim"], p.get("rkk", 0.0), 0.0]))

    def cycles(self):
        count = [1 if self.exact else self.case.get("cycles", 30), "0.01", "1.00", "1.00", "1.00", "1.00"]
        ranges = [[number_text(v) for v in p["range"]] + ["0.0", "0.0"] for p in self.case["patterns"]]
        if self.case["form"] == "short":
            self.comment("Mcycle   Eps  Relax1 Relax2 Relax3 Relax4      Thmin        Step       Thmax   Alpsd   Sent0")
            self.put(*count, *ranges[0])
            return
        self.comment("Mcycle   Eps  Relax1 Relax2 Relax3 Relax4")
        self.put(*count)
        self.comment("     Thmin        Step       Thmax   Alpsd   Sent0")
        for line in ranges:
            self.put(*line)

    def background_points(self, ip, pattern):
        model = pattern["background"]
        if model["kind"] not in ("points", "spline"):
            return
        self.comment(f"     Position      Height      Code    Background points of Pattern# {ip + 1}")
        for j, (position, height) in enumerate(model["values"]):
            self.put(number_text(position).rjust(13), self.value(height).rjust(12),
                     self.code(height, f"background_{j + 1} pattern {ip + 1}").rjust(9))

    def scattering_entries(self, pattern):
        for name in pattern.get("scatterers", []):
            s = self.case["scatterers"][name]
            self.comment(" Scattering entries: name  Dfp  Dfpp  Ity, then a1 b1 a2 b2 a3 b3 a4 b4 c")
            self.put(name.ljust(4), number_text(s["fp"]), number_text(s["fpp"]), 0)
            self.put(*(number_text(v) for pair in zip(s["a"], s["b"]) for v in pair), number_text(s["c"]))

    def instrument(self, ip, pattern):
        where = f"pattern {ip + 1}"
        self.comment("    Zero    Code   SyCos    Code   SySin    Code  Lambda     Code  More")
        words = []
        for name in ("zero", "sycos", "sysin"):
            words += [self.value(pattern[name]), self.code(pattern[name], f"{name} {where}")]
        self.put(*words, "0.00000", "0.00", 0)
        model = pattern["background"]
        if model["kind"] in ("points", "spline"):
            return
        if model["kind"] == "filter":
            self.put(number_text(model["window"]), model["cycles"])
            return
        self.comment(f" Background values and codes of Pattern# {ip + 1}  ({model['kind']})")
        values = model["values"]
        for start in range(0, len(values), 6):
            self.values_and_codes(values[start:start + 6],
                                  [f"background_{j + 1} {where}" for j in range(start, min(start + 6, len(values)))])

    # ------------------------------------------------------------ phases

    def phase(self, iph, phase):
        short = self.case["form"] == "short"
        structure = phase.get("kind", "structure") == "structure"
        natom = len(phase["atoms"]) if structure else 0
        jbt, irf = (0, 0) if structure else ((-3, 2) if self.exact else (2, 0))
        direction = [number_text(v) for v in phase.get("pref_direction", [0, 0, 1])]
        npr = [p["npr"] for p in self.case["patterns"]]
        self.comment(f" Data for PHASE number: {iph + 1}")
        self.put(phase["name"])
        if short:
            self.comment("Nat Dis Ang Pr1 Pr2 Pr3 Jbt Irf Isy Str Furth      ATZ   Nvk Npr More")
            self.put(natom, 0, 0, *direction, jbt, irf, 0, 0, 0, "0.000", 0, npr[0], 0)
        else:
            self.comment("Nat Dis Ang Jbt Isy Str Furth      ATZ   Nvk More")
            self.put(natom, 0, 0, jbt, 0, 0, 0, "0.000", 0, 0)
            self.comment(" Contributions of the phase to the patterns")
            self.put(*(1 if profile else 0 for profile in phase["profiles"]))
            self.comment("Irf Npro Jtyp Nref_sp Ph_shift, then Pr1 Pr2 Pr3 Brinl Rmua Rmub Rmuc, for each pattern")
            for ip, profile in enumerate(phase["profiles"]):
                if profile:
                    self.put(irf, npr[ip], 0, 0, 0)
                    self.put(*direction, "0.0", "0.0", "0.0", "0.0")
        self.put(phase["symbol"].ljust(20), "<-- space group symbol")
        if structure:
            self.comment("Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc")
            for atom in phase["atoms"]:
                self.atom(iph, atom)
        for ip, profile in enumerate(phase["profiles"]):
            if profile:
                self.profile(iph, ip, phase, profile)

    def atom(self, iph, atom):
        fields = ("x", "y", "z", "b", "occ")
        betas = atom.get("betas")
        self.put(atom["label"].ljust(6), atom["type"].ljust(4), *(self.value(atom[f]).rjust(10) for f in fields),
                 0, 0, 2 if betas else 0, 0)
        self.put(" " * 11, *(self.code(atom[f], f"{f}_{atom['label']} phase {iph + 1}").rjust(10) for f in fields))
        if betas:
            names = [f"{b}_{atom['label']} phase {iph + 1}" for b in ("b11", "b22", "b33", "b12", "b13", "b23")]
            self.values_and_codes(betas, names)

    def profile(self, iph, ip, phase, profile):
        where = f"phase {iph + 1} pattern {ip + 1}"
        self.comment(f"-------> Profile Parameters for Pattern #  {ip + 1}")
        for head, names in PROFILE_LINES:
            self.lines.append(head)
            self.values_and_codes([profile.get(n, 0.0) if n else 0.0 for n in names],
                                  [f"{n} {where}" for n in names], 0)
        self.comment("     a          b         c        alpha      beta       gamma")
        self.values_and_codes(phase["cell"], [f"cell_{n} phase {iph + 1}" for n in ("a", "b", "c", "al", "be", "ga")])
        self.comment("  Pref1    Pref2      Asy1     Asy2     Asy3     Asy4      S_L      D_L")
        asymmetry = profile.get("Asy", [0.0] * 4)
        self.values_and_codes([profile.get("Pref1", 0.0), profile.get("Pref2", 0.0), *asymmetry,
                               profile.get("S_L", 0.0), profile.get("D_L", 0.0)],
                              [f"{n} {where}" for n in ("Pref1", "Pref2", "Asy1", "Asy2", "Asy3", "Asy4", "S_L", "D_L")])

    # ------------------------------------------------------------ whole file

    def text(self):
        case = self.case
        self.lines = [case["title"]]
        if case["form"] == "long":
            count = len(case["patterns"])
            self.put("NPATT", count, *([1] * count))
            self.put("W_PAT", *(number_text(1.0 / count) for _ in range(count)))
        self.flags()
        self.radiation()
        self.cycles()
        for ip, pattern in enumerate(case["patterns"]):
            self.background_points(ip, pattern)
            if pattern.get("excluded"):
                self.comment(f" Excluded regions (alow ahigh) of Pattern#  {ip + 1}")
                for low, high in pattern["excluded"]:
                    self.put(number_text(low).rjust(13), number_text(high).rjust(13))
        for pattern in case["patterns"]:
            self.scattering_entries(pattern)
        self.comment(" Number of refined parameters (maxs)")
        self.put("MAXS")
        for ip, pattern in enumerate(case["patterns"]):
            self.instrument(ip, pattern)
        for iph, phase in enumerate(case["phases"]):
            self.phase(iph, phase)
        count = 0 if self.exact else len(self.numbers.entries)
        return "\n".join(line if line != "MAXS" else f"{count:8d}" for line in self.lines) + "\n"


def write_structure_factors(path, case):
    """List h k l multiplicity F of the profile-matching phase, so that its exact control file can hold
    the intensities fixed."""
    true = simulate.resolve(case)
    listed = simulate.Model().pattern(true, 0)["reflections"]
    lines = [case["title"], "h k l multiplicity F"]
    for r in sorted({r["hkl"]: r for r in listed}.values(), key=lambda r: r["peak"].theta):
        f = math.sqrt(r["strength"] / r["mult"])
        lines.append(" ".join(f"{i:4d}" for i in r["hkl"]) + f" {r['mult']:4d} {f:14.6f}")
    path.write_text("\n".join(lines) + "\n")


def write_table(path, truth):
    """What a test needs of truth.json, one line per refined number: number, name, true value, and the
    estimate of fit.py with its deviation where it has been made."""
    lines = ["# number name value fit esd"]
    for e in truth["parameters"]:
        columns = [str(e["number"]), e["name"].replace(" ", "_"), f"{e['value']:.9g}"]
        lines.append(" ".join(columns + [f"{e[k]:.9g}" for k in ("fit", "esd") if k in e]))
    path.write_text("\n".join(lines) + "\n")


def write_truth(path, case, name, entries, exact=False):
    """truth.json; what fit.py has added to a former one is kept."""
    former = json.loads(path.read_text()) if path.exists() else {"parameters": []}
    kept = {e["tag"]: e for e in former["parameters"]}
    for entry in entries:
        old = kept.get(entry["tag"], {})
        entry.update({k: old[k] for k in ("fit", "esd") if k in old})
    truth = {"title": case["title"], "control_file": f"{name}.pcr",
             "patterns": [{"data": p["file"] + ".dat", "excluded": p.get("excluded", [])} for p in case["patterns"]],
             "parameters": entries}
    if exact:
        truth["exact_control_file"] = f"{name}_exact.pcr"
        for pattern, p in zip(truth["patterns"], case["patterns"]):
            pattern["reference"] = p["file"] + ".ref"
    if "fit_chi2" in former:
        truth["fit_chi2"] = former["fit_chi2"]
    path.write_text(json.dumps(truth, indent=1) + "\n")
    write_table(path.with_suffix(".txt"), truth)


def write_all(directory, exact=True):
    directory = Path(directory)
    case, name = simulate.load_case(directory), directory.resolve().name
    simulate.tag_parameters(case, {})
    start = Writer(case, "s", name)
    (directory / f"{name}.pcr").write_text(start.text())
    if exact:
        (directory / f"{name}_exact.pcr").write_text(Writer(case, "v", name).text())
        if any(phase.get("kind") == "profile" for phase in case["phases"]):
            write_structure_factors(directory / f"{name}_exact1.hkl", case)
    write_truth(directory / "truth.json", case, name, start.numbers.entries, exact)
    if "filter" in case:
        case["patterns"][0]["background"] = {"kind": "filter", **case["filter"]}
        filtered = Writer(case, "s", f"{name}_filter")
        (directory / f"{name}_filter.pcr").write_text(filtered.text())
        write_truth(directory / "truth_filter.json", case, f"{name}_filter", filtered.numbers.entries)
    return start.numbers.entries


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        print(argument, len(write_all(argument)), "parameters")
