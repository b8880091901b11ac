// tests/support/RelpServer.h -- a RELP server on the loopback that behaves as a test tells it.
#ifndef ZEBU_TESTS_SUPPORT_RELPSERVER_H
#define ZEBU_TESTS_SUPPORT_RELPSERVER_H

#include "support/Tool.h"

class RelpServer
{
public:
    // Where its files are, and the steps and options that relp_server.py knows.
    explicit RelpServer(const std::string& files, Words words = {}, const Words& options = {})
        : m_files(begun(files)), m_process((words.insert(words.begin(), m_files),
                                            words.insert(words.end(), options.begin(), options.end()), words),
                                           0, ZEBU_RELP_SERVER),
          m_iPort(std::stoi(m_process.readUntil("\n")))
    {
    }

    int port() const { return m_iPort; }
    // How often each message was acknowledged; those that were refused begin with "-".
    std::map<std::string, int> seen() const
    {
        std::map<std::string, int> found;
        std::istringstream in(readFile(m_files));
        for (std::string message; std::getline(in, message, '\0');)
            ++found[message];
        return found;
    }

private:
    static std::string begun(const std::string& files)
    {
        writeFile(files, "");
        return files;
    }
    const std::string m_files;
    RunningTool m_process;
    const int m_iPort;
};

#endif
