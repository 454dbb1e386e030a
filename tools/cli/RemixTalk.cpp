#include "RemixTalk.h"

#include <algorithm>

#include <fmt/format.h>

#include "host/RemixSearch.h"

namespace zuc::cli {
namespace {

double SumOf(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) sum += value;
    return sum;
}

}  // namespace

host::Json RemixToJson(const RemixResult& result) {
    const host::RemixPlan& plan = result.plan;
    const double seconds = host::ToSeconds(plan.GetDuration());
    host::Json json = {{"target", plan.targetSeconds},
                       {"seconds", seconds},
                       {"error", seconds - plan.targetSeconds},
                       {"output", result.output},
                       {"joins", host::Json::array()}};
    const std::vector<double> starts = plan.GetStarts();
    for (std::size_t i = 1; i < plan.segments.size(); ++i) {
        const auto& before = plan.segments[i - 1];
        host::Json join = {{"at", starts[i]},
                           {"from", host::ToSeconds(before.offset + before.duration)},
                           {"to", host::ToSeconds(plan.segments[i].offset)}};
        if (!plan.joinCosts.empty()) {
            join["cost"] = plan.joinCosts[i - 1];
            join["alike"] = host::GetLikeness(plan.joinCosts[i - 1]);
        }
        json["joins"].push_back(std::move(join));
    }
    if (!plan.joinCosts.empty()) json["cost"] = SumOf(plan.joinCosts);
    json["files"] = result.files;
    json["warnings"] = result.warnings;
    return json;
}

std::string DescribeRemix(const RemixResult& result, bool verbose) {
    const host::RemixPlan& plan = result.plan;
    const double seconds = host::ToSeconds(plan.GetDuration());
    std::string text = result.output.empty() ? "remix" : result.output;
    text += ": " + host::FormatTime(seconds);
    if (plan.targetSeconds > 0)
        text += fmt::format(" for {} ({:+.2f} s)", host::FormatTime(plan.targetSeconds),
                            seconds - plan.targetSeconds);
    text += fmt::format(", {} join{}", plan.GetJoinCount(), plan.GetJoinCount() == 1 ? "" : "s");
    if (!plan.joinCosts.empty()) {
        const double worst = *std::max_element(plan.joinCosts.begin(), plan.joinCosts.end());
        text += fmt::format(", the worst {:.0f} % alike, cost {:.3f}",
                            100 * host::GetLikeness(worst), SumOf(plan.joinCosts));
    }
    const std::vector<double> starts = plan.GetStarts();
    for (std::size_t i = 1; verbose && i < plan.segments.size(); ++i) {
        const auto& before = plan.segments[i - 1];
        text += fmt::format("\n  at {}: from {} to {}", host::FormatTime(starts[i]),
                            host::FormatTime(host::ToSeconds(before.offset + before.duration)),
                            host::FormatTime(host::ToSeconds(plan.segments[i].offset)));
        if (!plan.joinCosts.empty())
            text += fmt::format(", {:.0f} % alike", 100 * host::GetLikeness(plan.joinCosts[i - 1]));
    }
    return text;
}

}  // namespace zuc::cli
