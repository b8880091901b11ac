#include "support/Tool.h"

const char* const zebu2Path = ZEBU2_TOOL;

namespace {
void runTool(const Words& words, const char* pszProgram = zebu2Path)
{
    std::vector<char*> arguments = {const_cast<char*>(pszProgram)};
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(pszProgram, arguments.data());
    CHECK(false);
}

// What was written to a file without a name.
std::string readAll(int iFile)
{
    const std::string bytes = readFile("/proc/self/fd/" + std::to_string(iFile));
    (void)close(iFile);
    return bytes;
}
} // namespace

ToolResult zebu2(const Words& words, const std::string& input)
{
    const int iIn = memfd_create("in", MFD_CLOEXEC);
    const int iOut = memfd_create("out", MFD_CLOEXEC);
    const int iErr = memfd_create("err", MFD_CLOEXEC);
    CHECK(pwrite(iIn, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()));
    const int iStatus = inChild([&] {
        CHECK(dup2(iIn, 0) == 0 && dup2(iOut, 1) == 1 && dup2(iErr, 2) == 2);
        runTool(words);
    });
    (void)close(iIn);
    return {iStatus, readAll(iOut), readAll(iErr)};
}

Lines outLines(const Words& words)
{
    std::istringstream out(zebu2(words).out);
    Lines lines;
    for (std::string line; std::getline(out, line);)
        lines.push_back(line);
    return lines;
}

void expectStatus(int iStatus, const std::vector<std::string>& calls)
{
    for (const std::string& call : calls) {
        std::istringstream words(call);
        EXPECT_EQ(zebu2({std::istream_iterator<std::string>(words), {}}).status, iStatus) << call;
    }
}

std::string asText(std::string bytes)
{
    for (size_t uAt = 0; (uAt = bytes.find("\r\n", uAt)) != std::string::npos;)
        bytes.erase(uAt, 1);
    return bytes;
}

RunningTool::RunningTool(const Words& words, int iPipeSize, const char* pszProgram)
{
    int ends[2];
    CHECK(pipe2(ends, O_CLOEXEC) == 0);
    CHECK(iPipeSize == 0 || fcntl(ends[1], F_SETPIPE_SZ, iPipeSize) >= 0);
    m_child = startChild([&] {
        CHECK(dup2(ends[1], 1) == 1);
        runTool(words, pszProgram);
    });
    (void)close(ends[1]);
    m_iOutput = ends[0];
}

RunningTool::~RunningTool()
{
    closeOutput();
    if (m_child > 0) {
        signal(SIGKILL);
        (void)wait();
    }
}

// Once the tool is prepared for it.
void RunningTool::end() const
{
    const std::string status = "/proc/" + std::to_string(m_child) + "/status";
    const auto isCaught = [&] {
        const std::string text = readFile(status);
        return std::stoull(text.substr(text.find("SigCgt:") + 8, 16), nullptr, 16) >> (SIGTERM - 1) & 1;
    };
    while (!isCaught())
        (void)usleep(1000);
    signal(SIGTERM);
}

const std::string& RunningTool::readUntil(const std::string& text)
{
    char block[4096];
    while (m_read.find(text) == std::string::npos) {
        const ssize_t lGot = read(m_iOutput, block, sizeof block);
        if (lGot <= 0)
            break;
        m_read.append(block, static_cast<size_t>(lGot));
    }
    return m_read;
}

std::string ToolTest::line(int iCounter, const std::string& time, const std::string& body,
                           const std::string& app, const std::string& pid, const std::string& tid)
{
    char header[128];
    const std::string day = time.size() < 23 ? "2026/11/22 " + time : time;
    (void)snprintf(header, sizeof header, "%04d %s     %-16s %s %-8s ", iCounter, day.c_str(), app.c_str(),
                   pid.c_str(), tid.c_str());
    return header + body + "\r\n";
}

std::string ToolTest::plainLines(int iFirst, int iLast)
{
    std::string lines;
    for (int i = iFirst; i <= iLast; ++i) {
        char time[16];
        (void)snprintf(time, sizeof time, "10:%02d:%02d.000", i / 60 % 60, i % 60);
        lines += line(i, time, "message " + std::to_string(i));
    }
    return lines;
}

std::string ToolTest::fileHeader()
{
    char header[512];
    (void)snprintf(header, sizeof header,
                   "**** %-61s%-17s%-32s 2026/11/22 09:00:00.000\r\n%s%-12smessage(LANG=C)\r\n",
                   "Linux 6.1 #1", "host", "TZ=UTC",
                   "     yyyy/mm/dd hh:mm:ss.sss                      pid      tid      message-id", "");
    return header;
}

std::string ToolTest::startHeader()
{
    return "**** app              00001A2B 0000004096 0003 00000000\r\n" + fileHeader();
}

std::string ToolTest::mark()
{
    return "\x1A\r\n\r\n\r\n\r\n----------< End of Data >----------\r\n\r\n";
}

void ToolTest::writeShared(int n, const std::string& live, const std::string& behind) const
{
    std::string bytes = live + mark() + behind;
    bytes.resize(std::max(bytes.size(), size_t{4096}), ' ');
    writeFile(traceFile(n), bytes);
}

void ToolTest::writeRecord(unsigned uCurrent, unsigned uOffset, unsigned uFiles) const
{
    const uint32_t words[16] = {0x5542455A, 0xEFBBBF00, 4096, uFiles, uOffset, uCurrent, 0xFFFFFFC0, 1};
    (void)mkdir(path("mmap").c_str(), 0777);
    // Written in place: the tool may have it mapped.
    const int iFd = open(managementFile().c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_EQ(pwrite(iFd, words, sizeof words, 0), ssize_t{sizeof words});
    (void)close(iFd);
}

void ToolTest::writeRing(const Lines& files, size_t uCurrent) const
{
    for (size_t n = 1; n <= files.size(); ++n)
        writeShared(static_cast<int>(n), files[n - 1]);
    writeRecord(static_cast<unsigned>(uCurrent), static_cast<unsigned>(files[uCurrent - 1].size()),
                static_cast<unsigned>(files.size()));
}

void ToolTest::writeArea(uint32_t uDataSize, uint32_t uRead, uint32_t uWrite, const std::string& unread) const
{
    const uint32_t words[6] = {0x5542455A, 0, uDataSize, uRead, uWrite, 0};
    std::string data(uDataSize, '\xEE');
    for (size_t i = 0; i < unread.size(); ++i)
        data[(uRead + i) % uDataSize] = unread[i];
    (void)mkdir(path("mmap").c_str(), 0777);
    writeFile(areaFile(), std::string(reinterpret_cast<const char*>(words), sizeof words) + data);
}
