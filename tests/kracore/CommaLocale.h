#pragma once

#include <clocale>
#include <string>

namespace kracore {

/// While it lives, the C locale writes a decimal comma, when such a locale is installed.
class CommaLocale {
public:
    // NOLINTBEGIN(concurrency-mt-unsafe): tests that use it run no threads
    CommaLocale()
        : before_(std::setlocale(LC_ALL, nullptr)),
          isInForce_(std::setlocale(LC_ALL, "de_DE.UTF-8") || std::setlocale(LC_ALL, "de_DE")) {}
    ~CommaLocale() { std::setlocale(LC_ALL, before_.c_str()); }
    // NOLINTEND(concurrency-mt-unsafe)
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    bool IsInForce() const { return isInForce_; }

private:
    std::string before_;
    bool isInForce_;
};

}  // namespace kracore
