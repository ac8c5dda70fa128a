// Counts the bytes held through operator new in this program, exactly: the C
// library's own figures move with its caches of freed blocks. Under the
// address sanitizer its allocator is asked instead.
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/GoldenRun.h"

// GCC says it is under the address sanitizer with a macro, clang with a feature.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HALVEXD_HEAP_OF_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(HALVEXD_HEAP_OF_SANITIZER)
// From the sanitizer runtime (its header does not come with every compiler).
extern "C" size_t __sanitizer_get_current_allocated_bytes();

size_t halvexd::testing::heapBytesInUse() {
  return __sanitizer_get_current_allocated_bytes();
}
#else
namespace {
std::atomic<size_t> liveBytes{0};
}

size_t halvexd::testing::heapBytesInUse() {
  return liveBytes.load();
}

void* operator new(size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  liveBytes += malloc_usable_size(block);
  return block;
}
void* operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  liveBytes -= malloc_usable_size(block);
  std::free(block);
}
void operator delete[](void* block) noexcept {
  operator delete(block);
}
void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}
void operator delete[](void* block, size_t) noexcept {
  operator delete(block);
}
#endif
