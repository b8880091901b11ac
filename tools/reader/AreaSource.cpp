// tools/reader/AreaSource.cpp -- the trace area in batches.
#include <algorithm>

#include "tools/reader/Area.h"

ZEBUAreaSource::ZEBUAreaSource(ZEBUArea& area, bool bConsume, bool bFollow, const ZEBUWarn& warnUser)
    : ZEBUSource(warnUser), m_area(area), m_bConsume(bConsume), m_bFollow(bFollow)
{
}

ZEBURead ZEBUAreaSource::read(char* pBuffer, size_t uSize, size_t* puRead)
{
    *puRead = 0;
    if (m_eBatch == Read || (m_eBatch == NoBatch && !startBatch()))
        return m_bFollow ? ZEBURead::Idle : ZEBURead::End;
    const size_t uBytes = std::min<size_t>(uSize, m_offsets.distance(m_uNext, m_offsets.uWrite));
    m_area.copy(m_offsets, m_uNext, pBuffer, uBytes);
    ZEBUAreaOffsets now;
    if (!m_bConsume && (!m_area.load(&now) || !isUnread(now))) {
        m_eBatch = Read; // the consumer was faster, and the bytes may be those of other lines by now
        return ZEBURead::Gap;
    }
    if (uBytes == 0) {
        m_eBatch = Read;
        return ZEBURead::FileEnd;
    }
    m_uNext = m_offsets.behind(m_uNext, uBytes);
    *puRead = uBytes;
    return ZEBURead::Bytes;
}

bool ZEBUAreaSource::finishBatch()
{
    if (m_eBatch == NoBatch)
        return false;
    if (m_bConsume)
        m_area.release(m_uNext);
    m_eBatch = NoBatch;
    return true;
}

bool ZEBUAreaSource::startBatch()
{
    ZEBUAreaOffsets offsets;
    const bool bDamaged = !m_area.load(&offsets);
    if (bDamaged && !m_bDamaged)
        warn(m_area.path() + ": the header of the trace area is damaged");
    m_bDamaged = bDamaged;
    if (bDamaged)
        return false;
    m_offsets = offsets;
    if (!m_bStarted || !isUnread(offsets))
        m_uNext = offsets.uRead;
    m_bStarted = true;
    if (offsets.distance(m_uNext, offsets.uWrite) == 0)
        return false;
    m_uBatch = m_uNext;
    m_eBatch = Reading;
    return true;
}

// Whether the place that was read up to lies between the offsets.
bool ZEBUAreaSource::isUnread(const ZEBUAreaOffsets& offsets) const
{
    return offsets.uDataSize == m_offsets.uDataSize &&
           offsets.distance(offsets.uRead, m_uNext) <= offsets.unread();
}
