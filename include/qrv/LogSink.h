#pragma once

#include "qrv/Export.h"

#include <functional>
#include <string>

namespace vela::printer::communication {

enum class LogLevel { error = 0, warning = 1, info = 2 };

// Receives each line the library logs. Called on the thread that logs it (a host thread, or the
// status monitor thread), so it must be thread-safe and must not call back into the library.
using LogSink = std::function<void(LogLevel level, const std::wstring& line)>;

// Sends the library's log lines to `sink` instead of standard error (or QRV_LOG_FILE); an empty
// sink restores that default. Returns the sink set before (empty for the default). Any thread.
QRV_API LogSink SetLogSink(LogSink sink);
// Lines at or below `level` are delivered; -1 turns logging off. The default is warning, or the
// value of QRV_LOG_LEVEL (off, error, warning, info). Any thread.
QRV_API void SetLogLevel(int level);

} // namespace vela::printer::communication
