#include "kraaudiodsp/Bessel.h"

namespace dsp {

double BesselI0(double x) {
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; term > 1e-17 * sum; ++k) {
        term *= (0.5 * x / k) * (0.5 * x / k);
        sum += term;
    }
    return sum;
}

}  // namespace dsp
