#include "tools/forward/Connection.h"

#include <errno.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr char cs_szStandardPort[] = "2514";

bool ZEBU_ParseServer(const std::string& strUrl, ZEBUServer* pServer)
{
    const size_t uScheme = strUrl.find("://");
    const std::string strScheme = strUrl.substr(0, uScheme);
    if (uScheme == strUrl.npos || (strScheme != "relp" && strScheme != "relps"))
        return false;
    pServer->bTls = strScheme == "relps";
    const std::string strRest = strUrl.substr(uScheme + 3);
    const size_t uBracket = strRest.starts_with('[') ? strRest.find(']') : 0;
    if (uBracket == strRest.npos)
        return false;
    const size_t uColon = strRest.find(':', uBracket);
    pServer->strHost = uBracket > 0 ? strRest.substr(1, uBracket - 1) : strRest.substr(0, uColon);
    pServer->strPort = uColon == strRest.npos ? cs_szStandardPort : strRest.substr(uColon + 1);
    const bool bClosed = uBracket == 0 || uBracket + 1 == std::min(uColon, strRest.size());
    return bClosed && !pServer->strHost.empty() && !pServer->strPort.empty() &&
           pServer->strPort.find_first_not_of("0123456789") == std::string::npos;
}

ZEBUConnection::ZEBUConnection(const ZEBUServer& server, SSL_CTX* pTls)
    : m_server(server), m_pAddresses(nullptr, freeaddrinfo), m_pTls(pTls), m_pSession(nullptr, SSL_free)
{
}

ZEBUConnection::~ZEBUConnection()
{
    closeFd();
}

void ZEBUConnection::closeFd()
{
    if (m_iFd >= 0)
        (void)close(m_iFd);
    m_iFd = -1;
}

ZEBUStep ZEBUConnection::fail(const std::string& strError)
{
    m_strError = strError;
    return ZEBUStep::Failed;
}

ZEBUStep ZEBUConnection::connect()
{
    if (!m_pAddresses) {
        addrinfo hints = {};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* pFound = nullptr;
        const int iError = getaddrinfo(m_server.strHost.c_str(), m_server.strPort.c_str(), &hints, &pFound);
        if (iError != 0)
            return fail(iError == EAI_SYSTEM ? strerror(errno) : gai_strerror(iError));
        m_pAddresses.reset(pFound);
        m_pNext = pFound;
    }
    if (!m_bConnected) {
        const ZEBUStep eStep = connectTcp();
        if (eStep != ZEBUStep::Done)
            return eStep;
        m_bConnected = true;
    }
    return m_pTls ? connectTls() : ZEBUStep::Done;
}

// Tries one address after the other.
ZEBUStep ZEBUConnection::connectTcp()
{
    for (;;) {
        if (m_iFd < 0) {
            if (!m_pNext)
                return ZEBUStep::Failed;
            if (startConnect() == ZEBUStep::Failed) {
                closeFd();
                continue;
            }
        }
        pollfd ready = {.fd = m_iFd, .events = POLLOUT, .revents = 0};
        if (poll(&ready, 1, 0) <= 0)
            return ZEBUStep::Wait;
        int iError = 0;
        socklen_t uLength = sizeof iError;
        if (getsockopt(m_iFd, SOL_SOCKET, SO_ERROR, &iError, &uLength) != 0)
            iError = errno;
        if (iError == 0)
            return ZEBUStep::Done;
        (void)fail(strerror(iError));
        closeFd();
    }
}

ZEBUStep ZEBUConnection::startConnect()
{
    const addrinfo& address = *m_pNext;
    m_pNext = address.ai_next;
    m_iFd = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, address.ai_protocol);
    if (m_iFd < 0)
        return fail(strerror(errno));
    // A server that vanished is noticed on an idle connection too.
    const int iOn = 1;
    (void)setsockopt(m_iFd, SOL_SOCKET, SO_KEEPALIVE, &iOn, sizeof iOn);
    (void)setsockopt(m_iFd, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof iOn);
    m_sWriteEvents = POLLOUT;
    if (::connect(m_iFd, address.ai_addr, address.ai_addrlen) != 0 && errno != EINPROGRESS)
        return fail(strerror(errno));
    return ZEBUStep::Wait;
}

ZEBUStep ZEBUConnection::read(char* pBuffer, size_t uSize, size_t* puRead)
{
    *puRead = 0;
    if (m_pSession) {
        ERR_clear_error();
        errno = 0;
        return tlsResult(SSL_read_ex(m_pSession.get(), pBuffer, uSize, puRead), &m_sReadEvents);
    }
    m_sReadEvents = POLLIN;
    const ssize_t iRead = recv(m_iFd, pBuffer, uSize, 0);
    if (iRead == 0)
        return fail("closed the connection");
    if (iRead < 0)
        return errno == EAGAIN || errno == EINTR ? ZEBUStep::Wait : fail(strerror(errno));
    *puRead = static_cast<size_t>(iRead);
    return ZEBUStep::Done;
}

ZEBUStep ZEBUConnection::write(std::string_view svBytes, size_t* puWritten)
{
    *puWritten = 0;
    if (m_pSession) {
        ERR_clear_error();
        errno = 0;
        return tlsResult(SSL_write_ex(m_pSession.get(), svBytes.data(), svBytes.size(), puWritten),
                         &m_sWriteEvents);
    }
    const ssize_t iWritten = send(m_iFd, svBytes.data(), svBytes.size(), MSG_NOSIGNAL);
    const bool bWait = iWritten < 0 && (errno == EAGAIN || errno == EINTR);
    m_sWriteEvents = bWait ? POLLOUT : 0;
    if (iWritten < 0)
        return bWait ? ZEBUStep::Wait : fail(strerror(errno));
    *puWritten = static_cast<size_t>(iWritten);
    return ZEBUStep::Done;
}
