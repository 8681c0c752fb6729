// The designer link and the data server: the begun layout byte for byte,
// an existing one left alone, a missing folder logged and the designer
// started all the same; the data server over loopback on a port of its
// own, and a port in use costing only its log lines.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "foundation/NSValue.h"
#include "reports/VTActionOpenReportDesigner.h"
#include "reports/VTDataServer.h"
#include "sync/LXSocket.h"
#include "tests/reports/report_fixture.h"
#include "tests/support/TestSupport.h"

namespace {

using vt_test::readFile;
using vt_test::writeFile;

class DesignerTest : public ReportsTest {
protected:
    void SetUp() override {
        ReportsTest::SetUp();
        sheet = define(
                "((name contact labelled (Contacts)) (field (lastName labelled Příjmení) as string)"
                " (hiddenfield secret as string) (formfield (notes labelled A & B) as multiline))");
        ASSERT_NE(sheet, nullptr);
    }
    std::string begin() {
        NSObject* action = VTActionOpenReportDesigner::alloc()->init();
        std::string log = logOf([&] {
            static_cast<VTActionOpenReportDesigner*>(action)->beginLayoutForMatrix_(
                    sheet->matrix());
        });
        action->release();
        return log;
    }
    VTSheet* sheet = nullptr;
};

TEST_F(DesignerTest, TheBegunLayoutByteForByteAndNeverOverwritten) {
    std::filesystem::create_directory("layout");
    EXPECT_EQ(begin(), "");
    const std::string expected =
            "<tool name=\"contact\">\n"
            "<field posx=\"220\" posy=\"20\" width=\"200\" height=\"20\">lastName</field>\n"
            "<label posx=\"20\" posy=\"20\" width=\"200\" height=\"20\">Příjmení</label>\n"
            "<field posx=\"220\" posy=\"60\" width=\"200\" height=\"20\">secret</field>\n"
            "<label posx=\"20\" posy=\"60\" width=\"200\" height=\"20\">Secret</label>\n"
            "<field posx=\"220\" posy=\"100\" width=\"200\" height=\"20\">notes</field>\n"
            "<label posx=\"20\" posy=\"100\" width=\"200\" height=\"20\">A & B</label>\n"
            "</tool>\n";
    EXPECT_EQ(readFile("layout/layout-contact.xml"), expected);

    writeFile("layout/layout-contact.xml", "<tool>designed</tool>");
    EXPECT_EQ(begin(), "XML file exists\n");
    EXPECT_EQ(readFile("layout/layout-contact.xml"), "<tool>designed</tool>");
}

#if !defined(_WIN32)
// The designer is a program named VantorReportDesigner in the working
// directory; a stand-in notes the one argument it is given.
TEST_F(DesignerTest, TheDesignerStartsWithThePathEvenWhenNoFileCouldBeWritten) {
    std::string cwd = std::filesystem::current_path().string();
    writeFile("VantorReportDesigner", "#!/bin/sh\necho \"$#:$1\" > " + cwd +
                                              "/args.tmp && /bin/mv " + cwd + "/args.tmp " + cwd +
                                              "/args\n");
    std::filesystem::permissions("VantorReportDesigner", std::filesystem::perms::owner_all);
    NSObject* action = VTActionOpenReportDesigner::alloc()->init();
    std::string log = logOf([&] {
        static_cast<VTActionOpenReportDesigner*>(action)->perform__(NSNumber::numberWithInt_(0),
                                                                    sheet->matrix());
    });
    action->release();
    EXPECT_EQ(log, "cannot write XML to file\n");
    EXPECT_FALSE(std::filesystem::exists("layout"));
    ASSERT_TRUE(vt_test::waitUntil([] { return std::filesystem::exists("args"); }));
    EXPECT_EQ(readFile("args"), "1:layout/layout-contact.xml\n");
}
#endif

// A port for this test alone: bound once to find a free one.
uint32_t freePort() {
    LXSocket* probe = static_cast<LXSocket*>(LXSocket::alloc()->init());
    uint32_t port = probe->bindToPort_(0) ? probe->localPort() : 0;
    probe->release();
    return port;
}

TEST(DataServer, TakesOneNumberPerConnectionAndClosesIt) {
    NSAutoreleasePoolScope pool;
    uint32_t port = freePort();
    ASSERT_NE(port, 0u);
    VTDataServer* server = VTDataServer::alloc()->initWithPort_(port);
    ASSERT_NE(server->server(), nullptr);
    std::string log = logOf([&] {
        for (int32_t number : {7, -123456}) {
            bool answered = false;
            std::thread serving([&] { answered = server->listen(); });
            LXSocket* client = static_cast<LXSocket*>(LXSocket::alloc()->init());
            ASSERT_TRUE(client->connect_port_("127.0.0.1"_ns, port));
            ASSERT_TRUE(client->sendInt_(number));
            // Nothing comes back: the server closes the connection.
            void* answer = client->readBytesWithLength_(1);
            EXPECT_EQ(answer, nullptr);
            client->release();
            serving.join();
            EXPECT_TRUE(answered);
        }
    });
    EXPECT_EQ(log,
              "data server -- listening\ndata server -- received: 7\n"
              "data server -- listening\ndata server -- received: -123456\n");
    server->release();
}

TEST(DataServer, APortInUseCostsOnlyTheLogLines) {
    NSAutoreleasePoolScope pool;
    uint32_t port = freePort();
    VTDataServer* first = VTDataServer::alloc()->initWithPort_(port);
    ASSERT_NE(first->server(), nullptr);
    std::string log = logOf([&] { VTDataServer::serveOnPort_(port); });
    EXPECT_EQ(log.rfind("starting data server\n", 0), 0u) << log;
    EXPECT_NE(log.find("could not initiate data server socket\n"), std::string::npos) << log;
    EXPECT_EQ(log.find("listening"), std::string::npos) << log;
    first->release();
}

}  // namespace
