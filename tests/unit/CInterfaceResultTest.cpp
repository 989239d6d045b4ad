// One result code per host failure kind and misuse, the exact line as the thread's last message.
#include "gateway/CInterfaceCall.h"
#include "qrv/HostException.h"
#include "qrv/qrv.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

namespace host = vela::printer::communication;
using vela::kom::CInterfaceCall;

namespace {

template <class Kind> std::function<void()> Throws() {
    return [] { throw Kind(L"QRVDeviceGateway::GetFile(): line \u00e9 '/x'"); };
}

qrv_result RunC(const std::function<void()>& body) {
    return CInterfaceCall::Run([&] {
        body();
        return QRV_OK;
    });
}

} // namespace

// Code names: tests/python; not-found, cancelled, null argument, emptied message: the C consumer.
TEST(CInterfaceResultTest, EachFailureKindHasItsCodeAndExactLine) {
    const std::string line = "QRVDeviceGateway::GetFile(): line \xc3\xa9 '/x'";
    const struct {
        std::function<void()> body;
        qrv_result code;
        std::string message;
    } rows[] = {
        {Throws<host::PrinterNotFoundException>(), QRV_ERROR_PRINTER_NOT_FOUND, line},
        {Throws<host::PrinterAccessViolationException>(), QRV_ERROR_ACCESS_VIOLATION, line},
        {Throws<host::DirectoryNotFoundException>(), QRV_ERROR_DIRECTORY_NOT_FOUND, line},
        {Throws<host::OutOfDiskspaceException>(), QRV_ERROR_OUT_OF_DISKSPACE, line},
        {Throws<host::InvalidFileNameException>(), QRV_ERROR_INVALID_FILE_NAME, line},
        {Throws<host::InvalidDirectoryNameException>(), QRV_ERROR_INVALID_DIRECTORY_NAME, line},
        {Throws<host::PrinterCommunicationException>(), QRV_ERROR_COMMUNICATION, line},
        {Throws<host::PrinterException>(), QRV_ERROR_PRINTER, line},
        {[] { CInterfaceCall::RequireZero(-1, "QRVDeviceGateway::PutFile()"); }, QRV_ERROR_NONZERO_RESULT,
         "QRVDeviceGateway::PutFile(): nonzero result -1"},
        {[] { throw std::bad_alloc(); }, QRV_ERROR_OUT_OF_MEMORY, "out of memory"},
        {[] { throw std::runtime_error("odd"); }, QRV_ERROR_INTERNAL, "odd"},
        {[] { throw 7; }, QRV_ERROR_INTERNAL, "unknown failure"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(qrv_result_name(row.code));
        EXPECT_EQ(RunC(row.body), row.code);
        EXPECT_EQ(qrv_last_error_message(), row.message);
    }
    EXPECT_EQ(qrv_set_log_level(3), QRV_ERROR_INVALID_ARGUMENT); // a real entry point's misuse
    uint64_t used = 0; // each out-argument is checked before anything is written through one
    EXPECT_EQ(qrv_get_disk_space(nullptr, nullptr, &used), QRV_ERROR_NULL_ARGUMENT);
    EXPECT_STREQ(qrv_result_name(QRV_ERROR_NULL_ARGUMENT), "NullArgument");
    EXPECT_STREQ(qrv_result_name(QRV_OK), "OK");
    EXPECT_STREQ(qrv_result_name(55), "Unknown");
}

TEST(CInterfaceResultTest, MessageIsPerThreadAndCutOnlyBetweenCharacters) {
    std::string longLine;
    for (int i = 0; i < 3000; ++i) {
        longLine += "\xc3\xa9"; // two bytes each: 6000 in all
    }
    EXPECT_EQ(RunC([&] { throw std::runtime_error(longLine); }), QRV_ERROR_INTERNAL);
    EXPECT_EQ(std::string(qrv_last_error_message()), longLine.substr(0, 4094));

    std::thread([] { EXPECT_STREQ(qrv_last_error_message(), ""); }).join();
}
