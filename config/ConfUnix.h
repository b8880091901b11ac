// config/ConfUnix.h -- the general settings, a snapshot of the configuration file.
//
// The trace area constructs one at each use and reads the fields. Nothing is range-checked here and no
// failure is recorded: what cannot be read keeps its default.
#ifndef ZEBU_CONFIG_CONFUNIX_H
#define ZEBU_CONFIG_CONFUNIX_H

constexpr int ZEBU_CNF_TEXT_MAX = 4097; // characters of a text value that are kept

constexpr char ZEBU_cs_pszCnfMonPathDefault[] = "";
constexpr char ZEBU_cs_pszCnfLogFileDefault[] = "";

constexpr int getDefaultLimitIntervalSec()
{
    return 0;
}

constexpr int getDefaultMaxMsgNumber()
{
    return 0;
}

// What became of a line: it begins with no key, has no value behind " =", or none that can be read; or it
// gave its key a value.
enum ZEBUCnfLine { ZEBU_CNF_NO_KEY, ZEBU_CNF_NO_VALUE, ZEBU_CNF_UNREADABLE, ZEBU_CNF_TAKEN };

struct tagZEBU_CNF_KEY;

// Large: four texts of 4 KiB.
class ZEBUConfigInf final
{
public:
    int iRelease;
    char szMonPath[ZEBU_CNF_TEXT_MAX + 1];
    char szLogFile[ZEBU_CNF_TEXT_MAX + 1];
    unsigned int uLogSize;
    int iLogFNum;
    int iWatchDog;
    unsigned int uMapSize;                  // bytes of the trace area's file
    int iIntervalSec;                       // rate limit of the trace area: seconds of one interval
    int iMaxMsgNum;                         // rate limit of the trace area: messages in one interval
    char szMMapDir[ZEBU_CNF_TEXT_MAX + 1];  // directory of the trace area; empty when no file was read
    char szMMapFile[ZEBU_CNF_TEXT_MAX + 1]; // path of the trace area's file;
                                            // empty when no file was read
    int iLoaded;                            // 1 once the file to read is settled

    // Reads the file that the environment names, if it is allowed and says where the trace area lies,
    // else the standard file.
    ZEBUConfigInf();

    // Reads once: the environment's file while iLoaded is 0, else the standard file. Returns 0, or -1
    // when it cannot be opened or does not say where the trace area lies.
    int loadCnf();

    // Takes the value of a line, if it has one for a key. `ppKey`, unless null: the key, or null without one.
    ZEBUCnfLine readLine(const char* pszLine, const tagZEBU_CNF_KEY** ppKey = nullptr);

    // Nothing is ever written back. Returns 0.
    int saveCnf() { return 0; }

    // Store a text, cut to ZEBU_CNF_TEXT_MAX characters.
    void setMonPath(const char* pszPath);
    void setLogFileName(const char* pszName);

    static constexpr int getDefaultRelease() { return 1; }
    static constexpr const char* getDefaultMonPath() { return ZEBU_cs_pszCnfMonPathDefault; }
    static constexpr const char* getDefaultLogFileName() { return ZEBU_cs_pszCnfLogFileDefault; }
    static constexpr unsigned int getDefaultLogFileSizeMax() { return 0x40000; }
    static constexpr int getDefaultLogFilesNum() { return 4; }
    static constexpr int getDefaultIntervalTime() { return 10; }
    static constexpr unsigned int getDefaultMMapFileSize() { return 0x10000; }

private:
    void setDefaults();
    int placeByLogFile();
};

// A key and the setting that it gives: one of the three fields.
struct tagZEBU_CNF_KEY
{
    const char* pszName;
    int ZEBUConfigInf::*piField;
    unsigned int ZEBUConfigInf::*puField;
    char (ZEBUConfigInf::*pszField)[ZEBU_CNF_TEXT_MAX + 1];
};

// In the order in which a line is compared with them; no name begins another.
constexpr tagZEBU_CNF_KEY ZEBU_cs_cnfKeys[] = {
    {"Release", &ZEBUConfigInf::iRelease, nullptr, nullptr},
    {"MonPath", nullptr, nullptr, &ZEBUConfigInf::szMonPath},
    {"LogFile", nullptr, nullptr, &ZEBUConfigInf::szLogFile},
    {"LogSize", nullptr, &ZEBUConfigInf::uLogSize, nullptr},
    {"LogFNum", &ZEBUConfigInf::iLogFNum, nullptr, nullptr},
    {"WatchDog", &ZEBUConfigInf::iWatchDog, nullptr, nullptr},
    {"MapSize", nullptr, &ZEBUConfigInf::uMapSize, nullptr},
    {"IntervalSec", &ZEBUConfigInf::iIntervalSec, nullptr, nullptr},
    {"MaxMsgNum", &ZEBUConfigInf::iMaxMsgNum, nullptr, nullptr},
};

// Where the value of a line begins, or null. A blank must stand between the key and the "=", since the key is
// the first blank-delimited word whatever it holds.
const char* ZEBU_CnfValue(const char* pszLine);

#endif
