#include "Console.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "host/Faults.h"
#include "host/JsonReader.h"

namespace zuc::cli {
namespace {

constexpr std::string_view kRed = "\033[1;31m";
constexpr std::string_view kYellow = "\033[1;33m";
constexpr std::string_view kPlain = "\033[0m";

/// How many characters a terminal shows for UTF-8 text.
std::size_t GetWidth(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
    }));
}

bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::vector<host::Error> GetErrors(const host::Error& error) {
    if (const auto* list = dynamic_cast<const host::ErrorList*>(&error)) return list->GetErrors();
    return {error};
}

void SayPrefixed(std::string_view color, std::string_view prefix, std::string_view text) {
    const bool colored = UsesColor(STDERR_FILENO);
    Say((colored ? std::string(color) : "") + std::string(prefix) +
        std::string(colored ? kPlain : "") + ' ' + std::string(text));
}

}  // namespace

bool IsTerminal(int fd) { return ::isatty(fd) == 1; }

bool UsesColor(int fd) {
    const char* noColor = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): set at start
    return IsTerminal(fd) && (!noColor || !*noColor);
}

void Print(std::string_view text) {
    if (!WriteAll(STDOUT_FILENO, text))
        throw host::Error(host::ExitCode::kOutput, "standard output cannot be written: " +
                                                       std::system_category().message(errno));
}

void Say(std::string_view line) { WriteAll(STDERR_FILENO, std::string(line) + '\n'); }

void SayError(const host::Error& error) {
    for (const host::Error& each : GetErrors(error)) SayPrefixed(kRed, "zuc:", each.what());
}

void SayWarning(std::string_view text) { SayPrefixed(kYellow, "zuc: warning:", text); }

std::string ErrorToJson(const host::Error& error) {
    host::Json json = {{"schema", "zuc.error/1"},
                       {"exitCode", static_cast<int>(error.GetCode())},
                       {"errors", host::Json::array()}};
    for (const host::Error& each : GetErrors(error))
        json["errors"].push_back({{"message", each.GetMessage()},
                                  {"allowed", each.GetAllowed()},
                                  {"hint", each.GetHint()},
                                  {"exitCode", static_cast<int>(each.GetCode())}});
    return json.dump(2, ' ', false, host::Json::error_handler_t::replace) + "\n";
}

std::string FormatColumns(const std::vector<std::vector<std::string>>& rows,
                          std::string_view indent) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows)
        for (std::size_t column = 0; column < row.size(); ++column) {
            if (widths.size() <= column) widths.push_back(0);
            widths[column] = std::max(widths[column], GetWidth(row[column]));
        }
    std::string text;
    for (const auto& row : rows) {
        std::string line(indent);
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            line.append(widths[column] - GetWidth(row[column]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text;
}

}  // namespace zuc::cli
