// ODS conversion between host structures and their canonical (on-disk) form:
// little-endian and packed. This platform is little-endian too, so converting one
// structure means moving its fields across the host structure's padding.
#include <cstring>
#include <vector>

#include "sim_core.h"

namespace {

// ODS numbers without a symbol in our API header.
constexpr WORD kOdsWord = 0;
constexpr WORD kOdsDword = 1;
constexpr WORD kOdsDbid = 15;

// A run of host bytes without padding, copied as is.
struct Run {
    size_t hostOffset;
    size_t size;
};

struct OdsLayout {
    WORD type;
    size_t hostSize;
    std::vector<Run> runs;
};

template <class T>
OdsLayout unpadded(WORD type)
{
    return {type, sizeof(T), {{0, sizeof(T)}}};
}

// Host structures whose fields are all contiguous from offset 0 (tail padding only).
static_assert(offsetof(SEARCH_MATCH, SummaryLength) + sizeof(WORD) == 54, "SEARCH_MATCH fields");
static_assert(offsetof(DBREPLICAINFO, Cutoff) + sizeof(TIMEDATE) == sizeof(DBREPLICAINFO), "DBREPLICAINFO fields");
// Structures with inner padding: the runs between the gaps.
static_assert(offsetof(OBJECT_DESCRIPTOR, RRV) == 4, "OBJECT_DESCRIPTOR padding");
static_assert(offsetof(VIEW_COLUMN_FORMAT, FontID) == 16, "VIEW_COLUMN_FORMAT padding");
static_assert(offsetof(VIEW_COLUMN_FORMAT, ListSep) == 32, "VIEW_COLUMN_FORMAT padding");

const std::vector<OdsLayout>& layouts()
{
    static const std::vector<OdsLayout> table = {
        unpadded<WORD>(kOdsWord),
        unpadded<DWORD>(kOdsDword),
        unpadded<TIMEDATE>(_TIMEDATE),
        unpadded<DBID>(kOdsDbid),
        {_SEARCH_MATCH, sizeof(SEARCH_MATCH), {{0, 54}}},
        unpadded<ORIGINATORID>(_ORIGINATORID),
        {_OBJECT_DESCRIPTOR, sizeof(OBJECT_DESCRIPTOR),
         {{offsetof(OBJECT_DESCRIPTOR, ObjectType), sizeof(WORD)}, {offsetof(OBJECT_DESCRIPTOR, RRV), sizeof(DWORD)}}},
        unpadded<UNIVERSALNOTEID>(_UNIVERSALNOTEID),
        unpadded<VIEW_TABLE_FORMAT>(_VIEW_TABLE_FORMAT),
        {_VIEW_COLUMN_FORMAT, sizeof(VIEW_COLUMN_FORMAT),
         {{0, offsetof(VIEW_COLUMN_FORMAT, DisplayWidth) + sizeof(WORD)},
          {offsetof(VIEW_COLUMN_FORMAT, FontID), offsetof(VIEW_COLUMN_FORMAT, ListSep) + sizeof(WORD) -
                                                     offsetof(VIEW_COLUMN_FORMAT, FontID)}}},
        unpadded<VIEW_FORMAT_HEADER>(_VIEW_FORMAT_HEADER),
        unpadded<DBREPLICAINFO>(_DBREPLICAINFO),
    };
    return table;
}

const OdsLayout* layoutOf(WORD type)
{
    for (const OdsLayout& layout : layouts())
        if (layout.type == type)
            return &layout;
    return nullptr;
}

size_t canonicalLength(const OdsLayout& layout)
{
    size_t length = 0;
    for (const Run& run : layout.runs)
        length += run.size;
    return length;
}

} // namespace

WORD impl::ODSLength(WORD type)
{
    const OdsLayout* layout = layoutOf(type);
    return layout != nullptr ? static_cast<WORD>(canonicalLength(*layout)) : 0;
}

void impl::ODSReadMemory(void* ppSrc, WORD type, void* pDest, WORD iterations)
{
    const OdsLayout* layout = layoutOf(type);
    auto source = static_cast<const char**>(ppSrc);
    if (layout == nullptr || source == nullptr || *source == nullptr || pDest == nullptr)
        return;
    auto host = static_cast<char*>(pDest);
    for (WORD i = 0; i < iterations; ++i, host += layout->hostSize) {
        std::memset(host, 0, layout->hostSize);
        for (const Run& run : layout->runs) {
            std::memcpy(host + run.hostOffset, *source, run.size);
            *source += run.size;
        }
    }
}

void impl::ODSWriteMemory(void* ppDest, WORD type, const void* pSrc, WORD iterations)
{
    const OdsLayout* layout = layoutOf(type);
    auto destination = static_cast<char**>(ppDest);
    if (layout == nullptr || destination == nullptr || *destination == nullptr || pSrc == nullptr)
        return;
    auto host = static_cast<const char*>(pSrc);
    for (WORD i = 0; i < iterations; ++i, host += layout->hostSize) {
        for (const Run& run : layout->runs) {
            std::memcpy(*destination, host + run.hostOffset, run.size);
            *destination += run.size;
        }
    }
}
