// tools/forward/Input.h -- where lines come from, and what becomes of a place when its line is acknowledged.
#ifndef ZEBU_TOOLS_FORWARD_INPUT_H
#define ZEBU_TOOLS_FORWARD_INPUT_H

#include <deque>
#include <memory>
#include <string>

#include "tools/reader/Area.h"
#include "tools/reader/Cursor.h"
#include "tools/reader/Records.h"

// Records in order, some of which are sent. A place counts as delivered when the record in front of it and
// all before it are: what was not sent needs no place of its own.
class ZEBUInput
{
public:
    // `bWait`: what is not there yet is no error.
    ZEBUInput(std::string strName, bool bWait, ZEBUWarn warnUser);
    virtual ~ZEBUInput() = default;
    ZEBUInput(const ZEBUInput&) = delete;
    ZEBUInput& operator=(const ZEBUInput&) = delete;

    // As it was given; in the messages too.
    const std::string& name() const { return m_strName; }

    // The next record, good until the next call. Idle also while there is nothing to read from. Throws
    // ZEBUFailure for what cannot be read and is not waited for.
    ZEBUNext next(ZEBURecord* pRecord);

    // The records of this input; only after next() returned one.
    const ZEBURecords& records() const { return *m_pRecords; }

    // The last record is sent; and the first one of those that are on their way is delivered.
    virtual void sent() = 0;
    virtual void delivered() = 0;

protected:
    // Sets m_pRecords. Returns what is wrong, or an empty text.
    virtual std::string open() = 0;
    virtual ZEBUNext read(ZEBURecord* pRecord) { return m_pRecords->next(pRecord); }
    const ZEBUWarn& warn() const { return m_warn; }

    std::unique_ptr<ZEBURecords> m_pRecords;

private:
    const std::string m_strName;
    const bool m_bWait;
    const ZEBUWarn m_warn;
    std::string m_strTold; // why it is waited for
};

// A ring or a file. Its place goes into the cursor.
class ZEBURingInput final : public ZEBUInput
{
public:
    ZEBURingInput(const std::string& strName, bool bWait, const ZEBUWarn& warnUser, ZEBUCursor& cursor);
    void sent() override { m_places.push_back(m_pRecords->place()); }
    void delivered() override;

private:
    std::string open() override;

    ZEBUCursor& m_cursor;
    std::deque<ZEBUPlace> m_places;
};

// The trace area, whose consumer this is. Its place is the area's own read offset.
class ZEBUAreaInput final : public ZEBUInput
{
public:
    ZEBUAreaInput(const std::string& strPath, bool bWait, const ZEBUWarn& warnUser);
    void sent() override { m_places.push_back({m_uOpened, m_uPlace}); }
    void delivered() override;

private:
    struct Place
    {
        unsigned uOpened;
        uint32_t uOffset;
    };
    std::string open() override;
    ZEBUNext read(ZEBURecord* pRecord) override;

    ZEBUArea m_area;
    ZEBUAreaSource* m_pSource = nullptr; // owned by m_pRecords
    unsigned m_uOpened = 0;              // counts the areas: a place in one that is gone is nothing any more
    uint64_t m_uTaken = 0;               // bytes of the batch that were records already
    uint32_t m_uPlace = 0;               // behind the last record
    std::deque<Place> m_places;
};

#endif
