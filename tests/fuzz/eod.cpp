// The scan for the end-of-data mark: fed in any pieces it finds the same place as a plain search.
#include "Fuzz.h"
#include "multilog/EndOfData.h"

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
    if (bytes.find('\0') != bytes.npos) // which ends a piece before its end
        return;
    const size_t uMark = ("\r\n" + std::string(bytes)).find("\r\n\x1A");
    FUZZ_CHECK(uCount == std::min(uMark, bytes.size()) && scan.found() == (uMark != bytes.npos));
}
