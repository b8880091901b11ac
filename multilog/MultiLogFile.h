#ifndef ZEBU_MULTILOG_MULTILOGFILE_H
#define ZEBU_MULTILOG_MULTILOGFILE_H
#include <stdlib.h>
#include "frame/ErrPos.h"
#include "ZEBULib2.h"
class ZebuMultiLogFile final
{
public:
    explicit ZebuMultiLogFile(const tagZEBU_LOGFILE_SPEC*) {}
    static void* operator new(size_t uSize) noexcept { return ZEBU_AllocateObject(uSize); }
    static void operator delete(void* p) noexcept { free(p); }
    void setOption(int) {}
    void setAppName(const char*) {}
    int setLockWaitTime(int) { return 0; }
    int getLockWaitTime() { return 0; }
    int setLockRetryTimes(int) { return 0; }
    int getLockRetryTimes() { return 0; }
    int openFile() { return 0; }
    int closeFile() { return 0; }
    int putMessage(const char*, unsigned long) { return 0; }
    int bufferFlush() { return 0; }
    int backupToFile(const char*, int) { return 0; }
    int chFileAttr(int) { return 0; }
    int setFileAttr(int i) { return i; }
};
#endif
