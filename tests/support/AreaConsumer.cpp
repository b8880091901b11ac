#include "support/AreaConsumer.h"

std::string areaMessage(const std::string& sender, int iNumber)
{
    const int iFiller = iNumber % 31 == 30 ? 4080 : iNumber % 997; // the longest texts among them
    return sender + " " + std::to_string(iNumber) + " " + std::string(static_cast<size_t>(iFiller), 'x');
}

std::string areaSender(const std::string& message)
{
    std::istringstream in(message);
    std::string sender;
    int iNumber = 0;
    in >> sender >> iNumber;
    return message == areaMessage(sender, iNumber) ? sender + " " + std::to_string(iNumber) : "";
}

AreaConsumer::AreaConsumer(const std::string& file)
{
    const int iFd = open(file.c_str(), O_RDWR);
    m_pHeader = static_cast<AreaHeader*>(mmap(nullptr, 65536, PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0));
    CHECK(m_pHeader != MAP_FAILED && close(iFd) == 0);
}

void AreaConsumer::drain()
{
    const uint32_t uWrite = __atomic_load_n(&m_pHeader->uWriteOffset, __ATOMIC_ACQUIRE);
    const char* pData = reinterpret_cast<const char*>(m_pHeader + 1);
    uint32_t uRead = m_pHeader->uReadOffset;
    if (uRead > uWrite) {
        m_rest.append(pData + uRead, m_pHeader->uDataSize - uRead);
        uRead = 0;
    }
    m_rest.append(pData + uRead, uWrite - uRead);
    __atomic_store_n(&m_pHeader->uReadOffset, uWrite, __ATOMIC_RELEASE);
    for (const std::string& line : splitLines(m_rest)) {
        if (line.find_first_not_of(' ') == std::string::npos)
            ++m_iBlank;
        else
            count(line);
    }
    m_rest.erase(0, m_rest.rfind('\n') + 1);
}

void AreaConsumer::count(const std::string& line)
{
    const std::string whole = areaSender(body(line));
    ++(whole.empty() ? m_iTorn : m_seen[whole]);
}

void AreaConsumer::expectSeen(size_t uCount)
{
    drain();
    EXPECT_EQ(m_iTorn, 0);
    EXPECT_EQ(m_seen.size(), uCount);
    for (const auto& [message, iCount] : std::exchange(m_seen, {}))
        EXPECT_EQ(iCount, 1) << message;
}

bool AreaConsumer::hasRoom(uint32_t uBytes) const
{
    const uint32_t uRead = __atomic_load_n(&m_pHeader->uReadOffset, __ATOMIC_ACQUIRE);
    const uint32_t uWrite = __atomic_load_n(&m_pHeader->uWriteOffset, __ATOMIC_ACQUIRE);
    if (__atomic_load_n(&m_pHeader->uReadOffset, __ATOMIC_ACQUIRE) != uRead)
        return false; // perhaps
    return (uRead > uWrite ? uRead - uWrite : uRead + m_pHeader->uDataSize - uWrite) > uBytes;
}

void AreaConsumer::put(const std::string& sender, int iNumber) const
{
    const std::string text = areaMessage(sender, iNumber);
    while (!hasRoom(50000)) // for the longest lines of a dozen writers
        std::this_thread::yield();
    CHECK(ZEBU2_PutToShm(text.data(), text.size()) == 0);
}
