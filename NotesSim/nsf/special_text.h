// Special text: what a view column formula leaves in an entry's summary for the
// functions whose result depends on the entry's place in the collection (@DocNumber,
// @DocParentNumber, @DocSiblings, @DocChildren, @DocDescendants, @DocLevel,
// @IsExpandable, @IsCategory). NSFTranslateSpecial resolves it for one entry.
//
// This runtime's form of one special text: kSpecialMark, the function's code, each
// argument behind kSpecialArgument, then kSpecialMark again. @DocNumber("-") is
// "\x7f" "N" "\x1f" "-" "\x7f"; @DocChildren is "\x7f" "C" "\x7f".
#ifndef HYSIM_SPECIAL_TEXT_H
#define HYSIM_SPECIAL_TEXT_H

namespace sim {

const char kSpecialMark = 0x7F;
const char kSpecialArgument = 0x1F;

enum SpecialCode : char {
    kDocNumber = 'N',        // no argument: '.' between levels; "" : the last level only; else its first character
    kDocParentNumber = 'P',  // as kDocNumber, for the parent (empty at the top level)
    kDocSiblings = 'S',
    kDocChildren = 'C',
    kDocDescendants = 'D',
    kDocLevel = 'L',         // 1 at the top level
    kIsExpandable = 'E',     // "+" / "-", or the one or two texts given
    kIsCategory = 'G',       // "*" / "", or the one or two texts given
};

} // namespace sim

#endif
