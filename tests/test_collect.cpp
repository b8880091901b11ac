// The way of lines from four processes on one shared ring, a ring of one process and the trace area, through
// zebu2 forward and the real rsyslog with the configuration of the examples, into files that zebu2 show
// reads, while forwarder and rsyslog are killed at random.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <random>

#include "support/AreaConsumer.h"
#include "support/Tool.h"

namespace {
constexpr int LINES = 2000;                            // of each writer
constexpr long RING_SIZE = 2'000'000, RING_FILES = 12; // all of them
constexpr int KILLS = 12;
constexpr int DOUBLES = KILLS * (128 + 1000); // the window, and the lines of a save interval

class Collect : public ToolTest
{
protected:
    void SetUp() override
    {
        if (access("/usr/sbin/rsyslogd", X_OK) != 0 ||
            access("/usr/lib/x86_64-linux-gnu/rsyslog/imrelp.so", R_OK) != 0)
            GTEST_SKIP() << "needs rsyslog and rsyslog-relp";
        sockaddr_in address = {};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* any = reinterpret_cast<sockaddr*>(&address);
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_TRUE(bind(fd, any, length) == 0 && getsockname(fd, any, &length) == 0);
        (void)close(fd); // free a moment ago
        m_port = std::to_string(ntohs(address.sin_port));
        std::string config = readFile(ZEBU_EXAMPLES "/collect/rsyslog-server.conf");
        for (const auto& [from, to] :
             {std::pair<std::string, std::string>("\"/var/log/zebu2/", "\"" + path("out/")),
              {"\"/var/spool/rsyslog", "\"" + path("mmap")},
              {"port=\"2514\"", "port=\"" + m_port + "\" address=\"127.0.0.1\""}}) {
            ASSERT_NE(config.find(from), std::string::npos) << from;
            config.replace(config.find(from), from.size(), to);
        }
        writeFile(path("rsyslog.conf"), config);
        startServer();
        startForwarder();
    }
    void TearDown() override
    {
        if (m_server > 0)
            (void)stopServer(SIGTERM);
    }

    void startServer()
    {
        m_server = startChild([this] {
            (void)execl("/usr/sbin/rsyslogd", "rsyslogd", "-n", "-iNONE", "-f", path("rsyslog.conf").c_str(),
                        nullptr);
            CHECK(false);
        });
    }
    int stopServer(int number)
    {
        (void)kill(m_server, number);
        return waitForChild(std::exchange(m_server, -1));
    }
    void startForwarder()
    {
        m_forwarder.reset(); // kills the one that runs
        m_forwarder = std::make_unique<RunningTool>(Words{"forward", "--to", "relp://127.0.0.1:" + m_port,
                                                          "--cursor", path("cursor"), "--area", "--wait",
                                                          "--timeout", "5", prefix(), path("one")});
    }

    // Four on the shared ring, one on its own, one in the area alone.
    pid_t startWriter(int number)
    {
        return startChild([this, number] {
            const bool area = number == 5;
            const tagZEBU_LOGFILE_SPEC* pRing =
                area ? nullptr : ring(RING_SIZE, RING_FILES, number < 4 ? "app" : "one");
            const int status =
                number < 4 ? ZEBU2_InitializeM(pRing, "app", 0) : ZEBU2_Initialize(pRing, "one");
            CHECK(status == (area ? 1 : 0));
            if (!area)
                (void)ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF);
            const std::unique_ptr<AreaConsumer> room(area ? new AreaConsumer(areaFile()) : nullptr);
            const std::string name = "w" + std::to_string(number);
            for (int i = 0; i < LINES; ++i) {
                while (area && !room->hasRoom(2000))
                    usleep(1000);
                while (ZEBU2_PutLine(0, areaMessage(name, i).c_str()) != 0)
                    CHECK(number < 4); // nobody else holds a lock
                usleep(3000);
            }
            CHECK(ZEBU2_Finalize() == 0);
        });
    }

    // How often each whole line stands in the files; one that was torn by a kill has another behind it.
    std::map<std::string, int> linesIn(const std::string& text) const
    {
        std::map<std::string, int> seen;
        for (const std::string& line : splitLines(text)) {
            const size_t filler = line.find_last_not_of('x') + 1;
            const size_t number = filler < 2 ? std::string::npos : line.rfind(' ', filler - 2);
            const size_t sender =
                number == 0 || number == std::string::npos ? 0 : line.rfind(' ', number - 1) + 1;
            const std::string whole = areaSender(line.substr(sender));
            if (whole.starts_with('w'))
                ++seen[whole];
        }
        return seen;
    }
    Words files() const
    {
        Words found;
        if (exists(path("out")))
            for (const auto& entry : std::filesystem::recursive_directory_iterator(path("out")))
                if (entry.is_regular_file())
                    found.push_back(entry.path());
        return found;
    }
    std::map<std::string, int> arrived() const
    {
        std::string text;
        for (const std::string& file : files())
            text += readFile(file);
        return linesIn(text);
    }

    std::string m_port;
    pid_t m_server = -1;
    std::unique_ptr<RunningTool> m_forwarder;
};

TEST_F(Collect, EveryLineArrivesWhoeverIsKilled)
{
    startArea(); // so that it is there, and the shared ring
    stop();
    ASSERT_EQ(ZEBU2_InitializeM(ring(RING_SIZE, RING_FILES), "app", 0), 0);
    stop();
    std::vector<pid_t> writers;
    for (int i = 0; i < 6; ++i)
        writers.push_back(startWriter(i));
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random(seed);
    for (int i = 0; i < KILLS; ++i) {
        usleep(static_cast<useconds_t>(300'000 + random() % 700'000));
        if (random() % 2 == 0) {
            startForwarder();
        } else {
            (void)stopServer(SIGKILL);
            usleep(static_cast<useconds_t>(random() % 300'000));
            startServer();
        }
    }
    for (const pid_t writer : writers)
        EXPECT_EQ(waitForChild(writer), 0);
    std::map<std::string, int> seen;
    for (int i = 0; i < 60 && seen.size() < 6 * LINES; ++i, sleep(1))
        seen = arrived();
    EXPECT_EQ(seen.size(), 6u * LINES);
    m_forwarder->signal(SIGTERM);
    EXPECT_EQ(m_forwarder->wait(), 0);
    EXPECT_EQ(stopServer(SIGTERM), 0);

    int doubles = -6 * LINES;
    for (const auto& [line, times] : arrived())
        doubles += times;
    EXPECT_LE(doubles, DOUBLES);
    RecordProperty("doubles", doubles);
    EXPECT_EQ(files().size(), 3u);
    EXPECT_EQ(areaHeader().uReadOffset, areaHeader().uWriteOffset);
    Words show = {"show", "-o", "raw"};
    for (const std::string& file : files())
        show.push_back(file);
    const ToolResult shown = zebu2(show);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(linesIn(shown.out).size(), 6u * LINES);
    printf("%d lines came twice\n", doubles);
}
} // namespace
