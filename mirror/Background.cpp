#include "mirror/Background.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "kel/Errors.h"

namespace Mirror {

namespace {

[[noreturn]] void failToDetach(const char* what) {
  throw Kel::Exception(std::string("cannot go to the background: ") + what + ": " + std::strerror(errno));
}

[[noreturn]] void waitForDaemon(int pipe) {
  char word = 0;
  ssize_t size = 0;
  do {
    size = read(pipe, &word, 1);
  } while (size < 0 && errno == EINTR);
  _exit(size == 1 ? 0 : 1);
}

}  // namespace

Background::Background() {
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) failToDetach("pipe");
  const pid_t child = fork();
  if (child < 0) failToDetach("fork");
  if (child > 0) {
    close(pipe[1]);
    waitForDaemon(pipe[0]);
  }
  close(pipe[0]);
  starter_ = pipe[1];
  if (setsid() < 0) failToDetach("setsid");
}

Background::~Background() {
  if (starter_ >= 0) close(starter_);
}

void Background::serving() {
  if (starter_ < 0) return;
  if (chdir("/") != 0) failToDetach("chdir");
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null < 0) failToDetach("/dev/null");
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null, stream);
  if (null > STDERR_FILENO) close(null);
  // The starter may have been killed meanwhile; that is no concern of the daemon.
  [[maybe_unused]] const ssize_t size = write(starter_, "1", 1);
  close(starter_);
  starter_ = -1;
}

}  // namespace Mirror
