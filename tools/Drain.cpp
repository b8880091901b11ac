// tools/Drain.cpp -- the consumer of the trace area.
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>
#include <utility>

#include "tools/reader/Area.h"
#include "tools/Verbs.h"

namespace {
// A fast writer fills the default area in less than a millisecond.
constexpr long cs_lShortestPause = 100; // microseconds

std::string fs_hostName()
{
    char szName[HOST_NAME_MAX + 1] = "";
    (void)gethostname(szName, sizeof szName - 1);
    return szName;
}

class ZEBUDrain
{
public:
    explicit ZEBUDrain(const ZEBUDrainOptions& options);
    int run();

private:
    std::string openArea();
    bool printBatch();

    const ZEBUDrainOptions& m_options;
    const ZEBUFilter m_filter;
    ZEBUOutput m_output;
    const std::string m_strPath;
    const std::string m_strHost; // the area is this host's
    ZEBUArea m_area;
    ZEBUAreaSource* m_pSource = nullptr; // owned by m_pRecords
    std::unique_ptr<ZEBURecords> m_pRecords;
    long m_lTaken = 0; // lines that were not shown
    bool m_bShown = false;
    bool m_bLastShown = false;
};

ZEBUDrain::ZEBUDrain(const ZEBUDrainOptions& options)
    : m_options(options), m_filter(options.filter),
      m_output(options.eFormat, options.eColor, options.strColumns),
      m_strPath(options.strArea.empty() ? ZEBU_ConfiguredArea() : options.strArea), m_strHost(fs_hostName())
{
}

// Returns what is wrong, or an empty text.
std::string ZEBUDrain::openArea()
{
    const int iErrno = m_area.open(m_strPath, !m_options.bPeek);
    if (iErrno != 0)
        return m_strPath + ": " + (iErrno == EINVAL ? "is no trace area" : strerror(iErrno));
    if (!m_options.bPeek && !m_area.lock())
        return m_strPath + " is drained by another process";
    auto pSource = std::make_unique<ZEBUAreaSource>(m_area, !m_options.bPeek, m_options.bFollow, ZEBU_Say);
    m_pSource = pSource.get();
    m_pRecords = std::make_unique<ZEBURecords>(std::move(pSource), true);
    return "";
}

// Prints what is unread, and gives it back once it was written. False when there was nothing.
bool ZEBUDrain::printBatch()
{
    ZEBURecord record;
    while (m_pRecords->next(&record) == ZEBUNext::Record) {
        m_bLastShown = m_filter.matches(record, m_bLastShown);
        m_bShown = m_bShown || m_bLastShown;
        m_lTaken += !m_bLastShown && record.eKind == ZEBURecordKind::Line ? 1 : 0;
        if (m_bLastShown)
            m_output.print(record, m_filter.form(), {m_strPath, m_strPath, m_strHost, {}});
    }
    m_output.flush();
    return m_pSource->finishBatch();
}

int ZEBUDrain::run()
{
    const std::string strError = openArea();
    if (!strError.empty())
        throw ZEBUFailure{strError};
    ZEBUPoll poll(m_options.iInterval, cs_lShortestPause);
    while (!ZEBU_IsEnded()) {
        bool bNew = false;
        while (printBatch() && m_options.bFollow && !ZEBU_IsEnded()) // under a burst there is more at once
            bNew = true;
        if (!m_options.bFollow)
            break;
        do
            poll.pause(std::exchange(bNew, false));
        while (m_area.isReplaced() && !openArea().empty() && !ZEBU_IsEnded());
    }
    if (m_lTaken > 0 && !m_options.bPeek)
        ZEBU_Say(std::to_string(m_lTaken) + " lines that did not match were taken out of the area too");
    if (m_pSource->isDamaged())
        return ZEBU_EXIT_ERROR;
    return m_bShown || (m_options.bFollow && ZEBU_IsEnded()) ? ZEBU_EXIT_OK : ZEBU_EXIT_NOTHING;
}
} // namespace

int ZEBU_Drain(const ZEBUDrainOptions& options)
{
    if (options.bFollow)
        ZEBU_EndOnSignals();
    return ZEBUDrain(options).run();
}
