// The end of a forked child process (seeder workers, test children). A child leaves
// with _exit so that it runs none of the exit handlers and flushes none of the stdio
// buffers it inherited from its parent; but _exit also skips the leak check that
// LeakSanitizer runs at a normal exit. Under the sanitizer that check runs here, and
// a leak turns a successful exit into kLeakExitCode after the leak report.
#ifndef HYSIM_EXIT_CHILD_H
#define HYSIM_EXIT_CHILD_H

#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#define HYSIM_CHECK_CHILD_LEAKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(leak_sanitizer)
#define HYSIM_CHECK_CHILD_LEAKS 1
#endif
#endif

#ifdef HYSIM_CHECK_CHILD_LEAKS
#include <sanitizer/lsan_interface.h>
#endif

namespace process {

// LeakSanitizer's own exit code when it finds a leak at a normal exit.
constexpr int kLeakExitCode = 23;

[[noreturn]] inline void exitChild(int code)
{
#ifdef HYSIM_CHECK_CHILD_LEAKS
    // Honours ASAN_OPTIONS=detect_leaks=0 (it then finds nothing).
    if (__lsan_do_recoverable_leak_check() != 0 && code == 0)
        code = kLeakExitCode;
#endif
    _exit(code);
}

} // namespace process

#endif
