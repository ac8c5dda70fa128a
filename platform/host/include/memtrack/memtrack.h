// Host build's declaration of the memory-tracking calls halvexd makes.
// A host has no graphics memory tracker: every figure it reports is 0.
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct memtrack_proc;

struct memtrack_proc* memtrack_proc_new(void);
void memtrack_proc_destroy(struct memtrack_proc* p);
int memtrack_proc_get(struct memtrack_proc* p, pid_t pid);
ssize_t memtrack_proc_graphics_pss(struct memtrack_proc* p);
ssize_t memtrack_proc_gl_pss(struct memtrack_proc* p);
ssize_t memtrack_proc_other_pss(struct memtrack_proc* p);

#ifdef __cplusplus
}
#endif
