#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

// A program to be metered. It waits until it is killed, alone or with a crowd of its own:
//   idler                waits
//   idler COUNT          waits with COUNT copies of itself
//   idler name NAME      waits under this command name
//   idler exec PROGRAM   becomes PROGRAM as soon as its standard input ends

namespace {

[[noreturn]] void idle() {
  for (;;) ::pause();
}

void waitForEndOfInput() {
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) continue;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount == 3 && std::strcmp(arguments[1], "exec") == 0) {
    waitForEndOfInput();
    ::execl(arguments[2], arguments[2], nullptr);
    return 1;
  }
  if (argumentCount == 3 && std::strcmp(arguments[1], "name") == 0) {
    ::prctl(PR_SET_NAME, arguments[2]);
    idle();
  }
  const int copies = argumentCount == 2 ? std::atoi(arguments[1]) : 0;
  for (int copy = 0; copy < copies; ++copy) {
    if (::fork() == 0) idle();
  }
  idle();
}
