// bench/HandShared.h -- by hand: a ring of files that several processes share, each of them mapped, with the
// place of the next line in a small mapped file that is locked for every line.
#ifndef ZEBU_BENCH_HANDSHARED_H
#define ZEBU_BENCH_HANDSHARED_H

#include <stddef.h>
#include <stdint.h>

#include <string>

class HandShared
{
public:
    // Makes all files, or joins those that are there.
    // With `bCheckLength` a line also asks for the length of the mapped file, as the library must: somebody
    // may have cut it.
    HandShared(const std::string& prefix, long lSize, uint32_t uCount, bool bCheckLength = false);
    ~HandShared();
    HandShared(const HandShared&) = delete;
    HandShared& operator=(const HandShared&) = delete;

    // Looks for the small file, locks it, stores the line with an end mark behind it, and unlocks.
    void put(const char* pLine, size_t uLength);
    // True when the next line of that length opens the next file.
    bool full(size_t uLength) const;

private:
    struct Record
    {
        uint32_t uOffset, uCurrent;
    };
    void lock() const;
    void moveOn();
    void openCurrent();
    void closeCurrent();
    std::string fileName(uint32_t uNumber) const { return m_prefix + std::to_string(uNumber) + ".log"; }

    std::string m_prefix;
    std::string m_manageName;
    size_t m_size;
    uint32_t m_count;
    bool m_checkLength;
    int m_manageFd;
    Record* m_record;
    int m_fd = -1;
    char* m_map = nullptr;
    uint32_t m_current = 0;
};

#endif
