// The machine-wide printer lock between processes (the qrv-test-helper child) and within one.

#include "kom/connection/PrinterAccessSynchronizer.h"
#include "ExpectThrown.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using vela::common::StringConverter;
using vela::kom::ConnectedPrinter;
using vela::kom::PrinterAccessSynchronizer;
using vela::kom::PrinterBuzyException;
using vela::test::ChildProcess;
using vela::test::ExpectThrown;
using vela::test::SecondsSince;
using Clock = std::chrono::steady_clock;

namespace {

ConnectedPrinter Printer(const std::string& utf8Name) {
    ConnectedPrinter printer;
    printer.printerName = StringConverter::FromUtf8(utf8Name);
    return printer;
}

#ifndef _WIN32
// The lock file and the waiters' file beside it.
void RemoveLockFiles(const std::string& name) {
    const std::string lockFile =
        StringConverter::ToUtf8(PrinterAccessSynchronizer::LockName(StringConverter::FromUtf8(name)));
    std::string roomFile = lockFile;
    roomFile.replace(roomFile.rfind("VELA.DeviceSync."), 16, "VELA.DeviceWait.");
    std::error_code ec;
    std::filesystem::remove(lockFile, ec);
    std::filesystem::remove(roomFile, ec);
}
#endif

class PrinterAccessSynchronizerTest : public ::testing::Test {
protected:
    // Names unique to this run, so that parallel test processes never meet.
    std::string Name(const std::string& suffix = "") {
        std::string name = "qrv-test-" + m_run + "-" + std::to_string(m_names.size()) + suffix;
        m_names.push_back(name);
        return name;
    }
    void TearDown() override {
#ifndef _WIN32
        // Lock files stay after use (removing one could split a waiter from the holder).
        for (const auto& name : m_names) {
            RemoveLockFiles(name);
        }
#endif
    }

private:
    std::string m_run = std::to_string(std::random_device{}());
    std::vector<std::string> m_names;
};

// Starts `hold-lock NAME MS` and waits until the child holds the lock.
std::unique_ptr<ChildProcess> StartHolder(const std::string& name, int holdMs) {
    auto child =
        std::make_unique<ChildProcess>(std::vector<std::string>{"hold-lock", name, std::to_string(holdMs)});
    EXPECT_EQ(child->ReadLine(), "locked");
    return child;
}

} // namespace

TEST_F(PrinterAccessSynchronizerTest, SecondHolderIsBusyAfterTenSecondsWhileOtherNamesStayFree) {
    const std::string name = Name();
    auto holder = StartHolder(name, 60000);

    auto start = Clock::now();
    { PrinterAccessSynchronizer other(Printer(Name("-other"))); }
    EXPECT_LT(SecondsSince(start), 1.0) << "a different printer name must not wait";

    start = Clock::now();
    const std::wstring expected =
        L"Unable to acquire '" + PrinterAccessSynchronizer::LockName(Printer(name).printerName) + L"' event";
    ExpectThrown<PrinterBuzyException>([&] { PrinterAccessSynchronizer lock(Printer(name)); }, expected,
                                       L"PrinterAccessSynchronizer()");
    EXPECT_GE(SecondsSince(start), 9.9);
    EXPECT_LE(SecondsSince(start), 13.0);
    EXPECT_TRUE(holder->Running());
}

TEST_F(PrinterAccessSynchronizerTest, WaitersGetTheLockAsSoonAsItIsReleased) {
    const std::string name = Name(" Drucker B\xC3\xBCro \xE5\x90\x8D"); // one lock in every process
    auto holder = StartHolder(name, 1000);
    const auto start = Clock::now();
    PrinterAccessSynchronizer lock(Printer(name));
    const double waited = SecondsSince(start);
    EXPECT_GE(waited, 0.5);
    EXPECT_LT(waited, 5.0);
    EXPECT_EQ(holder->ReadLine(), "released");
    EXPECT_EQ(holder->Wait(), 0);
}

TEST_F(PrinterAccessSynchronizerTest, HostileNamesGiveDistinctLocksThatWork) {
    std::vector<std::string> names{
        "../x", "a/b", "a%2Fb", "a%b", "with space", "..",
        ".",    "/",   "",      "%",   "tab\tname",  "Drucker B\xC3\xBCro \xE5\x90\x8D\xE5\x89\x8D"};
#ifndef _WIN32
    names.push_back("a\\b");
    names.push_back("../../../../../../../../etc/passwd");
    namespace fs = std::filesystem;
    const fs::path folder =
        fs::path(StringConverter::ToUtf8(PrinterAccessSynchronizer::LockName(L"plain"))).parent_path();
    const mode_t umask = ::umask(077); // the lock files are shared by every account all the same
#endif
    const std::string run = Name();
    std::set<std::wstring> lockNames;
    for (const auto& suffix : names) {
        const std::string name = run + suffix;
        const auto printer = Printer(name);
        const std::wstring lockName = PrinterAccessSynchronizer::LockName(printer.printerName);
        lockNames.insert(lockName);
        { PrinterAccessSynchronizer lock(printer); }
#ifndef _WIN32
        const fs::path lockFile = StringConverter::ToUtf8(lockName);
        SCOPED_TRACE(lockFile.string());
        EXPECT_EQ(lockFile.parent_path(), folder);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(lockFile)));
        EXPECT_EQ(fs::status(lockFile).permissions() & fs::perms::all,
                  fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                      fs::perms::group_write | fs::perms::others_read | fs::perms::others_write);
        RemoveLockFiles(name);
#endif
    }
#ifndef _WIN32
    ::umask(umask);
#endif
    EXPECT_EQ(lockNames.size(), names.size()) << "two names share one lock";
}

TEST_F(PrinterAccessSynchronizerTest, KilledHolder) {
    const std::string name = Name();
    auto holder = StartHolder(name, 60000);
#ifdef _WIN32
    // An event does not know its holder: one that dies leaves it taken while anybody else keeps
    // the event open; with the last handle the event goes and the next lock makes a free one.
    HANDLE observer = ::OpenEventW(SYNCHRONIZE, FALSE,
                                   PrinterAccessSynchronizer::LockName(Printer(name).printerName).c_str());
    ASSERT_NE(observer, nullptr);
    holder->Kill();
    EXPECT_EQ(holder->Wait(), 128 + 9);
    EXPECT_THROW(PrinterAccessSynchronizer{Printer(name)}, PrinterBuzyException);
    ::CloseHandle(observer);
#else
    // The kernel drops a file lock with its process, which is why Linux uses one.
    holder->Kill();
    EXPECT_EQ(holder->Wait(), 128 + 9);
#endif
    const auto start = Clock::now();
    PrinterAccessSynchronizer lock(Printer(name));
    EXPECT_LT(SecondsSince(start), 1.0);
}

#ifdef _WIN32
TEST_F(PrinterAccessSynchronizerTest, IsAGlobalEventOpenToEveryAccountAndRefusesAForeignObject) {
    const std::string name = Name();
    const std::wstring eventName = L"Global\\VELA.DeviceSync." + StringConverter::FromUtf8(name);
    EXPECT_EQ(PrinterAccessSynchronizer::LockName(Printer(name).printerName), eventName);
    {
        PrinterAccessSynchronizer lock(Printer(name));
        HANDLE event = ::OpenEventW(SYNCHRONIZE | READ_CONTROL, FALSE, eventName.c_str());
        ASSERT_NE(event, nullptr) << "not in the global namespace";
        DWORD needed = 0;
        ::GetKernelObjectSecurity(event, DACL_SECURITY_INFORMATION, nullptr, 0, &needed);
        std::vector<uint8_t> descriptor(needed);
        ASSERT_TRUE(
            ::GetKernelObjectSecurity(event, DACL_SECURITY_INFORMATION, descriptor.data(), needed, &needed));
        BOOL present = FALSE, defaulted = TRUE;
        PACL dacl = reinterpret_cast<PACL>(1);
        ASSERT_TRUE(::GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted));
        EXPECT_TRUE(present && dacl == nullptr) << "a null DACL restricts no account";
        EXPECT_EQ(::WaitForSingleObject(event, 0), static_cast<DWORD>(WAIT_TIMEOUT))
            << "held means not signalled";
        ::CloseHandle(event);
    }
    const std::string taken = Name();
    HANDLE mutex = ::CreateMutexW(nullptr, FALSE,
                                  PrinterAccessSynchronizer::LockName(Printer(taken).printerName).c_str());
    try {
        PrinterAccessSynchronizer lock(Printer(taken));
        ADD_FAILURE() << "took a lock whose name is a mutex";
    } catch (const vela::common::Win32Error& e) {
        EXPECT_EQ(e.ErrorCode(), static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    }
    ::CloseHandle(mutex);
}
#else
TEST_F(PrinterAccessSynchronizerTest, PlantedSymlinkIsRefusedWithASystemError) {
    const std::string name = Name();
    const std::string lockFile =
        StringConverter::ToUtf8(PrinterAccessSynchronizer::LockName(Printer(name).printerName));
    vela::test::TempDir target;
    std::filesystem::create_symlink(target.File("victim"), lockFile);
    EXPECT_THROW(PrinterAccessSynchronizer{Printer(name)}, vela::common::Win32Error);
    EXPECT_FALSE(vela::test::HostFileExists(target.File("victim")));
}
#endif

#ifndef _WIN32
// A released lock's files stay open for the next transaction: never to be shared with a child
// process (the same open file would make both holders), never once their path is gone (a new
// file there is the lock everybody else takes), and never many.
TEST_F(PrinterAccessSynchronizerTest, KeptLockFilesAreNotSharedNotStaleAndFew) {
    const std::string name = Name();
    { PrinterAccessSynchronizer warm(Printer(name)); }
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        { PrinterAccessSynchronizer lock(Printer(name)); }
        PrinterAccessSynchronizer lock(Printer(name));
        (void)!::write(ready[1], "x", 1);
        ::usleep(400000);
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    auto start = Clock::now();
    { PrinterAccessSynchronizer lock(Printer(name)); }
    EXPECT_GE(SecondsSince(start), 0.2) << "took the lock a child process holds";
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(ready[0]);
    ::close(ready[1]);

    RemoveLockFiles(name);
    auto holder = StartHolder(name, 500);
    start = Clock::now();
    { PrinterAccessSynchronizer lock(Printer(name)); }
    EXPECT_GE(SecondsSince(start), 0.2) << "took a removed lock file";

    const auto openFiles = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = openFiles();
    for (int i = 0; i < 40; ++i) {
        PrinterAccessSynchronizer lock(Printer(Name()));
    }
    EXPECT_LE(openFiles(), before + 16);
}
#endif

TEST_F(PrinterAccessSynchronizerTest, WaiterIsNotStarvedByAHolderThatRetakesAtOnce) {
    const std::string name = Name();
    ChildProcess churner({"lock-churn", name, "6000"});
    ASSERT_EQ(churner.ReadLine(), "churning");
    for (int turn = 0; turn < 3; ++turn) {
        const auto start = Clock::now();
        { PrinterAccessSynchronizer lock(Printer(name)); }
        EXPECT_LT(SecondsSince(start), 1.0) << "turn " << turn;
    }
    churner.Kill();
}
