// Summary buffers of view entries with arbitrary column maps, rendered by
// HyLNView::AddEntryToNoteIndex. The buffer is an exactly sized heap copy whose Length
// word never claims more than it holds, so AddressSanitizer sees any read past it; the
// line always starts with the note ID and stays within its documented size.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

const size_t kLineSize = 480;
HyLNView* view = nullptr;

// Up to seven (flags, name) pairs, each a flags byte pair and a NUL-ended name.
void readColumnMap(Fields& fields)
{
    view->columnIndex->clear();
    int columns = fields.byte() % 8;
    for (int i = 0; i < columns; ++i) {
        unsigned short flags = static_cast<unsigned short>(fields.byte() | fields.byte() << 8);
        view->columnIndex->emplace(fields.text(), flags);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    loadRuntime();
    std::string dir = makeWorkDir("index");
    if (startRuntime(writeNotesIni(dir)) != NOERROR)
        fail("the runtime did not start");
    static HyLNDatabase database("index.nsf", "");
    view = new HyLNView(database, 0x20u);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fields fields(data, size);
    readColumnMap(fields);
    NOTEID noteId = 0;
    for (int i = 0; i < 4; ++i)
        noteId = noteId << 8 | fields.byte();
    COLLECTIONPOSITION position{};
    position.Level = fields.byte() % 4;
    for (int i = 0; i <= position.Level; ++i)
        position.Tumbler[i] = fields.byte();
    INDEXSPECIALINFO info{};
    info.IndexChildren = fields.byte();
    std::string summary = fields.rest();
    if (summary.size() < sizeof(WORD))
        return 0;
    WORD declared = 0;
    std::memcpy(&declared, summary.data(), sizeof declared);
    size_t held = std::max<size_t>(sizeof(WORD), std::min<size_t>(declared, summary.size()));
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[held]);
    std::memcpy(buffer.get(), summary.data(), held);
    if (declared > held) {
        WORD length = static_cast<WORD>(held);
        std::memcpy(buffer.get(), &length, sizeof length);
    }

    std::unique_ptr<char[]> line(new char[kLineSize]);
    view->AddEntryToNoteIndex(line.get(), buffer.get(), noteId, info, position, 0);
    char start[10];
    std::snprintf(start, sizeof start, "%08x\x12", noteId);
    if (std::strncmp(line.get(), start, 9) != 0)
        fail("the line does not start with the note ID");
    if (std::strlen(line.get()) >= kLineSize)
        fail("the line outgrew its documented size");
    return 0;
}
