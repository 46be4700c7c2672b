#!/usr/bin/env python3
"""Reference values of the special functions, computed with mpmath to 30 digits.

Writes bessel_complex.txt, sf_real.txt and sf_complex.txt in
tests/data/sf, which test_sf reads. Rerun after changing the sample (deterministic: fixed seed):
    python3 tests/sf/make_reference.py
"""
import math
import os
import random

import mpmath as mp

mp.mp.dps = 30
HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "sf")


def fmt(x):
    return repr(float(x))


def orders(rng, n):
    """Orders |nu| <= 20: integers, half-integers and general values of both signs."""
    out = []
    for i in range(n):
        kind = i % 4
        if kind == 0:
            out.append(float(rng.randint(-20, 20)))
        elif kind == 1:
            out.append(rng.randint(-40, 39) + 0.5)
        elif kind == 2:
            out.append(round(rng.uniform(-3, 3), 6))
        else:
            out.append(round(rng.uniform(-20, 20), 6))
    return out


def points(rng, rmin, rmax, n):
    """Points with rmin < |z| <= rmax; every fifth on an axis."""
    axes = [0.0, math.pi / 2, math.pi, -math.pi / 2]
    out = []
    for i in range(n):
        r = rng.uniform(rmin, rmax)
        t = axes[(i // 5) % 4] if i % 5 == 0 else rng.uniform(-math.pi, math.pi)
        out.append(complex(round(r * math.cos(t), 12), round(r * math.sin(t), 12)))
    return out


REGIONS = [("small", 0.01, 2.0, 64), ("medium", 2.0, 25.0, 96), ("large", 25.0, 50.0, 64),
           ("far", 50.0, 200.0, 24)]


def bessel_complex(rng):
    rows = ["# region nu re(z) im(z) then re, im of J Y I K H1 H2 (mpmath, 30 digits)"]
    for name, rmin, rmax, n in REGIONS:
        # Large orders need |z| > nu^2/4 before Hankel's expansions; keep them in the sample.
        for nu, z in zip(orders(rng, n), points(rng, rmin, rmax, n)):
            # mpmath forms the Hankel functions as J +- iY, which cancel to
            # e^{-2|Im z|} of their size: enough digits to keep 30 of them.
            with mp.workdps(40 + int(abs(z))):
                mnu, mz = mp.mpf(nu), mp.mpc(z.real, z.imag)
                vals = [mp.besselj(mnu, mz), mp.bessely(mnu, mz), mp.besseli(mnu, mz),
                        mp.besselk(mnu, mz), mp.hankel1(mnu, mz), mp.hankel2(mnu, mz)]
            nums = " ".join(fmt(mp.re(v)) + " " + fmt(mp.im(v)) for v in vals)
            rows.append(f"{name} {fmt(nu)} {fmt(z.real)} {fmt(z.imag)} {nums}")
    with open(os.path.join(OUT, "bessel_complex.txt"), "w") as f:
        f.write("\n".join(rows) + "\n")


def sf_real(rng):
    """Real forms: Bessel functions of negative order and argument, gamma, psi, erf."""
    rows = ["# function order x value (mpmath, 30 digits)"]
    fun = {"J": mp.besselj, "Y": mp.bessely, "I": mp.besseli, "K": mp.besselk}
    for name, f in fun.items():
        for nu in [0.0, 1.0, -3.0, 2.5, -2.5, 0.3, -7.7, 15.0]:
            for x in [0.2, 3.7, 21.0]:
                rows.append(f"{name} {fmt(nu)} {fmt(x)} {fmt(f(nu, x))}")
    for n in [0.0, 1.0, -3.0]:  # integer orders at negative x: (-1)^n f(-x)
        rows.append(f"J {fmt(n)} -4.2 {fmt(mp.besselj(n, -4.2))}")
        rows.append(f"I {fmt(n)} -4.2 {fmt(mp.re(mp.besseli(n, -4.2)))}")
    for x in [0.5, 1.0, 7.25, 170.5, -0.5, -2.75, 1e-8]:
        rows.append(f"gamma 0 {fmt(x)} {fmt(mp.gamma(x))}")
    for n in [0, 1, 2, 5]:
        for x in [0.1, 1.0, 3.5, -2.5, 40.0]:
            rows.append(f"psi {n} {fmt(x)} {fmt(mp.psi(n, x))}")
    for x in [-3.0, -0.5, 1e-5, 0.3, 1.7, 4.0]:
        rows.append(f"erf 0 {fmt(x)} {fmt(mp.erf(x))}")
    with open(os.path.join(OUT, "sf_real.txt"), "w") as f:
        f.write("\n".join(rows) + "\n")


def sf_complex(rng):
    """Gamma, erf and polygamma of a complex argument: |z| <= 30, both
    half-planes, near the poles of gamma and psi and the imaginary axis of erf
    (where |erf| < 1e300)."""
    rows = ["# function re(z) im(z) re, im of the value (mpmath, 30 digits)"]
    zs = [complex(rng.uniform(-30, 30), rng.uniform(-30, 30)) for _ in range(24)]
    zs += [complex(-n - 0.001 * rng.random(), 1e-6) for n in range(4)]
    for z in zs:
        v = mp.gamma(mp.mpc(z.real, z.imag))
        rows.append(f"gamma {fmt(z.real)} {fmt(z.imag)} {fmt(mp.re(v))} {fmt(mp.im(v))}")
    zs = [complex(rng.uniform(-4, 4), rng.uniform(-4, 4)) for _ in range(16)]
    zs += [complex(rng.uniform(-25, 25), rng.uniform(-25, 25)) for _ in range(16)]
    zs += [complex(rng.uniform(-1.6, 1.6), rng.uniform(-25, 25)) for _ in range(8)]
    for z in zs:
        if z.imag ** 2 - z.real ** 2 > 690:
            continue
        v = mp.erf(mp.mpc(z.real, z.imag))
        rows.append(f"erf {fmt(z.real)} {fmt(z.imag)} {fmt(mp.re(v))} {fmt(mp.im(v))}")
    for n in [0, 1, 2, 5]:
        zs = [complex(rng.uniform(-30, 30), rng.uniform(-30, 30)) for _ in range(6)]
        zs += [complex(rng.uniform(-30, 0.5), rng.uniform(-1.5, 1.5)) for _ in range(6)]
        zs += [complex(-3 - 1e-4 * rng.random(), 1e-4)]
        for z in zs:
            v = mp.psi(n, mp.mpc(z.real, z.imag))
            rows.append(f"psi{n} {fmt(z.real)} {fmt(z.imag)} {fmt(mp.re(v))} {fmt(mp.im(v))}")
    with open(os.path.join(OUT, "sf_complex.txt"), "w") as f:
        f.write("\n".join(rows) + "\n")


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    rng = random.Random(13)
    bessel_complex(rng)
    sf_real(rng)
    sf_complex(rng)
