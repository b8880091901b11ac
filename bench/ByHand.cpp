#include "ByHand.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

const char* const cs_pszText = "The quick brown fox jumps over the lazy dog, "
                               "then rests for a while beside the old stone wall again.";

pthread_mutex_t HandMutex::cs_mutex = PTHREAD_MUTEX_INITIALIZER;

[[noreturn]] static void fail(const char* pszWhat)
{
    perror(pszWhat);
    exit(2);
}

// ---- The line ------------------------------------------------------------------------------------

namespace {

struct Context
{
    char szLine[4188];
    char szThread[10];
    char szSecond[21];
    time_t lSecond;
};

std::atomic<unsigned int> cs_uCount;
char cs_szName[] = "bench           ";
char cs_szProcess[10];

} // namespace

static thread_local Context* cs_pContext;

static Context* context()
{
    if (!cs_pContext) {
        cs_pContext = static_cast<Context*>(calloc(1, sizeof(Context)));
        (void)snprintf(cs_pContext->szThread, sizeof cs_pContext->szThread, "%08X ",
                       static_cast<unsigned int>(pthread_self()));
        (void)snprintf(cs_szProcess, sizeof cs_szProcess, "%08X ", static_cast<unsigned int>(getpid()));
    }
    return cs_pContext;
}

static void digits(char* p, unsigned int uValue, int iWidth)
{
    for (int i = iWidth - 1; i >= 0; --i, uValue /= 10)
        p[i] = static_cast<char>('0' + uValue % 10);
}

static void putTime(char* p, Context* pContext)
{
    timeval now;
    gettimeofday(&now, nullptr);
    if (now.tv_sec != pContext->lSecond) {
        tm local;
        localtime_r(&now.tv_sec, &local);
        strftime(pContext->szSecond, sizeof pContext->szSecond, "%Y/%m/%d %H:%M:%S.", &local);
        pContext->lSecond = now.tv_sec;
    }
    memcpy(p, pContext->szSecond, 20);
    digits(p + 20, static_cast<unsigned int>(now.tv_usec / 1000), 3);
}

const char* handLine(const char* pszText, Stamp stamp, size_t* puLength)
{
    Context* pContext = context();
    char* p = pContext->szLine;
    memset(p, ' ', cs_uHandHeader);
    digits(p, cs_uCount.fetch_add(1, std::memory_order_relaxed) % 10000, 4);
    if (stamp == Stamp::Clock)
        putTime(p + 5, pContext);
    else
        memcpy(p + 5, stamp == Stamp::Masked ? "****/**/** **:**:**.***" : "----/--/-- --:--:--.---", 23);
    memcpy(p + 33, cs_szName, 16);
    memcpy(p + 50, cs_szProcess, 9);
    memcpy(p + 59, stamp == Stamp::None ? "-------- " : pContext->szThread, 9);
    const size_t uText = strlen(pszText);
    memcpy(p + cs_uHandHeader, pszText, uText);
    memcpy(p + cs_uHandHeader + uText, "\r\n", 3);
    *puLength = cs_uHandHeader + uText + 2;
    return p;
}

// ---- The area ------------------------------------------------------------------------------------

HandArea::HandArea(const std::string& path, uint32_t uSize) : m_length(uSize)
{
    const int iFd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    struct stat info;
    if (iFd == -1 || fstat(iFd, &info) != 0)
        fail(path.c_str());
    const bool bNew = info.st_size == 0;
    if (bNew && posix_fallocate(iFd, 0, static_cast<off_t>(m_length)) != 0)
        fail(path.c_str());
    void* p = mmap(nullptr, m_length, PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
    (void)close(iFd);
    if (p == MAP_FAILED)
        fail(path.c_str());
    m_header = static_cast<Header*>(p);
    if (bNew)
        m_header->uSize = uSize - static_cast<uint32_t>(sizeof(Header));
}

HandArea::~HandArea()
{
    (void)munmap(m_header, m_length);
}

void HandArea::drain()
{
    __atomic_store_n(&m_header->uRead, __atomic_load_n(&m_header->uWrite, __ATOMIC_ACQUIRE),
                     __ATOMIC_RELEASE);
}

void HandArea::append(const char* pData, uint32_t uLength)
{
    const uint32_t uSize = m_header->uSize;
    const uint32_t uWrite = m_header->uWrite;
    const uint32_t uRead = __atomic_load_n(&m_header->uRead, __ATOMIC_ACQUIRE);
    const uint32_t uRoom = uRead > uWrite ? uRead - uWrite : uRead + (uSize - uWrite);
    if (uLength >= uRoom)
        return;
    char* pRing = reinterpret_cast<char*>(m_header + 1);
    const uint32_t uToEnd = uSize - uWrite;
    if (uLength <= uToEnd) {
        memcpy(pRing + uWrite, pData, uLength);
    } else {
        memcpy(pRing + uWrite, pData, uToEnd);
        memcpy(pRing, pData + uToEnd, uLength - uToEnd);
    }
    const uint32_t uNext = uLength <= uToEnd ? uWrite + uLength : uLength - uToEnd;
    __atomic_store_n(&m_header->uWrite, uNext, __ATOMIC_RELEASE);
}

void HandArea::appendGuarded(const char* pData, uint32_t uLength)
{
    uint32_t uSeen = 0;
    while (!__atomic_compare_exchange_n(&m_header->uGuard, &uSeen, 1u, false, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED))
        uSeen = 0;
    append(pData, uLength);
    uSeen = 1;
    __atomic_compare_exchange_n(&m_header->uGuard, &uSeen, 0u, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED);
}

// ---- The ring of files ---------------------------------------------------------------------------

HandRing::HandRing(const std::string& prefix, long lMax, int iCount)
    : m_prefix(prefix), m_max(lMax), m_count(iCount)
{
    open();
}

HandRing::~HandRing()
{
    (void)close(m_fd);
}

// The calls of a file that is begun, in the order in which the library makes them.
void HandRing::open()
{
    const std::string name = m_prefix + std::to_string(m_number) + ".log";
    struct stat info;
    const bool bNew = stat(name.c_str(), &info) != 0;
    m_fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (bNew)
        (void)fchmod(m_fd, 0666);
    static char szHeader[280];
    memset(szHeader, '*', sizeof szHeader);
    if (m_fd == -1 || lockf(m_fd, F_TLOCK, 0) != 0 || ftruncate(m_fd, 0) != 0 ||
        write(m_fd, szHeader, sizeof szHeader) != sizeof szHeader)
        fail(name.c_str());
    m_size = sizeof szHeader;
}

void HandRing::moveOn()
{
    (void)lockf(m_fd, F_ULOCK, 0);
    (void)close(m_fd);
    m_number = m_number % m_count + 1;
    open();
}

void HandRing::put(const char* pLine, size_t uLength)
{
    if (full())
        moveOn();
    if (write(m_fd, pLine, uLength) != static_cast<ssize_t>(uLength))
        fail("write");
    m_size += static_cast<long>(uLength);
}
