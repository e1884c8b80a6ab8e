#!/usr/bin/env python3
"""Checks of simulate.py against hand formulas, crystal chemistry and a second quadrature.

    python3 check_simulate.py
"""
import json
import math
import random
import unittest
from pathlib import Path

import simulate

HERE = Path(__file__).resolve().parent
FCC = ["-x,-y,z", "-x,y,-z", "z,x,y", "y,x,-z", "-x,-y,-z", "x,y+1/2,z+1/2", "x+1/2,y,z+1/2"]
CORUNDUM = ["-y,x-y,z", "y,x,-z+1/2", "-x,-y,-z", "x+2/3,y+1/3,z+1/3"]
QUARTZ = ["-y,x-y,z+2/3", "y,x,-z"]


def case(name):
    return simulate.resolve(json.loads((HERE / name / "case.json").read_text()))


def bare_peak(position, fwhm, eta, asymmetry=(0, 0, 0, 0), axial=(0.0, 0.0)):
    peak = simulate.Peak.__new__(simulate.Peak)
    peak.position, peak.fwhm, peak.eta, peak.asymmetry, peak.axial = position, fwhm, eta, asymmetry, axial
    peak.theta = 0.5 * position * simulate.RAD
    return peak


def images(group, x):
    return {tuple(round((sum(r[i][j] * x[j] for j in range(3)) + t[i]) % 1.0, 4) % 1.0 for i in range(3))
            for r, t in group.operators}


class Structure(unittest.TestCase):
    def test_rock_salt_structure_factors_by_formula(self):
        nacl = case("nacl_gauss")
        phase, scatterers = nacl["phases"][0], nacl["scatterers"]
        group = simulate.SpaceGroup(phase["generators"])
        a, (na, cl) = phase["cell"][0], phase["atoms"]

        def damped(atom, s2):
            s = scatterers[atom["type"]]
            f0 = s["c"] + sum(a * math.exp(-b * s2) for a, b in zip(s["a"], s["b"]))
            return (f0 + s["fp"] + 1j * s["fpp"]) * math.exp(-atom["b"] * s2) * 48.0 * atom["occ"]

        for hkl, sign in (((1, 1, 1), -1), ((2, 0, 0), 1), ((3, 1, 1), -1), ((4, 2, 0), 1)):
            s2 = sum(h * h for h in hkl) / (4.0 * a * a)
            whole_cell = abs(4.0 * (damped(na, s2) + sign * damped(cl, s2))) ** 2
            value = simulate.f_squared(group, phase["atoms"], scatterers, "x", hkl, s2)
            self.assertAlmostEqual(value, whole_cell / (4 * 4), delta=1e-9 * whole_cell)

    def test_orders_multiplicities_and_sites(self):
        self.assertEqual(len(simulate.SpaceGroup(FCC).operators), 192)
        found = {o[0]: len(o) for o in simulate.orbits(simulate.SpaceGroup(FCC), [5.64] * 3 + [90.0] * 3, 0.8)}
        self.assertEqual(found, {(1, 1, 1): 8, (2, 0, 0): 6, (2, 2, 0): 12, (3, 1, 1): 24, (2, 2, 2): 8,
                                 (4, 0, 0): 6, (3, 3, 1): 24, (4, 2, 0): 24})
        rhombohedral = simulate.SpaceGroup(CORUNDUM)
        for site, count in (((0, 0, 0.35216), 12), ((0.30624, 0, 0.25), 18), ((0, 0, 0), 6), ((0, 0, 0.25), 6)):
            self.assertEqual(len(images(rhombohedral, site)), count)

    def test_every_lattice_point_is_counted_once(self):
        group, cell = simulate.SpaceGroup(QUARTZ), [4.9134, 4.9134, 5.4052, 90.0, 90.0, 120.0]
        families = simulate.orbits(group, cell, 0.9)
        points = [hkl for orbit in families for hkl in orbit]
        metric = simulate.reciprocal_metric(cell)
        r = range(-8, 9)
        expected = sum(1 for h in r for k in r for l in r if (h, k, l) != (0, 0, 0) and (h or k or l % 3 == 0)
                       and simulate.dot((h, k, l), metric, (h, k, l)) <= 0.81)
        self.assertEqual(len(points), len(set(points)))
        self.assertEqual(len(points), expected)

    def test_silicon_oxygen_bonds_of_quartz(self):
        phase = case("calcite_quartz")["phases"][1]
        a, c = phase["cell"][0], phase["cell"][2]
        si, o = ([atom[k] for k in "xyz"] for atom in phase["atoms"])
        lengths = []
        for x in images(simulate.SpaceGroup(phase["generators"]), o):
            for n in range(27):
                u, v, w = (x[i] + n // 3**i % 3 - 1 - si[i] for i in range(3))
                lengths.append(math.sqrt(a * a * (u * u + v * v - u * v) + c * c * w * w))
        for length in sorted(lengths)[:4]:
            self.assertAlmostEqual(length, 1.609, delta=0.005)
        self.assertGreater(sorted(lengths)[4], 3.0)

    def test_march_dollase_averages_to_one_over_the_sphere(self):
        total = sum(math.sin(t) * (0.49 * math.cos(t) ** 2 + math.sin(t) ** 2 / 0.7) ** -1.5
                    for t in ((i + 0.5) * math.pi / 2000 for i in range(1000))) * math.pi / 2000
        self.assertAlmostEqual(total, 1.0, delta=1e-6)
        metric = simulate.reciprocal_metric([5.0] * 3 + [90.0] * 3)
        along = simulate.march_dollase([(0, 0, 2), (0, 0, -2)], metric, (0, 0, 1), 0.7, 0.0)
        self.assertAlmostEqual(along, 0.7**-3)
        self.assertAlmostEqual(simulate.march_dollase([(1, 0, 0)], metric, (0, 0, 1), 0.7, 0.25),
                               0.75 * 0.7**1.5 + 0.25)


class Profile(unittest.TestCase):
    def test_unit_area(self):
        step = 0.002
        for position, fwhm, asymmetry, axial in ((30.0, 0.08, (0, 0, 0, 0), (0.0, 0.0)),
                                                 (30.0, 0.08, (0.03, 0.004, 0.01, 0.002), (0.0, 0.0)),
                                                 (12.0, 0.06, (0, 0, 0, 0), (0.03, 0.03)),
                                                 (20.0, 0.06, (0, 0, 0, 0), (0.03, 0.012)),
                                                 (120.0, 0.10, (0, 0, 0, 0), (0.012, 0.03))):
            peak = bare_peak(position, fwhm, 0.0, asymmetry, axial)
            grid = [position - 5.0 + i * step for i in range(5001)]
            self.assertAlmostEqual(sum(peak.values(grid)) * step, 1.0, delta=1e-6)

    def test_axial_divergence_against_the_integral_over_the_angle(self):
        for position, s_l, d_l in ((8.0, 0.03, 0.03), (20.0, 0.03, 0.02), (150.0, 0.02, 0.03)):
            fwhm, eta, nodes = 0.06, 0.3, 40000
            cosine = math.cos(position * simulate.RAD)
            ends = [math.acos(cosine * math.sqrt(1.0 + h * h)) / simulate.RAD for h in (s_l + d_l, s_l - d_l)]
            grid = [position + fwhm * k for k in (-3.0, -1.0, -0.3, 0.0, 0.5, 2.0)]
            sums, norm = [0.0] * len(grid), 0.0
            for i in range(nodes):
                u = (i + 0.5) / nodes
                angle = position - (position - ends[0]) * u * u  # removes the root singularity at the peak
                c = math.cos(angle * simulate.RAD)
                inverse_h = abs(cosine) / math.sqrt(c * c - cosine * cosine)
                outside = abs(angle - position) > abs(ends[1] - position)
                seen = (s_l + d_l) * inverse_h - 1.0 if outside else 2.0 * min(s_l, d_l) * inverse_h
                weight = 2.0 * u * seen / abs(c)
                norm += weight
                for j, x in enumerate(grid):
                    sums[j] += weight * simulate.pseudo_voigt(eta, fwhm, x - angle)
            top = max(sums) / norm
            for value, total in zip(bare_peak(position, fwhm, eta, axial=(s_l, d_l)).values(grid), sums):
                self.assertAlmostEqual(value, total / norm, delta=1e-6 * top)

    def test_thompson_cox_hastings_limits(self):
        self.assertEqual(simulate.tch(0.1, 0.0), (simulate.tch(0.1, 0.0)[0], 1e-6))
        h, eta = simulate.tch(1e-9, 0.1)
        self.assertAlmostEqual(h, 0.1, delta=1e-7)
        self.assertAlmostEqual(eta, 1.0, delta=1e-5)

    def test_lorentz_polarisation_of_a_monochromator(self):
        pattern = {"radiation": "x", "cthm": 0.7998}
        theta = 22.5 * simulate.RAD
        self.assertAlmostEqual(simulate.lorentz_polarisation(pattern, theta),
                               1.3999 / (2.0 * math.sin(theta) ** 2 * math.cos(theta)))


class Noise(unittest.TestCase):
    def test_poisson_mean_and_variance(self):
        rng = random.Random(5)
        for mean in (3.0, 60.0, 4000.0):
            n = 40000
            draws = [simulate.poisson(rng, mean) for _ in range(n)]
            average = sum(draws) / n
            variance = sum((d - average) ** 2 for d in draws) / (n - 1)
            self.assertAlmostEqual(average, mean, delta=4.0 * math.sqrt(mean / n))
            self.assertAlmostEqual(variance / mean, 1.0, delta=4.0 * math.sqrt((2.0 + 1.0 / mean) / n))

    def test_spline_through_a_straight_line_is_the_line(self):
        nodes = [(0.0, 1.0), (1.0, 3.0), (2.5, 6.0), (4.0, 9.0)]
        self.assertAlmostEqual(simulate.spline_points(1.7, nodes, None), 1.0 + 2.0 * 1.7)


if __name__ == "__main__":
    unittest.main()
