// Reading collections: the masks, navigators and signals of NIFReadEntries.
#ifndef HYSIM_COLLECTIONS_H
#define HYSIM_COLLECTIONS_H

#include "HYLNTool_NotesAPI.h"

namespace sim {
namespace nif {

// READ_MASK_xxx, in the order their fields follow one another in an entry.
enum : DWORD {
    kReadNoteId = 0x00000001,
    kReadUnid = 0x00000002,
    kReadNoteClass = 0x00000004,
    kReadSiblings = 0x00000008,
    kReadChildren = 0x00000010,
    kReadDescendants = 0x00000020,
    kReadAnyUnread = 0x00000040,
    kReadIndentLevels = 0x00000080,
    kReadCollectionStats = 0x00000100, // once, before the entries
    kReadScore = 0x00000200,
    kReadUnread = 0x00000400,
    kReadSummaryValues = 0x00002000,
    kReadPosition = 0x00004000,
    kReadSummary = 0x00008000,
};

// NAVIGATE_xxx.
enum : WORD {
    kNavigateCurrent = 0,
    kNavigateNext = 1,
    kNavigateParent = 3,
    kNavigateChild = 4,
    kNavigateNextPeer = 5,
    kNavigatePreviousPeer = 6,
    kNavigateFirstPeer = 7,
    kNavigateLastPeer = 8,
    kNavigatePrevious = 9,
    kNavigateNextCategory = 41,
    kNavigateNextNonCategory = 43,
    kNavigateMask = 0x007F,
    kNavigateContinue = 0x8000,
};

// SIGNAL_xxx.
enum : WORD {
    kSignalIndexModified = 0x0004,
    kSignalMoreToDo = 0x0020,
};

// Entries stop before a buffer would reach this size (its length is a WORD).
constexpr size_t kMaxBufferBytes = 65000;

} // namespace nif
} // namespace sim

#endif
