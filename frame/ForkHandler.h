// frame/ForkHandler.h -- what keeps the library usable in the child of a fork.
#ifndef ZEBU_FRAME_FORKHANDLER_H
#define ZEBU_FRAME_FORKHANDLER_H

// Registers the handlers that hold the library's mutexes over a fork, so that none is left locked in
// the child by a thread that the child does not have.
void ZEBU_RegisterForkGuards();

#endif
