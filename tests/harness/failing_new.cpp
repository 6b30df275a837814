// Preloaded into a program, makes operator new fail: allocation number FAILING_NEW_AT of the process and, if
// FAILING_NEW_TIMES is above 1, as many in all, each FAILING_NEW_AT later. They are counted once FAILING_NEW_FROM, if it
// is set, names a file that exists. Memory of C's malloc() never fails.

#include <unistd.h>

#include <cstdlib>
#include <new>

namespace {

long numberOf(const char* variable, long otherwise) {
  const char* const text = std::getenv(variable);
  return text != nullptr ? std::atol(text) : otherwise;
}

bool mustFail() {
  static const long at = numberOf("FAILING_NEW_AT", 0);
  static long left = numberOf("FAILING_NEW_TIMES", 1);
  static long count = 0;
  static const char* const from = std::getenv("FAILING_NEW_FROM");
  if (at == 0 || left == 0) return false;
  if (count == 0 && from != nullptr && access(from, F_OK) != 0) return false;
  if (++count % at != 0) return false;
  --left;
  return true;
}

}  // namespace

void* operator new(std::size_t size) {
  while (mustFail()) {
    const auto handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();  // which ends the process, throws, or has made room
  }
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
