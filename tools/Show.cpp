// tools/Show.cpp -- the lines of rings and files, now and as they come.
#include <algorithm>
#include <deque>
#include <string.h>
#include <utility>

#include "tools/Count.h"
#include "tools/reader/Backward.h"
#include "tools/reader/Directory.h"
#include "tools/reader/Merge.h"
#include "tools/Verbs.h"

namespace {
constexpr long cs_lFollowLast = 10;
constexpr int cs_iSaveEvery = 1000; // records between two places that are stored

// A record that outlives the buffer it was cut from.
struct Kept
{
    ZEBURecord record;
    std::string strBytes;
    std::string strOrigin[4]; // what the four views of an origin point to
    ZEBUOrigin origin() const { return {strOrigin[0], strOrigin[1], strOrigin[2], strOrigin[3]}; }
};

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
    void openSources();
    void addSource(const std::string& strSource);
    std::optional<ZEBULast> findLast(const std::string& strSource) const;
    void show(const ZEBURecord& record);
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
    ZEBUCursor m_cursor;
    ZEBUPoll m_poll;
    bool m_bNew = false; // something came since the last pause
    int m_iUnsaved = 0;  // records since the places were stored
    ZEBUCount m_count;
    std::deque<Kept> m_kept;
    std::unique_ptr<ZEBUSource> m_pOnly; // of which the bytes are shown as they are
    bool m_bKeep = false;                // until the last ones are known, of what cannot be read backwards
    size_t m_uFound = 0;                 // of the last ones, in all sources together
    size_t m_uSkip = 0;                  // of these the first ones are too many
    bool m_bShown = false;
    bool m_bFailed = false;
};

ZEBUShow::ZEBUShow(const ZEBUShowOptions& options)
    : m_options(options), m_lLast(fs_last(options)), m_sources(ZEBU_WithoutDirectories(options.sources)),
      m_filter(options.filter), m_output(options.eFormat, options.eColor),
      m_merge(options.iInterval, !options.strCursor.empty()), m_poll(options.iInterval),
      m_count(options.strCount, options.filter.eForm)
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
        const bool bPlain = strSource != "-" && ZEBU_SourceKind(strSource) == ZEBUSourceKind::Plain;
        if (const std::string strUse = bPlain ? ZEBU_OtherUse(strSource) : ""; !strUse.empty()) {
            ZEBU_Say(std::string(strSource).append(" ").append(strUse));
            m_bFailed = true;
            continue;
        }
        addSource(strSource);
    }
    m_merge.shareBuffer();
    m_uSkip = m_bKeep ? 0 : m_uFound - std::min(m_uFound, static_cast<size_t>(std::max(m_lLast, 0L)));
}

void ZEBUShow::addSource(const std::string& strSource)
{
    const std::optional<ZEBULast> last = findLast(strSource);
    m_bKeep = m_bKeep || (m_lLast >= 0 && !last);
    m_uFound += last ? last->uCount : 0;
    int iErrno = 0;
    const ZEBUPlace* pFrom = last && last->bFromPlace ? &last->place : m_cursor.find(strSource);
    auto pSource = ZEBU_OpenSource(strSource, m_options.bFollow, ZEBU_Say, &iErrno, pFrom);
    if (!pSource) {
        ZEBU_Say(ZEBU_SourceFile(strSource) + ": " + strerror(iErrno));
        m_bFailed = true;
    } else if (isStream()) {
        m_pOnly = std::move(pSource);
    } else {
        m_merge.add(strSource, std::move(pSource), pFrom);
    }
}

// Where in a source the last lines begin. Lines without a time of their own have that of a line before them,
// so with a filter by time all are read.
std::optional<ZEBULast> ZEBUShow::findLast(const std::string& strSource) const
{
    int iErrno = 0;
    if (m_lLast < 0 || !m_options.filter.strSince.empty() || !m_options.filter.strUntil.empty())
        return {};
    const auto pSource = ZEBU_OpenSource(
        strSource, false, [](const std::string&) {}, &iErrno);
    const auto counts = [this](const ZEBURecord& record, bool bLast) {
        return m_filter.matches(record, bLast);
    };
    return pSource ? ZEBU_FindLast(*pSource, static_cast<size_t>(m_lLast), counts) : std::nullopt;
}

// Whether the bytes of the one source are the output, but for the headers.
bool ZEBUShow::isStream() const
{
    return m_sources.size() == 1 && m_filter.isEmpty() && m_output.isPlain() && !m_options.bFollow &&
           m_lLast < 0 && m_options.strCount.empty() && m_options.strCursor.empty();
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
            if (m_merge.shown())
                show(record);
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

void ZEBUShow::show(const ZEBURecord& record)
{
    if (record.eKind == ZEBURecordKind::Gap) {
        if (!m_bKeep && m_options.strCount.empty())
            m_output.print(record, m_filter.form(), m_merge.origin());
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
        m_output.print(record, m_filter.form(), m_merge.origin());
    } else {
        const ZEBUOrigin origin = m_merge.origin();
        m_kept.push_back({record,
                          std::string(record.svBytes),
                          {std::string(origin.svSource), std::string(origin.svFile),
                           std::string(origin.svHost), std::string(origin.svZone)}});
        if (m_kept.size() > static_cast<size_t>(m_lLast))
            m_kept.pop_front();
    }
}

void ZEBUShow::printKept()
{
    for (Kept& kept : m_kept) {
        kept.record.svBytes = kept.strBytes;
        (void)ZEBU_ParseLine(kept.record.svBytes, &kept.record.line);
        m_output.print(kept.record, m_filter.form(), kept.origin());
    }
    m_kept.clear();
}

int ZEBUShow::status() const
{
    if (m_bFailed || m_merge.hasFailed())
        return ZEBU_EXIT_ERROR;
    if (m_bShown || (m_options.bFollow && ZEBU_IsEnded()))
        return ZEBU_EXIT_OK;
    const bool bTooYoung = m_filter.since() != ZEBU_TIME_NONE && !m_merge.reachesBackTo(m_filter.since());
    return bTooYoung ? ZEBU_EXIT_TOO_YOUNG : ZEBU_EXIT_NOTHING;
}
} // namespace

int ZEBU_Show(const ZEBUShowOptions& options)
{
    if (options.bFollow)
        ZEBU_EndOnSignals();
    return ZEBUShow(options).run();
}
