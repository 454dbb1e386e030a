#pragma once

#include <utility>
#include <vector>

#include "host/Error.h"

namespace zuc::host {

/// Several failures of one request, thrown together. As an Error it has the first one's code.
class ErrorList : public Error {
public:
    explicit ErrorList(std::vector<Error> errors)
        : Error(errors.front().GetCode(), JoinAll(errors)), errors_(std::move(errors)) {}

    const std::vector<Error>& GetErrors() const { return errors_; }

private:
    static std::string JoinAll(const std::vector<Error>& errors) {
        std::string text;
        for (const Error& error : errors) {
            if (!text.empty()) text += '\n';
            text += error.what();
        }
        return text;
    }

    std::vector<Error> errors_;
};

/// Collects failures, so that a person can mend all of them in one go. [host]
class Faults {
public:
    void Add(const Error& error) {
        if (const auto* list = dynamic_cast<const ErrorList*>(&error))
            errors_.insert(errors_.end(), list->GetErrors().begin(), list->GetErrors().end());
        else
            errors_.push_back(error);
    }
    /// Calls `step`; an Error that it throws is kept, and false is returned.
    template <class Step>
    bool Try(Step&& step) {
        try {
            std::forward<Step>(step)();
            return true;
        } catch (const Error& error) {
            Add(error);
            return false;
        }
    }

    bool IsEmpty() const { return errors_.empty(); }
    /// Throws what was collected: one Error as it is, several as an ErrorList.
    void ThrowIfAny() const {
        if (errors_.size() == 1) throw Error(errors_.front());
        if (!errors_.empty()) throw ErrorList(errors_);
    }

private:
    std::vector<Error> errors_;
};

}  // namespace zuc::host
