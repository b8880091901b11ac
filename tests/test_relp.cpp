// The RELP client against a server that misbehaves, and the messages it carries.
#include <poll.h>

#include "support/RelpServer.h"
#include "tools/forward/Message.h"
#include "tools/forward/Relp.h"

namespace {

class Relp : public Sandbox
{
protected:
    Relp() { m_options.server.strHost = "127.0.0.1"; }

    // Hands over 300 messages, and drives the client until they are delivered or the server was silent for
    // long.
    void deliver(const RelpServer& server)
    {
        m_uDelivered = 0;
        m_said.clear();
        m_options.server.strPort = server.port();
        std::string error;
        const auto tls = ZEBU_MakeTls(m_options.server, &error);
        ASSERT_TRUE(tls) << error;
        ZEBURelp relp(m_options, m_options.server.bTls ? tls.get() : nullptr,
                      [this](const std::string& text) { m_said += text + "\n"; });
        const ZEBUClock lEnd = ZEBU_Clock() + m_lPatience;
        for (int iAdded = 0; !relp.isClosed() && ZEBU_Clock() < lEnd;) {
            for (; iAdded < 300 && relp.hasRoom(); ++iAdded)
                relp.add("message " + std::to_string(iAdded));
            const size_t uMore = relp.advance(ZEBU_Clock());
            m_uDelivered += uMore;
            if (uMore > 0 && m_uDelivered == 300)
                relp.close(ZEBU_Clock());
            if (uMore > 0 || relp.isClosed())
                continue;
            const ZEBUClock lWake = relp.wakeTime() < 0 ? lEnd : std::min(lEnd, relp.wakeTime());
            pollfd ready = {relp.fd(), relp.events(), 0};
            (void)poll(&ready, 1, static_cast<int>(std::max(lWake - ZEBU_Clock(), 0L)));
        }
    }
    void expectAll(const RelpServer& server, size_t uDoubles = 0) const
    {
        const Lines messages = server.messages();
        EXPECT_EQ(m_uDelivered, 300u) << m_said;
        EXPECT_EQ(std::set(messages.begin(), messages.end()).size(), 300u) << m_said;
        EXPECT_LE(messages.size(), 300 + uDoubles);
    }

    ZEBURelpOptions m_options;
    ZEBUClock m_lPatience = 10'000;
    size_t m_uDelivered = 0;
    std::string m_said;
};

// The first connection goes wrong in one way, in all others the server does what it should.
TEST_F(Relp, DeliversAllWhateverTheServerDoes)
{
    // The server's steps, all of what is said but its name, or the beginning, and how many may come twice.
    const std::tuple<Lines, std::string, size_t> cases[] = {
        {{"open", "serve"}, "", 0},
        {{"open", "reverse 50", "serve"}, "", 0},
        {{"open", "next", "answer 500 no space", "serve"}, "answered \"500 no space\" to: message 0\n", 0},
        {{"open", "next", "take", "send 3 rsp 6 20"}, "closed the connection\n", 0}, // in a frame's middle
        {{"open", "next", "send 0 serverclose 0\n"}, "closed the session\n", 0},
        {{"open", "read"}, "no answer\n", 0},
        {{"read"}, "no answer\n", 0},
        {{"next", "answer 500 not you\nreally"}, "refused the session: 500 not you\n", 0},
        {{"open", "next", "send 777 rsp 6 200 OK\n"}, "answered number 777, which was not sent\n", 0},
        {{"open", "next", "take", "take"}, "answered number 2, which was not sent\n", 1},
        {{"send HTTP/1.1 400 Bad Request\r\n"}, "sent what is no frame of RELP\n", 0},
        {{"open", "next", "send 2 rsp 999999999 " + std::string(100'000, 'x')},
         "sent what is no frame of RELP\n",
         0}};
    m_options.lTimeout = 500;
    for (const auto& [steps, said, uDoubles] : cases) {
        SCOPED_TRACE(::testing::PrintToString(steps).substr(0, 100));
        const RelpServer server(path("relp"), steps);
        deliver(server);
        expectAll(server, uDoubles);
        const size_t uName = m_said.find(": ");
        EXPECT_EQ(uName == std::string::npos ? "" : m_said.substr(uName + 2, said.size()), said);
    }
}

TEST_F(Relp, TriesAgainUntilThereIsAServer)
{
    m_options.server.strHost = "localhost"; // two addresses, one of them without a server
    m_lPatience = 600;
    const RelpServer server(path("relp"));
    deliver(server);
    expectAll(server);
    EXPECT_EQ(m_said, "");
    m_options.server.strPort = RelpServer(path("gone")).port();
    ZEBURelp relp(m_options, nullptr, [this](const std::string& text) { m_said += text + "\n"; });
    std::vector<ZEBUClock> pauses;
    for (ZEBUClock lNow = 1; pauses.size() < 9; lNow = relp.wakeTime()) {
        (void)relp.advance(lNow);
        pauses.push_back(relp.wakeTime() - lNow);
    }
    EXPECT_EQ(pauses, (std::vector<ZEBUClock>{250, 500, 1000, 2000, 4000, 8000, 16000, 30000, 30000}));
}

TEST_F(Relp, GivesUpARefusedMessageOnlyWhenAskedTo)
{
    const RelpServer server(path("relp"), {}, {"--refuse", "message 7"});
    m_lPatience = 1000;
    // It is refused at once, after 250 and after 750 milliseconds, and once more.
    for (const auto& [uDelivered, iRefused] : {std::pair(7u, 3), {300u, 4}}) {
        deliver(server);
        const Lines messages = server.messages();
        EXPECT_EQ(m_uDelivered, uDelivered);
        EXPECT_EQ(std::count(messages.begin(), messages.end(), "-message 7"), iRefused);
        m_options.bSkipRefused = true;
    }
}

TEST_F(Relp, TlsTrustsWhoItShould)
{
    (void)::signal(SIGPIPE, SIG_IGN); // as the program does
    const RelpServer other(path("other-"), {}, {"--name", "localhost"});
    m_options.server.bTls = true;
    // The name in the certificate, and that of the host; whether the client knows the authority and checks
    // the name; whether the server demands a certificate, and the client shows one.
    const std::tuple<const char*, const char*, bool, bool, bool, bool, const char*> cases[] = {
        {"127.0.0.1", "127.0.0.1", true, true, false, false, ""},
        {"localhost", "localhost", true, true, false, false, ""},
        {"elsewhere.invalid", "localhost", true, true, false, false, "hostname mismatch"},
        {"elsewhere.invalid", "127.0.0.1", true, true, false, false, "IP address mismatch"},
        {"elsewhere.invalid", "localhost", true, false, false, false, ""},
        {"localhost", "localhost", false, true, false, false, "self-signed certificate"},
        {"localhost", "localhost", false, false, false, false, "self-signed certificate"},
        {"localhost", "localhost", true, true, true, true, ""},
        {"localhost", "localhost", true, true, true, false, "certificate required"}};
    for (const auto& [pszName, pszHost, bKnown, bChecked, bDemands, bShows, pszRefused] : cases) {
        SCOPED_TRACE(std::string(pszName) + " at " + pszHost + ", " + pszRefused);
        const RelpServer server(path("its-"), {}, {"--name", pszName, bDemands ? "--demand" : "--each"});
        m_options.server.strCaFile = path(bKnown ? "its-cert.pem" : "other-cert.pem");
        m_options.server.strCertificate = bShows ? path("its-cert.pem") : "";
        m_options.server.strKey = path("its-key.pem");
        m_options.server.bCheckName = bChecked;
        m_options.server.strHost = pszHost;
        m_lPatience = *pszRefused ? 200 : 10'000;
        deliver(server);
        EXPECT_NE(m_said.find(pszRefused), std::string::npos) << m_said;
        if (*pszRefused)
            EXPECT_TRUE(server.messages().empty() && m_uDelivered == 0);
        else
            expectAll(server);
    }
}

TEST_F(Relp, ServerNames)
{
    const auto found = [](const char* pszUrl) {
        ZEBUServer server;
        return ZEBU_ParseServer(pszUrl, &server)
                   ? server.strHost + " " + server.strPort + " " + std::to_string(server.bTls)
                   : "";
    };
    EXPECT_EQ(found("relp://h:1"), "h 1 0");
    EXPECT_EQ(found("relps://h.example:20514"), "h.example 20514 1");
    EXPECT_EQ(found("relp://[::1]:7"), "::1 7 0");
    EXPECT_EQ(found("relp://h"), "h 2514 0");
    EXPECT_EQ(found("relp://[::1]"), "::1 2514 0");
    for (const char* pszBad :
         {"relp://[::1]x:7", "relp://[::1", "relp://:7", "relp://h:", "relp://h:7/x", "http://h:7", "h:7"})
        EXPECT_EQ(found(pszBad), "") << pszBad;
}

TEST_F(Relp, Messages)
{
    ZEBUSeverities severities;
    const auto of = [&](const Lines& types) {
        std::string found;
        for (const std::string& type : types)
            found += std::to_string(severities.of(type));
        return found;
    };
    EXPECT_EQ(of({"WARN", "E", "x", ""}), "4366");
    for (const char* pszBad : {"E", "E=9", "=err", "E=err,W", "E=error"})
        EXPECT_FALSE(severities.parse(pszBad)) << pszBad;
    EXPECT_TRUE(severities.parse("X=crit,Y=7,*=notice"));
    EXPECT_EQ(of({"X", "Y", "E"}), "275");

    ZEBUMessage message;
    message.iSeverity = 6;
    EXPECT_EQ(ZEBU_FormatMessage(message, 1024), "<134>1 - - - - - [zebu2@32473] ");
    message = {3,      "2026-11-22T10:00:00.123+01:00", "h", "my app", "7", "NET-17\x01", "a\"]\\", "E", "12",
               "/t/r", "0012 text \xC3\xA9\n"};
    EXPECT_EQ(
        ZEBU_FormatMessage(message, 1024),
        "<131>1 2026-11-22T10:00:00.123+01:00 h my_app 7 NET-17_ [zebu2@32473 source=\"/t/r\" counter=\"12\" "
        "tid=\"a\\\"\\]\\\\\" type=\"E\"] 0012 text \xC3\xA9\n");
    const std::string text(3000, 'x');
    message.svText = text;
    const std::string cut = ZEBU_FormatMessage(message, 1024);
    EXPECT_TRUE(cut.size() <= 1024 && cut.size() >= 1020) << cut.size();
    const auto lKept = std::count(cut.begin() + static_cast<long>(cut.find("] ")), cut.end(), 'x');
    EXPECT_TRUE(cut.ends_with("x [" + std::to_string(3000 - lKept) + " bytes cut off]")) << cut;
}

} // namespace
