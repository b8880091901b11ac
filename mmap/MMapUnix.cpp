// mmap/MMapUnix.cpp -- the file of the trace area: open, check, create, map, close.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "config/ConfUnix.h"
#include "frame/ErrPos.h"
#include "frame/Fd.h"
#include "frame/Files.h"
#include "mmap/AreaGuard.h"
#include "mmap/MMap.h"

enum { cs_iFresh = 1, cs_iSound = 0, cs_iDamaged = -2 }; // what readAndCheckHeader finds

ZEBUMMapFile::ZEBUMMapFile() : uMapLength(ZEBU_AREA_FRESH_MAX), iFd(-1), pMap(MAP_FAILED), iRefCount(0)
{
    const ZEBUConfigInf config;
    ZEBU_initMMapLimitValues(config.iIntervalSec, config.iMaxMsgNum);
}

ZEBUMMapFile::~ZEBUMMapFile()
{
    (void)closeFile();
}

unsigned int ZEBUMMapFile::getMMapFileSize()
{
    return ZEBUConfigInf().uMapSize;
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
    const ZEBUConfigInf config;
    if (config.uMapSize <= sizeof(tagZEBU_AREA_HEADER)) // no room for a single byte
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

// Gives a sparse file its blocks now: a store into a hole of a mapped file is SIGBUS on a full disk. A
// file system that cannot reserve is left to its ways.
static int fs_reserveBlocks(int iFd)
{
    struct stat info;
    if (fstat(iFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    if (info.st_blocks * 512 >= info.st_size)
        return 0;
    return ZEBU_ReserveBlocks(iFd, info.st_size) == -1 ? -1 : 0;
}

// The part of the open that runs under the lock on the file. On a failure the lock stays until closeFile.
int ZEBUMMapFile::checkLockedFile(unsigned int uWanted)
{
    int iResult = readAndCheckHeader();
    struct stat info;
    if (fstat(iFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    const auto uSize = static_cast<unsigned int>(info.st_size);
    if (uSize < uWanted && fillFile(uSize, uWanted) != 0)
        return -1;
    if (fs_reserveBlocks(iFd) != 0)
        return -1;
    if (iResult == cs_iFresh)
        iResult = initFileObject(uWanted - static_cast<unsigned int>(sizeof(tagZEBU_AREA_HEADER)));
    if (lseek(iFd, 0, SEEK_SET) == -1)
        ZEBU_DropLocks(iFd);
    else
        ZEBU_Unlock(iFd);
    return iResult;
}

int ZEBUMMapFile::fillFile(unsigned int uSize, unsigned int uWanted)
{
    static const char szZeros[1024] = {};
    if (lseek(iFd, 0, SEEK_END) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    while (uSize < uWanted) {
        const unsigned int uBlock = uWanted - uSize < sizeof szZeros ? uWanted - uSize : sizeof szZeros;
        if (ZEBU_WriteAll(iFd, szZeros, uBlock) != 0)
            return -1;
        uSize += uBlock;
    }
    if (lseek(iFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    return 0;
}

static int fs_readField(int iFd, uint32_t* puField)
{
    const long lRead = ZEBU_Read(iFd, reinterpret_cast<char*>(puField), sizeof *puField);
    if (lRead < 0)
        return ZEBU_Fail(ZEBU_EPOS_READ, errno);
    return lRead == sizeof *puField ? 0 : ZEBU_Fail(ZEBU_EPOS_READ, EIO);
}

// The magic is written last: whoever was making the file stopped before it, or on a full disk within it.
static bool fs_isUnfinished(uint32_t uMagic)
{
    for (uint32_t uWritten : {0u, 0xFFu, 0xFFFFu, 0xFFFFFFu}) {
        if (uMagic == (ZEBU_AREA_MAGIC & uWritten))
            return true;
    }
    return false;
}

int ZEBUMMapFile::readAndCheckHeader()
{
    const off_t lSize = lseek(iFd, 0, SEEK_END);
    if (lSize == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    if (lSize <= off_t{ZEBU_AREA_FRESH_MAX})
        return cs_iFresh;
    uMapLength = static_cast<unsigned int>(lSize);
    if (lseek(iFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    uint32_t uMagic = 0, uReserved = 0, uDataSize = 0, uReadOffset = 0, uWriteOffset = 0;
    for (uint32_t* puField : {&uMagic, &uReserved, &uDataSize, &uReadOffset, &uWriteOffset}) {
        if (fs_readField(iFd, puField) != 0)
            return -1;
    }
    if (fs_isUnfinished(uMagic))
        return cs_iFresh;
    if (uMagic != ZEBU_AREA_MAGIC || static_cast<off_t>(uDataSize) + 24 != lSize || uReadOffset > uDataSize ||
        uWriteOffset > uDataSize)
        return cs_iDamaged;
    return cs_iSound;
}

// The magic comes last: until it is there, the file counts as not created.
int ZEBUMMapFile::initFileObject(unsigned int uDataSize)
{
    const uint32_t fields[] = {0, uDataSize, 0, 0, 0};
    const uint32_t uMagic = ZEBU_AREA_MAGIC;
    if (lseek(iFd, sizeof uMagic, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    for (const uint32_t& uField : fields) {
        if (ZEBU_WriteAll(iFd, reinterpret_cast<const char*>(&uField), sizeof uField) != 0)
            return -1;
    }
    if (lseek(iFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    if (ZEBU_WriteAll(iFd, reinterpret_cast<const char*>(&uMagic), sizeof uMagic) != 0)
        return -1;
    uMapLength = uDataSize + static_cast<unsigned int>(sizeof(tagZEBU_AREA_HEADER));
    return 0;
}

// ---- Mapping and closing -------------------------------------------------------------------------

int ZEBUMMapFile::mapFile()
{
    if (unmapFile() != 0)
        return -1;
    void* pMapped = mmap(nullptr, uMapLength, PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
    if (pMapped == MAP_FAILED)
        return ZEBU_Fail(ZEBU_EPOS_MMAP, errno);
    pMap.store(pMapped);
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
    if (ZEBU_WaitForSigSafePuts()) {
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
