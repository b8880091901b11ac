// tools/Main.cpp -- the command line.
#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <limits.h>
#include <map>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <unistd.h>

#include "tools/Verbs.h"
#include "tools/When.h"
#include "ZEBULib2.h"

namespace {
const std::map<std::string, ZEBUFormat> cs_formats = {{"text", ZEBUFormat::Text},
                                                      {"json", ZEBUFormat::Json},
                                                      {"raw", ZEBUFormat::Raw},
                                                      {"short", ZEBUFormat::Short}};
const std::map<std::string, ZEBUFormat> cs_statFormats = {
    {"text", ZEBUFormat::Text}, {"json", ZEBUFormat::Json}, {"prometheus", ZEBUFormat::Prometheus}};
const std::map<std::string, ZEBUFormat> cs_listFormats = {{"text", ZEBUFormat::Text},
                                                          {"json", ZEBUFormat::Json}};
const std::map<std::string, ZEBUColor> cs_colors = {
    {"auto", ZEBUColor::Auto}, {"always", ZEBUColor::Always}, {"never", ZEBUColor::Never}};
const std::map<std::string, ZEBUForm> cs_forms = {
    {"plain", ZEBUForm::Plain}, {"id", ZEBUForm::Id}, {"type", ZEBUForm::Type}};

template <typename Value>
void fs_addChoice(CLI::App* pApp, const std::string& strName, Value& value,
                  const std::map<std::string, Value>& map, const std::string& strHelp)
{
    const auto set = [&value, &map, strName](const std::string& strWord) {
        const auto found = map.find(strWord);
        if (found == map.end())
            throw CLI::ValidationError(strName,
                                       "\"" + strWord + "\" is not among the words that --help shows");
        value = found->second;
    };
    pApp->add_option_function<std::string>(strName, set, strHelp)->type_name("WORD");
}

// An option whose value must not be empty: an unset variable of a script is no wish for everything.
template <typename Value>
CLI::Option* fs_addText(CLI::App* pApp, const std::string& strName, Value& value, const std::string& strHelp)
{
    const auto set = [&value, strName](const std::string& strText) {
        if (strText.empty())
            throw CLI::ValidationError(strName, "the value is empty");
        value = strText;
    };
    return pApp->add_option_function<std::string>(strName, set, strHelp)->type_name("TEXT");
}

// An option that may be repeated. Its values are taken as they are: "{}" and "[x]" are no lists.
CLI::Option* fs_addList(CLI::App* pApp, const std::string& strName, std::vector<std::string>& values,
                        const std::string& strHelp)
{
    const auto take = [&values](const CLI::results_t& given) {
        values = given;
        return std::find(given.begin(), given.end(), "") == given.end();
    };
    return pApp->add_option(strName, take, strHelp)
        ->type_name("TEXT")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void fs_addFilter(CLI::App* pApp, ZEBUFilterOptions& filter)
{
    fs_addText(pApp, "-S,--since", filter.strSince,
               "Lines of this time and later: \"2026-11-22 10:00\", 10:00, today, -15min, @epoch");
    fs_addText(pApp, "-U,--until", filter.strUntil, "Lines of this time and before");
    fs_addList(pApp, "--app", filter.appGlobs,
               "Lines of applications that match a wildcard pattern; as the next five, may be repeated");
    fs_addList(pApp, "--pid", filter.pids, "Lines of this process: the column's 8 digits, decimal or 0x...");
    fs_addList(pApp, "--tid", filter.tids, "Lines of this thread, as the line shows it");
    fs_addList(pApp, "--id", filter.idGlobs, "Lines whose message id matches a wildcard pattern");
    fs_addList(pApp, "--type", filter.types, "Lines of this message type");
    CLI::Option* pGrep =
        fs_addList(pApp, "--grep", filter.greps, "Lines whose body matches an extended regular expression");
    pApp->add_flag("-i", filter.bIgnoreCase, "Let --grep ignore upper and lower case");
    pApp->add_flag("-v,--invert", filter.bInvert, "Lines that no --grep matches")->needs(pGrep);
    pApp->add_flag("--headers", filter.bHeaders, "Show the headers of files and processes too");
    fs_addChoice(pApp, "--form", filter.eForm, cs_forms,
                 "Read bodies as plain, id or type instead of guessing");
}

template <typename Options>
void fs_addOutput(CLI::App* pApp, Options& options)
{
    fs_addChoice(pApp, "-o,--output", options.eFormat, cs_formats,
                 "text, short (time, app and text), json (one object a line) or raw (exact bytes)");
    fs_addText(pApp, "--columns", options.strColumns,
               "Instead of whole lines: any of counter,time,app,pid,tid,id,type,text,body,host,source,file");
    fs_addChoice(pApp, "--color", options.eColor, cs_colors, "auto, always or never");
    pApp->add_option("--interval", options.iInterval, "Milliseconds between two looks with -f (100)")
        ->check(CLI::Range(1, 3600000));
    pApp->add_flag("-f,--follow", options.bFollow, "Go on as lines come");
}

// A flag that may carry a file: --area or --area=FILE.
CLI::Option* fs_addArea(CLI::App* pApp, std::string& strFile, const std::string& strHelp)
{
    return pApp->add_flag("--area{}", strFile, strHelp);
}

class ZEBUCommandLine
{
public:
    ZEBUCommandLine();
    int run(int argc, char** argv);

private:
    void addShow();
    void addStat();
    void addDrain();
    void addPut();
    void addFiles();
    void addWords();
    void addForward();
    void checkVerb(const std::string& strWord) const;
    bool parse(int argc, char** argv, int* piStatus);

    CLI::App m_app{"Shows and keeps the traces that applications write with ZEBULib2.", "zebu2"};
    ZEBUShowOptions m_show;
    ZEBUStatOptions m_stat;
    std::string m_strCheck;
    ZEBUListOptions m_list;
    ZEBUDrainOptions m_drain;
    ZEBUPutOptions m_put;
    ZEBUBackupOptions m_backup;
    ZEBUCleanOptions m_clean;
    ZEBUConfigOptions m_config;
    ZEBUExplainOptions m_explain;
    std::function<int()> m_verb;
};

ZEBUCommandLine::ZEBUCommandLine()
{
    m_app.require_subcommand(1);
    m_app.set_version_flag("--version", "zebu2 " + std::to_string(ZEBU2_VERSION_MAJOR) + "." +
                                            std::to_string(ZEBU2_VERSION_MINOR) + "." +
                                            std::to_string(ZEBU2_VERSION_PATCH));
    m_app.footer("Exit status: 0 something shown or done, 1 nothing matched, 2 an error,\n"
                 "3 nothing matched and what was read begins after --since.");
    addShow();
    addStat();
    addDrain();
    addPut();
    addFiles();
    addWords();
    addForward();
}

void ZEBUCommandLine::addShow()
{
    CLI::App* pApp = m_app.add_subcommand("show", "Show lines, oldest first");
    pApp->add_option("SOURCE", m_show.sources, "Prefix of a ring, a file, or - for the standard input")
        ->required();
    fs_addFilter(pApp, m_show.filter);
    fs_addOutput(pApp, m_show);
    const auto setLast = [this](const std::string& strText) {
        m_show.bAll = strText == "all";
        if (!m_show.bAll)
            m_show.lLast = ZEBU_Number(strText, "number of lines");
    };
    CLI::Option* pLast = pApp->add_option_function<std::string>(
                                 "-n,--lines", setLast, "Only the last N; with -f the last 10, or all")
                             ->type_name("N|all");
    CLI::Option* pCount =
        pApp->add_option("--count", m_show.strCount, "A table by app, pid, tid, id, type, minute or hour");
    pCount->check(CLI::IsMember({"app", "pid", "tid", "id", "type", "minute", "hour"}).description(""));
    pCount->excludes(pLast)->excludes(pApp->get_option("--follow"));
    fs_addText(pApp, "--cursor", m_show.strCursor, "Begin where the last run with this FILE ended")
        ->excludes(pLast)
        ->excludes(pCount);
    CLI::Option* pHistogram = pApp->add_flag_callback(
        "--histogram", [this] { m_show.strCount = "histogram"; },
        "How many lines there are over time, as bars");
    pHistogram->excludes(pCount)->excludes(pLast)->excludes(pApp->get_option("--follow"));
    CLI::Option* pCursor = pApp->get_option("--cursor");
    pApp->add_flag("-r,--reverse", m_show.bReverse, "Newest lines first")
        ->excludes(pApp->get_option("--follow"))
        ->excludes(pCount)
        ->excludes(pHistogram)
        ->excludes(pCursor);
    pApp->add_option("-C,--context", m_show.iContext, "So many lines before and behind each that matches too")
        ->check(CLI::Range(1, 100000))
        ->excludes(pLast)
        ->excludes(pCount)
        ->excludes(pHistogram)
        ->excludes(pCursor);
    pApp->final_callback([this] { m_verb = [this] { return ZEBU_Show(m_show); }; });
}

void ZEBUCommandLine::addStat()
{
    CLI::App* pApp = m_app.add_subcommand("stat", "Describe rings, files or the trace area");
    CLI::Option* pSource =
        pApp->add_option("SOURCE", m_stat.sources, "Prefix of a ring, a directory, or a file");
    CLI::Option* pArea = fs_addArea(pApp, m_stat.strArea, "The trace area instead of a SOURCE");
    pArea->excludes(pSource);
    fs_addChoice(pApp, "-o,--output", m_stat.eFormat, cs_statFormats, "text, json or prometheus");
    pApp->add_flag("--check{}", m_strCheck,
                   "Exit with 1 when there is a warning; --check=modes: also of what everybody may write");
    fs_addText(pApp, "--max-age", m_stat.strMaxAge, "Warn when the newest line is older, and exit with 1");
    fs_addText(pApp, "--min-reach", m_stat.strMinReach, "The same when the oldest line is younger");
    pApp->add_option("--max-fill", m_stat.iMaxFill, "The same when file or area are filled to more percent")
        ->check(CLI::Range(0, 100));
    pApp->final_callback([this, pApp, pArea, pSource] {
        m_stat.bArea = pArea->count() > 0;
        m_stat.bCheck = pApp->count("--check") > 0;
        m_stat.bModes = m_strCheck == "modes";
        if (m_stat.bCheck && !m_strCheck.empty() && !m_stat.bModes)
            throw CLI::ValidationError("--check", "there is --check and --check=modes");
        if (!m_stat.bArea && pSource->count() == 0)
            throw CLI::RequiredError("SOURCE or --area");
        m_verb = [this] { return ZEBU_Stat(m_stat); };
    });

    CLI::App* pList = m_app.add_subcommand("ls", "List the rings of a directory");
    pList->add_option("DIR", m_list.strDirectory, "The directory, instead of the present one");
    fs_addChoice(pList, "-o,--output", m_list.eFormat, cs_listFormats, "text or json");
    pList->final_callback([this] { m_verb = [this] { return ZEBU_List(m_list); }; });
}

void ZEBUCommandLine::addDrain()
{
    CLI::App* pApp =
        m_app.add_subcommand("drain", "Take the lines out of the trace area, those that do not match too");
    fs_addArea(pApp, m_drain.strArea, "Its file, instead of the configured one: --area=FILE");
    pApp->add_flag("--peek", m_drain.bPeek, "Leave them there");
    fs_addFilter(pApp, m_drain.filter);
    fs_addOutput(pApp, m_drain);
    pApp->final_callback([this] { m_verb = [this] { return ZEBU_Drain(m_drain); }; });
}

void ZEBUCommandLine::addPut()
{
    CLI::App* pApp = m_app.add_subcommand("put", "Write lines as an application does");
    CLI::Option* pArea = pApp->add_flag("--area-only", m_put.bAreaOnly, "Into the trace area alone");
    CLI::Option* pRing =
        pApp->add_option("--ring", m_put.strRing, "Into the ring with this prefix, and the trace area");
    CLI::Option* pSize =
        pApp->add_option("--size", m_put.lSize,
                         "Size of one file of the ring, in bytes; not needed for a shared ring that exists");
    CLI::Option* pFiles = pApp->add_option("--files", m_put.lFiles, "Number of its files; likewise");
    CLI::Option* pShared = pApp->add_flag("--shared", m_put.bShared, "It is shared by several processes");
    pRing->excludes(pArea);
    pSize->needs(pRing);
    pFiles->needs(pRing);
    pShared->needs(pRing);
    pApp->add_option("--app", m_put.strApp, "Application name (zebu2)");
    pApp->add_option("--level", m_put.iLevel, "Message level (0)")->check(CLI::Range(0, 1000));
    CLI::Option* pId = pApp->add_option("--id", m_put.strId, "Message id");
    pApp->add_option("--type", m_put.strType, "Message type")->needs(pId);
    pApp->add_option("TEXT", m_put.strText, "The text, or - for the lines of the standard input")
        ->default_val("-");
    pApp->final_callback([this, pArea, pRing] {
        if (pArea->count() + pRing->count() == 0)
            throw CLI::RequiredError("--area-only or --ring");
        m_verb = [this] { return ZEBU_Put(m_put); };
    });
}

void ZEBUCommandLine::addFiles()
{
    CLI::App* pBackup = m_app.add_subcommand("backup", "Copy a ring into one file, oldest first");
    pBackup->add_option("PREFIX", m_backup.strPrefix, "Prefix of the ring")->required();
    pBackup->add_option("DEST", m_backup.strDestination, "The file, made or overwritten")->required();
    pBackup->final_callback([this] { m_verb = [this] { return ZEBU_Backup(m_backup); }; });

    CLI::App* pClean = m_app.add_subcommand("clean", "Remove old trace files");
    pClean->add_option("PATTERN", m_clean.strPattern, "Directory and wildcard pattern: '/var/trace/app*.log'")
        ->required();
    CLI::Option* pOlder = fs_addText(pClean, "--older-than", m_clean.strOlderThan,
                                     "Those last written so long ago: 90s, 30min, 12h, 7d");
    CLI::Option* pKeep = pClean->add_option("--keep", m_clean.iKeep, "All but so many of the newest")
                             ->check(CLI::Range(0, INT_MAX));
    pOlder->excludes(pKeep);
    pClean->add_flag("--dry-run", m_clean.bDryRun, "Only show what would be removed");
    pClean->add_flag("--force", m_clean.bForce, "Also files of a shared ring that may be in use");
    pClean->final_callback([this, pOlder, pKeep] {
        if (pOlder->count() + pKeep->count() == 0)
            throw CLI::RequiredError("--older-than or --keep");
        m_verb = [this] { return ZEBU_Clean(m_clean); };
    });
}

void ZEBUCommandLine::addWords()
{
    CLI::App* pConfig = m_app.add_subcommand("config", "Tell what the library reads from its configuration");
    pConfig->add_option("FILE", m_config.strFile, "As if the environment named this file");
    pConfig->add_flag("--check", m_config.bCheck, "Exit with 1 when a line has no effect");
    pConfig->final_callback([this] { m_verb = [this] { return ZEBU_Config(m_config); }; });

    CLI::App* pExplain = m_app.add_subcommand("explain", "Put an error value into words");
    pExplain->add_option("VALUE", m_explain.strValue, "Of ZEBU2_GetLastError: 0x2700001D")->required();
    pExplain->add_option("CODE", m_explain.strCode, "The error code that came with it");
    pExplain->final_callback([this] { m_verb = [this] { return ZEBU_Explain(m_explain); }; });
}

// What stands behind the word, --help too, is for the other program.
void ZEBUCommandLine::addForward()
{
    CLI::App* pApp = m_app.add_subcommand("forward", "Deliver lines to a RELP server (zebu2-forward)");
    pApp->prefix_command();
    pApp->set_help_flag();
    pApp->final_callback([this, pApp] { m_verb = [pApp] { return ZEBU_StartForward(pApp->remaining()); }; });
}

void ZEBUCommandLine::checkVerb(const std::string& strWord) const
{
    bool bKnown = strWord.starts_with('-');
    for (const CLI::App* pVerb : m_app.get_subcommands([](const CLI::App*) { return true; }))
        bKnown = bKnown || pVerb->get_name() == strWord;
    if (!bKnown)
        throw ZEBUFailure{"there is no verb \"" + strWord + "\": see zebu2 --help"};
}

// Whether there is a verb to run; else the tool ends with `*piStatus`.
bool ZEBUCommandLine::parse(int argc, char** argv, int* piStatus)
{
    try {
        checkVerb(argc > 1 ? argv[1] : "-");
        m_app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        // What it says may repeat what was given.
        std::ostringstream output;
        std::ostringstream errors;
        *piStatus = m_app.exit(error, output, errors) == 0 ? ZEBU_EXIT_OK : ZEBU_EXIT_ERROR;
        ZEBU_WriteFully(STDOUT_FILENO, output.str(), "standard output");
        const std::string strErrors = errors.str();
        if (!strErrors.empty())
            ZEBU_Say(strErrors.substr(0, strErrors.find_last_not_of('\n') + 1));
        return false;
    }
}

int ZEBUCommandLine::run(int argc, char** argv)
{
    try {
        int iStatus = ZEBU_EXIT_OK;
        return parse(argc, argv, &iStatus) ? m_verb() : iStatus;
    } catch (const ZEBUEnded&) {
        return ZEBU_EXIT_OK;
    } catch (const ZEBUFailure& failure) {
        ZEBU_Say(failure.strText);
    } catch (const std::exception& error) {
        ZEBU_Say(error.what());
    }
    return ZEBU_EXIT_ERROR;
}

// A file that was mapped got shorter: there is nothing sensible to go on with.
void fs_onBus(int)
{
    static constexpr char szText[] = "zebu2: a file was cut off while it was read\n";
    (void)!write(STDERR_FILENO, szText, sizeof szText - 1);
    _exit(ZEBU_EXIT_ERROR);
}
} // namespace

void ZEBU_Pause(long lMicroseconds)
{
    pollfd output = {.fd = STDOUT_FILENO, .events = 0, .revents = 0};
    const timespec pause = {lMicroseconds / 1000000, lMicroseconds % 1000000 * 1000};
    if (ppoll(&output, 1, &pause, nullptr) > 0 && (output.revents & POLLERR) != 0)
        throw ZEBUEnded{}; // nobody reads any more
}

// What was closed at the start must not be taken by a file, or what is printed would go there. It stays
// unusable: a drain whose output is closed has to fail.
static void fs_fillStandardDescriptors()
{
    for (int iFd = STDIN_FILENO; iFd <= STDERR_FILENO; ++iFd)
        if (fcntl(iFd, F_GETFD) == -1)
            (void)open("/dev/null", iFd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

int main(int argc, char** argv)
{
    fs_fillStandardDescriptors();
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGBUS, fs_onBus);
    return ZEBUCommandLine().run(argc, argv);
}
