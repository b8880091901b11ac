#include "tools/forward/Window.h"

#include <algorithm>
#include <time.h>

static constexpr size_t cs_uBytesMax = size_t{2} * 1024 * 1024;

ZEBUClock ZEBU_Clock()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}

bool ZEBUWindow::hasRoom() const
{
    return m_entries.size() < m_uMessages && m_uBytes < cs_uBytesMax;
}

void ZEBUWindow::add(std::string strMessage)
{
    m_uBytes += strMessage.size();
    m_entries.push_back({.strMessage = std::move(strMessage)});
}

const ZEBUWindow::Entry* ZEBUWindow::next(unsigned uNumber, ZEBUClock lNow)
{
    const auto isDue = [&](const Entry& entry) {
        return entry.eState == Entry::Waiting || (entry.eState == Entry::Refused && entry.lRetry <= lNow);
    };
    const auto uFrom = static_cast<std::ptrdiff_t>(m_uRefused > 0 ? 0 : m_uNext);
    const auto found = std::find_if(m_entries.begin() + uFrom, m_entries.end(), isDue);
    if (found == m_entries.end() || found->eState == Entry::Waiting)
        m_uNext = static_cast<size_t>(found - m_entries.begin());
    if (found == m_entries.end())
        return nullptr;
    if (found->eState == Entry::Refused)
        --m_uRefused;
    found->eState = Entry::Sent;
    found->uNumber = uNumber;
    ++m_uSent;
    return &*found;
}

ZEBUClock ZEBUWindow::retryTime() const
{
    ZEBUClock lTime = -1;
    for (const Entry& entry : m_entries) {
        if (m_uRefused == 0)
            break;
        if (entry.eState == Entry::Refused && (lTime < 0 || entry.lRetry < lTime))
            lTime = entry.lRetry;
    }
    return lTime;
}

// Answers come in order as a rule: then it is the first one.
ZEBUWindow::Entry* ZEBUWindow::sent(unsigned uNumber)
{
    const auto found = std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry) {
        return entry.eState == Entry::Sent && entry.uNumber == uNumber;
    });
    return found == m_entries.end() ? nullptr : &*found;
}

void ZEBUWindow::acknowledge(Entry* pEntry)
{
    pEntry->eState = Entry::Acknowledged;
    --m_uSent;
}

void ZEBUWindow::refuse(Entry* pEntry, ZEBUClock lNow)
{
    pEntry->eState = Entry::Refused;
    pEntry->lRetry = lNow + pEntry->lPause;
    pEntry->lPause = ZEBU_NextPause(pEntry->lPause);
    --m_uSent;
    ++m_uRefused;
}

void ZEBUWindow::disconnected()
{
    for (Entry& entry : m_entries)
        if (entry.eState == Entry::Sent)
            entry.eState = Entry::Waiting;
    m_uSent = m_uNext = 0;
}

size_t ZEBUWindow::takeDelivered()
{
    size_t uDelivered = 0;
    for (; !m_entries.empty() && m_entries.front().eState == Entry::Acknowledged; ++uDelivered) {
        m_uBytes -= m_entries.front().strMessage.size();
        m_entries.pop_front();
    }
    m_uNext -= std::min(m_uNext, uDelivered);
    return uDelivered;
}
