#include "support/FaultChecks.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/StringConverter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>

namespace vela::test {

using vela::common::StringConverter;
using vela::sim::RequestKind;

Outcome RunCatching(const std::function<void()>& run) {
    Outcome outcome;
    try {
        run();
        outcome.succeeded = true;
    } catch (const vela::common::Exception& e) {
        outcome.kind = StringConverter::ToUtf8(e.ExceptionName());
        outcome.description = outcome.kind + ": " + StringConverter::ToUtf8(e.Message());
    } catch (const std::exception& e) {
        outcome.foreign = true;
        outcome.description = std::string("foreign exception: ") + e.what();
    } catch (...) {
        outcome.foreign = true;
        outcome.description = "unknown exception";
    }
    return outcome;
}

ResourceSnapshot ResourceSnapshot::Take() {
    return ResourceSnapshot{BaselineHandleCount(), ThreadCount()};
}

void ExpectReleased(const SimulatedPrinter& printer, const ResourceSnapshot& baseline) {
    EXPECT_FALSE(IsAccessLockHeld(printer.Name())) << "the access lock is still held";
    EXPECT_EQ(SettledHandleCount(baseline.descriptors), baseline.descriptors) << "a descriptor was left open";
}

RequestKind DataRequest(PrinterOperations::Kind kind) {
    static const RequestKind kinds[] = {RequestKind::statusQuery, RequestKind::completionPoll,
                                        RequestKind::getFileFetch, RequestKind::listFolderFetch,
                                        RequestKind::updateStatus};
    return kinds[static_cast<size_t>(kind)];
}

QuietLog::QuietLog() : m_previousLevel(vela::common::Log::GetLevel()) {
    m_previous = vela::common::Log::SetSink([](vela::common::LogLevel, const std::wstring&) {});
    vela::common::Log::SetLevel(static_cast<int>(vela::common::LogLevel::error));
}

QuietLog::~QuietLog() {
    vela::common::Log::SetSink(m_previous);
    vela::common::Log::SetLevel(m_previousLevel);
}

} // namespace vela::test
