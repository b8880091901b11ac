/* tests/fault/inject.h -- the fault injector's controls.
 *
 * The injector is a shared object that is preloaded before libc. It counts the calls of the libc function
 * that the plan names, and makes chosen ones fail, but only while it is armed: around the calls under test,
 * on the thread that armed it. The driver finds the plan with dlsym. */
#ifndef ZEBU_TESTS_FAULT_INJECT_H
#define ZEBU_TESTS_FAULT_INJECT_H

/* In place of an errno: read and write half of what is asked for. */
#define FAULT_SHORT (-1)

struct ZebuFault
{
    const char* pszFunction; /* "*": any */
    int iCode;               /* errno, or FAULT_SHORT */
    long lFirst, lLast;      /* which calls, counted from 1 */
    int iArmed;
    long lCalls;         /* counted while armed */
    long lFired;         /* calls that were made to fail */
    long lInheritable;   /* opens without close-on-exec */
    void (*visit)(void); /* run before the chosen calls, which do not fail then; null: they fail */
};

#define ZEBU_FAULT_PLAN "zebu_fault_plan"

#endif
