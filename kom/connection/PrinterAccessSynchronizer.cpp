#include "kom/connection/PrinterAccessSynchronizer.h"

#include "common/Log.h"

#include <exception>

namespace vela::kom {

namespace {
// Per thread: a wait is told to the thread that waits, which is the one running the operation.
thread_local std::weak_ptr<const LockWaitNotice> t_waitNotice;
} // namespace

void PrinterAccessSynchronizer::SetWaitNotice(std::weak_ptr<const LockWaitNotice> notice) {
    t_waitNotice = std::move(notice);
}

void PrinterAccessSynchronizer::NotifyWait(const LockWaitInfo& info) {
    const std::shared_ptr<const LockWaitNotice> notice = t_waitNotice.lock();
    if (!notice || !*notice) {
        return;
    }
    try {
        (*notice)(info);
    } catch (const std::exception& e) {
        vela::common::Log::LogWarning(L"PrinterAccessSynchronizer(): the wait notice failed: %s", e.what());
    } catch (...) {
        vela::common::Log::LogWarning(L"PrinterAccessSynchronizer(): the wait notice failed");
    }
}

} // namespace vela::kom
