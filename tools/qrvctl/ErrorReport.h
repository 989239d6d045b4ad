#pragma once

#include "Console.h"
#include "ExitCode.h"

#include <string>

namespace vela::qrvctl {

// What the user is told when a command fails: the library's (or the tool's) message, a hint
// where one helps, and the exit code of the failure's kind.
struct ErrorReport {
    ExitCode code = ExitCode::failure;
    std::string message;
    std::string hint;

    // Classifies the exception being handled; call only inside a catch block. Knows the host
    // failure kinds of the gateway, the tool's CommandError, the native tree (from discovery)
    // and std::exception.
    static ErrorReport FromCurrentException();

    // Text: "qrvctl: <message>" and "  hint: <hint>" on the error stream. JSON: the document
    // {"error": {"kind", "exitCode", "message", "hint"}} on the output stream.
    void Print(Console& console) const;
};

} // namespace vela::qrvctl
