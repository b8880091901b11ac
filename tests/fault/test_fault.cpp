// Every failing call: a fixed run of the library is repeated, and each time another call of another libc
// function fails inside it. Whatever fails: no crash, no hang, no lock, descriptor or mapping left behind,
// results and error values as documented, and every line that was acknowledged is there once.
#include <dlfcn.h>

#include "fault/inject.h"
#include "support/Sandbox.h"

namespace {

// What the call that is hit must give.
enum Outcome { ANY, FAILS, PASSES };

struct Failing
{
    std::vector<const char*> functions;
    std::vector<int> codes;
    Outcome eOutcome;
    std::set<int> failures = {}; // numbers that the library may report for them, with that code
    std::set<int> besides = {};  // numbers that a call which succeeds may leave
};

const Failing cs_failing[] = {
    {{"calloc"}, {ENOMEM}, ANY, {ZEBU_EPOS_NOMEM}},
    {{"malloc"}, {ENOMEM}, ANY, {ZEBU_EPOS_NOMEM, ZEBU_EPOS_OPENDIR}, {ZEBU_EPOS_NOMEM, ZEBU_EPOS_NOCONTEXT}},
    {{"chmod", "fchmod", "fchmodat"}, {EPERM}, ANY, {ZEBU_EPOS_CHMOD}},
    {{"close"}, {EIO, EINTR}, ANY, {ZEBU_EPOS_CLOSE}, {ZEBU_EPOS_CLOSE}},
    {{"fallocate"}, {ENOSPC, EIO}, FAILS, {ZEBU_EPOS_WRITE}},
    {{"fallocate"}, {EINTR, EOPNOTSUPP}, PASSES},
    {{"fcntl", "msync"}, {EIO}, FAILS, {ZEBU_EPOS_FLUSH}},
    {{"fdopendir"}, {ENOMEM}, FAILS, {ZEBU_EPOS_OPENDIR}},
    {{"fstat"}, {EIO}, ANY, {ZEBU_EPOS_STAT, ZEBU_EPOS_OPEN, ZEBU_EPOS_CHMOD}},
    {{"fstatat", "lstat", "stat"}, {EACCES}, ANY, {ZEBU_EPOS_STAT, ZEBU_EPOS_OPEN}},
    {{"ftruncate"}, {EIO}, FAILS, {ZEBU_EPOS_OPEN}},
    {{"lockf"}, {EAGAIN, EINTR, ENOLCK}, ANY, {ZEBU_EPOS_LOCK}},
    {{"lseek"}, {EIO}, ANY, {ZEBU_EPOS_LSEEK}},
    {{"mkdir"}, {EACCES, ENOSPC}, FAILS, {ZEBU_EPOS_MKDIR}},
    {{"mmap"}, {ENOMEM}, FAILS, {ZEBU_EPOS_MMAP}},
    {{"munmap"}, {ENOMEM}, ANY, {ZEBU_EPOS_MUNMAP}},
    {{"open", "openat"}, {EMFILE, EACCES}, ANY, {ZEBU_EPOS_OPEN, ZEBU_EPOS_OPENDIR, ZEBU_EPOS_CHMOD}},
    {{"read"}, {EIO, FAULT_SHORT}, ANY, {ZEBU_EPOS_READ}},
    {{"read", "write", "writev"}, {EINTR}, PASSES},
    {{"readlinkat"}, {EIO}, FAILS, {ZEBU_EPOS_OPEN, ZEBU_EPOS_CHMOD}},
    {{"unlink"}, {EACCES}, FAILS, {ZEBU_EPOS_UNLINK}},
    {{"write", "writev"}, {ENOSPC, EIO}, FAILS, {ZEBU_EPOS_WRITE}},
    {{"write", "writev"}, {FAULT_SHORT}, ANY, {ZEBU_EPOS_WRITE}},
    // These cost a piece of a header, a time or the configuration, and pass otherwise.
    {{"closedir", "fclose", "fdopen", "fgets", "fstatfs", "futimens", "gethostname", "localtime_r",
      "pthread_key_create", "pthread_setspecific", "readdir", "uname", "utimensat"},
     {EAGAIN},
     ANY,
     {},
     {ZEBU_EPOS_NOCONTEXT}},
};

enum When { UNTOUCHED = 1, NOW = 2, LATER = 4 }; // no fault to be seen yet; in this call; in one before

constexpr int cs_iFiles = 8; // of the ring: more than the script fills, so that it loses nothing by design

// The sanitizer makes each fork slow, and tells of calls that are alike the same: there, every third will do.
const long cs_lStep = dlsym(RTLD_DEFAULT, "__asan_init") ? 3 : 1;

ZebuFault* const cs_pPlan = static_cast<ZebuFault*>(dlsym(RTLD_DEFAULT, ZEBU_FAULT_PLAN));

// Asks as another owner: the locks of this process conflict.
bool isLocked(const std::string& name)
{
    const int iFd = open(name.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    CHECK(fcntl(iFd, F_OFD_GETLK, &lock) == 0 || !exists(name));
    (void)close(iFd);
    return iFd != -1 && lock.l_type != F_UNLCK;
}

// ---- One run with one fault ----------------------------------------------------------------------

// Which log is run: its functions differ, the script does not.
struct Script
{
    const char* pszName;
    bool bInstance = false, bShared = false;
    bool bRebuild = false; // the management file is lost between the two starts
    int iOption = 0;

    friend void PrintTo(const Script& script, std::ostream* pOut) { *pOut << script.pszName; }
};

class Scene : public Sandbox, Script
{
public:
    Scene(const Script& script, const Failing& failing) : Script(script), m_failing(failing)
    {
        configure("MapSize = 16384\n");
        CHECK(mkdir(path("ring").c_str(), 0777) == 0);
        CHECK(symlink("../elsewhere.log", (m_prefix + "2.log").c_str()) == 0);
        for (const char* pszOld : {"old1.log", "old2.log", "old3.log"}) {
            writeFile(path(pszOld), "line\r\n");
            age(path(pszOld), 10); // time(2) can be behind the time of a new file
        }
    }
    using Sandbox::path;

    // Begins with an empty directory and starts twice, the second time on a ring with lines.
    void play()
    {
        start();
        for (int i = 0; i < 7; ++i) // into the second file
            put();
        m_bModeChanged = callEither(ZEBU2_ChInstanceFileAttr, ZEBU2_ChFileAttr, 0640) == 0 &&
                         !m_bFired; // what cannot be looked at is passed over
        callEither(ZEBU2_InstanceFileBufferFlush, ZEBU2_FileBufferFlush);
        stop();
        if (bRebuild)
            CHECK(unlink(manageFile().c_str()) == 0 || m_bHit);
        start();
        put();
        const std::string to = path("backup/all.log");
        if (callEither(ZEBU2_InstanceTraceBackup, ZEBU2_TraceBackup, to.c_str()) == 0)
            checkBackup(to);
        put();
        put(4117); // more than a file of a shared ring
        call([&] { return ZEBU2_LogFileClear(m_oldFiles.c_str(), ZEBU2_CLEAR_BY_NUMBER, 2); });
        call([&] { return ZEBU2_LogFileClear(m_oldFiles.c_str(), ZEBU2_CLEAR_BY_AGE, 0); });
        stop();
    }

    // With nothing failing any more.
    void recover()
    {
        cs_pPlan->pszFunction = "";
        const int iStarted = start();
        CHECK(iStarted == 0 || (bRebuild && iStarted == 3));
        put();
        CHECK(m_put.back().bAcknowledged);
        CHECK(ZEBU2_LogFileClear(m_oldFiles.c_str(), ZEBU2_CLEAR_BY_AGE, 0) == 0 &&
              !exists(path("old2.log")));
        stop();
        CHECK(!m_bOpen);
    }

    // Every line that was acknowledged is there once, in the ring and in the area, and nothing is torn.
    void checkLines() const
    {
        std::string all;
        for (int n = 1; n <= cs_iFiles; ++n) {
            const std::string bytes = readFile(m_prefix + std::to_string(n) + ".log");
            all += bShared ? sharedData(bytes) : bytes;
            CHECK(all.empty() || all.ends_with("\r\n"));
        }
        std::map<std::string, int> found = countBodies(all), inArea = countBodies(areaBytes());
        for (const Put& p : m_put) {
            CHECK(found[p.text] == 1 || (found[p.text] == 0 && !p.bAcknowledged));
            CHECK(inArea[p.text] == 1 || (inArea[p.text] == 0 && !p.bInArea));
            found.erase(p.text);
        }
        CHECK(found.empty());
        // Opening a file that is there opens it to nobody.
        CHECK(!m_bModeChanged || fileMode(m_prefix + "1.log") == 0640);
    }

private:
    struct Put
    {
        std::string text;
        bool bAcknowledged, bInArea;
    };

    static std::map<std::string, int> countBodies(const std::string& text)
    {
        std::map<std::string, int> found;
        for (const std::string& line : traceLines(text))
            ++found[body(line)];
        return found;
    }

    int start()
    {
        stop();
        if (m_bOpen)
            return -1;
        const tagZEBU_LOGFILE_SPEC ring = {4096, cs_iFiles, m_prefix.c_str()};
        const int iResult = call([&] {
            if (bInstance)
                return bShared ? ZEBU2_CreateInstanceM(&m_hInstance, &ring, "fault", iOption)
                               : ZEBU2_CreateInstance(&m_hInstance, &ring, "fault");
            return bShared ? ZEBU2_InitializeM(&ring, "fault", iOption) : ZEBU2_Initialize(&ring, "fault");
        });
        m_bOpen = iResult != -1;
        return iResult;
    }
    void put(size_t uLength = 800)
    {
        std::string text = "line " + std::to_string(m_put.size()) + " ";
        text.resize(uLength, '.');
        const int iResult = callEither(ZEBU2_PutInstanceLine, ZEBU2_PutLine, 0, text.c_str());
        m_put.push_back({text, iResult == 0, iResult == 0 && lastError() == 0});
    }
    void stop()
    {
        if (!m_bOpen)
            return;
        const int iResult = callEither(ZEBU2_DeleteInstance, ZEBU2_Finalize);
        // A close of its files that failed leaves an instance alive.
        m_bOpen =
            iResult != 0 && bInstance && ZEBU2_GetInstanceLogLevel(m_hInstance) != -2 && lastError() == 0;
    }

    // The function of an instance or the one of the process log.
    int callEither(auto ofInstance, auto ofProcess, auto... arguments)
    {
        return call(
            [&] { return bInstance ? ofInstance(m_hInstance, arguments...) : ofProcess(arguments...); });
    }

    // Makes a call under the plan, and checks what came of it.
    int call(auto body)
    {
        const long lFired = cs_pPlan->lFired;
        cs_pPlan->iArmed = 1;
        const int iResult = body();
        cs_pPlan->iArmed = 0;
        m_bFired = cs_pPlan->lFired != lFired;
        m_bHit |= m_bFired;
        const Failure given = failure(iResult);
        if (!mayBe(given))
            (void)fprintf(stderr, "%s\n", ::testing::PrintToString(given).c_str());
        CHECK(mayBe(given) && !isLocked(manageFile()) && !isLocked(areaFile()));
        return iResult;
    }

    bool mayBe(const Failure& given) const
    {
        const bool bLasting = cs_pPlan->lFirst != cs_pPlan->lLast;
        const Outcome eOutcome = m_bFired ? m_failing.eOutcome : ANY;
        const int iShort = m_failing.failures.contains(ZEBU_EPOS_READ) ? EIO : ENOSPC;
        const int iFault = cs_pPlan->iCode == FAULT_SHORT ? iShort : cs_pPlan->iCode;
        const int iNow = !m_bHit || (eOutcome == PASSES && !bLasting) ? UNTOUCHED : m_bFired ? NOW : LATER;
        const int iAfter = bLasting ? NOW | LATER : LATER; // what was hit before leaves something closed
        const std::set<int> fails = {-1, 1, 2, 3};
        std::set<int> besides = m_failing.besides;
        besides.insert({0, ZEBU_EPOS_NOTREADY}); // perhaps without area
        const int iLate = besides.contains(ZEBU_EPOS_NOCONTEXT) ? 0 : ZEBU_EPOS_NOCONTEXT; // has one by now
        // Of which fault (When); results, failures and codes, each empty where any will do.
        const std::tuple<int, std::set<int>, std::set<int>, std::set<int>> rules[] = {
            {bRebuild ? ~0 : 0, {3}, {ZEBU_EPOS_MISMATCH}, {}},
            {UNTOUCHED, {0}, {0}, {}},
            {eOutcome == FAILS ? LATER : NOW | LATER, {0}, besides, {}},
            {NOW | LATER, {-1}, {ZEBU_EPOS_NOCONTEXT, iLate}, {}},
            {iAfter, fails, {ZEBU_EPOS_FLUSH}, {EBADF, EINVAL}},
            {iAfter, fails, {ZEBU_EPOS_NOTREADY, ZEBU_EPOS_MISMATCH}, {0}},
            {bLasting ? NOW : 0, fails, {ZEBU_EPOS_NOTREADY, ZEBU_EPOS_MISMATCH}, {}},
            {bInstance && !m_hInstance ? iAfter : 0, {-1}, {ZEBU_EPOS_PARAM}, {0}},
            {m_failing.failures.empty() ? 0 : NOW, fails, m_failing.failures, {iFault}},
            // The configuration could not be read, so that no area directory is known; or the area is missing
            // too, and its number comes over the file's.
            {NOW, fails, {ZEBU_EPOS_MKDIR}, {ENOENT, EEXIST}}};
        const auto [iResult, iValue, iCode] = given;
        const int iFailure = ZEBU2_ERROR_FAILURE(iValue);
        const bool bNamed = iResult != 0 && iFailure != 0 && iFailure != ZEBU_EPOS_NOCONTEXT;
        const auto has = [](const std::set<int>& set, int i) { return set.empty() || set.contains(i); };
        bool bMay = false;
        for (const auto& [iWhen, results, failures, codes] : rules)
            bMay |= (iWhen & iNow) && has(results, iResult) && has(failures, iFailure) && has(codes, iCode);
        return bMay && (iResult == 2 || bNamed == (ZEBU2_ERROR_FUNCTION(iValue) != 0));
    }

    // Every line that was acknowledged is in the copy once, unless the fault hid a file from it: one that may
    // not be read is passed over, now or since it was opened, and one that cannot be read ends there.
    void checkBackup(const std::string& name) const
    {
        std::map<std::string, int> found = countBodies(readFile(name));
        const bool bHidden = m_bHit && (cs_pPlan->iCode == EACCES || (m_bFired && cs_pPlan->iCode == EIO));
        for (const Put& p : m_put)
            CHECK(found[p.text] == 1 || !p.bAcknowledged || (bHidden && found[p.text] == 0));
    }

    void TestBody() override {}
    std::string manageFile() const { return path("ring/mmap/app.mm"); }

    const Failing& m_failing;
    const std::string m_prefix = path("ring/app"), m_oldFiles = path("old*.log");
    ZEBU2_HINSTANCE m_hInstance = nullptr;
    std::vector<Put> m_put;
    bool m_bOpen = false;                  // also an instance whose deletion failed
    bool m_bFired = false, m_bHit = false; // in the last call; in any
    bool m_bModeChanged = false;
};

// ---- The tests -----------------------------------------------------------------------------------

class Fault : public ::testing::TestWithParam<Script>
{
protected:
    void SetUp() override
    {
        ASSERT_NE(cs_pPlan, nullptr) << "the injector is not preloaded";
        (void)enterPrivateOpt();           // without the area's directory the standard one must not be found
        if (access("/dev/shm", W_OK) == 0) // thousands of directories are made
            CHECK(setenv("TMPDIR", "/dev/shm", 1) == 0);
    }

    // In a process and a directory of its own. True when the fault came to pass.
    bool run(const Failing& failing, const ZebuFault& fault)
    {
        Scene scene(GetParam(), failing);
        const int iStatus = inChild([&] {
            alarm(20); // for a hang
            const long lDescriptors = openDescriptors();
            *cs_pPlan = fault;
            scene.play();
            const bool bFired = cs_pPlan->lFired != 0;
            // Without a key the process has no contexts, for good.
            if (fault.pszFunction != std::string("pthread_key_create") || !bFired) {
                scene.recover();
                scene.checkLines();
            }
            // No lock, descriptor or mapping is left.
            CHECK(openDescriptors() == lDescriptors && cs_pPlan->lInheritable == 0);
            CHECK(readFile("/proc/self/maps").find(scene.path("")) == std::string::npos);
            for (const auto& entry : std::filesystem::recursive_directory_iterator(scene.path("")))
                CHECK(!entry.is_regular_file() || !isLocked(entry.path()));
            if (bFired)
                _exit(cs_iFired);
        });
        EXPECT_TRUE(iStatus == 0 || iStatus == cs_iFired)
            << iStatus << ": calls " << fault.lFirst << " to " << fault.lLast << " of " << fault.pszFunction
            << ", code " << fault.iCode;
        return iStatus != 0;
    }

    static constexpr int cs_iFired = 3; // the status of such a process
};

// Every call of every function fails once, and every call from some call on, as on a disk that is full or
// without memory.
TEST_P(Fault, LosesNothingAndLeavesNothing)
{
    int iRuns = 0;
    for (const Failing& failing : cs_failing) {
        for (const char* pszFunction : failing.functions) {
            for (const int iCode : failing.codes) {
                const long lBegin = 1 + iRuns % cs_lStep;
                ZebuFault fault = {pszFunction, iCode, lBegin, lBegin, 0, 0, 0, 0, nullptr};
                for (; run(failing, fault); fault.lLast = fault.lFirst += cs_lStep)
                    ++iRuns;
                if (iCode == EINTR || failing.failures.contains(ZEBU_EPOS_MUNMAP))
                    continue; // nothing could ever be given back
                fault.lLast = LONG_MAX;
                for (const long lFirst : {1, 4, 12, 30}) {
                    fault.lFirst = lFirst;
                    run(failing, fault);
                }
            }
        }
    }
    EXPECT_GT(iRuns, 300 / cs_lStep);
}

INSTANTIATE_TEST_SUITE_P(
    Of, Fault,
    ::testing::Values(Script{"Single"}, Script{"Instance", true}, Script{"Shared", false, true},
                      Script{"SharedRebuilt", false, true, true, ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY},
                      Script{"SharedInstance", true, true}),
    [](const auto& test) { return test.param.pszName; });

} // namespace
