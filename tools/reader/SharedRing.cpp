// tools/reader/SharedRing.cpp -- the ring that several processes write through mappings.
//
// The record in the management file says where the next line goes. It is read without the writers' lock, so
// it is a claim to be checked: a line may still be on its way into the file, and the ring may move on, or
// come round again, while a file is read.
#include <algorithm>
#include <errno.h>
#include <optional>
#include <sched.h>
#include <stdint.h>
#include <string.h>
#include <utility>

#include "tools/reader/Line.h"
#include "tools/reader/Management.h"
#include "tools/reader/Source.h"
#include "tools/reader/TraceFile.h"

namespace {
constexpr int cs_iPauses = 50; // between such series, before a reader that does not follow gives up

// The time of the first line of a file; nothing when there is no line near its beginning.
std::optional<ZEBUTime> fs_firstTime(const std::string& strPath)
{
    char szBeginning[2048]; // headers may come first
    ZEBUTraceFile file;
    const long lRead = file.open(strPath) == 0 ? file.readAt(0, szBeginning, sizeof szBeginning) : 0;
    const std::string_view svBeginning(szBeginning, static_cast<size_t>(std::max(lRead, 0L)));
    const size_t uLine = ZEBU_FindLineHeader(svBeginning);
    ZEBULine line;
    if (uLine == svBeginning.npos || !ZEBU_ParseLine(svBeginning.substr(uLine), &line))
        return {};
    return line.lTime;
}

// Whether a file is missing, or its data end where they would begin.
bool fs_holdsNothing(const std::string& strPath)
{
    ZEBUTraceFile file;
    const int iErrno = file.open(strPath);
    return iErrno == ENOENT || (iErrno == 0 && file.hasMarkAt(0));
}

class ZEBUSharedRing final : public ZEBUSource
{
public:
    ZEBUSharedRing(const std::string& strPrefix, bool bFollow, const ZEBUWarn& warnUser);
    int open(const ZEBUPlace* pFrom);
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) override;
    const std::string& file() const override { return m_pFile->path(); }
    std::vector<ZEBUSegment> segments() const override;
    void park() override;
    const ZEBUTraceFile* present(unsigned* puNumber) const override
    {
        *puNumber = m_uNumber;
        return m_pFile.get();
    }
    bool hasTimelyHeaders() const override { return true; }

private:
    void start();
    bool findOldest();
    void resume(const ZEBUPlace& from);
    void leave();
    unsigned filesUpToCurrent(unsigned uFrom) const;
    bool lookAround();
    void refresh();
    ZEBURead readRemoved(char* pBuffer, size_t uSize, size_t* puRead);
    bool isPassed(const ZEBUPosition& from, const ZEBUPosition& to) const;
    bool openFile();
    ZEBURead readOld(char* pBuffer, size_t uSize, size_t* puRead);
    std::optional<ZEBURead> readCurrent(char* pBuffer, size_t uSize, size_t* puRead);
    bool isAccepted(const ZEBUTraceFile& file, const ZEBUPosition& claim) const;
    std::optional<ZEBURead> notAccepted();
    bool holdsNewLines() const;
    ZEBURead setBack(unsigned uOffset);
    ZEBURead take(const char* pBuffer, long lRead, size_t* puRead);
    ZEBURead nextFile();
    ZEBURead lost();

    const std::string m_strPrefix;
    const bool m_bFollow;
    ZEBUManagement m_management;
    ZEBURingRecord m_record; // the last valid one, or what the files tell
    ZEBUPosition m_end;      // a reader that does not follow stops here,
    std::string m_strEnd;    // in the file that begins like this until the ring has come round
    ZEBUTraceFile m_endFile;
    bool m_bReplaced = false;   // the management file was, and the new one had no valid record yet
    bool m_bAnew = false;       // the ring was made anew, and the file that is read is of the old one
    unsigned m_uGone = 0;       // the place to go on at is, with lines of so many files
    unsigned m_uNumber = 0;     // of the file that is read
    bool m_bMissed = false;     // it cannot be opened: said once
    bool m_bDistrust = false;   // its offset was never accepted: read it up to its mark,
    size_t m_uLimit = SIZE_MAX; // or up to here
    bool m_bLikeness = false;   // of a text with a mark: said once
    bool m_bAtZero = false;     // the record stands at its beginning, and it has not changed yet
    int m_iWaits = 0;           // for the first line of a file that the ring came round to
    std::unique_ptr<ZEBUTraceFile> m_pFile = std::make_unique<ZEBUTraceFile>();
    std::unique_ptr<ZEBUTraceFile> m_pLast; // the file before it, until the first bytes were read
};

ZEBUSharedRing::ZEBUSharedRing(const std::string& strPrefix, bool bFollow, const ZEBUWarn& warnUser)
    : ZEBUSource(warnUser), m_strPrefix(strPrefix), m_bFollow(bFollow)
{
}

int ZEBUSharedRing::open(const ZEBUPlace* pFrom)
{
    const int iErrno = m_management.open(m_strPrefix);
    m_management.closeDescriptor();
    if (iErrno != 0)
        return iErrno;
    if (!m_management.load(&m_record)) {
        warn(ZEBU_ManagementFileName(m_strPrefix) +
             " holds no valid record: the ring's place is worked out from its files");
        ZEBU_DeriveRecord(m_strPrefix, &m_record);
    }
    start();
    if (pFrom)
        resume(*pFrom);
    return 0;
}

std::vector<ZEBUSegment> ZEBUSharedRing::segments() const
{
    std::vector<ZEBUSegment> segments;
    struct stat info;
    bool bComplete = isAccepted(m_endFile, m_end); // else the last line is not there, and a mark is before it
    for (int i = 0; i < cs_iPauses && !bComplete; ++i) {
        ZEBU_Sleep(ZEBU_LOOK_PAUSE);
        bComplete = isAccepted(m_endFile, m_end);
    }
    for (unsigned u = 0; u < m_record.uFileNum; ++u) {
        const unsigned uFile = (m_end.uFile + u) % m_record.uFileNum + 1;
        const std::string strPath = ZEBU_RingFileName(m_strPrefix, uFile);
        if (stat(strPath.c_str(), &info) == 0)
            segments.push_back({uFile, strPath, m_end.uOffset, uFile != m_end.uFile || !bComplete});
    }
    return segments;
}

void ZEBUSharedRing::park()
{
    m_pFile->park();
    m_endFile.park();
    if (m_pLast)
        m_pLast->park();
}

// Goes on in the file of the place when that still holds what it held then; else begins with the oldest.
void ZEBUSharedRing::resume(const ZEBUPlace& from)
{
    const bool bInRing = from.uFile >= 1 && from.uFile <= m_record.uFileNum;
    if (bInRing && m_pFile->open(ZEBU_RingFileName(m_strPrefix, from.uFile)) == 0 && m_pFile->resume(from)) {
        m_uNumber = from.uFile;
        setResumed();
        return;
    }
    m_pFile->close();
    m_uGone = bInRing ? filesUpToCurrent(from.uFile) : 1;
}

// How many files there are from one on to the current one.
unsigned ZEBUSharedRing::filesUpToCurrent(unsigned uFrom) const
{
    const unsigned uNum = m_record.uFileNum;
    return uFrom > uNum ? 1 : (m_record.position.uFile + uNum - uFrom) % uNum + 1;
}

// Begins with the oldest file, and notes where the ring stands.
void ZEBUSharedRing::start()
{
    bool bTogether = false;
    for (int i = 0; i < ZEBU_LOOKS_MAX && !bTogether; ++i) {
        bTogether = lookAround();
        bTogether = findOldest() && bTogether;
    }
}

// Finds the first file behind the current one that holds anything. In those that a young ring has still to
// come to a reader would seem to be overtaken when it comes. False when the ring moved on meanwhile.
bool ZEBUSharedRing::findOldest()
{
    const auto after = [&](unsigned uFile) { return uFile % m_record.uFileNum + 1; };
    m_uNumber = after(m_end.uFile);
    while (m_uNumber != m_end.uFile && fs_holdsNothing(ZEBU_RingFileName(m_strPrefix, m_uNumber)))
        m_uNumber = after(m_uNumber);
    refresh();
    return m_record.position.uFile == m_end.uFile;
}

// Takes the position with the beginning of the current file, which is the same before and behind it. False
// when they may not go together, or when the ring has just moved on and the file's header is still to come.
bool ZEBUSharedRing::lookAround()
{
    const unsigned uFile = m_record.position.uFile;
    m_strEnd.assign(ZEBU_BEGINNING_MAX, '\0');
    const bool bOpen = m_endFile.open(ZEBU_RingFileName(m_strPrefix, uFile)) == 0;
    const long lRead = bOpen ? m_endFile.readAt(0, m_strEnd.data(), m_strEnd.size()) : 0;
    refresh();
    m_end = m_record.position;
    m_strEnd.resize(std::min<size_t>(static_cast<size_t>(std::max(lRead, 0L)), m_end.uOffset));
    return m_end.uOffset > 0 && m_end.uFile == uFile && m_endFile.beginsWith(m_strEnd);
}

// Takes over the record as it is now. A damaged one is left to the writers, who repair it.
void ZEBUSharedRing::refresh()
{
    if (m_bFollow && m_management.isReplaced()) {
        m_bReplaced = m_management.open(m_strPrefix) == 0 || m_bReplaced;
        m_management.closeDescriptor();
    }
    ZEBURingRecord record;
    if (!m_management.load(&record))
        return;
    m_record = record;
    m_bAnew = m_bAnew || (m_bReplaced && m_pFile->isOpen() && !m_pFile->isNamed());
    m_bReplaced = false;
}

// Whether the ring, on its way between two positions, came to the file that is read.
bool ZEBUSharedRing::isPassed(const ZEBUPosition& from, const ZEBUPosition& to) const
{
    const unsigned uNum = m_record.uFileNum;
    const auto distance = [&](unsigned uFile) { return (uFile + uNum - from.uFile % uNum) % uNum; };
    return m_uNumber != from.uFile && distance(m_uNumber) <= distance(to.uFile);
}

bool ZEBUSharedRing::openFile()
{
    const int iErrno = m_pFile->isOpen() ? 0 : m_pFile->open(ZEBU_RingFileName(m_strPrefix, m_uNumber));
    if (iErrno == 0)
        return true;
    if (!m_bMissed && iErrno != ENOENT)
        fail(m_pFile->path() + ": " + strerror(iErrno));
    else if (!m_bMissed && m_uNumber == m_record.position.uFile)
        warn(m_pFile->path() + ", the current file of the ring, is missing");
    m_bMissed = true;
    return false;
}

ZEBURead ZEBUSharedRing::read(char* pBuffer, size_t uSize, size_t* puRead)
{
    for (;;) {
        *puRead = 0;
        if (m_uGone > 0) {
            warn(m_strPrefix + ": the place to go on at is gone, lines may be missing");
            return gap(std::exchange(m_uGone, 0));
        }
        const ZEBUPosition before = m_record.position;
        refresh();
        if (m_bAnew)
            return readRemoved(pBuffer, uSize, puRead);
        if (m_uNumber > m_record.uFileNum || isPassed(before, m_record.position))
            return lost();
        if (!openFile())
            return nextFile();
        // The ring may come round once or more often between two looks at the record. What is noticed then is
        // that the beginning changes, so that is read first.
        if (m_pFile->offset() == 0)
            uSize = std::min(uSize, ZEBU_BEGINNING_MAX);
        if (m_uNumber != m_record.position.uFile || m_bDistrust)
            return readOld(pBuffer, uSize, puRead);
        const std::optional<ZEBURead> result = readCurrent(pBuffer, uSize, puRead);
        if (result)
            return *result;
    }
}

// A file that the ring has left: complete, until the ring comes round.
ZEBURead ZEBUSharedRing::readOld(char* pBuffer, size_t uSize, size_t* puRead)
{
    const bool bLast = !m_bFollow && m_uNumber == m_end.uFile;
    const size_t uLimit = m_bDistrust ? m_uLimit : bLast ? m_end.uOffset : SIZE_MAX;
    uSize = std::min(uSize, std::max(uLimit, m_pFile->offset()) - m_pFile->offset());
    const long lRead = uSize == 0 ? 0 : m_pFile->readLive(pBuffer, uSize);
    if (m_pFile->sawLikeness() && !std::exchange(m_bLikeness, true))
        warn(m_pFile->path() + ZEBU_LIKENESS_TEXT);
    if (lRead < 0)
        fail(m_pFile->path() + " cannot be read to its end: " + strerror(errno));
    return lRead > 0 ? take(pBuffer, lRead, puRead) : nextFile();
}

// The rest of the file that was read, of a ring that is no more. Nobody writes it, so it is complete.
ZEBURead ZEBUSharedRing::readRemoved(char* pBuffer, size_t uSize, size_t* puRead)
{
    const long lRead = m_pFile->readLive(pBuffer, uSize);
    if (lRead > 0) {
        m_pFile->consume({pBuffer, static_cast<size_t>(lRead)});
        *puRead = static_cast<size_t>(lRead);
        return ZEBURead::Bytes;
    }
    warn(m_strPrefix + " was made anew");
    leave();
    return gap(0);
}

// Nothing means: look again.
std::optional<ZEBURead> ZEBUSharedRing::readCurrent(char* pBuffer, size_t uSize, size_t* puRead)
{
    ZEBUPosition claim = m_record.position;
    if (!m_bFollow && claim.uFile == m_end.uFile && claim.uOffset > m_end.uOffset)
        claim = m_end; // the ring has gone on from there, so the line before it is complete
    const bool bCameRound = claim.uFile == m_end.uFile && m_end.uOffset > 0;
    if (!m_bFollow && claim.uOffset == 0 && (bCameRound || m_pFile->offset() > 0) &&
        m_iWaits++ < cs_iPauses) {
        ZEBU_Sleep(ZEBU_LOOK_PAUSE);
        return {};
    }
    if (claim.uOffset < m_pFile->offset())
        return setBack(claim.uOffset);
    m_bAtZero = false;
    if (claim.uOffset == m_pFile->offset() && !m_pFile->isUnchanged())
        return lost();
    if (claim.uOffset == 0 && m_pFile->offset() == 0 && !m_bFollow && holdsNewLines())
        return notAccepted();
    if (claim.uOffset == m_pFile->offset())
        return m_bFollow ? ZEBURead::Idle : ZEBURead::End;
    if (claim == m_record.position && !isAccepted(*m_pFile, claim))
        return notAccepted();
    const size_t uLeft = claim.uOffset - m_pFile->offset();
    const long lRead = m_pFile->readAt(m_pFile->offset(), pBuffer, std::min(uSize, uLeft));
    if (lRead <= 0)
        return notAccepted();
    refresh();
    if (m_record.position.uFile == claim.uFile &&
        m_record.position.uOffset < m_pFile->offset() + static_cast<size_t>(lRead))
        return {}; // the claim is not true any more
    return take(pBuffer, lRead, puRead);
}

// Takes bytes as read, unless the ring came to their file meanwhile.
ZEBURead ZEBUSharedRing::take(const char* pBuffer, long lRead, size_t* puRead)
{
    const ZEBUPosition before = m_record.position;
    refresh();
    m_pFile->consume({pBuffer, static_cast<size_t>(lRead)});
    const bool bLapped = (!m_bFollow && m_endFile.isOpen() && !m_endFile.beginsWith(m_strEnd)) ||
                         (m_pLast && m_pLast->isOpen() && !m_pLast->isUnchanged());
    if (isPassed(before, m_record.position) || !m_pFile->isUnchanged() || bLapped)
        return lost();
    m_pLast.reset();
    *puRead = static_cast<size_t>(lRead);
    return ZEBURead::Bytes;
}

// Whether the line in front of an offset is complete. It is when the mark stands there behind a line end,
// or when the writers, who come one after another, have gone on from there.
bool ZEBUSharedRing::isAccepted(const ZEBUTraceFile& file, const ZEBUPosition& claim) const
{
    for (int i = 0; i < ZEBU_LOOKS_MAX; ++i) {
        if (file.hasMarkAt(claim.uOffset))
            return true;
        ZEBURingRecord now;
        if (m_management.load(&now) &&
            (now.position.uFile != claim.uFile || now.position.uOffset > claim.uOffset))
            return true;
        (void)sched_yield();
    }
    return false;
}

// A line may be on its way, its writer may have died, or the record is wrong. A reader that follows looks
// again at its next poll; any other waits a little and then shows what stands before the mark, and before
// the offset if that is the start of a line.
std::optional<ZEBURead> ZEBUSharedRing::notAccepted()
{
    if (m_bFollow)
        return ZEBURead::Idle;
    for (int i = 0; i < cs_iPauses; ++i) {
        ZEBU_Sleep(ZEBU_LOOK_PAUSE);
        const ZEBUPosition claim = m_record.position;
        refresh();
        if (m_record.position != claim || m_pFile->hasMarkAt(claim.uOffset))
            return {};
    }
    warn(m_pFile->path() +
         " does not end where the ring's record says: it is shown up to its end-of-data mark");
    m_bDistrust = true;
    const unsigned uOffset = m_record.position.uOffset;
    m_uLimit = uOffset > 0 && m_pFile->isLineStart(uOffset) ? uOffset : SIZE_MAX;
    return {};
}

// Whether a file that should be empty holds lines which are no remains of the ring's last turn: those are
// older than the lines of the file before it.
bool ZEBUSharedRing::holdsNewLines() const
{
    const unsigned uBefore = m_uNumber == 1 ? m_record.uFileNum : m_uNumber - 1;
    const std::optional<ZEBUTime> own = fs_firstTime(m_pFile->path());
    const std::optional<ZEBUTime> before = fs_firstTime(ZEBU_RingFileName(m_strPrefix, uBefore));
    return own && !m_pFile->hasMarkAt(0) && (!before || *own == ZEBU_TIME_NONE || *own >= *before);
}

// The record points before the place that was read: the ring came round and the file's beginning is about
// to change, or a writer worked the record out anew.
ZEBURead ZEBUSharedRing::setBack(unsigned uOffset)
{
    if (!m_pFile->isUnchanged())
        return lost();
    const bool bComesRound = uOffset == 0 && (!m_bAtZero || m_record.uFileNum == 1);
    m_bAtZero = uOffset == 0;
    if (m_bFollow && bComesRound)
        return ZEBURead::Idle;
    warn("the ring was set back to " + std::to_string(uOffset) + " in " + m_pFile->path());
    m_pFile->rewind(uOffset);
    return gap(0);
}

ZEBURead ZEBUSharedRing::nextFile()
{
    if (!m_bFollow && m_uNumber == m_end.uFile)
        return ZEBURead::End;
    if (m_uNumber == m_record.position.uFile)
        return m_bFollow ? ZEBURead::Idle : ZEBURead::End;
    m_pLast = std::exchange(m_pFile, std::make_unique<ZEBUTraceFile>());
    m_bMissed = false;
    m_uNumber = m_uNumber % m_record.uFileNum + 1;
    return ZEBURead::FileEnd;
}

// The ring came round: what it holds now is newer than all that was read, and begins behind the current file.
ZEBURead ZEBUSharedRing::lost()
{
    if (!m_bFollow && !mayRestart(m_strPrefix))
        return ZEBURead::End;
    warn(m_strPrefix + ": the ring overtook the reader, lines were lost");
    const unsigned uFiles = filesUpToCurrent(m_uNumber);
    leave();
    return gap(uFiles);
}

// Begins anew with what the ring holds now.
void ZEBUSharedRing::leave()
{
    m_pFile->close();
    m_pLast.reset();
    m_iWaits = 0;
    m_bMissed = false;
    m_bDistrust = false;
    m_bAtZero = false;
    m_bAnew = false;
    start();
}
} // namespace

std::unique_ptr<ZEBUSource> ZEBU_OpenSharedRing(const std::string& strPrefix, bool bFollow,
                                                const ZEBUWarn& warn, int* piErrno, const ZEBUPlace* pFrom)
{
    auto pSource = std::make_unique<ZEBUSharedRing>(strPrefix, bFollow, warn);
    *piErrno = pSource->open(pFrom);
    return *piErrno == 0 ? std::move(pSource) : nullptr;
}
