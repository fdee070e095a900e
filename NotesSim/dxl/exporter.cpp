// DXL exporter: one note (or the database's ACL) as a DXL document, written with
// libxml2 and handed to the caller's writer in chunks.
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>

#include "HySimControl.h"
#include "dxl.h"
#include "dxl_items.h"
#include "sim_core.h"
#include "storage.h"
#include "translate.h"

namespace sim {
namespace {

constexpr size_t kChunkSize = 4000;

// DXL_EXPORT_PROPERTY numbers.
enum : int {
    kExportResultLog = 1,
    kDefaultDoctypeSystem = 2,
    kDoctypeSystem = 3,
    kBannerComments = 4,
    kCharset = 5,
    kRichtextOption = 6,
    kResultLogComment = 7,
    kValidationStyle = 8,
    kForceNoteFormat = 30,
    kExitOnFirstFatalError = 31,
    kOutputRootAttrs = 32,
    kOutputXmlDecl = 33,
    kOutputDoctype = 34,
};

struct DocFree {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocFree>;

// A conversion the exporter cannot make; the text goes to the result log.
struct ExportFailure {
    std::string text;
};

const xmlChar* X(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

std::string utf8Of(const std::string& lmbcs)
{
    std::string utf8;
    if (!lmbcsToUtf8(lmbcs, utf8))
        throw ExportFailure{"text that is not valid LMBCS"};
    return utf8;
}

class NoteWriter {
public:
    NoteWriter(const DxlExporter& exporter, Storage& storage) : exporter_(exporter), storage_(storage) {}

    DocPtr write(const NoteRecord& record, const std::vector<ItemRecord>& items)
    {
        DocPtr doc(xmlNewDoc(X("1.0")));
        bool asDocument = (record.noteClass & ~NOTE_CLASS_DEFAULT) == NOTE_CLASS_DOCUMENT && !exporter_.forceNoteFormat;
        const char* rootName = asDocument ? "document" : "note";
        if (exporter_.outputDoctype)
            xmlCreateIntSubset(doc.get(), X(rootName), nullptr, X(exporter_.doctypeSystem.c_str()));
        if (!exporter_.bannerComments.empty())
            xmlAddChild(reinterpret_cast<xmlNode*>(doc.get()), xmlNewDocComment(doc.get(), X(exporter_.bannerComments.c_str())));
        xmlNode* root = xmlNewDocNode(doc.get(), nullptr, X(rootName), nullptr);
        xmlDocSetRootElement(doc.get(), root);
        ns_ = xmlNewNs(root, X(kDxlNamespace), nullptr);
        xmlSetNs(root, ns_);
        if (exporter_.outputRootAttrs)
            rootAttributes(root);
        if (!asDocument) {
            const char* className = noteClassName(record.noteClass);
            if (className == nullptr)
                throw ExportFailure{"a note of class " + std::to_string(record.noteClass) + " has no DXL form"};
            xmlNewProp(root, X("class"), X(className));
            if (record.noteClass & NOTE_CLASS_DEFAULT)
                xmlNewProp(root, X("default"), X("true"));
        } else {
            for (const ItemRecord& item : items)
                if (sameItemName(item.name, "Form", 4) && readAt<WORD>(item.value, 0) == TYPE_TEXT)
                    xmlNewProp(root, X("form"), X(utf8Of(std::string(item.value.begin() + 2, item.value.end())).c_str()));
        }
        noteInfo(root, record);
        const ItemRecord* updatedBy = special(items, kUpdatedByItem, kUpdatedByFlags, TYPE_TEXT_LIST);
        const ItemRecord* revisions = special(items, kRevisionsItem, kRevisionsFlags, TYPE_TIME_RANGE);
        if (revisions != nullptr && !allRepresentable(revisions->value))
            revisions = nullptr; // kept as an ordinary item, in raw form
        if (updatedBy != nullptr)
            namesElement(root, "updatedby", *updatedBy);
        if (revisions != nullptr)
            revisionsElement(root, *revisions);
        for (const ItemRecord& item : items)
            if (&item != updatedBy && &item != revisions)
                itemElement(root, item);
        return doc;
    }

private:
    xmlNode* child(xmlNode* parent, const char* name, const std::string& text = std::string())
    {
        return xmlNewTextChild(parent, ns_, X(name), text.empty() ? nullptr : X(text.c_str()));
    }

    void rootAttributes(xmlNode* root)
    {
        DatabaseProperties properties;
        if (storage_.readProperties(properties) != NOERROR)
            throw ExportFailure{"the database properties cannot be read"};
        char replica[24];
        std::snprintf(replica, sizeof replica, "%08X%08X", properties.replica.ID.Innards[1],
                      properties.replica.ID.Innards[0]);
        xmlNewProp(root, X("version"), X("9.0"));
        xmlNewProp(root, X("maintenanceversion"), X("1.0"));
        xmlNewProp(root, X("replicaid"), X(replica));
    }

    void datetime(xmlNode* parent, const TIMEDATE& value)
    {
        bool dst = false;
        std::string text = datetimeText(value, dst);
        xmlNode* node = child(parent, "datetime", text);
        if (dst)
            xmlNewProp(node, X("dst"), X("true"));
    }

    void noteInfo(xmlNode* root, const NoteRecord& record)
    {
        xmlNode* info = child(root, "noteinfo");
        char id[16];
        std::snprintf(id, sizeof id, "%x", record.id);
        UNID unid;
        std::memcpy(&unid, &record.oid, sizeof unid);
        xmlNewProp(info, X("noteid"), X(id));
        xmlNewProp(info, X("unid"), X(unidText(unid).c_str()));
        xmlNewProp(info, X("sequence"), X(std::to_string(record.oid.Sequence).c_str()));
        const std::pair<const char*, TIMEDATE> times[] = {{"created", record.oid.Note},
                                                           {"modified", record.modified},
                                                           {"revised", record.oid.SequenceTime},
                                                           {"lastaccessed", record.accessed},
                                                           {"addedtofile", record.addedToFile}};
        for (const auto& time : times)
            if ((time.second.Innards[0] != 0 || time.second.Innards[1] != 0) && datetimeRepresentable(time.second))
                datetime(child(info, time.first), time.second);
    }

    static const ItemRecord* special(const std::vector<ItemRecord>& items, const char* name, WORD flags, WORD type)
    {
        for (const ItemRecord& item : items)
            if (item.name == name && item.flags == flags && readAt<WORD>(item.value, 0) == type)
                return &item;
        return nullptr;
    }

    static std::vector<std::string> textList(const std::vector<char>& value)
    {
        WORD entries = readAt<WORD>(value, 2);
        size_t at = 4 + 2 * static_cast<size_t>(entries);
        if (value.size() < at)
            throw ExportFailure{"a text list shorter than its entry table"};
        std::vector<std::string> texts;
        for (WORD i = 0; i < entries; ++i) {
            WORD length = readAt<WORD>(value, 4 + 2 * i);
            if (at + length > value.size())
                throw ExportFailure{"a text list entry beyond the value"};
            texts.emplace_back(value.data() + at, length);
            at += length;
        }
        if (at != value.size())
            throw ExportFailure{"bytes after the last text list entry"};
        return texts;
    }

    static bool allRepresentable(const std::vector<char>& value)
    {
        RANGE range = readAt<RANGE>(value, 2);
        if (range.RangeEntries != 0 || value.size() != 6 + range.ListEntries * sizeof(TIMEDATE))
            return false;
        for (size_t at = 6; at < value.size(); at += sizeof(TIMEDATE))
            if (!datetimeRepresentable(readAt<TIMEDATE>(value, at)))
                return false;
        return true;
    }

    void namesElement(xmlNode* root, const char* element, const ItemRecord& item)
    {
        xmlNode* node = child(root, element);
        for (const std::string& name : textList(item.value))
            child(node, "name", utf8Of(name));
    }

    void revisionsElement(xmlNode* root, const ItemRecord& item)
    {
        xmlNode* node = child(root, "revisions");
        RANGE range = readAt<RANGE>(item.value, 2);
        if (range.RangeEntries != 0 || item.value.size() != 6 + range.ListEntries * sizeof(TIMEDATE))
            throw ExportFailure{"a $Revisions value of an unexpected form"};

        for (WORD i = 0; i < range.ListEntries; ++i)
            datetime(node, readAt<TIMEDATE>(item.value, 6 + i * sizeof(TIMEDATE)));
    }

    // Text content: characters XML cannot carry become <nonxmlchar>.
    void textContent(xmlNode* node, const std::string& utf8)
    {
        std::string run;
        for (char c : utf8) {
            unsigned char byte = static_cast<unsigned char>(c);
            if (byte < 0x20 && byte != '\t' && byte != '\n') {
                if (!run.empty())
                    xmlNodeAddContentLen(node, X(run.c_str()), static_cast<int>(run.size()));
                run.clear();
                char hex[8];
                std::snprintf(hex, sizeof hex, "%x", byte);
                xmlNewProp(xmlNewChild(node, ns_, X("nonxmlchar"), nullptr), X("value"), X(hex));
            } else {
                run += c;
            }
        }
        if (!run.empty())
            xmlNodeAddContentLen(node, X(run.c_str()), static_cast<int>(run.size()));
    }

    void text(xmlNode* parent, const std::string& lmbcs)
    {
        textContent(xmlNewChild(parent, ns_, X("text"), nullptr), utf8Of(lmbcs));
    }

    static bool numberText(double value, std::string& out)
    {
        if (!std::isfinite(value))
            return false;
        char buffer[64];
        auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
        out.assign(buffer, result.ptr);
        return true;
    }

    void raw(xmlNode* item, WORD type, const std::vector<char>& value)
    {
        char hex[8];
        std::snprintf(hex, sizeof hex, "%x", type);
        xmlNode* node = child(item, "rawitemdata", base64Encode(value.data() + 2, value.size() - 2));
        xmlNewProp(node, X("type"), X(hex));
    }

    bool numbers(xmlNode* item, const std::vector<char>& value)
    {
        RANGE range = readAt<RANGE>(value, 2);
        if (range.RangeEntries != 0 || value.size() != 6 + range.ListEntries * sizeof(double))
            return false;
        std::vector<std::string> texts;
        for (WORD i = 0; i < range.ListEntries; ++i) {
            std::string text;
            if (!numberText(readAt<double>(value, 6 + i * sizeof(double)), text))
                return false;
            texts.push_back(text);
        }
        xmlNode* list = child(item, "numberlist");
        for (const std::string& text : texts)
            child(list, "number", text);
        return true;
    }

    bool times(xmlNode* item, const std::vector<char>& value)
    {
        RANGE range = readAt<RANGE>(value, 2);
        if (value.size() != 6 + (range.ListEntries + 2 * range.RangeEntries) * sizeof(TIMEDATE))
            return false;
        for (size_t at = 6; at < value.size(); at += sizeof(TIMEDATE))
            if (!datetimeRepresentable(readAt<TIMEDATE>(value, at)))
                return false;
        xmlNode* list = child(item, "datetimelist");
        size_t at = 6;
        for (WORD i = 0; i < range.ListEntries; ++i, at += sizeof(TIMEDATE))
            datetime(list, readAt<TIMEDATE>(value, at));
        for (WORD i = 0; i < range.RangeEntries; ++i, at += 2 * sizeof(TIMEDATE)) {
            xmlNode* pair = child(list, "datetimepair");
            datetime(pair, readAt<TIMEDATE>(value, at));
            datetime(pair, readAt<TIMEDATE>(value, at + sizeof(TIMEDATE)));
        }
        return true;
    }

    bool richtext(xmlNode* item, const std::vector<char>& value)
    {
        if (exporter_.richtextAsItemdata || readAt<WORD>(value, 2) != kMarkupSignature || value.size() < 8)
            return false;
        DWORD length = readAt<DWORD>(value, 4);
        if (value.size() != 8 + static_cast<size_t>(length))
            return false;
        xmlNode* node = child(item, "richtext");
        xmlNode* list = nullptr;
        if (length != 0 &&
            xmlParseInNodeContext(node, value.data() + 8, static_cast<int>(length), XML_PARSE_NONET, &list) != XML_ERR_OK) {
            xmlFreeNodeList(list);
            xmlUnlinkNode(node);
            xmlFreeNode(node);
            return false;
        }
        if (list != nullptr)
            xmlAddChildList(node, list);
        return true;
    }

    bool file(xmlNode* item, const std::vector<char>& value)
    {
        const size_t at = 2;
        if (value.size() < at + kFileNameAt || readAt<WORD>(value, at) != OBJECT_FILE)
            return false;
        WORD nameLength = readAt<WORD>(value, at + kFileNameLengthAt);
        if (value.size() != at + kFileNameAt + nameLength)
            return false;
        std::vector<char> bytes;
        DWORD rrv = readAt<DWORD>(value, at + kFileRrvAt);
        STATUS status = storage_.readObject(rrv, 0, MAXDWORD, bytes);
        if (status != NOERROR)
            throw ExportFailure{"the attachment object " + std::to_string(rrv) + " cannot be read"};
        WORD host = readAt<WORD>(value, at + kFileHostAt);
        WORD compression = readAt<WORD>(value, at + kFileCompressionAt);
        WORD attributes = readAt<WORD>(value, at + kFileAttributesAt);
        WORD flags = readAt<WORD>(value, at + kFileFlagsAt);
        if (!datetimeRepresentable(readAt<TIMEDATE>(value, at + kFileCreatedAt)) ||
            !datetimeRepresentable(readAt<TIMEDATE>(value, at + kFileModifiedAt)))
            return false;
        const char* hostName = nullptr;
        for (const HostTypeName& entry : kHostTypes)
            if (entry.host == host)
                hostName = entry.name;
        const char* compressionNames[] = {"none", "huffman", "lz1"};
        if (hostName == nullptr || compression > 2)
            return false;
        xmlNode* object = child(item, "object");
        xmlNode* node = child(object, "file");
        xmlNewProp(node, X("hosttype"), X(hostName));
        xmlNewProp(node, X("compression"), X(compressionNames[compression]));
        std::string flagText;
        if (flags & 0x0001)
            flagText += "sign";
        if (flags & 0x0002)
            flagText += std::string(flagText.empty() ? "" : " ") + "storedindoc";
        if (flags & 0x0004)
            flagText += std::string(flagText.empty() ? "" : " ") + "mime";
        if (!flagText.empty())
            xmlNewProp(node, X("flags"), X(flagText.c_str()));
        std::string attributeText;
        if (attributes & 0x0001)
            attributeText += "readonly";
        if (attributes & 0x0002)
            attributeText += std::string(attributeText.empty() ? "" : " ") + "private";
        if (!attributeText.empty())
            xmlNewProp(node, X("attribute"), X(attributeText.c_str()));
        xmlNewProp(node, X("encoding"), X("none"));
        std::string name(value.data() + at + kFileNameAt, nameLength);
        xmlNewProp(node, X("name"), X(utf8Of(name).c_str()));
        xmlNewProp(node, X("size"), X(std::to_string(readAt<DWORD>(value, at + kFileSizeAt)).c_str()));
        datetime(child(node, "created"), readAt<TIMEDATE>(value, at + kFileCreatedAt));
        datetime(child(node, "modified"), readAt<TIMEDATE>(value, at + kFileModifiedAt));
        child(node, "filedata", base64Encode(bytes.data(), bytes.size()));
        return true;
    }

    void itemElement(xmlNode* root, const ItemRecord& record)
    {
        if (record.value.size() < 2)
            throw ExportFailure{"an item without a type word"};
        WORD type = readAt<WORD>(record.value, 0);
        xmlNode* item = child(root, "item");
        xmlNewProp(item, X("name"), X(utf8Of(record.name).c_str()));
        bool summary = (record.flags & ITEM_SUMMARY) != 0;
        if (summary != summaryByDefault(type))
            xmlNewProp(item, X("summary"), X(summary ? "true" : "false"));
        for (const FlagAttribute& attribute : kFlagAttributes)
            if (record.flags & attribute.flag)
                xmlNewProp(item, X(attribute.name), X("true"));
        const std::vector<char>& value = record.value;
        size_t size = value.size() - 2;
        std::string number;
        switch (type) {
        case TYPE_TEXT:
            text(item, std::string(value.begin() + 2, value.end()));
            return;
        case TYPE_TEXT_LIST: {
            xmlNode* list = child(item, "textlist");
            for (const std::string& entry : textList(value))
                text(list, entry);
            return;
        }
        case TYPE_NUMBER:
            if (size == sizeof(double) && numberText(readAt<double>(value, 2), number)) {
                child(item, "number", number);
                return;
            }
            break;
        case TYPE_NUMBER_RANGE:
            if (numbers(item, value))
                return;
            break;
        case TYPE_TIME:
            if (size == sizeof(TIMEDATE) && datetimeRepresentable(readAt<TIMEDATE>(value, 2))) {
                datetime(item, readAt<TIMEDATE>(value, 2));
                return;
            }
            break;
        case TYPE_TIME_RANGE:
            if (times(item, value))
                return;
            break;
        case TYPE_COMPOSITE:
            if (richtext(item, value))
                return;
            break;
        case TYPE_OBJECT:
            if (file(item, value))
                return;
            break;
        default:
            break;
        }
        raw(item, type, value);
    }

    const DxlExporter& exporter_;
    Storage& storage_;
    xmlNs* ns_ = nullptr;
};

std::string serialize(const DxlExporter& exporter, xmlDoc* doc)
{
    std::string out;
    if (exporter.outputXmlDecl)
        out = "<?xml version='1.0' encoding='utf-8'?>\n";
    xmlBuffer* buffer = xmlBufferCreate();
    xmlSaveCtxt* save = xmlSaveToBuffer(buffer, "UTF-8", XML_SAVE_NO_DECL);
    long written = save != nullptr ? xmlSaveDoc(save, doc) : -1;
    if (save != nullptr)
        xmlSaveClose(save);
    if (written >= 0)
        out.append(reinterpret_cast<const char*>(xmlBufferContent(buffer)), static_cast<size_t>(xmlBufferLength(buffer)));
    xmlBufferFree(buffer);
    if (written < 0)
        throw ExportFailure{"the document could not be serialised"};
    return out;
}

void deliver(const std::string& text, XML_WRITE_FUNCTION write, void* action)
{
    for (size_t at = 0; at < text.size(); at += kChunkSize) {
        size_t count = std::min(kChunkSize, text.size() - at);
        write(reinterpret_cast<const BYTE*>(text.data() + at), static_cast<DWORD>(count), action);
    }
}

std::string exporterLog(const std::string& comment, const std::string& error)
{
    DocPtr doc(xmlNewDoc(X("1.0")));
    xmlNode* root = xmlNewDocNode(doc.get(), nullptr, X("DXLExporterLog"), nullptr);
    xmlDocSetRootElement(doc.get(), root);
    if (!comment.empty())
        xmlNewTextChild(root, nullptr, X("comment"), X(comment.c_str()));
    xmlNewTextChild(root, nullptr, X("error"), X(error.c_str()));
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(doc.get(), &text, &size, "UTF-8");
    std::string log(reinterpret_cast<const char*>(text), static_cast<size_t>(size));
    xmlFree(text);
    return log;
}

// The ACL image the storage keeps (see defaultAclImage) as an <acl> document.
std::string aclDocument(const DxlExporter& exporter, const std::vector<char>& image)
{
    const DWORD magic = 0x4C434148;
    if (image.size() < 8 || readAt<DWORD>(image, 0) != magic || readAt<WORD>(image, 4) != 1)
        throw ExportFailure{"the ACL image is not of a known form"};
    static const char* const levels[] = {"noaccess", "depositor", "reader", "author", "editor", "designer", "manager"};
    DocPtr doc(xmlNewDoc(X("1.0")));
    if (exporter.outputDoctype)
        xmlCreateIntSubset(doc.get(), X("acl"), nullptr, X(exporter.doctypeSystem.c_str()));
    xmlNode* root = xmlNewDocNode(doc.get(), nullptr, X("acl"), nullptr);
    xmlDocSetRootElement(doc.get(), root);
    xmlSetNs(root, xmlNewNs(root, X(kDxlNamespace), nullptr));
    WORD count = readAt<WORD>(image, 6);
    size_t at = 8;
    for (WORD i = 0; i < count; ++i) {
        WORD level = readAt<WORD>(image, at);
        WORD length = readAt<WORD>(image, at + 4);
        if (at + 6 + length > image.size() || level >= sizeof levels / sizeof levels[0])
            throw ExportFailure{"ACL entry " + std::to_string(i) + " is damaged"};
        xmlNode* entry = xmlNewChild(root, root->ns, X("aclentry"), nullptr);
        xmlNewProp(entry, X("name"), X(utf8Of(std::string(image.data() + at + 6, length)).c_str()));
        if (std::string(image.data() + at + 6, length) == "-Default-")
            xmlNewProp(entry, X("default"), X("true"));
        xmlNewProp(entry, X("level"), X(levels[level]));
        at += 6 + length;
    }
    return serialize(exporter, doc.get());
}

std::shared_ptr<DxlExporter> lookupExporter(DXLEXPORTHANDLE handle)
{
    return findAs<DxlExporter>(handle, HandleKind::DxlExporter);
}

bool booleanOf(const void* value)
{
    int flag = 0;
    std::memcpy(&flag, value, sizeof flag);
    return flag != 0;
}

} // namespace
} // namespace sim

STATUS impl::DXLCreateExporter(DXLEXPORTHANDLE* prethDXLExport)
{
    if (prethDXLExport == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *prethDXLExport = sim::registerHandle(std::make_shared<sim::DxlExporter>());
    return NOERROR;
}

void impl::DXLDeleteExporter(DXLEXPORTHANDLE hDXLExport)
{
    sim::releaseHandle(hDXLExport, sim::HandleKind::DxlExporter);
}

STATUS impl::DXLSetExporterProperty(DXLEXPORTHANDLE hDXLExport, DXL_EXPORT_PROPERTY prop, void* propValue)
{
    auto exporter = sim::lookupExporter(hDXLExport);
    if (!exporter)
        return sim::STS_INVALID_HANDLE;
    if (propValue == nullptr)
        return sim::STS_BAD_ARGUMENT;
    const char* text = static_cast<const char*>(propValue);
    int number = 0;
    std::memcpy(&number, propValue, sizeof number);
    switch (prop) {
    case sim::kDoctypeSystem:
        exporter->doctypeSystem = text;
        return NOERROR;
    case sim::kBannerComments:
        exporter->bannerComments = text;
        return NOERROR;
    case sim::kResultLogComment:
        exporter->resultLogComment = text;
        return NOERROR;
    case sim::kCharset:
        // UTF-16 output is not simulated.
        return number == 0 ? NOERROR : sim::STS_UNSUPPORTED;
    case sim::kRichtextOption:
        if (number != 0 && number != 1)
            return sim::STS_BAD_ARGUMENT;
        exporter->richtextAsItemdata = number == 1;
        return NOERROR;
    case sim::kValidationStyle:
        return number >= 0 && number <= 2 ? NOERROR : sim::STS_BAD_ARGUMENT;
    case sim::kForceNoteFormat:
        exporter->forceNoteFormat = sim::booleanOf(propValue);
        return NOERROR;
    case sim::kExitOnFirstFatalError:
        exporter->exitOnFirstFatalError = sim::booleanOf(propValue);
        return NOERROR;
    case sim::kOutputRootAttrs:
        exporter->outputRootAttrs = sim::booleanOf(propValue);
        return NOERROR;
    case sim::kOutputXmlDecl:
        exporter->outputXmlDecl = sim::booleanOf(propValue);
        return NOERROR;
    case sim::kOutputDoctype:
        exporter->outputDoctype = sim::booleanOf(propValue);
        return NOERROR;
    case sim::kExportResultLog:
    case sim::kDefaultDoctypeSystem:
        return sim::STS_BAD_ARGUMENT; // read-only
    default:
        return sim::STS_UNSUPPORTED;
    }
}

STATUS impl::DXLExportNote(DXLEXPORTHANDLE hDXLExport, XML_WRITE_FUNCTION pDXLWriteFunc, NOTEHANDLE hNote,
                           void* pExAction)
{
    auto exporter = sim::lookupExporter(hDXLExport);
    if (!exporter)
        return sim::STS_INVALID_HANDLE;
    if (pDXLWriteFunc == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::NoteObject> note;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupNoteAndStorage(hNote, note, storage);
    if (status != NOERROR)
        return status;
    std::vector<sim::ItemRecord> items;
    status = sim::completeItems(*note, *storage, items);
    if (status != NOERROR)
        return status;
    std::string text;
    exporter->resultLog.clear();
    try {
        sim::NoteWriter writer(*exporter, *storage);
        sim::DocPtr doc = writer.write(note->record, items);
        text = sim::serialize(*exporter, doc.get());
    } catch (const sim::ExportFailure& failure) {
        exporter->resultLog = sim::exporterLog(exporter->resultLogComment, "note " + std::to_string(note->record.id) +
                                                                            ": " + failure.text);
        return sim::STS_DXL_EXPORT_FAILED;
    }
    sim::deliver(text, pDXLWriteFunc, pExAction);
    return NOERROR;
}

STATUS impl::DXLExportACL(DXLEXPORTHANDLE hDXLExport, XML_WRITE_FUNCTION pDXLWriteFunc, DBHANDLE hDB, void* pExAction)
{
    auto exporter = sim::lookupExporter(hDXLExport);
    if (!exporter)
        return sim::STS_INVALID_HANDLE;
    if (pDXLWriteFunc == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::vector<char> image;
    STATUS status = sim::readAclOf(hDB, image);
    if (status != NOERROR)
        return status;
    std::string text;
    exporter->resultLog.clear();
    try {
        text = sim::aclDocument(*exporter, image);
    } catch (const sim::ExportFailure& failure) {
        exporter->resultLog = sim::exporterLog(exporter->resultLogComment, "ACL: " + failure.text);
        return sim::STS_DXL_EXPORT_FAILED;
    }
    sim::deliver(text, pDXLWriteFunc, pExAction);
    return NOERROR;
}

HYSIM_EXPORT const char* HySimDxlResultLog(unsigned int handle)
{
    std::lock_guard<std::recursive_mutex> lock(sim::apiMutex());
    if (auto exporter = sim::findAs<sim::DxlExporter>(handle, sim::HandleKind::DxlExporter))
        return exporter->resultLog.c_str();
    if (auto importer = sim::findAs<sim::DxlImporter>(handle, sim::HandleKind::DxlImporter))
        return importer->resultLog.c_str();
    return nullptr;
}
