// tools/forward/Window.h -- the messages that are on their way: handed over, not yet acknowledged.
//
// Each is kept until the server acknowledged it and all before it, so that it can be sent again over the next
// connection. Numbers are those of one connection; answers may come in any order.
#ifndef ZEBU_TOOLS_FORWARD_WINDOW_H
#define ZEBU_TOOLS_FORWARD_WINDOW_H

#include <deque>
#include <string>

// Milliseconds of a clock that only goes forward.
using ZEBUClock = long;
ZEBUClock ZEBU_Clock();

constexpr ZEBUClock ZEBU_PAUSE_FIRST = 250; // before the second attempt of anything
constexpr ZEBUClock ZEBU_PAUSE_LAST = 30'000;

// The pause that follows one: it doubles.
constexpr ZEBUClock ZEBU_NextPause(ZEBUClock lPause)
{
    return 2 * lPause < ZEBU_PAUSE_LAST ? 2 * lPause : ZEBU_PAUSE_LAST;
}

class ZEBUWindow
{
public:
    struct Entry
    {
        std::string strMessage;
        enum State { Waiting, Sent, Refused, Acknowledged } eState = Waiting;
        unsigned uNumber = 0;                // while Sent
        ZEBUClock lRetry = 0;                // while Refused: when it is sent again
        ZEBUClock lPause = ZEBU_PAUSE_FIRST; // after the next refusal
    };

    explicit ZEBUWindow(size_t uMessages) : m_uMessages(uMessages) {}

    // At most the number of messages, and some MiB of them.
    bool hasRoom() const;
    void add(std::string strMessage);
    bool isEmpty() const { return m_entries.empty(); }

    // The next one to be sent now, or null. It counts as sent under the number.
    const Entry* next(unsigned uNumber, ZEBUClock lNow);
    // When the next refused one is sent again; -1 without one.
    ZEBUClock retryTime() const;

    // The one that was sent under a number and has no answer yet, or null.
    Entry* sent(unsigned uNumber);
    void acknowledge(Entry* pEntry);
    // It is sent again after its pause.
    void refuse(Entry* pEntry, ZEBUClock lNow);
    bool hasSent() const { return m_uSent > 0; }

    // The connection is gone: what was not acknowledged is sent again.
    void disconnected();

    // Removes what was acknowledged in front, and returns its number.
    size_t takeDelivered();

private:
    const size_t m_uMessages;
    size_t m_uBytes = 0;
    std::deque<Entry> m_entries;
    size_t m_uNext = 0; // no entry before it is Waiting
    size_t m_uSent = 0;
    size_t m_uRefused = 0;
};

#endif
