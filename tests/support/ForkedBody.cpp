#include "support/ForkedBody.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <system_error>

namespace qbdkr::test {
namespace {

[[noreturn]] void runAndExit(const std::function<bool()>& body) {
  try {
    _exit(body() ? 0 : 1);
  } catch (const std::exception& exception) {
    std::cerr << "a forked body threw: " << exception.what() << std::endl;
  } catch (...) {
    std::cerr << "a forked body threw" << std::endl;
  }
  _exit(2);
}

}  // namespace

int runForked(const std::function<bool()>& body) {
  const pid_t child = fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) runAndExit(body);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return status;
}

}  // namespace qbdkr::test
