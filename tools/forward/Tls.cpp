// tools/forward/Tls.cpp -- what a connection does with OpenSSL.
#include <arpa/inet.h>
#include <errno.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <string.h>

#include "tools/forward/Connection.h"

namespace {
std::string fs_tlsError()
{
    const unsigned long uError = ERR_get_error();
    ERR_clear_error();
    if (uError == 0)
        return errno != 0 ? strerror(errno) : "closed the connection";
    const char* pszReason = ERR_reason_error_string(uError);
    return std::string("TLS: ") + (pszReason ? pszReason : "unknown error");
}

bool fs_isAddress(const std::string& strHost)
{
    in6_addr address;
    return inet_pton(AF_INET, strHost.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, strHost.c_str(), &address) == 1;
}

// The name is checked by OpenSSL while the connection is made: one that fails carries no byte of ours.
bool fs_expectName(SSL* pSession, const ZEBUServer& server)
{
    const bool bAddress = fs_isAddress(server.strHost);
    if (!bAddress && SSL_set_tlsext_host_name(pSession, server.strHost.c_str()) != 1)
        return false;
    if (!server.bCheckName)
        return true;
    if (bAddress)
        return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(pSession), server.strHost.c_str()) == 1;
    SSL_set_hostflags(pSession, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(pSession, server.strHost.c_str()) == 1;
}
} // namespace

std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> ZEBU_MakeTls(const ZEBUServer& server, std::string* pstrError)
{
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> pTls(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    const auto fail = [&](const std::string& strWhat) {
        *pstrError = strWhat + ": " + fs_tlsError();
        pTls.reset();
        return std::move(pTls);
    };
    errno = 0;
    if (!pTls || SSL_CTX_set_min_proto_version(pTls.get(), TLS1_2_VERSION) != 1)
        return fail("TLS");
    SSL_CTX_set_verify(pTls.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_mode(pTls.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    const int iTrusted = server.strCaFile.empty()
                             ? SSL_CTX_set_default_verify_paths(pTls.get())
                             : SSL_CTX_load_verify_file(pTls.get(), server.strCaFile.c_str());
    if (iTrusted != 1)
        return fail(server.strCaFile);
    if (server.strCertificate.empty())
        return pTls;
    if (SSL_CTX_use_certificate_chain_file(pTls.get(), server.strCertificate.c_str()) != 1)
        return fail(server.strCertificate);
    if (SSL_CTX_use_PrivateKey_file(pTls.get(), server.strKey.c_str(), SSL_FILETYPE_PEM) != 1)
        return fail(server.strKey);
    return pTls;
}

ZEBUStep ZEBUConnection::connectTls()
{
    if (!m_pSession) {
        m_pSession.reset(SSL_new(m_pTls));
        if (!m_pSession || SSL_set_fd(m_pSession.get(), m_iFd) != 1 ||
            !fs_expectName(m_pSession.get(), m_server))
            return fail(fs_tlsError());
    }
    ERR_clear_error();
    errno = 0;
    const ZEBUStep eStep = tlsResult(SSL_connect(m_pSession.get()), &m_sWriteEvents);
    const long lVerified = SSL_get_verify_result(m_pSession.get());
    if (eStep == ZEBUStep::Failed && lVerified != X509_V_OK)
        return fail(std::string("TLS: certificate refused: ") + X509_verify_cert_error_string(lVerified));
    return eStep;
}

// What a call on the session came to; `*psEvents` is what it waits for.
ZEBUStep ZEBUConnection::tlsResult(int iResult, short* psEvents)
{
    const int iWants = iResult > 0 ? SSL_ERROR_NONE : SSL_get_error(m_pSession.get(), iResult);
    *psEvents = 0;
    switch (iWants) {
    case SSL_ERROR_NONE:
        return ZEBUStep::Done;
    case SSL_ERROR_WANT_READ:
        *psEvents = POLLIN;
        return ZEBUStep::Wait;
    case SSL_ERROR_WANT_WRITE:
        *psEvents = POLLOUT;
        return ZEBUStep::Wait;
    case SSL_ERROR_ZERO_RETURN:
        return fail("closed the connection");
    default:
        return fail(fs_tlsError());
    }
}

void ZEBUConnection::shutdown()
{
    if (m_pSession)
        (void)SSL_shutdown(m_pSession.get());
}
