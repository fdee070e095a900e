#include "support/test_support.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

#ifdef HYLN_TEST_COVERAGE
extern "C" void __gcov_reset(void);
extern "C" void __gcov_dump(void);
#endif

namespace hyln_test {
namespace {

void captureCallback(const char* function, int level, const char* file, int line, const char* text, ...)
{
    capturedLog().push_back({function ? function : "", level, file ? file : "", line, text ? text : ""});
}

std::string readAll(FILE* file)
{
    std::string text;
    rewind(file);
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof buffer, file)) > 0)
        text.append(buffer, count);
    return text;
}

template <class T>
void resolve(void* library, const char* name, T& slot)
{
    slot = reinterpret_cast<T>(dlsym(library, name));
    if (slot == nullptr)
        throw std::runtime_error(std::string("simulated runtime lacks ") + name);
}

} // namespace

std::vector<LogLine>& capturedLog()
{
    static std::vector<LogLine> lines;
    return lines;
}

void captureLog()
{
    capturedLog().clear();
    SetLogCallback(captureCallback);
}

std::vector<std::string> logTexts()
{
    std::vector<std::string> texts;
    for (const LogLine& line : capturedLog())
        texts.push_back(line.text);
    return texts;
}

bool logged(const std::string& text)
{
    for (const LogLine& line : capturedLog())
        if (line.text == text)
            return true;
    return false;
}

bool logged(const std::string& function, int level, const std::string& text)
{
    for (const LogLine& line : capturedLog())
        if (line.text == text && line.function == function && line.level == level)
            return true;
    return false;
}

Output captureOutputOf(void (*action)(void*), void* context)
{
    fflush(stdout);
    fflush(stderr);
    FILE* outFile = tmpfile();
    FILE* errFile = tmpfile();
    int savedOut = dup(fileno(stdout));
    int savedErr = dup(fileno(stderr));
    dup2(fileno(outFile), fileno(stdout));
    dup2(fileno(errFile), fileno(stderr));
    action(context);
    fflush(stdout);
    fflush(stderr);
    dup2(savedOut, fileno(stdout));
    dup2(savedErr, fileno(stderr));
    close(savedOut);
    close(savedErr);
    Output output{readAll(outFile), readAll(errFile)};
    fclose(outFile);
    fclose(errFile);
    return output;
}

std::string dominoDir() { return HYLN_TEST_DOMINO_DIR; }
std::string missingLastDir() { return HYLN_TEST_MISSING_LAST_DIR; }
std::string missingFirstDir() { return HYLN_TEST_MISSING_FIRST_DIR; }
std::string sharedDir() { return HYLN_TEST_SHARED_DIR; }
std::string seederPath() { return HYLN_TEST_SEEDER; }

std::string formatted(const char* format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string makeTempDir(const std::string& tag)
{
    fs::path base = fs::temp_directory_path() / "hyln-tests";
    fs::create_directories(base);
    std::string pattern = (base / (tag + "-XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    return buffer.data();
}

void writeNotesIni(const std::string& dir, const std::string& serverName, const std::string& extraLines)
{
    std::ofstream ini(dir + "/notes.ini");
    ini << "[Notes]\nDirectory=" << dir << "\n";
    if (!serverName.empty())
        ini << "ServerName=" << serverName << "\n";
    ini << extraLines;
}

void loadSimulatedRuntime()
{
    static bool loaded = false;
    if (loaded)
        return;
    Output output = captureOutput([] { loaded = loadNotesFunctions(dominoDir()); });
    if (!loaded)
        throw std::runtime_error("cannot load the simulated runtime: " + output.out + output.err);
}

void startRuntime(const std::string& dataDir)
{
    loadSimulatedRuntime();
    std::string program = dominoDir();
    std::string ini = "=" + dataDir + "/notes.ini";
    char* argv[] = {program.data(), ini.data(), nullptr};
    STATUS status = HY_NotesInitExtended(3, argv);
    if (status != NOERROR)
        throw std::runtime_error("NotesInitExtended failed: " + std::to_string(status));
}

SimControl& sim()
{
    static SimControl control = [] {
        loadSimulatedRuntime();
        std::string path = dominoDir() + "/notes/latest/linux/libnotes.so";
        void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (library == nullptr)
            throw std::runtime_error("simulated runtime is not loaded");
        SimControl c{};
        resolve(library, "HySimSetFault", c.setFault);
        resolve(library, "HySimClearFaults", c.clearFaults);
        resolve(library, "HySimTraceEnable", c.traceEnable);
        resolve(library, "HySimTraceClear", c.traceClear);
        resolve(library, "HySimTraceCount", c.traceCount);
        resolve(library, "HySimTraceLine", c.traceLine);
        resolve(library, "HySimCallCount", c.callCount);
        resolve(library, "HySimSetClock", c.setClock);
        resolve(library, "HySimUseRealClock", c.useRealClock);
        resolve(library, "HySimSetUnread", c.setUnread);
        return c;
    }();
    return control;
}

void startChildCoverage()
{
#ifdef HYLN_TEST_COVERAGE
    __gcov_reset();
#endif
}

void flushChildCoverage()
{
#ifdef HYLN_TEST_COVERAGE
    __gcov_dump();
#endif
}

std::vector<std::string> simTrace()
{
    std::vector<std::string> lines;
    for (size_t i = 0; i < sim().traceCount(); ++i)
        lines.push_back(sim().traceLine(i));
    return lines;
}

void LibraryTest::SetUp()
{
    captureLog();
    loadSimulatedRuntime();
    sim().clearFaults();
    sim().traceClear();
}

void LibraryTest::TearDown()
{
    sim().clearFaults();
    sim().traceEnable(0);
}

void RuntimeTest::SetUp()
{
    LibraryTest::SetUp();
    dataDir = makeTempDir("data");
    writeNotesIni(dataDir);
    startRuntime(dataDir);
}

} // namespace hyln_test
