// tools/reader/Place.cpp -- the fingerprint that a place is recognised by.
#include "tools/reader/Place.h"

#include <string.h>

// FNV-1a over words of eight bytes, the length mixed in.
uint64_t ZEBU_Fingerprint(std::string_view svBytes)
{
    constexpr uint64_t uPrime = 0x100000001B3;
    uint64_t uHash = 0xCBF29CE484222325 ^ svBytes.size();
    while (!svBytes.empty()) {
        uint64_t uWord = 0;
        const size_t uBytes = svBytes.size() < sizeof uWord ? svBytes.size() : sizeof uWord;
        memcpy(&uWord, svBytes.data(), uBytes);
        uHash = (uHash ^ uWord) * uPrime;
        uHash ^= uHash >> 32; // the high bytes of a word reach the low ones of the result
        svBytes.remove_prefix(uBytes);
    }
    return uHash;
}
