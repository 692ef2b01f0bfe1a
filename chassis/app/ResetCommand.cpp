#include "app/ResetCommand.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace chassis {

void ResetCommand::tell(const event::ResetCommandFailed &failure) {
  events_.tell({{}, failure});
}

void ResetCommand::run() {
  look();
  if (command_.empty() || process_ != 0) {
    return;
  }
  std::string shell = "sh";
  std::string option = "-c";
  std::string command = command_;
  char *const arguments[] = {shell.data(), option.data(), command.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  const int error = posix_spawn(&process_, "/bin/sh", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    process_ = 0;
    tell({event::CommandFailure::NotRun, std::strerror(error)});
  }
}

void ResetCommand::look() {
  int status = 0;
  if (process_ == 0 || waitpid(process_, &status, WNOHANG) != process_) {
    return;
  }
  process_ = 0;
  if (WIFSIGNALED(status)) {
    tell({event::CommandFailure::Signal, "", WTERMSIG(status)});
  } else if (WEXITSTATUS(status) != 0) {
    tell({event::CommandFailure::ExitStatus, "", WEXITSTATUS(status)});
  }
}

}  // namespace chassis
