#include "kracore/Console.h"

#include <map>

namespace kracore::console {
namespace {

struct Registration {
    WStr help;
    CommandRegistry::Creator creator;
};

std::map<WStr, Registration>& Registrations() {
    static auto* const registrations = new std::map<WStr, Registration>;
    return *registrations;
}

std::vector<WStr> SplitWords(const WStr& line) {
    constexpr std::u16string_view kBlanks = u" \t\r\n";
    std::vector<WStr> words;
    std::size_t begin = line.find_first_not_of(kBlanks);
    while (begin != WStr::npos) {
        const std::size_t end = line.find_first_of(kBlanks, begin);
        words.push_back(line.substr(begin, end - begin));
        begin = line.find_first_not_of(kBlanks, end);
    }
    return words;
}

}  // namespace

Command::~Command() = default;

void CommandRegistry::RegisterCommand(const WStr& name, const WStr& help, Creator creator) {
    Registration& registration = Registrations()[name];
    registration.help = help;
    registration.creator = std::move(creator);
}

void CommandRegistry::UnregisterCommand(const WStr& name) { Registrations().erase(name); }

std::vector<CommandRegistry::Entry> CommandRegistry::GetCommands() {
    std::vector<Entry> entries;
    for (const auto& [name, registration] : Registrations())
        entries.push_back({name, registration.help});
    return entries;
}

bool CommandRegistry::Execute(const WStr& line, OutputStream& out) {
    std::vector<WStr> words = SplitWords(line);
    if (words.empty()) return false;
    const auto found = Registrations().find(words.front());
    if (found == Registrations().end()) return false;
    words.erase(words.begin());
    found->second.creator()->Execute(words, out);
    return true;
}

}  // namespace kracore::console
