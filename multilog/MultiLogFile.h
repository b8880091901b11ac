// multilog/MultiLogFile.h -- the file engine of a ring of trace files that several processes share.
//
// What the processes must agree on stands in a record of 32 bytes, the management file, that each of them
// maps. Lines are copied into a mapping of the current trace file. The record, and the place behind the
// last line, may be touched only under the ring's lock (a record lock on the management file).
//
// Everybody who may write the files may have damaged record and trace files: what is read from them is
// read once into a local and never trusted with an address.
//
// This class is the ring: what is in force in it, the lock, the way of a line. The management file and the
// mapped trace file have classes of their own.
//
// Results are 0, or -1 with the failure recorded, unless a comment says otherwise. The caller holds the
// process mutex. "Under the lock" means that the caller holds the ring's lock as well.
#ifndef ZEBU_MULTILOG_MULTILOGFILE_H
#define ZEBU_MULTILOG_MULTILOGFILE_H

#include <stdlib.h>

#include "frame/ErrPos.h"
#include "multilog/ManageFile.h"
#include "multilog/TraceMap.h"
#include "output/LocalTime.h"
#include "ZEBULib2.h"

class ZebuMultiLogFile final
{
public:
    // Copies the description. A null one, or one without path, makes an object whose operations do nothing
    // and succeed.
    explicit ZebuMultiLogFile(const tagZEBU_LOGFILE_SPEC* pSpec);

    // Deleting releases neither descriptor nor mapping: owners close first.
    static void* operator new(size_t uSize) noexcept { return ZEBU_AllocateObject(uSize); }
    static void operator delete(void* pObject) { free(pObject); }
    ZebuMultiLogFile(const ZebuMultiLogFile&) = delete;
    ZebuMultiLogFile& operator=(const ZebuMultiLogFile&) = delete;

    // Before openFile. iOption: ZEBU2_OPT_... bits, 0 to 63.
    void setOption(int iOption);
    // Keeps the pointer: 16 blank-padded characters and a NUL that outlive the object. Null (the default)
    // stands for the process log's name.
    void setAppName(const char* pszName) { pszAppName = pszName; }

    // Attempts at the lock: the pause between two in milliseconds, and how many in all. The setters return
    // the previous value. An object without a path keeps nothing and returns 0.
    int getLockWaitTime() { return pszPath ? iLockWaitTime : 0; }
    int setLockWaitTime(int iMilliseconds);
    int getLockRetryTimes() { return pszPath ? iLockRetryTimes : 0; }
    int setLockRetryTimes(int iTimes);

    // Opens the ring: makes it, or joins it with the values on record. Returns 3, with failure 29, when the
    // management file had to be made although trace files existed. Fails with 11 when it is open already.
    // On failure nothing stays open that can be closed, and it may be tried again.
    int openFile();
    // Closes the ring; harmless when it is closed. Fails with 22, 23 or 3.
    int closeFile();
    // Closes whatever is open without asking for the lock, which ends with it. The failure on record stays.
    void abandon();

    // Appends a line, its CR LF included. Moves the ring on when it does not fit. Fails with 1 (null), 11
    // (closed), 20 or 29 (the management file is no longer the one that was opened), 22, and as opening the
    // next trace file does.
    int putMessage(const char* pszLine, unsigned long ulLength);
    // Starts writing what was appended to the current file to disk, without waiting. Fails with 12, 22 or 29.
    int bufferFlush();

    // Copies the data of all files, the oldest first, into `pszDest`, which is made or emptied. iFlag: 0, or
    // ZEBU2_BACKUP_NOLOCK to let other processes write meanwhile. Fails with 1 (null, or a file of the ring
    // itself), 2, 3, 4, 11, 17, 21 or 22.
    int backupToFile(const char* pszDest, int iFlag);
    // Changes the mode of all files of the ring; the management directory gets execute bits to match. Fails
    // with 22 or 27.
    int chFileAttr(int iMode);
    // Keeps a mode for the files that are opened from now on, and returns it. -1: none.
    int setFileAttr(int iMode) { return iFileAttr = iMode; }
    int getFileAttr() const { return iFileAttr; }

private:
    friend class ZEBURingLock;

    // ---- MultiManage.cpp: opening, and the record
    // Opens the management file and, under its lock, everything else. Results as openFile.
    int openManagementFile();
    int openUnderLock(bool bExisted);
    // Goes on with a record that is valid; or makes one, and returns 1 when trace files told the position.
    int adoptRing(tagZEBU_MANAGEMENT_DATA* pRec);
    int makeRing();
    // Takes size, number and position of an existing ring.
    void adoptRecord(const tagZEBU_MANAGEMENT_DATA& rec);
    // Tells the others of this process: narrows the mode on record and writes the header.
    int announce();
    int closeManagementFile();

    // Reads the record, rebuilding it from the trace files where it is damaged. That fails with 2 or 5
    // when the trace files cannot be looked at: the ring would go on over lines that are there.
    int readRecord(tagZEBU_MANAGEMENT_DATA* pOut);
    int repareManagementFile(tagZEBU_MANAGEMENT_DATA* pOut);
    // Reads the record and takes over its mode. Fails with 22 when that mode asks for a lock that cannot be
    // had; nothing is locked then.
    int takeRecord(tagZEBU_MANAGEMENT_DATA* pOut);
    void publishRecord(tagZEBU_MANAGEMENT_DATA* pOut, unsigned int uRecordMode);

    // ---- MultiLock.cpp
    int initializeLock();
    // Takes the ring's lock; nests. Nothing to do without a management file or under ZEBU2_OPT_NOLOCK. Fails
    // with 22 after the last attempt.
    int mp_lock();
    int mp_unlock();
    // Narrows the mode word. Takes the lock where that ends lock-free operation; fails with 22.
    int updateModeAndRetryMpLock(unsigned int uSharedMode);

    // ---- MultiTrace.cpp
    // Makes file lCurrentFile the open, mapped one; at open, completes the other files first. Under the lock.
    // Fails with 2, 3, 4, 7, 14, 20 or 23; the file that was open before is then closed, or (23) still
    // mapped.
    int openTraceFile(bool bAtOpen);
    int prepareTraceFiles(bool bAtOpen);
    int closeTraceFile();
    // Offset of the mark in a file: 0 when there is no file or no mark. Fails with 1 for a number out of
    // range, and with 2 or 5.
    int searchEOF(int iNumber) const;
    // Sets lCurrentFile and lWriteOffset from the files on disk. Returns 1 when there are any, else 0. Fails
    // with 2 or 5.
    int searchTraceFileData();

    // ---- MultiWrite.cpp: under the lock, but for the first; `pRec` is the caller's copy of the record,
    // which follows what is written
    int selectAndWriteFile(const char* pszText, unsigned long ulLength);
    // Maps the file that a text goes to, moving the ring on when it does not fit into the current one, to one
    // with `ulHeaderRoom` bytes more. Returns 1 when the ring was moved on.
    int selectFile(tagZEBU_MANAGEMENT_DATA* pRec, unsigned long ulLength, unsigned long ulHeaderRoom);
    // Follows the record; returns whether the file that it names has to be mapped.
    bool followRecord(const tagZEBU_MANAGEMENT_DATA& rec);
    // Makes the next file of the ring current for everybody. ulNeed: bytes that will be written to it.
    void moveRingOn(tagZEBU_MANAGEMENT_DATA* pRec, unsigned long ulNeed);
    int storeText(const char* pszText, unsigned long ulLength, tagZEBU_MANAGEMENT_DATA* pRec);
    // Writes the header that is due at an open, or at the top of a file just made current.
    int putFileHeader(tagZEBU_MANAGEMENT_DATA* pRec, bool bAtOpen);
    int writeHeader(const char* pszText, unsigned long ulLength, tagZEBU_MANAGEMENT_DATA* pRec);

    // ---- MultiBackup.cpp
    int copyRing(int iOut, const tagZEBU_MANAGEMENT_DATA& rec) const;

    ZEBUManageFile manage;
    ZEBUTraceMap trace;

    // As described by the caller.
    const char* pszPath = nullptr;
    char szPath[ZEBU_PATH_ROOM] = {};
    long lSpecSize = 0;    // printed in the process-start header
    long lSpecFileNum = 0; // likewise
    unsigned int uOption = 0;
    int iFileAttr = -1;

    // In force in the ring, as found, or as last read from the record or written to it.
    unsigned int uMode = 0; // may still be wider than the record's
    long lFileSize = 0;
    long lFileNum = 0;
    long lCurrentFile = 0; // the file to map; after a failure not the one that is mapped
    long lWriteOffset = 0;
    long lMapSize = 0; // to which the next file is extended and mapped: lFileSize, or more after a long line

    // The lock.
    int iLockInit = -1; // 0 once it was used
    unsigned int uLockCount = 0;
    int iLockWaitTime = 1;    // milliseconds
    int iLockRetryTimes = 20; // attempts in all

    // Texts of the headers.
    char szHostName[17] = {};
    char szSystem[61] = {};
    char szStartTime[ZEBU_TIME_TEXT + 1] = {}; // of construction, later of the last file-start header
    char szTimeZone[33] = {};
    char szLang[79] = {};
    const char* pszAppName = nullptr;
};

#endif
