#include "host/Error.h"

#include <algorithm>
#include <numeric>

#include "host/Text.h"

namespace zuc::host {
namespace {

/// Longer words are not compared letter by letter: the work grows with the product of the lengths.
constexpr std::size_t kMaxComparedLetters = 64;

/// How many letters must be added, dropped, replaced or swapped with their neighbour to turn one word
/// into the other (optimal string alignment; Damerau, CACM 7-3, 1964).
std::size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        beforeLast.swap(last);
        last.swap(row);
    }
    return last[b.size()];
}

}  // namespace

std::string FindSimilar(std::string_view word, const std::vector<std::string>& candidates) {
    if (word.empty() || word.size() > kMaxComparedLetters) return {};
    const std::string wanted = ToLower(word);
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(1, wanted.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        if (candidate.size() > kMaxComparedLetters) continue;
        const std::string lower = ToLower(candidate);
        // Part of a longer name counts as one letter off: "equalizer" for "graphic-equalizer-10".
        const bool isPart = wanted.size() >= 3 && lower.find(wanted) != std::string::npos;
        const std::size_t distance = isPart ? 1 : EditDistance(wanted, lower);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = candidate;
        }
    }
    return best;
}

}  // namespace zuc::host
