#pragma once

// Elementary functions made of IEEE additions, multiplications and divisions only, so that a simulated night is
// the same file on every machine: the functions of a C library differ in the last bit between versions and
// processors. Relative error a few units of 1e-16 over the ranges used here.

namespace qmr::sim {

inline constexpr double Pi = 3.14159265358979323846;

// e to the x. Below -700 the answer is 0; above 700 it is that of 700.
double Exp(double x);

// Natural logarithm of a normal positive number; anything else gives -1e9.
double Log(double x);

// x to the y for x > 0; 0 for x <= 0.
double Power(double x, double y);

struct SineCosine {
  double sine;
  double cosine;
};

// Sine and cosine of an angle in degrees, good for |degrees| up to about 1e6. Multiples of 90 are exact. From 1e15 up
// and for not-a-number both are not-a-number.
SineCosine SinCosDegrees(double degrees);

}  // namespace qmr::sim
