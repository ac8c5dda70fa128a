// Idle child processes that make /proc as crowded as a busy device: each one
// sleeps in pause() until the set shrinks or the benchmark ends, and dies
// with its parent.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace halvexd::bench {

class IdleChildren {
 public:
  IdleChildren() = default;
  ~IdleChildren();
  IdleChildren(const IdleChildren&) = delete;
  IdleChildren& operator=(const IdleChildren&) = delete;

  // Starts or ends children until exactly `count` are running. False when
  // the system refuses another fork (the children started so far stay).
  bool resize(size_t count);
  size_t size() const { return children.size(); }

 private:
  std::vector<pid_t> children;
};

// The set shared by every benchmark of one run, so that sizes change only
// when a benchmark asks for another size.
IdleChildren& sharedIdleChildren();

}  // namespace halvexd::bench
