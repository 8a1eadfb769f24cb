#include "task_spawn.h"

#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace tarnwick::server {

pid_t start_task_process(const std::filesystem::path& program, const std::filesystem::path& notes_ini) {
  // Everything the child needs is made before fork: between fork and exec
  // only async-signal-safe calls are allowed.
  std::string file = program.string();
  std::string argument = "=" + notes_ini.string();
  std::vector<char*> argv{file.data(), argument.data(), nullptr};
  const pid_t server = ::getpid();
  const pid_t pid = ::fork();
  if (pid != 0) return pid < 0 ? -1 : pid;
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != server) ::_exit(127);  // the server died before the line above
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execv(file.c_str(), argv.data());
  ::_exit(127);
}

bool ended_abnormally(int wait_status) { return !WIFEXITED(wait_status) || WEXITSTATUS(wait_status) != 0; }

std::string describe_end(int wait_status) {
  if (WIFEXITED(wait_status)) return "exit status " + std::to_string(WEXITSTATUS(wait_status));
  if (WIFSIGNALED(wait_status)) {
    const int signal = WTERMSIG(wait_status);
    std::string text = "signal " + std::to_string(signal);
    if (const char* name = ::sigabbrev_np(signal)) text += std::string(" (SIG") + name + ")";
    return text;
  }
  return "wait status " + std::to_string(wait_status);
}

}  // namespace tarnwick::server
