// tests/support/RelpServer.h -- a RELP server on the loopback that behaves as a test tells it.
#ifndef ZEBU_TESTS_SUPPORT_RELPSERVER_H
#define ZEBU_TESTS_SUPPORT_RELPSERVER_H

#include "support/Tool.h"

class RelpServer
{
public:
    // Where its files are, and the steps and options that relp_server.py knows.
    explicit RelpServer(const std::string& files, const Words& steps = {}, Words words = {}) : m_files(files)
    {
        writeFile(files, "");
        words.push_back(files);
        words.insert(words.end(), steps.begin(), steps.end());
        m_process = std::make_unique<RunningTool>(words, 0, ZEBU_RELP_SERVER);
        m_port = splitAt('\n', m_process->readUntil("\n")).at(0);
    }

    const std::string& port() const { return m_port; }
    // The messages that were acknowledged, each time; those that were refused begin with "-".
    Lines messages() const { return splitAt('\0', readFile(m_files)); }

private:
    const std::string m_files;
    std::unique_ptr<RunningTool> m_process;
    std::string m_port;
};

#endif
