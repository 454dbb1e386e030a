#pragma once

namespace dsp {

/// Height of a logarithmic fade at its middle for which two complementary fades keep the power of
/// unrelated sounds within +0 and -0.163 dB.
inline constexpr double kEqualPowerFadeShapeValue = 0.70710678;

/// Height at the middle (-4.4 dB) for fades between sounds that are alike, as at the joins of a remix:
/// with a correlation of 0 to 0.9 between them the level stays within -1.5 and +1.4 dB, where equal power
/// would add up to 2.8 dB and a straight line take away 3 dB.
inline constexpr double kDefaultFadeShapeValue = 0.6;

/// The bend m of the logarithmic fade
///
///     f(p) = ln(1 + m p) / ln(1 + m)
///
/// whose height at p = 1/2 is `middleHeight` (0.05 to 0.95, clamped): 0 for 1/2, which is the straight
/// line, positive above, between -1 and 0 below. Bends of heights h and 1 - h belong together:
/// m(1 - h) = -m(h) / (1 + m(h)), and their fades mirror each other, f_{1-h}(p) = 1 - f_h(1 - p). [any]
double GetLogVerticalModifier(double middleHeight);

/// f(p) for the bend `modifier` > -1; p is clamped to [0, 1]. Exactly 0 and 1 at the ends. [any]
double CalculateLogFadeValue(double p, double modifier);

}  // namespace dsp
