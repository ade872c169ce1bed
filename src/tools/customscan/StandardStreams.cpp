#include "StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace CustomScanTool {

namespace {
bool g_Closed[3] = {false, false, false};
}  // namespace

void StandardStreams::hold() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    g_Closed[fd] = true;
    // Open for the other direction: reading a held standard output or
    // writing a held standard input fails with EBADF, as on a closed one.
    // open() returns the lowest free number, which is fd itself, since the
    // lower ones are open or held by now.
    const int placeholder = ::open("/dev/null", (fd == 0 ? O_WRONLY : O_RDONLY));
    if (placeholder != -1 && placeholder != fd) {
      ::dup2(placeholder, fd);
      ::close(placeholder);
    }
  }
}

void StandardStreams::release() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (g_Closed[fd]) ::close(fd);
  }
}

bool StandardStreams::wasClosed(int fd) { return fd >= 0 && fd <= 2 && g_Closed[fd]; }

}  // namespace CustomScanTool
