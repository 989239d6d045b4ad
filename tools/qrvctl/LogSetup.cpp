#include "LogSetup.h"

#include "common/StringConverter.h"

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

namespace vela::qrvctl {

using vela::common::Log;
using vela::common::LogLevel;

// Error and warning lines not shown yet. The sink may be called from any thread.
struct LogSetup::Held {
    explicit Held(Console& console) : console(console) {}

    void Show(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        ShowHeld();
        console.ErrorLine(line);
    }
    void Pass(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        console.ErrorLine(line);
    }
    void Hold(std::string line) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(std::move(line));
    }
    void ShowHeld() {
        for (const std::string& line : lines) {
            console.ErrorLine(line);
        }
        lines.clear();
    }
    void Flush(bool drop) {
        std::lock_guard<std::mutex> lock(mutex);
        if (drop) {
            lines.clear();
        }
        ShowHeld();
    }

    Console& console;
    std::mutex mutex;
    std::vector<std::string> lines;
};

LogSetup::LogSetup(Console& console, bool verbose) : m_previousLevel(Log::GetLevel()) {
    if (verbose) {
        m_held = std::make_shared<Held>(console);
        m_previousSink = Log::SetSink([held = m_held](LogLevel level, const std::wstring& text) {
            std::string line = std::string("qrv ") +
                               vela::common::StringConverter::ToUtf8(vela::common::LogLevelName(level)) +
                               ": " + vela::common::StringConverter::ToUtf8(text);
            if (level != LogLevel::info) {
                held->Hold(std::move(line));
            } else if (text.rfind(L"QRVDeviceGateway::", 0) == 0) {
                held->Show(line); // a new operation: what is held belongs to one that went on
            } else {
                held->Pass(line);
            }
        });
        m_sinkChanged = true;
        Log::SetLevel(static_cast<int>(LogLevel::info));
        m_levelChanged = true;
    } else if (std::getenv("QRV_LOG_LEVEL") == nullptr) {
        Log::SetLevel(-1);
        m_levelChanged = true;
    }
}

void LogSetup::CommandFailed() {
    if (m_held) {
        m_held->Flush(true);
    }
}

LogSetup::~LogSetup() {
    if (m_sinkChanged) {
        Log::SetSink(m_previousSink);
    }
    if (m_held) {
        m_held->Flush(false);
    }
    if (m_levelChanged) {
        Log::SetLevel(m_previousLevel);
    }
}

} // namespace vela::qrvctl
