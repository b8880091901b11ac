// frame/Word.h -- eight bytes of anything, moved as one. Includes nothing of the library's state.
#ifndef ZEBU_FRAME_WORD_H
#define ZEBU_FRAME_WORD_H

#include <stdint.h>

// For bytes that others store or load at the same time: whoever moves them through this type sees all eight
// old or all eight new. They lie at a multiple of eight, and may be of any other type.
typedef uint64_t __attribute__((may_alias)) ZEBUWord;
static_assert(sizeof(ZEBUWord) == 8);

#endif
