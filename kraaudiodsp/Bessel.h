#pragma once

namespace dsp {

/// Modified Bessel function of the first kind and order 0, by its power series, for |x| up to 100; what
/// Kaiser windows are made of. Neither allocates nor throws. [any]
double BesselI0(double x);

}  // namespace dsp
