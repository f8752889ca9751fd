#!/usr/bin/env bash
# Fails when a library calls the system math library: the library carries its own maths so that
# results do not depend on the device. Takes libtavrin_core.a or the shared library and looks
# for undefined references to libm functions in every float, double and long double form (and
# glibc's __*_finite aliases). Builtins that compile to instructions (fabs, sqrtsd with
# -fno-math-errno) leave no reference and pass.
set -euo pipefail
lib=${1:?usage: check-no-libm.sh LIBRARY}
[ -r "$lib" ] || { echo "cannot read $lib"; exit 2; }

base="acos acosh asin asinh atan atan2 atanh cbrt ceil copysign cos cosh erf erfc exp exp2 exp10
expm1 fabs fdim floor fma fmax fmin fmod frexp gamma hypot ilogb j0 j1 jn ldexp lgamma lgamma_r
llrint llround log log10 log1p log2 logb lrint lround modf nan nearbyint nextafter nexttoward pow
pow10 remainder remquo rint round roundeven scalb scalbln scalbn significand sin sincos sinh sqrt
tan tanh tgamma trunc y0 y1 yn"

# name, namef, namel and glibc's finite-math aliases of each.
names=$(for f in $base; do
    printf '%s\n' "$f" "${f}f" "${f}l" "__${f}_finite" "__${f}f_finite" "__${f}l_finite"
done | sort -u)

# Undefined symbols, without versions (sqrt@GLIBC_2.2.5); the dynamic table as well for a
# shared library, whose static table may be stripped.
undefined=$({
    nm -u "$lib" 2>/dev/null || true
    nm -D -u "$lib" 2>/dev/null || true
} | awk 'NF >= 2 && $(NF-1) ~ /^[Uuw]$/ {print $NF}' | sed 's/@.*//' | sort -u)

hits=$(comm -12 <(printf '%s\n' "$names") <(printf '%s\n' "$undefined"))
if [ -n "$hits" ]; then
    echo "$(basename "$lib") calls the system math library:"
    printf '  %s\n' $hits
    # Name the objects that hold the references, for an archive.
    for s in $hits; do
        nm -A -u "$lib" 2>/dev/null | awk -v s="$s" '$NF == s || $NF ~ "^"s"@" {print "    " $1}'
    done | sort -u
    exit 1
fi
echo "$(basename "$lib"): no libm references"
