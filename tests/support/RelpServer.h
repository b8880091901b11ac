// tests/support/RelpServer.h -- a RELP server on the loopback that behaves as a test tells it.
#ifndef ZEBU_TESTS_SUPPORT_RELPSERVER_H
#define ZEBU_TESTS_SUPPORT_RELPSERVER_H

#include <openssl/ssl.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

// One connection, as the server sees it.
class RelpSession
{
public:
    struct Frame
    {
        std::string number, command, data;
    };

    RelpSession(int fd, SSL* tls) : m_fd(fd), m_tls(tls) {}

    // The next frame; false when the client is gone.
    bool next(Frame* frame);
    void send(const std::string& bytes);
    void answer(const Frame& frame, const std::string& text);

private:
    bool fill();

    const int m_fd;
    SSL* const m_tls;
    std::string m_input;
};

class RelpServer
{
public:
    // What happens in connection 1, 2, ...; the connection is closed when it returns.
    using Script = std::function<void(RelpSession&, int connection)>;

    // With TLS the certificate is made out to a name; without a script the server does what it should.
    explicit RelpServer(Script script = {}, const std::string& name = "");
    ~RelpServer();
    RelpServer(const RelpServer&) = delete;
    RelpServer& operator=(const RelpServer&) = delete;

    // Answers every frame with 200, and counts the messages.
    void serve(RelpSession& session);
    bool open(RelpSession& session); // the first frame
    void take(RelpSession& session, const RelpSession::Frame& frame);

    int port() const { return m_port; }
    // How often each message was acknowledged, by its text behind the structured data.
    std::map<std::string, int> seen() const;
    std::string certificate() const { return m_pem; } // PEM, its own authority
    // With TLS: only clients that have the server's own certificate.
    void demandCertificate();
    std::string key() const { return m_keyPem; }

private:
    void makeCertificate(const std::string& name);
    void run();
    void connection(int fd, int number);

    const Script m_script;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_tls;
    std::string m_pem, m_keyPem;
    int m_listener, m_port = 0, m_current = -1;
    mutable std::mutex m_mutex;
    std::map<std::string, int> m_seen;
    std::thread m_thread;
};

#endif
