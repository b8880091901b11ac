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
    std::vector<std::string> apps;
    std::vector<std::string> pids;
    std::vector<std::string> tids;
    std::vector<std::string> idGlobs;
    std::vector<std::string> types;
    std::string strGrep;
    bool bIgnoreCase = false;
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
    bool isEmpty() const;
    bool hasHeaders() const { return m_options.bHeaders; }
    ZEBUForm form() const { return m_options.eForm; }
    ZEBUTime since() const { return m_lSince; }

private:
    bool matchesTime(ZEBUTime lTime) const;
    bool matchesFields(const ZEBULine& line) const;
    bool matchesBody(const ZEBUBody& body) const;
    bool matchesForm(std::string_view svBody) const;
    bool matchesGrep(std::string_view svText) const;

    const ZEBUFilterOptions m_options;
    ZEBUTime m_lSince = ZEBU_TIME_NONE;
    ZEBUTime m_lUntil = ZEBU_TIME_NONE;
    std::vector<unsigned> m_pids;
    std::unique_ptr<regex_t, void (*)(regex_t*)> m_pRegex;
};

#endif
