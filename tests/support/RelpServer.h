// tests/support/RelpServer.h -- a RELP server on the loopback that behaves as a test tells it.
#ifndef ZEBU_TESTS_SUPPORT_RELPSERVER_H
#define ZEBU_TESTS_SUPPORT_RELPSERVER_H

#include <openssl/ssl.h>

#include <mutex>

#include "support/Sandbox.h"

class RelpServer
{
public:
    // What happens in the first connection, or in each, step by step; in the others, or without steps, the
    // server does what it should. The steps:
    //   open            takes the first frame and agrees
    //   next, take      reads a frame; acknowledges it
    //   reverse N       reads N frames, and acknowledges them from the last one on
    //   answer TEXT     answers the frame with that
    //   send BYTES      sends that
    //   read            reads on until the client is gone
    //   serve           goes on as it should
    enum Which { FIRST, EACH };
    explicit RelpServer(Lines steps = {}, Which eWhich = FIRST) : RelpServer("", "", std::move(steps), eWhich)
    {
    }
    // With TLS: the certificate is made out to a name, in files that begin with a path.
    RelpServer(const std::string& name, const std::string& files, Lines steps = {}, Which eWhich = FIRST);
    ~RelpServer();
    RelpServer(const RelpServer&) = delete;
    RelpServer& operator=(const RelpServer&) = delete;

    int port() const { return m_iPort; }
    // How often each message was acknowledged, by its text behind the structured data.
    std::map<std::string, int> seen() const;
    // With TLS: only clients that have the server's own certificate.
    void demandCertificate();
    // A message that is refused, each time.
    void refuse(const std::string& message) { m_refused = message; }
    int refusals() const { return m_iRefusals; }

private:
    struct Frame
    {
        std::string number, command, data;
    };
    class Session;

    void run();
    void serve(Session& session);
    void play(Session& session);
    void take(Session& session, const Frame& frame);

    const Lines m_steps;
    const Which m_eWhich;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_tls;
    int m_iListener, m_iPort = 0, m_iCurrent = -1;
    std::string m_refused;
    std::atomic<int> m_iRefusals{0};
    mutable std::mutex m_mutex;
    std::map<std::string, int> m_seen;
    std::thread m_thread;
};

#endif
