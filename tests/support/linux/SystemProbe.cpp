#include "support/SystemProbe.h"

#include "common/StringConverter.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace vela::test {

namespace {

size_t CountEntries(const char* folder) {
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

uint32_t CurrentProcessId() {
    return static_cast<uint32_t>(::getpid());
}

size_t ThreadCount() {
    return CountEntries("/proc/self/task");
}

bool IsAccessLockHeld(const std::wstring& printerName) {
    // The lock file of the production lock, taken by a description of our own: it conflicts with
    // any holder, this process's included, and never waits.
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
