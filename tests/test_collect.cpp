// The way of lines from four processes on one shared ring, a ring of one process and the trace area, through
// zebu2 forward and the real rsyslog with the configuration of the examples, into files that zebu2 show
// reads, while forwarder and rsyslog are killed at random.
#include <random>

#include "support/AreaConsumer.h"
#include "support/Tool.h"

namespace {
constexpr int cs_iLines = 2000, cs_iWriters = 6;             // lines of each: four share a ring
constexpr long cs_lRingSize = 2'000'000, cs_lRingFiles = 12; // for all of them
constexpr size_t cs_uAll = cs_iLines * cs_iWriters;
constexpr int cs_iKills = 12;

class Collect : public ToolTest
{
protected:
    void SetUp() override
    {
        if (!exists("/usr/sbin/rsyslogd") || !exists("/usr/lib/x86_64-linux-gnu/rsyslog/imrelp.so"))
            GTEST_SKIP() << "needs rsyslog and rsyslog-relp";
        m_port = std::to_string(20000 + getpid() % 10000); // below those that the system gives away
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
    void startServer()
    {
        m_server = std::make_unique<RunningTool>(Words{"-n", "-iNONE", "-f", path("rsyslog.conf")}, 0,
                                                 "/usr/sbin/rsyslogd");
    }
    void startForwarder()
    {
        m_forwarder.reset(); // kills the one that runs
        m_forwarder = std::make_unique<RunningTool>(Words{"forward", "--to", "relp://127.0.0.1:" + m_port,
                                                          "--cursor", path("cursor"), "--area", "--wait",
                                                          "--timeout", "5", prefix(), path("one")});
    }

    // Four on the shared ring, one on its own, one in the area alone.
    void write(int iNumber)
    {
        const bool bArea = iNumber == 5, bShared = iNumber < 4;
        const tagZEBU_LOGFILE_SPEC* pRing =
            bArea ? nullptr : ring(cs_lRingSize, cs_lRingFiles, bShared ? "app" : "one");
        CHECK((bShared ? ZEBU2_InitializeM(pRing, "app", 0) : ZEBU2_Initialize(pRing, "one")) == bArea);
        (void)ZEBU2_SetShmThreshold(bArea ? 0 : ZEBU2_LEVEL_OFF);
        const AreaConsumer room(areaFile());
        for (int i = 0; i < cs_iLines; ++i, usleep(3000)) {
            while (bArea && !room.hasRoom(5000))
                usleep(1000);
            while (ZEBU2_PutLine(0, areaMessage("w" + std::to_string(iNumber), i).c_str()) != 0)
                CHECK(bShared); // nobody else holds a lock
        }
        CHECK(ZEBU2_Finalize() == 0);
    }

    // The whole lines of a text; one that was torn by a kill has another behind it.
    static Lines linesIn(const std::string& text)
    {
        Lines found = splitLines(text);
        for (std::string& line : found)
            line = areaSender(line.substr(line.rfind(" w") + 1));
        std::erase(found, "");
        return found;
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
    Lines arrived() const
    {
        std::string text;
        for (const std::string& file : files())
            text += readFile(file);
        return linesIn(text);
    }
    static size_t distinct(const Lines& lines) { return std::set(lines.begin(), lines.end()).size(); }

    std::string m_port;
    std::unique_ptr<RunningTool> m_server, m_forwarder;
};

TEST_F(Collect, EveryLineArrivesWhoeverIsKilled)
{
    ASSERT_EQ(ZEBU2_InitializeM(ring(cs_lRingSize, cs_lRingFiles), "app", 0), 0); // it is there, and the area
    stop();
    std::vector<pid_t> writers;
    for (int i = 0; i < cs_iWriters; ++i)
        writers.push_back(startChild([&] { write(i); }));
    const unsigned uSeed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(uSeed));
    std::minstd_rand random(uSeed);
    for (int i = 0; i < cs_iKills; ++i) {
        usleep(static_cast<useconds_t>(300'000 + random() % 700'000));
        if (random() % 2 == 0) {
            startForwarder();
        } else {
            m_server.reset();
            usleep(static_cast<useconds_t>(random() % 300'000));
            startServer();
        }
    }
    for (const pid_t writer : writers)
        EXPECT_EQ(waitForChild(writer), 0);
    for (int i = 0; i < 60 && distinct(arrived()) < cs_uAll; ++i)
        sleep(1);
    m_forwarder->signal(SIGTERM);
    EXPECT_EQ(m_forwarder->wait(), 0);
    m_server->signal(SIGTERM);
    EXPECT_EQ(m_server->wait(), 0);

    const Lines seen = arrived();
    EXPECT_EQ(distinct(seen), cs_uAll);
    EXPECT_LE(seen.size(),
              cs_uAll + cs_iKills * (128 + 1000)); // the window, and the lines of a save interval
    EXPECT_EQ(files().size(), 3u);
    EXPECT_EQ(areaHeader().uReadOffset, areaHeader().uWriteOffset);
    Words show = files();
    show.insert(show.begin(), {"show", "-o", "raw"});
    const ToolResult shown = zebu2(show);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(linesIn(shown.out).size(), seen.size());
}
} // namespace
