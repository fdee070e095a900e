// DXL service of the simulated runtime: exporter and importer handles, and the
// conversions both directions share (base64, datetime text, item flags, classes).
#ifndef HYSIM_DXL_H
#define HYSIM_DXL_H

#include <string>
#include <vector>

#include "HYLNTool_NotesAPI.h"
#include "handles.h"
#include "sim_core.h"

namespace sim {

constexpr const char* kDxlNamespace = "http://www.lotus.com/dxl";

struct DxlExporter : HandleObject {
    DxlExporter() : HandleObject(HandleKind::DxlExporter) {}
    std::string doctypeSystem = "xmlschemas/domino_9_0_1.dtd";
    std::string bannerComments;
    std::string resultLogComment;
    bool richtextAsItemdata = false;
    bool forceNoteFormat = false;
    bool exitOnFirstFatalError = true;
    bool outputRootAttrs = true;
    bool outputXmlDecl = true;
    bool outputDoctype = true;
    std::string resultLog;
};

struct DxlImporter : HandleObject {
    DxlImporter() : HandleObject(HandleKind::DxlImporter) {}
    WORD aclOption = 1;       // DXLIMPORTOPTION_IGNORE
    WORD designOption = 1;    // DXLIMPORTOPTION_IGNORE
    WORD documentsOption = 2; // DXLIMPORTOPTION_CREATE
    bool createFullTextIndex = false;
    bool replaceDbProperties = false;
    int validationOption = 0;
    bool replicaRequired = true;
    bool exitOnFirstFatalError = true;
    WORD unknownTokenLogOption = 4; // FATALERROR
    bool compileLotusScript = true;
    std::string resultLogComment;
    std::string resultLog;
    std::vector<NOTEID> importedNotes;
};

// Base64 with line breaks every 76 characters (as exported); decoding skips white space.
std::string base64Encode(const void* data, size_t size);
// False on a character outside the alphabet or a truncated group.
bool base64Decode(const std::string& text, std::vector<char>& out);

// DXL datetime text: local time in the value's own zone, "YYYYMMDDThhmmss,hh+zz"
// (date only "YYYYMMDD", time only "Thhmmss,hh"); `dst` tells whether daylight saving
// time applied to that moment.
std::string datetimeText(const TIMEDATE& value, bool& dst);
// Whether a value has a text form that reads back to it (years 1 to 9999, ticks within a day).
bool datetimeRepresentable(const TIMEDATE& value);
// False when the text is not of that form.
bool parseDatetimeText(const std::string& text, bool dst, TIMEDATE& value);

// UNID as 32 hexadecimal digits, and back.
std::string unidText(const UNID& unid);
bool parseUnidText(const std::string& text, UNID& unid);

// Note class names of the <note class='...'> form; 0 when unknown.
const char* noteClassName(WORD noteClass);
WORD noteClassOf(const std::string& name);

} // namespace sim

#endif
