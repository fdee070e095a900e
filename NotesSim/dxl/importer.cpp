// DXL importer: reads the whole DXL from the caller's reader, turns every note it
// holds into items, and writes them in one storage transaction, so a failed import
// leaves the database as it was.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <charconv>
#include <cstdio>
#include <memory>
#include <set>

#include "dxl.h"
#include "dxl_items.h"
#include "sim_core.h"
#include "storage.h"
#include "translate.h"

namespace sim {
namespace {

constexpr DWORD kReadChunk = 4096;
constexpr size_t kMaxInput = size_t(1) << 30;

// DXL_IMPORT_PROPERTY numbers and DXLIMPORTOPTION values.
enum : int {
    kAclImportOption = 1,
    kDesignImportOption = 2,
    kDocumentsImportOption = 3,
    kCreateFullTextIndex = 4,
    kReplaceDbProperties = 5,
    kInputValidationOption = 6,
    kReplicaRequired = 7,
    kExitOnFirstFatalError = 8,
    kUnknownTokenLogOption = 9,
    kResultLogComment = 10,
    kResultLog = 11,
    kImportedNoteList = 12,
    kCompileLotusScript = 13,
};
enum : WORD {
    kIgnore = 1,
    kCreate = 2,
    kIgnoreElseCreate = 3,
    kReplaceElseIgnore = 5,
    kReplaceElseCreate = 6,
    kUpdateElseIgnore = 9,
    kUpdateElseCreate = 10,
};
enum : WORD { kLogIgnore = 1, kLogWarning = 2, kLogError = 3, kLogFatal = 4 };

bool validImportOption(int value)
{
    return value == kIgnore || value == kCreate || value == kIgnoreElseCreate || value == kReplaceElseIgnore ||
           value == kReplaceElseCreate || value == kUpdateElseIgnore || value == kUpdateElseCreate;
}

const char* const kDesignElements[] = {
    "form", "subform", "page", "frameset", "view", "folder", "sharedfield", "sharedactions", "imageresource",
    "appletresource", "agent", "webservice", "agentdata", "scriptlibrary", "databasescript", "helpusingdocument",
    "helpaboutdocument", "dataconnection", "sharedcolumn", "fileresource", "stylesheetresource", "outline",
    "db2accessview"};

struct DocFree {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};

// Something in the DXL the importer cannot take.
struct ImportFailure {
    long line;
    std::string text;
};

std::string nameOf(const xmlNode* node)
{
    return reinterpret_cast<const char*>(node->name);
}

bool isDxlElement(const xmlNode* node)
{
    return node->type == XML_ELEMENT_NODE &&
           (node->ns == nullptr || xmlStrcmp(node->ns->href, reinterpret_cast<const xmlChar*>(kDxlNamespace)) == 0);
}

bool has(const xmlNode* node, const char* attribute)
{
    return xmlHasProp(node, reinterpret_cast<const xmlChar*>(attribute)) != nullptr;
}

std::string attribute(const xmlNode* node, const char* name)
{
    xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
    std::string text = value != nullptr ? reinterpret_cast<const char*>(value) : "";
    xmlFree(value);
    return text;
}

bool isTrue(const xmlNode* node, const char* name)
{
    return attribute(node, name) == "true";
}

std::string content(const xmlNode* node)
{
    xmlChar* value = xmlNodeGetContent(node);
    std::string text = value != nullptr ? reinterpret_cast<const char*>(value) : "";
    xmlFree(value);
    return text;
}

bool blank(const xmlNode* node)
{
    if (node->type == XML_COMMENT_NODE || node->type == XML_PI_NODE)
        return true;
    if (node->type != XML_TEXT_NODE && node->type != XML_CDATA_SECTION_NODE)
        return false;
    for (const xmlChar* c = node->content; c != nullptr && *c != 0; ++c)
        if (!std::isspace(*c))
            return false;
    return true;
}

// One note the import will write, with how it goes in.
struct PlannedNote {
    NoteBatchEntry entry;
    std::string element;
};

class Reader {
public:
    Reader(DxlImporter& importer, Storage& storage) : importer_(importer), storage_(storage) {}

    std::vector<NoteBatchEntry> plan(xmlDoc* doc)
    {
        if (storage_.readProperties(target_) != NOERROR)
            fail(0, "the target database's properties cannot be read");
        xmlNode* root = xmlDocGetRootElement(doc);
        if (root == nullptr || !isDxlElement(root))
            fail(root ? root->line : 0, "the root element is not a DXL element");
        std::string name = nameOf(root);
        sourceReplica_ = attribute(root, "replicaid");
        if (name == "database") {
            for (xmlNode* child = root->children; child != nullptr; child = child->next)
                databaseChild(child);
        } else {
            noteElement(root);
        }
        return std::move(batch_);
    }

    std::vector<std::string> warnings;

private:
    [[noreturn]] void fail(long line, const std::string& text) { throw ImportFailure{line, text}; }

    void unknown(const xmlNode* node, const std::string& where)
    {
        std::string text = "unknown element '" + nameOf(node) + "' in <" + where + ">";
        if (importer_.unknownTokenLogOption >= kLogError)
            fail(node->line, text);
        if (importer_.unknownTokenLogOption == kLogWarning)
            warnings.push_back("line " + std::to_string(node->line) + ": " + text + " skipped");
    }

    void databaseChild(xmlNode* node)
    {
        if (blank(node))
            return;
        if (!isDxlElement(node))
            fail(node->line, "unexpected content in <database>");
        std::string name = nameOf(node);
        if (name == "databaseinfo") {
            if (sourceReplica_.empty())
                sourceReplica_ = attribute(node, "replicaid");
            if (importer_.replaceDbProperties)
                warnings.push_back("line " + std::to_string(node->line) + ": database properties are not replaced");
            return;
        }
        if (name == "acl") {
            if (importer_.aclOption != kIgnore)
                fail(node->line, "importing an ACL is not supported");
            return;
        }
        if (name == "fulltextsettings" || name == "launchsettings")
            return;
        if (name == "note" || name == "document" || name == "profiledocument") {
            noteElement(node);
            return;
        }
        for (const char* design : kDesignElements) {
            if (name == design) {
                if (importer_.designOption != kIgnore)
                    fail(node->line, "design element <" + name + "> can be imported only in <note> form");
                return;
            }
        }
        unknown(node, "database");
    }

    void noteElement(xmlNode* node)
    {
        std::string name = nameOf(node);
        WORD noteClass = NOTE_CLASS_DOCUMENT;
        if (name == "note") {
            noteClass = noteClassOf(attribute(node, "class"));
            if (noteClass == 0)
                fail(node->line, "unknown note class '" + attribute(node, "class") + "'");
            if (isTrue(node, "default"))
                noteClass |= NOTE_CLASS_DEFAULT;
        } else if (name == "profiledocument") {
            fail(node->line, "profile documents are not supported");
        } else if (name != "document") {
            bool design = false;
            for (const char* element : kDesignElements)
                design = design || name == element;
            if (!design) {
                unknown(node, "root");
                return;
            }
            if (importer_.designOption != kIgnore)
                fail(node->line, "design element <" + name + "> can be imported only in <note> form");
            return;
        }
        bool document = (noteClass & ~NOTE_CLASS_DEFAULT) == NOTE_CLASS_DOCUMENT;
        WORD option = document ? importer_.documentsOption : importer_.designOption;
        if (option == kIgnore)
            return;
        NoteBatchEntry entry;
        entry.record.noteClass = noteClass;
        entry.how.force = true;
        bool hasUnid = false;
        UNID unid{};
        for (xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (blank(child))
                continue;
            if (!isDxlElement(child))
                fail(child->line, "unexpected content in <" + name + ">");
            std::string part = nameOf(child);
            if (part == "noteinfo") {
                noteInfo(child, entry.record, hasUnid, unid);
            } else if (part == "updatedby") {
                std::vector<std::string> names;
                for (xmlNode* n = child->children; n != nullptr; n = n->next)
                    if (!blank(n)) {
                        if (!isDxlElement(n) || nameOf(n) != "name")
                            fail(n->line, "unexpected content in <updatedby>");
                        names.push_back(lmbcsOf(content(n), n));
                    }
                entry.items.push_back(ItemRecord{kUpdatedByItem, kUpdatedByFlags, textListValue(names)});
                entry.itemObject.push_back(-1);
            } else if (part == "revisions") {
                std::vector<TIMEDATE> times;
                for (xmlNode* n = child->children; n != nullptr; n = n->next)
                    if (!blank(n))
                        times.push_back(datetime(n));
                entry.items.push_back(ItemRecord{kRevisionsItem, kRevisionsFlags, timeListValue(times, {})});
                entry.itemObject.push_back(-1);
            } else if (part == "wassignedby" || part == "textproperties") {
                warnings.push_back("line " + std::to_string(child->line) + ": <" + part + "> is not imported");
            } else if (part == "item") {
                item(child, entry);
            } else if (part == "mime") {
                fail(child->line, "native MIME content is not supported");
            } else {
                unknown(child, name);
            }
        }
        if (document && has(node, "form")) {
            bool formItem = false;
            for (const ItemRecord& item : entry.items)
                formItem = formItem || sameItemName(item.name, "Form", 4);
            if (!formItem) {
                std::string form = lmbcsOf(attribute(node, "form"), node);
                std::vector<char> value;
                appendValue<WORD>(value, TYPE_TEXT);
                value.insert(value.end(), form.begin(), form.end());
                // After the items of <updatedby> and <revisions>, where the exporter puts them back.
                size_t at = 0;
                while (at < entry.items.size() &&
                       (entry.items[at].name == kUpdatedByItem || entry.items[at].name == kRevisionsItem))
                    ++at;
                entry.items.insert(entry.items.begin() + static_cast<long>(at), ItemRecord{"Form", ITEM_SUMMARY, value});
                entry.itemObject.insert(entry.itemObject.begin() + static_cast<long>(at), -1);
            }
        }
        place(node, entry, option, hasUnid, unid);
    }

    void place(xmlNode* node, NoteBatchEntry& entry, WORD option, bool hasUnid, const UNID& unid)
    {
        NoteRecord existing;
        bool exists = hasUnid && storage_.findNoteByUnid(unid, existing) == NOERROR;
        bool planned = hasUnid && !plannedUnids_.insert(unidText(unid)).second;
        if (planned && option != kCreate)
            fail(node->line, "the universal ID " + unidText(unid) + " appears twice");
        char replica[24];
        std::snprintf(replica, sizeof replica, "%08X%08X", target_.replica.ID.Innards[1], target_.replica.ID.Innards[0]);
        // Without the same replica ID an existing note is not replaced or updated: it counts as absent.
        bool mayTouch = !importer_.replicaRequired || sourceReplica_ == replica;
        bool match = exists && mayTouch;
        bool replace = option == kReplaceElseIgnore || option == kReplaceElseCreate;
        bool update = option == kUpdateElseIgnore || option == kUpdateElseCreate;
        bool createElse = option == kCreate || option == kIgnoreElseCreate || option == kReplaceElseCreate ||
                          option == kUpdateElseCreate;
        if (match && option == kIgnoreElseCreate)
            return;
        if (match && (replace || update)) {
            entry.record.id = existing.id;
            std::memcpy(&entry.record.oid, &existing.oid, sizeof existing.oid);
            entry.record.accessed = existing.accessed;
            if (update)
                mergeWithStored(entry, existing.id, node);
        } else if ((!match && createElse) || option == kCreate) {
            entry.record.id = 0;
            UNID fresh = unid;
            if (!hasUnid || exists || planned)
                fresh = makeUnid(target_.replica.ID);
            std::memcpy(&entry.record.oid, &fresh, sizeof fresh);
            if (exists || planned)
                entry.record.oid.Sequence = 0;
        } else {
            return;
        }
        batch_.push_back(std::move(entry));
    }

    void mergeWithStored(NoteBatchEntry& entry, NOTEID id, xmlNode* node)
    {
        std::vector<ItemRecord> stored;
        if (storage_.readItems(id, false, stored) != NOERROR)
            fail(node->line, "the note to update cannot be read");
        std::vector<ItemRecord> items;
        std::vector<int> objects;
        for (ItemRecord& old : stored) {
            bool replaced = false;
            for (const ItemRecord& item : entry.items)
                replaced = replaced || sameItemName(old.name, item.name.data(), item.name.size());
            if (!replaced) {
                items.push_back(std::move(old));
                objects.push_back(-1);
            }
        }
        items.insert(items.end(), entry.items.begin(), entry.items.end());
        objects.insert(objects.end(), entry.itemObject.begin(), entry.itemObject.end());
        entry.items = std::move(items);
        entry.itemObject = std::move(objects);
    }

    void noteInfo(xmlNode* node, NoteRecord& record, bool& hasUnid, UNID& unid)
    {
        if (has(node, "unid")) {
            if (!parseUnidText(attribute(node, "unid"), unid))
                fail(node->line, "the universal ID '" + attribute(node, "unid") + "' is not valid");
            hasUnid = true;
        }
        std::string sequence = attribute(node, "sequence");
        unsigned long value = 0;
        auto result = std::from_chars(sequence.data(), sequence.data() + sequence.size(), value);
        // The save counts one more revision: start one below what the DXL says.
        if (!sequence.empty() && result.ec == std::errc() && value > 0)
            record.oid.Sequence = static_cast<DWORD>(value - 1);
        for (xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (blank(child))
                continue;
            std::string name = isDxlElement(child) ? nameOf(child) : "";
            if (name != "created" && name != "modified" && name != "revised" && name != "lastaccessed" &&
                name != "addedtofile")
                fail(child->line, "unexpected content in <noteinfo>");
            TIMEDATE time = singleDatetime(child);
            if (name == "created" && !hasUnid && time.Innards[1] != ANYDAY) {
                unid.File = makeUnid(target_.replica.ID).File;
                unid.Note = time;
                hasUnid = true;
            }
        }
    }

    TIMEDATE singleDatetime(xmlNode* node)
    {
        for (xmlNode* child = node->children; child != nullptr; child = child->next)
            if (!blank(child))
                return datetime(child);
        fail(node->line, "<" + nameOf(node) + "> holds no datetime");
    }

    TIMEDATE datetime(xmlNode* node)
    {
        if (!isDxlElement(node) || nameOf(node) != "datetime")
            fail(node->line, "a <datetime> was expected, not <" + nameOf(node) + ">");
        TIMEDATE value{};
        std::string text = content(node);
        if (!parseDatetimeText(text, isTrue(node, "dst"), value))
            fail(node->line, "'" + text + "' is not a DXL datetime");
        return value;
    }

    std::string lmbcsOf(const std::string& utf8, const xmlNode* node)
    {
        std::string lmbcs;
        if (!utf8ToLmbcs(utf8, lmbcs))
            fail(node->line, "text that is not valid UTF-8");
        return lmbcs;
    }

    // <text>: characters, <break/> and <nonxmlchar value='hex'/>.
    std::string textOf(xmlNode* node)
    {
        if (!isDxlElement(node) || nameOf(node) != "text")
            fail(node->line, "a <text> was expected, not <" + nameOf(node) + ">");
        std::string utf8;
        for (xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
                utf8 += reinterpret_cast<const char*>(child->content);
            } else if (isDxlElement(child) && nameOf(child) == "break") {
                utf8 += '\n';
            } else if (isDxlElement(child) && nameOf(child) == "nonxmlchar") {
                unsigned value = 0;
                std::string hex = attribute(child, "value");
                auto result = std::from_chars(hex.data(), hex.data() + hex.size(), value, 16);
                if (hex.empty() || result.ec != std::errc() || value > 0x1F)
                    fail(child->line, "<nonxmlchar> with value '" + hex + "'");
                utf8 += static_cast<char>(value);
            } else if (child->type != XML_COMMENT_NODE) {
                fail(child->line, "unexpected content in <text>");
            }
        }
        return lmbcsOf(utf8, node);
    }

    double numberOf(xmlNode* node)
    {
        if (!isDxlElement(node) || nameOf(node) != "number")
            fail(node->line, "a <number> was expected, not <" + nameOf(node) + ">");
        std::string text;
        for (char c : content(node))
            if (!std::isspace(static_cast<unsigned char>(c)))
                text += c;
        double value = 0;
        auto result = std::from_chars(text.data(), text.data() + text.size(), value);
        if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size())
            fail(node->line, "'" + text + "' is not a number");
        return value;
    }

    static std::vector<char> textListValue(const std::vector<std::string>& texts)
    {
        std::vector<char> value;
        appendValue<WORD>(value, TYPE_TEXT_LIST);
        appendValue<WORD>(value, static_cast<WORD>(texts.size()));
        for (const std::string& text : texts)
            appendValue<WORD>(value, static_cast<WORD>(text.size()));
        for (const std::string& text : texts)
            value.insert(value.end(), text.begin(), text.end());
        return value;
    }

    static std::vector<char> timeListValue(const std::vector<TIMEDATE>& times, const std::vector<TIMEDATE>& pairs)
    {
        std::vector<char> value;
        appendValue<WORD>(value, TYPE_TIME_RANGE);
        appendValue<WORD>(value, static_cast<WORD>(times.size()));
        appendValue<WORD>(value, static_cast<WORD>(pairs.size() / 2));
        for (const TIMEDATE& time : times)
            appendValue(value, time);
        for (const TIMEDATE& time : pairs)
            appendValue(value, time);
        return value;
    }

    std::vector<xmlNode*> elements(xmlNode* node)
    {
        std::vector<xmlNode*> out;
        for (xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (blank(child))
                continue;
            if (child->type != XML_ELEMENT_NODE)
                fail(child->line, "unexpected text in <" + nameOf(node) + ">");
            out.push_back(child);
        }
        return out;
    }

    std::vector<char> richtextValue(xmlNode* node)
    {
        std::string markup;
        xmlBuffer* buffer = xmlBufferCreate();
        for (xmlNode* child = node->children; child != nullptr; child = child->next)
            xmlNodeDump(buffer, node->doc, child, 0, 0);
        markup.assign(reinterpret_cast<const char*>(xmlBufferContent(buffer)), static_cast<size_t>(xmlBufferLength(buffer)));
        xmlBufferFree(buffer);
        std::vector<char> value;
        appendValue<WORD>(value, TYPE_COMPOSITE);
        appendValue<WORD>(value, kMarkupSignature);
        appendValue<DWORD>(value, static_cast<DWORD>(markup.size()));
        value.insert(value.end(), markup.begin(), markup.end());
        return value;
    }

    WORD tokenFlags(const std::string& text, const std::vector<std::pair<const char*, WORD>>& tokens, xmlNode* node)
    {
        WORD flags = 0;
        size_t at = 0;
        while (at < text.size()) {
            size_t end = text.find(' ', at);
            std::string token = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
            at = end == std::string::npos ? text.size() : end + 1;
            if (token.empty())
                continue;
            bool known = false;
            for (const auto& entry : tokens)
                if (token == entry.first) {
                    flags |= entry.second;
                    known = true;
                }
            if (!known)
                fail(node->line, "unknown token '" + token + "'");
        }
        return flags;
    }

    // <object><file>: the FILEOBJECT value and the bytes for a new object.
    std::vector<char> fileValue(xmlNode* object, NoteBatchEntry& entry)
    {
        std::vector<xmlNode*> files = elements(object);
        if (files.size() != 1 || nameOf(files[0]) != "file")
            fail(object->line, "<object> must hold one <file>");
        xmlNode* file = files[0];
        std::string hostName = has(file, "hosttype") ? attribute(file, "hosttype") : "unknown";
        int host = -1;
        for (const HostTypeName& entryName : kHostTypes)
            if (hostName == entryName.name)
                host = entryName.host;
        if (host < 0)
            fail(file->line, "unknown host type '" + hostName + "'");
        std::string compressionName = has(file, "compression") ? attribute(file, "compression") : "none";
        WORD compression = compressionName == "none" ? 0 : compressionName == "huffman" ? 1 : compressionName == "lz1" ? 2 : 9;
        if (compression == 9)
            fail(file->line, "unknown compression '" + compressionName + "'");
        if (has(file, "encoding") && attribute(file, "encoding") != "none")
            fail(file->line, "file encoding '" + attribute(file, "encoding") + "' is not supported");
        WORD flags = tokenFlags(attribute(file, "flags"), {{"sign", 0x0001}, {"storedindoc", 0x0002}, {"mime", 0x0004}}, file);
        WORD attributes = tokenFlags(attribute(file, "attribute"), {{"readonly", 0x0001}, {"private", 0x0002}}, file);
        std::string name = lmbcsOf(attribute(file, "name"), file);
        TIMEDATE created{}, modified{};
        std::vector<char> bytes;
        bool sawCreated = false, sawModified = false;
        for (xmlNode* child : elements(file)) {
            std::string part = nameOf(child);
            if (part == "created") {
                created = singleDatetime(child);
                sawCreated = true;
            } else if (part == "modified") {
                modified = singleDatetime(child);
                sawModified = true;
            } else if (part == "filedata") {
                if (!base64Decode(content(child), bytes))
                    fail(child->line, "<filedata> is not valid base64");
            } else {
                fail(child->line, "unexpected <" + part + "> in <file>");
            }
        }
        if (!sawCreated || !sawModified)
            fail(file->line, "<file> needs <created> and <modified>");
        DWORD size = static_cast<DWORD>(bytes.size());
        if (has(file, "size")) {
            std::string text = attribute(file, "size");
            auto result = std::from_chars(text.data(), text.data() + text.size(), size);
            if (result.ec != std::errc() || result.ptr != text.data() + text.size())
                fail(file->line, "size '" + text + "' is not a number");
        }
        if (compression == 0 && size != bytes.size())
            fail(file->line, "size " + std::to_string(size) + " differs from the " + std::to_string(bytes.size()) +
                                 " bytes of <filedata>");
        if (name.size() > MAXWORD)
            fail(file->line, "the file name is too long");
        std::vector<char> value;
        appendValue<WORD>(value, TYPE_OBJECT);
        appendValue<WORD>(value, OBJECT_FILE);
        appendValue<DWORD>(value, 0); // the object ID, given when the object is written
        appendValue<WORD>(value, static_cast<WORD>(name.size()));
        appendValue<WORD>(value, static_cast<WORD>(host));
        appendValue<WORD>(value, compression);
        appendValue<WORD>(value, attributes);
        appendValue<WORD>(value, flags);
        appendValue<DWORD>(value, size);
        appendValue(value, created);
        appendValue(value, modified);
        value.insert(value.end(), name.begin(), name.end());
        entry.objects.push_back(std::move(bytes));
        return value;
    }

    void item(xmlNode* node, NoteBatchEntry& entry)
    {
        if (!has(node, "name"))
            fail(node->line, "<item> without a name");
        std::string name = lmbcsOf(attribute(node, "name"), node);
        if (name.empty() || name.size() > MAXWORD)
            fail(node->line, "item name of length " + std::to_string(name.size()));
        std::vector<xmlNode*> parts = elements(node);
        if (parts.size() != 1)
            fail(node->line, "<item name='" + attribute(node, "name") + "'> must hold one value");
        xmlNode* part = parts[0];
        if (!isDxlElement(part))
            fail(part->line, "a value outside the DXL namespace");
        std::string kind = nameOf(part);
        std::vector<char> value;
        int object = -1;
        if (kind == "text") {
            std::string text = textOf(part);
            appendValue<WORD>(value, TYPE_TEXT);
            value.insert(value.end(), text.begin(), text.end());
        } else if (kind == "textlist") {
            std::vector<std::string> texts;
            for (xmlNode* child : elements(part))
                texts.push_back(textOf(child));
            value = textListValue(texts);
        } else if (kind == "number") {
            appendValue<WORD>(value, TYPE_NUMBER);
            appendValue(value, numberOf(part));
        } else if (kind == "numberlist") {
            std::vector<xmlNode*> numbers = elements(part);
            appendValue<WORD>(value, TYPE_NUMBER_RANGE);
            appendValue<WORD>(value, static_cast<WORD>(numbers.size()));
            appendValue<WORD>(value, 0);
            for (xmlNode* child : numbers)
                appendValue(value, numberOf(child));
        } else if (kind == "datetime") {
            appendValue<WORD>(value, TYPE_TIME);
            appendValue(value, datetime(part));
        } else if (kind == "datetimelist") {
            std::vector<TIMEDATE> times, pairs;
            for (xmlNode* child : elements(part)) {
                if (nameOf(child) == "datetimepair") {
                    std::vector<xmlNode*> ends = elements(child);
                    if (ends.size() != 2)
                        fail(child->line, "<datetimepair> needs two datetimes");
                    pairs.push_back(datetime(ends[0]));
                    pairs.push_back(datetime(ends[1]));
                } else {
                    if (!pairs.empty())
                        fail(child->line, "a <datetime> after a <datetimepair>");
                    times.push_back(datetime(child));
                }
            }
            value = timeListValue(times, pairs);
        } else if (kind == "rawitemdata" || kind == "itemdata") {
            std::string hex = attribute(part, "type");
            unsigned type = 0;
            auto result = std::from_chars(hex.data(), hex.data() + hex.size(), type, 16);
            if (hex.empty() || result.ec != std::errc() || result.ptr != hex.data() + hex.size() || type > MAXWORD)
                fail(part->line, "<" + kind + "> with type '" + hex + "'");
            std::vector<char> data;
            if (!base64Decode(content(part), data))
                fail(part->line, "<" + kind + "> is not valid base64");
            appendValue<WORD>(value, static_cast<WORD>(type));
            value.insert(value.end(), data.begin(), data.end());
        } else if (kind == "richtext") {
            value = richtextValue(part);
        } else if (kind == "object") {
            value = fileValue(part, entry);
            object = static_cast<int>(entry.objects.size() - 1);
        } else if (kind == "formula" && isTrue(part, "compiled")) {
            // Kept as the bytes another runtime compiled; this one cannot compute them.
            std::vector<char> data;
            if (!base64Decode(content(part), data))
                fail(part->line, "<formula compiled='true'> is not valid base64");
            appendValue<WORD>(value, TYPE_FORMULA);
            value.insert(value.end(), data.begin(), data.end());
        } else if (kind == "formula") {
            fail(part->line, "formula items cannot be compiled by this runtime");
        } else {
            fail(part->line, "unknown item value <" + kind + ">");
        }
        WORD type = readAt<WORD>(value, 0);
        WORD flags = 0;
        bool summary = has(node, "summary") ? isTrue(node, "summary") : summaryByDefault(type);
        if (summary)
            flags |= ITEM_SUMMARY;
        for (const FlagAttribute& flag : kFlagAttributes)
            if (isTrue(node, flag.name))
                flags |= flag.flag;
        entry.items.push_back(ItemRecord{name, flags, std::move(value)});
        entry.itemObject.push_back(object);
    }

    DxlImporter& importer_;
    Storage& storage_;
    DatabaseProperties target_;
    std::string sourceReplica_;
    std::set<std::string> plannedUnids_;
    std::vector<NoteBatchEntry> batch_;
};

std::string importerLog(const DxlImporter& importer, const std::vector<std::string>& warnings, long line,
                        const std::string& error)
{
    std::unique_ptr<xmlDoc, DocFree> doc(xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0")));
    xmlNode* root = xmlNewDocNode(doc.get(), nullptr, reinterpret_cast<const xmlChar*>("DXLImporterLog"), nullptr);
    xmlDocSetRootElement(doc.get(), root);
    auto add = [&](const char* kind, const std::string& text) {
        return xmlNewTextChild(root, nullptr, reinterpret_cast<const xmlChar*>(kind),
                               reinterpret_cast<const xmlChar*>(text.c_str()));
    };
    if (!importer.resultLogComment.empty())
        add("comment", importer.resultLogComment);
    for (const std::string& warning : warnings)
        add("warning", warning);
    if (!error.empty()) {
        xmlNode* node = add("error", error);
        if (line > 0)
            xmlNewProp(node, reinterpret_cast<const xmlChar*>("line"),
                       reinterpret_cast<const xmlChar*>(std::to_string(line).c_str()));
    }
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(doc.get(), &text, &size, "UTF-8");
    std::string log(reinterpret_cast<const char*>(text), static_cast<size_t>(size));
    xmlFree(text);
    return log;
}

struct ParseErrors {
    std::string first;
    long line = 0;
};

void collectParseError(void* context, xmlError* error)
{
    ParseErrors* errors = static_cast<ParseErrors*>(context);
    if (!errors->first.empty() || error == nullptr || error->level < XML_ERR_ERROR)
        return;
    errors->first = error->message != nullptr ? error->message : "unknown XML error";
    while (!errors->first.empty() && errors->first.back() == '\n')
        errors->first.pop_back();
    errors->line = error->line;
}

std::shared_ptr<DxlImporter> lookupImporter(DXLIMPORTHANDLE handle)
{
    return findAs<DxlImporter>(handle, HandleKind::DxlImporter);
}

} // namespace
} // namespace sim

STATUS impl::DXLCreateImporter(DXLIMPORTHANDLE* prethDXLImport)
{
    if (prethDXLImport == nullptr)
        return sim::STS_BAD_ARGUMENT;
    *prethDXLImport = sim::registerHandle(std::make_shared<sim::DxlImporter>());
    return NOERROR;
}

void impl::DXLDeleteImporter(DXLIMPORTHANDLE hDXLImport)
{
    sim::releaseHandle(hDXLImport, sim::HandleKind::DxlImporter);
}

STATUS impl::DXLSetImporterProperty(DXLIMPORTHANDLE hDXLImport, DXL_IMPORT_PROPERTY prop, void* propValue)
{
    auto importer = sim::lookupImporter(hDXLImport);
    if (!importer)
        return sim::STS_INVALID_HANDLE;
    if (propValue == nullptr)
        return sim::STS_BAD_ARGUMENT;
    int number = 0;
    std::memcpy(&number, propValue, sizeof number);
    // Option words may arrive as a pointer to an int: on this byte order the low word comes first.
    WORD option = static_cast<WORD>(number & 0xFFFF);
    switch (prop) {
    case sim::kAclImportOption:
    case sim::kDesignImportOption:
    case sim::kDocumentsImportOption:
        if (!sim::validImportOption(option))
            return sim::STS_BAD_ARGUMENT;
        (prop == sim::kAclImportOption      ? importer->aclOption
         : prop == sim::kDesignImportOption ? importer->designOption
                                            : importer->documentsOption) = option;
        return NOERROR;
    case sim::kCreateFullTextIndex:
        importer->createFullTextIndex = number != 0;
        return NOERROR;
    case sim::kReplaceDbProperties:
        importer->replaceDbProperties = number != 0;
        return NOERROR;
    case sim::kInputValidationOption:
        if (number < 0 || number > 2)
            return sim::STS_BAD_ARGUMENT;
        importer->validationOption = number;
        return NOERROR;
    case sim::kReplicaRequired:
        importer->replicaRequired = number != 0;
        return NOERROR;
    case sim::kExitOnFirstFatalError:
        importer->exitOnFirstFatalError = number != 0;
        return NOERROR;
    case sim::kUnknownTokenLogOption:
        if (option < sim::kLogIgnore || option > sim::kLogFatal)
            return sim::STS_BAD_ARGUMENT;
        importer->unknownTokenLogOption = option;
        return NOERROR;
    case sim::kResultLogComment:
        importer->resultLogComment = static_cast<const char*>(propValue);
        return NOERROR;
    case sim::kCompileLotusScript:
        importer->compileLotusScript = number != 0;
        return NOERROR;
    case sim::kResultLog:
    case sim::kImportedNoteList:
        return sim::STS_BAD_ARGUMENT; // read-only
    default:
        return sim::STS_UNSUPPORTED;
    }
}

STATUS impl::DXLImport(DXLIMPORTHANDLE hDXLImport, XML_READ_FUNCTION pDXLReaderFunc, DBHANDLE hDB, void* pImAction)
{
    auto importer = sim::lookupImporter(hDXLImport);
    if (!importer)
        return sim::STS_INVALID_HANDLE;
    if (pDXLReaderFunc == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status != NOERROR)
        return status;
    importer->resultLog.clear();
    importer->importedNotes.clear();
    std::vector<char> input;
    std::vector<BYTE> chunk(sim::kReadChunk);
    for (;;) {
        DWORD got = pDXLReaderFunc(chunk.data(), sim::kReadChunk, pImAction);
        if (got == 0)
            break;
        if (got > sim::kReadChunk || input.size() + got > sim::kMaxInput) {
            importer->resultLog = sim::importerLog(*importer, {}, 0, "the reader delivered more than it was asked for");
            return sim::STS_DXL_IMPORT_FAILED;
        }
        input.insert(input.end(), chunk.begin(), chunk.begin() + got);
    }
    // The first error the parser meets is the one that explains the others.
    sim::ParseErrors errors;
    xmlSetStructuredErrorFunc(&errors, sim::collectParseError);
    std::unique_ptr<xmlDoc, sim::DocFree> doc(xmlReadMemory(input.data(), static_cast<int>(input.size()), nullptr, nullptr,
                                                            XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOERROR |
                                                                XML_PARSE_NOWARNING));
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    if (!doc) {
        std::string text = errors.first.empty() ? "the input is not XML" : errors.first;
        importer->resultLog = sim::importerLog(*importer, {}, errors.line, "XML: " + text);
        return sim::STS_DXL_IMPORT_FAILED;
    }
    sim::Reader reader(*importer, *storage);
    std::vector<sim::NoteBatchEntry> batch;
    try {
        batch = reader.plan(doc.get());
    } catch (const sim::ImportFailure& failure) {
        importer->resultLog = sim::importerLog(*importer, reader.warnings, failure.line, failure.text);
        return sim::STS_DXL_IMPORT_FAILED;
    }
    status = storage->saveNotes(batch);
    if (status != NOERROR) {
        importer->resultLog = sim::importerLog(*importer, reader.warnings, 0, "the notes could not be written");
        return status;
    }
    for (const sim::NoteBatchEntry& entry : batch)
        importer->importedNotes.push_back(entry.record.id);
    if (!reader.warnings.empty())
        importer->resultLog = sim::importerLog(*importer, reader.warnings, 0, "");
    return NOERROR;
}
