// One note of an open database: the document borrows the database handle and owns
// the note handle it opens or creates.
#ifndef HYLNTOOL_DOCUMENT_H
#define HYLNTOOL_DOCUMENT_H

#include <string>

#include "HYLNTool_Error.h"
#include "HYLNTool_Export.h"
#include "HYLNTool_NotesAPI.h"
#include "HYLNTool_NotesUtilities.h"

class HYLN_EXPORT HyLNDocument {
public:
    HyLNDocument();
    // Database handle first, note ID second; the note handle is not set here.
    HyLNDocument(unsigned int dbHandle, unsigned int noteID);
    HyLNDocument(unsigned int dbHandle, unsigned int noteID, UNIVERSALNOTEID unid);
    // Closes a note that is still open; the status of that close is dropped.
    virtual ~HyLNDocument();

    void SetNoteHandle(unsigned int handle);
    HyLNError Close();

    // DXL of this one note.
    HyLNError Export(unsigned int& exporter, NoteExportRecord* record);
    HyLNError Import(unsigned int importer, NoteImportRecord* record);
    // Only create and delete an exporter or importer, or check the name.
    HyLNError Export(std::string fileName);
    HyLNError Import(std::string fileName);
    HyLNError Import(unsigned int importer, std::string fileName);

    NOTEID noteID;
    UNIVERSALNOTEID unid;
    NOTEHANDLE noteHandle;
    std::string text;
    DBHANDLE dbHandle;
};

#endif
