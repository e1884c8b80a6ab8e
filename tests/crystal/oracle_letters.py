"""Whether a space group has what the letters of a Hermann-Mauguin symbol name: another way to the same answer than the
program's own parser. A symbol is cut into fields in every possible way; a group contradicts the symbol when for none of
them it has all elements named, along the directions of the crystal system, and no other point group and lattice.
Glide vectors are those of International Tables Vol. A, table 2.1.2.1; C cells of tetragonal groups, table 1.5.4.4.
"""
import itertools
import re

import gemmi

DEN = gemmi.Op.DEN
H, Q = DEN // 2, DEN // 4
FIELD = re.compile(r"(?:-[1346]|[1346]|2)$|(?:21|3[12]|4[123]|6[12345])$|[mabcden]$|(?:2|21|4|4[123]|6|6[12345]|3)/[mabcden]$")
CENTRINGS = {"P": [(0, 0, 0)], "A": [(0, 0, 0), (0, H, H)], "B": [(0, 0, 0), (H, 0, H)], "C": [(0, 0, 0), (H, H, 0)],
             "I": [(0, 0, 0), (H, H, H)], "F": [(0, 0, 0), (0, H, H), (H, 0, H), (H, H, 0)],
             "R": [(0, 0, 0), (16, 8, 8), (8, 16, 16)], "H": [(0, 0, 0), (16, 8, 0), (8, 16, 0)]}

X2, Y2, Z2 = (1, 0, 0, 0, -1, 0, 0, 0, -1), (-1, 0, 0, 0, 1, 0, 0, 0, -1), (-1, 0, 0, 0, -1, 0, 0, 0, 1)
DIAGONAL2 = (0, -1, 0, -1, 0, 0, 0, 0, -1)  # along 1 -1 0
HEX_X2 = (1, -1, 0, 0, -1, 0, 0, 0, -1)
Z3, Z4, Z6 = (0, -1, 0, 1, -1, 0, 0, 0, 1), (0, -1, 0, 1, 0, 0, 0, 0, 1), (1, -1, 0, 1, 0, 0, 0, 0, 1)
BODY3 = (0, 0, 1, 1, 0, 0, 0, 1, 0)
ONE = (1, 0, 0, 0, 1, 0, 0, 0, 1)

# Of a direction: rotations by their order, the unit of its screw axes, the vectors of its glides.
Z = dict(rot={2: Z2, 3: Z3, 4: Z4, 6: Z6}, row=(0, 0, DEN),
         glide={"a": [(H, 0, 0)], "b": [(0, H, 0)], "n": [(H, H, 0)], "d": [(Q, Q, 0), (Q, -Q, 0)], "e": "ab"})
X = dict(rot={2: X2}, row=(DEN, 0, 0),
         glide={"b": [(0, H, 0)], "c": [(0, 0, H)], "n": [(0, H, H)], "d": [(0, Q, Q), (0, Q, -Q)], "e": "bc"})
Y = dict(rot={2: Y2}, row=(0, DEN, 0),
         glide={"a": [(H, 0, 0)], "c": [(0, 0, H)], "n": [(H, 0, H)], "d": [(Q, 0, Q), (Q, 0, -Q)], "e": "ac"})
DIAGONAL = dict(rot={2: DIAGONAL2}, row=None, glide={"c": [(0, 0, H)], "n": [(H, H, H)], "d": [(Q, Q, Q), (Q, Q, -Q)]})
DIAGONAL_F = dict(DIAGONAL, row=(H, -H, 0))
DIAGONAL_C = dict(rot={2: DIAGONAL2}, row=(H, -H, 0),
                  glide={"b": [(Q, Q, 0)], "c": [(0, 0, H)], "n": [(Q, Q, H)], "d": [(Q, Q, Q), (Q, Q, -Q)]})
Z_HEX = dict(Z, glide={})
HEX_FIRST = dict(rot={2: HEX_X2}, row=None, glide={"c": [(0, 0, H)]})
HEX_SECOND = dict(rot={2: DIAGONAL2}, row=None, glide={"c": [(0, 0, H)]})
BODY = dict(rot={3: BODY3}, row=None, glide={})
RHOMBOHEDRAL = dict(rot={2: DIAGONAL2}, row=None, glide={"c": [(H, H, H)], "n": [(H, H, H)]})
NOWHERE = dict(rot={}, row=None, glide={})


def times(a, b):
    return tuple(sum(a[3 * i + k] * b[3 * k + j] for k in range(3)) for i in range(3) for j in range(3))


def turned(r, t):
    return tuple(sum(r[3 * i + k] * t[k] for k in range(3)) for i in range(3))


def minus(r):
    return tuple(-e for e in r)


def closure(rotations):
    known = {ONE}
    fresh = [ONE]
    while fresh:
        fresh = [p for p in {times(g, e) for e in fresh for g in rotations} if p not in known]
        known.update(fresh)
        if len(known) > 48:
            return known
    return known


class Group:
    def __init__(self, texts):
        self.ops = [(tuple(sum(o.rot, [])), tuple(o.tran)) for o in map(gemmi.Op, texts)]
        self.ops = [(tuple(e // DEN for e in r), t) for r, t in self.ops]
        self.rotations = {r for r, _ in self.ops}
        self.lattice = {tuple(e % DEN for e in t) for r, t in self.ops if r == ONE}

    def has(self, rot, along):
        """An element with that rotation part and that translation along its axis or plane, up to lattice vectors."""
        order, power = 1, rot
        while power != ONE:
            power, order = times(power, rot), order + 1
        for r, t in self.ops:
            if r != rot:
                continue
            for whole in itertools.product((-1, 0, 1), repeat=3):
                shifted = tuple(a + DEN * w for a, w in zip(t, whole))
                total, power = (0, 0, 0), ONE
                for _ in range(order):
                    total = tuple(a + b for a, b in zip(total, turned(power, shifted)))
                    power = times(power, rot)
                rest = [a - order * b for a, b in zip(total, along)]
                if all(e % order == 0 for e in rest) and tuple(e // order % DEN for e in rest) in self.lattice:
                    return True
        return False


def ways_to_cut(word):
    """All lists of fields that a word without blanks can be."""
    if not word:
        yield []
    for n in range(1, len(word) + 1):
        if FIELD.match(word[:n]):
            for rest in ways_to_cut(word[n:]):
                yield [word[:n]] + rest


def readings(body):
    words = re.sub(r" */ *", "/", re.sub(r"- +", "-", body.replace("_", ""))).split()
    cuts = [[[w]] if len(words) > 1 and FIELD.match(w) else list(ways_to_cut(w)) for w in words]
    for choice in itertools.product(*cuts):
        fields = sum(choice, [])
        if 1 <= len(fields) <= 3:
            yield fields


def directions(lattice, fields, rhombohedral):
    """Lists of directions that the fields may stand for."""
    n = len(fields)
    first = fields[0].lstrip("-")[0]
    if n >= 2 and fields[1] in ("3", "-3"):
        return [[Z, BODY, DIAGONAL]]
    if first == "4":
        return [[Z, X, {"C": DIAGONAL_C, "F": DIAGONAL_F}.get(lattice, DIAGONAL)]] if n != 2 else []
    if first == "3" and rhombohedral:
        return [[BODY, RHOMBOHEDRAL]] if n < 3 else []
    if first in "36":
        return [[Z_HEX, HEX_FIRST, HEX_SECOND]] if n != 2 or lattice == "R" else []
    if n == 1:
        return [[NOWHERE]] if first == "1" else [[X], [Y], [Z]]
    return [[X, Y, Z]] if n == 3 else []


def fits(lattice, fields, where, group, rhombohedral):
    named = []
    old_cubic = len(fields) > 1 and fields[1] == "3" and fields[0][0] in "mabcnde"
    if old_cubic:
        fields = [fields[0], "-3"] + fields[2:]
    for field, d in zip(fields, where):
        axis, _, plane = field.partition("/")
        if axis[0] in "mabcnde":
            axis, plane = "", axis
        mirror = minus(d["rot"][2]) if 2 in d["rot"] else minus(Z2) if d is Z_HEX else None
        if axis == "-1":
            named.append(minus(ONE))
        elif axis and axis != "1":
            order = int(axis.lstrip("-")[0])
            if order not in d["rot"]:
                return False
            screw = int(axis[1]) if axis[0] != "-" and len(axis) > 1 else 0
            if screw and not d["row"]:
                return False
            rot = minus(d["rot"][order]) if axis[0] == "-" else d["rot"][order]
            if not group.has(rot, tuple(e * screw // order for e in d["row"]) if screw else (0, 0, 0)):
                return False
            named.append(rot)
        if plane:
            if mirror is None:
                return False
            vectors = [(0, 0, 0)] if plane == "m" else d["glide"].get(plane, [])
            if isinstance(vectors, str):
                found = all(group.has(mirror, d["glide"][letter][0]) for letter in vectors)
            else:
                found = any(group.has(mirror, v) for v in vectors)
            if not found:
                return False
            named.append(mirror)
        elif mirror is not None and mirror in group.rotations and axis not in ("-4", "-6"):
            return False  # a plane that no letter tells
        if not plane and axis in ("", "1") and any(r in group.rotations for r in d["rot"].values()):
            return False
    if closure(named) != group.rotations:
        return False
    return group.lattice == set(CENTRINGS["P" if rhombohedral else lattice])


def contradicts(symbol, texts):
    """The group that is told by its operators has not what the symbol names."""
    base, _, choice = symbol.partition(":")
    letters = base.strip()
    lattice, body = letters[:1].upper(), letters[1:].strip().lower()
    if lattice + body.replace(" ", "") in ("H3", "H32"):
        lattice = "R"
    bodies = [body, re.sub(r"(?<=[123])(\(?a\)|a)$", "", body)]  # another origin, told by a letter behind the symbol
    if lattice not in CENTRINGS:
        return True
    group = Group(texts)
    rhombohedral = choice.strip().upper() == "R"
    for fields in itertools.chain(*map(readings, bodies)):
        for where in directions(lattice, fields, rhombohedral):
            if fits(lattice, fields, where, group, rhombohedral):
                return False
    return True
