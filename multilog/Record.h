// multilog/Record.h -- the record of a shared ring, which stands at the start of its management file: layout,
// limits, check, and how it is read.
//
// Used by the library, which maps it for writing, and by the tool, which maps it for reading. Includes
// nothing of the library's state. Other processes store into a mapped record at any moment, and anybody who
// may write the file may have damaged it: a field is loaded once and believed only after the check.
#ifndef ZEBU_MULTILOG_RECORD_H
#define ZEBU_MULTILOG_RECORD_H

#include <stddef.h>

#include "frame/Word.h"
#include "ZEBULib2.h"

constexpr unsigned int ZEBU_MANAGE_MAGIC = 0x5542455A; // the bytes "ZEBU"
constexpr unsigned int ZEBU_MANAGE_STAMP = 0xEFBBBF00;
constexpr unsigned int ZEBU_MANAGE_FORMAT = 1;
constexpr unsigned int ZEBU_MODE_UNUSED = 0xFFFFFFC0; // bits above the options, always set in a mode word
constexpr unsigned int ZEBU_MODE_ALL = 0xFFFFFFFF;    // mode of a record that nobody has narrowed yet

// The record. Values are in the byte order of the host.
struct tagZEBU_MANAGEMENT_DATA
{
    unsigned int magic;       // ZEBU_MANAGE_MAGIC
    unsigned int stamp;       // ZEBU_MANAGE_STAMP, never checked
    unsigned int fileSize;    // bytes of one trace file
    unsigned int fileNum;     // number of trace files
    unsigned int writeOffset; // place of the next line in the current file; any value passes the check
    unsigned int currentFile; // 1 to fileNum
    unsigned int mode;        // AND of the mode words of all processes that opened the ring
    unsigned int format;      // ZEBU_MANAGE_FORMAT, never checked
};
static_assert(sizeof(tagZEBU_MANAGEMENT_DATA) == 32);
static_assert(offsetof(tagZEBU_MANAGEMENT_DATA, fileSize) == 8 &&
              offsetof(tagZEBU_MANAGEMENT_DATA, fileNum) == 12);
static_assert(offsetof(tagZEBU_MANAGEMENT_DATA, mode) == 24 &&
              offsetof(tagZEBU_MANAGEMENT_DATA, format) == 28);
// The position of the next line is one word, writeOffset its low half and currentFile its high one: when the
// ring moves on nobody sees the new file with the old offset.
static_assert(offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset) % sizeof(ZEBUWord) == 0);
static_assert(offsetof(tagZEBU_MANAGEMENT_DATA, currentFile) ==
              offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset) + 4);

constexpr long ZEBU_MANAGE_LENGTH = 64; // of the management file; what follows the record is zero
static_assert(sizeof(tagZEBU_MANAGEMENT_DATA) <= ZEBU_MANAGE_LENGTH);

// Whether a size or a number of files is one that a shared ring can have.
constexpr bool ZEBU_IsSharedFileSize(unsigned int uSize)
{
    return uSize >= ZEBU2_FILE_SIZE_MIN && uSize <= ZEBU2_FILE_SIZE_MAX_SHARED;
}
constexpr bool ZEBU_IsSharedFileCount(unsigned int uCount)
{
    return uCount >= 1 && uCount <= ZEBU2_FILE_COUNT_MAX_SHARED;
}

// Returns 0 when a record is valid, else -1.
constexpr int ZEBU_CheckManagementFile(const tagZEBU_MANAGEMENT_DATA& rec)
{
    if (rec.magic != ZEBU_MANAGE_MAGIC || !ZEBU_IsSharedFileSize(rec.fileSize))
        return -1;
    if (!ZEBU_IsSharedFileCount(rec.fileNum))
        return -1;
    return rec.currentFile < 1 || rec.currentFile > rec.fileNum ? -1 : 0;
}

inline unsigned int ZEBU_LoadField(const unsigned int& uShared)
{
    return __atomic_load_n(&uShared, __ATOMIC_RELAXED);
}

// Loads file and offset of a mapped record into a copy of it, as one.
inline void ZEBU_LoadPosition(const tagZEBU_MANAGEMENT_DATA* pMap, tagZEBU_MANAGEMENT_DATA* pOut)
{
    const auto* const pPosition = reinterpret_cast<const ZEBUWord*>(&pMap->writeOffset);
    const ZEBUWord uPosition = __atomic_load_n(pPosition, __ATOMIC_ACQUIRE);
    pOut->writeOffset = static_cast<unsigned int>(uPosition);
    pOut->currentFile = static_cast<unsigned int>(uPosition >> 32);
}

// Loads every field of a mapped record once but its format, for which nobody asks. Returns what the check of
// the copy says.
inline int ZEBU_ReadAndCheckManagementFile(const tagZEBU_MANAGEMENT_DATA* pMap, tagZEBU_MANAGEMENT_DATA* pOut)
{
    ZEBU_LoadPosition(pMap, pOut);
    pOut->magic = ZEBU_LoadField(pMap->magic);
    pOut->stamp = ZEBU_LoadField(pMap->stamp);
    pOut->fileSize = ZEBU_LoadField(pMap->fileSize);
    pOut->fileNum = ZEBU_LoadField(pMap->fileNum);
    pOut->mode = ZEBU_LoadField(pMap->mode);
    return ZEBU_CheckManagementFile(*pOut);
}

#endif
