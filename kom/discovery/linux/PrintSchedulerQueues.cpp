#include "kom/discovery/linux/PrintSchedulerQueues.h"

#include "kom/discovery/linux/PrintSchedulerClient.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace vela::kom {

namespace {

constexpr int ConnectTimeoutMs = 3000;
constexpr double ReplyTimeoutSeconds = 5.0;

struct CupsDeleter {
    void operator()(http_t* p) const { PrintSchedulerClient::Load().httpClose(p); }
    void operator()(ipp_t* p) const { PrintSchedulerClient::Load().ippDelete(p); }
};
using Connection = std::unique_ptr<http_t, CupsDeleter>;
using Message = std::unique_ptr<ipp_t, CupsDeleter>;

// Gives up as soon as the reply timeout passes without progress.
int AbortOnTimeout(http_t*, void*) {
    return 0;
}

// The server to ask and its port. CUPS_SERVER is read here on every call instead of relying on
// the client library, which reads it once per thread and keeps the first value.
void ChooseServer(const PrintSchedulerClient& cups, std::string& host, int& port) {
    port = cups.ippPort();
    const char* configured = std::getenv("CUPS_SERVER");
    if (configured == nullptr || *configured == 0) {
        host = cups.cupsServer();
        return;
    }
    host = configured;
    if (host[0] == '/') {
        return; // a local socket; no port
    }
    size_t version = host.find("/version=");
    if (version != std::string::npos) {
        host.erase(version);
    }
    if (host[0] == '[') { // "[v6 address]" or "[v6 address]:port"
        size_t close = host.find(']');
        if (close != std::string::npos) {
            if (close + 1 < host.size() && host[close + 1] == ':') {
                port = std::atoi(host.c_str() + close + 2);
            }
            host = host.substr(1, close - 1);
        }
        return;
    }
    size_t colon = host.find(':');
    if (colon != std::string::npos && host.find(':', colon + 1) == std::string::npos) {
        port = std::atoi(host.c_str() + colon + 1);
        host.erase(colon);
    }
}

std::string Describe(const std::string& host, int port) {
    return host[0] == '/' ? host : host + ":" + std::to_string(port);
}

} // namespace

PrintSchedulerListing ListPrintSchedulerQueues() {
    PrintSchedulerListing listing;
    const PrintSchedulerClient& cups = PrintSchedulerClient::Load();
    if (!cups.Loaded()) {
        listing.server = "the local print scheduler";
        listing.problem = cups.Problem();
        return listing;
    }
    std::string host;
    int port = 0;
    ChooseServer(cups, host, port);
    listing.server = Describe(host, port);

    Connection http(cups.httpConnect2(host.c_str(), port, nullptr, AF_UNSPEC, cups.cupsEncryption(), 1,
                                      ConnectTimeoutMs, nullptr));
    if (!http) {
        listing.problem = cups.cupsLastErrorString();
        return listing;
    }
    cups.httpSetTimeout(http.get(), ReplyTimeoutSeconds, AbortOnTimeout, nullptr);

    ipp_t* request = cups.ippNewRequest(IPP_OP_CUPS_GET_PRINTERS);
    static const char* const attributes[] = {"printer-name", "device-uri", "printer-type"};
    cups.ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                       static_cast<int>(sizeof(attributes) / sizeof(attributes[0])), nullptr, attributes);
    cups.ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr,
                      cups.cupsUser());
    Message response(cups.cupsDoRequest(http.get(), request, "/")); // takes the request
    ipp_status_t status = cups.cupsLastError();
    if (status == IPP_STATUS_ERROR_NOT_FOUND) {
        listing.reachable = true; // a scheduler without printers
        return listing;
    }
    if (!response || status > IPP_STATUS_OK_CONFLICTING) {
        listing.problem = cups.cupsLastErrorString();
        return listing;
    }
    listing.reachable = true;

    // The reply holds one printer group per queue, separated by unnamed attributes.
    auto inPrinterGroup = [&cups](ipp_attribute_t* a) {
        return cups.ippGetGroupTag(a) == IPP_TAG_PRINTER && cups.ippGetName(a) != nullptr;
    };
    ipp_attribute_t* attribute = cups.ippFirstAttribute(response.get());
    while (attribute != nullptr) {
        if (!inPrinterGroup(attribute)) {
            attribute = cups.ippNextAttribute(response.get());
            continue;
        }
        PrintQueue queue;
        bool named = false;
        for (; attribute != nullptr && inPrinterGroup(attribute);
             attribute = cups.ippNextAttribute(response.get())) {
            const char* name = cups.ippGetName(attribute);
            const char* text = cups.ippGetString(attribute, 0, nullptr);
            if (std::strcmp(name, "printer-name") == 0 && text != nullptr) {
                queue.name = text;
                named = true;
            } else if (std::strcmp(name, "device-uri") == 0 && text != nullptr) {
                queue.deviceUri = text;
            } else if (std::strcmp(name, "printer-type") == 0 &&
                       cups.ippGetValueTag(attribute) == IPP_TAG_ENUM) {
                queue.isRemote = (cups.ippGetInteger(attribute, 0) & CUPS_PRINTER_REMOTE) != 0;
            }
        }
        if (named) {
            listing.queues.push_back(std::move(queue));
        }
    }
    return listing;
}

} // namespace vela::kom
