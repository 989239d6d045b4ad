#include "LogSetup.h"

#include "common/StringConverter.h"

#include <cstdlib>

namespace vela::qrvctl {

using vela::common::Log;
using vela::common::LogLevel;

LogSetup::LogSetup(Console& console, bool verbose) : m_previousLevel(Log::GetLevel()) {
    if (verbose) {
        m_previousSink = Log::SetSink([&console](LogLevel level, const std::wstring& line) {
            console.ErrorLine(std::string("qrv ") +
                              vela::common::StringConverter::ToUtf8(vela::common::LogLevelName(level)) +
                              ": " + vela::common::StringConverter::ToUtf8(line));
        });
        m_sinkChanged = true;
        Log::SetLevel(static_cast<int>(LogLevel::info));
        m_levelChanged = true;
    } else if (std::getenv("QRV_LOG_LEVEL") == nullptr) {
        Log::SetLevel(-1);
        m_levelChanged = true;
    }
}

LogSetup::~LogSetup() {
    if (m_sinkChanged) {
        Log::SetSink(m_previousSink);
    }
    if (m_levelChanged) {
        Log::SetLevel(m_previousLevel);
    }
}

} // namespace vela::qrvctl
