#pragma once

#include <cups/cups.h>

#include <string>

namespace vela::kom {

// The print scheduler's client library (libcups), loaded with dlopen when a printer first needs
// a queue name: most commands of a host never name a real printer (a simulator, a listing of an
// empty bus), and linking it would make every program start pay for its 20-odd libraries.
//
// Load() loads it once per process (later calls return the same object) and never throws. When
// the library is missing, Loaded() is false and Problem() says so in words a user can act on.
// The entry points are those of the installed library; any thread may call them (the library
// keeps its state per thread).
class PrintSchedulerClient {
public:
    static const PrintSchedulerClient& Load();

    bool Loaded() const { return m_loaded; }
    const std::string& Problem() const { return m_problem; }

    decltype(&::httpConnect2) httpConnect2 = nullptr;
    decltype(&::httpClose) httpClose = nullptr;
    decltype(&::httpSetTimeout) httpSetTimeout = nullptr;
    decltype(&::ippNewRequest) ippNewRequest = nullptr;
    decltype(&::ippDelete) ippDelete = nullptr;
    decltype(&::ippAddStrings) ippAddStrings = nullptr;
    decltype(&::ippAddString) ippAddString = nullptr;
    decltype(&::ippFirstAttribute) ippFirstAttribute = nullptr;
    decltype(&::ippNextAttribute) ippNextAttribute = nullptr;
    decltype(&::ippGetGroupTag) ippGetGroupTag = nullptr;
    decltype(&::ippGetName) ippGetName = nullptr;
    decltype(&::ippGetString) ippGetString = nullptr;
    decltype(&::ippGetValueTag) ippGetValueTag = nullptr;
    decltype(&::ippGetInteger) ippGetInteger = nullptr;
    decltype(&::ippPort) ippPort = nullptr;
    decltype(&::cupsDoRequest) cupsDoRequest = nullptr;
    decltype(&::cupsLastError) cupsLastError = nullptr;
    decltype(&::cupsLastErrorString) cupsLastErrorString = nullptr;
    decltype(&::cupsUser) cupsUser = nullptr;
    decltype(&::cupsServer) cupsServer = nullptr;
    decltype(&::cupsEncryption) cupsEncryption = nullptr;

private:
    PrintSchedulerClient();

    bool m_loaded = false;
    std::string m_problem;
};

} // namespace vela::kom
