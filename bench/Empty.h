/* bench/Empty.h -- a shared object with nothing in it: what a call across its boundary costs. */
#ifndef ZEBU_BENCH_EMPTY_H
#define ZEBU_BENCH_EMPTY_H

#ifdef __cplusplus
extern "C"
#endif
    int
    bench_Empty(int iLevel, const char* pszText);

#endif
