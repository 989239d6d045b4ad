#pragma once

#include "qrv/qrv.h"

#include <cstdint>
#include <string>

namespace vela::kom {

// The frame of every C interface function: clears the calling thread's last message, runs the
// body, and turns whatever it throws into a result code and the message line of that failure.
// No exception leaves Run.
class CInterfaceCall {
public:
    // A misuse of the C interface found before the library is asked (a NULL pointer, a number out
    // of range): its result code and its message line.
    struct Misuse {
        qrv_result result;
        std::string message;
    };

    template <class Body> static qrv_result Run(Body&& body) noexcept {
        ClearMessage();
        try {
            return body();
        } catch (...) {
            return RecordCurrentException();
        }
    }

    // Throws Misuse (QRV_ERROR_NULL_ARGUMENT) "<function>(): null argument '<name>'" when `pointer`
    // is NULL.
    static void Require(const void* pointer, const char* function, const char* name);
    [[noreturn]] static void InvalidArgument(const char* function, const std::string& what);
    // Throws Misuse (QRV_ERROR_NONZERO_RESULT) "<operation>: nonzero result <n>" unless `result` is 0.
    static void RequireZero(int32_t result, const char* operation);

    // Called inside a catch block: the code of the caught failure, whose message becomes the
    // thread's last message. Host kinds keep their message line exactly.
    static qrv_result RecordCurrentException() noexcept;
    static qrv_result Record(qrv_result result, const char* message) noexcept;
    static void ClearMessage() noexcept;
    static const char* Message() noexcept;
    static const char* ResultName(qrv_result result) noexcept;
};

} // namespace vela::kom
