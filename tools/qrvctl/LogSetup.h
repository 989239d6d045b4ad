#pragma once

#include "Console.h"
#include "common/Log.h"

#include <memory>

namespace vela::qrvctl {

// The library's log while a command runs. Without -v the log is off unless QRV_LOG_LEVEL asks
// for it: every failure already reaches the user as the command's error message, and the
// library's warning line of a failure is that same text. With -v the library logs at info level
// to the error stream ("qrv info: ..."); its error and warning lines wait until the next gateway
// operation begins, and those of the failure that ends the command are left out (the tool's own
// message says it, once). The previous sink and level come back afterwards.
class LogSetup {
public:
    LogSetup(Console& console, bool verbose);
    ~LogSetup();
    LogSetup(const LogSetup&) = delete;
    LogSetup& operator=(const LogSetup&) = delete;

    // The command failed: the lines still held back belong to its failure and are dropped.
    void CommandFailed();

private:
    struct Held;
    std::shared_ptr<Held> m_held;
    vela::common::Log::Sink m_previousSink;
    int m_previousLevel;
    bool m_sinkChanged = false;
    bool m_levelChanged = false;
};

} // namespace vela::qrvctl
