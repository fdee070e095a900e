// DXL through the simulated runtime's C API: export a note into a string, import a
// string, and read a note's items back in a form two databases can compare.
#ifndef HYSIM_DXL_SUPPORT_H
#define HYSIM_DXL_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "HySimControl.h"
#include "sim_core.h"

namespace dxl_test {

inline void appendChunk(const BYTE* data, DWORD length, void* out)
{
    static_cast<std::string*>(out)->append(reinterpret_cast<const char*>(data), length);
}

struct Source {
    std::string text;
    size_t at = 0;
};

inline DWORD readChunk(BYTE* buffer, DWORD length, void* context)
{
    Source* source = static_cast<Source*>(context);
    size_t count = std::min<size_t>(length, source->text.size() - source->at);
    std::memcpy(buffer, source->text.data() + source->at, count);
    source->at += count;
    return static_cast<DWORD>(count);
}

inline STATUS exportNote(DXLEXPORTHANDLE exporter, NOTEHANDLE note, std::string& out)
{
    out.clear();
    return DXLExportNote(exporter, appendChunk, note, &out);
}

inline STATUS exportNoteId(DXLEXPORTHANDLE exporter, DBHANDLE db, NOTEID id, std::string& out)
{
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(db, id, 0, &note);
    if (status == NOERROR)
        status = exportNote(exporter, note, out);
    NSFNoteClose(note);
    return status;
}

inline STATUS importText(DXLIMPORTHANDLE importer, DBHANDLE db, const std::string& text)
{
    Source source{text, 0};
    return DXLImport(importer, readChunk, db, &source);
}

inline STATUS setImportOption(DXLIMPORTHANDLE importer, int property, int value)
{
    return DXLSetImporterProperty(importer, property, &value);
}

inline std::string resultLog(unsigned int handle)
{
    const char* log = HySimDxlResultLog(handle);
    return log != nullptr ? log : "(unknown handle)";
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline STATUS collectNoteIds(void* parameter, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    static_cast<std::vector<NOTEID>*>(parameter)->push_back(copy.ID.NoteID);
    return NOERROR;
}

inline std::vector<NOTEID> noteIds(DBHANDLE db, WORD classMask = NOTE_CLASS_ALL)
{
    std::vector<NOTEID> ids;
    EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, classMask, nullptr, collectNoteIds, &ids, nullptr), NOERROR);
    return ids;
}

// One item as two databases can compare it: the object ID of an attachment is left
// out and the attachment's bytes are added.
struct ItemDump {
    std::string name;
    WORD flags = 0;
    WORD type = 0;
    std::string value;
    std::string objectBytes;
    bool operator==(const ItemDump& other) const
    {
        return name == other.name && flags == other.flags && type == other.type && value == other.value &&
               objectBytes == other.objectBytes;
    }
};

inline std::ostream& operator<<(std::ostream& out, const ItemDump& item)
{
    return out << item.name << " flags " << item.flags << " type " << item.type << " (" << item.value.size() << "+"
               << item.objectBytes.size() << " bytes)";
}

struct ScanContext {
    DBHANDLE db;
    std::vector<ItemDump>* items;
};

inline STATUS dumpItem(WORD, WORD flags, char* name, WORD nameLength, void* value, DWORD valueLength, void* parameter)
{
    ScanContext* context = static_cast<ScanContext*>(parameter);
    ItemDump item;
    item.name.assign(name, nameLength);
    item.flags = flags;
    item.value.assign(static_cast<char*>(value), valueLength);
    if (valueLength >= 2)
        std::memcpy(&item.type, value, sizeof item.type);
    if (item.type == TYPE_OBJECT && valueLength >= 8) {
        DWORD rrv = 0;
        std::memcpy(&rrv, item.value.data() + 4, sizeof rrv);
        item.value.replace(4, sizeof rrv, sizeof rrv, '\0');
        DWORD size = 0;
        if (NSFDbGetObjectSize(context->db, rrv, 0, &size, nullptr, nullptr) == NOERROR && size > 0) {
            DHANDLE bytes = NULLHANDLE;
            EXPECT_EQ(NSFDbReadObject(context->db, rrv, 0, size, &bytes), NOERROR);
            item.objectBytes.assign(static_cast<char*>(OSLockObject(bytes)), size);
            OSUnlockObject(bytes);
            OSMemFree(bytes);
        }
    }
    context->items->push_back(item);
    return NOERROR;
}

inline std::vector<ItemDump> itemsOf(DBHANDLE db, NOTEID id)
{
    std::vector<ItemDump> items;
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
    ScanContext context{db, &items};
    EXPECT_EQ(NSFItemScan(note, dumpItem, &context), NOERROR);
    NSFNoteClose(note);
    return items;
}

inline std::vector<ItemDump> itemsByUnid(DBHANDLE db, UNID unid)
{
    NOTEID id = 0;
    EXPECT_EQ(NSFDbGetNoteInfoByUNID(db, &unid, &id, nullptr, nullptr, nullptr), NOERROR);
    return id != 0 ? itemsOf(db, id) : std::vector<ItemDump>();
}

inline UNID unidOf(DBHANDLE db, NOTEID id)
{
    OID oid{};
    EXPECT_EQ(NSFDbGetNoteInfo(db, id, &oid, nullptr, nullptr), NOERROR);
    UNID unid;
    std::memcpy(&unid, &oid, sizeof unid);
    return unid;
}

} // namespace dxl_test

#endif
