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
#include <sys/stat.h>

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
    // 1, 2, 4, 11 (already open), 17, 21 or 22 (another process holds a file of the ring); closeFile is due
    // even then.
    int openFile();

    // Gives the lock up and closes. Fails with 3; the file is closed all the same unless there is no such
    // descriptor (EBADF). One that shows another file by now is the application's, and left alone.
    int closeFile();

    // Writes a line, moving on to the next file first when the current one has grown beyond its maximum.
    // Fails with 1, 2, 4 or 22; the line is not in the ring then. May leave 3 behind a line that is.
    int putMessage(const char* pszLine, unsigned long ulLength);

    // Fails with 12, also when no file is open.
    int bufferFlush();

    // Copies the ring, oldest file first, into `pszDestination`; of a file with holes no more than its
    // described size, a header and a line. Fails with 1, 2, 3, 4, 11, 17 or 21.
    int backupToFile(const char* pszDestination, int iUnused);

    // Changes the mode of every existing file. Fails with 27. setFileAttr is for files made later.
    int chFileAttr(int iMode);
    int setFileAttr(int iMode) { return iFileAttr = iMode; }
    int getFileAttr() const { return iFileAttr; }

private:
    // ---- Opening
    int openTraceFile(ZEBUFd& fd, bool bEmpty);
    int openLocked(ZEBUFd& fd) const;
    int reopenFile();
    int chooseFile(bool* pbEmpty);
    int lookForOwner(int iOwn) const;
    int takeOverRing();
    bool isNewerThanLeft(int iOther) const;
    bool isNewest() const;

    // ---- The open file
    bool isOurs(const struct stat& info) const { return info.st_dev == ulDevice && info.st_ino == ulInode; }
    bool isOpenUnder(const char* pszName) const;
    void forgetForeign();

    // ---- Writing and copying
    bool isChild() const;
    int moveOn();
    int writeBehind(const char* pszLine, unsigned long ulLength);
    int selectAndWriteFile(const char* pszLine, unsigned long ulLength);
    int writeWhole(const char* pBytes, size_t uLength);
    int putFileHeader();
    int putSyslogMessage(int iFileNo);
    int copyTraceFile(long lNumber, int iBackup) const;
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

    dev_t
        ulDevice; // of the file that iFd was opened for: the application may close what it does not know, and
    ino_t ulInode;                // get the number for a file of its own
    bool bKeepContents;           // the current file holds lines of ours, else it is still to be emptied
    unsigned int uForkGeneration; // of the process that holds the lock
    bool bPassedOn;               // in a child: others have used the ring since
};

#endif
