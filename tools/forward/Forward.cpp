#include "tools/forward/Forward.h"

#include <algorithm>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "tools/forward/Input.h"
#include "tools/forward/Lines.h"
#include "tools/Output.h"

namespace {
constexpr ZEBUClock cs_lEndTime = 5000; // for what is on its way when the user ends the program
constexpr unsigned cs_uHardEnd = 6;     // seconds: a look-up of the server's name may hang for longer
constexpr ZEBUClock cs_lSaveInterval = 200;
constexpr size_t cs_uSaveLines = 1000;
constexpr ZEBUClock cs_lFirstLook = 1; // after a record a source may have more soon
constexpr size_t cs_uTurn = 64;        // records of one source before the next one has its turn

int cs_iWake = -1;
volatile sig_atomic_t cs_bSignalled = 0;

void fs_onEndSignal(int)
{
    const uint64_t uOne = 1;
    cs_bSignalled = 1;
    (void)alarm(cs_uHardEnd);
    (void)!write(cs_iWake, &uOne, sizeof uOne);
}

// What is delivered is safe, and what is not comes again.
void fs_onHardEnd(int)
{
    _exit(0);
}

void fs_endOnSignals()
{
    cs_iWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = fs_onEndSignal;
    (void)sigaction(SIGTERM, &action, nullptr);
    (void)sigaction(SIGINT, &action, nullptr);
    action.sa_handler = fs_onHardEnd;
    (void)sigaction(SIGALRM, &action, nullptr);
}

std::string fs_directory(const std::string& strFile)
{
    const size_t uSlash = strFile.rfind('/');
    return uSlash == strFile.npos ? "." : strFile.substr(0, uSlash + 1);
}

class ZEBUForward
{
public:
    ZEBUForward(const ZEBUForwardOptions& options, SSL_CTX* pTls);
    void run();

private:
    struct Entry
    {
        std::unique_ptr<ZEBUInput> pInput;
        ZEBUClock lLook = 0; // the next time
        ZEBUClock lPause = 0;
    };

    void read(ZEBUClock lNow);
    bool readOne(Entry& entry, ZEBUClock lNow);
    void deliver(size_t uLines);
    void save(ZEBUClock lNow);
    ZEBUClock wakeTime() const;
    void pause(ZEBUClock lUntil) const;

    const ZEBUForwardOptions& m_options;
    ZEBULines m_lines;
    ZEBUCursor m_cursor;
    ZEBURelp m_relp;
    std::vector<Entry> m_entries;
    size_t m_uTurn = 0;             // the entry whose turn it is
    std::deque<ZEBUInput*> m_onWay; // whose record each message on its way is
    size_t m_uUnsaved = 0;
    ZEBUClock m_lSave = 0; // when the cursor may be saved again
    std::string m_strTold; // why it cannot be
};

ZEBUForward::ZEBUForward(const ZEBUForwardOptions& options, SSL_CTX* pTls)
    : m_options(options), m_lines(options.lines), m_relp(options.relp, pTls, ZEBU_ForwardSay)
{
    if (!options.strCursor.empty()) {
        std::string strError = m_cursor.load(options.strCursor);
        if (strError.empty() && access(fs_directory(options.strCursor).c_str(), W_OK | X_OK) != 0)
            strError = options.strCursor + ": " + strerror(errno); // not after the first lines were sent
        if (!strError.empty())
            throw ZEBUFailure{strError};
    }
    for (const std::string& strSource : options.sources)
        m_entries.push_back(
            {std::make_unique<ZEBURingInput>(strSource, options.bWait, ZEBU_ForwardSay, m_cursor), 0, 0});
    if (!options.strArea.empty())
        m_entries.push_back(
            {std::make_unique<ZEBUAreaInput>(options.strArea, options.bWait, ZEBU_ForwardSay), 0, 0});
}

void ZEBUForward::run()
{
    ZEBUClock lEnd = -1; // not known yet
    for (;;) {
        const ZEBUClock lNow = ZEBU_Clock();
        if (cs_bSignalled && lEnd < 0)
            lEnd = lNow + cs_lEndTime;
        if (lEnd >= 0 && (m_relp.isEmpty() || lNow >= lEnd))
            break;
        if (lEnd < 0)
            read(lNow);
        const size_t uDelivered = m_relp.advance(lNow);
        deliver(uDelivered);
        save(lNow);
        if (uDelivered == 0)
            pause(lEnd < 0 ? wakeTime() : lEnd);
    }
    m_lSave = 0;
    save(ZEBU_Clock());
    m_relp.close(ZEBU_Clock());
    while ((void)m_relp.advance(ZEBU_Clock()), !m_relp.isClosed() && ZEBU_Clock() < lEnd)
        pause(lEnd);
}

// Every source that may have something has its turn, as long as there is room.
void ZEBUForward::read(ZEBUClock lNow)
{
    for (size_t uIdle = 0; uIdle < m_entries.size() && m_relp.hasRoom(); ++uIdle) {
        Entry& entry = m_entries[m_uTurn++ % m_entries.size()];
        if (entry.lLook <= lNow && readOne(entry, lNow))
            uIdle = 0;
    }
}

// Returns whether there was anything.
bool ZEBUForward::readOne(Entry& entry, ZEBUClock lNow)
{
    ZEBURecord record;
    for (size_t u = 0; u < cs_uTurn && m_relp.hasRoom(); ++u) {
        if (entry.pInput->next(&record) != ZEBUNext::Record) {
            entry.lPause = std::clamp<ZEBUClock>(2 * entry.lPause, cs_lFirstLook, m_options.iInterval);
            entry.lLook = lNow + entry.lPause;
            return u > 0;
        }
        entry.lPause = 0;
        if (record.eKind == ZEBURecordKind::Header)
            continue;
        m_relp.add(m_lines.message(record, *entry.pInput));
        entry.pInput->sent();
        m_onWay.push_back(entry.pInput.get());
    }
    return true;
}

void ZEBUForward::deliver(size_t uLines)
{
    for (m_uUnsaved += uLines; uLines > 0; --uLines) {
        m_onWay.front()->delivered();
        m_onWay.pop_front();
    }
}

void ZEBUForward::save(ZEBUClock lNow)
{
    if (m_options.strCursor.empty() || m_uUnsaved == 0 || (m_uUnsaved < cs_uSaveLines && lNow < m_lSave))
        return;
    const std::string strError = m_cursor.save();
    if (!strError.empty() && strError != m_strTold)
        ZEBU_ForwardSay(strError);
    m_strTold = strError;
    m_uUnsaved = 0;
    m_lSave = lNow + cs_lSaveInterval;
}

// When there is something to do though the server is silent; -1: never.
ZEBUClock ZEBUForward::wakeTime() const
{
    ZEBUClock lWake = m_relp.wakeTime();
    const auto sooner = [&](ZEBUClock lTime) { lWake = lWake < 0 ? lTime : std::min(lWake, lTime); };
    if (m_uUnsaved > 0)
        sooner(m_lSave);
    if (m_relp.hasRoom())
        for (const Entry& entry : m_entries)
            sooner(entry.lLook);
    return lWake;
}

// Waits for the server, a signal, or a time.
void ZEBUForward::pause(ZEBUClock lUntil) const
{
    pollfd ready[] = {{.fd = cs_iWake, .events = POLLIN, .revents = 0},
                      {.fd = m_relp.fd(), .events = m_relp.events(), .revents = 0}};
    const ZEBUClock lWait = lUntil < 0 ? -1 : std::max<ZEBUClock>(lUntil - ZEBU_Clock(), 0);
    (void)poll(ready, 2, static_cast<int>(lWait));
    uint64_t uCount = 0;
    (void)!::read(cs_iWake, &uCount, sizeof uCount);
}
} // namespace

void ZEBU_ForwardSay(const std::string& strText)
{
    const std::string strLine = "zebu2-forward: " + ZEBU_Escaped(strText) + "\n";
    (void)!write(STDERR_FILENO, strLine.data(), strLine.size());
}

void ZEBU_Forward(const ZEBUForwardOptions& options)
{
    std::string strError;
    const auto pTls = ZEBU_MakeTls(options.relp.server, &strError);
    if (options.relp.server.bTls && !pTls)
        throw ZEBUFailure{strError};
    fs_endOnSignals();
    ZEBUForward(options, options.relp.server.bTls ? pTls.get() : nullptr).run();
}
