// Host side of the memory-tracking library. A host has no graphics memory
// tracker, so every process reports 0 bytes and no call fails: the PSS
// reading then consists of the kernel's figure alone.
#include <memtrack/memtrack.h>

#include <new>

struct memtrack_proc {
  pid_t pid;
};

extern "C" {

struct memtrack_proc* memtrack_proc_new(void) {
  return new (std::nothrow) memtrack_proc{0};
}

void memtrack_proc_destroy(struct memtrack_proc* p) {
  delete p;
}

int memtrack_proc_get(struct memtrack_proc* p, pid_t pid) {
  if (p == nullptr) return -1;
  p->pid = pid;
  return 0;
}

ssize_t memtrack_proc_graphics_pss(struct memtrack_proc*) { return 0; }
ssize_t memtrack_proc_gl_pss(struct memtrack_proc*) { return 0; }
ssize_t memtrack_proc_other_pss(struct memtrack_proc*) { return 0; }

}  // extern "C"
