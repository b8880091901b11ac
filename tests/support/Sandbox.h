// tests/support/Sandbox.h -- a directory and a configuration of its own for each test, and the words to
// talk about rings, lines and the trace area.
#ifndef ZEBU_TESTS_SUPPORT_SANDBOX_H
#define ZEBU_TESTS_SUPPORT_SANDBOX_H

// What several tests need, beside the containers, strings and streams that gtest brings.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "support/Check.h"
#include "ZEBULib2.h"

using Lines = std::vector<std::string>;

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);             // a link too that leads nowhere
void age(const std::string& path, long lSeconds); // sets the modification time that far back

// What a file of a shared ring holds before its mark; nothing without one.
std::string sharedData(const std::string& bytes);
// The lines of a text that end with CR LF, without it.
Lines splitLines(const std::string& bytes);
// The trace lines among them: no headers.
Lines traceLines(const std::string& bytes);
// What stands behind the 68 columns of a line's header.
std::string body(const std::string& line);
Lines bodies(Lines lines);

// What a call returned, and the error value that it left; the same with the code.
using Result = std::pair<int, int>;
using Failure = std::tuple<int, int, int>;

struct AreaHeader
{
    uint32_t uMagic, uReserved, uDataSize, uReadOffset, uWriteOffset, uGuard;
};

class Sandbox : public ::testing::Test
{
protected:
    Sandbox();
    ~Sandbox() override { std::filesystem::remove_all(m_dir, m_ignored); }

    std::string path(const std::string& name) const { return m_dir + "/" + name; }
    std::string prefix() const { return path("app"); }
    std::string traceFile(int n) const { return prefix() + std::to_string(n) + ".log"; }
    std::string areaFile() const { return path("mmap/zebu2mmap.mm"); }
    std::string configFile() const { return path("test.cnf"); }
    // Permission bits.
    static int fileMode(const std::string& file) { return int(std::filesystem::status(file).permissions()); }
    // Writes the configuration anew: the trace area in this directory, and `extra` lines.
    void configure(const std::string& extra = "")
    {
        writeFile(configFile(), "LogFile = " + path("log\n") + extra);
    }

    // A ring in this directory. Valid until the next call.
    const tagZEBU_LOGFILE_SPEC* ring(long lSize = 65536, long lCount = 3, const std::string& name = "app")
    {
        m_prefix = path(name);
        m_ring = {lSize, lCount, m_prefix.c_str()};
        return &m_ring;
    }

    // Starts the process log with the trace area alone; puts a line into it; stops it. All must work.
    static void startArea() { ASSERT_EQ(result(ZEBU2_Initialize(nullptr, "app")), Result(1, 0x06000000)); }
    static void putLine(const std::string& text)
    {
        EXPECT_EQ(result(ZEBU2_PutLine(0, text.c_str())), Result(0, 0));
    }
    static void stop() { EXPECT_EQ(ZEBU2_Finalize(), 0); }

    static int lastError() { return ZEBU2_GetLastError(nullptr); }
    static Result result(int iReturned) { return {iReturned, lastError()}; }
    static Failure failure(int iReturned)
    {
        int iCode = 0;
        const int iValue = ZEBU2_GetLastError(&iCode);
        return {iReturned, iValue, iCode};
    }
    // In a child process, which comes to its end.
    static void passInChild(const std::function<void()>& body) { EXPECT_EQ(inChild(body), 0); }

    // The trace lines of file n.
    Lines lines(int n) const { return traceLines(readFile(traceFile(n))); }

    AreaHeader areaHeader() const;
    // The bytes of the trace area between read and write offset.
    std::string areaBytes() const;
    Lines areaLines() const { return splitLines(areaBytes()); }
    // Writes one 32-bit field of the area's header.
    void setAreaField(long lOffset, uint32_t uValue) const;

private:
    std::string m_dir;
    std::error_code m_ignored;
    std::string m_prefix;
    tagZEBU_LOGFILE_SPEC m_ring;
};

// Puts an empty file system over /opt for this process and its children alone, so that nothing is left
// on the machine and tests that run at the same time do not meet. Before the process has threads.
// Returns false where the system does not allow it, as without privileges.
bool enterPrivateOpt();
// The same with a disk of 96 KiB at /opt/full.
bool enterSmallDisk();

long openDescriptors(); // of this process

// Locks a file as another process does, until the descriptor that it returns is closed.
int lockAsAnother(const std::string& path);

#endif
