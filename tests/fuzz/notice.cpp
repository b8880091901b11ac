// The file-switch notice, from any template, name and file name.
#include "Fuzz.h"
#include "logfile/LogSwapMsg.h"

static void fuzz(std::string_view input)
{
    const std::string notice(FuzzDir::take(&input, input.size() / 2));
    const std::string name(FuzzDir::take(&input, 16)), file(input);
    const auto pMsg = std::make_unique<tagZEBU_SWAP_MSG>(); // what follows is poisoned
    const int iLength = ZEBU_BuildSwapMsg(pMsg.get(), notice.c_str(), name.c_str(), 7, file.c_str());
    FUZZ_CHECK(iLength >= 0 && iLength <= ZEBU_SWAP_MSG_MAX);
    FUZZ_CHECK(strlen(pMsg->szText) == static_cast<size_t>(iLength));
    FUZZ_CHECK(strlen(pMsg->szShown) <= static_cast<size_t>(iLength));
}
