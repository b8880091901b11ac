// tools/reader/SingleRing.cpp -- the ring of one process: files that grow, and are emptied to be used again.
//
// Nothing tells the number of files or which one is current, so both come from the directory: the newest
// file is current, and while following, a file that changed since it was left is the next one.
#include <algorithm>
#include <errno.h>
#include <iterator>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <utility>

#include "tools/reader/Line.h"
#include "tools/reader/Management.h"
#include "tools/reader/Source.h"
#include "tools/reader/TraceFile.h"

namespace {
constexpr long cs_lSecondsMax = 9000000000; // of a time in nanoseconds: anybody may set a file's
constexpr int cs_iLookEvery = 1000;         // milliseconds between two looks at all files of a ring

// What shows that a file was written to. Neither its size nor its time need change when a fast ring comes to
// it again, but its first line does.
struct Stamp
{
    ino_t uInode = 0;
    off_t iSize = -1;
    long lModified = 0;     // nanoseconds
    int iFirstCounter = -1; // of the first line, if there is one near the beginning
    ZEBUTime lFirstTime = ZEBU_TIME_NONE;
    bool operator==(const Stamp&) const = default;
};

void fs_stampFirstLine(std::string_view svBeginning, Stamp* pStamp)
{
    ZEBULine line;
    while (!ZEBU_ParseLine(svBeginning, &line)) {
        const size_t uFeed = svBeginning.find('\n');
        if (uFeed == svBeginning.npos)
            return;
        svBeginning.remove_prefix(uFeed + 1);
    }
    pStamp->iFirstCounter = line.iCounter;
    pStamp->lFirstTime = line.lTime;
}

// Whether the lines of one file are later than those of another, as far as their first lines tell. A file
// without a line has just begun.
bool fs_isLater(const Stamp& a, const Stamp& b)
{
    if (a.iFirstCounter < 0 || b.iFirstCounter < 0)
        return a.iFirstCounter < 0 && (b.iFirstCounter >= 0 || a.iSize <= b.iSize);
    if (a.lFirstTime != b.lFirstTime && a.lFirstTime != ZEBU_TIME_NONE && b.lFirstTime != ZEBU_TIME_NONE)
        return a.lFirstTime > b.lFirstTime;
    return (a.iFirstCounter - b.iFirstCounter + 10000) % 10000 < 5000;
}

class ZEBUSingleRing final : public ZEBUSource
{
public:
    ZEBUSingleRing(const std::string& strPrefix, bool bFollow, const ZEBUWarn& warnUser,
                   const ZEBUPlace* pFrom);
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) override;
    const std::string& file() const override { return m_pFile->path(); }
    std::vector<ZEBUSegment> segments() const override;
    void park() override;
    const ZEBUTraceFile* present(unsigned* puNumber) const override
    {
        *puNumber = m_uNumber;
        return m_pFile.get();
    }

private:
    void start();
    void resume(const ZEBUPlace& from);
    unsigned filesUpToNewest(unsigned uFrom) const;
    bool lookAround();
    Stamp stampOf(unsigned uNumber) const;
    unsigned newestFile() const;
    ZEBURead readPresent(char* pBuffer, size_t uSize, size_t* puRead);
    bool isQuiet(const struct stat& now) const;
    bool isReused() const;
    size_t wholeLines(const char* pBuffer, size_t uRead);
    unsigned nextNumber();
    unsigned changedFile();
    void enter(unsigned uNumber);
    ZEBURead lost();
    static unsigned after(unsigned uNumber) { return uNumber % ZEBU_RING_FILES_MAX + 1; }

    const std::string m_strPrefix;
    const bool m_bFollow;
    Stamp m_left[ZEBU_RING_FILES_MAX + 1];      // of each file when it was left, or at the start
    bool m_bRead[ZEBU_RING_FILES_MAX + 1] = {}; // it was read as it is
    unsigned m_uNewest = 0;                     // at the start
    bool m_bMarked = false;                     // an end-of-data mark was seen: said once
    bool m_bCaughtUp = false;                   // that one is reached
    bool m_bIsNewest = false;                   // it is the present one, for the first time
    int m_iWaits = 0;                           // for the rest of a line
    struct stat m_quiet = {};                   // of the present file, when it was read to its end
    long m_lNextLook = 0;                       // at all files
    unsigned m_uGone = 0;                       // the place to go on at is, with lines of so many files
    unsigned m_uNumber = 0;
    std::unique_ptr<ZEBUTraceFile> m_pFile = std::make_unique<ZEBUTraceFile>();
    std::unique_ptr<ZEBUTraceFile> m_pLast; // the file before it, until the first bytes were read
};

ZEBUSingleRing::ZEBUSingleRing(const std::string& strPrefix, bool bFollow, const ZEBUWarn& warnUser,
                               const ZEBUPlace* pFrom)
    : ZEBUSource(warnUser), m_strPrefix(strPrefix), m_bFollow(bFollow)
{
    start();
    if (pFrom)
        resume(*pFrom);
}

std::vector<ZEBUSegment> ZEBUSingleRing::segments() const
{
    std::vector<ZEBUSegment> segments;
    unsigned u = m_uNewest;
    do {
        u = after(u);
        if (m_left[u].iSize >= 0)
            segments.push_back(
                {u, ZEBU_RingFileName(m_strPrefix, u), static_cast<uint64_t>(m_left[u].iSize), false});
    } while (u != m_uNewest);
    return segments;
}

void ZEBUSingleRing::park()
{
    m_pFile->park();
    if (m_pLast)
        m_pLast->park();
}

// Goes on in the file of the place when that still holds what it held then; else begins with the oldest.
void ZEBUSingleRing::resume(const ZEBUPlace& from)
{
    if (from.uFile < 1 || from.uFile > ZEBU_RING_FILES_MAX) {
        m_uGone = 1;
        return;
    }
    m_bCaughtUp = false;
    enter(from.uFile);
    if (m_pFile->isOpen() && m_pFile->resume(from)) {
        setResumed();
        return;
    }
    m_uGone = filesUpToNewest(from.uFile);
    m_pFile->close();
    start();
}

// How many files there are from one on to the newest.
unsigned ZEBUSingleRing::filesUpToNewest(unsigned uFrom) const
{
    unsigned uFiles = 1;
    for (unsigned u = uFrom; u != m_uNewest; u = after(u))
        uFiles += m_left[u].iSize >= 0;
    return uFiles;
}

// Begins with the oldest file that was not read.
void ZEBUSingleRing::start()
{
    Stamp left[ZEBU_RING_FILES_MAX + 1];
    std::copy(std::begin(m_left), std::end(m_left), left);
    for (int i = 0; i < ZEBU_LOOKS_MAX && !lookAround(); ++i)
        continue;
    for (unsigned u = 1; u <= ZEBU_RING_FILES_MAX; ++u)
        m_bRead[u] = m_bRead[u] && m_left[u] == left[u];
    m_bCaughtUp = false;
    m_uNumber = m_uNewest;
    enter(nextNumber());
}

// Takes the stamps of all files. False when one that is not the newest was written to meanwhile, or that one
// was emptied, so that they do not go together; or when its first line is still to come.
bool ZEBUSingleRing::lookAround()
{
    for (unsigned u = 1; u <= ZEBU_RING_FILES_MAX; ++u)
        m_left[u] = stampOf(u);
    m_uNewest = newestFile();
    for (unsigned u = 1; u <= ZEBU_RING_FILES_MAX; ++u) {
        Stamp now = stampOf(u);
        if (u == m_uNewest) {
            now.iSize = m_left[u].iSize;
            now.lModified = m_left[u].lModified;
        }
        if (now != m_left[u])
            return false;
    }
    return m_left[m_uNewest].iFirstCounter >= 0;
}

Stamp ZEBUSingleRing::stampOf(unsigned uNumber) const
{
    const std::string strName = ZEBU_RingFileName(m_strPrefix, uNumber);
    struct stat info;
    if (stat(strName.c_str(), &info) != 0 || ZEBU_IsOfOtherRing(m_strPrefix, uNumber))
        return {};
    Stamp stamp = {.uInode = info.st_ino,
                   .iSize = info.st_size,
                   .lModified =
                       std::clamp(info.st_mtim.tv_sec, -cs_lSecondsMax, cs_lSecondsMax) * 1000000000 +
                       info.st_mtim.tv_nsec};
    char szBeginning[ZEBU_BEGINNING_MAX];
    ZEBUTraceFile file;
    const long lRead = file.open(strName) == 0 ? file.readAt(0, szBeginning, sizeof szBeginning) : -1;
    if (lRead >= 0) {
        fs_stampFirstLine({szBeginning, static_cast<size_t>(lRead)}, &stamp);
    } else { // for want of a descriptor, perhaps: then it is not known to have changed
        stamp.iFirstCounter = m_left[uNumber].iFirstCounter;
        stamp.lFirstTime = m_left[uNumber].lFirstTime;
    }
    return stamp;
}

// The file that was written to last. Files that were left within one tick of the file system's clock show
// the same time: of these it is the one that an older file follows, or in a ring that was filled within one
// tick the one whose lines are the latest.
unsigned ZEBUSingleRing::newestFile() const
{
    unsigned uNewest = 0;
    unsigned uLatest = 0;
    for (unsigned u = 1; u <= ZEBU_RING_FILES_MAX; ++u) {
        if (m_left[u].iSize < 0)
            continue;
        if (uNewest == 0 || m_left[u].lModified >= m_left[uNewest].lModified)
            uNewest = u;
        if (uLatest == 0 || fs_isLater(m_left[u], m_left[uLatest]))
            uLatest = u;
    }
    unsigned uLast = uNewest;
    for (unsigned u = after(uNewest); uNewest != 0 && u != uNewest; u = after(u)) {
        if (m_left[u].iSize < 0)
            continue;
        if (m_left[u].lModified < m_left[uNewest].lModified)
            return uLast;
        uLast = u;
    }
    return std::max(uLatest, 1u);
}

void ZEBUSingleRing::enter(unsigned uNumber)
{
    m_uNumber = uNumber;
    m_quiet = {};
    m_bIsNewest = !m_bCaughtUp && uNumber == m_uNewest;
    m_bCaughtUp = m_bCaughtUp || m_bIsNewest;
    m_pLast = std::exchange(m_pFile, std::make_unique<ZEBUTraceFile>());
    const int iErrno = m_pFile->open(ZEBU_RingFileName(m_strPrefix, uNumber));
    if (iErrno != 0 && iErrno != ENOENT)
        fail(m_pFile->path() + ": " + strerror(iErrno));
}

ZEBURead ZEBUSingleRing::read(char* pBuffer, size_t uSize, size_t* puRead)
{
    *puRead = 0;
    if (m_uGone > 0) {
        warn(m_strPrefix + ": the place to go on at is gone, lines may be missing");
        return gap(std::exchange(m_uGone, 0));
    }
    struct stat now;
    const bool bKnown = m_bFollow && stat(m_pFile->path().c_str(), &now) == 0;
    const ZEBURead eFirst = bKnown && isQuiet(now) ? ZEBURead::Idle : readPresent(pBuffer, uSize, puRead);
    if (eFirst != ZEBURead::Idle)
        return eFirst;
    if (bKnown && time(nullptr) > now.st_mtim.tv_sec + 1) // the next write will change it
        m_quiet = now;
    const unsigned uNext = nextNumber();
    if (uNext == 0)
        return m_bFollow ? ZEBURead::Idle : ZEBURead::End;
    // The writer closes a file before it touches the next: now that the next is there, this one is complete,
    // but it may have grown since its end was found.
    const Stamp complete = stampOf(m_uNumber);
    const ZEBURead eSecond = readPresent(pBuffer, uSize, puRead);
    if (eSecond != ZEBURead::Idle)
        return eSecond;
    if (m_pFile->isOpen()) {
        m_left[m_uNumber] = complete;
        m_bRead[m_uNumber] = true;
    }
    enter(uNext);
    return ZEBURead::FileEnd;
}

// Whether the present file was not written to since it was found to be read to its end, for a single call.
bool ZEBUSingleRing::isQuiet(const struct stat& now) const
{
    return ZEBU_IsSameFile(now, m_quiet) && now.st_size == m_quiet.st_size &&
           now.st_mtim.tv_sec == m_quiet.st_mtim.tv_sec && now.st_mtim.tv_nsec == m_quiet.st_mtim.tv_nsec;
}

// Reads on in the present file. Idle at its end.
ZEBURead ZEBUSingleRing::readPresent(char* pBuffer, size_t uSize, size_t* puRead)
{
    if (!m_pFile->isOpen())
        return ZEBURead::Idle;
    // The file may be emptied and filled again before or while it is read. What is noticed then is that the
    // beginning changes, so that is read first.
    if (m_pFile->offset() == 0)
        uSize = std::min(uSize, ZEBU_BEGINNING_MAX);
    do {
        const long lRead = m_pFile->readAt(m_pFile->offset(), pBuffer, uSize);
        if (isReused())
            return lost();
        if (lRead < 0)
            fail(m_pFile->path() + " cannot be read to its end: " + strerror(errno));
        if (lRead <= 0)
            return ZEBURead::Idle;
        const bool bAtEnd = lRead < static_cast<long>(uSize);
        *puRead = bAtEnd ? wholeLines(pBuffer, static_cast<size_t>(lRead)) : uSize;
    } while (*puRead == 0);
    bool bMark;
    (void)m_pFile->liveBytes({pBuffer, *puRead}, true, &bMark);
    if (bMark && !std::exchange(m_bMarked, true))
        warn(m_pFile->path() +
             " holds an end-of-data mark, as files of a shared ring do, but the ring has no "
             "management file: what stands behind the mark is shown too");
    m_pFile->consume({pBuffer, *puRead});
    if (!m_pFile->isUnchanged()) {
        *puRead = 0;
        return lost();
    }
    m_pLast.reset();
    return ZEBURead::Bytes;
}

// Whether the present file was emptied under the reader. One that was not current at the start does not
// change in any other way. Before its beginning is known, the file before it tells: that one comes first.
bool ZEBUSingleRing::isReused() const
{
    if (m_pLast && m_pLast->isOpen() && !m_pLast->isUnchanged())
        return true;
    if (!m_bCaughtUp)
        return stampOf(m_uNumber) != m_left[m_uNumber];
    const Stamp& left = m_left[m_uNumber];
    if (m_bIsNewest && m_pFile->offset() == 0 && left.iFirstCounter >= 0) {
        const Stamp now = stampOf(m_uNumber);
        return now.iFirstCounter != left.iFirstCounter || now.lFirstTime != left.lFirstTime;
    }
    return !m_pFile->isUnchanged();
}

// At its end the current file may hold the first part of a line that is being written. A reader that follows
// gets the rest later; any other leaves it out as long as it goes with whole lines, then waits a little.
size_t ZEBUSingleRing::wholeLines(const char* pBuffer, size_t uRead)
{
    if (m_bFollow || !m_bCaughtUp || pBuffer[uRead - 1] == '\n')
        return uRead;
    const size_t uWhole = std::string_view(pBuffer, uRead).rfind('\n') + 1;
    return uWhole > 0 || m_pFile->waitForRest(m_iWaits++) ? uWhole : uRead;
}

// The file to read after the present one, or 0.
unsigned ZEBUSingleRing::nextNumber()
{
    if (m_bCaughtUp)
        return m_bFollow ? changedFile() : 0;
    unsigned uNext = after(m_uNumber);
    while ((m_left[uNext].iSize < 0 || m_bRead[uNext]) && uNext != m_uNewest)
        uNext = after(uNext);
    return uNext;
}

// The file that the writer went on to, in ring order behind the present one, or 0. The present one counts
// when its name stands for another file by now. That is the next one, or the first behind the last, which
// costs little to look at; what another process made of the ring is noticed a little later.
unsigned ZEBUSingleRing::changedFile()
{
    const auto isChanged = [this](unsigned u, const Stamp& now) {
        return now != m_left[u] && now.iSize >= 0;
    };
    const Stamp next = stampOf(after(m_uNumber));
    const unsigned uNext = next.iSize >= 0 ? after(m_uNumber) : 1;
    if (uNext != m_uNumber && isChanged(uNext, uNext == 1 ? stampOf(1) : next))
        return uNext;
    if (m_pFile->isReplaced())
        return m_uNumber;
    const long lNow = ZEBU_Milliseconds();
    if (lNow < m_lNextLook)
        return 0;
    m_lNextLook = lNow + cs_iLookEvery;
    for (unsigned u = after(m_uNumber); u != m_uNumber; u = after(u))
        if (isChanged(u, stampOf(u)))
            return u;
    return 0;
}

// The ring came round: what was not read yet begins behind its newest file.
ZEBURead ZEBUSingleRing::lost()
{
    if (!m_bFollow && !mayRestart(m_strPrefix))
        return ZEBURead::End;
    warn(m_pFile->path() + " was reused before it was read to its end: lines were lost");
    m_pFile->close();
    const unsigned uLast = m_uNumber;
    start();
    return gap(filesUpToNewest(uLast));
}
} // namespace

std::unique_ptr<ZEBUSource> ZEBU_OpenSingleRing(const std::string& strPrefix, bool bFollow,
                                                const ZEBUWarn& warn, const ZEBUPlace* pFrom)
{
    return std::make_unique<ZEBUSingleRing>(strPrefix, bFollow, warn, pFrom);
}
