#include "standard_streams.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ostream>

namespace standard_streams {

void prepare() {
  for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_IGN);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    // the lowest free number is this one: those below are open by now
    const int wrong_way = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (open("/dev/null", wrong_way) != descriptor) return;
  }
}

std::string loss(std::ostream& out, int descriptor) {
  out.flush();
  if (out) return {};
  struct stat what {};
  const bool pipe = fstat(descriptor, &what) == 0 && (S_ISFIFO(what.st_mode) || S_ISSOCK(what.st_mode));
  return pipe ? std::string() : "lines of standard output are lost: it cannot be written";
}

}  // namespace standard_streams
