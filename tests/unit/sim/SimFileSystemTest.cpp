#include "SimFixture.h"

using namespace simtest;

namespace {

std::string ListingOf(SimTest& t, const std::string& folder, const Reply& r) {
    (void)t;
    EXPECT_EQ(r.payload[1], 0x22);
    EXPECT_GE(r.payload.size(), 259u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(r.payload.data() + 2)), folder)
        << "echoed path field";
    return std::string(r.payload.begin() + 259, r.payload.end());
}

} // namespace

class SimFiles : public SimTest {
protected:
    std::string List(const std::string& folder) {
        EXPECT_EQ(Run(ListPrepare(folder)), 0);
        return ListingOf(*this, folder, Ask(ListFetch(folder)));
    }
    // The get exchange: prepare, poll, fetch; returns the data of the reply.
    Bytes Get(const std::string& path) {
        EXPECT_EQ(Run(GetPrepare(path)), 0);
        Reply r = Ask(GetFetch(path));
        EXPECT_EQ(r.payload[1], 0x21);
        uint32_t n = Le32(r.payload, 259);
        EXPECT_EQ(r.payload.size(), 263u + n);
        return Bytes(r.payload.begin() + 263, r.payload.end());
    }
};

TEST_F(SimFiles, StartsWithTheLibraryFoldersAndTheLogFiles) {
    EXPECT_EQ(List("/mnt/data"), "images::d,jobs::d,settings::d,templates::d,update::d,");
    std::string settings = List("/mnt/data/settings");
    EXPECT_NE(settings.find("syslog:"), std::string::npos);
    EXPECT_NE(settings.find("syslog.1:"), std::string::npos);
    EXPECT_NE(settings.find("printer.conf:"), std::string::npos);
    EXPECT_EQ(List("/mnt/data/images"), "");
    // Trailing and doubled slashes name the same folder.
    EXPECT_EQ(List("/mnt//data/"), List("/mnt/data"));
}

TEST_F(SimFiles, PutThenGetListRenameAndDelete) {
    Bytes data = Text("label job 1");
    ASSERT_EQ(Run(Put("/mnt/data/jobs/one.job", data)), 0);
    EXPECT_EQ(printer.ReadFile("/mnt/data/jobs/one.job"), data);
    EXPECT_EQ(Get("/mnt/data/jobs/one.job"), data);

    printer.AddFolder("/mnt/data/jobs/archive");
    EXPECT_EQ(List("/mnt/data/jobs"), "archive::d,one.job:11:f,");

    EXPECT_EQ(Run(Rename("/mnt/data/jobs/one.job", "/mnt/data/jobs/archive/1.job")), 0);
    EXPECT_FALSE(printer.ReadFile("/mnt/data/jobs/one.job"));
    EXPECT_EQ(List("/mnt/data/jobs/archive"), "1.job:11:f,");

    EXPECT_EQ(Run(Delete("/mnt/data/jobs/archive/1.job")), 0);
    EXPECT_EQ(List("/mnt/data/jobs/archive"), "");
}

TEST_F(SimFiles, EmptyAndLargeFilesTravelWhole) {
    ASSERT_EQ(Run(Put("/mnt/data/images/empty.png", {})), 0);
    EXPECT_EQ(Get("/mnt/data/images/empty.png"), Bytes{});

    Bytes large(300000);
    for (size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<uint8_t>(i * 31 + 7);
    }
    ASSERT_EQ(Run(Put("/mnt/data/images/large.bin", large)), 0);
    EXPECT_EQ(Get("/mnt/data/images/large.bin"), large);
}

// The printer hashes a put's data as it arrives; whatever the slicing of the reads, and after a
// put that was cut off halfway, the verdict must be the one a single pass over the file gives.
TEST_F(SimFiles, PutsArrivingInPiecesAreVerifiedLikeWholeOnes) {
    Bytes data(70000);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<uint8_t>(i * 13 + 5);
    }
    auto feedInPieces = [&](const Bytes& message) {
        // Cuts inside the header, just before and after the data's start, then odd-sized reads.
        const size_t cuts[] = {3, 270, 271, 272, 4096 + 271, 20011};
        size_t at = 0;
        for (size_t cut : cuts) {
            printer.Feed(message.data() + at, cut - at);
            at = cut;
        }
        while (at < message.size()) {
            const size_t n = std::min<size_t>(4093, message.size() - at);
            printer.Feed(message.data() + at, n);
            at += n;
        }
    };
    feedInPieces(Padded(Put("/mnt/data/images/whole.bin", data)));
    EXPECT_EQ(Finish(), 0);
    EXPECT_EQ(printer.ReadFile("/mnt/data/images/whole.bin"), data);

    Bytes damaged = Put("/mnt/data/images/damaged.bin", data);
    damaged[271 + 50000] ^= 0x01;
    feedInPieces(Padded(damaged));
    EXPECT_EQ(Finish(), 4);

    // Half a put, dropped when the host falls silent; then a different put of the same length.
    const Bytes first = Put("/mnt/data/images/first.bin", data);
    printer.Feed(first.data(), 30000);
    now += std::chrono::seconds(3);
    printer.Tick();
    Bytes other = data;
    other[0] ^= 0xFF;
    feedInPieces(Padded(Put("/mnt/data/images/second.bin", other)));
    EXPECT_EQ(Finish(), 0);
    EXPECT_EQ(printer.ReadFile("/mnt/data/images/second.bin"), other);
}

TEST_F(SimFiles, PutFailuresReportTheirCodeAndStoreNothing) {
    ASSERT_EQ(Run(Put("/mnt/data/images/a.png", Text("x"))), 0);
    size_t files = printer.Files().size();
    struct Case {
        const char* what;
        Bytes request;
        int code;
    } cases[] = {
        {"duplicate", Put("/mnt/data/images/a.png", Text("y")), 1},
        {"folder missing", Put("/mnt/data/images/none/a.png", Text("y")), 2},
        {"wrong digest", Put("/mnt/data/images/b.png", Text("y"), true), 4},
        {"illegal name", Put("/mnt/data/images/a:b.png", Text("y")), 5},
        {"dot-dot", Put("/mnt/data/images/../x.png", Text("y")), 5},
        {"relative", Put("mnt/data/images/c.png", Text("y")), 5},
        {"no zero byte in the path field", Put("/mnt/data/images/" + std::string(300, 'n'), Text("y")), 5},
        {"read-only folder", Put("/mnt/data/settings/syslog.2", Text("y")), 6},
        {"outside the data area", Put("/etc/passwd", Text("y")), 6},
        {"a folder's name", Put("/mnt/data/images", Text("y")), 6},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Run(c.request), c.code) << c.what;
    }
    EXPECT_EQ(printer.Files().size(), files);
    EXPECT_EQ(printer.ReadFile("/mnt/data/images/a.png"), Text("x"));
    EXPECT_TRUE(printer.Violations().empty());
}

TEST_F(SimFiles, FullDiskRefusesWhatDoesNotFitButAcceptsAnExactFit) {
    printer.SetDiskCapacity(printer.DiskUsed() + 100);
    EXPECT_EQ(Run(Put("/mnt/data/images/big", Bytes(101, 1))), 3);
    EXPECT_EQ(Run(Put("/mnt/data/images/big", Bytes(101, 1), true)), 4) << "a damaged file is reported first";
    EXPECT_EQ(Run(Put("/mnt/data/images/fits", Bytes(100, 1))), 0);
    EXPECT_EQ(Run(Put("/mnt/data/images/one-more", Bytes(1, 1))), 3);
    EXPECT_EQ(Run(Put("/mnt/data/images/nothing", {})), 0);
}

TEST_F(SimFiles, GetDeleteRenameAndListRefuseWhatTheyCannotDo) {
    ASSERT_EQ(Run(Put("/mnt/data/templates/t1", Text("t"))), 0);
    ASSERT_EQ(Run(Put("/mnt/data/templates/t2", Text("t"))), 0);
    EXPECT_EQ(Run(GetPrepare("/mnt/data/templates/missing")), 2);
    EXPECT_EQ(Run(GetPrepare("/mnt/data/templates")), 2) << "a folder is no file";
    EXPECT_EQ(Run(GetPrepare("/mnt/data/settings/syslog")), 0) << "log files are readable";

    EXPECT_EQ(Run(Delete("/mnt/data/templates/missing")), 2);
    EXPECT_EQ(Run(Delete("/mnt/data/settings/syslog")), 6);
    EXPECT_EQ(Run(Delete("/mnt/data/templates")), 6);
    printer.SetReadOnly("/mnt/data/templates/t1", true);
    EXPECT_EQ(Run(Delete("/mnt/data/templates/t1")), 6);
    EXPECT_EQ(Run(Rename("/mnt/data/templates/t1", "/mnt/data/templates/t3")), 6);

    EXPECT_EQ(Run(Rename("/mnt/data/templates/t2", "/mnt/data/templates/t1")), 1);
    EXPECT_EQ(Run(Rename("/mnt/data/templates/none", "/mnt/data/templates/t9")), 2);
    EXPECT_EQ(Run(Rename("/mnt/data/templates/t2", "/mnt/data/nowhere/t2")), 6);
    EXPECT_EQ(Run(Rename("/mnt/data/templates/t2", "/mnt/data/templates/sub/t2")), 2);
    EXPECT_EQ(Run(Rename("/mnt/data/templates/t2", "/mnt/data/settings/t2")), 6);
    EXPECT_EQ(Run(Rename("/mnt/data/templates/t2", "/mnt/data/templates/t|2")), 5);

    EXPECT_EQ(Run(ListPrepare("/mnt/data/nothing")), 2);
    EXPECT_EQ(Run(ListPrepare("/mnt/data/templates/t2")), 2) << "a file is no folder";
    EXPECT_EQ(Run(ListPrepare("/")), 0);
}

TEST_F(SimFiles, FetchWithoutAFileAnswersAnEmptyReply) {
    Reply r = Ask(GetFetch("/mnt/data/images/none"));
    EXPECT_EQ(r.payload.size(), 263u);
    EXPECT_EQ(Le32(r.payload, 259), 0u);
    r = Ask(ListFetch("/mnt/data/none"));
    EXPECT_EQ(r.payload.size(), 259u);
}

TEST_F(SimFiles, TestAccessRejectsIllegalPaths) {
    EXPECT_THROW(printer.WriteFile("relative", {}), std::invalid_argument);
    EXPECT_THROW(printer.WriteFile("/mnt/data/settings/syslog/inner", {}), std::invalid_argument);
    EXPECT_THROW(printer.SetReadOnly("/mnt/data/none", true), std::invalid_argument);
    printer.WriteFile("/mnt/data/preset/deep/file.txt", Text("p"), true);
    EXPECT_EQ(printer.ReadFile("/mnt/data/preset/deep/file.txt"), Text("p"));
    EXPECT_FALSE(printer.RemoveFile("/mnt/data/preset/deep")) << "not empty";
    EXPECT_TRUE(printer.RemoveFile("/mnt/data/preset/deep/file.txt"));
    EXPECT_TRUE(printer.RemoveFile("/mnt/data/preset/deep"));
}
