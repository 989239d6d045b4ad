#include "qrv/LogSink.h"

#include "common/Log.h"

#include <mutex>

namespace vela::printer::communication {

namespace {

std::mutex& SinkMutex() {
    static std::mutex mutex;
    return mutex;
}

LogSink& CurrentSink() {
    static LogSink sink;
    return sink;
}

} // namespace

LogSink SetLogSink(LogSink sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    vela::common::Log::Sink native;
    if (sink) {
        native = [sink](vela::common::LogLevel level, const std::wstring& line) {
            sink(static_cast<LogLevel>(level), line);
        };
    }
    vela::common::Log::SetSink(std::move(native));
    LogSink previous = std::move(CurrentSink());
    CurrentSink() = std::move(sink);
    return previous;
}

void SetLogLevel(int level) {
    vela::common::Log::SetLevel(level);
}

} // namespace vela::printer::communication
