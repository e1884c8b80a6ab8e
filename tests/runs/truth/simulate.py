#!/usr/bin/env python3
"""Constant-wavelength powder patterns from a structural model, in double precision.

An independent calculation: it shares no code and no file with the program that its patterns
test, and it takes the long way wherever there is one. Reflections come from every h, k, l
inside the limiting sphere, multiplicities from the orbit under the point group, structure
factors from the sum over every operator of the cell, axial divergence from an integral over
the height in the slit.

    simulate.py CASE_DIRECTORY...       reads case.json there, writes the data files, the
                                        noise-free patterns and nothing else

Standard library only. Angles are degrees, lengths angstroms unless a name says otherwise.

A leaf of case.json is a number, or, for a quantity that the refinement has to find,
    {"v": true value, "s": start value, "c": tag shared by tied slots, "m": multiplier}.
"""
import cmath
import json
import math
import random
import sys
from fractions import Fraction
from pathlib import Path

RAD = math.pi / 180.0
GAUSS_NORM = 2.0 * math.sqrt(math.log(2.0) / math.pi)  # area 1 for FWHM 1
GAUSS_EXP = 4.0 * math.log(2.0)
MOTT_BETHE = 0.023934  # m e^2 / (8 pi eps0 h^2) in 1/angstrom: electron length = this * (Z - f) / s^2


# ---------------------------------------------------------------- cases and their parameters

def is_parameter(node):
    return isinstance(node, dict) and "v" in node


def resolve(node, key="v"):
    """The case with every parameter replaced by its true ("v") or start ("s") value."""
    if is_parameter(node):
        return node[key]
    if isinstance(node, dict):
        return {name: resolve(child, key) for name, child in node.items()}
    if isinstance(node, list):
        return [resolve(child, key) for child in node]
    return node


def tag_parameters(node, starts, path=""):
    """Gives every parameter a tag, its own path where the case names none; starts receives start and
    true value of the first slot of each tag."""
    if is_parameter(node):
        node["tag"] = node.get("c", path)
        starts.setdefault(node["tag"], (node["s"], node["v"]))
    elif isinstance(node, dict):
        for name, child in node.items():
            tag_parameters(child, starts, f"{path}/{name}")
    elif isinstance(node, list):
        for i, child in enumerate(node):
            tag_parameters(child, starts, f"{path}/{i}")


def load_case(directory):
    return json.loads((Path(directory) / "case.json").read_text())


# ---------------------------------------------------------------- symmetry

def parse_operator(text):
    """'-y,x-y,z+1/3' -> (3x3 integer rotation, translation as fractions)."""
    rotation, translation = [], []
    for part in text.replace(" ", "").lower().split(","):
        row, shift = [0, 0, 0], Fraction(0)
        for term in part.replace("-", "+-").split("+"):
            if not term:
                continue
            if term[-1] in "xyz":
                row["xyz".index(term[-1])] += -1 if term[0] == "-" else 1
            else:
                shift += Fraction(term)
        rotation.append(tuple(row))
        translation.append(shift % 1)
    return tuple(rotation), tuple(translation)


def multiply(first, second):
    """first after second."""
    (r1, t1), (r2, t2) = first, second
    rotation = tuple(tuple(sum(r1[i][k] * r2[k][j] for k in range(3)) for j in range(3)) for i in range(3))
    translation = tuple((sum(r1[i][k] * t2[k] for k in range(3)) + t1[i]) % 1 for i in range(3))
    return rotation, translation


def close_group(generators):
    """All operators of the cell, centring included, from generators in x,y,z form."""
    generators = [parse_operator(text) for text in generators]
    group = {parse_operator("x,y,z")}
    fresh = set(group)
    while fresh:
        products = {multiply(g, op) for g in generators for op in fresh}
        fresh = products - group
        group |= fresh
        if len(group) > 192:
            raise ValueError("the generators do not close")
    return sorted(group)


class SpaceGroup:
    def __init__(self, generators):
        self.operators = [(rot, tuple(float(t) for t in tr)) for rot, tr in close_group(generators)]
        identity = ((1, 0, 0), (0, 1, 0), (0, 0, 1))
        inversion = ((-1, 0, 0), (0, -1, 0), (0, 0, -1))
        self.centrings = sum(1 for rot, _ in self.operators if rot == identity)
        self.centre_at_origin = any(rot == inversion and not any(tr) for rot, tr in self.operators)
        self.point_group = sorted({rot for rot, _ in self.operators})

    def scale_divisor(self):
        """|F(cell)|^2 over this is the F^2 to which scale factors refer: the sum over the operators
        that are left without the centring translations (each centring vector then counts once) and,
        with -1 at the origin, without the inversion (a factor 2 in F, 4 in F^2)."""
        return self.centrings * (4 if self.centre_at_origin else 1)

    def rotated(self, hkl):
        """Images of a reflection, as row vector times rotation."""
        return [tuple(sum(hkl[i] * rot[i][j] for i in range(3)) for j in range(3)) for rot in self.point_group]

    def absent(self, hkl):
        for rot, tr in self.operators:
            image = tuple(sum(hkl[i] * rot[i][j] for i in range(3)) for j in range(3))
            if image == hkl:
                phase = sum(h * t for h, t in zip(hkl, tr))
                if abs(phase - round(phase)) > 1e-6:
                    return True
        return False


# ---------------------------------------------------------------- reciprocal lattice

def reciprocal_metric(cell):
    """Rows of G*, so that 1/d^2 = h G* h."""
    a, b, c = cell[:3]
    ca, cb, cg = (math.cos(angle * RAD) for angle in cell[3:])
    direct = [[a * a, a * b * cg, a * c * cb], [a * b * cg, b * b, b * c * ca], [a * c * cb, b * c * ca, c * c]]
    det = (direct[0][0] * (direct[1][1] * direct[2][2] - direct[1][2] ** 2)
           - direct[0][1] * (direct[0][1] * direct[2][2] - direct[1][2] * direct[0][2])
           + direct[0][2] * (direct[0][1] * direct[1][2] - direct[1][1] * direct[0][2]))
    cofactor = [[0.0] * 3 for _ in range(3)]
    for i in range(3):
        for j in range(3):
            rows = [r for r in range(3) if r != i]
            cols = [k for k in range(3) if k != j]
            minor = (direct[rows[0]][cols[0]] * direct[rows[1]][cols[1]]
                     - direct[rows[0]][cols[1]] * direct[rows[1]][cols[0]])
            cofactor[i][j] = (-1) ** (i + j) * minor / det
    return cofactor


def dot(h, metric, k):
    return sum(h[i] * metric[i][j] * k[j] for i in range(3) for j in range(3))


def orbits(group, cell, s_max):
    """Every family of equivalent reflections (Friedel mates included) with 1/d <= s_max that the
    group does not extinguish: list of orbits, each a sorted list of (h, k, l)."""
    metric = reciprocal_metric(cell)
    limit = [int(cell[i] * s_max) + 1 for i in range(3)]
    seen, families = set(), []
    for h in range(-limit[0], limit[0] + 1):
        for k in range(-limit[1], limit[1] + 1):
            for l in range(-limit[2], limit[2] + 1):
                hkl = (h, k, l)
                if hkl == (0, 0, 0) or hkl in seen or dot(hkl, metric, hkl) > s_max * s_max:
                    continue
                orbit = set(group.rotated(hkl))
                orbit |= {tuple(-x for x in image) for image in orbit}
                seen |= orbit
                if not group.absent(hkl):
                    families.append(sorted(orbit, reverse=True))
    return families


# ---------------------------------------------------------------- scattering

def scattering_length(kind, scatterer, s2):
    """Complex amplitude of an atom at rest; s2 = (sin theta / lambda)^2. kind is x, n or e."""
    if kind == "n":
        return complex(scatterer["b_coh"], 0.0)
    f0 = scatterer["c"] + sum(a * math.exp(-b * s2) for a, b in zip(scatterer["a"], scatterer["b"]))
    if kind == "e":
        return complex(MOTT_BETHE * (scatterer["Z"] - f0) / s2, 0.0)
    return complex(f0 + scatterer.get("fp", 0.0), scatterer.get("fpp", 0.0))


def f_squared(group, atoms, scatterers, kind, hkl, s2):
    """Mean of |F(h)|^2 and |F(-h)|^2 of the cell, over the divisor of the scale convention.
    An atom's occupancy is the chemical one times site multiplicity over general multiplicity."""
    f_plus = f_minus = 0j
    for atom in atoms:
        betas = atom.get("betas")
        geometric = 0j
        for rot, tr in group.operators:
            hs = [sum(hkl[i] * rot[i][j] for i in range(3)) for j in range(3)]
            phase = hs[0] * atom["x"] + hs[1] * atom["y"] + hs[2] * atom["z"] + sum(h * t for h, t in zip(hkl, tr))
            term = cmath.exp(2j * math.pi * phase)
            if betas:
                b11, b22, b33, b12, b13, b23 = betas
                term *= math.exp(-(b11 * hs[0] ** 2 + b22 * hs[1] ** 2 + b33 * hs[2] ** 2
                                   + 2 * (b12 * hs[0] * hs[1] + b13 * hs[0] * hs[2] + b23 * hs[1] * hs[2])))
            geometric += term
        length = scattering_length(kind, scatterers[atom["type"]], s2)
        length *= atom["occ"] * math.exp(-atom["b"] * s2)
        f_plus += length * geometric
        f_minus += length * geometric.conjugate()
    return 0.5 * (abs(f_plus) ** 2 + abs(f_minus) ** 2) / group.scale_divisor()


def march_dollase(orbit, metric, direction, g1, g2):
    """Mean of the March-Dollase function over the equivalent reflections, with a random part g2."""
    length = dot(direction, metric, direction)
    mean = 0.0
    for hkl in orbit:
        cos2 = dot(hkl, metric, direction) ** 2 / (length * dot(hkl, metric, hkl))
        mean += (g1 * g1 * cos2 + abs(1.0 - cos2) / g1) ** -1.5
    return (1.0 - g2) * mean / len(orbit) + g2


def lorentz_polarisation(pattern, theta):
    """1/(2 sin^2 theta cos theta) times the polarisation of the geometry."""
    lorentz = 1.0 / (2.0 * math.sin(theta) ** 2 * math.cos(theta))
    if pattern["radiation"] != "x":
        return lorentz
    cos2 = math.cos(2.0 * theta) ** 2
    if pattern.get("geometry", "bragg-brentano") == "synchrotron":
        return lorentz * (1.0 - pattern["rkk"] + pattern["rkk"] * cos2)
    return lorentz * (1.0 + pattern["cthm"] * cos2)


# ---------------------------------------------------------------- peak shapes

def tch(hg, hl):
    """FWHM and Lorentzian fraction of a Voigt function's pseudo-Voigt
    (Thompson, Cox & Hastings, J. Appl. Cryst. 20 (1987) 79)."""
    h = (hg**5 + 2.69269 * hg**4 * hl + 2.42843 * hg**3 * hl**2 + 4.47163 * hg**2 * hl**3
         + 0.07842 * hg * hl**4 + hl**5) ** 0.2
    q = hl / h
    return h, max(1.36603 * q - 0.47719 * q * q + 0.11116 * q**3, 1e-6)


def pseudo_voigt(eta, h, delta):
    x2 = (delta / h) ** 2
    return ((1.0 - eta) * GAUSS_NORM * math.exp(-GAUSS_EXP * x2) + eta * 2.0 / (math.pi * (1.0 + 4.0 * x2))) / h


def gauss_legendre(n):
    nodes = []
    for i in range(n):
        x = math.cos(math.pi * (i + 0.75) / (n + 0.5))
        for _ in range(100):
            p0, p1 = 1.0, x
            for k in range(2, n + 1):
                p0, p1 = p1, ((2 * k - 1) * x * p1 - (k - 1) * p0) / k
            slope = n * (x * p1 - p0) / (x * x - 1.0)
            step = p1 / slope
            x -= step
            if abs(step) < 1e-16:
                break
        nodes.append((x, 2.0 / ((1.0 - x * x) * slope * slope)))
    return nodes


GL8 = gauss_legendre(8)


def axial_components(position, s_l, d_l, fwhm):
    """Axial divergence as a sum of shifted symmetric peaks: list of (weight, angle), weights sum to 1.

    Finger, Cox & Jephcoat, J. Appl. Cryst. 27 (1994) 892. A ray from height h over the equatorial
    plane (in units of the radius) is seen at the angle phi with cos phi = cos(2 theta) sqrt(1 + h^2).
    Integrating over h instead of phi removes the singularity at the peak: the density becomes
    W(h) / ((1 + h^2) sin phi), with W the part of the sample seen from h (a trapezium).
    A D/L of zero stands for sample and slit of equal height, S/L being their sum.
    """
    if d_l < 0.0002:
        s_l, d_l = 0.5 * (s_l - d_l), 0.5 * (s_l + d_l)
    cosine = math.cos(position * RAD)
    outer, inner = s_l + d_l, abs(s_l - d_l)
    if outer * outer > 1.0 / cosine**2 - 1.0:
        raise ValueError("axial divergence reaches the primary beam")
    reach = abs(position - math.acos(cosine * math.sqrt(1.0 + outer * outer)) / RAD)
    components = []
    for low, high in ((0.0, inner), (inner, outer)):
        if high - low < 1e-12:
            continue
        panels = 1 + math.ceil(2.0 * reach * (high - low) / (outer * fwhm))
        for panel in range(panels):
            middle = low + (panel + 0.5) * (high - low) / panels
            half = 0.5 * (high - low) / panels
            for node, weight in GL8:
                h = middle + half * node
                phi = math.acos(cosine * math.sqrt(1.0 + h * h))
                seen = 2.0 * min(s_l, d_l) if h < inner else outer - h
                components.append((weight * half * seen / ((1.0 + h * h) * math.sin(phi)), phi / RAD))
    total = sum(weight for weight, _ in components)
    return [(weight / total, angle) for weight, angle in components]


def asymmetry_factor(p, z, theta):
    """Four-term factor of Berar & Baldinozzi's form, with Fa = 2 z exp(-z^2), Fb = (4 z^2 - 3) Fa."""
    fa = 2.0 * z * math.exp(-z * z)
    fb = (4.0 * z * z - 3.0) * fa
    factor = 1.0 - (p[0] * fa + p[1] * fb) / math.tan(theta) - (p[2] * fa + p[3] * fb) / math.tan(2.0 * theta)
    return factor if factor > 0.0 else 1e-4


class Peak:
    """One reflection at one wavelength: everything that its shape depends on."""

    def __init__(self, pattern, profile, theta):
        two_theta = 2.0 * theta / RAD
        tangent, cosine = math.tan(theta), math.cos(theta)
        displacement = math.cos(2.0 * theta) if pattern["radiation"] == "n" or \
            pattern.get("geometry") == "synchrotron" else cosine
        self.theta = theta
        self.position = (two_theta + pattern["zero"] + pattern["sycos"] * displacement
                         + pattern["sysin"] * math.sin(2.0 * theta))
        gaussian2 = (profile["U"] * tangent**2 + profile["V"] * tangent + profile["W"]
                     + profile.get("GauSiz", 0.0) / cosine**2)
        if gaussian2 <= 0.0:
            raise ValueError(f"negative Gaussian width at {two_theta:.3f}")
        self.fwhm, self.eta = math.sqrt(gaussian2), 0.0
        shape = pattern["npr"]
        if shape == 7:
            lorentzian = profile["X"] * tangent + profile["Y"] / cosine
            self.fwhm, self.eta = tch(self.fwhm, lorentzian)
        elif shape == 5:
            self.eta = profile["Shape1"] + profile["X"] * two_theta
        elif shape != 0:
            raise ValueError("peak shapes 0, 5 and 7 are known here")
        low_angle = two_theta <= pattern["rlim"]
        self.asymmetry = tuple(profile.get("Asy", (0, 0, 0, 0))) if low_angle else (0, 0, 0, 0)
        axial = (profile.get("S_L", 0.0), profile.get("D_L", 0.0))
        self.axial = axial if shape == 7 and low_angle and abs(self.position - 90.0) >= 0.4 \
            and sum(axial) > 1e-6 else (0.0, 0.0)

    def key(self):
        return (self.position, self.fwhm, self.eta, self.theta, self.asymmetry, self.axial)

    def values(self, abscissae):
        """Unit-area profile at the given angles."""
        if self.axial != (0.0, 0.0):
            components = axial_components(self.position, *self.axial, self.fwhm)
            values = self._sum(components, abscissae)
        else:
            values = [pseudo_voigt(self.eta, self.fwhm, x - self.position) for x in abscissae]
        if any(self.asymmetry):
            values = [v * asymmetry_factor(self.asymmetry, (x - self.position) / self.fwhm, self.theta)
                      for v, x in zip(values, abscissae)]
        return values

    def _sum(self, components, abscissae):
        gauss = (1.0 - self.eta) * GAUSS_NORM / self.fwhm
        lorentz = self.eta * 2.0 / (math.pi * self.fwhm)
        exponent, quarter = -GAUSS_EXP / self.fwhm**2, 4.0 / self.fwhm**2
        exp = math.exp
        result = []
        for x in abscissae:
            total = 0.0
            for weight, angle in components:
                d2 = (x - angle) ** 2
                arg = exponent * d2
                total += weight * ((gauss * exp(arg) if arg > -200.0 else 0.0) + lorentz / (1.0 + quarter * d2))
            result.append(total)
        return result


# ---------------------------------------------------------------- background

def chebychev(x, coefficients, pattern):
    low, _, high = pattern["range"]
    u = min(max((2.0 * x - low - high) / (high - low), -1.0), 1.0)
    return sum(c * math.cos(n * math.acos(u)) for n, c in enumerate(coefficients))


def fourier(x, coefficients, _):
    return sum(c * math.cos(n * x * RAD) for n, c in enumerate(coefficients))


def polynomial(x, coefficients, pattern):
    t = max(x, 0.1) / pattern["bkpos"] - 1.0
    return sum(c * t**n for n, c in enumerate(coefficients))


def polynomial_inverse(x, coefficients, pattern):
    """Nine powers of x/origin - 1, then 1/x, 1/x^2, 1/x^3."""
    q = max(x, 0.1)
    return polynomial(x, coefficients[:9], pattern) + sum(c / q ** (n + 1) for n, c in enumerate(coefficients[9:]))


def debye(x, coefficients, pattern):
    """Polynomial of six terms, six amplitudes, six distances of sin(Qd)/(Qd)."""
    q = 4.0 * math.pi * math.sin(0.5 * x * RAD) / pattern["lambda"][0]
    total = polynomial(x, coefficients[:6], pattern)
    for amplitude, distance in zip(coefficients[6:12], coefficients[12:18]):
        if amplitude:
            total += amplitude * math.sin(q * distance) / (q * distance)
    return total


def linear_points(x, nodes, _):
    if x <= nodes[0][0]:
        return nodes[0][1]
    for (x0, y0), (x1, y1) in zip(nodes, nodes[1:]):
        if x < x1:
            return y0 + (y1 - y0) * (x - x0) / (x1 - x0)
    return nodes[-1][1]


def spline_points(x, nodes, _):
    """Natural cubic spline through the nodes."""
    n = len(nodes)
    xs, ys = [p[0] for p in nodes], [p[1] for p in nodes]
    second, upper = [0.0] * n, [0.0] * n
    for i in range(1, n - 1):
        ratio = (xs[i] - xs[i - 1]) / (xs[i + 1] - xs[i - 1])
        pivot = ratio * second[i - 1] + 2.0
        second[i] = (ratio - 1.0) / pivot
        bend = (ys[i + 1] - ys[i]) / (xs[i + 1] - xs[i]) - (ys[i] - ys[i - 1]) / (xs[i] - xs[i - 1])
        upper[i] = (6.0 * bend / (xs[i + 1] - xs[i - 1]) - ratio * upper[i - 1]) / pivot
    second[n - 1] = 0.0
    for i in range(n - 2, -1, -1):
        second[i] = second[i] * second[i + 1] + upper[i]
    j = max(1, next((i for i in range(1, n) if x <= xs[i]), n - 1))
    h = xs[j] - xs[j - 1]
    a, b = (xs[j] - x) / h, (x - xs[j - 1]) / h
    return a * ys[j - 1] + b * ys[j] + ((a**3 - a) * second[j - 1] + (b**3 - b) * second[j]) * h * h / 6.0


def measured_background(pattern):
    """The curve of a background file, rounded as it is written there."""
    low, step, _ = pattern["range"]
    curve = pattern["background"]["curve"]
    return [round(curve["base"] + curve["slope"] * (x - low)
                  + curve["hump"] * math.exp(-0.5 * ((x - curve["centre"]) / curve["width"]) ** 2), 2)
            for x in abscissae(pattern)]


def from_file(x, coefficients, pattern):
    """Background file times a plus b, read at (1 + c) x + d by linear interpolation."""
    scale, offset, stretch, shift = coefficients
    low, step, _ = pattern["range"]
    table = pattern["background"]["table"]
    u = ((1.0 + stretch) * x + shift - low) / step
    j = min(max(int(u), 0), len(table) - 2)
    return scale * (table[j] + (u - j) * (table[j + 1] - table[j])) + offset


BACKGROUNDS = {"polynomial": polynomial, "polynomial12": polynomial_inverse, "debye": debye, "fourier": fourier,
               "chebychev": chebychev, "points": linear_points, "spline": spline_points, "file": from_file}


# ---------------------------------------------------------------- pattern

def abscissae(pattern):
    low, step, high = pattern["range"]
    return [round(low + i * step, 6) for i in range(int((high - low) / step + 1.5))]


class Model:
    """Reflection families and peak shapes of a case are kept between evaluations, so that a
    parameter that only moves intensities or the background costs little."""

    def __init__(self):
        self.groups, self.families, self.shapes = {}, {}, {}

    def group(self, iph, phase):
        if iph not in self.groups:
            self.groups[iph] = SpaceGroup(phase["generators"])
        return self.groups[iph]

    def family_list(self, iph, phase, s_max):
        """Orbits in reach, generated once with some room for a moving cell and moving widths."""
        if iph not in self.families or self.families[iph][0] < s_max:
            self.families[iph] = (1.05 * s_max, orbits(self.group(iph, phase), phase["cell"], 1.05 * s_max))
        return self.families[iph][1]

    def shape(self, peak, xs):
        key = peak.key() + (xs[0], len(xs))
        if key not in self.shapes:
            if len(self.shapes) > 4000:
                self.shapes.clear()
            self.shapes[key] = peak.values(xs)
        return self.shapes[key]

    def pattern(self, case, ip, intensities=None, cuts=None):
        """Noise-free pattern ip of a case of plain numbers.

        Returns x, background, bragg, edge and the reflections. A peak ends wdt widths from its
        position; edge is the height of what a rounding of the position by a few 1e-5 degrees could
        add to or take from the point there. intensities, when given, replaces multiplicity times
        F^2: {(phase, hkl): value}. cuts, when given, are the ends of the peaks to use: {(phase, hkl, wave):
        (centre, reach)}; the derivative of a pattern needs them at rest.
        """
        pattern = case["patterns"][ip]
        xs = abscissae(pattern)
        bragg, edge, listed = [0.0] * len(xs), [0.0] * len(xs), []
        low, step, high = pattern["range"]
        waves = [(pattern["lambda"][0], 1.0)]
        if len(pattern["lambda"]) > 1:
            waves.append((pattern["lambda"][1], pattern["ratio"]))
        for iph, phase in enumerate(case["phases"]):
            profile = phase["profiles"][ip]
            if profile is None:
                continue
            group, metric = self.group(iph, phase), reciprocal_metric(phase["cell"])
            widest = Peak(pattern, profile, 0.5 * high * RAD)
            farthest = min(high + 3.0 * pattern["wdt"] * widest.fwhm, 179.0)
            s_max = 2.0 * math.sin(0.5 * farthest * RAD) / min(w for w, _ in waves)
            for orbit in self.family_list(iph, phase, s_max):
                q2 = dot(orbit[0], metric, orbit[0])  # 1/d^2
                factor = profile["Scale"] * math.exp(-2.0 * profile.get("Bov", 0.0) * q2 / 4.0)
                if profile.get("Pref1"):
                    factor *= march_dollase(orbit, metric, phase["pref_direction"], profile["Pref1"],
                                            profile.get("Pref2", 0.0))
                if intensities is None:
                    strength = len(orbit) * f_squared(group, phase["atoms"], case["scatterers"],
                                                      pattern["radiation"], orbit[0], q2 / 4.0)
                else:
                    strength = intensities.get((iph, orbit[0]), 0.0)
                for wave, ratio in waves:
                    sine = 0.5 * wave * math.sqrt(q2)
                    if sine >= 1.0:
                        continue
                    theta = math.asin(sine)
                    peak = Peak(pattern, profile, theta)
                    reach = pattern["wdt"] * peak.fwhm
                    if not low <= peak.position <= farthest:
                        if low - reach < peak.position < low:
                            raise ValueError(f"a reflection below the range reaches into it: {orbit[0]}")
                        continue
                    key = (iph, orbit[0], wave)
                    cut = cuts[key] if cuts and key in cuts else (peak.position, reach)
                    window = self._window(cut, pattern, xs)
                    if not window:
                        continue
                    area = factor * strength * ratio * lorentz_polarisation(pattern, theta)
                    self._add(peak, cut, area, xs, window, bragg, edge)
                    listed.append({"phase": iph, "hkl": orbit[0], "mult": len(orbit),
                                   "strength": strength, "area": area, "peak": peak, "wave": wave, "cut": cut,
                                   "window": window})
        background = [self.background(pattern, x) for x in xs]
        return {"x": xs, "background": background, "bragg": bragg, "edge": edge, "reflections": listed}

    @staticmethod
    def background(pattern, x):
        model = pattern["background"]
        return BACKGROUNDS[model["kind"]](x, model["values"], pattern)

    @staticmethod
    def _window(cut, pattern, xs):
        """First and last point that a peak with these ends can touch, with one to spare."""
        centre, reach = cut
        low, step, _ = pattern["range"]
        first = max(0, math.floor((centre - reach - low) / step) - 1)
        last = min(len(xs) - 1, math.ceil((centre + reach - low) / step) + 1)
        return (first, last) if first <= last else None

    def _add(self, peak, cut, area, xs, window, bragg, edge):
        (first, last), (centre, reach) = window, cut
        blur = 5e-7 * centre + 1e-5 * reach
        values = self.shape(peak, xs[first:last + 1])
        for i in range(first, last + 1):
            distance = abs(xs[i] - centre)
            value = area * values[i - first]
            if abs(distance - reach) < blur:
                edge[i] += abs(value)
            if distance <= reach:
                bragg[i] += value


def prepare(case):
    """Fills in what a case leaves to be computed: the table of a background file."""
    for pattern in case["patterns"]:
        if pattern["background"]["kind"] == "file":
            pattern["background"]["table"] = measured_background(pattern)
    return case


# ---------------------------------------------------------------- noise and files

def poisson(rng, mean):
    """Poisson deviate: product of uniforms for small means, transformed rejection with squeeze
    (Hormann, Insurance Math. Econ. 12 (1993) 39) for large ones."""
    if mean <= 0.0:
        return 0
    if mean < 30.0:
        limit, product, count = math.exp(-mean), rng.random(), 0
        while product > limit:
            product *= rng.random()
            count += 1
        return count
    b = 0.931 + 2.53 * math.sqrt(mean)
    a = -0.059 + 0.02483 * b
    inverse_alpha = 1.1239 + 1.1328 / (b - 3.4)
    while True:
        u, v = rng.random() - 0.5, rng.random()
        us = 0.5 - abs(u)
        k = math.floor((2.0 * a / us + b) * u + mean + 0.43)
        if us >= 0.07 and v <= 0.9277 - 3.6224 / (b - 2.0):
            return k
        if k < 0 or (us < 0.013 and v > us):
            continue
        if math.log(v * inverse_alpha / (a / (us * us) + b)) <= k * math.log(mean) - mean - math.lgamma(k + 1.0):
            return k


def measure(pattern, calculated):
    """Counts and standard deviations of a measurement of the noise-free pattern. With scaled counts
    ("per_count") y is the count times that number. The deviations are those of the true pattern:
    taking them from the counts would pull every fit below the truth."""
    rng = random.Random(pattern["seed"])
    unit = pattern.get("per_count", 1.0)
    total = [b + p for b, p in zip(calculated["background"], calculated["bragg"])]
    counts = [unit * poisson(rng, t / unit) for t in total]
    return counts, [math.sqrt(t * unit) for t in total]


def write_data(path, pattern, xs, counts, sigmas, title):
    low, step, high = pattern["range"]
    lines = []
    if pattern["instr"] == 0:
        lines.append(f"{low:.4f} {step:.6f} {high:.4f}   {title}")
        for i in range(0, len(counts), 10):
            lines.append(" ".join(f"{c:.0f}" for c in counts[i:i + 10]))
    else:
        if pattern.get("interpolate"):
            lines += ["XYDATA", f"INTER 1.0 1.0 2 {step:.6f}", title, "! x y sigma", "!", "!"]
        else:
            lines += [title, "2theta, intensity, standard deviation", "!", "!", "!", "!"]
        digits = 0 if pattern.get("per_count", 1.0) == 1.0 else 4
        lines += [f"{x:.6g} {c:.{digits}f} {s:.5g}" for x, c, s in zip(xs, counts, sigmas)]
    path.write_text("\n".join(lines) + "\n")


def write_reference(path, calculated, title):
    lines = [f"# {title}: noise-free pattern", "# 2theta total background [edge]"]
    for x, b, p, e in zip(calculated["x"], calculated["background"], calculated["bragg"], calculated["edge"]):
        lines.append(f"{x:.6g} {b + p:.8g} {b:.7g}" + (f" {e:.1e}" if e else ""))
    path.write_text("\n".join(lines) + "\n")


def write_background_file(path, pattern):
    low, step, high = pattern["range"]
    table = pattern["background"]["table"]
    lines = [f"{low:.4f} {step:.6f} {high:.4f}"]
    lines += [" ".join(f"{v:.2f}" for v in table[i:i + 10]) for i in range(0, len(table), 10)]
    path.write_text("\n".join(lines) + "\n")


def simulate(directory, reference=True):
    """Writes the data files (and the noise-free patterns) of the case; returns the true patterns."""
    directory = Path(directory)
    case = prepare(resolve(load_case(directory)))
    model, calculated = Model(), []
    for ip, pattern in enumerate(case["patterns"]):
        result = model.pattern(case, ip)
        stem = pattern["file"]
        counts, sigmas = measure(pattern, result)
        write_data(directory / f"{stem}.dat", pattern, result["x"], counts, sigmas, case["title"])
        if reference:
            write_reference(directory / f"{stem}.ref", result, case["title"])
        if pattern["background"]["kind"] == "file":
            write_background_file(directory / f"{stem}.bac", pattern)
        calculated.append(result)
    return calculated


def main(arguments):
    for directory in arguments:
        for ip, result in enumerate(simulate(directory)):
            total = [b + p for b, p in zip(result["background"], result["bragg"])]
            print(f"{directory} pattern {ip + 1}: {len(total)} points, {len(result['reflections'])} reflections, "
                  f"counts {min(total):.1f} to {max(total):.1f}")


if __name__ == "__main__":
    main(sys.argv[1:])
