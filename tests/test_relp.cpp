// The RELP client against a server that misbehaves, and the messages it carries.
#include <poll.h>
#include <signal.h>

#include <algorithm>

#include "support/RelpServer.h"
#include "support/Sandbox.h"
#include "tools/forward/Message.h"
#include "tools/forward/Relp.h"

namespace {
using Frame = RelpSession::Frame;

class Relp : public Sandbox
{
protected:
    // Hands over 300 messages, and drives the client until they are delivered or the server was silent for
    // long.
    void deliver(const RelpServer& server)
    {
        m_options.server.strHost = m_host;
        m_options.server.strPort = std::to_string(server.port());
        std::string error;
        const auto tls = ZEBU_MakeTls(m_options.server, &error);
        ASSERT_TRUE(tls) << error;
        ZEBURelp relp(m_options, m_options.server.bTls ? tls.get() : nullptr,
                      [this](const std::string& text) { m_said += text + "\n"; });
        const ZEBUClock end = ZEBU_Clock() + m_patience;
        int added = 0;
        while (m_delivered < 300 && ZEBU_Clock() < end) {
            for (; added < 300 && relp.hasRoom(); ++added)
                relp.add("message " + std::to_string(added));
            const size_t more = relp.advance(ZEBU_Clock());
            m_delivered += more;
            if (more == 0)
                wait(relp, end);
        }
        relp.close(ZEBU_Clock());
        while ((void)relp.advance(ZEBU_Clock()), !relp.isClosed() && ZEBU_Clock() < end)
            wait(relp, end);
    }
    static void wait(const ZEBURelp& relp, ZEBUClock end)
    {
        const ZEBUClock wake = relp.wakeTime() < 0 ? end : std::min(end, relp.wakeTime());
        pollfd ready = {relp.fd(), relp.events(), 0};
        (void)poll(&ready, 1, static_cast<int>(std::max(wake - ZEBU_Clock(), 0L)));
    }
    void expectAll(const RelpServer& server, int doubles) const
    {
        EXPECT_EQ(m_delivered, 300u) << m_said;
        EXPECT_EQ(server.seen().size(), 300u) << m_said;
        int seen = 0;
        for (const auto& [message, times] : server.seen())
            seen += times;
        EXPECT_LE(seen, 300 + doubles);
    }

    ZEBURelpOptions m_options;
    std::string m_host = "127.0.0.1";
    ZEBUClock m_patience = 10'000;
    size_t m_delivered = 0;
    std::string m_said;
};

// The first connection goes wrong in one way, in all others the server does what it should.
TEST_F(Relp, DeliversAllWhateverTheServerDoes)
{
    const std::function<bool(RelpServer&, RelpSession&, Frame*)> begin =
        [](RelpServer& server, RelpSession& session, Frame* frame) {
            return server.open(session) && session.next(frame);
        };
    const struct
    {
        const char* what;
        std::function<void(RelpServer&, RelpSession&)> script;
        const char* said; // all of what is said but the name of the server, or its beginning
        int doubles;
    } cases[] = {
        {"does what it should",
         [](auto& server, auto& session) {
             if (server.open(session))
                 server.serve(session);
         },
         "", 0},
        {"answers out of order",
         [&](auto& server, auto& session) {
             std::vector<Frame> frames(50);
             (void)server.open(session);
             for (Frame& frame : frames)
                 CHECK(session.next(&frame));
             for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame)
                 server.take(session, *frame);
             server.serve(session);
         },
         "", 0},
        {"refuses a message",
         [&](auto& server, auto& session) {
             Frame frame;
             (void)begin(server, session, &frame);
             session.answer(frame, "500 no space");
             server.serve(session);
         },
         "answered \"500 no space\" to: message 0\n", 0},
        {"closes in the middle of a frame",
         [&](auto& server, auto& session) {
             Frame frame;
             (void)begin(server, session, &frame);
             server.take(session, frame);
             session.send("3 rsp 6 20");
         },
         "closed the connection\n", 0},
        {"ends the session",
         [&](auto& server, auto& session) {
             Frame frame;
             (void)begin(server, session, &frame);
             session.send("0 serverclose 0\n");
         },
         "closed the session\n", 0},
        {"never answers",
         [&](auto& server, auto& session) {
             Frame frame;
             for (bool more = begin(server, session, &frame); more;)
                 more = session.next(&frame);
         },
         "no answer\n", 0},
        {"never answers the first frame",
         [](auto&, auto& session) {
             Frame frame;
             while (session.next(&frame))
                 ;
         },
         "no answer\n", 0},
        {"refuses the session",
         [](auto&, auto& session) {
             Frame frame;
             CHECK(session.next(&frame));
             session.answer(frame, "500 not you\nreally");
         },
         "refused the session: 500 not you\n", 0},
        {"answers what nobody asked",
         [&](auto& server, auto& session) {
             Frame frame;
             (void)begin(server, session, &frame);
             session.answer({"777", "", ""}, "200 OK");
         },
         "answered number 777, which was not sent\n", 0},
        {"answers twice",
         [&](auto& server, auto& session) {
             Frame frame;
             (void)begin(server, session, &frame);
             server.take(session, frame);
             server.take(session, frame);
         },
         "answered number 2, which was not sent\n", 1},
        {"speaks something else", [](auto&, auto& session) { session.send("HTTP/1.1 400 Bad Request\r\n"); },
         "sent what is no frame of RELP\n", 0},
        {"sends an endless frame",
         [&](auto& server, auto& session) {
             Frame frame;
             (void)begin(server, session, &frame);
             session.send("2 rsp 999999999 " + std::string(100'000, 'x'));
         },
         "sent what is no frame of RELP\n", 0},
    };
    m_options.lTimeout = 500;
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        m_delivered = 0;
        m_said.clear();
        RelpServer* self = nullptr;
        RelpServer server([&](RelpSession& session, int connection) {
            if (connection == 1)
                one.script(*self, session);
            else if (self->open(session))
                self->serve(session);
        });
        self = &server;
        deliver(server);
        expectAll(server, one.doubles);
        const size_t said = std::string(one.said).size();
        const size_t name = m_said.find(": ");
        EXPECT_EQ(name == std::string::npos ? "" : m_said.substr(name + 2, said), one.said);
    }
}

TEST_F(Relp, TriesAgainUntilThereIsAServer)
{
    m_host = "localhost"; // two addresses, one of them without a server
    int port;
    {
        const RelpServer gone;
        port = gone.port();
    }
    m_patience = 600;
    RelpServer elsewhere;
    deliver(elsewhere);
    expectAll(elsewhere, 0);
    EXPECT_EQ(m_said, "");
    m_options.server.strPort = std::to_string(port);
    ZEBURelp relp(m_options, nullptr, [this](const std::string& text) { m_said += text + "\n"; });
    std::vector<ZEBUClock> pauses;
    for (ZEBUClock now = 1; pauses.size() < 9; now = relp.wakeTime()) {
        (void)relp.advance(now);
        pauses.push_back(relp.wakeTime() - now);
    }
    EXPECT_EQ(pauses, (std::vector<ZEBUClock>{250, 500, 1000, 2000, 4000, 8000, 16000, 30000, 30000}));
}

TEST_F(Relp, GivesUpARefusedMessageOnlyWhenAskedTo)
{
    RelpServer* self = nullptr;
    int refusals = 0;
    RelpServer server([&](RelpSession& session, int) {
        Frame frame;
        (void)self->open(session);
        while (session.next(&frame) && frame.command == "syslog")
            if (frame.data == "message 7" && ++refusals > 0)
                session.answer(frame, "500 not this one");
            else
                self->take(session, frame);
    });
    self = &server;
    m_patience = 1000;
    deliver(server);
    EXPECT_EQ(m_delivered, 7u);
    EXPECT_EQ(refusals, 3); // at once, after 250 and after 750 milliseconds
    m_options.bSkipRefused = true;
    m_delivered = 0;
    deliver(server);
    EXPECT_EQ(m_delivered, 300u);
    EXPECT_EQ(refusals, 4);
}

TEST_F(Relp, TlsTrustsWhoItShould)
{
    (void)::signal(SIGPIPE, SIG_IGN); // as the program does
    m_options.server.bTls = true;
    const struct
    {
        const char* name; // in the certificate
        const char* host;
        bool known, checked, demands, shows; // authority, name; certificate of the client
        const char* refused;
    } cases[] = {
        {"127.0.0.1", "127.0.0.1", true, true, false, false, ""},
        {"localhost", "localhost", true, true, false, false, ""},
        {"elsewhere.invalid", "localhost", true, true, false, false, "hostname mismatch"},
        {"elsewhere.invalid", "127.0.0.1", true, true, false, false, "IP address mismatch"},
        {"elsewhere.invalid", "localhost", true, false, false, false, ""},
        {"localhost", "localhost", false, true, false, false, "self-signed certificate"},
        {"localhost", "localhost", false, false, false, false, "self-signed certificate"},
        {"localhost", "localhost", true, true, true, true, ""},
        {"localhost", "localhost", true, true, true, false, "certificate required"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(std::string(one.name) + " at " + one.host + ", " + one.refused);
        m_delivered = 0;
        m_said.clear();
        RelpServer server({}, one.name);
        const RelpServer other({}, one.name);
        if (one.demands)
            server.demandCertificate();
        writeFile(path("ca.pem"), (one.known ? server : other).certificate());
        writeFile(path("cert.pem"), server.certificate());
        writeFile(path("key.pem"), server.key());
        m_options.server.strCaFile = path("ca.pem");
        m_options.server.strCertificate = one.shows ? path("cert.pem") : "";
        m_options.server.strKey = path("key.pem");
        m_options.server.bCheckName = one.checked;
        m_host = one.host;
        m_patience = *one.refused ? 200 : 10'000;
        deliver(server);
        EXPECT_NE(m_said.find(one.refused), std::string::npos) << m_said;
        if (*one.refused)
            EXPECT_TRUE(server.seen().empty() && m_delivered == 0);
        else
            expectAll(server, 0);
    }
}

TEST_F(Relp, ServerNames)
{
    const struct
    {
        const char* url;
        const char* host; // empty: refused
        const char* port;
        bool tls;
    } cases[] = {
        {"relp://h:1", "h", "1", false},        {"relps://h.example:20514", "h.example", "20514", true},
        {"relp://[::1]:7", "::1", "7", false},  {"relp://h", "h", "2514", false},
        {"relp://[::1]", "::1", "2514", false}, {"relp://[::1]x:7", "", "", false},
        {"relp://[::1", "", "", false},         {"relp://:7", "", "", false},
        {"relp://h:", "", "", false},           {"relp://h:7/x", "", "", false},
        {"http://h:7", "", "", false},          {"h:7", "", "", false},
    };
    for (const auto& one : cases) {
        ZEBUServer server;
        const bool good = ZEBU_ParseServer(one.url, &server);
        EXPECT_EQ(good, *one.host != '\0') << one.url;
        if (good) {
            EXPECT_EQ(server.strHost + " " + server.strPort, std::string(one.host) + " " + one.port)
                << one.url;
            EXPECT_EQ(server.bTls, one.tls) << one.url;
        }
    }
}

TEST_F(Relp, Messages)
{
    ZEBUSeverities severities;
    EXPECT_EQ(
        std::make_tuple(severities.of("WARN"), severities.of("E"), severities.of("x"), severities.of("")),
        std::make_tuple(4, 3, 6, 6));
    for (const char* bad : {"E", "E=9", "=err", "E=err,W", "E=error"})
        EXPECT_FALSE(severities.parse(bad)) << bad;
    EXPECT_TRUE(severities.parse("X=crit,Y=7,*=notice"));
    EXPECT_EQ(std::make_tuple(severities.of("X"), severities.of("Y"), severities.of("E")),
              std::make_tuple(2, 7, 5));

    ZEBUMessage message;
    message.iSeverity = 6;
    EXPECT_EQ(ZEBU_FormatMessage(message, 1024), "<134>1 - - - - - [zebu2@32473] ");
    message = {.iSeverity = 3,
               .svTime = "2026-11-22T10:00:00.123+01:00",
               .svHost = "h",
               .svApp = "my app",
               .svPid = "7",
               .svId = "NET-17\x01",
               .svTid = "a\"]\\",
               .svType = "E",
               .svCounter = "12",
               .svSource = "/t/r",
               .svText = "0012 text \xC3\xA9\n"};
    EXPECT_EQ(
        ZEBU_FormatMessage(message, 1024),
        "<131>1 2026-11-22T10:00:00.123+01:00 h my_app 7 NET-17_ [zebu2@32473 source=\"/t/r\" counter=\"12\" "
        "tid=\"a\\\"\\]\\\\\" type=\"E\"] 0012 text \xC3\xA9\n");
    const std::string text(3000, 'x');
    message.svText = text;
    const std::string cut = ZEBU_FormatMessage(message, 1024);
    EXPECT_LE(cut.size(), 1024u);
    EXPECT_GE(cut.size(), 1020u);
    const auto kept = std::count(cut.begin() + static_cast<long>(cut.find("] ")), cut.end(), 'x');
    EXPECT_TRUE(cut.ends_with("x [" + std::to_string(3000 - kept) + " bytes cut off]")) << cut;
}
} // namespace
