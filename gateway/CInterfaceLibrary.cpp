// The C interface: version, memory and logging.
#include "common/StringConverter.h"
#include "gateway/CInterfaceCall.h"
#include "qrv/LogSink.h"

#include <cstdlib>

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
            sink = [callback, user](host::LogLevel level, const std::wstring& line) {
                callback(static_cast<int32_t>(level), vela::common::StringConverter::ToUtf8(line).c_str(),
                         user);
            };
        }
        host::SetLogSink(std::move(sink));
        return QRV_OK;
    });
}

} // extern "C"
