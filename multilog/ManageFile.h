// multilog/ManageFile.h -- the management file of a shared ring: its names, its descriptor and its mapping,
// and how the record in it is read and published.
//
// Everything but opening and closing happens under the ring's lock, which is held on this descriptor: it is
// lost when any descriptor of the file is closed in the process, so nothing here opens the file a second
// time. Results are 0, or -1 with the failure recorded, unless a comment says otherwise.
#ifndef ZEBU_MULTILOG_MANAGEFILE_H
#define ZEBU_MULTILOG_MANAGEFILE_H

#include <sys/mman.h>
#include <sys/stat.h>

#include "frame/Files.h"
#include "multilog/Record.h"

class ZEBUManageFile final
{
public:
    ZEBUManageFile() = default;
    ZEBUManageFile(const ZEBUManageFile&) = delete;
    ZEBUManageFile& operator=(const ZEBUManageFile&) = delete;

    // Fills the names from the prefix of the ring. Fails with 1.
    int generateManagementFileName(const char* pszPrefix);
    const char* directory() const { return szManageDir; }
    const char* name() const { return szManageFileName; }

    // Opens or makes the file, with the permission bits `iFileAttr` unless that is -1. Fails with 2.
    int open(int iFileAttr);
    // Marks the file as used now, notes which file it is, lengthens it to ZEBU_MANAGE_LENGTH bytes where it
    // is shorter, and stores the length it had. Fails with 4, 14 or 20.
    int prepare(long* plLength);
    // Lengthens it again when somebody has cut it. Fails with 4 or 14, and with 29 when the descriptor is not
    // the file's any more.
    int complete();
    // Maps the record. Fails with 7.
    int map();
    // Unmaps and closes what is open; the lock goes with the descriptor. Fails with 23 or 3. The descriptor
    // is kept then where the unmapping failed, or where it was not open any more.
    int closeManagementFile();

    bool isOpen() const { return iManageFd != -1; }
    int descriptor() const { return iManageFd; }
    // Whether the application closed the descriptor, and opened a file of its own under that number.
    bool isForeign() const;
    bool isSameFile(const struct stat& info) const
    {
        return info.st_ino == ulManageIno && info.st_dev == ulManageDev;
    }
    // Fails with 20 or 29 when the file of that name is not the one that was opened. Stores the length of
    // that file.
    int checkIdentity(long* plLength) const;

    // Whether the record can be read: it is mapped, and the file was not cut.
    bool isReadable() const;
    // Copies the record. Returns 0, or -1 when the copy is not valid; records nothing.
    int readAndCheckManagementFileMMap(tagZEBU_MANAGEMENT_DATA* pOut) const
    {
        return ZEBU_ReadAndCheckManagementFile(pManageMap, pOut);
    }
    void publish(const tagZEBU_MANAGEMENT_DATA& rec);
    void publishSizes(unsigned int uFileSize, unsigned int uFileNum);
    void publishMode(unsigned int uMode);
    void publishPosition(unsigned int uFile, unsigned int uOffset);
    void publishOffset(unsigned int uOffset);

private:
    int lengthen(const struct stat& info);

    int iManageFd = -1;
    unsigned long ulManageIno = 0; // 0 while it is not known
    unsigned long ulManageDev = 0;
    tagZEBU_MANAGEMENT_DATA* pManageMap = static_cast<tagZEBU_MANAGEMENT_DATA*>(MAP_FAILED);
    char szManageDir[ZEBU_PATH_ROOM] = {};
    char szManageFileName[ZEBU_PATH_ROOM] = {};
};

#endif
