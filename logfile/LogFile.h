// logfile/LogFile.h -- the ring of trace files that belongs to one process.
//
// The current file is held open under a lockf lock; every line is one write at once. The caller holds the
// process mutex around each call, and calls closeFile before it deletes the object. int results: 0, or -1
// with the failure recorded. An object made without a ring description is inert: everything succeeds
// and touches nothing.
#ifndef ZEBU_LOGFILE_LOGFILE_H
#define ZEBU_LOGFILE_LOGFILE_H

#include <stddef.h>
#include <stdlib.h>

#include "config/Conf2Unix.h"
#include "frame/ErrPos.h"
#include "logfile/RingFiles.h"
#include "output/LocalTime.h"
#include "ZEBULib2.h"

class ZEBUFd;

class ZebuLogFile final
{
public:
    // Copies the description; null makes an inert object. Reads the template of the file-switch notice.
    explicit ZebuLogFile(const tagZEBU_LOGFILE_SPEC* pSpec);
    ZebuLogFile(const ZebuLogFile&) = delete;
    ZebuLogFile& operator=(const ZebuLogFile&) = delete;

    static void* operator new(size_t uSize) noexcept { return ZEBU_AllocateObject(uSize); }
    static void operator delete(void* p) noexcept { free(p); }

    // Goes on in the newest file of the ring, in the next one when that is full, or in file 1. Fails with
    // 1, 2, 4, 11 (already open), 17, 20, 21 or 22; closeFile is due even then.
    int openFile();

    // Gives the lock up and closes. Fails with 3; the file is closed all the same.
    int closeFile();

    // Writes a line, moving on to the next file first when the current one has grown beyond its maximum.
    // Fails with 1, 2, 3, 4 or 22; the line is not in the ring then.
    int putMessage(const char* pszLine, unsigned long ulLength);

    // Fails with 12, also when no file is open.
    int bufferFlush();

    // Copies the ring, oldest file first, into `pszDestination`. Fails with 1, 2, 3, 4, 11, 17 or 21.
    int backupToFile(const char* pszDestination, int iUnused);

    // Changes the mode of every existing file. Fails with 27. setFileAttr is for files made later.
    int chFileAttr(int iMode);
    int setFileAttr(int iMode) { return iFileAttr = iMode; }
    int getFileAttr() const { return iFileAttr; }

private:
    int openTraceFile(unsigned long ulFlags);
    int openLocked(const char* pszName, unsigned long ulFlags);
    int reopenFile();
    int takeOverRing();
    bool isHeldElsewhere() const;
    int moveOn();
    int selectAndWriteFile(const char* pszLine, unsigned long ulLength);
    int writeWhole(const char* pBytes, size_t uLength);
    int putFileHeader();
    int putSyslogMessage(int iFileNo);
    int openForCopy(long lNumber, ZEBUFd& fd);
    int generateTraceFileName(char (&szName)[ZEBU_PATH_ROOM], long lNumber) const
    {
        return ZEBU_TraceFileName(szName, pszFilePrefix, lNumber, lFileNum);
    }

    unsigned long ulFileSizeMax;
    long lFileNum;
    char* pszFilePrefix; // null: inert
    int iFd;
    char szFilePrefix[4100];
    long lCurFileNo;
    char szHostName[17];
    char szSystemInfo[61];
    char szStartTime[ZEBU_TIME_TEXT + 1];
    char szTimeZone[33];
    char szLangMessage[79];
    unsigned long ulCurFileSize;
    ZEBUConfigInf2 cnf2;
    int iFileAttr;

    // A second descriptor of the current file, opened by the first backup and closed together with iFd:
    // closing it earlier would give up the lock on the file.
    int iReadFd;
    bool bKeepContents; // the current file holds lines of ours: to be opened without emptying it
    unsigned int uForkGeneration;
};

#endif
