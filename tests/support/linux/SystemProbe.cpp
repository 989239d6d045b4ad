#include "support/SystemProbe.h"

#include "support/ProcessHandles.h"

#include "common/StringConverter.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

namespace vela::test {

namespace {

size_t CountEntries(const char* folder) { // the folder's own descriptor counts, the same each time
    std::error_code ec;
    const std::filesystem::directory_iterator entries(folder, ec);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace

size_t OpenHandleCount() {
    // The lock files a release keeps open for the next transaction are no leak; the lock test
    // checks that they stay few.
    vela::kom::PrinterAccessSynchronizer::CloseIdleFiles();
    return CountEntries("/proc/self/fd");
}

uint32_t CurrentProcessId() {
    return static_cast<uint32_t>(::getpid());
}

size_t ThreadCount() {
    return CountEntries("/proc/self/task");
}

bool IsAccessLockHeld(const std::wstring& printerName) {
    // An open file description of our own conflicts with any holder, this process's included.
    const std::string path =
        vela::common::StringConverter::ToUtf8(vela::kom::PrinterAccessSynchronizer::LockName(printerName));
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return false; // no lock file: nobody ever held the lock, nobody holds it now
    }
    const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0;
    ::close(fd);
    return held;
}

} // namespace vela::test
