#pragma once

#include "Console.h"
#include "common/Log.h"

namespace vela::qrvctl {

// The library's log while a command runs. Without -v the log is off unless QRV_LOG_LEVEL asks
// for it: every failure already reaches the user as the command's error message, and the
// library's warning line of a failure is that same text. With -v the library logs at info level
// to the error stream ("qrv info: ..."). The previous sink and level come back afterwards.
class LogSetup {
public:
    LogSetup(Console& console, bool verbose);
    ~LogSetup();
    LogSetup(const LogSetup&) = delete;
    LogSetup& operator=(const LogSetup&) = delete;

private:
    vela::common::Log::Sink m_previousSink;
    int m_previousLevel;
    bool m_sinkChanged = false;
    bool m_levelChanged = false;
};

} // namespace vela::qrvctl
