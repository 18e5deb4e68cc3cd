// An example plug-in with a dialog: it asks the user whether to go on. On a
// desktop (a display is named in the environment) the question is a window
// shown by the zenity program; without a display, or without that program,
// it is a prompt on the controlling terminal. The answer is the dialog's
// result: yes VYN_STATUS_SUCCESS, no VYN_STATUS_OPERATION_BROKEN, and
// VYN_STATUS_NO_CONNECTION when there is nobody to ask.
//
// The dialog runs without the plug-in manager's lock, so the application may
// unload the plug-in while the question is open; nothing here depends on
// PluginTerminate not having run.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyn/core/status.h>
#include <vyn/plugins/plugin_entry_points.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

extern char** environ;

namespace {

constexpr const char* kQuestion = "The example plug-in asks: go on?";

enum class Answer { kYes, kNo, kNobody };

// The window, when a display and the program are there.
Answer AskOnDisplay() {
  // The host does not change its environment while it shows a dialog.
  const char* display = std::getenv("DISPLAY");          // NOLINT(concurrency-mt-unsafe)
  const char* wayland = std::getenv("WAYLAND_DISPLAY");  // NOLINT(concurrency-mt-unsafe)
  if ((display == nullptr || *display == '\0') && (wayland == nullptr || *wayland == '\0')) {
    return Answer::kNobody;
  }
  char program[] = "zenity";
  char kind[] = "--question";
  char title[] = "--title=Example plug-in";
  char text[96];
  std::snprintf(text, sizeof text, "--text=%s", kQuestion);
  char* argv[] = {program, kind, title, text, nullptr};
  pid_t child = -1;
  if (posix_spawnp(&child, program, nullptr, nullptr, argv, environ) != 0) return Answer::kNobody;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return Answer::kNobody;
  }
  if (!WIFEXITED(status)) return Answer::kNo;
  // 0 yes, 1 no or closed; anything else (such as 127, not found) means the
  // window never came.
  if (WEXITSTATUS(status) == 0) return Answer::kYes;
  return WEXITSTATUS(status) == 1 ? Answer::kNo : Answer::kNobody;
}

// The terminal prompt; standard input may be a script, so the question goes
// to the terminal itself.
Answer AskOnTerminal() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) return Answer::kNobody;
  char prompt[96];
  const int length = std::snprintf(prompt, sizeof prompt, "%s [y/N] ", kQuestion);
  Answer answer = Answer::kNo;
  if (write(terminal, prompt, static_cast<size_t>(length)) == length) {
    // The first character of the line decides; the rest of the line is read
    // and dropped, so that it does not turn up at the next prompt.
    char first = '\0';
    size_t count = 0;
    for (;;) {
      char c = '\0';
      const ssize_t got = read(terminal, &c, 1);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0 || c == '\n') break;
      if (count++ == 0) first = c;
    }
    if (first == 'y' || first == 'Y') answer = Answer::kYes;
  } else {
    answer = Answer::kNobody;
  }
  close(terminal);
  return answer;
}

}  // namespace

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) { return VYN_STATUS_SUCCESS; }

VYN_PLUGIN_EXPORT void PluginTerminate(void) {}

VYN_PLUGIN_EXPORT int32_t PluginShowDialog(void) {
  Answer answer = AskOnDisplay();
  if (answer == Answer::kNobody) answer = AskOnTerminal();
  switch (answer) {
    case Answer::kYes:
      return VYN_STATUS_SUCCESS;
    case Answer::kNo:
      return VYN_STATUS_OPERATION_BROKEN;
    case Answer::kNobody:
      break;
  }
  return VYN_STATUS_NO_CONNECTION;
}
