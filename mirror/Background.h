#pragma once
// Goes to the background without letting a failed start pass unseen: the process that was started waits until the
// daemon serves, and ends with status 0 then, with 1 when the daemon ends before.

namespace Mirror {

class Background {
 public:
  // Returns in the daemon, a process and session of its own, with the standard streams still those of the starter.
  // Call it before anything is opened. Throws Kel::Exception when the system has no process to give.
  Background();
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // Lets the starter go. The standard streams are /dev/null from now on, the working directory is "/".
  void serving();
  bool isServing() const { return starter_ < 0; }

 private:
  int starter_ = -1;  // pipe to the process that waits; -1 when it was let go
};

}  // namespace Mirror
