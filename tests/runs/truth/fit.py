#!/usr/bin/env python3
"""Least-squares fit of a case's data with the model of simulate.py, from the disturbed start.

    fit.py CASE_DIRECTORY...   adds "fit" and "esd" to every parameter of truth.json and truth.txt, prints
                               how far each lies from the truth

It answers two questions about a case before a program is blamed for it: does the start lead to the
truth, and what is the best estimate that these very data allow. Gauss-Newton with derivatives by
forward differences of the double-precision model; nothing of the program under test is used.
"""
import json
import math
import sys
from pathlib import Path

import control_file
import simulate


def shifted(node, shifts):
    """The case with every parameter at its start plus multiplier times the shift of its tag."""
    if simulate.is_parameter(node):
        return node["s"] + node.get("m", 1.0) * shifts[node["tag"]]
    if isinstance(node, dict):
        return {name: shifted(child, shifts) for name, child in node.items()}
    if isinstance(node, list):
        return [shifted(child, shifts) for child in node]
    return node


def solve(matrix, vector):
    """Inverse and solution by Gauss-Jordan with scaling of a symmetric positive matrix."""
    n = len(vector)
    scale = [1.0 / math.sqrt(matrix[i][i]) for i in range(n)]
    rows = [[matrix[i][j] * scale[i] * scale[j] for j in range(n)] + [float(i == j) for j in range(n)]
            for i in range(n)]
    for i in range(n):
        pivot = max(range(i, n), key=lambda r: abs(rows[r][i]))
        rows[i], rows[pivot] = rows[pivot], rows[i]
        head = rows[i][i]
        rows[i] = [v / head for v in rows[i]]
        for r in range(n):
            if r != i and rows[r][i]:
                factor = rows[r][i]
                rows[r] = [a - factor * b for a, b in zip(rows[r], rows[i])]
    inverse = [[rows[i][n + j] * scale[i] * scale[j] for j in range(n)] for i in range(n)]
    return inverse, [sum(inverse[i][j] * vector[j] for j in range(n)) for i in range(n)]


def read_data(path, pattern):
    """Observed values and standard deviations (None for a file of counts alone)."""
    lines = path.read_text().splitlines()
    if pattern["instr"] == 0:
        return [float(w) for line in lines[1:] for w in line.split()], None
    rows = [line.split() for line in lines[6:]]
    return [float(r[1]) for r in rows], [float(r[2]) for r in rows]


class Fit:
    def __init__(self, directory):
        self.directory = Path(directory)
        self.case = simulate.load_case(directory)
        self.starts = {}
        simulate.tag_parameters(self.case, self.starts)
        self.tags = list(self.starts)
        self.model = simulate.Model()
        self.data = [read_data(self.directory / f"{p['file']}.dat", p) for p in self.case["patterns"]]
        self.used = [[all(not low <= x <= high for low, high in p.get("excluded", []))
                      for x in simulate.abscissae(p)] for p in self.case["patterns"]]
        matching = any(ph.get("kind") == "profile" for ph in self.case["phases"])
        self.intensities = {} if matching else None

    def calculate(self, shifts, cuts=None):
        case = simulate.prepare(shifted(self.case, dict(zip(self.tags, shifts))))
        return [self.model.pattern(case, ip, self.intensities, cuts[ip] if cuts else None)
                for ip in range(len(case["patterns"]))]

    def totals(self, shifts, cuts=None):
        return [[b + p for b, p in zip(r["background"], r["bragg"])] for r in self.calculate(shifts, cuts)]

    def chi2(self, totals):
        """Weighted sum of squares and points; counts alone are weighted by the calculated pattern."""
        total, points = 0.0, 0
        for (y, sigma), calc, used in zip(self.data, totals, self.used):
            for i, yc in enumerate(calc):
                if used[i]:
                    variance = sigma[i] ** 2 if sigma else max(yc, 1.0)
                    total += (y[i] - yc) ** 2 / variance
                    points += 1
        return total, points

    def normal_equations(self, shifts):
        base = self.totals(shifts)
        cuts = [{(r["phase"], r["hkl"], r["wave"]): r["cut"] for r in result["reflections"]}
                for result in self.calculate(shifts)]
        n = len(self.tags)
        derivatives = []
        for j, tag in enumerate(self.tags):
            step = 1e-5 * max(abs(self.starts[tag][0]), 0.01)
            moved = list(shifts)
            moved[j] += step
            derivatives.append([[(m - b) / step for m, b in zip(mp, bp)] for mp, bp in zip(self.totals(moved, cuts), base)])
        matrix, vector = [[0.0] * n for _ in range(n)], [0.0] * n
        for ip, ((y, sigma), used) in enumerate(zip(self.data, self.used)):
            for i, yc in enumerate(base[ip]):
                if not used[i]:
                    continue
                weight = 1.0 / (sigma[i] ** 2 if sigma else max(yc, 1.0))
                row = [(j, d[ip][i]) for j, d in enumerate(derivatives) if d[ip][i]]
                for a, (j, dj) in enumerate(row):
                    wd = weight * dj
                    vector[j] += wd * (y[i] - yc)
                    for k, dk in row[a:]:
                        matrix[j][k] += wd * dk
        for j in range(n):
            for k in range(j):
                matrix[j][k] = matrix[k][j]
        return matrix, vector, base

    def partition(self, shifts):
        """One Le Bail update: each reflection takes its share of the observed net intensity."""
        for ip, result in enumerate(self.calculate(shifts)):
            y = self.data[ip][0]
            gathered = {}
            for r in result["reflections"]:
                first, last = r["window"]
                xs = result["x"][first:last + 1]
                peak, key = r["peak"], (r["phase"], r["hkl"])
                reach = self.case["patterns"][ip]["wdt"] * peak.fwhm
                sums = gathered.setdefault(key, [0.0, 0.0])
                for i, (x, value) in enumerate(zip(xs, self.model.shape(peak, xs)), first):
                    if abs(x - peak.position) <= reach and result["bragg"][i] > 0.0:
                        share = value * r["area"]
                        sums[0] += share
                        sums[1] += share * (y[i] - result["background"][i]) / result["bragg"][i]
            for key, (calculated, observed) in gathered.items():
                if calculated > 0.0:
                    self.intensities[key] *= max(observed / calculated, 0.0)

    def run(self, cycles=12):
        shifts = [0.0] * len(self.tags)
        if self.intensities is not None:
            cycles = 40
            true = simulate.prepare(simulate.resolve(self.case))
            for r in self.model.pattern(true, 0)["reflections"]:
                self.intensities[(r["phase"], r["hkl"])] = 1.0
            for _ in range(8):
                self.partition(shifts)
        for _ in range(cycles):
            matrix, vector, base = self.normal_equations(shifts)
            inverse, step = solve(matrix, vector)
            before, damping = self.chi2(base)[0], 1.0
            while True:
                moved = [s + damping * d for s, d in zip(shifts, step)]
                try:
                    after = self.chi2(self.totals(moved))[0]
                except ValueError:
                    after = math.inf
                if after <= before * (1.0 + 1e-9) or damping < 1e-3:
                    break
                damping *= 0.5
            shifts = moved
            if self.intensities is not None:
                self.partition(shifts)
            elif all(abs(d) < 0.002 * math.sqrt(inverse[j][j]) for j, d in enumerate(step)):
                break
        total, points = self.chi2(self.totals(shifts))
        return shifts, [math.sqrt(inverse[j][j]) for j in range(len(shifts))], total / (points - len(shifts))


def report(directory):
    fit = Fit(directory)
    shifts, esds, chi2 = fit.run()
    path = Path(directory) / "truth.json"
    truth = json.loads(path.read_text())
    entries = {e["tag"]: e for e in truth["parameters"]}
    worst = 0.0
    print(f"{directory}: reduced chi-square {chi2:.4f}")
    for tag, shift, esd in zip(fit.tags, shifts, esds):
        start, true = fit.starts[tag]
        entry = entries[tag]
        entry["fit"], entry["esd"] = float(f"{start + shift:.9g}"), float(f"{esd:.4g}")
        pull = (start + shift - true) / esd
        worst = max(worst, abs(pull))
        print(f"  {entry['name']:34s} start {start:12.6g} truth {true:12.6g} fit {start + shift:12.6g} "
              f"esd {esd:10.3g} pull {pull:6.2f} start-off {(start - true) / esd:8.1f}")
    truth["fit_chi2"] = float(f"{chi2:.6g}")
    path.write_text(json.dumps(truth, indent=1) + "\n")
    control_file.write_table(path.with_suffix(".txt"), truth)
    print(f"  largest pull {worst:.2f}")


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        report(argument)
