#pragma once
// Replaces the program of this process by a fresh image of itself: for a process whose memory may be overwritten.
//
//   int main(int, char* argv[]) {
//     Process::FreshImage::noteStart(argv);     // first
//     ...
//     Process::FreshImage::replace();           // anywhere, on any heap
//
// Guarantees: the new image has the pid, arguments, environment, user, limits, blocked signals and standard streams of
// this one, and the working directory that noteStart() saw. It has what keep() was given, and otherwise none of the
// memory or descriptors. A signal that was blocked and pending is delivered to it.
// docs/decisions/0028-damage-replaces-the-mirrors-image.md says why.

#include <string>
#include <string_view>

namespace Process::FreshImage {

// Notes how the program was started. `arguments`, as main() received them, stay valid.
void noteStart(char* const* arguments);

// Whether replace() began this image.
bool isReplacement();
// The seconds that the image before this one passed to replace(); 0 for the first image.
unsigned notedSeconds();

// Stores bytes for the next image in the kernel, so that what overwrites the heap later spares them. Replaces those of
// an earlier call. kept() returns those of the image before this one, or none.
void keep(std::string_view bytes);
std::string kept();

// From here on, SIGSEGV, SIGBUS and SIGABRT lead to replace(seconds), rather than end the process.
void replaceOnFault(unsigned seconds);

// Uses no heap. Returns only when the system refuses, and then sets errno. Requires noteStart().
void replace(unsigned seconds);

}  // namespace Process::FreshImage
