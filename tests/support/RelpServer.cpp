#include "support/RelpServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

// One connection.
class RelpServer::Session
{
public:
    Session(int iFd, SSL* pTls) : m_iFd(iFd), m_pTls(pTls) {}

    // The next frame; false when the client is gone.
    bool next(Frame* pFrame)
    {
        std::string length;
        if (!word(&pFrame->number, " ") || !word(&pFrame->command, " ") || !word(&length, " \n"))
            return false;
        const size_t uSize = std::stoul(length);
        while (m_input.size() <= uSize)
            if (!fill())
                return false;
        pFrame->data = m_input.substr(0, uSize);
        CHECK(m_input[uSize] == '\n');
        m_input.erase(0, uSize + 1);
        return true;
    }
    void send(const std::string& bytes)
    {
        if (m_pTls)
            (void)SSL_write(m_pTls, bytes.data(), static_cast<int>(bytes.size()));
        else
            (void)::send(m_iFd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void answer(const Frame& frame, const std::string& text)
    {
        send(frame.number + " rsp " + std::to_string(text.size()) + " " + text + "\n");
    }
    bool open()
    {
        Frame frame;
        if (!next(&frame))
            return false;
        CHECK(frame.number == "1" && frame.command == "open");
        answer(frame, "200 OK\nrelp_version=0\ncommands=syslog");
        return true;
    }

private:
    bool fill()
    {
        char block[4096];
        const ssize_t lGot =
            m_pTls ? SSL_read(m_pTls, block, sizeof block) : recv(m_iFd, block, sizeof block, 0);
        if (lGot > 0)
            m_input.append(block, static_cast<size_t>(lGot));
        return lGot > 0;
    }
    bool word(std::string* pWord, const char* pszEnds)
    {
        size_t uEnd;
        while ((uEnd = m_input.find_first_of(pszEnds)) == std::string::npos)
            if (!fill())
                return false;
        *pWord = m_input.substr(0, uEnd);
        m_input.erase(0, uEnd + (m_input[uEnd] == ' '));
        return true;
    }

    const int m_iFd;
    SSL* const m_pTls;
    std::string m_input;
};

RelpServer::RelpServer(const std::string& name, const std::string& files, Lines steps, Which eWhich)
    : m_steps(std::move(steps)), m_eWhich(eWhich), m_tls(nullptr, SSL_CTX_free),
      m_iListener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (!name.empty()) { // a certificate that vouches for itself
        const std::string key = files + "key.pem", cert = files + "cert.pem";
        CHECK(system(("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=" +
                      name + " -addext subjectAltName=" + (isdigit(name[0]) ? "IP:" : "DNS:") + name +
                      " -keyout " + key + " -out " + cert + " 2> /dev/null")
                         .c_str()) == 0);
        m_tls.reset(SSL_CTX_new(TLS_server_method()));
        CHECK(SSL_CTX_use_certificate_file(m_tls.get(), cert.c_str(), SSL_FILETYPE_PEM) == 1);
        CHECK(SSL_CTX_use_PrivateKey_file(m_tls.get(), key.c_str(), SSL_FILETYPE_PEM) == 1);
        CHECK(SSL_CTX_load_verify_locations(m_tls.get(), cert.c_str(), nullptr) == 1);
    }
    sockaddr_in address = {};
    socklen_t uLength = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* pAny = reinterpret_cast<sockaddr*>(&address);
    CHECK(bind(m_iListener, pAny, uLength) == 0 && listen(m_iListener, 8) == 0);
    CHECK(getsockname(m_iListener, pAny, &uLength) == 0);
    m_iPort = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

RelpServer::~RelpServer()
{
    (void)shutdown(m_iListener, SHUT_RDWR);
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_iCurrent >= 0)
            (void)shutdown(m_iCurrent, SHUT_RDWR);
    }
    m_thread.join();
    (void)close(m_iListener);
}

void RelpServer::demandCertificate()
{
    SSL_CTX_set_verify(m_tls.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
}

void RelpServer::run()
{
    int iFd;
    for (bool bFirst = true; (iFd = accept4(m_iListener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;
         bFirst = false) {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_iCurrent = iFd;
        }
        const int iOn = 1;
        (void)setsockopt(iFd, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof iOn);
        const std::unique_ptr<SSL, void (*)(SSL*)> tls(m_tls ? SSL_new(m_tls.get()) : nullptr, SSL_free);
        if (!tls || (SSL_set_fd(tls.get(), iFd) == 1 && SSL_accept(tls.get()) == 1)) {
            Session session(iFd, tls.get());
            if (!m_steps.empty() && (bFirst || m_eWhich == EACH))
                play(session);
            else if (session.open())
                serve(session);
            // What the client still sent is read: else the kernel would throw away what it was sent.
            (void)shutdown(iFd, SHUT_WR);
            char block[4096];
            while (recv(iFd, block, sizeof block, 0) > 0)
                ;
        }
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_iCurrent = -1;
        (void)close(iFd);
    }
}

void RelpServer::play(Session& session)
{
    Frame frame;
    for (const std::string& step : m_steps) {
        const std::string verb = step.substr(0, step.find(' '));
        const std::string text = step.substr(std::min(step.size(), verb.size() + 1));
        if (verb == "open" ? !session.open() : verb == "next" && !session.next(&frame))
            return;
        if (verb == "take")
            take(session, frame);
        if (verb == "answer")
            session.answer(frame, text);
        if (verb == "send")
            session.send(text);
        if (verb == "serve")
            serve(session);
        while (verb == "read" && session.next(&frame))
            ;
        std::vector<Frame> frames(verb == "reverse" ? std::stoul(text) : 0);
        for (Frame& each : frames)
            CHECK(session.next(&each));
        for (; !frames.empty(); frames.pop_back())
            take(session, frames.back());
    }
}

void RelpServer::serve(Session& session)
{
    Frame frame;
    while (session.next(&frame) && frame.command == "syslog")
        take(session, frame);
    if (frame.command == "close")
        session.send(frame.number + " rsp 0\n");
}

void RelpServer::take(Session& session, const Frame& frame)
{
    if (frame.data == m_refused) {
        ++m_iRefusals;
        session.answer(frame, "500 not this one");
        return;
    }
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        ++m_seen[frame.data];
    }
    session.answer(frame, "200 OK");
}

std::map<std::string, int> RelpServer::seen() const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_seen;
}
