#include "gateway/CInterfaceCall.h"

#include "common/Exception.h"
#include "common/StringConverter.h"
#include "qrv/HostException.h"

#include <cstring>
#include <new>

namespace vela::kom {

namespace host = vela::printer::communication;

namespace {

// The last message of each thread. A fixed buffer: recording a failure never allocates, so even
// running out of memory can be reported, and the storage needs no clean-up when a thread ends.
constexpr size_t kMessageCapacity = 4096;
thread_local char t_message[kMessageCapacity];

struct ResultRow {
    qrv_result result;
    const char* name;
};

constexpr ResultRow kResultNames[] = {
    {QRV_OK, "OK"},
    {QRV_ERROR_PRINTER_NOT_FOUND, "PrinterNotFoundException"},
    {QRV_ERROR_ACCESS_VIOLATION, "PrinterAccessViolationException"},
    {QRV_ERROR_FILE_NOT_FOUND, "FileNotFoundException"},
    {QRV_ERROR_DIRECTORY_NOT_FOUND, "DirectoryNotFoundException"},
    {QRV_ERROR_OUT_OF_DISKSPACE, "OutOfDiskspaceException"},
    {QRV_ERROR_INVALID_FILE_NAME, "InvalidFileNameException"},
    {QRV_ERROR_INVALID_DIRECTORY_NAME, "InvalidDirectoryNameException"},
    {QRV_ERROR_COMMUNICATION, "PrinterCommunicationException"},
    {QRV_ERROR_CANCELLED, "OperationCancelledException"},
    {QRV_ERROR_PRINTER, "PrinterException"},
    {QRV_ERROR_NULL_ARGUMENT, "NullArgument"},
    {QRV_ERROR_INVALID_ARGUMENT, "InvalidArgument"},
    {QRV_ERROR_NONZERO_RESULT, "NonzeroResult"},
    {QRV_ERROR_OUT_OF_MEMORY, "OutOfMemory"},
    {QRV_ERROR_INTERNAL, "InternalError"},
};

} // namespace

void CInterfaceCall::Require(const void* pointer, const char* function, const char* name) {
    if (pointer == nullptr) {
        throw Misuse{QRV_ERROR_NULL_ARGUMENT, std::string(function) + "(): null argument '" + name + "'"};
    }
}

void CInterfaceCall::InvalidArgument(const char* function, const std::string& what) {
    throw Misuse{QRV_ERROR_INVALID_ARGUMENT, std::string(function) + "(): " + what};
}

void CInterfaceCall::RequireZero(int32_t result, const char* operation) {
    if (result != 0) {
        throw Misuse{QRV_ERROR_NONZERO_RESULT,
                     std::string(operation) + ": nonzero result " + std::to_string(result)};
    }
}

qrv_result CInterfaceCall::RecordCurrentException() noexcept {
    // The host kinds are siblings under HostException, so their order here does not matter; a
    // kind added later without a code of its own is reported as the general PrinterException.
    try {
        throw;
    } catch (const host::PrinterNotFoundException& e) {
        return Record(QRV_ERROR_PRINTER_NOT_FOUND, e.what());
    } catch (const host::PrinterAccessViolationException& e) {
        return Record(QRV_ERROR_ACCESS_VIOLATION, e.what());
    } catch (const host::FileNotFoundException& e) {
        return Record(QRV_ERROR_FILE_NOT_FOUND, e.what());
    } catch (const host::DirectoryNotFoundException& e) {
        return Record(QRV_ERROR_DIRECTORY_NOT_FOUND, e.what());
    } catch (const host::OutOfDiskspaceException& e) {
        return Record(QRV_ERROR_OUT_OF_DISKSPACE, e.what());
    } catch (const host::InvalidFileNameException& e) {
        return Record(QRV_ERROR_INVALID_FILE_NAME, e.what());
    } catch (const host::InvalidDirectoryNameException& e) {
        return Record(QRV_ERROR_INVALID_DIRECTORY_NAME, e.what());
    } catch (const host::PrinterCommunicationException& e) {
        return Record(QRV_ERROR_COMMUNICATION, e.what());
    } catch (const host::OperationCancelledException& e) {
        return Record(QRV_ERROR_CANCELLED, e.what());
    } catch (const host::HostException& e) {
        return Record(QRV_ERROR_PRINTER, e.what());
    } catch (const Misuse& e) {
        return Record(e.result, e.message.c_str());
    } catch (const std::bad_alloc&) {
        return Record(QRV_ERROR_OUT_OF_MEMORY, "out of memory");
    } catch (const vela::common::Exception& e) {
        // The gateway maps every native failure; this is a failure of the C layer's own use of it.
        // Converting its text allocates, and nothing may leave this noexcept function.
        try {
            return Record(QRV_ERROR_PRINTER, vela::common::StringConverter::ToUtf8(e.Message()).c_str());
        } catch (...) {
            return Record(QRV_ERROR_OUT_OF_MEMORY, "out of memory");
        }
    } catch (const std::exception& e) {
        return Record(QRV_ERROR_INTERNAL, e.what());
    } catch (...) {
        return Record(QRV_ERROR_INTERNAL, "unknown failure");
    }
}

qrv_result CInterfaceCall::Record(qrv_result result, const char* message) noexcept {
    size_t length = std::strlen(message);
    if (length >= kMessageCapacity) {
        length = kMessageCapacity - 1;
        // Cut before a UTF-8 continuation byte's lead, never inside a character.
        while (length > 0 && (static_cast<unsigned char>(message[length]) & 0xC0) == 0x80) {
            --length;
        }
    }
    std::memcpy(t_message, message, length);
    t_message[length] = '\0';
    return result;
}

void CInterfaceCall::ClearMessage() noexcept {
    t_message[0] = '\0';
}

const char* CInterfaceCall::Message() noexcept {
    return t_message;
}

const char* CInterfaceCall::ResultName(qrv_result result) noexcept {
    for (const ResultRow& row : kResultNames) {
        if (row.result == result) {
            return row.name;
        }
    }
    return "Unknown";
}

} // namespace vela::kom

extern "C" {

const char* qrv_last_error_message(void) {
    return vela::kom::CInterfaceCall::Message();
}

const char* qrv_result_name(qrv_result result) {
    return vela::kom::CInterfaceCall::ResultName(result);
}

} // extern "C"
