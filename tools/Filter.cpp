// tools/Filter.cpp -- reads what the user wants to see, and decides record by record.
#include "tools/Filter.h"

#include <algorithm>
#include <fnmatch.h>
#include <initializer_list>

#include "tools/Output.h"
#include "tools/When.h"

namespace {
void fs_freeRegex(regex_t* pRegex)
{
    regfree(pRegex);
    delete pRegex;
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
} // namespace

ZEBUFilter::ZEBUFilter(const ZEBUFilterOptions& options)
    : m_options(options), m_lSince(fs_when(options.strSince)), m_lUntil(fs_when(options.strUntil)),
      m_pRegex(nullptr, fs_freeRegex)
{
    for (const std::string& strPid : options.pids)
        m_pids.push_back(fs_pid(strPid));
    if (options.strGrep.empty())
        return;
    auto pRegex = std::make_unique<regex_t>();
    const int iFlags = REG_EXTENDED | REG_NEWLINE | REG_NOSUB | (options.bIgnoreCase ? REG_ICASE : 0);
    const int iError = regcomp(pRegex.get(), options.strGrep.c_str(), iFlags);
    if (iError != 0) {
        char szError[256];
        (void)regerror(iError, pRegex.get(), szError, sizeof szError);
        throw ZEBUFailure{"--grep \"" + options.strGrep + "\": " + szError};
    }
    m_pRegex.reset(pRegex.release());
}

bool ZEBUFilter::isEmpty() const
{
    return m_lSince == ZEBU_TIME_NONE && m_lUntil == ZEBU_TIME_NONE && m_options.apps.empty() &&
           m_pids.empty() && m_options.tids.empty() && m_options.idGlobs.empty() && m_options.types.empty() &&
           !m_pRegex;
}

bool ZEBUFilter::matches(const ZEBURecord& record, bool bLast) const
{
    if (record.bContinues)
        return bLast;
    if (record.eKind == ZEBURecordKind::Gap)
        return true;
    if (!matchesTime(record.lTime))
        return false;
    if (record.eKind == ZEBURecordKind::Header)
        return m_options.bHeaders;
    if (record.eKind == ZEBURecordKind::Line)
        return matchesFields(record.line) && matchesForm(record.line.svBody) &&
               matchesGrep(record.line.svBody);
    const bool bFields = !m_options.apps.empty() || !m_pids.empty() || !m_options.tids.empty() ||
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
    return fs_contains(m_options.apps, line.svApp) && fs_contains(m_pids, line.uPid) &&
           fs_contains(m_options.tids, line.svTid);
}

bool ZEBUFilter::matchesBody(const ZEBUBody& body) const
{
    const auto fits = [&](const std::string& strGlob) {
        return fnmatch(strGlob.c_str(), std::string(body.svId).c_str(), 0) == 0;
    };
    const bool bId =
        m_options.idGlobs.empty() || std::any_of(m_options.idGlobs.begin(), m_options.idGlobs.end(), fits);
    return bId && fs_contains(m_options.types, body.svType);
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
    if (!m_pRegex)
        return true;
    regmatch_t range = {.rm_so = 0, .rm_eo = static_cast<regoff_t>(svText.size())};
    return regexec(m_pRegex.get(), svText.data(), 1, &range, REG_STARTEND) == 0;
}
