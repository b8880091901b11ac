// Every failing call: a fixed run of the library is repeated, and each time another call of another libc
// function fails inside it. Whatever fails: no crash, no hang, no lock, descriptor or mapping left behind,
// results and error values as documented, and every line that was acknowledged is there once.
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>

#include "fault/inject.h"
#include "support/PrivateOpt.h"
#include "support/Sandbox.h"

// ---- What can fail, how, and what may come of it -------------------------------------------------

struct Failing
{
    int iFunction;
    const char* pszName;
    std::vector<int> codes;
    std::set<int> failures; // numbers that the library may report for it, with that code
    bool bConfig;           // can keep the configuration from being read: no area directory is known then
};

#define FAILING(name, ...)                                                                                   \
    {                                                                                                        \
        FAULT_##name, #name, __VA_ARGS__                                                                     \
    }

static const std::vector<Failing> cs_failing = {
    FAILING(calloc, {ENOMEM}, {ZEBU_EPOS_NOMEM}, true),
    FAILING(chmod, {EPERM}, {ZEBU_EPOS_CHMOD}, false),
    FAILING(close, {EIO, EINTR}, {ZEBU_EPOS_CLOSE}, false),
    FAILING(closedir, {EIO}, {}, false),
    FAILING(fallocate, {ENOSPC, EINTR, EOPNOTSUPP}, {ZEBU_EPOS_WRITE}, false),
    FAILING(fchmod, {EPERM}, {ZEBU_EPOS_CHMOD}, false),
    FAILING(fchmodat, {EPERM}, {ZEBU_EPOS_CHMOD}, false),
    FAILING(fclose, {EIO}, {}, true),
    FAILING(fcntl, {EIO}, {ZEBU_EPOS_FLUSH}, false),
    FAILING(fdopen, {ENOMEM}, {}, true),
    FAILING(fgets, {EIO}, {}, true),
    FAILING(fstat, {EIO}, {ZEBU_EPOS_STAT, ZEBU_EPOS_OPEN, ZEBU_EPOS_CHMOD}, false),
    FAILING(fstatat, {EIO}, {ZEBU_EPOS_STAT}, false),
    FAILING(ftruncate, {EIO}, {ZEBU_EPOS_OPEN}, false),
    FAILING(futimens, {EPERM}, {}, false),
    FAILING(gethostname, {ENAMETOOLONG}, {}, false),
    FAILING(localtime_r, {EOVERFLOW}, {}, false),
    FAILING(lockf, {EAGAIN, EINTR, ENOLCK}, {ZEBU_EPOS_LOCK}, false),
    FAILING(lseek, {EIO}, {ZEBU_EPOS_LSEEK}, false),
    FAILING(lstat, {EACCES}, {ZEBU_EPOS_STAT}, false),
    FAILING(malloc, {ENOMEM}, {ZEBU_EPOS_NOMEM, ZEBU_EPOS_OPENDIR}, true),
    FAILING(mkdir, {EACCES, ENOSPC}, {ZEBU_EPOS_MKDIR}, false),
    FAILING(mmap, {ENOMEM}, {ZEBU_EPOS_MMAP}, false),
    FAILING(msync, {EIO}, {ZEBU_EPOS_FLUSH}, false),
    FAILING(munmap, {ENOMEM}, {ZEBU_EPOS_MUNMAP}, false),
    FAILING(open, {EMFILE, EACCES}, {ZEBU_EPOS_OPEN, ZEBU_EPOS_CHMOD}, true),
    FAILING(openat, {EMFILE}, {ZEBU_EPOS_OPEN}, false),
    FAILING(opendir, {EMFILE}, {ZEBU_EPOS_OPENDIR}, false),
    FAILING(pthread_key_create, {EAGAIN}, {}, false),
    FAILING(pthread_setspecific, {ENOMEM}, {}, false),
    FAILING(read, {EIO, EINTR, FAULT_SHORT}, {ZEBU_EPOS_READ}, false),
    FAILING(readdir, {EIO}, {}, false),
    FAILING(readlinkat, {EIO}, {ZEBU_EPOS_OPEN, ZEBU_EPOS_CHMOD}, false),
    FAILING(stat, {EACCES}, {ZEBU_EPOS_STAT}, true),
    FAILING(uname, {EFAULT}, {}, false),
    FAILING(unlink, {EACCES}, {ZEBU_EPOS_UNLINK}, false),
    FAILING(utimensat, {EPERM}, {}, false),
    FAILING(write, {ENOSPC, EIO, EINTR, FAULT_SHORT}, {ZEBU_EPOS_WRITE}, false),
};

constexpr int cs_iFiles = 8; // of the ring: more than the script fills, so that it loses nothing by design

// One thread runs, and the thread sanitizer makes each fork slow: there, every seventh call will do.
#ifdef __SANITIZE_THREAD__
constexpr long cs_lStep = 7;
#else
constexpr long cs_lStep = 1;
#endif

static ZebuFault* plan()
{
    static const auto find = reinterpret_cast<ZebuFaultPlan>(dlsym(RTLD_DEFAULT, ZEBU_FAULT_PLAN));
    return find ? find() : nullptr;
}

// ---- What must not be left behind ----------------------------------------------------------------

static long openDescriptors()
{
    long lCount = 0;
    for (int i = 0; i < 256; ++i)
        lCount += fcntl(i, F_GETFD) != -1 ? 1 : 0;
    return lCount;
}

static bool mapsAnythingIn(const std::string& dir)
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(dir) != std::string::npos)
            return true;
    }
    return false;
}

// Asks as another owner: the locks of this process conflict.
static bool isLocked(const std::string& name)
{
    const int iFd = open(name.c_str(), O_RDWR | O_CLOEXEC);
    if (iFd == -1 && errno == ENOENT)
        return false;
    CHECK(iFd != -1);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    CHECK(fcntl(iFd, F_OFD_GETLK, &lock) == 0);
    CHECK(close(iFd) == 0);
    return lock.l_type != F_UNLCK;
}

static void checkNothingLeft(const std::string& dir, long lDescriptors)
{
    CHECK(openDescriptors() == lDescriptors);
    CHECK(!mapsAnythingIn(dir));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        if (entry.is_regular_file())
            CHECK(!isLocked(entry.path()));
    }
}

// ---- One run with one fault ----------------------------------------------------------------------

namespace {

// Which log is run: its functions differ, the script does not.
struct Script
{
    const char* pszName;
    bool bInstance;
    bool bShared;
    bool bRebuild; // the management file is lost between the two starts
    int iOption;

    friend void PrintTo(const Script& script, std::ostream* pOut) { *pOut << script.pszName; }
};

class Scene
{
public:
    Scene(const Script& script, const Failing& failing, const std::string& dir)
        : m_script(script), m_failing(failing), m_dir(dir), m_prefix(dir + "/ring/app")
    {
        m_ring = {4096, cs_iFiles, m_prefix.c_str()};
    }

    void start()
    {
        if (m_bLives)
            stop();
        if (m_bLives)
            return;
        if (m_script.bShared)
            m_iStarted = call(
                ZEBU_FUNC_INITIALIZE_M,
                [this] { return ZEBU2_InitializeM(&m_ring, "fault", m_script.iOption); },
                ZEBU_FUNC_CREATE_INSTANCE_M,
                [this] { return ZEBU2_CreateInstanceM(&m_handle, &m_ring, "fault", m_script.iOption); });
        else
            m_iStarted = call(
                ZEBU_FUNC_INITIALIZE, [this] { return ZEBU2_Initialize(&m_ring, "fault"); },
                ZEBU_FUNC_CREATE_INSTANCE,
                [this] { return ZEBU2_CreateInstance(&m_handle, &m_ring, "fault"); });
    }
    void put(size_t uLength = 800)
    {
        std::string text = "line " + std::to_string(m_iLines++) + " ";
        text.resize(uLength, '.');
        const int iResult = call(
            ZEBU_FUNC_PUT_LINE, [&] { return ZEBU2_PutLine(0, text.c_str()); }, ZEBU_FUNC_PUT_INSTANCE_LINE,
            [&] { return ZEBU2_PutInstanceLine(m_handle, 0, text.c_str()); });
        m_put.push_back({text, iResult == 0, iResult == 0 && lastError() == 0});
    }
    void stop()
    {
        if (m_iStarted == -1 && !m_bLives)
            return;
        const int iResult = call(
            ZEBU_FUNC_FINALIZE, [] { return ZEBU2_Finalize(); }, ZEBU_FUNC_DELETE_INSTANCE,
            [this] { return ZEBU2_DeleteInstance(m_handle); });
        // A close of its files that failed leaves an instance alive.
        m_bLives = iResult != 0 && m_script.bInstance && stillLives();
        m_iStarted = -1;
    }

    // The script. It begins with an empty directory and starts twice, the second time on a ring with lines.
    void play()
    {
        start();
        for (int i = 0; i < 7; ++i) // into the second file
            put();
        const int iMode = call(
            ZEBU_FUNC_CH_FILE_ATTR, [] { return ZEBU2_ChFileAttr(0640); }, ZEBU_FUNC_CH_INSTANCE_FILE_ATTR,
            [this] { return ZEBU2_ChInstanceFileAttr(m_handle, 0640); });
        m_bModeChanged = iMode == 0;
        call(
            ZEBU_FUNC_FILE_BUFFER_FLUSH, [] { return ZEBU2_FileBufferFlush(); },
            ZEBU_FUNC_INSTANCE_FILE_BUFFER_FLUSH, [this] { return ZEBU2_InstanceFileBufferFlush(m_handle); });
        stop();
        if (m_script.bRebuild)
            CHECK(unlink(manageFile().c_str()) == 0 || m_bHit);
        start();
        put();
        const std::string to = m_dir + "/backup/all.log";
        call(
            ZEBU_FUNC_TRACE_BACKUP, [&] { return ZEBU2_TraceBackup(to.c_str()); },
            ZEBU_FUNC_INSTANCE_TRACE_BACKUP, [&] { return ZEBU2_InstanceTraceBackup(m_handle, to.c_str()); });
        put();
        put(4117); // more than a file of a shared ring
        stop();
    }

    // With nothing failing any more.
    void recover()
    {
        plan()->iFunction = -1;
        stop();
        CHECK(!m_bLives);
        start();
        CHECK(m_iStarted == 0 || (m_script.bRebuild && m_iStarted == 3));
        put();
        CHECK(m_put.back().bAcknowledged);
        stop();
    }

    void checkRing() const
    {
        std::map<std::string, int> found;
        for (int n = 1; n <= cs_iFiles; ++n)
            countLines(m_prefix + std::to_string(n) + ".log", m_script.bShared, &found);
        for (const Put& p : m_put) {
            const int iCount = found.contains(p.text) ? found[p.text] : 0;
            CHECK(p.bAcknowledged ? iCount == 1 : iCount <= 1);
            found.erase(p.text);
        }
        CHECK(found.empty());
    }
    // Opening a file that is there opens it to nobody.
    void checkMode() const { CHECK(!m_bModeChanged || fileMode(m_prefix + "1.log") == 0640); }
    void checkArea() const
    {
        const std::string area = readFile(m_dir + "/mmap/zebu2mmap.mm");
        for (const Put& p : m_put) {
            const size_t uFirst = area.find(p.text + "\r\n");
            CHECK(!p.bInArea || uFirst != std::string::npos);
            CHECK(uFirst == std::string::npos || area.find(p.text + "\r\n", uFirst + 1) == std::string::npos);
        }
    }

private:
    struct Put
    {
        std::string text;
        bool bAcknowledged, bInArea;
    };

    // Makes the call of the process log or that of an instance, and checks what came of it.
    template <class OfProcess, class OfInstance>
    int call(int iProcessFunction, OfProcess ofProcess, int iInstanceFunction, OfInstance ofInstance)
    {
        const long lFired = plan()->lFired;
        plan()->iArmed = 1;
        const int iResult = m_script.bInstance ? ofInstance() : ofProcess();
        plan()->iArmed = 0;
        const bool bFired = plan()->lFired != lFired;
        m_bHit |= bFired;
        check(m_script.bInstance ? iInstanceFunction : iProcessFunction, iResult, bFired);
        CHECK(!isLocked(manageFile()) && !isLocked(m_dir + "/mmap/zebu2mmap.mm"));
        return iResult;
    }

    void check(int iFunc, int iResult, bool bFired)
    {
        int iCode = 0;
        const int iValue = ZEBU2_GetLastError(&iCode);
        const int iFailure = ZEBU2_ERROR_FAILURE(iValue);
        if (m_script.bRebuild && iResult == 3 && iFailure == ZEBU_EPOS_MISMATCH)
            return;
        CHECK(m_bHit || (iResult == 0 && iValue == 0));
        if (iResult == 0) {
            CHECK(iValue == 0 || iValue == ZEBU_EPOS_NOTREADY); // without area
            return;
        }
        if (iValue == ZEBU_EPOS_NOCONTEXT) {
            CHECK(iResult == -1);
            return;
        }
        const bool bFunction =
            ZEBU2_ERROR_FUNCTION(iValue) == iFunc || (ZEBU2_ERROR_FUNCTION(iValue) == 0 && iResult == 2);
        const bool bFailure = bFired ? isExplained(iFailure, iCode) : isConsequence(iFailure, iCode);
        if (!bFunction || !bFailure)
            (void)fprintf(stderr, "function %d: result %d, value %08X, code %d\n", iFunc, iResult, iValue,
                          iCode);
        CHECK(bFunction && bFailure);
    }
    bool isExplained(int iFailure, int iCode) const
    {
        const int iInjected =
            plan()->iCode == FAULT_SHORT ? (m_failing.iFunction == FAULT_read ? EIO : ENOSPC) : plan()->iCode;
        if (m_failing.failures.contains(iFailure) && iCode == iInjected)
            return true;
        if (m_failing.bConfig && iFailure == ZEBU_EPOS_MKDIR && (iCode == ENOENT || iCode == EEXIST))
            return true;
        if (plan()->lLast != plan()->lFirst) // the area is missing too, and its number comes over the file's
            return isConsequence(iFailure, 0) || isConsequence(iFailure, iCode);
        return false;
    }
    // What a call that is not hit itself may report after one that was.
    bool isConsequence(int iFailure, int iCode) const
    {
        if (iFailure == ZEBU_EPOS_FLUSH) // nothing is open or mapped since a file could not be opened
            return iCode == EBADF || iCode == ENOMEM;
        const bool bNoHandle = m_script.bInstance && !m_handle && iFailure == ZEBU_EPOS_PARAM;
        return iCode == 0 && (bNoHandle || iFailure == ZEBU_EPOS_NOTREADY || iFailure == ZEBU_EPOS_MISMATCH);
    }
    bool stillLives() const { return ZEBU2_GetInstanceLogLevel(m_handle) != -2 && lastError() == 0; }

    // Counts the trace lines of a file. Whatever is not a whole line of ours, or of a header, is a fault.
    static void countLines(const std::string& name, bool bShared, std::map<std::string, int>* pFound)
    {
        std::string bytes = readFile(name);
        if (bShared)
            bytes = bytes.substr(0, bytes.starts_with('\x1A') ? 0 : bytes.find("\r\n\x1A") + 2);
        CHECK(bytes.empty() || bytes.ends_with("\r\n"));
        for (const std::string& line : traceLines(bytes))
            ++(*pFound)[body(line)];
    }

    std::string manageFile() const { return m_dir + "/ring/mmap/app.mm"; }

    const Script& m_script;
    const Failing& m_failing;
    const std::string m_dir;
    const std::string m_prefix;
    tagZEBU_LOGFILE_SPEC m_ring;
    ZEBU2_HINSTANCE m_handle = nullptr;
    std::vector<Put> m_put;
    int m_iLines = 0;
    int m_iStarted = -1;
    bool m_bLives = false; // an instance whose deletion failed
    bool m_bHit = false;
    bool m_bModeChanged = false;
};

} // namespace

// ---- The tests -----------------------------------------------------------------------------------

static const Script cs_scripts[] = {
    {"Single", false, false, false, 0},
    {"Instance", true, false, false, 0},
    {"Shared", false, true, false, 0},
    {"SharedRebuilt", false, true, true, ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY},
    {"SharedInstance", true, true, false, 0},
};

class Fault : public ::testing::TestWithParam<Script>
{
protected:
    using Body = std::function<void(const Failing& failing, const std::string& dir)>;

    void SetUp() override
    {
        ASSERT_NE(plan(), nullptr) << "the injector is not preloaded";
        (void)enterPrivateOpt(); // without the area's directory the standard one must not be found
    }

    // Runs `body` again and again, each time with another fault: every call of every function once, and every
    // call from some call on, as on a disk that is full or without memory.
    void withEveryFault(const Body& body)
    {
        int iRuns = 0;
        for (const Failing& failing : cs_failing) {
            for (const int iCode : failing.codes) {
                for (long n = 1; run(body, failing, iCode, n, n); n += cs_lStep)
                    ++iRuns;
                if (iCode == EINTR || failing.iFunction == FAULT_munmap) // nothing could ever be given back
                    continue;
                for (const long n : {1, 4, 12, 30})
                    run(body, failing, iCode, n, LONG_MAX);
            }
        }
        std::cout << iRuns << " calls failed\n";
    }

private:
    // In a process and a directory of its own. True when the fault came to pass.
    bool run(const Body& body, const Failing& failing, int iCode, long lFirst, long lLast)
    {
        *m_pbFired = false;
        const std::string dir = makeDirectory();
        const int iStatus = inChild([&] {
            alarm(20); // for a hang
            const long lDescriptors = openDescriptors();
            *plan() = {};
            plan()->iFunction = failing.iFunction;
            plan()->iCode = iCode;
            plan()->lFirst = lFirst;
            plan()->lLast = lLast;
            body(failing, dir);
            *m_pbFired = plan()->lFired != 0;
            checkNothingLeft(dir, lDescriptors);
            CHECK(plan()->lInheritable == 0);
        });
        std::filesystem::remove_all(dir);
        EXPECT_EQ(iStatus, 0) << "calls " << lFirst << " to " << lLast << " of " << failing.pszName
                              << ", code " << iCode;
        return *m_pbFired;
    }

    static std::string makeDirectory()
    {
        const std::string memory = "/dev/shm"; // thousands of directories are made
        std::string dir =
            access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path().string();
        dir += "/zebu-fault-XXXXXX";
        CHECK(mkdtemp(dir.data()));
        CHECK(mkdir((dir + "/ring").c_str(), 0777) == 0);
        CHECK(symlink("../elsewhere.log", (dir + "/ring/app2.log").c_str()) == 0);
        writeFile(dir + "/test.cnf", "LogFile = " + dir + "/log\nMapSize = 16384\n");
        CHECK(setenv("ZEBU2_TRACECNF_FILE", (dir + "/test.cnf").c_str(), 1) == 0);
        return dir;
    }

    bool* const m_pbFired = static_cast<bool*>(
        mmap(nullptr, sizeof(bool), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
};

TEST_P(Fault, LosesNothingAndLeavesNothing)
{
    withEveryFault([](const Failing& failing, const std::string& dir) {
        Scene scene(GetParam(), failing, dir);
        scene.play();
        if (failing.iFunction == FAULT_pthread_key_create && plan()->lFired != 0)
            return; // the process has no contexts, for good
        scene.recover();
        scene.checkRing();
        scene.checkArea();
        scene.checkMode();
    });
}

INSTANTIATE_TEST_SUITE_P(Of, Fault, ::testing::ValuesIn(cs_scripts),
                         [](const auto& test) { return test.param.pszName; });

using FaultOf = Fault;

TEST_F(FaultOf, Cleanup)
{
    withEveryFault([](const Failing& failing, const std::string& dir) {
        for (int n = 1; n <= 4; ++n) {
            writeFile(dir + "/old" + std::to_string(n) + ".log", "line\r\n");
            age(dir + "/old" + std::to_string(n) + ".log",
                10); // time(2) can be behind the time of a new file
        }
        const std::string pattern = dir + "/old*.log";
        for (const int iMode : {ZEBU2_CLEAR_BY_NUMBER, ZEBU2_CLEAR_BY_AGE}) {
            plan()->iArmed = 1;
            const int iResult =
                ZEBU2_LogFileClear(pattern.c_str(), iMode, iMode == ZEBU2_CLEAR_BY_NUMBER ? 2 : 0);
            plan()->iArmed = 0;
            const int iValue = lastError();
            if (iValue == ZEBU_EPOS_NOCONTEXT || (iResult == 0 && iValue == ZEBU_EPOS_NOMEM))
                continue;
            CHECK((iValue == 0) == (iResult == 0));
            CHECK(iResult == 0 || (ZEBU2_ERROR_FUNCTION(iValue) == ZEBU_FUNC_LOG_FILE_CLEAR &&
                                   failing.failures.contains(ZEBU2_ERROR_FAILURE(iValue))));
        }
        plan()->iFunction = -1;
        CHECK(ZEBU2_LogFileClear(pattern.c_str(), ZEBU2_CLEAR_BY_AGE, 0) == 0);
        for (int n = 1; n <= 4; ++n)
            CHECK(!exists(dir + "/old" + std::to_string(n) + ".log"));
    });
}
