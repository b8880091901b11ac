// tests/support/SharedRing.h -- a fixture that speaks the language of a shared ring: open it as one more
// process would, write lines, read files and record, and damage both.
#ifndef ZEBU_TESTS_SUPPORT_SHAREDRING_H
#define ZEBU_TESTS_SUPPORT_SHAREDRING_H

#include <fstream>

#include "frame/ProcessObjects.h"
#include "multilog/EndOfData.h"
#include "multilog/MultiLogFile.h"
#include "support/Sandbox.h"

// The ring as one process has it; closed when the test is done with it.
using Ring = std::shared_ptr<ZebuMultiLogFile>;

class SharedRing : public Sandbox
{
protected:
    SharedRing() { ZEBU_InitializeGrobalVar(); } // headers carry the process id

    Ring make(int iOption = 0, long lSize = 4096, long lCount = 3) const
    {
        const tagZEBU_LOGFILE_SPEC spec = {lSize, lCount, base.c_str()};
        Ring ring(new ZebuMultiLogFile(&spec), [](ZebuMultiLogFile* pRing) {
            (void)pRing->closeFile();
            delete pRing;
        });
        ring->setOption(iOption);
        return ring;
    }
    Ring open(int iOption = 0, long lSize = 4096, long lCount = 3, int iExpected = 0) const
    {
        Ring ring = make(iOption, lSize, lCount);
        SetErrPos(0, 0);
        EXPECT_EQ(ring->openFile(), iExpected) << "failure " << lastError();
        return ring;
    }

    // Writes `text` and CR LF.
    static int put(const Ring& ring, const std::string& text)
    {
        const std::string line = text + "\r\n";
        return ring->putMessage(line.data(), line.size());
    }
    // Writes one line that brings the write uOffset to `uOffset`.
    void fillTo(const Ring& ring, unsigned int uOffset) const
    {
        ASSERT_LT(record().writeOffset + 2, uOffset);
        ASSERT_EQ(put(ring, std::string(uOffset - record().writeOffset - 2, 'f')), 0);
        ASSERT_EQ(record().writeOffset, uOffset);
    }

    std::string traceName(int n) const { return base + std::to_string(n) + ".log"; }
    std::string manageDir() const { return base.substr(0, base.rfind('/')) + "/mmap"; }
    std::string manageName() const { return manageDir() + base.substr(base.rfind('/')) + ".mm"; }
    std::string trace(int n) const { return readFile(traceName(n)); }
    static std::string mark() { return std::string(1, ZEBU_EOD_BYTE) + ZEBU_EOD_TEXT; }

    // What a scan finds before the mark, without regard to the record; "no mark" where there is none.
    std::string data(int n) const
    {
        ZEBUEndOfDataScan scan;
        const std::string text = trace(n);
        const size_t uLength = scan.examine(text.data(), text.size());
        return scan.found() ? text.substr(0, uLength) : "no mark";
    }

    tagZEBU_MANAGEMENT_DATA record() const
    {
        tagZEBU_MANAGEMENT_DATA rec = {};
        (void)readFile(manageName()).copy(reinterpret_cast<char*>(&rec), sizeof rec);
        return rec;
    }
    // Stores a word into the record behind everybody's back.
    void poke(size_t uOffset, unsigned int uValue) const
    {
        const int iFd = ::open(manageName().c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_EQ(pwrite(iFd, &uValue, sizeof uValue, static_cast<off_t>(uOffset)), 4);
        close(iFd);
    }

    std::string base = prefix();
};

#endif
