#pragma once

namespace dsp::intraclip {

/// What the leveler is tuned by: times in ms, levels in dB. One record serves the whole process; an instance
/// takes it when it starts processing.
struct IntraClipParam {
    float refLevel = -12.0f;
    float maxGain = 10.0f;
    float maxGainDelta = 35.0f;
    float peakMax = -10.0f;
    float peakMin = -40.0f;
    float bodyDynamic = 15.0f;
    float minRMSNoise = -60.0f;
    float maxRMSNoise = -50.0f;
    float compAttackTime = 10.0f;
    float compReleaseTime = 500.0f;
    float peakSmoothAttackTime = 1000.0f;
    float peakSmoothReleaseTime = 8000.0f;
    float noiseThresholdOffset = 15.0f;
    float noiseGateRatio = 1.5f;
    float noiseGateAttack = 10.0f;
    float noiseGateRelease = 1000.0f;
    float noiseGateHoldTime = 250.0f;
    int numRMSBuckets = 10;
    float rmsWindowTime = 50.0f;
    int selBucketIndex = 2;
    float delayCompensationTime = -200.0f;
    float finCompAttack = 10.0f;
    float finCompRelease = 250.0f;
    float finCompThresh = -6.0f;
    float finLimLookAhead = 5.0f;
    float finLimRelease = 100.0f;
    float finLimCeil = -1.0f;
    int processingBlockActiveBitField =
        15;             // 1 compressor, 2 finalize compressor, 4 limiter, 8 gate
    int debugMode = 0;  // 0 normal; 1 to 6 show a control curve in the right channel
};

/// Whole-record copies; changes wait for each other. [any, may block]
void GetGlobalParam(IntraClipParam& param);
void SetGlobalParam(const IntraClipParam& param);
/// The same without waiting: false, and `param` untouched, while the record is being changed. [any]
bool TryGetGlobalParam(IntraClipParam& param);

}  // namespace dsp::intraclip
