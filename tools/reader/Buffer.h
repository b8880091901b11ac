// tools/reader/Buffer.h -- bytes that grow at their end, for what is written in many short pieces.
//
// Appending to a std::string is a call into a library. Here it is compiled into its caller, a constant piece
// as a few moves: a line of JSON has some twenty.
#ifndef ZEBU_TOOLS_READER_BUFFER_H
#define ZEBU_TOOLS_READER_BUFFER_H

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

class ZEBUBuffer
{
public:
    [[gnu::always_inline]] ZEBUBuffer& append(std::string_view svBytes)
    {
        m_uSize += svBytes.copy(room(svBytes.size()), svBytes.size());
        return *this;
    }

    // Room for so many bytes behind the others; what is written there counts when it is added.
    char* room(size_t uBytes)
    {
        if (m_uRoom - m_uSize < uBytes)
            grow(uBytes);
        return m_pBytes.get() + m_uSize;
    }
    void add(size_t uBytes) { m_uSize += uBytes; }

    void clear() { m_uSize = 0; }
    size_t size() const { return m_uSize; }
    std::string_view view() const { return {m_pBytes.get(), m_uSize}; }

private:
    [[gnu::noinline]] void grow(size_t uBytes)
    {
        m_uRoom = std::max(2 * m_uRoom, m_uSize + uBytes);
        auto pLarger = std::make_unique_for_overwrite<char[]>(m_uRoom);
        (void)view().copy(pLarger.get(), m_uSize);
        m_pBytes = std::move(pLarger);
    }

    std::unique_ptr<char[]> m_pBytes;
    size_t m_uSize = 0;
    size_t m_uRoom = 0;
};

#endif
