// The text helpers of the signal-safe put.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>

#include <string>

#include "output/PMsgSig.h"

// They look at blocks of 16 bytes, but never at another page.
TEST(Text, SignalSafeHelpersStayInThePageOfTheText)
{
    constexpr size_t page = 4096;
    char* base = static_cast<char*>(mmap(nullptr, 3 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(mprotect(base + page, page, PROT_READ | PROT_WRITE), 0);
    memset(base + page, 'x', page);
    for (int length = 0; length <= 40; ++length) {
        char* atEnd = base + 2 * page - length - 1;
        memset(atEnd, 'a', static_cast<size_t>(length));
        atEnd[length] = '\0';
        atEnd[-1] = '\0'; // of another text
        EXPECT_EQ(ZEBU_strlen_r(atEnd), length);
        for (int most : {0, 1, length, length + 1, length + 20}) {
            std::string copy(64, '?');
            ZEBU_strncpy_r(copy.data(), atEnd, most);
            const std::string text = std::string(static_cast<size_t>(length), 'a') + '\0';
            const std::string expected = text.substr(0, static_cast<size_t>(most));
            EXPECT_EQ(copy, expected + std::string(64 - expected.size(), '?')) << length << ", " << most;
        }
    }
    EXPECT_EQ(ZEBU_strlen_r(strcpy(base + page, "at the start")), 12);
}
