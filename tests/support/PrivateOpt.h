// tests/support/PrivateOpt.h -- a standard configuration that only the test sees.
#ifndef ZEBU_TESTS_SUPPORT_PRIVATEOPT_H
#define ZEBU_TESTS_SUPPORT_PRIVATEOPT_H

// Puts an empty file system over /opt for this process and its children alone, so that nothing is left
// on the machine and tests that run at the same time do not meet. Before the process has threads.
// Returns false where the system does not allow it.
bool enterPrivateOpt();

#endif
