// multilog/EndOfData.h -- the mark behind the last line of a shared trace file, and the scan that finds it.
//
// Used by the write path (sets the mark), the search for the end of the data and the backup (scan), and by
// the tool. Includes nothing of the library's state.
#ifndef ZEBU_MULTILOG_ENDOFDATA_H
#define ZEBU_MULTILOG_ENDOFDATA_H

#include <stddef.h>

constexpr char ZEBU_EOD_BYTE = 0x1A;
constexpr char ZEBU_EOD_TEXT[] = "\r\n\r\n\r\n\r\n----------< End of Data >----------\r\n\r\n";
constexpr unsigned int ZEBU_EOD_LENGTH = 47; // the text alone
constexpr unsigned int ZEBU_EOD_MARK = 48;   // the byte and the text
static_assert(sizeof ZEBU_EOD_TEXT - 1 == ZEBU_EOD_LENGTH && ZEBU_EOD_LENGTH + 1 == ZEBU_EOD_MARK);

constexpr size_t ZEBU_SCAN_BLOCK = 1024; // bytes that are read and examined at a time

// Writes the ZEBU_EOD_MARK bytes of the mark.
void ZEBU_PutEndOfData(char* pBuf);

// Finds the mark in a file that is fed block by block from its start: the first ZEBU_EOD_BYTE at offset 0
// or right behind CR LF. A zero byte ends the part of a block that counts, not the scan.
class ZEBUEndOfDataScan final
{
public:
    // Examines the next block. Returns how many bytes at its start are data: up to its first zero byte, up
    // to the mark, or all. No further block may be fed once the mark was found.
    size_t examine(const char* pBlock, size_t uLength);

    bool found() const { return eState == FOUND; }

private:
    enum { LINE_END, AFTER_CR, INSIDE_LINE, FOUND } eState = LINE_END;
};

// Reads a file from its position on in blocks of ZEBU_SCAN_BLOCK, up to the mark. Returns the offset of the
// mark as the scan counts it, 0 without one, or -1 with the errno of a read that failed.
long ZEBU_SearchEndOfData(int iFd);

#endif
