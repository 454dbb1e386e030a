#include "Components/CurveReader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

namespace zuc {
namespace {

using Join = CurveReader::Join;

struct Read {
    std::vector<float> values;
    std::vector<std::int64_t> steps;  // frames at which pieces join with kStep
    int editCount = 0;
};

/// Reads `frames` frames from `start` on, asking for `pieceFrames` at a time.
Read ReadAll(CurveReader& reader,
             const KeyframeContainer& curve,
             std::int64_t start,
             int frames,
             int pieceFrames) {
    Read read;
    std::vector<float> values(CurveReader::kMaxFrames);
    for (int done = 0; done < frames;) {
        const auto piece =
            reader.Read(curve, start + done, std::min(pieceFrames, frames - done), values.data());
        if (piece.isLevel) std::fill_n(values.begin(), piece.frames, values[0]);
        read.values.insert(read.values.end(), values.begin(), values.begin() + piece.frames);
        if (piece.join == Join::kStep) read.steps.push_back(start + done);
        if (piece.join == Join::kEdited) ++read.editCount;
        done += piece.frames;
    }
    return read;
}

KeyframeContainerPtr MakeCurve(bool splines) {
    KeyframeContainerPtr curve(new KeyframeContainer(0.5f));
    const Keyframe keyframes[] = {
        {0.1f, -100}, {0.9f, 37},         {0.9f, 64},         {0.2f, 333, true}, {0.7f, 600, true},
        {0.7f, 601},  {0.3f, 1000},       {0.35f, 1003},      {0.0f, 1600},      {0.0f, 1700},
        {1.0f, 5000}, {0.4f, 5008, true}, {0.4f, 5024, true}, {0.8f, 5056}};
    for (const Keyframe& keyframe : keyframes) curve->InsertKeyframe(keyframe);
    curve->EnableSplines(splines);
    return curve;
}

TEST(CurveReader, GivesTheCurveWhereverReadsBegin) {
    for (const bool splines : {false, true})
        for (const bool everyFrame : {false, true}) {
            const auto curve = MakeCurve(splines);
            CurveReader whole(0.5f, everyFrame);
            const Read expected = ReadAll(whole, *curve, -300, 6000, 1024);
            const std::vector<std::int64_t> steps{600, 601, 5024, 5056};
            EXPECT_EQ(expected.steps, steps);
            for (int i = 0; i < 6000; ++i)
                ASSERT_NEAR(expected.values[i], curve->GetValue(i - 300), 5e-5) << i - 300;
            for (const int pieceFrames : {1, 7, 16, 64, 480}) {
                CurveReader reader(0.5f, everyFrame);
                const Read read = ReadAll(reader, *curve, -300, 6000, pieceFrames);
                EXPECT_EQ(read.values, expected.values) << "pieces of " << pieceFrames;
                EXPECT_EQ(read.steps, steps) << "pieces of " << pieceFrames;
                EXPECT_EQ(read.editCount, 0);
            }
        }
}

TEST(CurveReader, GoesOnWithTheLastValueWhileTheCurveIsBusy) {
    const auto curve = MakeCurve(false);
    CurveReader reader(0.25f);
    std::vector<float> values(100);
    const auto readBusy = [&](std::int64_t start) {
        CurveReader::Piece piece{};
        const auto lock = curve->GetLock();
        std::thread([&] { piece = reader.Read(*curve, start, 100, values.data()); }).join();
        return piece;
    };
    EXPECT_EQ(readBusy(0).frames, CurveReader::kStepFrames);
    EXPECT_EQ(values[0], 0.25f);
    EXPECT_EQ(reader.Read(*curve, 16, 10, values.data()).join, Join::kSmooth);  // the first one
    const auto busy = readBusy(26);
    EXPECT_TRUE(busy.isLevel);
    EXPECT_EQ(busy.frames, CurveReader::kStepFrames);
    EXPECT_EQ(values[0], values[9]);
    EXPECT_EQ(reader.Read(*curve, 42, 10, values.data()).join, Join::kEdited);
    EXPECT_EQ(reader.Read(*curve, 52, 10, values.data()).join, Join::kSmooth);
    curve->OffsetKeyframes(0.1f, 0, 2000);
    EXPECT_EQ(reader.Read(*curve, 62, 10, values.data()).join, Join::kEdited);
    curve->OffsetKeyframes(0.1f, 0, 2000);
    reader.Reset();
    EXPECT_EQ(reader.Read(*curve, 999, 10, values.data()).join, Join::kSmooth);
}

}  // namespace
}  // namespace zuc
