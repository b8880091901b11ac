// tools/Verbs.h -- what the user can ask for. Each verb returns the tool's exit status, or throws.
#ifndef ZEBU_TOOLS_VERBS_H
#define ZEBU_TOOLS_VERBS_H

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tools/Filter.h"
#include "tools/Output.h"

constexpr int ZEBU_EXIT_OK = 0;
constexpr int ZEBU_EXIT_NOTHING = 1;   // nothing matched; of stat and config --check: a warning
constexpr int ZEBU_EXIT_ERROR = 2;     // also wrong usage
constexpr int ZEBU_EXIT_TOO_YOUNG = 3; // nothing matched, and what was read begins after --since

struct ZEBUShowOptions
{
    std::vector<std::string> sources;
    bool bFollow = false;
    long lLast = -1;       // -1: not given
    bool bAll = false;     // of the lines, also when following
    bool bReverse = false; // newest first
    int iContext = 0;      // lines around each that matches
    ZEBUFilterOptions filter;
    ZEBUFormat eFormat = ZEBUFormat::Text;
    ZEBUColor eColor = ZEBUColor::Auto;
    std::string strColumns; // divided by commas, empty for whole lines
    std::string strCount;   // key to count by, empty to show lines
    int iInterval = 100;    // of polls, in milliseconds
    std::string strCursor;  // file of the places to go on at, empty for none
};
int ZEBU_Show(const ZEBUShowOptions& options);

struct ZEBUDrainOptions
{
    std::string strArea; // empty: the configured one
    bool bFollow = false;
    bool bPeek = false;
    ZEBUFilterOptions filter;
    ZEBUFormat eFormat = ZEBUFormat::Text;
    ZEBUColor eColor = ZEBUColor::Auto;
    std::string strColumns;
    int iInterval = 100;
};
int ZEBU_Drain(const ZEBUDrainOptions& options);

struct ZEBUStatOptions
{
    std::vector<std::string> sources; // directories stand for their rings
    bool bArea = false;               // the trace area instead of sources
    std::string strArea;              // empty: the configured one
    bool bCheck = false;
    bool bModes = false;   // warn of what everybody may write
    std::string strMaxAge; // limits; empty: none
    std::string strMinReach;
    int iMaxFill = -1; // percent, -1: none
    ZEBUFormat eFormat = ZEBUFormat::Text;
};
int ZEBU_Stat(const ZEBUStatOptions& options);

struct ZEBUListOptions
{
    std::string strDirectory; // empty: the present one
    ZEBUFormat eFormat = ZEBUFormat::Text;
};
int ZEBU_List(const ZEBUListOptions& options);

struct ZEBUPutOptions
{
    bool bAreaOnly = false;
    std::string strRing;
    long lSize = 0;
    long lFiles = 0;
    bool bShared = false;
    std::string strApp;
    int iLevel = 0;
    std::string strId;
    std::string strType;
    std::string strText; // "-": lines of the standard input
};
int ZEBU_Put(const ZEBUPutOptions& options);

struct ZEBUBackupOptions
{
    std::string strPrefix;
    std::string strDestination;
};
int ZEBU_Backup(const ZEBUBackupOptions& options);

struct ZEBUCleanOptions
{
    std::string strPattern;
    std::optional<std::string> strOlderThan; // one of the two
    std::optional<int> iKeep;
    bool bDryRun = false;
    bool bForce = false;
};
int ZEBU_Clean(const ZEBUCleanOptions& options);

struct ZEBUConfigOptions
{
    std::string strFile; // empty: the one that the library would read
    bool bCheck = false;
};
int ZEBU_Config(const ZEBUConfigOptions& options);

struct ZEBUExplainOptions
{
    std::string strValue;
    std::string strCode;
};
int ZEBU_Explain(const ZEBUExplainOptions& options);

// Becomes zebu2-forward, with these words as its options. Returns only by an exception.
int ZEBU_StartForward(const std::vector<std::string>& words);

// Function and failure of an error value in words, for messages.
std::string ZEBU_ExplainedError(unsigned uValue, int iCode);

// The path of the trace area that the library would use. Throws when there is none.
std::string ZEBU_ConfiguredArea();

// Waits between two polls, or until the user ends the tool.
void ZEBU_Pause(long lMicroseconds);

// The pauses of one who polls: short behind something new, since more is likely, then longer up to the
// interval.
class ZEBUPoll
{
public:
    // `iInterval`: in milliseconds; `lShortest`: in microseconds.
    explicit ZEBUPoll(int iInterval, long lShortest = 1000)
        : m_lInterval(iInterval * 1000L), m_lShortest(lShortest), m_lNext(lShortest)
    {
    }
    void pause(bool bNew)
    {
        m_lNext = bNew ? m_lShortest : std::min(2 * m_lNext, m_lInterval);
        ZEBU_Pause(m_lNext);
    }

private:
    const long m_lInterval;
    const long m_lShortest;
    long m_lNext;
};

#endif
