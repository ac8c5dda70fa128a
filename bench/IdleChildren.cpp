#include "bench/IdleChildren.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace halvexd::bench {

IdleChildren::~IdleChildren() {
  resize(0);
}

bool IdleChildren::resize(size_t count) {
  while (children.size() > count) {
    pid_t child = children.back();
    children.pop_back();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  while (children.size() < count) {
    pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
      // Never outlive the benchmark, even when it is killed.
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() == 1) _exit(0);
      for (;;) pause();
    }
    children.push_back(child);
  }
  return true;
}

IdleChildren& sharedIdleChildren() {
  static IdleChildren children;
  return children;
}

}  // namespace halvexd::bench
