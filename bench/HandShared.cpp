#include "HandShared.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

static const char cs_szMark[] = "\x1A<--------------- end of the data -------------->";
constexpr size_t cs_uMark = 48;
static_assert(sizeof cs_szMark >= cs_uMark);

[[noreturn]] static void fail(const std::string& what)
{
    perror(what.c_str());
    exit(2);
}

// In a directory of its own, as the library keeps it: looking for it walks one level more.
static std::string managementName(const std::string& prefix)
{
    const size_t uSlash = prefix.rfind('/');
    const std::string directory = prefix.substr(0, uSlash) + "/mmap";
    (void)mkdir(directory.c_str(), 0777);
    return directory + prefix.substr(uSlash) + ".mm";
}

HandShared::HandShared(const std::string& prefix, long lSize, uint32_t uCount, bool bCheckLength)
    : m_prefix(prefix), m_manageName(managementName(prefix)), m_size(static_cast<size_t>(lSize)),
      m_count(uCount), m_checkLength(bCheckLength)
{
    m_manageFd = open(m_manageName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    struct stat info;
    if (m_manageFd == -1 || fstat(m_manageFd, &info) != 0 || ftruncate(m_manageFd, 64) != 0)
        fail(m_manageName);
    void* p = mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, m_manageFd, 0);
    if (p == MAP_FAILED)
        fail(m_manageName);
    m_record = static_cast<Record*>(p);
    for (uint32_t n = 1; info.st_size == 0 && n <= uCount; ++n)
        std::ofstream(fileName(n)) << std::string(m_size, ' ');
    if (info.st_size == 0)
        m_record->uCurrent = 1;
    openCurrent();
}

HandShared::~HandShared()
{
    closeCurrent();
    (void)munmap(m_record, 64);
    (void)close(m_manageFd);
}

void HandShared::openCurrent()
{
    m_current = m_record->uCurrent;
    const std::string name = fileName(m_current);
    m_fd = open(name.c_str(), O_RDWR | O_CLOEXEC);
    struct stat info;
    if (m_fd == -1 || fstat(m_fd, &info) != 0)
        fail(name);
    (void)futimens(m_fd, nullptr);
    void* p = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, m_fd, 0);
    if (p == MAP_FAILED)
        fail(name);
    m_map = static_cast<char*>(p);
}

void HandShared::closeCurrent()
{
    (void)munmap(m_map, m_size);
    (void)futimens(m_fd, nullptr);
    (void)close(m_fd);
}

// Never waits in the kernel, and tries again at once: the library's own lock does so with a wait of 0.
void HandShared::lock() const
{
    while (lockf(m_manageFd, F_TLOCK, 0) != 0)
        (void)usleep(0);
}

bool HandShared::full(size_t uLength) const
{
    return m_record->uOffset + uLength + cs_uMark > m_size;
}

void HandShared::moveOn()
{
    static char szHeader[280];
    memset(szHeader, '*', sizeof szHeader);
    m_record->uCurrent = m_record->uCurrent % m_count + 1;
    closeCurrent();
    openCurrent();
    memcpy(m_map, szHeader, sizeof szHeader);
    m_record->uOffset = sizeof szHeader;
}

void HandShared::put(const char* pLine, size_t uLength)
{
    struct stat info;
    if (stat(m_manageName.c_str(), &info) != 0)
        fail(m_manageName);
    lock();
    if (full(uLength)) {
        moveOn();
    } else if (m_record->uCurrent != m_current) {
        closeCurrent();
        openCurrent();
    }
    if (m_checkLength && (fstat(m_fd, &info) != 0 || info.st_size < static_cast<off_t>(m_size)))
        fail(m_prefix);
    char* p = m_map + m_record->uOffset;
    memcpy(p, pLine, uLength);
    memcpy(p + uLength, cs_szMark, cs_uMark);
    m_record->uOffset += static_cast<uint32_t>(uLength);
    (void)lockf(m_manageFd, F_ULOCK, 0);
}
