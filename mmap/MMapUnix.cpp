// mmap/MMapUnix.cpp -- the file of the trace area: open, check, create, map, close.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <initializer_list>
#include <new>

#include "config/ConfUnix.h"
#include "frame/ErrPos.h"
#include "frame/Fd.h"
#include "frame/Files.h"
#include "mmap/AreaHeader.h"
#include "mmap/AreaUse.h"
#include "mmap/MMap.h"

#ifndef MADV_POPULATE_WRITE // before glibc 2.35
#define MADV_POPULATE_WRITE 23
#endif

enum { cs_iFresh = 1, cs_iSound = 0, cs_iDamaged = -2 }; // what readAndCheckHeader finds
constexpr unsigned int cs_uHeader = sizeof(tagZEBU_AREA_HEADER);

// Whether a file of this size has room for a single byte.
static bool fs_holdsArea(unsigned int uMapSize)
{
    return uMapSize > cs_uHeader;
}

// Whether there is an area that an open does not begin anew.
static bool fs_isKept(const char* pszPath)
{
    struct stat info;
    return stat(pszPath, &info) == 0 && info.st_size > off_t{ZEBU_AREA_FRESH_MAX};
}

// In one place for the process, guarded by its mutex: four texts of 4 KiB are too much for the stack of a
// thread.
static const ZEBUConfigInf& fs_readConfig()
{
    alignas(ZEBUConfigInf) static char szConfig[sizeof(ZEBUConfigInf)];
    return *new (szConfig) ZEBUConfigInf;
}

ZEBUMMapFile::ZEBUMMapFile()
    : uMapLength(ZEBU_AREA_FRESH_MAX), iFd(-1), bBegun(false), pMap(MAP_FAILED), iRefCount(0)
{
    const ZEBUConfigInf& config = fs_readConfig();
    ZEBU_initMMapLimitValues(config.iIntervalSec, config.iMaxMsgNum);
}

ZEBUMMapFile::~ZEBUMMapFile()
{
    (void)closeFile();
}

unsigned int ZEBUMMapFile::getMMapFileSize()
{
    return fs_readConfig().uMapSize;
}

int ZEBUMMapFile::openFile()
{
    return openFileObject() == -1 ? -1 : mapFile();
}

// ---- Opening without following links -------------------------------------------------------------

static int fs_refuse(int* piCode, int* piPos, int iCode, int iPos)
{
    *piCode = iCode;
    *piPos = iPos;
    return -1;
}

int fs_safeOpen(const char* pszPath, int* piCode, int* piPos)
{
    constexpr int iFlags = O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    struct stat named;
    if (lstat(pszPath, &named) != 0) {
        const int iCreated = ZEBU_Lift(open(pszPath, iFlags | O_CREAT | O_EXCL, 0666));
        if (iCreated != -1)
            return iCreated;
        if (errno != EEXIST)
            return fs_refuse(piCode, piPos, errno, ZEBU_EPOS_OPEN);
        if (lstat(pszPath, &named) != 0)
            return fs_refuse(piCode, piPos, errno, ZEBU_EPOS_STAT);
    }
    if (S_ISLNK(named.st_mode))
        return fs_refuse(piCode, piPos, EACCES, ZEBU_EPOS_MMAP);

    ZEBUFd fd(ZEBU_Lift(open(pszPath, iFlags | O_NOFOLLOW)));
    if (fd.get() == -1 && errno == ELOOP) // a link took the file's place
        return fs_refuse(piCode, piPos, EACCES, ZEBU_EPOS_MMAP);
    if (fd.get() == -1)
        return fs_refuse(piCode, piPos, errno, ZEBU_EPOS_OPEN);
    struct stat opened;
    if (fstat(fd.get(), &opened) != 0)
        return fs_refuse(piCode, piPos, errno, ZEBU_EPOS_STAT);
    if (opened.st_dev != named.st_dev || opened.st_ino != named.st_ino)
        return fs_refuse(piCode, piPos, EACCES, ZEBU_EPOS_MMAP);
    return fd.release();
}

// ---- Creating and checking -----------------------------------------------------------------------

// Only the last level of the directory is made.
static int fs_makeAreaDirectory(const char* pszDirectory)
{
    struct stat info;
    return stat(pszDirectory, &info) == 0 ? 0 : ZEBU_MakeDirectory(pszDirectory);
}

static int fs_lockWaiting(int iFd)
{
    int iResult;
    do
        iResult = lockf(iFd, F_LOCK, 0);
    while (iResult != 0 && errno == EINTR);
    return iResult;
}

int ZEBUMMapFile::openFileObject()
{
    const ZEBUConfigInf& config = fs_readConfig();
    if (!fs_holdsArea(config.uMapSize) && !fs_isKept(config.szMMapFile))
        return ZEBU_Fail(ZEBU_EPOS_AREA, 0);
    if (fs_makeAreaDirectory(config.szMMapDir) != 0)
        return -1;
    if (iFd != -1 && closeFile() != 0)
        return -1;
    int iCode = 0;
    int iPos = 0;
    iFd = fs_safeOpen(config.szMMapFile, &iCode, &iPos);
    if (iFd == -1)
        return ZEBU_Fail(iPos, iCode);
    (void)fchmod(iFd, 0666);
    if (fs_lockWaiting(iFd) != 0)
        return ZEBU_Fail(ZEBU_EPOS_LOCK, errno);
    return checkLockedFile(config.uMapSize);
}

// Gives a sparse area its blocks now: a store into a hole of a mapped file is SIGBUS on a full disk. Only
// what the header describes, since anybody may make the file longer; and where it cannot be had, the file is
// as good as it was.
static void fs_reserveArea(int iFd, const struct stat& info, unsigned int uMapLength)
{
    if (info.st_blocks * 512 >= info.st_size)
        return;
    const ZEBUErrKeep keep;
    (void)ZEBU_ReserveBlocks(iFd, uMapLength);
}

// The part of the open that runs under the lock on the file. On a failure the lock stays until closeFile.
// Whoever dies in here leaves a file of at most 4,096 bytes, which the next begins anew, or a whole area: the
// header goes in while the file is short.
int ZEBUMMapFile::checkLockedFile(unsigned int uWanted)
{
    const int iFound = readAndCheckHeader();
    if (iFound != -1 && beginOrKeep(iFound, uWanted) != 0)
        return -1;
    if (lseek(iFd, 0, SEEK_SET) == -1)
        ZEBU_DropLocks(iFd);
    else
        ZEBU_Unlock(iFd);
    return iFound == cs_iFresh ? 0 : iFound;
}

int ZEBUMMapFile::beginOrKeep(int iFound, unsigned int uWanted)
{
    if (iFound == cs_iFresh && !fs_holdsArea(uWanted))
        return ZEBU_Fail(ZEBU_EPOS_AREA, 0);
    if (iFound == cs_iFresh && initFileObject(uWanted - cs_uHeader) != 0)
        return -1;
    struct stat info;
    if (fstat(iFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    if (info.st_size < uWanted)
        return lengthenFile(info.st_size, uWanted);
    if (iFound == cs_iSound)
        fs_reserveArea(iFd, info, uMapLength);
    return 0;
}

// Length and blocks come in one step where the file system can reserve. The zeros behind it are what the
// pages are made of: without them each is made at the first line that touches it. A file that did not get all
// of them is as short as before.
int ZEBUMMapFile::lengthenFile(long lSize, long lWanted)
{
    int iResult = ZEBU_ReserveBlocks(iFd, lWanted);
    if (iResult == 1)
        iResult = ftruncate(iFd, lWanted) == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_WRITE, errno);
    if (iResult == 0 && lseek(iFd, lSize, SEEK_SET) == -1)
        iResult = ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    if (iResult == 0)
        iResult = ZEBU_FillFile(iFd, '\0', lSize, lWanted);
    if (iResult != 0 && ftruncate(iFd, lSize) != 0)
        return -1;
    return iResult;
}

static int fs_readField(int iFd, uint32_t* puField)
{
    const long lRead = ZEBU_Read(iFd, reinterpret_cast<char*>(puField), sizeof *puField);
    if (lRead < 0)
        return ZEBU_Fail(ZEBU_EPOS_READ, errno);
    return lRead == sizeof *puField ? 0 : ZEBU_Fail(ZEBU_EPOS_READ, EIO);
}

int ZEBUMMapFile::readAndCheckHeader()
{
    const off_t lSize = lseek(iFd, 0, SEEK_END);
    if (lSize == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    if (lSize <= off_t{ZEBU_AREA_FRESH_MAX})
        return cs_iFresh;
    uMapLength = lSize < UINT_MAX ? static_cast<unsigned int>(lSize) : UINT_MAX;
    if (lseek(iFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    uint32_t uMagic = 0, uReserved = 0, uDataSize = 0, uReadOffset = 0, uWriteOffset = 0;
    for (uint32_t* puField : {&uMagic, &uReserved, &uDataSize, &uReadOffset, &uWriteOffset}) {
        if (fs_readField(iFd, puField) != 0)
            return -1;
    }
    if (uMagic != ZEBU_AREA_MAGIC || static_cast<off_t>(uDataSize) + cs_uHeader != lSize ||
        uReadOffset > uDataSize || uWriteOffset > uDataSize)
        return cs_iDamaged;
    return cs_iSound;
}

int ZEBUMMapFile::initFileObject(unsigned int uDataSize)
{
    if (lseek(iFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    for (const uint32_t uField : {ZEBU_AREA_MAGIC, 0u, uDataSize, 0u, 0u, 0u}) {
        if (ZEBU_WriteAll(iFd, reinterpret_cast<const char*>(&uField), sizeof uField) != 0)
            return -1;
    }
    uMapLength = uDataSize + cs_uHeader;
    bBegun = true;
    return 0;
}

// ---- Mapping and closing -------------------------------------------------------------------------

// Whoever began the area has its pages at hand: their first lines need not wait for them. Of another's area
// the call would make every page one to be written out again.
int ZEBUMMapFile::mapFile()
{
    if (unmapFile() != 0)
        return -1;
    void* pMapped = mmap(nullptr, uMapLength, PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
    if (pMapped == MAP_FAILED)
        return ZEBU_Fail(ZEBU_EPOS_MMAP, errno);
    if (bBegun)
        (void)madvise(pMapped, uMapLength, MADV_POPULATE_WRITE); // since Linux 5.14
    bBegun = false;
    ZEBU_PrepareAreaUse();
    pMap.store(pMapped, std::memory_order_release);
    return 0;
}

// Nobody finds the mapping any more before it goes. The length is the one that was mapped: the header
// belongs to everybody.
int ZEBUMMapFile::unmapFile()
{
    void* const pMapped = pMap.exchange(MAP_FAILED);
    if (pMapped == MAP_FAILED)
        return 0;
    int iErrno = EBUSY;
    if (ZEBU_WaitForAreaUsers()) {
        if (munmap(pMapped, uMapLength) == 0)
            return 0;
        iErrno = errno;
    }
    pMap.store(pMapped);
    return ZEBU_Fail(ZEBU_EPOS_MUNMAP, iErrno);
}

int ZEBUMMapFile::closeFile()
{
    if (unmapFile() != 0)
        return -1;
    if (iFd != -1)
        (void)close(iFd);
    iFd = -1;
    return 0;
}
