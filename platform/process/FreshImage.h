#pragma once
// Replaces the program of this process by a fresh image of itself: for a process whose memory may be overwritten.
//
//   int main(int, char* argv[]) {
//     Process::FreshImage::noteStart(argv);     // first
//     ...
//     Process::FreshImage::replace();           // anywhere, on any heap
//
// Guarantees: the new image has the pid, arguments, environment, user, limits, blocked signals and standard streams of
// this one, and the working directory that noteStart() saw. Of the memory it has only the bytes given to keep(), and no
// other descriptors. A signal that was blocked and pending is delivered to it.
// docs/decisions/0028-damage-replaces-the-mirrors-image.md says why.

#include <string>
#include <string_view>

namespace Process::FreshImage {

// Notes how the program was started. Lifetime: `arguments`, as main() received them, stay valid.
void noteStart(char* const* arguments);

// Whether replace() began this image.
bool isReplacement();

// Stores bytes for the next image in the kernel, where later damage to the heap cannot reach them. Replaces those of an
// earlier call. Without memory, the next image gets none. kept() returns the bytes of the image before this one, or
// none; call it before keep().
void keep(std::string_view bytes);
std::string kept();

// From here on, SIGSEGV, SIGBUS and SIGABRT call replace() instead of ending the process. If that fails, the signal
// ends it.
void replaceOnFault();

// Replaces the image. Uses no heap. Returns only if the system refuses, and then sets errno. Requires: noteStart() was
// called.
void replace();

}  // namespace Process::FreshImage
