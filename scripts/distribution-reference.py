#!/usr/bin/env python3
"""Writes tests/data/distribution_reference.tsv: values that the distribution
numerics must reproduce, computed independently with mpmath at 40 digits
(Debian: python3-mpmath). Run from the repository root:

    python3 scripts/distribution-reference.py > tests/data/distribution_reference.tsv

Each line: a function name, its arguments separated by commas (Python float
repr, so that they read back to the same doubles), and the expected value
with 20 significant digits. Differences of two distribution-function values
are taken on the side of the smaller tails, so that far tails keep their
relative accuracy here too.
"""
import sys

import mpmath as mp

mp.mp.dps = 40
INF = float("inf")
DBL_MAX = sys.float_info.max
rows = []
BIG = 10**8


def gamma_tails(a, x):
    """(P(a, x), Q(a, x)) from the series x^a e^-x / Gamma(a + 1) 1F1(1; a + 1; x),
    with enough digits that Q = 1 - P keeps 40 when it is tiny."""
    a, x = mp.mpf(a), mp.mpf(x)
    if x == 0:
        return mp.mpf(0), mp.mpf(1)
    logpref = a * mp.log(x) - x - mp.loggamma(a + 1)
    extra = int(max(0, -logpref / mp.log(10))) if x > a else 0
    with mp.workdps(60 + extra):
        logpref = a * mp.log(x) - x - mp.loggamma(a + 1)
        p = mp.exp(logpref) * mp.hyp1f1(1, a + 1, x, maxterms=BIG)
        q = 1 - p
    return +p, +q


def beta_tails(a, b, x):
    """(I_x(a, b), 1 - I_x(a, b)) from x^a y^b / (a B(a, b)) 2F1(a + b, 1; a + 1; x),
    summed for the smaller tail."""
    a, b, x = mp.mpf(a), mp.mpf(b), mp.mpf(x)
    if x == 0:
        return mp.mpf(0), mp.mpf(1)
    if x == 1:
        return mp.mpf(1), mp.mpf(0)
    if x > a / (a + b):
        q, p = beta_tails(b, a, 1 - x)
        return p, q
    with mp.workdps(60):
        y = 1 - x
        logpref = a * mp.log(x) + b * mp.log(y) - mp.log(a) - mp.log(mp.beta(a, b))
        p = mp.exp(logpref) * mp.hyp2f1(a + b, 1, a + 1, x, maxterms=BIG)
        q = 1 - p
    return +p, +q


def emit(name, args, value):
    rows.append("%s\t%s\t%s" % (name, ",".join(repr(float(a)) for a in args), mp.nstr(mp.mpf(value), 20)))


def smaller_tails(p1, q1, p2, q2):
    # (p, q) = (lower, upper) tail at each end of the interval.
    return p2 - p1 if p1 <= q2 else q1 - q2


# ---- special functions
for x in [-30.0, -5.0, -1.0, -0.46875, -1e-10, 0.0, 1e-300, 0.1, 0.46875, 0.5, 1.0, 2.5, 4.0, 4.5, 10.0, 26.0, 27.0]:
    emit("erf", [x], mp.erf(x))
    emit("erfc", [x], mp.erfc(x))
    if x > -26:
        emit("erfcx", [x], mp.exp(mp.mpf(x) ** 2) * mp.erfc(x))
for x in [1e5, 1e8]:
    emit("erfcx", [x], mp.exp(mp.mpf(x) ** 2) * mp.erfc(x))
for a in [1e-300, 1e-10, 0.1, 0.5, 0.9999, 1.5, 2.0, 2.3, 7.5, 9.9, 10.0, 15.5, 100.0, 1e5, 1e15, 1e300]:
    emit("lgamma", [a], mp.loggamma(a))
for a, x in [(0.5, 0.1), (0.5, 2.0), (1e-3, 1e-3), (0.3, 0.5), (0.3, 1.0), (0.3, 5.0), (0.7, 40.0), (1.0, 1.0),
             (3.0, 2.0), (3.5, 2.0), (3.0, 10.0), (4.5, 12.0), (7.3, 3.1), (7.3, 20.0), (12.0, 40.0), (19.9, 25.0),
             (20.0, 20.0), (25.0, 24.9), (50.0, 48.0), (100.0, 70.0), (100.0, 140.0), (1e4, 1e4 + 1),
             (1e5, 1e5 - 300), (1e5, 1e5 + 3000), (1e6, 1e6 + 5.5), (1e10, 1e10 + 3e5), (2.0, 1e-300),
             (0.5, 1400.0), (1e3, 1.7e3), (5.0, 900.0)]:
    p, q = gamma_tails(a, x)
    emit("gamma_p", [a, x], p)
    emit("gamma_q", [a, x], q)
for a, b, x in [(0.5, 0.5, 0.3), (1e-20, 1e-20, 0.5), (1e-10, 2.0, 0.01), (2.0, 1e-10, 0.99), (0.01, 0.02, 1e-5),
                (0.1, 5.0, 0.2), (0.1, 20.0, 0.05), (0.5, 30.0, 0.6), (0.8, 0.9, 0.95), (2.0, 3.0, 0.4),
                (5.0, 0.5, 0.9), (20.0, 0.7, 0.2), (30.0, 10.0, 0.8), (35.0, 35.0, 0.5), (60.0, 50.0, 0.4),
                (150.0, 160.0, 0.49), (1e3, 1e3, 0.51), (5e3, 2e4, 0.2), (1e5, 1e5, 0.5001),
                (3.0, 1e6, 1e-6), (1e6, 1e6, 0.501), (0.5, 0.5, 1e-300), (0.001, 0.001, 0.999)]:
    p, q = beta_tails(a, b, x)
    emit("beta_i", [a, b, x], p)
    emit("beta_ic", [a, b, x], q)


# ---- continuous interval probabilities
def erfc(z):
    return mp.mpf(0) if z > 1e6 else mp.mpf(2) if z < -1e6 else mp.erfc(z)


def normal(m, s, x1, x2):
    if not x1 < x2:
        return mp.mpf(0)
    r = 1 / mp.sqrt(2 * mp.mpf(s))
    z1, z2 = (mp.mpf(x1) - m) * r, (mp.mpf(x2) - m) * r
    if z1 >= 0:
        return (erfc(z1) - erfc(z2)) / 2
    if z2 <= 0:
        return (erfc(-z2) - erfc(-z1)) / 2
    return 1 - (erfc(-z1) + erfc(z2)) / 2


for m, s, x1, x2 in [(0.0, 1.0, -INF, 0.0), (0.0, 1.0, -1.0, 1.0), (0.0, 1.0, 0.1, 0.3), (0.0, 1.0, -0.3, 0.2),
                     (0.0, 1.0, 0.3, 0.6), (0.0, 1.0, 2.0, 3.0), (0.0, 1.0, 5.0, INF), (0.0, 1.0, -INF, -8.0),
                     (0.0, 1.0, 36.0, 37.0), (0.0, 1.0, -38.0, -37.5), (0.0, 1.0, 37.0, INF),
                     (0.0, 1.0, 1.0, 1.00000001), (0.0, 1.0, -2.0, -1.9999999), (3.0, 0.01, 2.9, 3.05),
                     (1e3, 1e6, -INF, DBL_MAX), (-5.0, 4.0, -DBL_MAX, -4.0), (10.0, 1e-8, 10.0, 10.0001),
                     (0.0, 1e10, 1e5, 2e5), (0.0, 1.0, 1.0, 1.0)]:
    emit("normal", [m, s, x1, x2], normal(m, s, x1, x2))


def gamma_interval(shape, scale, x1, x2):
    x1 = max(x1, 0.0)
    if not x1 < x2:
        return mp.mpf(0)
    p1, q1 = gamma_tails(shape, mp.mpf(x1) / scale)
    if x2 >= DBL_MAX:
        return q1
    p2, q2 = gamma_tails(shape, mp.mpf(x2) / scale)
    return smaller_tails(p1, q1, p2, q2)


for sh, sc, x1, x2 in [(1.0, 1.0, 0.0, 1.0), (2.5, 2.0, 1.0, 4.0), (0.1, 1.0, 0.0, 1e-20), (0.1, 1.0, 1e-3, 2e-3),
                       (0.5, 1.0, 3.0, INF), (3.0, 0.5, -1.0, 0.25), (20.0, 1.0, 19.0, 21.0), (1e3, 1.0, 900.0, 950.0),
                       (1e5, 1.0, 1e5, 1e5 + 1e-3), (1e5, 1.0, 1.1e5, INF), (1e5, 1.0, 0.0, 9e4), (7.0, 1.0, 600.0, INF),
                       (0.3, 4.0, 2800.0, DBL_MAX), (50.0, 1.0, 1.0, 2.0), (1e8, 1.0, 1e8 - 1e4, 1e8 + 1e4)]:
    emit("gamma", [sh, sc, x1, x2], gamma_interval(sh, sc, x1, x2))
for x, df in [(3.84, 1.0), (11.07, 5.0), (0.5, 2.0), (150.0, 100.0), (1500.0, 10.0), (1e4, 1e4), (0.0, 3.0)]:
    emit("chisq", [x, df], gamma_tails(mp.mpf(df) / 2, mp.mpf(x) / 2)[1])


def beta_interval(a, b, lo, hi, x1, x2):
    x1, x2 = max(x1, lo), min(x2, hi)
    if not x1 < x2:
        return mp.mpf(0)
    t1, t2 = (mp.mpf(x1) - lo) / (hi - lo), (mp.mpf(x2) - lo) / (hi - lo)

    return smaller_tails(*beta_tails(a, b, t1), *beta_tails(a, b, t2))


for a, b, lo, hi, x1, x2 in [(2.0, 3.0, 0.0, 1.0, 0.2, 0.5), (0.5, 0.5, 0.0, 1.0, 0.0, 0.01),
                             (1e-3, 1e-3, 0.0, 1.0, 0.25, 0.75), (0.01, 5.0, 0.0, 1.0, 0.5, 1.0),
                             (50.0, 50.0, 0.0, 1.0, 0.9, 1.0), (2.0, 2.0, -2.0, 6.0, -5.0, 0.0),
                             (1e4, 1e4, 0.0, 1.0, 0.5, 0.50000001), (1.0, 1.0, 0.0, 1.0, 0.3, 0.3),
                             (300.0, 3.0, 0.0, 1.0, 0.0, 0.5)]:
    emit("beta", [a, b, lo, hi, x1, x2], beta_interval(a, b, lo, hi, x1, x2))


def weibull(a, b, x1, x2):
    x1, x2 = max(x1, 0.0), max(x2, 0.0)
    if not x1 < x2:
        return mp.mpf(0)
    u1 = (mp.mpf(x1) / b) ** a
    if x2 >= DBL_MAX:
        return mp.exp(-u1)
    u2 = (mp.mpf(x2) / b) ** a
    return mp.exp(-u1) * -mp.expm1(-(u2 - u1))


for a, b, x1, x2 in [(1.0, 2.0, 2.0, DBL_MAX), (1.0, 2.0, 0.0, 1.0), (1.5, 1.0, 0.5, 1.5), (0.3, 10.0, 0.0, 1e-30),
                     (2.0, 1.0, 26.0, INF), (2.0, 1.0, 1.0, 1.0000001), (5.0, 3.0, -1.0, 2.0), (1.0, 1e-3, 0.5, 0.6),
                     (0.5, 1.0, 1e6, 2e6)]:
    emit("weibull", [a, b, x1, x2], weibull(a, b, x1, x2))


# ---- discrete interval probabilities: (lower, upper) tails at k
def discrete(tails, support_top, x1, x2):
    k1, k2 = mp.ceil(x1) if abs(x1) < INF else x1, mp.ceil(x2) if abs(x2) < INF else x2
    if not (k2 > 0 and k1 < k2):
        return mp.mpf(0)
    p1, q1 = tails(k1) if k1 > 0 else (0, 1)
    p2, q2 = tails(k2) if k2 <= support_top and k2 < DBL_MAX else (1, 0)
    return smaller_tails(p1, q1, p2, q2)


def poisson_tails(lam):
    return lambda k: gamma_tails(k, lam)[::-1]


def binomial_tails(n, p):
    return lambda k: beta_tails(k, n - k + 1, p)[::-1]


def negbin_tails(r, p):
    return lambda k: beta_tails(k, r, 1 - mp.mpf(p))[::-1]


for lam, x1, x2 in [(0.0, -1.0, 0.5), (0.0, 0.5, 3.0), (3.0, 0.0, 1.0), (3.0, 2.0, 5.0), (3.0, 4.5, DBL_MAX),
                    (3.0, -INF, 2.5), (1e-5, 1.0, 2.0), (50.0, 0.0, 5.0), (1e5, 99900.0, 100100.0),
                    (1e5, 0.0, 9e4), (1e5, 1.02e5, INF), (1e5, 1e5, 1e5 + 1), (700.0, 0.0, 1.0)]:
    emit("poisson", [lam, x1, x2], discrete(poisson_tails(lam), INF, x1, x2))
for n, p, x1, x2 in [(10.0, 0.5, 0.0, 5.0), (10.0, 0.5, 3.0, DBL_MAX), (10.0, 0.25, -2.0, 0.5), (10.0, 1.0, 9.5, 11.0),
                     (10.0, 0.0, 0.0, 1.0), (20.0, 0.125, 15.0, DBL_MAX), (1e6, 0.5, 499000.0, 501000.0),
                     (1e6, 0.5, 0.0, 4e5), (1e6, 0.5, 5e5, 5e5 + 1), (1e6, 2.0 ** -20, 3.0, 6.0), (5.0, 0.5, 6.0, 9.0)]:
    emit("binomial", [n, p, x1, x2], discrete(binomial_tails(n, p), n, x1, x2))
for r, p, x1, x2 in [(1.0, 0.5, 0.0, 1.0), (1.0, 0.25, 3.0, DBL_MAX), (2.5, 0.375, 1.0, 4.0), (0.01, 0.5, 1.0, 100.0),
                     (50.0, 0.5, 0.0, 10.0), (50.0, 0.5, 120.0, INF), (1e4, 0.75, 3000.0, 3500.0),
                     (3.0, 2.0 ** -30, 0.0, 1e6)]:
    emit("negbin", [r, p, x1, x2], discrete(negbin_tails(r, p), INF, x1, x2))

# ---- number children
for k, n, p in [(0, 0, 0.3), (0, 5, 0.5), (2, 5, 0.5), (5, 5, 0.25), (3, 10, 0.0), (0, 10, 0.0), (10, 10, 1.0),
                (7, 20, 0.3), (500000, 1000000, 0.5), (1000, 1000000, 0.001), (0, 1000000, 0.5), (6, 5, 0.5),
                (30000, 100000, 0.125)]:
    emit("binomial_point", [k, n, p], mp.binomial(n, k) * mp.mpf(p) ** k * (1 - mp.mpf(p)) ** (n - k) if k <= n else 0)
for lam, n in [(0.0, 3), (2.5, 8), (30.0, 20), (1e5, 100200), (800.0, 900)]:
    for k in sorted({0, 1, n // 2, n - 2, n - 1}):
        if k < n - 1:
            v = mp.exp(-mp.mpf(lam)) * mp.mpf(lam) ** k / mp.factorial(k) if lam > 0 else (1 if k == 0 else 0)
        else:
            v = gamma_tails(k, lam)[0] if lam > 0 else (1 if k == 0 else 0)
        emit("poisson_values", [lam, n, k], v)
for r, p, n in [(1.0, 0.5, 6), (2.5, 0.375, 12), (1e3, 0.25, 3000), (0.5, 0.999, 4)]:
    for k in sorted({0, 1, n // 2, n - 2, n - 1}):
        if k < n - 1:
            v = mp.binomial(k + r - 1, k) * mp.mpf(p) ** r * (1 - mp.mpf(p)) ** k
        else:
            v = beta_tails(k, r, 1 - mp.mpf(p))[0]
        emit("negbin_values", [r, p, n, k], v)
for p, n in [(0.5, 4), (0.125, 100), (1.0, 3), (0.0, 3)]:
    for k in sorted({0, 1, n - 2, n - 1}):
        emit("geometric_values", [p, n, k], mp.mpf(p) * (1 - mp.mpf(p)) ** k if k < n - 1 else (1 - mp.mpf(p)) ** k)

print("# function\targuments\texpected (written by scripts/distribution-reference.py)")
print("\n".join(rows))
