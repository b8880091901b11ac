#include "support/RelpServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/Check.h"

bool RelpSession::fill()
{
    char block[4096];
    const ssize_t got = m_tls ? SSL_read(m_tls, block, sizeof block) : recv(m_fd, block, sizeof block, 0);
    if (got > 0)
        m_input.append(block, static_cast<size_t>(got));
    return got > 0;
}

bool RelpSession::next(Frame* frame)
{
    const auto word = [&](std::string* out, const char* ends) {
        size_t end;
        while ((end = m_input.find_first_of(ends)) == std::string::npos)
            if (!fill())
                return false;
        *out = m_input.substr(0, end);
        m_input.erase(0, end + (m_input[end] == ' '));
        return true;
    };
    std::string length;
    if (!word(&frame->number, " ") || !word(&frame->command, " ") || !word(&length, " \n"))
        return false;
    const size_t size = std::stoul(length);
    while (m_input.size() <= size)
        if (!fill())
            return false;
    frame->data = m_input.substr(0, size);
    CHECK(m_input[size] == '\n');
    m_input.erase(0, size + 1);
    return true;
}

void RelpSession::send(const std::string& bytes)
{
    if (m_tls)
        (void)SSL_write(m_tls, bytes.data(), static_cast<int>(bytes.size()));
    else
        (void)::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void RelpSession::answer(const Frame& frame, const std::string& text)
{
    send(frame.number + " rsp " + std::to_string(text.size()) + " " + text + "\n");
}

RelpServer::RelpServer(Script script, const std::string& name)
    : m_script(std::move(script)), m_tls(nullptr, SSL_CTX_free),
      m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (!name.empty())
        makeCertificate(name);
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* any = reinterpret_cast<sockaddr*>(&address);
    CHECK(bind(m_listener, any, length) == 0 && listen(m_listener, 8) == 0);
    CHECK(getsockname(m_listener, any, &length) == 0);
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

RelpServer::~RelpServer()
{
    (void)shutdown(m_listener, SHUT_RDWR);
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_current >= 0)
            (void)shutdown(m_current, SHUT_RDWR);
    }
    m_thread.join();
    (void)close(m_listener);
}

// A certificate that vouches for itself.
void RelpServer::makeCertificate(const std::string& name)
{
    std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    std::unique_ptr<X509, void (*)(X509*)> cert(X509_new(), X509_free);
    X509_NAME* subject = X509_get_subject_name(cert.get());
    (void)X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    (void)X509_set_issuer_name(cert.get(), subject);
    (void)X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    (void)X509_gmtime_adj(X509_getm_notAfter(cert.get()), 3600);
    (void)X509_set_pubkey(cert.get(), key.get());
    const std::string alternative = (isdigit(name[0]) ? "IP:" : "DNS:") + name;
    std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION*)> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternative.c_str()),
        X509_EXTENSION_free);
    (void)X509_add_ext(cert.get(), extension.get(), -1);
    CHECK(X509_set_version(cert.get(), 2) == 1 && X509_sign(cert.get(), key.get(), EVP_sha256()) > 0);

    m_tls.reset(SSL_CTX_new(TLS_server_method()));
    CHECK(SSL_CTX_use_certificate(m_tls.get(), cert.get()) == 1);
    CHECK(SSL_CTX_use_PrivateKey(m_tls.get(), key.get()) == 1);
    CHECK(X509_STORE_add_cert(SSL_CTX_get_cert_store(m_tls.get()), cert.get()) == 1);
    const auto text = [](const std::function<int(BIO*)>& write) {
        std::unique_ptr<BIO, int (*)(BIO*)> memory(BIO_new(BIO_s_mem()), BIO_free);
        CHECK(write(memory.get()) == 1);
        char* bytes = nullptr;
        const long size = BIO_get_mem_data(memory.get(), &bytes);
        return std::string(bytes, static_cast<size_t>(size));
    };
    m_pem = text([&](BIO* out) { return PEM_write_bio_X509(out, cert.get()); });
    m_keyPem = text([&](BIO* out) {
        return PEM_write_bio_PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

void RelpServer::demandCertificate()
{
    SSL_CTX_set_verify(m_tls.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
}

void RelpServer::run()
{
    int fd;
    for (int number = 1; (fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; ++number) {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_current = fd;
        }
        const int on = 1;
        (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        connection(fd, number);
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_current = -1;
        (void)close(fd);
    }
}

void RelpServer::connection(int fd, int number)
{
    std::unique_ptr<SSL, void (*)(SSL*)> tls(m_tls ? SSL_new(m_tls.get()) : nullptr, SSL_free);
    if (tls && (SSL_set_fd(tls.get(), fd) != 1 || SSL_accept(tls.get()) != 1))
        return;
    RelpSession session(fd, tls.get());
    if (m_script)
        m_script(session, number);
    else if (open(session))
        serve(session);
    // What the client still sent is read: else the kernel would throw away what it was sent.
    (void)shutdown(fd, SHUT_WR);
    char block[4096];
    while (recv(fd, block, sizeof block, 0) > 0)
        ;
}

bool RelpServer::open(RelpSession& session)
{
    RelpSession::Frame frame;
    if (!session.next(&frame))
        return false;
    CHECK(frame.number == "1" && frame.command == "open");
    session.answer(frame, "200 OK\nrelp_version=0\ncommands=syslog");
    return true;
}

void RelpServer::serve(RelpSession& session)
{
    RelpSession::Frame frame;
    while (session.next(&frame) && frame.command == "syslog")
        take(session, frame);
    if (frame.command == "close")
        session.send(frame.number + " rsp 0\n");
}

void RelpServer::take(RelpSession& session, const RelpSession::Frame& frame)
{
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
