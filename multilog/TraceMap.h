// multilog/TraceMap.h -- the trace file of a shared ring that this process has open, and its mapping.
//
// At most one file is open at a time. The current file of the ring stays open and mapped; the others are
// opened only to be completed when a process joins. All of it happens under the ring's lock. Results are 0,
// or -1 with the failure recorded, unless a comment says otherwise.
#ifndef ZEBU_MULTILOG_TRACEMAP_H
#define ZEBU_MULTILOG_TRACEMAP_H

#include <stddef.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "frame/Files.h"

class ZEBUTraceMap final
{
public:
    ZEBUTraceMap();
    ZEBUTraceMap(const ZEBUTraceMap&) = delete;
    ZEBUTraceMap& operator=(const ZEBUTraceMap&) = delete;

    // What a file is to become.
    struct Shape
    {
        long lLength;  // of the file, in bytes
        bool bFill;    // with blanks up to its length; else it gets that only when it is current
        int iFileAttr; // permission bits, -1 for none
    };

    // Names the file that prepare and open are about. Fails with 1.
    int generateTraceFileName(const char* pszPrefix, long lFileNumber, long lFileNum);
    // Makes the file, or completes it, where it needs that: it is open then. Fails with 2, 4 or 14.
    int prepare(const Shape& shape, bool bCurrent);
    // Opens the file that needed nothing. Fails with 2.
    int open(int iFileAttr);
    // Brings the open file to its length, with all its blocks. Fails with 4, 14 or 20.
    int extend(long lLength);
    // Maps the open file. Fails with 7.
    int map(long lLength);
    // Makes a line of blanks of what the mapped file had lost, before it was opened again, below the place
    // where its data end. For a file that was mapped when that happened.
    void fillGap(long lWriteOffset);
    // Unmaps and closes what is open, marking the file as used now if `bTouch`. A descriptor that is another
    // file's by now is only forgotten. Fails with 23 or 3; the descriptor is kept then where the unmapping
    // failed, or where it was not open any more.
    int closeTraceFile(bool bTouch);
    int closeDescriptor(bool bTouch = false);

    bool isOpen() const { return iTraceFd != -1; }
    bool isMapped() const { return pTraceMap != MAP_FAILED; }
    long number() const { return lNumber; } // of the file opened last
    long mappedFile() const { return isMapped() ? lNumber : 0; }
    long mappedLength() const { return lMappedLength; }

    // What became of the mapped file. Cut: a store would fall behind its end, or into a file that nobody
    // finds any more. Foreign: the application closed the descriptor, and opened a file of its own under that
    // number.
    enum class State { Whole, Cut, Foreign };
    State look() const;

    // Copies a line, with the mark behind it, to an offset of the mapping where both have room.
    void store(unsigned long ulOffset, const char* pszText, unsigned long ulLength);
    // Starts writing what lies before an offset, and the mark there, to disk. Fails with 12; the offset may
    // be any.
    int sync(unsigned int uWriteOffset);

private:
    bool isOurs(const struct stat& info) const;
    // Writes mark and filling of the file just opened. *puSize: its length, before and after.
    int initializeTraceFile(const Shape& shape, bool bExisted, unsigned int* puSize);

    int iTraceFd = -1;
    void* pTraceMap = MAP_FAILED;
    unsigned long ulTraceIno = 0; // of the open file, 0 while it is not known
    unsigned long ulTraceDev = 0;
    long lNumber = 0;
    char szTraceFileName[ZEBU_PATH_ROOM] = {};
    long lMappedLength = 0;
    long lFoundLength = 0;  // of the file before it was lengthened
    long lSyncedOffset = 0; // up to which the mapping was flushed

    static long cs_PAGESIZE;
};

#endif
