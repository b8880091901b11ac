// config/GetPath.h -- paths put into one form by their text alone, for the configuration.
//
// Nothing is looked up on disk and symbolic links are not resolved. `dst` has room for `max` + 1 bytes
// and for at least 2; it is always terminated when something was stored.
#ifndef ZEBU_CONFIG_GETPATH_H
#define ZEBU_CONFIG_GETPATH_H

#include <stddef.h>

// Removes empty components, "." and ".." (with the component before it; at the root it stays there)
// from an absolute path: /a//b/../c gives /a/c. Returns -1 when `src` is empty or relative (`dst` is
// untouched), when there is no memory, or when the result is longer than `max` characters (`dst` holds
// the components that fit).
int ZEBU_GetAbsolutePath(const char* src, char* dst, size_t max);

// The same without the last component: /a/b/c gives /a/b, and /a and / give /.
int ZEBU_GetParentPath(const char* src, char* dst, size_t max);

#endif
