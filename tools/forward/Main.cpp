// tools/forward/Main.cpp -- the command line of zebu2-forward.
#include <algorithm>
#include <CLI/CLI.hpp>
#include <map>
#include <signal.h>
#include <unistd.h>

#include "config/ConfUnix.h"
#include "tools/forward/Forward.h"
#include "tools/Output.h"

namespace {
constexpr int cs_iError = 2; // also wrong usage

const std::map<std::string, ZEBUForm> cs_forms = {
    {"plain", ZEBUForm::Plain}, {"id", ZEBUForm::Id}, {"type", ZEBUForm::Type}};

// A file that was mapped got shorter: there is nothing sensible to go on with. What was not acknowledged
// comes again with the next start.
void fs_onBus(int)
{
    static constexpr char szText[] = "zebu2-forward: a file was cut off while it was read\n";
    (void)!write(STDERR_FILENO, szText, sizeof szText - 1);
    _exit(cs_iError);
}

std::string fs_configuredArea()
{
    const auto pConfig = std::make_unique<ZEBUConfigInf>();
    if (*pConfig->szMMapFile == '\0')
        throw ZEBUFailure{
            "no configuration file can be read that says where the trace area lies: give --area=FILE"};
    return pConfig->szMMapFile;
}

class ZEBUCommandLine
{
public:
    ZEBUCommandLine();
    int run(int argc, char** argv);

private:
    void addSources();
    void addServer();
    void addMessages();
    void check();

    CLI::App m_app{"Delivers trace lines to a RELP server, each until the server acknowledged it.",
                   "zebu2-forward"};
    ZEBUForwardOptions m_options;
    std::string m_strTo;
    std::string m_strSeverity;
    std::string m_strForm;
    bool m_bNoNameCheck = false;
    int m_iTimeout = 30;
    CLI::Option* m_pArea = nullptr;
};

ZEBUCommandLine::ZEBUCommandLine()
{
    addSources();
    addServer();
    addMessages();
    m_app.footer("Exit status: 0 ended by SIGTERM or SIGINT, 2 an error.");
}

void ZEBUCommandLine::addSources()
{
    m_app.add_option("SOURCE", m_options.sources, "Prefix of a ring, or a file");
    m_pArea = m_app.add_flag("--area{}", m_options.strArea,
                             "The trace area too, as its consumer; --area=FILE: not the configured one");
    m_app.add_option("--cursor", m_options.strCursor, "Where to keep how far the SOURCEs are delivered");
    m_app.add_flag("--wait", m_options.bWait, "Wait for what does not exist yet");
    m_app
        .add_option("--interval", m_options.iInterval, "Milliseconds between two looks at what is idle (100)")
        ->check(CLI::Range(1, 3600000));
}

void ZEBUCommandLine::addServer()
{
    ZEBUServer& server = m_options.relp.server;
    m_app
        .add_option("--to", m_strTo, "relp://HOST:PORT, or with TLS relps://HOST:PORT; port 2514 if left out")
        ->required();
    m_app
        .add_option("--window", m_options.relp.uWindow,
                    "Messages that may wait for their acknowledgement (128)")
        ->check(CLI::Range(1, 10000));
    m_app.add_option("--timeout", m_iTimeout, "Seconds until a server that does not answer is given up (30)")
        ->check(CLI::Range(1, 3600));
    m_app.add_option("--ca", server.strCaFile, "File of the authorities to trust, instead of the system's");
    CLI::Option* pCertificate =
        m_app.add_option("--cert", server.strCertificate, "Certificate of this client");
    CLI::Option* pKey = m_app.add_option("--key", server.strKey, "Its private key");
    pCertificate->needs(pKey);
    pKey->needs(pCertificate);
    m_app.add_flag("--no-name-check", m_bNoNameCheck, "Any certificate of the authorities will do");
}

void ZEBUCommandLine::addMessages()
{
    m_app.add_option("--severity", m_strSeverity,
                     "Severities of message types: \"E=err,WARN=warning,*=info\"");
    m_app.add_option("--form", m_strForm, "Read bodies as plain, id or type instead of guessing")
        ->check(CLI::IsMember(cs_forms).description(""));
    m_app
        .add_option("--max-message", m_options.lines.uMessageMax,
                    "Bytes of a message; longer ones are cut (65536)")
        ->check(CLI::Range(ZEBU_MESSAGE_MIN, ZEBU_MESSAGE_LIMIT));
    m_app.add_flag("--skip-refused", m_options.relp.bSkipRefused,
                   "A message that the server refuses is told and left out, not sent again");
}

// What the options say together.
void ZEBUCommandLine::check()
{
    ZEBURelpOptions& relp = m_options.relp;
    if (!ZEBU_ParseServer(m_strTo, &relp.server))
        throw CLI::ValidationError("--to",
                                   "\"" + m_strTo + "\" is not relp://HOST:PORT or relps://HOST:PORT");
    if (!relp.server.bTls && !(relp.server.strCaFile + relp.server.strCertificate).empty())
        throw CLI::ValidationError("--to", "--ca and --cert are for relps://");
    if (m_options.sources.empty() && m_pArea->count() == 0)
        throw CLI::RequiredError("SOURCE or --area");
    if (!m_options.sources.empty() && m_options.strCursor.empty())
        throw CLI::RequiredError("--cursor");
    if (std::count(m_options.sources.begin(), m_options.sources.end(), "-") > 0)
        throw CLI::ValidationError("SOURCE", "the standard input has no place to go on at");
    if (!m_strSeverity.empty() && !m_options.lines.severities.parse(m_strSeverity))
        throw CLI::ValidationError("--severity", "\"" + m_strSeverity + "\" is no list of TYPE=SEVERITY");
    if (m_pArea->count() > 0 && m_options.strArea.empty())
        m_options.strArea = fs_configuredArea();
    if (!m_strForm.empty())
        m_options.lines.eForm = cs_forms.at(m_strForm);
    relp.server.bCheckName = !m_bNoNameCheck;
    relp.lTimeout = ZEBUClock{m_iTimeout} * 1000;
}

int ZEBUCommandLine::run(int argc, char** argv)
{
    try {
        m_app.parse(argc, argv);
        check();
        ZEBU_Forward(m_options);
        return 0;
    } catch (const CLI::ParseError& error) {
        return m_app.exit(error) == 0 ? 0 : cs_iError;
    } catch (const ZEBUFailure& failure) {
        ZEBU_ForwardSay(failure.strText);
    } catch (const std::exception& error) {
        ZEBU_ForwardSay(error.what());
    }
    return cs_iError;
}
} // namespace

int main(int argc, char** argv)
{
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGBUS, fs_onBus);
    return ZEBUCommandLine().run(argc, argv);
}
