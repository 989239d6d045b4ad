#pragma once

#include "common/Log.h"

namespace vela::common {

// Logs "source: Name: message" as one error line, then throws a copy with its static type.
// The line goes to the log as a finished text (no formatting), so a "%" in a message or path
// reaches the sink as it stands.
template <class E> [[noreturn]] void LogAndThrow(const E& exception) {
    Log::LogError(exception.Source() + L": " + exception.ExceptionName() + L": " + exception.Message());
    throw exception;
}

} // namespace vela::common
