// tools/Filter.cpp -- reads what the user wants to see, and decides record by record.
#include "tools/Filter.h"

#include <algorithm>
#include <fnmatch.h>
#include <initializer_list>

#include "tools/Output.h"
#include "tools/When.h"

namespace {
// The hour that comes twice, in the lines and in the time that was asked for.
constexpr long cs_lSetBack = 2 * 3600L;

void fs_freeRegex(regex_t* pRegex)
{
    regfree(pRegex);
    delete pRegex;
}

std::unique_ptr<regex_t, void (*)(regex_t*)> fs_compile(const std::string& strGrep, bool bIgnoreCase)
{
    auto pRegex = std::make_unique<regex_t>();
    const int iFlags = REG_EXTENDED | REG_NEWLINE | REG_NOSUB | (bIgnoreCase ? REG_ICASE : 0);
    const int iError = regcomp(pRegex.get(), strGrep.c_str(), iFlags);
    if (iError != 0) {
        char szError[256];
        (void)regerror(iError, pRegex.get(), szError, sizeof szError);
        throw ZEBUFailure{"--grep \"" + strGrep + "\": " + szError};
    }
    return {pRegex.release(), fs_freeRegex};
}

ZEBUTime fs_when(const std::string& strText)
{
    ZEBUTime lTime = ZEBU_TIME_NONE;
    if (!strText.empty() && !ZEBU_ParseWhen(strText, &lTime))
        throw ZEBUFailure{"\"" + strText +
                          "\" is no time such as \"2026-11-22 10:00\", 10:00, today, -15min or @epoch"};
    return lTime;
}

// As the column shows it, eight hexadecimal digits; else decimal, or 0x and hexadecimal.
unsigned fs_pid(const std::string& strText)
{
    const bool bColumn =
        strText.size() == 8 && strText.find_first_not_of("0123456789ABCDEFabcdef") == strText.npos;
    return ZEBU_Number((bColumn ? "0x" : "") + strText, "process id");
}

template <typename List, typename Value>
bool fs_contains(const List& list, const Value& value)
{
    return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
}

bool fs_fitsAny(const std::vector<std::string>& globs, std::string_view svText)
{
    const std::string strText(globs.empty() ? std::string_view() : svText);
    const auto fits = [&](const std::string& strGlob) {
        return fnmatch(strGlob.c_str(), strText.c_str(), 0) == 0;
    };
    return globs.empty() || std::any_of(globs.begin(), globs.end(), fits);
}
} // namespace

ZEBUFilter::ZEBUFilter(const ZEBUFilterOptions& options)
    : m_options(options), m_lSince(fs_when(options.strSince)), m_lOldest(ZEBU_Earlier(m_lSince, cs_lSetBack)),
      m_lUntil(fs_when(options.strUntil))
{
    for (const std::string& strPid : options.pids)
        m_pids.push_back(fs_pid(strPid));
    for (const std::string& strGrep : options.greps)
        m_regexes.push_back(fs_compile(strGrep, options.bIgnoreCase));
    m_bEmpty = m_lSince == ZEBU_TIME_NONE && m_lUntil == ZEBU_TIME_NONE && m_options.appGlobs.empty() &&
               m_pids.empty() && m_options.tids.empty() && m_options.idGlobs.empty() &&
               m_options.types.empty() && m_regexes.empty();
}

bool ZEBUFilter::matches(const ZEBURecord& record, bool bLast) const
{
    if (record.bContinues)
        return bLast;
    if (record.eKind == ZEBURecordKind::Gap)
        return true;
    if (m_bEmpty)
        return record.eKind != ZEBURecordKind::Header || m_options.bHeaders;
    if (!matchesTime(record.lTime))
        return false;
    if (record.eKind == ZEBURecordKind::Header)
        return m_options.bHeaders;
    if (record.eKind == ZEBURecordKind::Line)
        return matchesFields(record.line) && matchesForm(record.line.svBody) &&
               matchesGrep(record.line.svBody);
    const bool bFields = !m_options.appGlobs.empty() || !m_pids.empty() || !m_options.tids.empty() ||
                         !m_options.idGlobs.empty() || !m_options.types.empty();
    return !bFields && matchesGrep(ZEBU_WithoutLineEnd(record.svBytes));
}

bool ZEBUFilter::matchesTime(ZEBUTime lTime) const
{
    if (m_lSince == ZEBU_TIME_NONE && m_lUntil == ZEBU_TIME_NONE)
        return true;
    return lTime != ZEBU_TIME_NONE && lTime >= m_lSince && (m_lUntil == ZEBU_TIME_NONE || lTime <= m_lUntil);
}

bool ZEBUFilter::matchesFields(const ZEBULine& line) const
{
    return fs_fitsAny(m_options.appGlobs, line.svApp) && fs_contains(m_pids, line.uPid) &&
           fs_contains(m_options.tids, line.svTid);
}

bool ZEBUFilter::matchesBody(const ZEBUBody& body) const
{
    return fs_fitsAny(m_options.idGlobs, body.svId) && fs_contains(m_options.types, body.svType);
}

// Where the form is not certain, a reading whose id looks like one is given the benefit of the doubt.
bool ZEBUFilter::matchesForm(std::string_view svBody) const
{
    if (m_options.idGlobs.empty() && m_options.types.empty())
        return true;
    ZEBUBody body;
    if (m_options.eForm != ZEBUForm::Unknown)
        return m_options.eForm != ZEBUForm::Plain && ZEBU_CutBody(svBody, m_options.eForm, &body) &&
               matchesBody(body);
    body = ZEBU_ReadBody(svBody);
    if (body.eForm != ZEBUForm::Unknown)
        return body.eForm != ZEBUForm::Plain && matchesBody(body);
    for (const ZEBUForm eForm : {ZEBUForm::Type, ZEBUForm::Id})
        if (ZEBU_CutBody(svBody, eForm, &body) && ZEBU_IsLikelyId(body) && matchesBody(body))
            return true;
    return false;
}

bool ZEBUFilter::matchesGrep(std::string_view svText) const
{
    const auto fits = [svText](const auto& pRegex) {
        regmatch_t range = {.rm_so = 0, .rm_eo = static_cast<regoff_t>(svText.size())};
        return regexec(pRegex.get(), svText.data(), 1, &range, REG_STARTEND) == 0;
    };
    return m_regexes.empty() || std::any_of(m_regexes.begin(), m_regexes.end(), fits) != m_options.bInvert;
}
