// tools/forward/Connection.h -- a TCP connection that never waits, plain or with TLS.
//
// Each step does what can be done now. Its caller polls fd() for events() between the steps, and gives up
// when that takes too long. A peer that is gone is an error like any other: no signal is raised.
#ifndef ZEBU_TOOLS_FORWARD_CONNECTION_H
#define ZEBU_TOOLS_FORWARD_CONNECTION_H

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>

struct addrinfo;

struct ZEBUServer
{
    std::string strHost;
    std::string strPort;
    bool bTls = false;
    std::string strCaFile;      // empty: the authorities of the system
    std::string strCertificate; // of this client, with its key; empty: none
    std::string strKey;
    bool bCheckName = true; // the certificate must be one of strHost
};

// Cuts relp://HOST:PORT or relps://HOST:PORT; the port may be left out (2514), an IPv6 address stands in
// brackets. False when it is neither.
bool ZEBU_ParseServer(const std::string& strUrl, ZEBUServer* pServer);

enum class ZEBUStep { Done, Wait, Failed };

class ZEBUConnection
{
public:
    // `pTls`: null for a plain connection.
    ZEBUConnection(const ZEBUServer& server, SSL_CTX* pTls);
    ~ZEBUConnection();
    ZEBUConnection(const ZEBUConnection&) = delete;
    ZEBUConnection& operator=(const ZEBUConnection&) = delete;

    // Goes on until the connection stands (Done). Looking up the name of the server waits.
    ZEBUStep connect();

    // Once it stands: at most so many bytes; with Done at least one.
    ZEBUStep read(char* pBuffer, size_t uSize, size_t* puRead);
    ZEBUStep write(std::string_view svBytes, size_t* puWritten);

    // Tells a TLS peer that this is the end.
    void shutdown();

    int fd() const { return m_iFd; }
    // What the last steps wait for.
    short events() const { return static_cast<short>(m_sReadEvents | m_sWriteEvents); }
    // Why a step failed.
    const std::string& error() const { return m_strError; }

private:
    ZEBUStep fail(const std::string& strError);
    ZEBUStep connectTcp();
    ZEBUStep startConnect();
    ZEBUStep connectTls();
    ZEBUStep tlsResult(int iResult, short* psEvents);
    void closeFd();

    const ZEBUServer& m_server;
    std::unique_ptr<addrinfo, void (*)(addrinfo*)> m_pAddresses;
    const addrinfo* m_pNext = nullptr; // the address to be tried after this one
    int m_iFd = -1;
    short m_sReadEvents = 0;   // what a read waits for; with TLS that can be to write
    short m_sWriteEvents = 0;  // what connecting or a write waits for
    bool m_bConnected = false; // as TCP
    SSL_CTX* const m_pTls;
    std::unique_ptr<SSL, void (*)(SSL*)> m_pSession;
    std::string m_strError;
};

// The settings of TLS, read from the files that the server names. Null when one cannot be used, and why.
std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> ZEBU_MakeTls(const ZEBUServer& server, std::string* pstrError);

#endif
