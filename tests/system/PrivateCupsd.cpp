#include "system/PrivateCupsd.h"

#include <cups/cups.h>

#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <memory>

namespace vela::test {

namespace {

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

PrivateCupsd::PrivateCupsd(const std::vector<Queue>& queues) : m_socket(m_dir.File("cups.sock")) {
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
    for (const Queue& queue : queues) {
        // Type 4 is "can print black"; 2 adds the remote bit, which the scheduler keeps.
        printers += "<Printer " + queue.name + ">\nDeviceURI " + queue.deviceUri + "\nState Idle\nType " +
                    (queue.remote ? "6" : "4") + "\nAccepting Yes\n</Printer>\n";
    }
    WriteText(m_dir.File("printers.conf"), printers);
}

bool PrivateCupsd::Start(std::string& problem) {
    // The scheduler must see the real system, not this process's mocked device tree.
    m_cupsd = std::make_unique<SpawnedProgram>(
        "/usr/bin/env",
        std::vector<std::string>{"-u", "LD_PRELOAD", "-u", "UMOCKDEV_DIR", "/usr/sbin/cupsd", "-f", "-c",
                                 m_dir.File("cupsd.conf"), "-s", m_dir.File("cups-files.conf")},
        SpawnedProgram::Output::pipes);
    if (Eventually([&] { return m_cupsd->Wait(0) >= 0 || Answers(m_socket); }, 15000) &&
        m_cupsd->Wait(0) < 0) {
        return true;
    }
    const int status = m_cupsd->Wait(0); // 127 when it is not installed
    problem = (status >= 0 ? "cupsd ended at start (status " + std::to_string(status) + ")"
                           : "cupsd did not answer on " + m_socket + " within 15 s") +
              ": " + ErrorLogTail();
    m_cupsd.reset();
    return false;
}

std::string PrivateCupsd::ErrorLogTail() const {
    std::ifstream in(m_dir.File("log/error_log"));
    m_cupsd->ReadToEnd(100);
    std::string text = std::string(std::istreambuf_iterator<char>(in), {}) + m_cupsd->Out() + m_cupsd->Err();
    return text.size() > 2000 ? text.substr(text.size() - 2000) : text;
}

} // namespace vela::test
