// A host program that knows the library only as installed: it opens the printer named on its
// command line (a qrv-sim registered through QRV_VIRTUAL_PRINTERS), reads its status, puts a
// file, gets it back and compares, and checks that a failure arrives as its typed exception.
//
//   qrv-consumer PRINTER_NAME WORK_FOLDER
#include <qrv/ManagedQRVDeviceGateway.h>
#include <qrv/PrinterListing.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace host = vela::printer::communication;

namespace {

std::wstring Wide(const std::string& ascii) {
    return std::wstring(ascii.begin(), ascii.end());
}

std::vector<char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

int Fail(const char* what) {
    std::fprintf(stderr, "qrv-consumer: %s\n", what);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return Fail("usage: qrv-consumer PRINTER_NAME WORK_FOLDER");
    }
    const std::wstring name = Wide(argv[1]);
    const std::string sent = std::string(argv[2]) + "/sent.bin";
    const std::string back = std::string(argv[2]) + "/back.bin";
    std::vector<char> data(3 * 1024 * 1024 + 17);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<char>((i * 131 + i / 4096) & 0xFF);
    }
    std::ofstream(sent, std::ios::binary).write(data.data(), static_cast<std::streamsize>(data.size()));

    bool listed = false;
    for (const host::PrinterInfo& printer : host::ListPrinters()) {
        listed = listed || printer.name == name;
    }
    if (!listed) {
        return Fail("the printer is not listed");
    }
    try {
        vela::kom::ManagedQRVDeviceGateway printer;
        printer.Open(name);
        if (printer.GetPrinterStatus().size() != 11 || printer.GetBatteryChargedPercentage() > 100) {
            return Fail("unexpected status");
        }
        const std::wstring printerPath = printer.GetImageLibraryPath() + L"/consumer.bin";
        uint64_t lastDone = 0;
        printer.SetProgressCallback([&lastDone](uint64_t done, uint64_t) { lastDone = done; });
        if (printer.PutFile(printerPath, Wide(sent)) != 0 || printer.GetFile(printerPath, Wide(back)) != 0) {
            return Fail("a transfer reported a printer result");
        }
        if (ReadAll(back) != data || lastDone < data.size()) {
            return Fail("the file came back different, or progress stopped short");
        }
        printer.DeleteFile(printerPath);
        try {
            printer.GetFile(printerPath, Wide(back));
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
