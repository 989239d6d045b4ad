// The C interface: version, memory and logging.
#include "common/StringConverter.h"
#include "gateway/CInterfaceCall.h"
#include "qrv/LogSink.h"

#include <cstdlib>
#include <string>

using vela::kom::CInterfaceCall;
namespace host = vela::printer::communication;

extern "C" {

const char* qrv_version(void) {
    return QRV_VERSION_STRING;
}

void qrv_free(void* block) {
    std::free(block);
}

qrv_result qrv_set_log_level(int32_t level) {
    return CInterfaceCall::Run([&] {
        if (level < QRV_LOG_OFF || level > QRV_LOG_INFO) {
            CInterfaceCall::InvalidArgument("qrv_set_log_level", "level " + std::to_string(level) +
                                                                     " is not one of -1 (off), 0, 1, 2");
        }
        host::SetLogLevel(level);
        return QRV_OK;
    });
}

qrv_result qrv_set_log_callback(qrv_log_fn callback, void* user) {
    return CInterfaceCall::Run([&] {
        host::LogSink sink;
        if (callback != nullptr) {
            // Lines are logged from destructors and catch blocks too: a line that cannot be
            // converted (out of memory) is dropped rather than thrown into the logging code.
            sink = [callback, user](host::LogLevel level, const std::wstring& line) noexcept {
                try {
                    const std::string utf8 = vela::common::StringConverter::ToUtf8(line);
                    callback(static_cast<int32_t>(level), utf8.c_str(), user);
                } catch (...) {
                }
            };
        }
        host::SetLogSink(std::move(sink));
        return QRV_OK;
    });
}

} // extern "C"
