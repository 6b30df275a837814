// Linux to store.

#include "mirror/MirrorMain.h"

int main(int argc, char* argv[]) {
  return Mirror::mirrorMain(argc, argv);
}
