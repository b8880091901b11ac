// tools/forward/Lines.h -- records of trace files as messages.
#ifndef ZEBU_TOOLS_FORWARD_LINES_H
#define ZEBU_TOOLS_FORWARD_LINES_H

#include "tools/forward/Input.h"
#include "tools/forward/Message.h"
#include "tools/reader/Zone.h"

struct ZEBULineOptions
{
    ZEBUSeverities severities;
    ZEBUForm eForm = ZEBUForm::Unknown;    // of the bodies, where the columns allow it
    size_t uMessageMax = ZEBU_MESSAGE_MAX; // bytes of a message
};

class ZEBULines
{
public:
    explicit ZEBULines(const ZEBULineOptions& options);

    // The message of a record that the input just returned; never of a Header.
    std::string message(const ZEBURecord& record, const ZEBUInput& input);

private:
    std::string format(const ZEBURecord& record, std::string_view svZone, ZEBUMessage message);

    const ZEBULineOptions& m_options;
    const std::string m_strHost; // of this host, for what no header tells
    ZEBUZone m_zone;
};

#endif
