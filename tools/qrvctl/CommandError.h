#pragma once

#include "ExitCode.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace vela::qrvctl {

// A failure the tool detects itself (no such printer, a host path it cannot use, ...): the
// message for the user, the exit code of its kind and an optional hint that says what to do.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode code, const std::string& message, std::string hint = std::string())
        : std::runtime_error(message), m_code(code), m_hint(std::move(hint)) {}

    ExitCode Code() const { return m_code; }
    const std::string& Hint() const { return m_hint; }

private:
    ExitCode m_code;
    std::string m_hint;
};

} // namespace vela::qrvctl
