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

uint32_t word(size_t uValue)
{
    return static_cast<uint32_t>(uValue);
}

// A file without a name.
struct NamelessFile
{
    const int iFd = memfd_create("", MFD_CLOEXEC);

    ~NamelessFile() { (void)close(iFd); }
    std::string bytes() const { return readFile("/proc/self/fd/" + std::to_string(iFd)); }
};
} // namespace

ToolResult zebu2(const Words& words, const std::string& input)
{
    const NamelessFile in, out, err;
    CHECK(pwrite(in.iFd, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()));
    const int iStatus = inChild([&] {
        CHECK(dup2(in.iFd, 0) == 0 && dup2(out.iFd, 1) == 1 && dup2(err.iFd, 2) == 2);
        runTool(words);
    });
    return {iStatus, out.bytes(), err.bytes()};
}

Lines splitAt(char cEnd, const std::string& text)
{
    std::istringstream in(text);
    Lines parts;
    for (std::string part; std::getline(in, part, cEnd);)
        parts.push_back(part);
    return parts;
}

void expectStatus(int iStatus, const std::vector<std::string>& calls)
{
    for (const std::string& call : calls) {
        std::istringstream words(call);
        EXPECT_EQ(zebu2({std::istream_iterator<std::string>(words), {}}).status, iStatus) << call;
    }
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
    uint64_t uCaught = 0;
    while ((uCaught >> (SIGTERM - 1) & 1) == 0) {
        const std::string text = readFile(status);
        uCaught = std::stoull(text.substr(text.find("SigCgt:") + 8, 16), nullptr, 16);
    }
    signal(SIGTERM);
}

const std::string& RunningTool::readUntil(const std::string& text)
{
    char block[4096];
    ssize_t lGot = 0;
    while (m_read.find(text) == std::string::npos && (lGot = read(m_iOutput, block, sizeof block)) > 0)
        m_read.append(block, static_cast<size_t>(lGot));
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

void ToolTest::writeRecord(size_t uCurrent, size_t uOffset, size_t uFiles) const
{
    const uint32_t words[16] = {0x5542455A,    0xEFBBBF00,     4096,       word(uFiles),
                                word(uOffset), word(uCurrent), 0xFFFFFFC0, 1};
    (void)mkdir(path("mmap").c_str(), 0777);
    // Written in place: the tool may have it mapped.
    const int iFd = open(managementFile().c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_EQ(pwrite(iFd, words, sizeof words, 0), ssize_t{sizeof words});
    (void)close(iFd);
}

void ToolTest::writeRing(const Lines& files, size_t uCurrent, bool bShared) const
{
    const size_t uCount = files.size();
    for (size_t u = 1; u <= uCount; ++u) {
        const int n = static_cast<int>(u);
        bShared ? writeShared(n, files[u - 1]) : writeFile(traceFile(n), files[u - 1]);
        age(traceFile(n), static_cast<long>((uCurrent + uCount - u) % uCount) * 10);
    }
    if (bShared)
        writeRecord(uCurrent, files[uCurrent - 1].size(), uCount);
}

void ToolTest::writeArea(size_t uDataSize, size_t uRead, size_t uWrite, const std::string& unread) const
{
    const AreaHeader header = {0x5542455A, 0, word(uDataSize), word(uRead), word(uWrite), 0};
    std::string data(uDataSize, '\xEE');
    for (size_t i = 0; i < unread.size(); ++i)
        data[(uRead + i) % uDataSize] = unread[i];
    (void)mkdir(path("mmap").c_str(), 0777);
    writeFile(areaFile(), std::string(reinterpret_cast<const char*>(&header), sizeof header) + data);
}
