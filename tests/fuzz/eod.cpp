// The scan for the end-of-data mark: fed in any pieces it finds the same place as a plain search.
#include "Fuzz.h"
#include "multilog/EndOfData.h"

static size_t plainSearch(std::string_view bytes)
{
    for (size_t u = 0; u < bytes.size(); ++u) {
        if (bytes[u] == ZEBU_EOD_BYTE && (u == 0 || (u >= 2 && bytes.substr(u - 2, 2) == "\r\n")))
            return u;
    }
    return bytes.size();
}

static void fuzz(std::string_view input)
{
    if (input.empty())
        return;
    const size_t uPiece = FuzzDir::byte(input, 0) % 64 + size_t{1};
    const std::string_view bytes = input.substr(1);
    ZEBUEndOfDataScan scan;
    size_t uCount = 0;
    for (size_t u = 0; u < bytes.size() && !scan.found(); u += uPiece) {
        const std::string piece(bytes.substr(u, uPiece)); // exactly: what follows is poisoned
        const size_t uExamined = scan.examine(piece.data(), piece.size());
        FUZZ_CHECK(uExamined <= piece.size());
        uCount += uExamined;
    }
    if (bytes.find('\0') == std::string_view::npos) // which would end a piece before its end
        FUZZ_CHECK(uCount == plainSearch(bytes) && scan.found() == (uCount < bytes.size()));
}
