// OSLoadString: the runtime's message table. Callers pass the error number
// (STATUS & ERR_MASK); the two flag bits of a STATUS are ignored here too.
#include <algorithm>
#include <cstring>
#include <string>

#include "sim_core.h"

namespace {

struct Message {
    STATUS code;
    const char* text;
};

// Sorted by code. Texts of the published codes are the runtime's own; those marked
// "our text" have no published wording and were written for this runtime.
constexpr Message kMessages[] = {
    {0x0001, "Unable to load the Notes runtime library"}, // our text
    {0x0103, "File does not exist"},
    {0x0104, "File already exists"},
    {0x0107, "Insufficient memory."},
    {0x01FD, "Invalid file or directory path"}, // our text
    {0x0201, "File is not a database"},
    {0x0205, "The document was modified by someone else since it was opened"}, // our text
    {0x0210, "No more matching entries"}, // our text
    {0x021C, "This function is inappropriate for file system directories."},
    {0x021D, "This function is only appropriate for directories."},
    {0x0220, "Function is not supported for remote databases"},
    {0x0222, "Note item not found"},
    {0x0225, "Document has been deleted"},
    {0x0227, "Invalid or nonexistent document"},
    {0x022D, "The database information buffer is too large"}, // our text
    {0x022F, "Invalid name"}, // our text
    {0x0231, "The summary data of the document is too large"}, // our text
    {0x0232, "The database class is not valid for this operation"}, // our text
    {0x023C, "No documents have been modified since specified time."},
    {0x0242, "Special database object cannot be located"},
    {0x0246, "You are not authorized to perform that operation"},
    {0x024F, "The object is shorter than the requested range"}, // our text
    {0x0273, "The document contains an item of an unknown type"}, // our text
    {0x0306, "Unsupported flags were passed"}, // our text
    {0x0309, "No such view in the directory"}, // our text
    {0x030A, "The directory database cannot be found"}, // our text
    {0x030B, "(Collection does not exist, and was not created)"},
    {0x030D, "You are not authorized to access the view"},
    {0x030F, "The named directory cannot be found"}, // our text
    {0x0310, "Specified item is not present"},
    {0x0311, "(No more members in list)"},
    {0x0312, "The item has an unsupported data type"}, // our text
    {0x0404, "Entry not found in index"},
    {0x040A, "Invalid International Format Specifier"},
    {0x040B, "Invalid Time/Date Format Specifier"},
    {0x040C, "Unable to interpret Time or Date"},
    {0x040D, "Invalid Time or Date Encountered"},
    {0x0501, "The formula could not be compiled"}, // our text
    {0x092E, "You are not authorized to access the server"}, // our text
    {0x0EA1, "Transaction log not archived."},
    {0x0EAE, "Archiving of transaction logs already in progress."},
    {0x1104, "Recipient user name %a not unique.  Several matches found in Domino Directory."},
    {0x1105, "User %a not listed in Domino Directory"},
    {0x1384, "The database handle is NULL"},
    {0x13BB, "The note handle is NULL."},
    {0x13DE, "No transaction log files are waiting to be archived."},
    {0x13EA, "The database is in use"}, // our text
    {0x13FF, "Transactional Logging must be enabled for this function."},
    // The simulated runtime's own failures.
    {sim::STS_INVALID_HANDLE, "The simulated runtime does not know this handle (unknown, freed or of another kind)."},
    {sim::STS_STORAGE, "The simulated runtime's storage failed."},
    {sim::STS_NOT_INITIALIZED, "The simulated runtime has not been initialized."},
    {sim::STS_INI_MISSING, "The simulated runtime could not read notes.ini or its Directory setting."},
    {sim::STS_BAD_ARGUMENT, "The simulated runtime received a null or malformed argument."},
    {sim::STS_HANDLE_LOCKED, "The memory handle is still locked."},
    {sim::STS_SERVER_NOT_RESPONDING, "The simulated runtime reaches only the local server."},
    {sim::STS_PATH_OUTSIDE, "The path leaves the data directory."},
    {sim::STS_UNSUPPORTED, "The simulated runtime does not support this mode or option."},
    {sim::STS_FORMULA_EVALUATION, "The formula met a value of the wrong type for its operator or @function, or divided by zero."},
    {sim::STS_FORMULA_RESULT_TOO_LARGE, "The formula result is larger than 65535 bytes."},
    {sim::STS_DXL_EXPORT_FAILED, "DXL exporter operation failed"},
    {sim::STS_DXL_IMPORT_FAILED, "DXL importer operation failed"},
    {sim::STS_FAULT_LIST, "The simulated runtime's fault list is malformed."}, // named in findText when known
    {sim::STS_NOT_A_FOLDER, "The note is not a folder."},
};

constexpr bool sortedByCode()
{
    for (size_t i = 1; i < sizeof(kMessages) / sizeof(kMessages[0]); ++i)
        if (kMessages[i - 1].code >= kMessages[i].code)
            return false;
    return true;
}
static_assert(sortedByCode(), "the message table is searched by binary search");

bool findText(STATUS code, std::string& text)
{
    if (code >= sim::STS_NOT_PROVIDED_BASE && code < sim::STS_NOT_PROVIDED_BASE + sim::kEntryCount) {
        text = std::string("The simulated runtime does not provide ") +
               sim::kEntryNames[code - sim::STS_NOT_PROVIDED_BASE] + ".";
        return true;
    }
    if (code == sim::STS_FAULT_LIST && !sim::faultListProblem().empty()) {
        text = "The simulated runtime will not start: " + sim::faultListProblem() + ".";
        return true;
    }
    auto it = std::lower_bound(std::begin(kMessages), std::end(kMessages), code,
                               [](const Message& m, STATUS c) { return m.code < c; });
    if (it == std::end(kMessages) || it->code != code)
        return false;
    text = it->text;
    return true;
}

} // namespace

WORD impl::OSLoadString(HMODULE hModule, STATUS StringCode, char* retBuffer, WORD BufferLength)
{
    (void)hModule; // one table serves every module on this platform
    std::string text;
    if (!findText(ERR(StringCode), text))
        text.clear();
    size_t count = std::min<size_t>(text.size(), BufferLength);
    if (retBuffer != nullptr) {
        std::memcpy(retBuffer, text.data(), count);
        retBuffer[count] = '\0';
    }
    return static_cast<WORD>(retBuffer != nullptr ? count : 0);
}
