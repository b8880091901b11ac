// Trace instances: creation, handles, levels, lock parameters, deletion.
#include <unistd.h>

#include "support/Sandbox.h"

class Instance : public Sandbox
{
protected:
    static ZEBU2_HINSTANCE create(const tagZEBU_LOGFILE_SPEC* pRing, Result expected = {0, 0},
                                  bool bShared = false)
    {
        ZEBU2_HINSTANCE hInstance = nullptr;
        EXPECT_EQ(result(bShared ? ZEBU2_CreateInstanceM(&hInstance, pRing, "abc", 0)
                                 : ZEBU2_CreateInstance(&hInstance, pRing, "abc")),
                  expected);
        return hInstance;
    }
    static ZEBU2_HINSTANCE createForArea() { return create(nullptr, {1, 0x13000000}); }
};

TEST_F(Instance, CreationResults)
{
    EXPECT_EQ(result(ZEBU2_CreateInstance(nullptr, ring(), "x")), Result(-1, 0x13000001));
    EXPECT_EQ(result(ZEBU2_CreateInstanceM(nullptr, ring(), "x", 0)), Result(-1, 0x28000001));
    const tagZEBU_LOGFILE_SPEC invalid = {4096, 17, "unused"}, unusable = {4096, 3, "/proc/none/app"};
    const std::pair<const tagZEBU_LOGFILE_SPEC*, int> fileless[] = {
        {&invalid, 0x13000001}, {nullptr, 0x13000000}, {&unusable, 0x13000015}};
    for (const auto& [pRing, iError] : fileless)
        EXPECT_EQ(ZEBU2_DeleteInstance(create(pRing, {1, iError})), 0);
}

TEST_F(Instance, DeadHandlesAreRefused)
{
    ZEBU2_HINSTANCE hInstance = create(ring());
    ASSERT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    ZEBU2_HINSTANCE const hWild = reinterpret_cast<ZEBU2_HINSTANCE>(uintptr_t{64});
    const struct
    {
        int (*call)(ZEBU2_HINSTANCE);
        int iFunction, iResult;
        bool bNullIsDefault; // null stands for the defaults
    } calls[] = {
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_DeleteInstance(h); }, 20, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_InstanceFileBufferFlush(h); }, 24, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_InstanceTraceBackup(h, "/tmp/never"); }, 25, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_InstanceTraceBackupM(h, "/tmp/never", 16); }, 50, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_ChInstanceFileAttr(h, 0640); }, 38, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceLogLevel(h, 1); }, 15, 0, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_GetInstanceLogLevel(h); }, 16, 0, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceFileThreshold(h, 1); }, 17, 0, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceShmThreshold(h, 1); }, 18, 0, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_GetInstanceLockWaitTime(h); }, 45, -1, true},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceLockWaitTime(h, 1); }, 46, -1, true},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_GetInstanceLockRetryTimes(h); }, 47, -1, true},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceLockRetryTimes(h, 20); }, 48, -1, true},
    };
    for (const auto& c : calls) {
        for (ZEBU2_HINSTANCE h : {hInstance, hWild, ZEBU2_HINSTANCE{nullptr}}) {
            if (h || !c.bNullIsDefault) {
                EXPECT_EQ(result(c.call(h)), Result(c.iResult, c.iFunction << 24 | (h ? 11 : 1)));
            }
        }
    }
}

TEST_F(Instance, ManyComeAndGo)
{
    std::vector<ZEBU2_HINSTANCE> instances;
    for (int iRound = 0; iRound < 3; ++iRound) {
        for (int i = 0; i < 200; ++i)
            instances.push_back(createForArea());
        for (auto it = instances.begin(); it != instances.end(); ++it) { // every other one goes
            EXPECT_EQ(ZEBU2_DeleteInstance(*it), 0);
            EXPECT_EQ(ZEBU2_PutInstanceLine(*it, 0, "x"), -1);
            it = instances.erase(it);
        }
        for (ZEBU2_HINSTANCE hInstance : instances)
            EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "x"), 0);
    }
}

TEST_F(Instance, TheAreaStaysWhileSomebodyUsesIt)
{
    ZEBU2_HINSTANCE hFirst = create(ring()), hSecond = createForArea();
    ASSERT_EQ(ZEBU2_Initialize(nullptr, "app"), 1);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hFirst, 0, "one"), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hFirst), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hSecond, 0, "two"), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hSecond), 0);
    EXPECT_EQ(result(ZEBU2_PutToShm("x", 1)), Result(0, 11)); // the last user has closed it
    EXPECT_EQ(bodies(areaLines()), (Lines{"one", "two"}));
}

// A user that came out without the area holds no reference on it, and must not give one up.
TEST_F(Instance, WithoutTheAreaNoReferenceIsReleased)
{
    writeFile(path("mmap"), "in the way");
    EXPECT_EQ(create(ring(1), {-1, 0x13000002}), nullptr);
    ZEBU2_HINSTANCE hWithout = create(ring(), {2, 2});
    ASSERT_EQ(ZEBU2_Initialize(ring(4096, 1, "process"), "app"), 2);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hWithout, 0, "file only"), 0);
    ASSERT_EQ(unlink(path("mmap").c_str()), 0);
    ZEBU2_HINSTANCE hWith = createForArea();
    EXPECT_EQ(ZEBU2_DeleteInstance(hWithout), 0);
    EXPECT_EQ(result(ZEBU2_PutInstanceLine(hWith, 0, "attached")), Result(0, 0));
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(result(ZEBU2_PutInstanceLine(hWith, 0, "still attached")), Result(0, 0));
    EXPECT_EQ(bodies(lines(1)), Lines{"file only"});
    EXPECT_EQ(bodies(areaLines()), (Lines{"attached", "still attached"}));
}

TEST_F(Instance, HasLevelsOfItsOwn)
{
    ZEBU2_HINSTANCE hInstance = create(ring());
    const struct
    {
        int (*set)(ZEBU2_HINSTANCE, int);
        int iFunction, iValue;
    } levels[] = {{ZEBU2_SetInstanceLogLevel, 15, 5},
                  {ZEBU2_SetInstanceFileThreshold, 17, 3},
                  {ZEBU2_SetInstanceShmThreshold, 18, 4}};
    for (const auto& l : levels) {
        EXPECT_EQ(result(l.set(hInstance, l.iValue)), Result(0, 0));
        for (const int iRefused : {-2, 1001})
            EXPECT_EQ(result(l.set(hInstance, iRefused)), Result(l.iValue, l.iFunction << 24 | 1));
    }
    EXPECT_EQ(ZEBU2_GetLogLevel(), 0);
    EXPECT_EQ(ZEBU2_GetInstanceLogLevel(hInstance), 5);
    for (int iLevel = 2; iLevel <= 6; ++iLevel)
        EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, iLevel, std::to_string(iLevel).c_str()), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"3", "4", "5"}));
    EXPECT_EQ(bodies(areaLines()), (Lines{"2", "3", "4"}));
}

TEST_F(Instance, LockParametersOfSharedRings)
{
    EXPECT_EQ(ZEBU2_SetLockWaitTime(-5), 1);
    EXPECT_EQ(ZEBU2_SetLockRetryTimes(0), 20);
    ASSERT_EQ(ZEBU2_InitializeM(ring(), "app", 0), 0);
    EXPECT_EQ(ZEBU2_GetLockWaitTime(), 0);
    EXPECT_EQ(ZEBU2_SetLockRetryTimes(7), 1);
    EXPECT_EQ(ZEBU2_GetLockRetryTimes(), 7);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_GetLockRetryTimes(), 7);

    ZEBU2_HINSTANCE hOld = create(ring(), {0, 0}, true);
    EXPECT_EQ(ZEBU2_SetInstanceLockRetryTimes(nullptr, 5), 20);
    EXPECT_EQ(ZEBU2_SetInstanceLockWaitTime(nullptr, -1), 1);
    ZEBU2_HINSTANCE hNew = create(ring(), {0, 0}, true);
    EXPECT_EQ(ZEBU2_GetInstanceLockRetryTimes(hOld), 20);
    EXPECT_EQ(ZEBU2_GetInstanceLockRetryTimes(hNew), 5);
    EXPECT_EQ(ZEBU2_SetInstanceLockWaitTime(hNew, 30), 0);
    EXPECT_EQ(ZEBU2_GetInstanceLockWaitTime(hNew), 30);
}

TEST_F(Instance, LockParametersOfOtherRingsAreRefused)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(4096, 1, "process"), "app"), 0);
    ZEBU2_HINSTANCE hSingle = create(ring()), hWithout = create(ring(1), {1, 0x13000001});
    EXPECT_EQ(result(ZEBU2_GetLockWaitTime()), Result(-1, 0x2900001C));
    EXPECT_EQ(result(ZEBU2_SetLockWaitTime(10)), Result(-1, 0x2A00001C));
    EXPECT_EQ(result(ZEBU2_GetLockRetryTimes()), Result(-1, 0x2B00001C));
    EXPECT_EQ(result(ZEBU2_SetLockRetryTimes(10)), Result(-1, 0x2C00001C));
    EXPECT_EQ(result(ZEBU2_GetInstanceLockWaitTime(hSingle)), Result(-1, 0x2D00001C));
    EXPECT_EQ(result(ZEBU2_SetInstanceLockWaitTime(hSingle, 1)), Result(-1, 0x2E00001C));
    EXPECT_EQ(result(ZEBU2_GetInstanceLockRetryTimes(hSingle)), Result(-1, 0x2F00001C));
    EXPECT_EQ(result(ZEBU2_SetInstanceLockRetryTimes(hSingle, 1)), Result(-1, 0x3000001C));
    EXPECT_EQ(result(ZEBU2_GetInstanceLockWaitTime(hWithout)), Result(-1, 0x2D00000B));
}

TEST_F(Instance, BackupAndPermissionsAreItsOwn)
{
    const std::string copy = path("copy");
    EXPECT_EQ(result(ZEBU2_ChFileAttr(0644)), Result(-1, 0x2500000B));
    ZEBU2_HINSTANCE hInstance = create(ring());
    EXPECT_EQ(result(ZEBU2_ChFileAttr(0644)), Result(-1, 0x2500000B)); // also when instances exist
    EXPECT_EQ(result(ZEBU2_TraceBackupM(copy.c_str(), 0)), Result(-1, 0x3100000B));
    EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "kept"), 0);
    EXPECT_EQ(result(ZEBU2_ChInstanceFileAttr(hInstance, 0x1000)), Result(-1, 0x26000001));
    EXPECT_EQ(ZEBU2_ChInstanceFileAttr(hInstance, 0440), 0);
    EXPECT_EQ(fileMode(traceFile(1)), 0640);
    EXPECT_EQ(ZEBU2_InstanceFileBufferFlush(hInstance), 0);
    EXPECT_EQ(result(ZEBU2_InstanceTraceBackupM(hInstance, copy.c_str(), 1)), Result(-1, 0x32000001));
    EXPECT_EQ(ZEBU2_InstanceTraceBackupM(hInstance, copy.c_str(), 16), 0);
    EXPECT_EQ(bodies(traceLines(readFile(copy))), Lines{"kept"});
    ASSERT_EQ(ZEBU2_Initialize(ring(1), "app"), 1);
    EXPECT_EQ(result(ZEBU2_ChFileAttr(0644)), Result(-1, 0x2500000B));
    EXPECT_EQ(result(ZEBU2_ChFileAttr(0x1000)), Result(-1, 0x25000001));
}
