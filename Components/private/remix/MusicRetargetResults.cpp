#include "Components/MusicRetargetResults.h"

#include <array>
#include <string>
#include <utility>

namespace zuc::components {
namespace {

using kracore::proplist::PropList;
using kracore::proplist::Ratio64;

constexpr const char* kSegmentKey = "Segment_";

struct Field {
    const char* key;
    Ratio RetargetSegment::*value;
};
constexpr std::array kFields{Field{"Offset", &RetargetSegment::offset},
                             Field{"Duration", &RetargetSegment::duration},
                             Field{"Crossfade", &RetargetSegment::crossfade}};

std::string MakeKey(std::size_t index) { return kSegmentKey + std::to_string(index); }

}  // namespace

void MusicRetargetResults::RemapTime(const Ratio& seconds, std::vector<Ratio>& out) const {
    Ratio played(0);
    for (const RetargetSegment& segment : *this) {
        if (seconds >= segment.offset && seconds < segment.offset + segment.duration)
            out.push_back(played + (seconds - segment.offset));
        played += segment.duration;
    }
}

void WriteToPropertyList(const MusicRetargetResults& results, PropList& list) {
    for (std::size_t i = 0; i < results.size(); ++i) {
        PropList child;
        for (const Field& field : kFields) {
            const Ratio& ratio = results[i].*field.value;
            kracore::proplist::utils::WriteRatio64(child, field.key,
                                                   {ratio.numerator(), ratio.denominator()});
        }
        list.Set(MakeKey(i), std::move(child));
    }
    for (std::size_t i = results.size(); list.Has(MakeKey(i)); ++i) list.Remove(MakeKey(i));
}

bool ReadFromPropertyList(const PropList& list, MusicRetargetResults& results) {
    MusicRetargetResults read;
    while (const PropList* child = list.FindList(MakeKey(read.size()))) {
        RetargetSegment& segment = read.emplace_back();
        for (const Field& field : kFields) {
            Ratio64 ratio;
            if (!kracore::proplist::utils::ReadRatio64(*child, field.key, ratio) ||
                ratio.denominator <= 0)
                return false;
            segment.*field.value = Ratio(ratio.numerator, ratio.denominator);
        }
    }
    results = std::move(read);
    return true;
}

}  // namespace zuc::components
