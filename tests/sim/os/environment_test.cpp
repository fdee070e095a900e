// Start-up: where notes.ini may come from.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "environment.h"
#include "sim/support/storage_fixture.h"

namespace {

STATUS startWith(const std::string& ini)
{
    std::string program = "/nonexistent-program-dir";
    std::string argument = "=" + ini;
    char* argv[] = {program.data(), argument.data(), nullptr};
    return NotesInitExtended(2, argv);
}

class NotesIni : public ::testing::Test {
protected:
    void SetUp() override { dir = storage_test::makeDataDirectory(); }
    void TearDown() override
    {
        NotesTerm();
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    std::string dir;
};

} // namespace

TEST_F(NotesIni, OnlyARegularFileIsRead)
{
    std::string real = dir + "/real.ini";
    storage_test::writeFile(real, "[Notes]\nDirectory=" + dir + "\n");
    std::filesystem::create_symlink(real, dir + "/linked.ini");
    EXPECT_EQ(startWith(dir + "/linked.ini"), NOERROR) << "a link to a regular file is that file";
    EXPECT_EQ(sim::dataDirectory(), dir);
    NotesTerm();

    std::filesystem::create_directory(dir + "/directory.ini");
    EXPECT_EQ(startWith(dir + "/directory.ini"), sim::STS_INI_MISSING);
    EXPECT_EQ(startWith("/dev/zero"), sim::STS_INI_MISSING) << "a device that never ends";
    EXPECT_EQ(startWith(dir + "/missing.ini"), sim::STS_INI_MISSING);
    EXPECT_FALSE(sim::runtimeInitialized());
}

TEST_F(NotesIni, AFifoFailsAtOnceInsteadOfWaitingForAWriter)
{
    std::string fifo = dir + "/fifo.ini";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::promise<STATUS> result;
    std::future<STATUS> answer = result.get_future();
    std::thread starter([&] { result.set_value(startWith(fifo)); });
    bool answered = answer.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    if (!answered) {
        // Let the blocked open go on, so the thread can be joined.
        int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
        if (writer >= 0)
            close(writer);
    }
    starter.join();
    EXPECT_TRUE(answered) << "NotesInitExtended blocked on a FIFO";
    EXPECT_EQ(answer.get(), sim::STS_INI_MISSING);
    EXPECT_FALSE(sim::runtimeInitialized());
}
