// tests/support/Tool.h -- runs the operator's tool, and makes rings and lines out of nothing.
#ifndef ZEBU_TESTS_SUPPORT_TOOL_H
#define ZEBU_TESTS_SUPPORT_TOOL_H

#include "support/Sandbox.h"

using Words = std::vector<std::string>;

struct ToolResult
{
    int status;
    std::string out;
    std::string err;
};

// Where the tool is. In one object alone, so that the others are the same wherever they are built.
extern const char* const zebu2Path;

// Runs the tool to its end.
ToolResult zebu2(const Words& words, const std::string& input = "");
// The parts of a text that a character ends.
Lines splitAt(char cEnd, const std::string& text);
// The lines that the tool prints.
inline Lines outLines(const Words& words)
{
    return splitAt('\n', zebu2(words).out);
}
// Its status for each command line, whose words are divided by blanks.
void expectStatus(int iStatus, const std::vector<std::string>& calls);

// Lines as the tool prints them as text: they end with LF alone.
inline std::string asText(std::string bytes)
{
    std::erase(bytes, '\r');
    return bytes;
}

// The tool while it runs; killed with the object.
class RunningTool
{
public:
    // `iPipeSize`: of its output, 0 for the usual.
    explicit RunningTool(const Words& words, int iPipeSize = 0, const char* pszProgram = zebu2Path);
    ~RunningTool();
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;

    // Reads on until the output contains a text, or ends. Returns all of it.
    const std::string& readUntil(const std::string& text);
    void closeOutput() { (void)close(std::exchange(m_iOutput, -1)); }
    // Sends SIGTERM when the tool waits for it.
    void end() const;
    void signal(int iNumber) const { (void)kill(m_child, iNumber); }
    // Its exit status, or 128 and the signal that killed it.
    int wait() { return waitForChild(std::exchange(m_child, -1)); }

private:
    pid_t m_child;
    int m_iOutput;
    std::string m_read;
};

class ToolTest : public Sandbox
{
protected:
    ToolTest() { CHECK(chdir(path("").c_str()) == 0); } // files are shown by the names they are given

    // A trace line of the day 2026/11/22 with its line end: 0007 2026/11/22 10:00:00.000 ...
    static std::string line(int iCounter, const std::string& time, const std::string& body,
                            const std::string& app = "app", const std::string& pid = "00001A2B",
                            const std::string& tid = "0000ABCD");
    // Any number of plain lines, one a second from 10:00:00 on, with the counters first to last.
    static std::string plainLines(int iFirst, int iLast);
    static std::string fileHeader();
    static std::string startHeader();
    static std::string mark();

    // Writes file n of a shared ring: live data, the mark, and what else is there.
    void writeShared(int n, const std::string& live, const std::string& behind = "") const;
    void writeRecord(size_t uCurrent, size_t uOffset, size_t uFiles = 3) const;
    // Writes a ring of these live data, the current file last: a shared one with its record at the end of
    // that file's, or one of one process.
    void writeRing(const Lines& files, size_t uCurrent, bool bShared = true) const;
    std::string managementFile() const { return path("mmap/app.mm"); }

    // Writes an area of a data size, with bytes from the read offset on.
    void writeArea(size_t uDataSize, size_t uRead, size_t uWrite, const std::string& unread) const;
};

#endif
