// tools/Show.cpp -- the lines of rings and files, now and as they come.
#include <algorithm>
#include <deque>
#include <string.h>
#include <utility>

#include "tools/Count.h"
#include "tools/Kept.h"
#include "tools/reader/Directory.h"
#include "tools/reader/Merge.h"
#include "tools/reader/Newest.h"
#include "tools/Verbs.h"

namespace {
constexpr long cs_lFollowLast = 10;
constexpr int cs_iSaveEvery = 1000; // records between two places that are stored

// How many of the last lines are asked for. Who follows wants to see what is going on now, unless there is a
// place, a time or a stream to begin at.
long fs_last(const ZEBUShowOptions& options)
{
    const auto& sources = options.sources;
    const bool bStream = std::find(sources.begin(), sources.end(), "-") != sources.end();
    if (!options.bFollow || options.lLast >= 0 || options.bAll || bStream || !options.strCursor.empty() ||
        !options.filter.strSince.empty())
        return options.lLast;
    return cs_lFollowLast;
}

class ZEBUShow
{
public:
    explicit ZEBUShow(const ZEBUShowOptions& options);
    int run();

private:
    bool isStream() const;
    void stream(ZEBUSource& source);
    void printGap(const ZEBUSource& source);
    size_t streamLines(std::string_view svBytes, bool bFileEnd);
    void merge();
    void reverse();
    void openSources();
    int addSource(const std::string& strSource);
    std::optional<ZEBULast> findLast(const ZEBUSource& source) const;
    void take(const ZEBURecord& record, bool bMatches, const ZEBUOrigin& origin);
    void show(const ZEBURecord& record, const ZEBUOrigin& origin);
    void savePlaces();
    void printKept();
    int status() const;

    const ZEBUShowOptions& m_options;
    const long m_lLast; // -1: all
    const std::vector<std::string> m_sources;
    const ZEBUFilter m_filter;
    ZEBUOutput m_output;
    ZEBUProgress m_progress;
    ZEBUMerge m_merge;
    ZEBUNewestFirst m_newest; // instead, when that is asked for
    ZEBUCursor m_cursor;
    ZEBUPoll m_poll;
    bool m_bNew = false; // something came since the last pause
    int m_iUnsaved = 0;  // records since the places were stored
    ZEBUCount m_count;
    ZEBUContext m_context;
    std::deque<ZEBUKept> m_kept;
    std::unique_ptr<ZEBUSource> m_pOnly; // of which the bytes are shown as they are
    bool m_bKeep = false;                // until the last ones are known, of what cannot be read backwards
    size_t m_uFound = 0;                 // of the last ones, in all sources together
    size_t m_uSkip = 0;                  // of these the first ones are too many
    bool m_bShown = false;
    bool m_bFailed = false;
};

ZEBUShow::ZEBUShow(const ZEBUShowOptions& options)
    : m_options(options), m_lLast(fs_last(options)), m_sources(ZEBU_WithoutDirectories(options.sources)),
      m_filter(options.filter), m_output(options.eFormat, options.eColor, options.strColumns),
      m_merge(options.iInterval, !options.strCursor.empty()), m_newest(m_sources.size(), m_filter.oldest()),
      m_poll(options.iInterval), m_count(options.strCount, options.filter.eForm),
      m_context(static_cast<size_t>(options.iContext))
{
}

int ZEBUShow::run()
{
    const std::string strError = m_options.strCursor.empty() ? "" : m_cursor.load(m_options.strCursor);
    if (!strError.empty())
        throw ZEBUFailure{strError};
    openSources();
    if (m_pOnly) {
        stream(*m_pOnly);
        m_bFailed = m_pOnly->hasFailed();
    } else if (m_options.bReverse) {
        reverse();
    } else {
        merge();
    }
    m_output.flush();
    return status();
}

void ZEBUShow::openSources()
{
    for (const std::string& strSource : m_sources) {
        if (strSource == "-" && !m_options.strCursor.empty())
            throw ZEBUFailure{"the standard input has no place to go on at: --cursor needs files or rings"};
        if (strSource == "-" && m_options.bReverse)
            throw ZEBUFailure{"the standard input has no end to begin at: -r needs files or rings"};
        const bool bPlain = strSource != "-" && ZEBU_SourceKind(strSource) == ZEBUSourceKind::Plain;
        if (const std::string strUse = bPlain ? ZEBU_OtherUse(strSource) : ""; !strUse.empty()) {
            ZEBU_Say(std::string(strSource).append(" ").append(strUse));
            m_bFailed = true;
            continue;
        }
        const int iErrno = m_options.bReverse ? m_newest.add(strSource, ZEBU_Say) : addSource(strSource);
        if (iErrno == 0)
            continue;
        ZEBU_Say(ZEBU_SourceFile(strSource) + ": " + strerror(iErrno));
        m_bFailed = true;
    }
    m_merge.shareBuffer();
    m_uSkip = m_bKeep ? 0 : m_uFound - std::min(m_uFound, static_cast<size_t>(std::max(m_lLast, 0L)));
}

// Returns 0 or the errno.
int ZEBUShow::addSource(const std::string& strSource)
{
    int iErrno = 0;
    const ZEBUPlace* pFrom = m_cursor.find(strSource);
    std::optional<ZEBULast> begin;
    if (m_lLast >= 0 || (m_filter.oldest() != ZEBU_TIME_NONE && !pFrom)) {
        const auto pLook = ZEBU_OpenSource(
            strSource, false, [](const std::string&) {}, &iErrno);
        begin = pLook ? findLast(*pLook) : std::nullopt;
        m_bKeep = m_bKeep || (m_lLast >= 0 && !begin);
        if (pLook && !begin)
            begin = ZEBU_FindSince(*pLook, m_filter.oldest());
    }
    m_uFound += begin ? begin->uCount : 0;
    if (begin && begin->bFromPlace)
        pFrom = &begin->place;
    auto pSource = ZEBU_OpenSource(strSource, m_options.bFollow, ZEBU_Say, &iErrno, pFrom);
    if (pSource && isStream())
        m_pOnly = std::move(pSource);
    else if (pSource)
        m_merge.add(strSource, std::move(pSource), pFrom, begin ? begin->lBefore : ZEBU_TIME_NONE);
    return iErrno;
}

// Where in a source the last lines begin. Lines without a time of their own have that of a line before them,
// so with a filter by time all are read.
std::optional<ZEBULast> ZEBUShow::findLast(const ZEBUSource& source) const
{
    if (m_lLast < 0 || !m_options.filter.strSince.empty() || !m_options.filter.strUntil.empty())
        return {};
    return ZEBU_FindLast(source, static_cast<size_t>(m_lLast), [this](const ZEBURecord& record, bool bLast) {
        return m_filter.matches(record, bLast);
    });
}

// Whether the bytes of the one source are the output, but for the headers.
bool ZEBUShow::isStream() const
{
    return m_sources.size() == 1 && m_filter.isEmpty() && m_output.isPlain() && !m_options.bFollow &&
           m_lLast < 0 && m_options.strCount.empty() && m_options.strCursor.empty() && !m_options.bReverse;
}

void ZEBUShow::stream(ZEBUSource& source)
{
    ZEBU_ReadBlocks(source, [&](std::string_view svBytes, ZEBURead eRead) {
        const size_t uTaken = streamLines(svBytes, eRead != ZEBURead::Bytes);
        m_progress.add(uTaken);
        if (eRead == ZEBURead::Gap && source.filesLost() > 0)
            printGap(source);
        return uTaken;
    });
}

void ZEBUShow::printGap(const ZEBUSource& source)
{
    ZEBURecord record;
    record.eKind = ZEBURecordKind::Gap;
    record.uFilesLost = source.filesLost();
    m_output.print(record, m_filter.form(),
                   {.svSource = m_sources[0], .svFile = source.file(), .svHost = {}, .svZone = {}});
}

// Writes whole lines, and returns how many bytes that were. A line that fills the block, and the rest of a
// file, count as whole.
size_t ZEBUShow::streamLines(std::string_view svBytes, bool bFileEnd)
{
    size_t uWritten = 0;
    size_t uLine = 0;
    while (uLine < svBytes.size()) {
        size_t uNext = svBytes.find('\n', uLine) + 1;
        const bool bWhole = uNext != 0;
        if (!bWhole && !bFileEnd && (uLine > 0 || svBytes.size() < ZEBU_READ_BLOCK))
            break;
        uNext = bWhole ? uNext : svBytes.size();
        const bool bHeader = (svBytes[uLine] == '*' || svBytes[uLine] == ' ') && !m_filter.hasHeaders();
        if (bHeader && ZEBU_ClassifyPiece(svBytes.substr(uLine, uNext - uLine)) != ZEBUPiece::Text) {
            m_output.writePlain(svBytes.substr(uWritten, uLine - uWritten));
            m_bShown = m_bShown || uLine > uWritten;
            uWritten = uNext;
        }
        uLine = uNext;
    }
    m_output.writePlain(svBytes.substr(uWritten, uLine - uWritten));
    m_bShown = m_bShown || uLine > uWritten;
    if (bFileEnd && uLine > uWritten && svBytes.back() != '\n' && m_output.format() == ZEBUFormat::Text)
        m_output.write("\n");
    return uLine;
}

void ZEBUShow::merge()
{
    ZEBURecord record;
    while (!ZEBU_IsEnded()) {
        const ZEBUNext eNext = m_merge.next(&record);
        if (eNext == ZEBUNext::Record) {
            m_bNew = true;
            if (!m_options.bFollow)
                m_progress.add(record.svBytes.size());
            m_merge.shown() = m_filter.matches(record, m_merge.shown());
            take(record, m_merge.shown(), m_merge.origin());
            if (++m_iUnsaved >= cs_iSaveEvery)
                savePlaces();
            continue;
        }
        printKept();
        m_bKeep = false;
        if (eNext == ZEBUNext::End)
            break;
        savePlaces();
        m_poll.pause(std::exchange(m_bNew, false));
    }
    savePlaces();
    m_count.print(m_output);
}

void ZEBUShow::reverse()
{
    ZEBURecord record;
    size_t uLeft = m_lLast < 0 ? SIZE_MAX : static_cast<size_t>(m_lLast);
    while (!ZEBU_IsEnded() && m_newest.next(&record)) {
        m_progress.add(record.svBytes.size());
        m_newest.shown() = m_filter.matches(record, m_newest.shown());
        const bool bCounts = m_newest.shown() && !record.bContinues && record.eKind != ZEBURecordKind::Gap;
        if (bCounts && uLeft-- == 0)
            break;
        take(record, m_newest.shown(), m_newest.origin());
    }
}

// Only when all is written is a place behind it stored: who is killed in between repeats lines and loses
// none.
void ZEBUShow::savePlaces()
{
    m_output.flush();
    m_iUnsaved = 0;
    if (m_options.strCursor.empty())
        return;
    m_merge.notePlaces(&m_cursor);
    const std::string strError = m_cursor.save();
    if (!strError.empty())
        throw ZEBUFailure{strError};
}

void ZEBUShow::take(const ZEBURecord& record, bool bMatches, const ZEBUOrigin& origin)
{
    const bool bPlain = record.eKind == ZEBURecordKind::Gap || m_bKeep || m_uSkip > 0;
    const bool bHidden = record.eKind == ZEBURecordKind::Header && !m_filter.hasHeaders();
    if (m_context.isWanted() && !bPlain && bMatches)
        m_context.begin(m_output, m_filter.form());
    else if (m_context.isWanted() && !bPlain && !bHidden)
        m_context.pass(m_output, m_filter.form(), record, origin);
    if (bMatches)
        show(record, origin);
}

void ZEBUShow::show(const ZEBURecord& record, const ZEBUOrigin& origin)
{
    if (record.eKind == ZEBURecordKind::Gap) {
        if (!m_bKeep && m_options.strCount.empty())
            m_output.print(record, m_filter.form(), origin);
        return;
    }
    if (!m_bKeep && m_uSkip > 0) {
        --m_uSkip;
        return;
    }
    const bool bCount = !m_options.strCount.empty();
    m_bShown = m_bShown || (bCount ? record.eKind == ZEBURecordKind::Line : m_lLast != 0 || !m_bKeep);
    if (bCount) {
        m_count.add(record);
    } else if (!m_bKeep) {
        m_output.print(record, m_filter.form(), origin);
    } else {
        m_kept.emplace_back(record, origin);
        if (m_kept.size() > static_cast<size_t>(m_lLast))
            m_kept.pop_front();
    }
}

void ZEBUShow::printKept()
{
    for (const ZEBUKept& kept : m_kept)
        kept.print(m_output, m_filter.form());
    m_kept.clear();
}

int ZEBUShow::status() const
{
    if (m_bFailed || m_merge.hasFailed() || m_newest.hasFailed())
        return ZEBU_EXIT_ERROR;
    if (m_bShown || (m_options.bFollow && ZEBU_IsEnded()))
        return ZEBU_EXIT_OK;
    const ZEBUTime lSince = m_filter.since();
    const bool bReaches = m_options.bReverse ? m_newest.reachesBackTo(lSince) : m_merge.reachesBackTo(lSince);
    return lSince != ZEBU_TIME_NONE && !bReaches ? ZEBU_EXIT_TOO_YOUNG : ZEBU_EXIT_NOTHING;
}
} // namespace

int ZEBU_Show(const ZEBUShowOptions& options)
{
    if (options.bFollow)
        ZEBU_EndOnSignals();
    else if (options.strCursor.empty()) // with one, what the pipe took is not shown again
        ZEBU_WidenPipe();
    return ZEBUShow(options).run();
}
