#include "support/SystemProbe.h"

#include "support/ProcessHandles.h"

#include "common/StringConverter.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace vela::test {

namespace {

size_t CountEntries(const char* folder) { // the folder's own descriptor counts, the same each time
    size_t count = 0;
    if (DIR* dir = ::opendir(folder)) {
        while (const dirent* entry = ::readdir(dir)) {
            if (entry->d_name[0] != '.') {
                ++count;
            }
        }
        ::closedir(dir);
    }
    return count;
}

} // namespace

size_t OpenHandleCount() {
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
