#pragma once

#include <cstddef>

/// Array loops between samples, levels in dB and gains; the rules of VectorOps.h hold. Levels and
/// gains are within 1e-5 dB of the exact ones for levels within +-100 dB.
namespace dsp::vector {

/// out[i] = max(dbPerNeper * ln(max(in[i], 1e-10)), floorDb): the level of a power with 10 / ln 10, of
/// an amplitude with 20 / ln 10. Finite input.
void ToDb(float* out, const float* in, float dbPerNeper, float floorDb, std::size_t count);

/// out[i] = 10^(in[i] / 20), with levels beyond +-700 dB taken as such.
void FromDb(float* out, const float* in, std::size_t count);

/// A gain for each level: a table downwards from 0 dB, and a straight line (in dB) above it.
struct LevelTable {
    const float* gains;   // linear; entry i belongs to -i / entriesPerDb
    std::size_t count;    // at least 2
    float entriesPerDb;   //
    float gainDbAtZero;   // of levels above 0 dB: at 0 dB,
    float gainDbPerDb;    // its change with each dB of level,
    float largestGainDb;  // and its upper bound
};

/// out[i] = the gain of level in[i] in dB, interpolated linearly between table entries; below the table
/// its last entry. Finite input.
void LookUpGains(float* out, const float* in, const LevelTable& table, std::size_t count);

/// out[i] = in[i] * gains[i] * (start + step * (first + i))
void MultiplyGains(float* out,
                   const float* in,
                   const float* gains,
                   float start,
                   float step,
                   std::size_t first,
                   std::size_t count);

/// out[i] = max(out[i], in[i])
void Maximum(float* out, const float* in, std::size_t count);

}  // namespace dsp::vector
