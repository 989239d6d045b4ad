#include "kom/connection/PrinterAccessSynchronizer.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#include <windows.h>

#include <climits>

namespace vela::kom {

using vela::common::Log;
using vela::common::LogAndThrow;
using vela::common::Win32Error;

namespace {

const wchar_t* const kSource = L"PrinterAccessSynchronizer()";
const wchar_t* const kPrefix = L"Global\\VELA.DeviceSync.";

// The longest text the bounded string functions accept (terminator included), and the error
// they answer for a longer one (E_INVALIDARG).
constexpr size_t kMaxNameLength = INT_MAX;
constexpr uint32_t kInvalidArgument = 0x80070057u;

} // namespace

void PrinterAccessSynchronizer::CloseIdleFiles() {}

std::wstring PrinterAccessSynchronizer::LockName(const std::wstring& printerName) {
    return kPrefix + printerName;
}

PrinterAccessSynchronizer::PrinterAccessSynchronizer(const ConnectedPrinter& printer) {
    const size_t prefixLength = std::char_traits<wchar_t>::length(kPrefix);
    if (printer.printerName.size() >= kMaxNameLength - prefixLength) {
        LogAndThrow(Win32Error(kInvalidArgument, kSource));
    }
    const std::wstring name = LockName(printer.printerName);

    // "Global\" puts the event into the machine-wide namespace, so programs of every logon session
    // share it, and the null DACL lets every account open, wait on and set it. (The security
    // attributes are 12 bytes long in a 32-bit build; sizeof gives the size of this build's.)
    SECURITY_DESCRIPTOR descriptor;
    if (!::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) {
        LogAndThrow(Win32Error(::GetLastError(), L"InitializeSecurityDescriptor"));
    }
    if (!::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
        LogAndThrow(Win32Error(::GetLastError(), L"SetSecurityDescriptorDacl"));
    }
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = FALSE;

    // Auto-reset and created signalled: signalled means free, a successful wait takes the lock and
    // SetEvent gives it back. An existing event (another holder or waiter) is opened as it is.
    HANDLE event = ::CreateEventW(&attributes, FALSE, TRUE, name.c_str());
    if (event == nullptr || event == INVALID_HANDLE_VALUE) {
        LogAndThrow(Win32Error(::GetLastError(), kSource));
    }
    m_handle = event;

    // The first second separately, so that a longer wait can be told to the waiting thread; a
    // named event has no owner to name.
    DWORD waitResult = ::WaitForSingleObject(event, kNoticeAfterMs);
    if (waitResult == WAIT_TIMEOUT) {
        LockWaitInfo info;
        info.lockName = name;
        info.waitedMs = kNoticeAfterMs;
        NotifyWait(info);
        waitResult = ::WaitForSingleObject(event, kWaitMs - kNoticeAfterMs);
    }
    if (waitResult == WAIT_OBJECT_0) {
        return;
    }
    if (waitResult == WAIT_TIMEOUT) {
        ::CloseHandle(event);
        m_handle = vela::common::InvalidNativeHandle();
        LogAndThrow(
            PrinterBuzyException(vela::common::Format(L"Unable to acquire '%s' event", name), kSource));
    }
    // A failed wait stops the operation only when the system left no error code; with a code set,
    // the operation goes on as if the lock were held. The inverted test is the lock's long-standing
    // behaviour and is kept on purpose. (Nothing provokes a failed wait on a handle just created
    // with full access, so no test reaches this branch.)
    const DWORD error = ::GetLastError();
    if (error == 0) {
        ::CloseHandle(event);
        m_handle = vela::common::InvalidNativeHandle();
        LogAndThrow(Win32Error(error, kSource));
    }
}

PrinterAccessSynchronizer::~PrinterAccessSynchronizer() {
    if (!vela::common::IsValidNativeHandle(m_handle)) {
        return;
    }
    if (!::SetEvent(m_handle)) {
        Log::LogWarning(L"~PrinterAccessSynchronizer(): SetEvent() failed: %s",
                        Win32Error::Format(::GetLastError()));
    }
    if (!::CloseHandle(m_handle)) {
        Log::LogWarning(L"~PrinterAccessSynchronizer(): CloseHandle() failed: %s",
                        Win32Error::Format(::GetLastError()));
    }
}

} // namespace vela::kom
