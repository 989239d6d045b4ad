// A host program that knows the library only as installed: opens the printer named on its command
// line (a qrv-sim), puts a file, gets it back, compares, and meets a typed failure.
//
//   qrv-consumer PRINTER_NAME WORK_FOLDER
#include <qrv/ManagedQRVDeviceGateway.h>
#include <qrv/PrinterListing.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace host = vela::printer::communication;

namespace {

int Fail(const char* what) {
    std::fprintf(stderr, "qrv-consumer: %s\n", what);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return Fail("usage: qrv-consumer PRINTER_NAME WORK_FOLDER");
    }
    const std::string name = argv[1], sent = std::string(argv[2]) + "/sent.bin",
                      back = std::string(argv[2]) + "/back.bin";
    const std::string data = "bytes a consumer sends\n";
    std::ofstream(sent, std::ios::binary) << data;
    const std::wstring printerName(name.begin(), name.end());
    if (host::ListPrinters().empty()) {
        return Fail("no printer is listed");
    }
    try {
        vela::kom::ManagedQRVDeviceGateway printer;
        printer.Open(printerName);
        const std::wstring printerPath = printer.GetImageLibraryPath() + L"/consumer.bin";
        if (printer.GetPrinterStatus().size() != 11 ||
            printer.PutFile(printerPath, {sent.begin(), sent.end()}) != 0 ||
            printer.GetFile(printerPath, {back.begin(), back.end()}) != 0) {
            return Fail("an odd status, or a transfer reported a printer result");
        }
        std::ifstream in(back, std::ios::binary);
        if (std::string(std::istreambuf_iterator<char>(in), {}) != data) {
            return Fail("the file came back different");
        }
        printer.DeleteFile(printerPath);
        try {
            printer.GetFile(printerPath, {back.begin(), back.end()});
            return Fail("getting a deleted file succeeded");
        } catch (const host::FileNotFoundException& e) {
            if (std::string(e.what()).rfind("QRVDeviceGateway::GetFile(): File not Found", 0) != 0) {
                return Fail(e.what());
            }
        }
        printer.Close();
    } catch (const host::HostException& e) {
        return Fail(e.what());
    }
    std::printf("qrv-consumer: open, status, put, get, compare and a typed failure: ok\n");
    return 0;
}
