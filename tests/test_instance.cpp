// Trace instances: creation, handles, levels, lock parameters, deletion.
#include <unistd.h>

#include "support/Sandbox.h"

class Instance : public Sandbox
{
protected:
    ZEBU2_HINSTANCE create(const tagZEBU_LOGFILE_SPEC* pRing, int iExpected = 0)
    {
        ZEBU2_HINSTANCE hInstance = nullptr;
        EXPECT_EQ(ZEBU2_CreateInstance(&hInstance, pRing, "abc"), iExpected);
        return hInstance;
    }
    ZEBU2_HINSTANCE createShared(int iExpected = 0)
    {
        ZEBU2_HINSTANCE hInstance = nullptr;
        EXPECT_EQ(ZEBU2_CreateInstanceM(&hInstance, ring(), "shared", 0), iExpected);
        return hInstance;
    }
};

TEST_F(Instance, CreationResults)
{
    EXPECT_EQ(ZEBU2_CreateInstance(nullptr, ring(), "x"), -1);
    EXPECT_EQ(lastError(), 0x13000001);
    EXPECT_EQ(ZEBU2_CreateInstanceM(nullptr, ring(), "x", 0), -1);
    EXPECT_EQ(lastError(), 0x28000001);

    const struct
    {
        tagZEBU_LOGFILE_SPEC spec;
        bool bNull;
        int iError;
        int iPutError;
    } cases[] = {{{4096, 17, "unused"}, false, 0x13000001, 0x1500000B},
                 {{4096, 3, "unused"}, true, 0x13000000, 0},
                 {{4096, 3, "/proc/none/app"}, false, 0x13000015, 0x1500000B}};
    for (const auto& c : cases) {
        ZEBU2_HINSTANCE hInstance = create(c.bNull ? nullptr : &c.spec, 1);
        EXPECT_EQ(lastError(), c.iError);
        ASSERT_NE(hInstance, nullptr);
        EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "area only"), c.iPutError ? -1 : 0);
        EXPECT_EQ(lastError(), c.iPutError);
        EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    }
    EXPECT_EQ(areaLines().size(), 3u);
}

TEST_F(Instance, WithoutTheArea)
{
    writeFile(path("mmap"), "in the way");
    ZEBU2_HINSTANCE hInstance = create(ring(), 2);
    EXPECT_EQ(lastError(), 2);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "file only"), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    EXPECT_EQ(bodies(lines(1)), Lines{"file only"});

    hInstance = create(ring(1), -1);
    EXPECT_EQ(hInstance, nullptr);
    EXPECT_EQ(lastError(), 0x13000002);
}

TEST_F(Instance, DeadHandlesAreRefused)
{
    ZEBU2_HINSTANCE hInstance = create(ring());
    ASSERT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    ZEBU2_HINSTANCE const hNone = nullptr;
    ZEBU2_HINSTANCE const hWild = reinterpret_cast<ZEBU2_HINSTANCE>(uintptr_t{64});
    struct Call
    {
        int (*call)(ZEBU2_HINSTANCE);
        int iFunction;
        int iResult;
        bool bNullIsDefault;  // null stands for the defaults
    };
    const Call calls[] = {
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_DeleteInstance(h); }, 20, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_PutInstanceLine(h, 0, "x"); }, 21, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_PutInstanceWithId(h, 0, "i", "x"); }, 22, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_PutInstanceWithIdEx(h, 0, "a", "i", "x"); }, 23, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_PutInstanceWithMsgType(h, 0, "a", "i", "t", "x"); }, 33, -1, false},
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
    for (const Call& c : calls) {
        SCOPED_TRACE(c.iFunction);
        for (ZEBU2_HINSTANCE hDead : {hInstance, hWild}) {
            EXPECT_EQ(c.call(hDead), c.iResult);
            EXPECT_EQ(lastError(), c.iFunction << 24 | 11);
        }
        if (!c.bNullIsDefault) {
            EXPECT_EQ(c.call(hNone), c.iResult);
            EXPECT_EQ(lastError(), c.iFunction << 24 | 1);
        }
    }
}

TEST_F(Instance, ManyComeAndGo)
{
    std::vector<ZEBU2_HINSTANCE> instances;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 200; ++i)
            instances.push_back(create(nullptr, 1));
        for (size_t i = 0; i < instances.size(); i += 2) {
            EXPECT_EQ(ZEBU2_DeleteInstance(instances[i]), 0);
            EXPECT_EQ(ZEBU2_PutInstanceLine(instances[i], 0, "x"), -1);
        }
        std::vector<ZEBU2_HINSTANCE> left;
        for (size_t i = 1; i < instances.size(); i += 2)
            left.push_back(instances[i]);
        instances.swap(left);
        for (ZEBU2_HINSTANCE hInstance : instances)
            EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "x"), 0);
    }
    for (ZEBU2_HINSTANCE hInstance : instances)
        EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
}

TEST_F(Instance, TheAreaStaysWhileSomebodyUsesIt)
{
    ZEBU2_HINSTANCE hFirst = create(ring());
    ZEBU2_HINSTANCE hSecond = create(nullptr, 1);
    ASSERT_EQ(ZEBU2_Initialize(nullptr, "app"), 1);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hFirst, 0, "one"), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hFirst), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hSecond, 0, "two"), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hSecond), 0);
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), 0);
    EXPECT_EQ(lastError(), 11);  // the last user has closed it
    EXPECT_EQ(bodies(areaLines()), (Lines{"one", "two"}));
}

// A user that came out without the area holds no reference on it, and must not give one up.
TEST_F(Instance, WithoutAReferenceNoneIsReleased)
{
    writeFile(path("mmap"), "in the way");
    ZEBU2_HINSTANCE hWithout = create(ring(), 2);
    ASSERT_EQ(unlink(path("mmap").c_str()), 0);
    ZEBU2_HINSTANCE hWith = create(nullptr, 1);
    EXPECT_EQ(ZEBU2_DeleteInstance(hWithout), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hWith, 0, "still attached"), 0);
    EXPECT_EQ(lastError(), 0);
    EXPECT_EQ(bodies(areaLines()), Lines{"still attached"});
    EXPECT_EQ(ZEBU2_DeleteInstance(hWith), 0);

    // The same for the process log.
    ASSERT_EQ(rename(path("mmap").c_str(), path("aside").c_str()), 0);
    writeFile(path("mmap"), "in the way");
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 2);
    ASSERT_EQ(unlink(path("mmap").c_str()), 0);
    hWith = create(nullptr, 1);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hWith, 0, "attached"), 0);
    EXPECT_EQ(lastError(), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hWith), 0);
}

TEST_F(Instance, HasLevelsOfItsOwn)
{
    ZEBU2_HINSTANCE hInstance = create(ring());
    EXPECT_EQ(ZEBU2_SetInstanceLogLevel(hInstance, 5), 0);
    EXPECT_EQ(ZEBU2_SetInstanceFileThreshold(hInstance, 3), 0);
    EXPECT_EQ(ZEBU2_SetInstanceShmThreshold(hInstance, 4), 0);
    EXPECT_EQ(ZEBU2_GetLogLevel(), 0);
    for (const int iRefused : {-2, 1001}) {
        EXPECT_EQ(ZEBU2_SetInstanceLogLevel(hInstance, iRefused), 5);
        EXPECT_EQ(lastError(), 0x0F000001);
        EXPECT_EQ(ZEBU2_SetInstanceFileThreshold(hInstance, iRefused), 3);
        EXPECT_EQ(lastError(), 0x11000001);
        EXPECT_EQ(ZEBU2_SetInstanceShmThreshold(hInstance, iRefused), 4);
        EXPECT_EQ(lastError(), 0x12000001);
    }
    EXPECT_EQ(ZEBU2_GetInstanceLogLevel(hInstance), 5);
    for (int iLevel = 2; iLevel <= 6; ++iLevel)
        EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, iLevel, std::to_string(iLevel).c_str()), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"3", "4", "5"}));
    EXPECT_EQ(bodies(areaLines()), (Lines{"2", "3", "4"}));
}

TEST_F(Instance, LockParameters)
{
    EXPECT_EQ(ZEBU2_GetLockWaitTime(), 1);
    EXPECT_EQ(ZEBU2_GetLockRetryTimes(), 20);
    EXPECT_EQ(ZEBU2_SetLockWaitTime(-5), 1);
    EXPECT_EQ(ZEBU2_SetLockRetryTimes(0), 20);
    ASSERT_EQ(ZEBU2_InitializeM(ring(), "app", 0), 0);
    EXPECT_EQ(ZEBU2_GetLockWaitTime(), 0);
    EXPECT_EQ(ZEBU2_SetLockRetryTimes(7), 1);
    EXPECT_EQ(ZEBU2_GetLockRetryTimes(), 7);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_GetLockRetryTimes(), 7);

    ZEBU2_HINSTANCE hOld = createShared();
    EXPECT_EQ(ZEBU2_SetInstanceLockRetryTimes(nullptr, 5), 20);
    EXPECT_EQ(ZEBU2_SetInstanceLockWaitTime(nullptr, -1), 1);
    ZEBU2_HINSTANCE hNew = createShared();
    EXPECT_EQ(ZEBU2_GetInstanceLockRetryTimes(hOld), 20);
    EXPECT_EQ(ZEBU2_GetInstanceLockRetryTimes(hNew), 5);
    EXPECT_EQ(ZEBU2_GetInstanceLockWaitTime(hNew), 0);
    EXPECT_EQ(ZEBU2_SetInstanceLockWaitTime(hNew, 30), 0);
    EXPECT_EQ(ZEBU2_GetInstanceLockWaitTime(hNew), 30);
    EXPECT_EQ(ZEBU2_DeleteInstance(hOld), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hNew), 0);

    const std::string prefix = path("single");
    const tagZEBU_LOGFILE_SPEC single = {4096, 1, prefix.c_str()};
    ASSERT_EQ(ZEBU2_Initialize(&single, "app"), 0);
    ZEBU2_HINSTANCE hSingle = create(ring(4096, 1));
    ZEBU2_HINSTANCE hWithout = create(ring(1), 1);
    const auto refused = [](int iResult, int iError) {
        EXPECT_EQ(iResult, -1);
        EXPECT_EQ(lastError(), iError);
    };
    refused(ZEBU2_GetLockWaitTime(), 0x2900001C);
    refused(ZEBU2_SetLockWaitTime(10), 0x2A00001C);
    refused(ZEBU2_GetLockRetryTimes(), 0x2B00001C);
    refused(ZEBU2_SetLockRetryTimes(10), 0x2C00001C);
    refused(ZEBU2_GetInstanceLockWaitTime(hSingle), 0x2D00001C);
    refused(ZEBU2_SetInstanceLockWaitTime(hSingle, 1), 0x2E00001C);
    refused(ZEBU2_GetInstanceLockRetryTimes(hSingle), 0x2F00001C);
    refused(ZEBU2_SetInstanceLockRetryTimes(hSingle, 1), 0x3000001C);
    refused(ZEBU2_GetInstanceLockWaitTime(hWithout), 0x2D00000B);
    EXPECT_EQ(ZEBU2_DeleteInstance(hSingle), 0);
    EXPECT_EQ(ZEBU2_DeleteInstance(hWithout), 0);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}

TEST_F(Instance, BackupAndPermissionsAreItsOwn)
{
    EXPECT_EQ(ZEBU2_ChFileAttr(0644), -1);
    EXPECT_EQ(lastError(), 0x2500000B);
    ZEBU2_HINSTANCE hInstance = create(ring());
    EXPECT_EQ(ZEBU2_ChFileAttr(0644), -1);  // also when instances exist
    EXPECT_EQ(lastError(), 0x2500000B);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "kept"), 0);
    EXPECT_EQ(ZEBU2_ChInstanceFileAttr(hInstance, 0x1000), -1);
    EXPECT_EQ(lastError(), 0x26000001);
    EXPECT_EQ(ZEBU2_ChInstanceFileAttr(hInstance, 0440), 0);
    EXPECT_EQ(fileMode(traceFile(1)), 0640);
    EXPECT_EQ(ZEBU2_InstanceFileBufferFlush(hInstance), 0);
    EXPECT_EQ(ZEBU2_InstanceTraceBackupM(hInstance, path("copy").c_str(), 1), -1);
    EXPECT_EQ(lastError(), 0x32000001);
    EXPECT_EQ(ZEBU2_InstanceTraceBackupM(hInstance, path("copy").c_str(), 16), 0);
    EXPECT_EQ(bodies(traceLines(readFile(path("copy")))), Lines{"kept"});
    EXPECT_EQ(ZEBU2_TraceBackupM(path("copy").c_str(), 0), -1);
    EXPECT_EQ(lastError(), 0x3100000B);
    EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
    ASSERT_EQ(ZEBU2_Initialize(ring(1), "app"), 1);
    EXPECT_EQ(ZEBU2_ChFileAttr(0644), -1);
    EXPECT_EQ(lastError(), 0x2500000B);
    EXPECT_EQ(ZEBU2_ChFileAttr(0x1000), -1);
    EXPECT_EQ(lastError(), 0x25000001);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}
