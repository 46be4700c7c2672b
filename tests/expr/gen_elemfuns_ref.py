#!/usr/bin/env python3
"""Writes tests/data/expr/elemfuns_ref.txt: reference values of the elementary
functions from mpmath at 50 digits, rounded once to double.

Line formats (numbers as Python float.hex, exact):
  r NAME X F            real function at a real argument
  r2 NAME X Y F         real function of two arguments
  c NAME XRE XIM FRE FIM  complex function at a complex argument
Arguments: a fixed-seed sample inside each real domain (uniform and spread
over magnitudes), the domain edges, and for the complex functions points
off the real axis (principal branches, as std::complex defines them).
usage: gen_elemfuns_ref.py OUTPUT
"""
import random
import sys

import mpmath as mp

mp.mp.dps = 50
rng = random.Random(20261124)


def sample(lo, hi, n, logspread=False):
    out = []
    for _ in range(n):
        if logspread:
            low = float(mp.log10(lo)) if lo > 0 else -8.0
            m = 10 ** rng.uniform(low, float(mp.log10(hi)))
            out.append(m * rng.choice((-1, 1)) if lo < 0 else m)
        else:
            out.append(rng.uniform(lo, hi))
    return out


R = {
    "exp": (mp.exp, sample(-700, 700, 60) + sample(-1, 1, 40) + [0.0, 1e-300, 709.5]),
    "log": (mp.log, sample(0, 1e300, 40, True) + sample(0.5, 2, 40) + [1.0, 5e-324, 1.7e308]),
    "log10": (mp.log10, sample(0, 1e300, 40, True) + sample(0.5, 2, 20) + [10.0, 1e-300]),
    "log2": (lambda x: mp.log(x, 2), sample(0, 1e300, 40, True) + sample(0.5, 2, 20) + [2.0, 0.75]),
    "sin": (mp.sin, sample(-10, 10, 60) + sample(-1e6, 1e6, 30) + [1e-10, 3.141592653589793, 1e22]),
    "cos": (mp.cos, sample(-10, 10, 60) + sample(-1e6, 1e6, 30) + [1e-10, 1.5707963267948966]),
    "tan": (mp.tan, sample(-10, 10, 60) + sample(-1e5, 1e5, 20) + [1.5707963267948966]),
    "asin": (mp.asin, sample(-1, 1, 50) + [1.0, -1.0, 1e-12]),
    "acos": (mp.acos, sample(-1, 1, 50) + [1.0, -1.0, 0.999999]),
    "atan": (mp.atan, sample(-50, 50, 40) + sample(-1e10, 1e10, 20, True)),
    "sinh": (mp.sinh, sample(-700, 700, 40) + sample(-2, 2, 40) + [1e-9]),
    "cosh": (mp.cosh, sample(-700, 700, 40) + sample(-2, 2, 40)),
    "tanh": (mp.tanh, sample(-20, 20, 60) + [1e-9, 0.5]),
    "asinh": (mp.asinh, sample(-1e10, 1e10, 40, True) + sample(-2, 2, 30)),
    "acosh": (mp.acosh, sample(1, 1e10, 40, True) + sample(1, 3, 30) + [1.0]),
    "atanh": (mp.atanh, sample(-1, 1, 60) + [0.9999999, -1e-10]),
    "sqrt": (mp.sqrt, sample(0, 1e300, 40, True) + [2.0, 0.0]),
    "acot": (mp.acot, sample(-50, 50, 30)),
    "acsc": (mp.acsc, sample(1, 50, 20) + [-1.5, -30.0]),
    "asec": (mp.asec, sample(1, 50, 20) + [-1.5, -30.0]),
    "cot": (mp.cot, sample(-3, 3, 30)),
    "csc": (mp.csc, sample(-3, 3, 30)),
    "sec": (mp.sec, sample(-3, 3, 30)),
    "coth": (mp.coth, sample(-5, 5, 30)),
    "csch": (mp.csch, sample(-5, 5, 30)),
    "sech": (mp.sech, sample(-5, 5, 30)),
    "acoth": (mp.acoth, sample(1, 50, 20) + [-1.5, -30.0]),
    "acsch": (mp.acsch, sample(-50, 50, 30)),
    "asech": (mp.asech, sample(0, 1, 30)),
}
R2 = {
    "pow": (mp.power, [(rng.uniform(0, 10), rng.uniform(-30, 30)) for _ in range(60)]
            + [(-8.0, 3.0), (-2.0, -3.0), (0.5, 1000.0), (1e-300, 0.5)]),
    "atan2": (mp.atan2, [(rng.uniform(-10, 10), rng.uniform(-10, 10)) for _ in range(60)]
              + [(1.0, -1.0), (-1.0, -1.0), (0.0, -1.0)]),
}
C = {name: f for name, f in [
    ("exp", mp.exp), ("log", mp.log), ("log10", mp.log10), ("sqrt", mp.sqrt), ("sin", mp.sin),
    ("cos", mp.cos), ("tan", mp.tan), ("asin", mp.asin), ("acos", mp.acos), ("atan", mp.atan),
    ("sinh", mp.sinh), ("cosh", mp.cosh), ("tanh", mp.tanh), ("asinh", mp.asinh),
    ("acosh", mp.acosh), ("atanh", mp.atanh)]}


def h(x):
    return float(x).hex()


def main(path):
    lines = []
    for name, (f, xs) in R.items():
        for x in xs:
            lines.append(f"r {name} {h(x)} {h(f(mp.mpf(x)))}")
    for name, (f, xys) in R2.items():
        for x, y in xys:
            lines.append(f"r2 {name} {h(x)} {h(y)} {h(f(mp.mpf(x), mp.mpf(y)))}")
    for name, f in C.items():
        for _ in range(25):
            z = complex(rng.uniform(-3, 3), rng.uniform(-3, 3))
            v = f(mp.mpc(z.real, z.imag))
            lines.append(f"c {name} {h(z.real)} {h(z.imag)} {h(v.real)} {h(v.imag)}")
    with open(path, "w") as out:
        out.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main(sys.argv[1])
