#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/ChainProcessor.h"
#include "host/Figure.h"

namespace zuc::host {

/// What a chain answers to one impulse of height 1 in one input channel after the other.
struct ImpulseResponses {
    float rateHz = 0.0f;
    int latencyFrames = 0;  // frame of the impulse in the responses
    std::vector<std::string> channelNames;
    /// frames[in][out] is the response of channel `out` to an impulse in channel `in`.
    std::vector<std::vector<std::vector<float>>> frames;
};

/// Measures `seconds` from the impulse on; 0 goes on to the end of the reported tail, but at least
/// half a second and at most ten seconds. Effects are taken as linear and as not changing with time;
/// what is shown of others is their answer to this one impulse. [worker]
ImpulseResponses MeasureImpulseResponses(ChainProcessor& chain, float rateHz, double seconds = 0.0);

enum class ImpulseScale { kAuto, kAmplitude, kLevel };

/// One panel for each output channel, time from the impulse on, latency taken off. Either the samples
/// or their level in dB, which shows faint echoes; on its own it takes the level for responses of more
/// than a tenth of a second. The picture ends where the responses have fallen by 60 dB. [host]
Figure PlotImpulseResponses(const ImpulseResponses& responses,
                            const std::string& title,
                            ImpulseScale scale = ImpulseScale::kAuto);

/// Magnitude of one response from 20 Hz to half the rate, in even steps of log frequency: the mean
/// power of each step, and the least and the most in it. x in Hz, y in dB.
struct Magnitude {
    std::vector<FigurePoint> mean;
    std::vector<FigureBand> range;
};
Magnitude MeasureMagnitude(const std::vector<float>& response, double rateHz);  // [host]

/// The magnitude that the settings of all effects mean, whatever they are made of, in dB over Hz; empty
/// unless each effect of the chain tells its own. [host]
std::vector<FigurePoint> GetTargetMagnitude(const ChainProcessor& chain, float rateHz);

/// Magnitude in dB over log frequency, from 20 Hz to half the rate: the mean power, and around it what
/// it varies between where the response has finer structure than the picture. `target`, if there is one,
/// is drawn behind. [host]
Figure PlotFrequencyResponses(const ImpulseResponses& responses,
                              const std::string& title,
                              const std::vector<FigurePoint>& target = {});

}  // namespace zuc::host
