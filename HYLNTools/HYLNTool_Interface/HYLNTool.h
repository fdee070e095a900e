// The library's whole public interface.
#ifndef HYLNTOOL_H
#define HYLNTOOL_H

#include "HYLNTool_NotesAPI.h"
#include "HYLNTool_HostInterface.h"
#include "HYLNTool_CodeTables.h"
#include "HYLNTool_Error.h"
#include "HYLNTool_NotesUtilities.h"
#include "HYLNTool_Instance.h"
#include "HYLNTool_Database.h"
#include "HYLNTool_Document.h"

#endif
