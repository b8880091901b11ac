// tools/Filter.h -- which records are shown.
#ifndef ZEBU_TOOLS_FILTER_H
#define ZEBU_TOOLS_FILTER_H

#include <memory>
#include <regex.h>
#include <string>
#include <vector>

#include "tools/reader/Records.h"

// As the user gave it. Within a list one match is enough; every list that is not empty must match.
struct ZEBUFilterOptions
{
    std::string strSince;
    std::string strUntil;
    std::vector<std::string> appGlobs;
    std::vector<std::string> pids;
    std::vector<std::string> tids;
    std::vector<std::string> idGlobs;
    std::vector<std::string> types;
    std::vector<std::string> greps;
    bool bIgnoreCase = false; // of greps, as the next
    bool bInvert = false;     // none of them must match
    bool bHeaders = false;
    ZEBUForm eForm = ZEBUForm::Unknown;
};

class ZEBUFilter
{
public:
    // Throws ZEBUFailure for a value that cannot be read.
    explicit ZEBUFilter(const ZEBUFilterOptions& options);

    // Whether a record is shown. One that continues another goes with it: `bLast` is what was decided for
    // the record before it in the same source.
    bool matches(const ZEBURecord& record, bool bLast) const;

    // Whether all records but headers match.
    bool isEmpty() const { return m_bEmpty; }
    bool hasHeaders() const { return m_options.bHeaders; }
    ZEBUForm form() const { return m_options.eForm; }
    ZEBUTime since() const { return m_lSince; }

    // What was written before a line of this time does not match, unless clocks were set back by more than an
    // hour. None when all times are asked for.
    ZEBUTime oldest() const { return m_lOldest; }

private:
    bool matchesTime(ZEBUTime lTime) const;
    bool matchesFields(const ZEBULine& line) const;
    bool matchesBody(const ZEBUBody& body) const;
    bool matchesForm(std::string_view svBody) const;
    bool matchesGrep(std::string_view svText) const;

    const ZEBUFilterOptions m_options;
    ZEBUTime m_lSince = ZEBU_TIME_NONE;
    ZEBUTime m_lOldest = ZEBU_TIME_NONE;
    ZEBUTime m_lUntil = ZEBU_TIME_NONE;
    std::vector<unsigned> m_pids;
    bool m_bEmpty = true;
    std::vector<std::unique_ptr<regex_t, void (*)(regex_t*)>> m_regexes;
};

#endif
