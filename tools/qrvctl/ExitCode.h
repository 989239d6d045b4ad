#pragma once

namespace vela::qrvctl {

// The tool's exit codes, one per kind of failure, so that scripts can react without parsing
// messages. The README's table lists them; keep the two in step (a test compares them).
enum class ExitCode : int {
    ok = 0,
    failure = 1,         // any other failure (USB channel, system error, unexpected answer)
    usage = 2,           // bad command line, or several printers and no --printer
    printerNotFound = 3, // no such printer, none attached, or it cannot be used
    accessDenied = 4,    // the printer or this host refused access to a device, file or folder
    notFound = 5,        // a file or folder does not exist (on the printer or the host)
    diskFull = 6,        // the printer has no room for the file
    communication = 7,   // the printer did not answer, answered wrongly, or was busy
    invalidName = 8,     // a printer path was rejected, or the target already exists
    interrupted = 130,   // Ctrl+C ended a command (not `status --watch`): the shell reports 128 + SIGINT
};

inline int ToInt(ExitCode code) {
    return static_cast<int>(code);
}

// The stable name of a kind, used in JSON error documents ("kind").
inline const char* KindName(ExitCode code) {
    switch (code) {
    case ExitCode::ok:
        return "ok";
    case ExitCode::failure:
        return "failure";
    case ExitCode::usage:
        return "usage";
    case ExitCode::printerNotFound:
        return "printerNotFound";
    case ExitCode::accessDenied:
        return "accessDenied";
    case ExitCode::notFound:
        return "notFound";
    case ExitCode::diskFull:
        return "diskFull";
    case ExitCode::communication:
        return "communication";
    case ExitCode::invalidName:
        return "invalidName";
    case ExitCode::interrupted:
        return "interrupted";
    }
    return "failure";
}

} // namespace vela::qrvctl
