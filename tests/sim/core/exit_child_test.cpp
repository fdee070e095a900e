// Forked children (seeder workers, test children) end through process::exitChild:
// their own exit code comes through, and under the leak checker a leak fails a
// child that would otherwise have succeeded instead of vanishing with _exit.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "exit_child.h"

namespace {

// Runs `body` in a forked child that then ends with exitChild(code); the child's
// exit status, or -1 when it did not exit normally.
template <class F>
int exitCodeOfChild(int code, F body)
{
    pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        // The report about the deliberate leak below is not test output.
        int null = open("/dev/null", O_WRONLY);
        if (null >= 0)
            dup2(null, STDERR_FILENO);
        body();
        process::exitChild(code);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

bool leakCheckerActive()
{
#ifdef HYSIM_CHECK_CHILD_LEAKS
    const char* options = std::getenv("ASAN_OPTIONS");
    return options == nullptr || std::strstr(options, "detect_leaks=0") == nullptr;
#else
    return false;
#endif
}

// Drops the only pointer to a heap block.
__attribute__((noinline)) void leakABlock()
{
    volatile char* block = new char[64];
    block[0] = 1;
}

} // namespace

TEST(ChildExit, TheChildsOwnCodeComesThrough)
{
    EXPECT_EQ(exitCodeOfChild(0, [] {}), 0);
    EXPECT_EQ(exitCodeOfChild(3, [] {}), 3);
    // A child that failed already keeps its own reason, leak or not.
    EXPECT_EQ(exitCodeOfChild(3, leakABlock), 3);
}

TEST(ChildExit, ALeakFailsAChildThatWouldHaveSucceeded)
{
    if (!leakCheckerActive())
        GTEST_SKIP() << "this build runs no leak checker";
    EXPECT_EQ(exitCodeOfChild(0, leakABlock), process::kLeakExitCode);
}
