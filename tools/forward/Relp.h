// tools/forward/Relp.h -- a client of a RELP server: delivers messages, and knows which were acknowledged.
//
// It never waits. Its user adds messages while there is room, polls fd() for events() until wakeTime(), and
// calls advance(). Whatever happens to the connection, it is made anew after a pause that grows until the
// server acknowledges something, and what was not acknowledged is sent again.
#ifndef ZEBU_TOOLS_FORWARD_RELP_H
#define ZEBU_TOOLS_FORWARD_RELP_H

#include <functional>
#include <optional>
#include <string>

#include "tools/forward/Connection.h"
#include "tools/forward/Frame.h"
#include "tools/forward/Window.h"

struct ZEBURelpOptions
{
    ZEBUServer server;
    size_t uWindow = 128;        // messages that may wait for their acknowledgement
    ZEBUClock lTimeout = 30'000; // without a sign of life of a server that owes one
    bool bSkipRefused = false;   // a message that the server refuses counts as delivered
};

class ZEBURelp
{
public:
    using Say = std::function<void(const std::string&)>;

    // `pTls`: for a server with TLS, else null. `say` is told what a user should know.
    ZEBURelp(const ZEBURelpOptions& options, SSL_CTX* pTls, Say say);

    bool hasRoom() const { return m_window.hasRoom(); }
    void add(std::string strMessage) { m_window.add(std::move(strMessage)); }
    // Whether everything that was added is delivered.
    bool isEmpty() const { return m_window.isEmpty(); }

    // Does what can be done now. Returns how many more messages are delivered, in the order of add().
    size_t advance(ZEBUClock lNow);

    // Begins to close the connection: nothing more will be added or sent. isClosed() when the server agreed,
    // or when there is none to ask.
    void close(ZEBUClock lNow);
    bool isClosed() const { return m_eState == Closed; }

    int fd() const { return m_connection ? m_connection->fd() : -1; }
    short events() const { return m_connection ? m_connection->events() : static_cast<short>(0); }
    // When advance() has something to do though nothing came; -1: never.
    ZEBUClock wakeTime() const;

private:
    enum State { Down, Connecting, Opening, Up, Closing, Closed };

    void connect(ZEBUClock lNow);
    void drop(const std::string& strWhy, ZEBUClock lNow);
    void receive(ZEBUClock lNow);
    void takeFrames(ZEBUClock lNow);
    std::string onFrame(const ZEBUFrame& frame, ZEBUClock lNow);
    std::string onOpened(const ZEBUFrame& frame);
    void onAnswer(ZEBUWindow::Entry* pEntry, std::string_view svAnswer, ZEBUClock lNow);
    void send(ZEBUClock lNow);
    void fillOutput(ZEBUClock lNow);
    unsigned nextNumber() const { return m_uNumber == ZEBU_FRAME_NUMBER_MAX ? 1 : m_uNumber + 1; }
    void command(std::string_view svCommand, std::string_view svData);
    bool isOpen() const { return m_eState == Opening || m_eState == Up || m_eState == Closing; }
    bool owesAnswer() const { return m_eState != Up || m_window.hasSent(); }

    const ZEBURelpOptions& m_options;
    SSL_CTX* const m_pTls;
    const Say m_say;
    const std::string m_strName; // of the server, for messages
    ZEBUWindow m_window;
    std::optional<ZEBUConnection> m_connection;
    State m_eState = Down;
    unsigned m_uNumber = 0; // of the last command
    std::string m_strInput; // that is no whole frame yet
    std::string m_strOutput;
    ZEBUClock m_lHeard = 0;   // when the server last gave a sign, or began to owe one
    ZEBUClock m_lAttempt = 0; // while Down: when to connect
    ZEBUClock m_lPause = ZEBU_PAUSE_FIRST;
    bool m_bTold = false; // the user knows of a trouble
};

#endif
