#include "Commands.h"
#include "Console.h"
#include "host/EffectCatalogue.h"
#include "host/JsonReader.h"

namespace zuc::cli {

int RunList(const ListOptions& options) {
    const host::EffectCatalogue catalogue;
    if (options.json) {
        host::Json json = {{"schema", "zuc.list/1"}, {"effects", host::Json::array()}};
        for (const host::Effect& effect : catalogue.GetEffects())
            json["effects"].push_back({{"effect", effect.slug},
                                       {"class", effect.className},
                                       {"title", effect.title},
                                       {"category", host::GetCategoryName(effect.category)}});
        Print(json.dump(2) + "\n");
        return 0;
    }
    std::vector<std::vector<std::string>> rows;
    for (const host::Effect& effect : catalogue.GetEffects())
        rows.push_back(
            {effect.slug, std::string(host::GetCategoryName(effect.category)), effect.title});
    Print(FormatColumns(rows, ""));
    return 0;
}

}  // namespace zuc::cli
