"""Compares space groups with two independent libraries (Debian's python3-gemmi and python3-spglib).

Usage: oracle_symmetry.py FILE. Each line of FILE, fields separated by tabs:
  table   row number symbol hall lattice centrosymmetric laue point-group operators   a tabulated setting
  symbol  number symbol operators            a group that was read from its Hermann-Mauguin symbol
  hall    hall operators                     a group that was read from a Hall symbol
  taken   text operators                     a text that was taken as a Hermann-Mauguin symbol
Operators are x,y,z texts separated by blanks. Prints what differs and "N compared"; ends with 77 without the libraries.
"""
import sys

try:
    import gemmi
    import spglib
except ImportError:
    sys.exit(77)

import oracle_letters

# Older and oriented names on the common ones.
LAUE = {"-3 R": "-3", "-3m R": "-3m", "-3m1": "-3m", "-31m": "-3m"}
POINT = {"m2m": "mm2", "2mm": "mm2", "-4m2": "-42m", "312": "32", "31m": "3m", "-31m": "-3m", "-3m1": "-3m",
         "-6m2": "-62m", "321": "32", "3m1": "3m"}


def key_of(triplet):
    op = gemmi.Op(triplet)
    return tuple(sum(op.rot, [])), tuple(t % gemmi.Op.DEN for t in op.tran)


def keys_of_gemmi(ops):
    return {(tuple(sum(op.rot, [])), tuple(t % gemmi.Op.DEN for t in op.tran)) for op in ops}


def keys_of_spglib(hall_number):
    found = spglib.get_symmetry_from_database(hall_number)
    den = gemmi.Op.DEN
    return {(tuple(int(den * e) for e in r.flatten()), tuple(int(round(den * e)) % den for e in t))
            for r, t in zip(found["rotations"], found["translations"])}


def number_by_spglib(ops):
    import numpy
    den = gemmi.Op.DEN
    rotations = numpy.array([numpy.array(gemmi.Op(o).rot) // den for o in ops], dtype="intc")
    translations = numpy.array([[t / den for t in gemmi.Op(o).tran] for o in ops], dtype="double")
    return spglib.get_spacegroup_type(spglib.get_hall_number_from_symmetry(rotations, translations))["number"]


def differences(fields):
    kind = fields[0]
    if kind == "hall":
        _, hall, ops = fields
        if keys_of_gemmi(gemmi.symops_from_hall(hall)) != {key_of(o) for o in ops.split()}:
            yield "operators"
        return
    if kind == "taken":
        _, text, ops = fields
        if oracle_letters.contradicts(text, ops.split()):
            yield "not what its letters name"
        return
    if kind == "symbol":
        _, number, _, ops = fields
        found = number_by_spglib(ops.split())
        if found != int(number):
            yield "number %s, not %s" % (found, number)
        return
    _, row, number, _, hall, lattice, centric, laue, point, ops = fields
    keys = {key_of(o) for o in ops.split()}
    group = gemmi.symops_from_hall(hall)
    if len(ops.split()) != len(group) or keys != keys_of_gemmi(group):
        yield "operators (gemmi)"
    if int(row) <= 530 and keys != keys_of_spglib(int(row)):
        yield "operators (spglib)"
    # Rows behind the 530 of Hall's list may be missing there: then the type of group is asked for.
    entry = gemmi.find_spacegroup_by_ops(gemmi.GroupOps([gemmi.Op(o) for o in ops.split()]))
    found = entry.number if entry else number_by_spglib(ops.split())
    if found != int(number):
        yield "number"
    if (group.is_centrosymmetric()) != (centric == "1"):
        yield "centrosymmetry"
    if not entry:
        return
    if lattice not in (entry.centring_type(), "P" if entry.centring_type() == "R" and entry.ext == "R" else ""):
        yield "lattice %s %s" % (lattice, entry.centring_type())
    if LAUE.get(laue, laue) != entry.laue_str():
        yield "Laue class " + entry.laue_str()
    theirs = entry.point_group_hm()
    if POINT.get(point, point) != POINT.get(theirs, theirs):
        yield "point group " + theirs


def main():
    n = 0
    for line in open(sys.argv[1]):
        fields = line.rstrip("\n").split("\t")
        n += 1
        for what in differences(fields):
            print("\t".join(fields[:5]), "|", what)
    print(n, "compared")


main()
