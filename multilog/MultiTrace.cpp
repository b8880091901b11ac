// multilog/MultiTrace.cpp -- the trace files of a shared ring: which of them are made and completed, which
// one is mapped, and finding the current one and its end of data when the record has to be rebuilt.
#include <limits.h>

#include "frame/Fd.h"
#include "logfile/RingFiles.h"
#include "multilog/EndOfData.h"
#include "multilog/MultiLogFile.h"

// ---- Opening and mapping -------------------------------------------------------------------------

int ZebuMultiLogFile::openTraceFile(bool bAtOpen)
{
    if ((trace.isOpen() || trace.isMapped()) && closeTraceFile() != 0)
        return -1;
    if (prepareTraceFiles(bAtOpen) == 0 && trace.extend(lMapSize) == 0 && trace.map(lMapSize) == 0)
        return 0;
    const ZEBUErrKeep keep;
    (void)closeTraceFile();
    return -1;
}

// In ring order from the file after the current one, so that the current one comes last and stays open.
int ZebuMultiLogFile::prepareTraceFiles(bool bAtOpen)
{
    const ZEBUTraceMap::Shape shape = {lMapSize, (uMode & ZEBU2_OPT_NOFILL) == 0, iFileAttr};
    const bool bAll = bAtOpen && (uMode & ZEBU2_OPT_CURRENT_ONLY) == 0;
    long lNumber = bAll ? lCurrentFile + 1 : lCurrentFile;
    for (long lCount = bAll ? lFileNum : 1; lCount > 0; --lCount, ++lNumber) {
        if (trace.closeDescriptor() != 0)
            return -1;
        if (lNumber > lFileNum)
            lNumber = 1;
        if (trace.generateTraceFileName(pszPath, lNumber, lFileNum) != 0 ||
            trace.prepare(shape, lNumber == lCurrentFile) != 0)
            return -1;
    }
    return trace.isOpen() ? 0 : trace.open(iFileAttr);
}

// Lines that are copied into a mapping need not change the file's time at once, so closing does: by its time
// the newest file is found when the record is lost. One that the ring has left must not pass for it.
int ZebuMultiLogFile::closeTraceFile()
{
    tagZEBU_MANAGEMENT_DATA rec;
    const bool bKnown = manage.isReadable() && manage.readAndCheckManagementFileMMap(&rec) == 0;
    return trace.closeTraceFile(!bKnown || rec.currentFile == trace.number());
}

// ---- Finding the end of the data -----------------------------------------------------------------

int ZebuMultiLogFile::searchEOF(int iNumber) const
{
    char szName[ZEBU_PATH_ROOM];
    if (ZEBU_TraceFileName(szName, pszPath, iNumber, lFileNum) != 0)
        return -1;
    const ZEBUFd fd(ZEBU_OpenToRead(szName));
    if (fd.get() == -1)
        return ZEBU_IsAbsent(errno) ? 0 : ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    const long lEnd = ZEBU_SearchEndOfData(fd.get());
    if (lEnd < 0)
        return ZEBU_Fail(ZEBU_EPOS_READ, errno);
    return lEnd < INT_MAX ? static_cast<int>(lEnd) : INT_MAX;
}

int ZebuMultiLogFile::searchTraceFileData()
{
    lCurrentFile = 1;
    lWriteOffset = 0;
    long lSize;
    const long lNewest = ZEBU_NewestTraceFile(pszPath, lFileNum, &lSize);
    if (lNewest <= 0)
        return static_cast<int>(lNewest);
    lCurrentFile = lNewest;
    lWriteOffset = searchEOF(static_cast<int>(lNewest));
    if (lWriteOffset == -1)
        return -1;
    if (static_cast<unsigned long>(lWriteOffset) < static_cast<unsigned long>(lFileSize))
        return 1;
    lCurrentFile = lNewest < lFileNum ? lNewest + 1 : 1;
    lWriteOffset = 0;
    return 1;
}
