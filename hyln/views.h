// Reading a view's entries as index lines, shared by the index and archive jobs.
#ifndef HYLN_VIEWS_H
#define HYLN_VIEWS_H

#include <functional>
#include <string>

#include "HYLNTool.h"

namespace hyln {

using IndexLineSink = std::function<void(NOTEID noteId, const std::string& line)>;
using TitlesSink = std::function<void(const std::string& titles)>;

// Reads an open collection to its end, one buffer at a time; returns an exit code.
int forEachIndexLine(const std::string& viewName, HyLNView& view, HCOLLECTION collection, const IndexLineSink& sink);
// Finds the view, reads its column titles, and passes every entry's index line.
int readIndexLines(const std::string& viewName, HyLNView& view, const TitlesSink& onTitles, const IndexLineSink& sink);

} // namespace hyln

#endif
