// tests/support/AreaConsumer.h -- the reader of the trace area, and messages it can tell whole from torn.
#ifndef ZEBU_TESTS_SUPPORT_AREACONSUMER_H
#define ZEBU_TESTS_SUPPORT_AREACONSUMER_H

#include "support/Sandbox.h"

// In tests that run single instructions, which are written for one processor. The thread sanitizer has
// thousands of its own beside each instruction, and delivers signals later.
#if defined(__SANITIZE_THREAD__) || !defined(__x86_64__)
#define SKIP_SINGLE_STEPS() GTEST_SKIP() << "no single steps here"
#else
#define SKIP_SINGLE_STEPS() (void)0
#endif

// "sender number filler": how long the filler is follows from the number.
std::string areaMessage(const std::string& sender, int iNumber);
// "sender number" of a whole message; empty when it is torn.
std::string areaSender(const std::string& message);

// Maps an area of the default size.
class AreaConsumer
{
public:
    explicit AreaConsumer(const std::string& file);

    // Takes out and counts the lines that are there.
    void drain();
    void count(const std::string& line);
    // Drains: so many messages were there since the last time, once each and whole.
    void expectSeen(size_t uCount);
    // True when more bytes than that are free. Safe in a signal handler.
    bool hasRoom(uint32_t uBytes) const;
    // Puts a message once the area has room for it.
    void put(const std::string& sender, int iNumber) const;

    void* map() const { return m_pHeader; }
    // The word beside the write offset. Safe in a signal handler.
    uint32_t guard() const { return __atomic_load_n(&m_pHeader->uGuard, __ATOMIC_ACQUIRE); }
    void setGuard(uint32_t uGuard) const { __atomic_store_n(&m_pHeader->uGuard, uGuard, __ATOMIC_RELEASE); }

    std::map<std::string, int> m_seen; // "sender number", how often
    int m_iTorn = 0;
    int m_iBlank = 0; // in place of a writer that was passed over

private:
    AreaHeader* m_pHeader;
    std::string m_rest;
};

#endif
