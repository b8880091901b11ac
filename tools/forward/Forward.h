// tools/forward/Forward.h -- carries lines from where they come from to the server.
#ifndef ZEBU_TOOLS_FORWARD_FORWARD_H
#define ZEBU_TOOLS_FORWARD_FORWARD_H

#include <string>
#include <vector>

#include "tools/forward/Lines.h"
#include "tools/forward/Relp.h"

struct ZEBUForwardOptions
{
    std::vector<std::string> sources;
    std::string strArea;   // empty: none
    std::string strCursor; // needed for sources
    ZEBURelpOptions relp;
    ZEBULineOptions lines;
    bool bWait = false;
    int iInterval = 100; // between two looks at an idle source, in milliseconds
};

// Says something on the standard error output, as a line of its own.
void ZEBU_ForwardSay(const std::string& strText);

// Runs until SIGTERM or SIGINT. Throws ZEBUFailure.
void ZEBU_Forward(const ZEBUForwardOptions& options);

#endif
