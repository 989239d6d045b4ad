#include "system/PrivateCupsd.h"

#include <cups/cups.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

extern char** environ;

namespace vela::test {

namespace {

using Clock = std::chrono::steady_clock;

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
}

bool Answers(const std::string& socketPath) {
    http_t* http =
        httpConnect2(socketPath.c_str(), 631, nullptr, AF_UNSPEC, HTTP_ENCRYPTION_NEVER, 1, 500, nullptr);
    httpClose(http);
    return http != nullptr;
}

} // namespace

PrivateCupsd::PrivateCupsd(const Queues& remoteQueues) : m_socket(m_dir.File("cups.sock")) {
    for (const char* folder : {"state", "cache", "spool", "tmp", "log", "serverbin", "serverbin/backend"}) {
        ::mkdir(m_dir.File(folder).c_str(), 0755);
    }
    // The scheduler only checks that a backend for the scheme exists; nothing is printed.
    for (const char* scheme : {"usb", "socket"}) {
        std::string backend = m_dir.File(std::string("serverbin/backend/") + scheme);
        WriteText(backend, "#!/bin/sh\nexit 0\n");
        ::chmod(backend.c_str(), 0755);
    }
    WriteText(m_dir.File("cupsd.conf"),
              "Listen " + m_socket +
                  "\n"
                  "LogLevel warn\n"
                  "Browsing Off\n"
                  "WebInterface No\n"
                  "DefaultAuthType None\n"
                  "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
                  "<Policy default>\n  <Limit All>\n    Order deny,allow\n  </Limit>\n"
                  "</Policy>\n");
    WriteText(m_dir.File("cups-files.conf"),
              "ServerRoot " + m_dir.Path() + "\nStateDir " + m_dir.File("state") + "\nCacheDir " +
                  m_dir.File("cache") + "\nRequestRoot " + m_dir.File("spool") + "\nTempDir " +
                  m_dir.File("tmp") + "\nServerBin " + m_dir.File("serverbin") + "\nErrorLog " +
                  m_dir.File("log/error_log") + "\nAccessLog " + m_dir.File("log/access_log") + "\nPageLog " +
                  m_dir.File("log/page_log") + "\n");
    std::string printers;
    for (const auto& [name, uri] : remoteQueues) {
        // Type 6: a remote (2) printer (4 is "can print black"); the scheduler keeps the bit.
        printers +=
            "<Printer " + name + ">\nDeviceURI " + uri + "\nState Idle\nType 6\nAccepting Yes\n</Printer>\n";
    }
    WriteText(m_dir.File("printers.conf"), printers);
}

PrivateCupsd::~PrivateCupsd() {
    Stop();
}

bool PrivateCupsd::Start(std::string& problem) {
    const char* cupsd = "/usr/sbin/cupsd";
    if (::access(cupsd, X_OK) != 0) {
        problem = "cupsd is not installed";
        return false;
    }

    // The scheduler must see the real system, not this process's mocked device tree.
    std::vector<char*> envp;
    for (char** e = environ; *e != nullptr; ++e) {
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0 && std::strncmp(*e, "UMOCKDEV_DIR=", 13) != 0) {
            envp.push_back(*e);
        }
    }
    envp.push_back(nullptr);
    const std::string conf = m_dir.File("cupsd.conf");
    const std::string files = m_dir.File("cups-files.conf");
    const char* argv[] = {"cupsd", "-f", "-c", conf.c_str(), "-s", files.c_str(), nullptr};
    const std::string output = m_dir.File("log/cupsd.out");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    int result = posix_spawn(&m_pid, cupsd, &actions, nullptr, const_cast<char* const*>(argv), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        m_pid = -1;
        problem = std::string("cannot start cupsd: ") + std::strerror(result);
        return false;
    }

    auto deadline = Clock::now() + std::chrono::seconds(15);
    while (Clock::now() < deadline) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            problem = "cupsd ended at start (status " + std::to_string(status) + "): " + ErrorLogTail();
            return false;
        }
        if (Answers(m_socket)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    problem = "cupsd did not answer on " + m_socket + " within 15 s: " + ErrorLogTail();
    Stop();
    return false;
}

bool PrivateCupsd::AddQueue(const std::string& name, const std::string& deviceUri, std::string& problem) {
    std::unique_ptr<http_t, void (*)(http_t*)> http(
        httpConnect2(m_socket.c_str(), 631, nullptr, AF_UNSPEC, HTTP_ENCRYPTION_NEVER, 1, 5000, nullptr),
        httpClose);
    if (!http) {
        problem = cupsLastErrorString();
        return false;
    }
    char printerUri[1024];
    httpAssembleURIf(HTTP_URI_CODING_ALL, printerUri, sizeof(printerUri), "ipp", nullptr, "localhost", 0,
                     "/printers/%s", name.c_str());
    ipp_t* request = ippNewRequest(IPP_OP_CUPS_ADD_MODIFY_PRINTER);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, printerUri);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
    ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_URI, "device-uri", nullptr, deviceUri.c_str());
    ippAddBoolean(request, IPP_TAG_PRINTER, "printer-is-accepting-jobs", 1);
    ippAddInteger(request, IPP_TAG_PRINTER, IPP_TAG_ENUM, "printer-state", IPP_PSTATE_IDLE);
    ippDelete(cupsDoRequest(http.get(), request, "/admin/"));
    if (cupsLastError() > IPP_STATUS_OK_CONFLICTING) {
        problem = cupsLastErrorString();
        return false;
    }
    return true;
}

void PrivateCupsd::Stop() {
    if (m_pid > 0) { // its state is thrown away with the folder: nothing to shut down cleanly
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

std::string PrivateCupsd::ErrorLogTail() const {
    std::string text;
    for (const char* name : {"log/error_log", "log/cupsd.out"}) {
        std::ifstream in(m_dir.File(name));
        text.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return text.size() > 2000 ? text.substr(text.size() - 2000) : text;
}

} // namespace vela::test
