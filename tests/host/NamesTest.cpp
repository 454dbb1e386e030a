#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "Components/ParameterInfos.h"
#include "TestEffects.h"
#include "host/EffectCatalogue.h"
#include "host/Error.h"
#include "host/Parameters.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

TEST(Names, SlugsAreKebabCase) {
    const struct {
        const char* name;
        const char* slug;
    } rows[] = {
        {"Amplify", "amplify"},
        {"GraphicEqualizer10", "graphic-equalizer-10"},
        {"EQGain1", "eq-gain-1"},
        {"XYCount", "xy-count"},
        {"PeakRMS", "peak-rms"},
        {"FFTFilter", "fft-filter"},
        {"DelayLeft", "delay-left"},
        {"Low Pass", "low-pass"},
        {"(Default)", "default"},
        {"Peak/RMS", "peak-rms"},
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(ToSlug(row.name), row.slug);
}

TEST(Names, SimilarWordsAreFoundAndStrangeOnesAreNot) {
    const std::vector<std::string> names{"amplify", "echo", "graphic-equalizer-10", "gain.1"};
    const struct {
        const char* word;
        const char* similar;
    } rows[] = {
        {"amplfy", "amplify"},
        {"AMPLIFIY", "amplify"},
        {"ehco", "echo"},
        {"equalizer", "graphic-equalizer-10"},
        {"gain1", "gain.1"},
        {"xyzzy", ""},
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(FindSimilar(row.word, names), row.similar) << row.word;
    EXPECT_EQ(FindSimilar(std::string(100000, 'a'), names), "") << "long words cost no time";
}

TEST(Names, EffectsAreFoundBySlugClassAndTitle) {
    const EffectCatalogue catalogue(test::GetTestEffects());
    for (const char* name : {"test-delay", "TestDelay", "testdelay", "Test Delay", "TEST_DELAY"})
        EXPECT_EQ(catalogue.Find(name).slug, "test-delay") << name;
    EXPECT_EQ(catalogue.Find("testendless").slug, "endless")
        << "the class name need not be the title";
    try {
        catalogue.Find("test-dleay");
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.GetCode(), ExitCode::kUsage);
        EXPECT_THAT(error.GetHint(), testing::HasSubstr("test-delay"));
    }
}

TEST(Names, EveryNameOfTheLibraryIsUnique) {
    std::set<std::string> slugs;
    const EffectCatalogue catalogue;
    for (const Effect& effect : catalogue.GetEffects()) {
        EXPECT_TRUE(slugs.insert(effect.slug).second) << effect.slug;
        for (const std::size_t channels : {1u, 2u, 6u}) {
            const AudioFilterPtr filter = effect.create();
            filter->SetSampleRate(48000.0f);
            if (!RequestChannels(*filter, channels)) continue;
            std::set<std::string> names;
            for (const Parameter& parameter : GetParameters(*filter))
                EXPECT_TRUE(names.insert(parameter.slug).second)
                    << effect.slug << " " << parameter.slug;
            std::set<std::string> presets;
            for (int preset = 0; preset < filter->GetNumFactoryPresets(); ++preset) {
                const std::string name =
                    GetFactoryPresetNames(*filter)[static_cast<std::size_t>(preset)];
                EXPECT_TRUE(presets.insert(ToLower(name)).second) << effect.slug << " " << name;
                EXPECT_EQ(FindFactoryPreset(*filter, ToLower(name)), preset);
                EXPECT_EQ(FindFactoryPreset(*filter, filter->GetFactoryPresetIdentifier(preset)),
                          preset)
                    << effect.slug << " " << name;
            }
        }
    }
}

TEST(Names, ParametersAreFoundBySlugNameAndStem) {
    const EffectCatalogue catalogue;
    const auto filter = CreateForFormat(catalogue.Find("amplify"), 48000.0f, 6, 64);
    const auto parameters = GetParameters(*filter);
    const struct {
        const char* name;
        std::size_t count;
        int first;
    } rows[] = {{"gain", 6, 2},         {"gain.3", 1, 4},       {"GAIN.3", 1, 4},
                {"link-sliders", 1, 1}, {"Link Sliders", 1, 1}, {"linksliders", 1, 1}};
    for (const auto& row : rows) {
        const auto found = FindParameters(parameters, row.name, "amplify");
        ASSERT_EQ(found.size(), row.count) << row.name;
        EXPECT_EQ(found.front()->index, row.first) << row.name;
    }
    for (const char* name : {"gain.7", "gian", "", "."})
        EXPECT_THROW(FindParameters(parameters, name, "amplify"), Error) << name;
}

/// Descriptions as effects of others may have them.
class Described final : public kraaudiofilterhost::AudioFilter {
public:
    Described() : AudioFilter(u"test.Described", u"Described") {}
    int GetParameterCount() const override { return 5; }
    kraaudiofilterhost::AudioFilterParameterInfoPtr GetParameterInfo(int index) const override {
        using kraaudiofilterhost::AudioFilterParameterInfo;
        using Unit = kraaudiofilterhost::AudioFilterParameterInfoUnit;
        switch (index) {
            case 0:
                return new components::KeyParameterInfo(u"Key", u"", Unit::kGeneric, 0, 0, 11, true,
                                                        false, 0, 0);
            case 1:
                return new components::ScaleParameterInfo(u"Scale", u"", Unit::kGeneric, 1, 0, 2,
                                                          true, false, 0, 0);
            case 2:
                return new components::EnumParameterInfo(u"Way", u"",
                                                         {{0, u"\u2192"}, {1, u"Back"}}, true);
            case 3: {
                auto* const link = new AudioFilterParameterInfo(u"Tie Both", u"", Unit::kGeneric);
                link->SetRole(kraaudiofilterhost::AudioFilterParameterRole::kLink);
                return link;
            }
            default:
                return nullptr;
        }
    }
};

TEST(Names, ChoicesOfAnyDescriptionAreNamed) {
    const AudioFilterPtr filter(new Described);
    const auto parameters = GetParameters(*filter);
    const struct {
        const char* name;
        std::size_t choices;
        const char* last;
    } rows[] = {
        {"key", 12, "d#"}, {"scale", 3, "chromatic"}, {"way", 2, "back"}, {"tie-both", 2, "on"}};
    ASSERT_EQ(parameters.size(), std::size(rows)) << "one has no description";
    for (const auto& row : rows) {
        const Parameter& found = *FindParameters(parameters, row.name, "described").front();
        std::set<std::string> slugs;
        for (const ParameterEntry& entry : found.entries) slugs.insert(entry.slug);
        EXPECT_EQ(slugs.size(), row.choices) << row.name;
        EXPECT_EQ(slugs.count(""), 0u) << row.name;
        EXPECT_EQ(found.entries.back().slug, row.last);
        EXPECT_EQ(found.entries.back().normalized, 1.0f) << row.name;
    }
}

TEST(Names, EffectsThatCannotBeMadeAreNamed) {
    const Effect effect{"broken", "Broken", "Broken", components::Category::kFilter,
                        []() -> AudioFilterPtr { return nullptr; }};
    try {
        CreateForFormat(effect, 48000.0f, 2, 64);
        ADD_FAILURE();
    } catch (const Error& error) {
        EXPECT_EQ(error.GetMessage(), "broken cannot be created on this machine");
    }
}

TEST(Names, UnknownParametersAreExplained) {
    const EffectCatalogue catalogue;
    const struct {
        const char* effect;
        const char* name;
        const char* allowed;
        const char* hint;
    } rows[] = {{"amplify", "gian", "preset, ", "did you mean 'gain'?"},
                {"amplify", "xyzzy", "gain.2", ""},
                {"parametric-equalizer", "xyzzy", "'zuc describe parametric-equalizer'", ""}};
    for (const auto& row : rows) {
        const auto filter = CreateForFormat(catalogue.Find(row.effect), 48000.0f, 2, 64);
        try {
            FindParameters(GetParameters(*filter), row.name, row.effect);
            ADD_FAILURE() << row.name;
        } catch (const Error& error) {
            EXPECT_THAT(error.GetAllowed(), testing::HasSubstr(row.allowed));
            EXPECT_EQ(error.GetHint(), row.hint);
        }
    }
}

}  // namespace
}  // namespace zuc::host
