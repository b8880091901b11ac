// bench/ByHand.h -- the library's work written straight into the benchmark: the same line, a mutex, the
// destination, and nothing for failures. What remains of a put beyond it is the price of being a library.
#ifndef ZEBU_BENCH_BYHAND_H
#define ZEBU_BENCH_BYHAND_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>

constexpr size_t cs_uHandHeader = 68;
constexpr size_t cs_uHandText = 100;
constexpr size_t cs_uHandLine = cs_uHandHeader + cs_uHandText + 2;

// The text that every row writes, NUL-terminated.
extern const char* const cs_pszText;

enum class Stamp { Clock, Masked, None };

// Builds a line with `pszText` in the calling thread's buffer. Returns the buffer.
const char* handLine(const char* pszText, Stamp stamp, size_t* puLength);

class HandMutex
{
public:
    HandMutex() { pthread_mutex_lock(&cs_mutex); }
    ~HandMutex() { pthread_mutex_unlock(&cs_mutex); }
    HandMutex(const HandMutex&) = delete;
    HandMutex& operator=(const HandMutex&) = delete;

private:
    static pthread_mutex_t cs_mutex;
};

// A byte ring in a mapped file, with the layout of the trace area.
class HandArea
{
public:
    // Makes the file, or maps one that is there.
    HandArea(const std::string& path, uint32_t uSize);
    ~HandArea();
    HandArea(const HandArea&) = delete;
    HandArea& operator=(const HandArea&) = delete;

    void append(const char* pData, uint32_t uLength);
    // The same between two compare-and-swaps on a word beside the offset, as processes need it.
    void appendGuarded(const char* pData, uint32_t uLength);
    // What a consumer does: everything has been read.
    void drain();

private:
    struct Header
    {
        uint32_t uMagic, uReserved, uSize, uRead, uWrite, uGuard;
    };
    Header* m_header;
    size_t m_length;
};

// A ring of files of one process.
class HandRing
{
public:
    HandRing(const std::string& prefix, long lMax, int iCount);
    ~HandRing();
    HandRing(const HandRing&) = delete;
    HandRing& operator=(const HandRing&) = delete;

    void put(const char* pLine, size_t uLength);
    // Leaves the file for the next one, which is emptied and begun with `uHeader` bytes.
    void moveOn();
    bool full() const { return m_size > m_max; }

private:
    std::string m_prefix;
    long m_max;
    long m_size = 0;
    int m_count;
    int m_number = 1;
    int m_fd = -1;
    void open();
};

#endif
