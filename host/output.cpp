#include "host/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "host/host_error.h"

void WriteLine(const std::string& line) {
  std::cout << line << std::endl;
  if (!std::cout) {
    throw CHostError(EX_IOERR, std::string("The output cannot be written (") + strerror(errno) +
                                   "): check where standard output goes.");
  }
}

void WriteMessage(const std::string& sentence) { std::cerr << "em_host: " + sentence + "\n"; }

void OccupyStandardFiles() {
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(file, F_GETFD) < 0) {
      // In the wrong direction, so that using it fails; inherited by the programs that are run.
      [[maybe_unused]] const int lowest =
          open("/dev/null", file == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}
