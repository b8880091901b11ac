// tests/support/AreaConsumer.h -- the reader of the trace area, and messages it can tell whole from torn.
#ifndef ZEBU_TESTS_SUPPORT_AREACONSUMER_H
#define ZEBU_TESTS_SUPPORT_AREACONSUMER_H

#include <map>
#include <string>

#include "support/Sandbox.h"

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
    // True when more bytes than that are free. Safe in a signal handler.
    bool hasRoom(uint32_t uBytes) const;
    // Puts a message once the area has room for it.
    void put(const std::string& sender, int iNumber) const;

    std::map<std::string, int> m_seen; // "sender number", how often
    int m_torn = 0;

private:
    AreaHeader* m_pHeader;
    std::string m_rest;
};

#endif
