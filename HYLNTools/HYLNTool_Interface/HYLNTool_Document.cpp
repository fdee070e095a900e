#include "HYLNTool_Document.h"

#include "HYLNTool_HostInterface.h"

HyLNDocument::HyLNDocument() : noteID(0), noteHandle(NULLHANDLE), text(""), dbHandle(NULLHANDLE) {}

HyLNDocument::HyLNDocument(unsigned int dbHandle, unsigned int noteID) : noteID(noteID), dbHandle(dbHandle) {}

HyLNDocument::HyLNDocument(unsigned int dbHandle, unsigned int noteID, UNIVERSALNOTEID unid)
    : noteID(noteID), unid(unid), dbHandle(dbHandle)
{
}

HyLNDocument::~HyLNDocument()
{
    if (noteHandle != NULLHANDLE)
        Close();
}

void HyLNDocument::SetNoteHandle(unsigned int handle)
{
    noteHandle = handle;
}

HyLNError HyLNDocument::Close()
{
    HyLNError status;
    if (noteHandle == NULLHANDLE) {
        status.SetError(5051);
        return status;
    }
    STATUS result = HY_NSFNoteClose(noteHandle);
    if (result != NOERROR) {
        status.SetError(result);
        return status;
    }
    noteHandle = NULLHANDLE;
    return status;
}
