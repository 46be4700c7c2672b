#!/usr/bin/python3
"""Writes the reference values of the scattered-data tests with
scipy.interpolate (Debian's python3-scipy), to tests/data/interp/:

  scatteredND.txt      the data, as a column file: N coordinates, then f
  scatteredND_ref.txt  query points inside the hull: N coordinates, then
                       LinearNDInterpolator's and NearestNDInterpolator's value

Points and queries are random with a fixed seed (no ties, no cospherical
sets); numbers are written with 17 significant digits.
usage: tests/interp/make_scipy_reference.py
"""
import os

import numpy as np
from scipy.interpolate import LinearNDInterpolator, NearestNDInterpolator
from scipy.spatial import Delaunay

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "interp")


def f(p):
    return np.sin(3 * p[:, 0]) * np.cos(2 * p[:, 1]) + p[:, -1] ** 2


def write(path, header, rows):
    with open(path, "w") as out:
        out.write(header)
        for r in rows:
            out.write(" ".join("%.17g" % v for v in r) + "\n")


def main():
    rng = np.random.default_rng(19)
    for dim, npts, nq in ((2, 300, 200), (3, 400, 200)):
        pts = rng.uniform(-1, 1, (npts, dim))
        vals = f(pts)
        # Queries inside the hull, away from its faces.
        q = rng.uniform(-0.8, 0.8, (nq * 2, dim))
        q = q[Delaunay(pts).find_simplex(q) >= 0][:nq]
        lin = LinearNDInterpolator(pts, vals)(q)
        near = NearestNDInterpolator(pts, vals)(q)
        name = "scattered%dd" % dim
        write(os.path.join(OUT, name + ".txt"),
              "%% %d-D scattered data: coordinates, f = sin(3x)cos(2y) + (last)^2\n" % dim,
              np.column_stack([pts, vals]))
        write(os.path.join(OUT, name + "_ref.txt"),
              "% scipy 1.10 reference: coordinates, LinearNDInterpolator, NearestNDInterpolator\n",
              np.column_stack([q, lin, near]))


if __name__ == "__main__":
    main()
