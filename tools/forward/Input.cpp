#include "tools/forward/Input.h"

#include <errno.h>
#include <string.h>
#include <utility>

#include "tools/Output.h"

ZEBUInput::ZEBUInput(std::string strName, bool bWait, ZEBUWarn warnUser)
    : m_strName(std::move(strName)), m_bWait(bWait), m_warn(std::move(warnUser))
{
}

ZEBUNext ZEBUInput::next(ZEBURecord* pRecord)
{
    if (m_pRecords)
        return read(pRecord);
    const std::string strError = open();
    if (strError.empty()) {
        if (!m_strTold.empty())
            warn()(m_strName + ": is there");
        m_strTold.clear();
        return read(pRecord);
    }
    if (!m_bWait)
        throw ZEBUFailure{strError};
    if (strError != m_strTold)
        warn()(strError + "; waiting");
    m_strTold = strError;
    return ZEBUNext::Idle;
}

ZEBURingInput::ZEBURingInput(const std::string& strName, bool bWait, const ZEBUWarn& warnUser,
                             ZEBUCursor& cursor)
    : ZEBUInput(strName, bWait, warnUser), m_cursor(cursor)
{
}

std::string ZEBURingInput::open()
{
    int iErrno = 0;
    auto pSource = ZEBU_OpenSource(name(), true, warn(), &iErrno, m_cursor.find(name()));
    if (!pSource)
        return name() + ": " + strerror(iErrno);
    m_pRecords = std::make_unique<ZEBURecords>(std::move(pSource));
    return "";
}

void ZEBURingInput::delivered()
{
    if (m_places.front().uOffset > 0) // behind a loss there may be no place yet
        m_cursor.set(name(), m_places.front());
    m_places.pop_front();
}

ZEBUAreaInput::ZEBUAreaInput(const std::string& strPath, bool bWait, const ZEBUWarn& warnUser)
    : ZEBUInput(strPath, bWait, warnUser)
{
}

std::string ZEBUAreaInput::open()
{
    const int iErrno = m_area.open(name(), true);
    if (iErrno != 0)
        return name() + ": " + (iErrno == EINVAL ? "is no trace area" : strerror(iErrno));
    if (!m_area.lock())
        return name() + " is drained by another process";
    // As one who only looks: the source gives nothing back, delivered() does.
    auto pSource = std::make_unique<ZEBUAreaSource>(m_area, false, true, warn());
    m_pSource = pSource.get();
    m_pRecords = std::make_unique<ZEBURecords>(std::move(pSource), true);
    m_uTaken = 0;
    ++m_uOpened;
    return "";
}

// A batch is what was unread at one moment; behind it comes the next, or another area.
ZEBUNext ZEBUAreaInput::read(ZEBURecord* pRecord)
{
    ZEBUNext eNext = m_pRecords->next(pRecord);
    if (eNext == ZEBUNext::Idle && m_pSource->finishBatch()) {
        m_uTaken = 0;
        eNext = m_pRecords->next(pRecord);
    }
    if (eNext == ZEBUNext::Record) {
        m_uTaken += pRecord->svBytes.size();
        m_uPlace = m_pSource->placeInBatch(m_uTaken);
    } else if (m_area.isReplaced()) {
        m_pRecords.reset();
    }
    return eNext;
}

// An area that was made anew in place has other offsets: there the line is no more.
void ZEBUAreaInput::delivered()
{
    const Place place = m_places.front();
    m_places.pop_front();
    ZEBUAreaOffsets offsets;
    if (place.uOpened == m_uOpened && m_area.load(&offsets) &&
        offsets.distance(offsets.uRead, place.uOffset) <= offsets.unread())
        m_area.release(place.uOffset);
}
