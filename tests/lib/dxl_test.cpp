// DXL helpers: importer and exporter creation with their filters and failure lines,
// the two stream callbacks in both modes, and a note's export and import.
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "HYLNTool_Document.h"
#include "support/domino_fixture.h"
#include "HySimControl.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

const char* const kUtilitiesFile = "HYLNTools/HYLNTool_Interface/HYLNTool_NotesUtilities.cpp";
const STATUS kFault = 0x0222;
const STATUS kSimImportFailed = 0x3F0D;

class Dxl : public RuntimeTest {};

void expectUtilitiesLine(size_t index, const std::string& function, int level, const std::string& text)
{
    ASSERT_GT(capturedLog().size(), index);
    const LogLine& line = capturedLog()[index];
    EXPECT_EQ(line.function, function);
    EXPECT_EQ(line.level, level);
    EXPECT_EQ(line.file, kUtilitiesFile);
    EXPECT_EQ(line.text, text);
}

// A record for memory mode over a calloc'd buffer.
struct MemoryExport {
    explicit MemoryExport(unsigned int size)
        : buffer(static_cast<unsigned char*>(calloc(size == 0 ? 1 : size, 1))), capacity(size)
    {
        record = NoteExportRecord{nullptr, &buffer, 0, &capacity, 0, false, true};
    }
    ~MemoryExport() { free(buffer); }
    void write(const std::string& chunk)
    {
        HyLNUtilities::DXLExportStreamFunc(reinterpret_cast<const unsigned char*>(chunk.data()),
                                           static_cast<unsigned int>(chunk.size()), &record);
    }
    std::string text() const { return std::string(reinterpret_cast<char*>(buffer), record.position); }
    unsigned char* buffer;
    unsigned int capacity;
    NoteExportRecord record;
};

} // namespace

TEST_F(Dxl, ImporterTakesOnlyTheDocumentsOptionAndTheReplicaRequirement)
{
    int create = 2, noReplica = 0, aclOption = 5;
    std::map<DXL_IMPORT_PROPERTY, void*> properties{{1, &aclOption}, {3, &create}, {7, &noReplica}};
    sim().traceEnable(1);
    unsigned int importer = 0;
    HyLNError status = HyLNUtilities::CreateDXLImporter(importer, properties);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_NE(importer, 0u);
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"unknown import prop", "setting import prop iDocumentsImportOption",
                                                    "setting import prop iReplicaRequiredForReplaceOrUpdate"}));
    expectUtilitiesLine(0, "CreateDXLImporter", 0, "unknown import prop");
    std::vector<std::string> calls;
    for (const std::string& line : simTrace())
        if (line.rfind("DXLSetImporterProperty", 0) == 0)
            calls.push_back(line.substr(0, line.find(',', line.find(',') + 1)));
    EXPECT_EQ(calls, (std::vector<std::string>{"DXLSetImporterProperty(" + std::to_string(importer) + ", 3",
                                               "DXLSetImporterProperty(" + std::to_string(importer) + ", 7"}));
    HyLNUtilities::DeleteDXLImporter(importer);
    EXPECT_EQ(sim().callCount("DXLDeleteImporter"), 1u);
    EXPECT_NE(importer, 0u);
}

TEST_F(Dxl, ImporterFailures)
{
    std::map<DXL_IMPORT_PROPERTY, void*> none;
    sim().setFault("DXLCreateImporter", kFault, 1, 0);
    unsigned int importer = 0;
    HyLNError status = HyLNUtilities::CreateDXLImporter(importer, none);
    EXPECT_EQ(status.GetErrorCode(), kFault);
    expectUtilitiesLine(0, "CreateDXLImporter", 0,
                        "Error: unable to create DXL importer. DXLCreateImporter(...) returned: [546] Note item not found\n");

    // A refused property deletes the new importer but leaves its number in the caller's variable.
    captureLog();
    int reserved = 4;
    std::map<DXL_IMPORT_PROPERTY, void*> bad{{3, &reserved}};
    status = HyLNUtilities::CreateDXLImporter(importer, bad);
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_EQ(status.GetErrorCode(), 0x3F05);
    EXPECT_NE(importer, 0u);
    EXPECT_EQ(sim().callCount("DXLDeleteImporter"), 1u);
    EXPECT_EQ(logTexts(), std::vector<std::string>{"setting import prop iDocumentsImportOption"});

    captureLog();
    sim().setFault("DXLCreateImporter", 0, 0, HYSIM_FAULT_THROW);
    status = HyLNUtilities::CreateDXLImporter(importer, none);
    EXPECT_FALSE(status.IsErrorSet());
    expectUtilitiesLine(0, "CreateDXLImporter", 0, "Caught exception in createDXLImporter\n");
    captureLog();
    status = HyLNUtilities::CreateAclDXLImporter(importer, none);
    expectUtilitiesLine(0, "CreateAclDXLImporter", 0, "Caught exception in createAclDXLImporter\n");
}

TEST_F(Dxl, AclImporterPassesEveryPropertySilently)
{
    int ignore = 1, replace = 5, keepLog = 2;
    std::map<DXL_IMPORT_PROPERTY, void*> properties{{9, &keepLog}, {1, &replace}, {2, &ignore}};
    unsigned int importer = 0;
    HyLNError status = HyLNUtilities::CreateAclDXLImporter(importer, properties);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(sim().callCount("DXLSetImporterProperty"), 3u);
    EXPECT_TRUE(capturedLog().empty());
    HyLNUtilities::DeleteDXLImporter(importer);

    sim().setFault("DXLCreateImporter", kFault, 1, 0);
    status = HyLNUtilities::CreateAclDXLImporter(importer, properties);
    EXPECT_EQ(status.GetErrorCode(), kFault);
    expectUtilitiesLine(0, "CreateAclDXLImporter", 0,
                        "Error: unable to create DXL importer. DXLCreateImporter(...) returned: [546] Note item not found\n");
}

TEST_F(Dxl, ExporterSetsOnlyItsFixedSet)
{
    int validation = 0, force = 1;
    std::map<DXL_EXPORT_PROPERTY, void*> properties{{8, &validation}, {30, &force}};
    unsigned int exporter = 0;
    HyLNError status = HyLNUtilities::CreateDXLExporter(exporter, properties);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(sim().callCount("DXLSetExporterProperty"), 1u);
    EXPECT_TRUE(capturedLog().empty());
    HyLNUtilities::DeleteDXLExporter(exporter);
    unsigned int none = 0;
    HyLNUtilities::DeleteDXLExporter(none);
    EXPECT_EQ(sim().callCount("DXLDeleteExporter"), 1u);

    sim().setFault("DXLCreateExporter", kFault, 1, 0);
    EXPECT_EQ(HyLNUtilities::CreateDXLExporter(exporter, properties).GetErrorCode(), kFault);
    EXPECT_TRUE(capturedLog().empty());
    sim().setFault("DXLSetExporterProperty", kFault, 1, 0);
    EXPECT_EQ(HyLNUtilities::CreateDXLExporter(exporter, properties).GetErrorCode(), kFault);
    EXPECT_EQ(sim().callCount("DXLDeleteExporter"), 2u);
    sim().setFault("DXLCreateExporter", 0, 0, HYSIM_FAULT_THROW);
    HyLNUtilities::CreateDXLExporter(exporter, properties);
    expectUtilitiesLine(0, "CreateDXLExporter", 0, "Caught exception in createDXLExporter\n");
}

TEST_F(Dxl, ExportCallbackGrowsTheBufferByHalfBeforeItIsFull)
{
    MemoryExport out(100);
    out.write(std::string(100, 'a'));
    EXPECT_EQ(out.capacity, 150u);
    EXPECT_EQ(out.record.total, 100u);
    EXPECT_EQ(out.record.position, 100u);
    out.write(std::string(49, 'b'));
    EXPECT_EQ(out.capacity, 150u);
    // Exactly filling the rest still grows: one byte always stays spare.
    out.write("c");
    EXPECT_EQ(out.capacity, 225u);
    EXPECT_EQ(out.text(), std::string(100, 'a') + std::string(49, 'b') + "c");
    // A chunk larger than half the total grows more than once.
    out.write(std::string(1000, 'd'));
    EXPECT_EQ(out.capacity, 1725u);
    EXPECT_EQ(out.record.position, 1150u);
    EXPECT_TRUE(capturedLog().empty());

    MemoryExport empty(0);
    empty.write("");
    EXPECT_EQ(empty.capacity, 0u); // 0 x 1.5 stays 0
    MemoryExport full(10);
    full.record.total = 10;
    full.record.position = 10;
    full.write("");
    EXPECT_EQ(full.capacity, 15u);
}

TEST_F(Dxl, ExportCallbackStopsAfterAFailedGrowth)
{
    MemoryExport out(16);
    out.write("0123456789");
    // The growth to 1.5 x 200 MB cannot be had while the address space is capped.
    out.record.total = 200000000;
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &saved), 0);
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    struct rlimit capped = saved;
    capped.rlim_cur = static_cast<rlim_t>(pages) * 4096 + (64u << 20);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &capped), 0);
    out.write("abcdefghij");
    ASSERT_EQ(setrlimit(RLIMIT_AS, &saved), 0);
    EXPECT_FALSE(out.record.ok);
    EXPECT_EQ(out.record.position, 20u);
    EXPECT_EQ(out.record.total, 200000010u);
    EXPECT_EQ(out.capacity, 16u);
    expectUtilitiesLine(0, "DXLExportStreamFunc", -1, "failed to allocate  300000015 memory");
    expectUtilitiesLine(1, "DXLExportStreamFunc", -1, "Insufficient memory");
    out.write("more");
    EXPECT_EQ(out.record.position, 20u);
    EXPECT_EQ(out.record.total, 200000010u);
    EXPECT_EQ(capturedLog().size(), 2u);
    // position now counts past the buffer's end: read only what was stored.
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out.buffer), 10), "0123456789");
}

TEST_F(Dxl, ExportCallbackInFileMode)
{
    FILE* file = tmpfile();
    ASSERT_NE(file, nullptr);
    NoteExportRecord record{file, nullptr, 0, nullptr, 0, true, true};
    HyLNUtilities::DXLExportStreamFunc(reinterpret_cast<const unsigned char*>("<document/>"), 11, &record);
    HyLNUtilities::DXLExportStreamFunc(reinterpret_cast<const unsigned char*>("\n"), 1, &record);
    EXPECT_EQ(record.total, 12u);
    EXPECT_EQ(record.position, 12u);
    rewind(file);
    char text[32] = {};
    EXPECT_EQ(fread(text, 1, sizeof text, file), 12u);
    EXPECT_STREQ(text, "<document/>\n");
    fclose(file);
    // Without a file only the counts move.
    NoteExportRecord counting{nullptr, nullptr, 0, nullptr, 0, true, true};
    HyLNUtilities::DXLExportStreamFunc(reinterpret_cast<const unsigned char*>("abc"), 3, &counting);
    EXPECT_EQ(counting.position, 3u);
    EXPECT_EQ(counting.total, 3u);
}

TEST_F(Dxl, ImportCallbackDeliversFromMemoryAndFromAFileOffset)
{
    const std::string text = "0123456789";
    NoteImportRecord memory{nullptr, reinterpret_cast<const unsigned char*>(text.data()), 10, 0, 0};
    unsigned char buffer[8] = {};
    EXPECT_EQ(HyLNUtilities::DXLImportStreamFunc(buffer, 4, &memory), 4u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 4), "0123");
    EXPECT_EQ(HyLNUtilities::DXLImportStreamFunc(buffer, 8, &memory), 6u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 6), "456789");
    EXPECT_EQ(memory.position, 10u);
    EXPECT_EQ(memory.remaining, 0u);
    EXPECT_EQ(HyLNUtilities::DXLImportStreamFunc(buffer, 8, &memory), 0u);

    FILE* file = tmpfile();
    ASSERT_NE(file, nullptr);
    fputs("headerNOTE-DXLtrailer", file);
    NoteImportRecord fromFile{file, nullptr, 8, 0, 6};
    EXPECT_EQ(HyLNUtilities::DXLImportStreamFunc(buffer, 5, &fromFile), 5u);
    EXPECT_EQ(HyLNUtilities::DXLImportStreamFunc(buffer + 5, 5, &fromFile), 3u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 8), "NOTE-DXL");
    fclose(file);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Dxl, FileNameOperationsCreateAndDeleteOnly)
{
    HyLNDocument document;
    HyLNError status = document.Import(std::string());
    EXPECT_EQ(status.GetErrorCode(), 0xFFFF);
    EXPECT_EQ(status.GetMessage(), "Staged file name is empty.");
    EXPECT_EQ(sim().callCount("DXLCreateImporter"), 0u);
    EXPECT_EQ(document.Import(7, std::string()).GetMessage(), "Staged file name is empty.");
    EXPECT_FALSE(document.Import(7, std::string("staged.dxl")).IsErrorSet());

    EXPECT_FALSE(document.Import(std::string("staged.dxl")).IsErrorSet());
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"unknown import prop", "unknown import prop",
                                                    "setting import prop iDocumentsImportOption",
                                                    "unknown import prop",
                                                    "setting import prop iReplicaRequiredForReplaceOrUpdate"}));
    EXPECT_EQ(sim().callCount("DXLSetImporterProperty"), 2u);
    EXPECT_EQ(sim().callCount("DXLDeleteImporter"), 1u);

    EXPECT_FALSE(document.Export(std::string("ignored.dxl")).IsErrorSet());
    EXPECT_EQ(sim().callCount("DXLSetExporterProperty"), 2u);
    EXPECT_EQ(sim().callCount("DXLDeleteExporter"), 1u);
    sim().setFault("DXLSetExporterProperty", kFault, 1, 0);
    EXPECT_EQ(document.Export(std::string("ignored.dxl")).GetErrorCode(), kFault);
    EXPECT_EQ(sim().callCount("DXLDeleteExporter"), 2u);
}

TEST_F(Dxl, NoteExportsToMemoryAndImportsIntoAnotherDatabase)
{
    createDatabase("from.nsf", "From");
    createDatabase("to.nsf", "To");
    DBHANDLE from = NULLHANDLE, to = NULLHANDLE;
    ASSERT_EQ(HY_NSFDbOpen("from.nsf", &from), NOERROR);
    ASSERT_EQ(HY_NSFDbOpen("to.nsf", &to), NOERROR);
    NOTEHANDLE created = NULLHANDLE;
    ASSERT_EQ(HY_NSFNoteCreate(from, &created), NOERROR);
    ASSERT_EQ(HY_NSFItemSetText(created, "Subject", "Quarterly <report> & notes", MAXWORD), NOERROR);
    ASSERT_EQ(HY_NSFNoteUpdate(created, 0), NOERROR);
    HyLNDocument note;
    note.SetNoteHandle(created);

    unsigned int exporter = 0;
    std::map<DXL_EXPORT_PROPERTY, void*> none;
    ASSERT_FALSE(HyLNUtilities::CreateDXLExporter(exporter, none).IsErrorSet());
    MemoryExport out(64);
    ASSERT_FALSE(note.Export(exporter, &out.record).IsErrorSet());
    std::string dxl = out.text();
    EXPECT_NE(dxl.find("<text>Quarterly &lt;report&gt; &amp; notes</text>"), std::string::npos) << dxl;
    EXPECT_GT(out.capacity, out.record.position);

    HyLNDocument target(to, 0);
    unsigned int importer = 0;
    std::map<DXL_IMPORT_PROPERTY, void*> defaults;
    ASSERT_FALSE(HyLNUtilities::CreateDXLImporter(importer, defaults).IsErrorSet());
    NoteImportRecord in{nullptr, out.buffer, out.record.position, 0, 0};
    ASSERT_FALSE(target.Import(importer, &in).IsErrorSet());
    UNID unid{};
    HY_NSFNoteGetInfo(created, _NOTE_OID, &unid);
    NOTEHANDLE imported = NULLHANDLE;
    ASSERT_EQ(HY_NSFNoteOpenByUNID(to, &unid, 0, &imported), NOERROR);
    char subject[64] = {};
    HY_NSFItemGetText(imported, "Subject", subject, sizeof subject);
    EXPECT_STREQ(subject, "Quarterly <report> & notes");
    HY_NSFNoteClose(imported);

    // A damaged stream: the runtime's status, and the fixed line on standard output.
    const char broken[] = "<document xmlns='http://www.lotus.com/dxl'><item name='x'>";
    NoteImportRecord bad{nullptr, reinterpret_cast<const unsigned char*>(broken), sizeof broken - 1, 0, 0};
    HyLNError status;
    Output output = captureOutput([&] { status = target.Import(importer, &bad); });
    EXPECT_EQ(status.GetErrorCode(), kSimImportFailed);
    EXPECT_EQ(output.out, "No DXLImportWasErrorLogged");

    // Missing handles.
    HyLNDocument closed;
    EXPECT_EQ(closed.Export(exporter, &out.record).GetErrorCode(), 5051);
    EXPECT_EQ(closed.Import(importer, &in).GetErrorCode(), 5051);
    sim().setFault("DXLExportNote", 0, 0, HYSIM_FAULT_THROW);
    EXPECT_EQ(note.Export(exporter, &out.record).GetMessage(), "Caught exception in exporting note\n");
    sim().setFault("DXLImport", 0, 0, HYSIM_FAULT_THROW);
    EXPECT_EQ(target.Import(importer, &in).GetMessage(), "Caught exception in Importing note\n");
    HyLNUtilities::DeleteDXLExporter(exporter);
    HyLNUtilities::DeleteDXLImporter(importer);
    note.Close();
    HY_NSFDbClose(from);
    HY_NSFDbClose(to);
}
