// frame/ForkHandler.h -- what keeps the library usable in the child of a fork.
#ifndef ZEBU_FRAME_FORKHANDLER_H
#define ZEBU_FRAME_FORKHANDLER_H

#include <atomic>

// Registers the handlers that hold the library's mutexes over a fork, so that none is left locked in
// the child by a thread that the child does not have.
void ZEBU_RegisterForkGuards();

// Counts the forks between the process that was started and this one. What belongs to one process
// alone keeps the value it was made under and is foreign when the value has changed.
extern constinit std::atomic<unsigned int> ZEBU_uForkGeneration;

#endif
