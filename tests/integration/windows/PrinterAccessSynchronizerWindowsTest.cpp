// The Windows lock is a named event: where it lives, who may use it, what happens when the name
// is taken by another kind of object, and why a holder that dies leaves the printer locked.

#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"
#include "kom/connection/PrinterAccessSynchronizer.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <random>

using vela::common::StringConverter;
using vela::common::Win32Error;
using vela::kom::ConnectedPrinter;
using vela::kom::PrinterAccessSynchronizer;
using vela::kom::PrinterBuzyException;
using vela::test::ChildProcess;
using vela::test::LogCapture;
using Clock = std::chrono::steady_clock;

namespace {

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::wstring UniqueName() {
    return L"qrv-win-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
           std::to_wstring(std::random_device{}());
}

ConnectedPrinter Printer(const std::wstring& name) {
    ConnectedPrinter printer;
    printer.printerName = name;
    return printer;
}

} // namespace

TEST(PrinterAccessSynchronizerWindows, IsAnAutoResetEventOfTheGlobalNamespaceOpenToEveryone) {
    const std::wstring name = UniqueName();
    const std::wstring eventName = L"Global\\VELA.DeviceSync." + name;
    EXPECT_EQ(PrinterAccessSynchronizer::LockName(name), eventName);
    {
        PrinterAccessSynchronizer lock(Printer(name));
        HANDLE event =
            ::OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE | READ_CONTROL, FALSE, eventName.c_str());
        ASSERT_NE(event, nullptr) << "not in the global namespace";
        // Not in the session's own namespace (wine keeps the two apart, as Windows does for
        // every session but the services' one).
        HANDLE local = ::OpenEventW(SYNCHRONIZE, FALSE, (L"VELA.DeviceSync." + name).c_str());
        EXPECT_EQ(local, nullptr);
        if (local != nullptr) {
            ::CloseHandle(local);
        }

        // Present but null DACL: no restriction for any account.
        DWORD needed = 0;
        ::GetKernelObjectSecurity(event, DACL_SECURITY_INFORMATION, nullptr, 0, &needed);
        std::vector<uint8_t> descriptor(needed);
        ASSERT_TRUE(
            ::GetKernelObjectSecurity(event, DACL_SECURITY_INFORMATION, descriptor.data(), needed, &needed));
        BOOL present = FALSE;
        BOOL defaulted = TRUE;
        PACL dacl = reinterpret_cast<PACL>(1);
        ASSERT_TRUE(::GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted));
        EXPECT_TRUE(present);
        EXPECT_EQ(dacl, nullptr);

        EXPECT_EQ(::WaitForSingleObject(event, 0), static_cast<DWORD>(WAIT_TIMEOUT))
            << "held means not signalled";
        ::CloseHandle(event);
    }
    // Released: signalled again, and one wait takes it (auto-reset).
    PrinterAccessSynchronizer again(Printer(name));
}

TEST(PrinterAccessSynchronizerWindows, NameTakenByAnotherKindOfObjectIsASystemError) {
    const std::wstring name = UniqueName();
    HANDLE mutex = ::CreateMutexW(nullptr, FALSE, PrinterAccessSynchronizer::LockName(name).c_str());
    ASSERT_NE(mutex, nullptr);
    LogCapture log;
    try {
        PrinterAccessSynchronizer lock(Printer(name));
        ADD_FAILURE() << "took a lock whose name is a mutex";
    } catch (const Win32Error& e) {
        EXPECT_EQ(e.ErrorCode(), static_cast<uint32_t>(ERROR_INVALID_HANDLE));
        EXPECT_EQ(e.Source(), L"PrinterAccessSynchronizer()");
        EXPECT_TRUE(log.Contains(L"PrinterAccessSynchronizer(): Win32Error: " +
                                 Win32Error::Format(ERROR_INVALID_HANDLE)));
    }
    ::CloseHandle(mutex);
}

TEST(PrinterAccessSynchronizerWindows, HolderThatDiesKeepsThePrinterLockedUntilTheLastHandleCloses) {
    // Unlike a file lock, an event does not know its holder: a process that ends while holding it
    // leaves it taken for as long as anybody else keeps the event open.
    const std::wstring name = UniqueName();
    ChildProcess holder({"hold-lock", StringConverter::ToUtf8(name), "60000"});
    ASSERT_EQ(holder.ReadLine(), "locked");
    HANDLE observer = ::OpenEventW(SYNCHRONIZE, FALSE, PrinterAccessSynchronizer::LockName(name).c_str());
    ASSERT_NE(observer, nullptr);
    holder.Kill();
    EXPECT_EQ(holder.Wait(), 128 + 9);

    auto start = Clock::now();
    EXPECT_THROW(PrinterAccessSynchronizer{Printer(name)}, PrinterBuzyException);
    EXPECT_GE(SecondsSince(start), 9.9);

    ::CloseHandle(observer); // the last handle: the event goes, the next lock makes a free one
    start = Clock::now();
    PrinterAccessSynchronizer lock(Printer(name));
    EXPECT_LT(SecondsSince(start), 1.0);
}
